// Packer service: round trips of every value kind, typed reads, validation.
#include "host/host_pack.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace hostemu;

namespace {

PackedBody Sample(int version) {
    PackedBody b;
    b.version = version;
    b.columns = {{"i", 'S', 255, 4}, {"d", 'S', 255, 2}, {"c", 'S', 255, 4},
                 {"s", 'S', 1024, 4}, {"r", 'R', 10240, 4}};
    b.rows.push_back({PackCell(-42), PackCell(3.14159), PackCell('X'), PackCell("IF2406"),
                      PackCell::Raw(std::string("a\0b", 3))});
    b.rows.push_back({PackCell(7), PackCell(-0.5), PackCell('0'), PackCell(""), PackCell::Raw("")});
    return b;
}

TEST(Pack, EveryKindRoundTripsInBothVersions) {
    for (int version : {1, 33}) {
        PackedBody in = Sample(version);
        std::vector<char> buf = EncodePacked(in);
        CHostPackSvr svr;
        EXPECT_EQ(version, svr.GetPackVersion(buf.data()));
        PackedBody out;
        ASSERT_EQ(0, DecodePacked(buf.data(), static_cast<int>(buf.size()), &out));
        EXPECT_EQ(version, out.version);
        ASSERT_EQ(in.columns.size(), out.columns.size());
        for (size_t k = 0; k < in.columns.size(); ++k) {
            EXPECT_EQ(in.columns[k].name, out.columns[k].name);
            EXPECT_EQ(in.columns[k].type, out.columns[k].type);
            EXPECT_EQ(in.columns[k].width, out.columns[k].width);
            EXPECT_EQ(in.columns[k].scale, out.columns[k].scale);
        }
        ASSERT_EQ(in.rows.size(), out.rows.size());
        for (size_t r = 0; r < in.rows.size(); ++r)
            for (size_t k = 0; k < in.columns.size(); ++k)
                EXPECT_TRUE(in.rows[r][k] == out.rows[r][k]) << "row " << r << " col " << k;
    }
}

TEST(Pack, UnpackerReadsTypedValuesAndConvertsLikeAHost) {
    CHostPackSvr svr;
    std::vector<char> buf = EncodePacked(Sample(33));
    IF2UnPacker* u = svr.GetUnPacker(33);
    ASSERT_EQ(0, u->Open(buf.data(), static_cast<int>(buf.size())));
    EXPECT_EQ(2, u->GetRowCount());
    EXPECT_EQ(5, u->GetColCount());
    EXPECT_EQ(0, u->FindColumn("i"));
    EXPECT_LT(u->FindColumn("nope"), 0);
    EXPECT_EQ(nullptr, u->GetStr("nope"));
    EXPECT_EQ(0, u->GetInt("nope"));

    EXPECT_EQ(-42, u->GetInt("i"));
    EXPECT_STREQ("-42", u->GetStr("i"));
    EXPECT_DOUBLE_EQ(-42.0, u->GetDouble("i"));
    EXPECT_EQ('-', u->GetChar("i"));
    EXPECT_DOUBLE_EQ(3.14159, u->GetDouble("d"));
    EXPECT_STREQ("3.14", u->GetStr("d")) << "doubles print with the column scale";
    EXPECT_EQ(3, u->GetInt("d"));
    EXPECT_EQ('X', u->GetChar("c"));
    EXPECT_STREQ("X", u->GetStr("c"));
    EXPECT_STREQ("IF2406", u->GetStr("s"));
    EXPECT_EQ('I', u->GetChar("s"));
    EXPECT_EQ('S', u->GetValueKind(3));
    int len = 0;
    const void* raw = u->GetRaw("r", &len);
    ASSERT_EQ(3, len);
    EXPECT_EQ(0, memcmp(raw, "a\0b", 3));
    EXPECT_EQ('R', u->GetColType(4));
    EXPECT_EQ(10240, u->GetColWidth(4));

    ASSERT_EQ(0, u->Next());
    EXPECT_FALSE(u->IsEOF());
    EXPECT_EQ(7, u->GetInt("i"));
    EXPECT_EQ(0, u->GetInt("c")) << "atoi of \"0\"";
    EXPECT_STREQ("", u->GetStr("s"));
    u->GetRaw("r", &len);
    EXPECT_EQ(0, len);
    u->Next();
    EXPECT_TRUE(u->IsEOF());
    EXPECT_STREQ("", u->GetStr("s")) << "past the end reads empty, never out of bounds";
    u->First();
    EXPECT_EQ(-42, u->GetInt("i"));
    EXPECT_EQ(static_cast<int>(buf.size()), u->GetPackLen());
    EXPECT_EQ(0, memcmp(buf.data(), u->GetPackBuf(), buf.size()));
    u->Release();
}

TEST(Pack, StringCellsConvertWithClampingAndRowsFillUp) {
    CHostPackSvr svr;
    IF2Packer* p = svr.GetPacker(1);
    p->BeginPack();
    p->AddField("a", 'S', 255, 4);
    p->AddField("b", 'S', 255, 4);
    EXPECT_EQ(0, p->AddStr("99999999999999"));
    EXPECT_EQ(-1, p->AddField("late", 'S', 255, 4)) << "columns come before values";
    p->AddStr("12.75abc");
    p->AddInt(5);  // a second row, left short
    p->EndPack();
    IF2UnPacker* u = svr.GetUnPacker(1);
    ASSERT_EQ(0, u->Open(p->GetPackBuf(), p->GetPackLen()));
    EXPECT_EQ(2, u->GetRowCount());
    EXPECT_EQ(2147483647, u->GetInt("a"));
    EXPECT_DOUBLE_EQ(12.75, u->GetDouble("b"));
    EXPECT_EQ(12, u->GetInt("b"));
    u->Next();
    EXPECT_EQ(5, u->GetInt("a"));
    EXPECT_EQ(0, u->GetValueKind(1));
    EXPECT_STREQ("", u->GetStr("b"));
    // Leave both unreleased: the service frees them (checked by ASan's leak check).
    EXPECT_EQ(1u, svr.LivePackers());
    EXPECT_EQ(1u, svr.LiveUnPackers());
}

TEST(Pack, ManyRowsAndAValueWithoutColumnsIsRefused) {
    CHostPackSvr svr;
    IF2Packer* p = svr.GetPacker(33);
    p->BeginPack();
    EXPECT_EQ(-1, p->AddInt(1)) << "no column declared";
    p->AddField("n", 'S', 255, 4);
    p->AddField("name", 'S', 255, 4);
    for (int i = 0; i < 5000; ++i) {
        p->AddInt(i);
        p->AddStr(("c" + std::to_string(i)).c_str());
    }
    p->EndPack();
    IF2UnPacker* u = svr.GetUnPacker(33);
    ASSERT_EQ(0, u->Open(p->GetPackBuf(), p->GetPackLen()));
    ASSERT_EQ(5000, u->GetRowCount());
    int i = 0;
    for (; !u->IsEOF(); u->Next(), ++i) {
        ASSERT_EQ(i, u->GetInt("n"));
        ASSERT_EQ("c" + std::to_string(i), u->GetStr("name"));
    }
    EXPECT_EQ(5000, i);
    p->Release();
    u->Release();
    EXPECT_EQ(0u, svr.LivePackers());
    EXPECT_EQ(0u, svr.LiveUnPackers());
}

TEST(Pack, FreeMemResetsThePackerAndPackRawFaultInjection) {
    CHostPackSvr svr;
    IF2Packer* p = svr.GetPacker(33);
    p->BeginPack();
    p->AddField("r", 'R', 10240, 4);
    EXPECT_EQ(0, p->PackRaw("xyz", 3));
    svr.SetPackRawFails(true);
    EXPECT_LT(p->PackRaw("xyz", 3), 0);
    svr.SetPackRawFails(false);
    EXPECT_LT(p->PackRaw(nullptr, 4), 0);
    p->EndPack();
    int before = 0;
    p->FreeMem(&before);  // a foreign pointer is ignored
    EXPECT_NE(nullptr, p->GetPackBuf());
    p->FreeMem(p->GetPackBuf());
    EXPECT_EQ(nullptr, p->GetPackBuf());
    EXPECT_EQ(0, p->GetPackLen());
    p->BeginPack();  // usable again
    p->AddField("s", 'S', 255, 4);
    p->AddStr("again");
    p->EndPack();
    PackedBody b;
    ASSERT_EQ(0, DecodePacked(p->GetPackBuf(), p->GetPackLen(), &b));
    EXPECT_EQ("again", b.Str(0, "s"));
    p->Release();
}

TEST(Pack, GetPackVersionOnForeignBytes) {
    CHostPackSvr svr;
    const char v1[] = {'K', 'P', 1, 0};
    const char other[] = {'K', 'X', 1, 0};
    EXPECT_EQ(1, svr.GetPackVersion(v1));
    EXPECT_EQ(33, svr.GetPackVersion(other));
    EXPECT_EQ(33, svr.GetPackVersion(nullptr));
}

TEST(Pack, OpenRefusesEveryTruncatedPrefixAndStaysEmpty) {
    CHostPackSvr svr;
    IF2UnPacker* u = svr.GetUnPacker(33);
    for (int version : {1, 33}) {
        std::vector<char> buf = EncodePacked(Sample(version));
        for (size_t n = 0; n < buf.size(); ++n) {
            // Exact-size heap copy so ASan sees any read past the prefix.
            std::vector<char> prefix(buf.begin(), buf.begin() + static_cast<long>(n));
            int rc = u->Open(prefix.empty() ? nullptr : prefix.data(), static_cast<int>(n));
            ASSERT_NE(0, rc) << "prefix " << n;
            EXPECT_TRUE(u->IsEOF());
            EXPECT_EQ(0, u->GetColCount());
        }
    }
    EXPECT_EQ(-1, u->Open(nullptr, 4));
    std::vector<char> good = EncodePacked(Sample(33));
    EXPECT_EQ(-1, u->Open(good.data(), -1));
    good.push_back(0);
    EXPECT_EQ(-7, u->Open(good.data(), static_cast<int>(good.size()))) << "trailing byte";
}

TEST(Pack, SingleByteCorruptionsNeverReadOutOfBounds) {
    CHostPackSvr svr;
    IF2UnPacker* u = svr.GetUnPacker(33);
    std::vector<char> buf = EncodePacked(Sample(33));
    const unsigned char values[] = {0x00, 0x01, 0x7f, 0x80, 0xff, 'I', 'S', 'R', 'D'};
    int accepted = 0;
    for (size_t pos = 0; pos < buf.size(); ++pos) {
        for (unsigned char v : values) {
            std::vector<char> bad = buf;
            bad[pos] = static_cast<char>(v);
            if (u->Open(bad.data(), static_cast<int>(bad.size())) == 0) {
                ++accepted;
                // Whatever was accepted must be fully readable.
                for (; !u->IsEOF(); u->Next())
                    for (int c = 0; c < u->GetColCount(); ++c) {
                        int len = 0;
                        u->GetStrByIndex(c);
                        u->GetRawByIndex(c, &len);
                        ASSERT_GE(len, 0);
                    }
            }
        }
    }
    // Payload bytes (values, names) may change without breaking the frame.
    EXPECT_GT(accepted, 0);
    // Structural damage is caught: an impossible row count, an unknown kind, a bad version.
    std::vector<char> bad = buf;
    bad[8] = static_cast<char>(0xff);
    EXPECT_EQ(-8, u->Open(bad.data(), static_cast<int>(bad.size())));
    bad = buf;
    bad[2] = 2;
    EXPECT_EQ(-3, u->Open(bad.data(), static_cast<int>(bad.size())));
    bad = buf;
    bad[5] = 0x7f;  // column count 32512+: too many
    EXPECT_EQ(-4, u->Open(bad.data(), static_cast<int>(bad.size())));
}

}  // namespace
