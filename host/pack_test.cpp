// Packer service: the packed layout byte by byte, typed reads of every value
// kind as a host answers them, and validation of damaged buffers.
#include "host/host_pack.h"

#include <climits>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

using namespace hostemu;

namespace {

PackedBody Sample(int version) {
    return {version,
            {{"i", 'S', 255, 4}, {"d", 'S', 255, 2}, {"c", 'S', 255, 4}, {"s", 'S', 1024, 4}, {"r", 'R', 10240, 4},
             {"t", 'S', 255, 4}},
            {{PackCell(-42), PackCell(3.14159), PackCell('X'), PackCell("IF2406"), PackCell::Raw(std::string("a\0b", 3)),
              PackCell("99999999999999")},
             {PackCell(7), PackCell(-0.5), PackCell('0'), PackCell(""), PackCell::Raw(""), PackCell("12.75abc")}}};
}

TEST(Pack, LayoutIsByteExactAndThePackerKeepsItsRules) {
    CHostPackSvr svr;
    IF2Packer* p = svr.GetPacker(1);
    p->BeginPack();
    EXPECT_EQ(-1, p->AddInt(1)) << "no column declared";
    EXPECT_EQ(-1, p->AddField(std::string(256, 'n').c_str(), 'S', 255, 4)) << "names are 1..255 bytes";
    EXPECT_EQ(-1, p->AddField("", 'S', 255, 4));
    p->AddField("ab", 'S', 255, 4);
    p->AddField("r", 'R', 9, 2);
    p->AddInt(-2);
    p->PackRaw("xy", 2);
    EXPECT_EQ(-1, p->AddField("late", 'S', 255, 4)) << "columns come before values";
    p->AddDouble(1.0);
    svr.SetPackRawFails(true);
    EXPECT_LT(p->PackRaw("xyz", 3), 0) << "raw data refused on request";
    svr.SetPackRawFails(false);
    p->AddStr("s");
    p->AddChar('c');  // a third row, left short: filled with a kind-0 cell
    p->EndPack();
    const unsigned char expected[] = {'K', 'P', 1, 0, 2, 0, 0, 0, 3, 0, 0, 0,
                                      'S', 2, 'a', 'b', 255, 0, 0, 0, 4, 0, 0, 0, 'R', 1, 'r', 9, 0, 0, 0, 2, 0, 0, 0,
                                      'I', 0xfe, 0xff, 0xff, 0xff, 'R', 2, 0, 0, 0, 'x', 'y',
                                      'D', 0, 0, 0, 0, 0, 0, 0xf0, 0x3f, 'S', 1, 0, 0, 0, 's', 'C', 'c', 0};
    EXPECT_EQ(std::string(expected, expected + sizeof expected),
              std::string(static_cast<const char*>(p->GetPackBuf()), p->GetPackLen()));
    const char foreign[] = {'K', 'X', 1, 0};
    EXPECT_EQ(std::make_tuple(1, 33), std::make_tuple(svr.GetPackVersion(p->GetPackBuf()), svr.GetPackVersion(foreign)));
    p->FreeMem(&p);  // not its buffer: ignored
    ASSERT_NE(nullptr, p->GetPackBuf());
    p->FreeMem(p->GetPackBuf());
    EXPECT_EQ(std::make_tuple(static_cast<void*>(nullptr), 0), std::make_tuple(p->GetPackBuf(), p->GetPackLen()));
    svr.GetUnPacker(1);  // left to the service to free (ASan's leak check)
    p->Release();
    EXPECT_EQ(std::make_tuple(0ul, 1ul), std::make_tuple(svr.LivePackers(), svr.LiveUnPackers()));
}

// Every getter on every cell kind, as a host whose cells are text answers.
TEST(Pack, TypedReadsOfEveryKind) {
    CHostPackSvr svr;
    const std::vector<char> buf = EncodePacked(Sample(33));
    IF2UnPacker* u = svr.GetUnPacker(33);
    ASSERT_EQ(0, u->Open(buf.data(), static_cast<int>(buf.size())));
    EXPECT_EQ(std::make_tuple(2, 6, 'R', 10240, 'S', -1),
              std::make_tuple(u->GetRowCount(), u->GetColCount(), u->GetColType(4), u->GetColWidth(4), u->GetValueKind(3),
                              u->FindColumn("nope") < 0 ? -1 : 0));
    EXPECT_EQ(nullptr, u->GetStr("nope"));
    const struct {
        int row;
        const char* col;
        const char* str;
        int i;
        double d;
        char c;
    } reads[] = {
        {0, "i", "-42", -42, -42.0, '-'}, {0, "d", "3.14", 3, 3.14159, '3'}, {0, "c", "X", 0, 0.0, 'X'},
        {0, "s", "IF2406", 0, 0.0, 'I'},  {0, "r", "a", 0, 0.0, 'a'},
        {0, "t", "99999999999999", INT_MAX, 99999999999999.0, '9'},
        {1, "i", "7", 7, 7.0, '7'},       {1, "d", "-0.50", 0, -0.5, '-'},     {1, "c", "0", 0, 0.0, '0'},
        {1, "s", "", 0, 0.0, '\0'},       {1, "t", "12.75abc", 12, 12.75, '1'},
    };
    for (const auto& r : reads) {
        SCOPED_TRACE(std::to_string(r.row) + r.col);
        if (r.row > 0 && r.i == 7) {
            ASSERT_EQ(0, u->Next());
        }
        EXPECT_STREQ(r.str, u->GetStr(r.col));
        EXPECT_EQ(r.i, u->GetInt(r.col));
        EXPECT_DOUBLE_EQ(r.d, u->GetDouble(r.col));
        EXPECT_EQ(r.c, u->GetChar(r.col));
    }
    u->Next();
    EXPECT_TRUE(u->IsEOF());
    EXPECT_STREQ("", u->GetStr("s")) << "past the end reads empty, never out of bounds";
    u->First();
    int len = 0;
    const char* raw = static_cast<const char*>(u->GetRaw("r", &len));
    EXPECT_EQ(std::string("a\0b", 3), std::string(raw, static_cast<size_t>(len)));
}

TEST(Pack, DamagedBuffersAreRefusedAndNeverReadOutOfBounds) {
    CHostPackSvr svr;
    IF2UnPacker* u = svr.GetUnPacker(33);
    for (int version : {1, 33}) {
        const std::vector<char> buf = EncodePacked(Sample(version));
        for (size_t n = 0; n < buf.size(); ++n) {
            std::vector<char> prefix(buf.begin(), buf.begin() + static_cast<long>(n));  // exact size for ASan
            ASSERT_NE(0, u->Open(prefix.empty() ? nullptr : prefix.data(), static_cast<int>(n))) << n;
            EXPECT_TRUE(u->IsEOF() && u->GetColCount() == 0) << "a refused buffer leaves the unpacker empty";
        }
    }
    const std::vector<char> buf = EncodePacked(Sample(33));
    for (size_t pos = 0; pos < buf.size(); ++pos)
        for (int v : {0, 1, 0x7f, 0x80, 0xff, +'I', +'S', +'R', +'D'}) {
            std::vector<char> bad = buf;
            bad[pos] = static_cast<char>(v);
            if (u->Open(bad.data(), static_cast<int>(bad.size())) != 0) continue;
            for (int len = 0; !u->IsEOF(); u->Next())  // whatever is accepted is fully readable
                for (int c = 0; c < u->GetColCount(); ++c) u->GetStrByIndex(c), u->GetRawByIndex(c, &len);
        }
    // Magic, version, column count, row count, the first cell's kind; null,
    // negative length, a trailing byte.
    for (const auto& d : {std::make_tuple(1, 'X', -2), std::make_tuple(2, '\2', -3), std::make_tuple(5, '\x7f', -4),
                          std::make_tuple(8, '\xff', -8), std::make_tuple(12 + 6 * 11, 'Q', -6)}) {
        std::vector<char> bad = buf;
        bad[std::get<0>(d)] = std::get<1>(d);
        EXPECT_EQ(std::get<2>(d), u->Open(bad.data(), static_cast<int>(bad.size()))) << "byte " << std::get<0>(d);
    }
    std::vector<char> longer = buf;
    longer.push_back(0);
    EXPECT_EQ(std::make_tuple(-1, -1, -7), std::make_tuple(u->Open(nullptr, 4), u->Open(buf.data(), -1),
                                                           u->Open(longer.data(), static_cast<int>(longer.size()))));
}

}  // namespace
