// Pooled message objects are reused with their items kept for speed: a
// reused message must carry nothing of its earlier life, and raw data keeps
// its zero padding whatever was stored before.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "frame/esb_message.h"
#include "host/host_message.h"
#include "host/host_pack.h"
#include "host/host_queue.h"

using namespace hostemu;

namespace {

TEST(MessageReuse, ReusedObjectStartsEmptyAndEncodesOnlyNewItems) {
    CHostMessageFactory f(0);  // no quarantine: the next message is the same object
    IESBMessage* m = f.GetESBMsg();
    ASSERT_NE(nullptr, m);
    for (int tag : {3, 5, 8, 9, 11, 53, 54, 100, 1023}) {
        m->GetItem(tag)->SetString("old", 2);
        m->GetItem(tag)->SetRawData("old-bytes", 9);
    }
    m->Release();
    IESBMessage* n = f.GetESBMsg();
    ASSERT_EQ(n, m) << "the pool hands the object out again";
    n->Prepare(PACKET_REQUEST, 620003);
    n->GetItem(53)->SetInt(33100, 0);
    MessageSnapshot s;
    int len = 0;
    const void* buf = n->GetBuffer(&len);
    ASSERT_EQ(0, DecodeMessage(buf, len, &s));
    ASSERT_EQ(3u, s.items.size()) << "only items 3, 5 and 53";
    EXPECT_EQ(620003, s.FunctionNo());
    EXPECT_EQ(33100, s.IssueType());
    int rawLen = 1;
    EXPECT_EQ(nullptr, n->GetItem(1023)->GetRawData(&rawLen, 0));
    EXPECT_EQ(0, rawLen);
    EXPECT_EQ(0, n->GetItem(9)->GetCount());
    // An item pointer kept across Prepare sees the cleared item, and values
    // set after it are current.
    IESBMessageItem* kept = n->GetItem(8);
    kept->SetRawData("body", 4);
    n->Prepare(PACKET_REQUEST, 620003);
    EXPECT_EQ(nullptr, kept->GetRawData(&rawLen, 0));
    EXPECT_STREQ("", kept->GetString(2));
    kept->SetInt(7, 1);
    EXPECT_EQ(2, kept->GetCount());
    EXPECT_EQ(0, kept->GetInt(0));
    n->Release();
    EXPECT_EQ(0u, f.Stats().live);
    EXPECT_EQ(0u, f.Stats().doubleReleases);
    EXPECT_EQ(0u, f.Stats().usesAfterRelease);
}

TEST(MessageReuse, ShorterRawAfterLongerKeepsZeroPadAndRoundTrips) {
    CHostMessageFactory f;
    CHostMessage* m = f.NewMessage();
    IESBMessageItem* body = m->GetItem(8);
    body->SetRawData("ABCDEFGHIJKLMNOPQRSTUVWXYZ", 26);
    body->SetRawData("xy", 2);
    int len = 0;
    const char* p = static_cast<const char*>(body->GetRawData(&len, 0));
    ASSERT_EQ(2, len);
    EXPECT_EQ(0, memcmp(p, "xy", 2));
    for (int i = 2; i < 10; ++i) EXPECT_EQ('\0', p[i]) << "pad byte " << i;

    // SetBuffer of an encoding of this message gives the same content.
    int n = 0;
    const void* enc = m->GetBuffer(&n);
    std::string copy(static_cast<const char*>(enc), static_cast<size_t>(n));
    CHostMessage* other = f.NewMessage();
    other->GetItem(8)->SetRawData("a much longer old body", 22);
    ASSERT_EQ(0, other->SetBuffer(copy.data(), static_cast<int>(copy.size())));
    p = static_cast<const char*>(other->GetItem(8)->GetRawData(&len, 0));
    ASSERT_EQ(2, len);
    EXPECT_EQ(0, memcmp(p, "xy\0\0\0\0\0\0\0\0", 10));
    m->Release();
    other->Release();
}

// Every value kind packed after the columns decodes back; a name over 255
// bytes is refused without reading past its bound.
TEST(MessageReuse, PackerKindsRoundTripAndLongNamesAreRefused) {
    CHostPackSvr svr;
    IF2Packer* p = svr.GetPacker(33);
    std::string longName(300, 'n');
    for (int round = 0; round < 2; ++round) {  // the second round reuses the buffer
        p->BeginPack();
        EXPECT_EQ(-1, p->AddField(longName.c_str(), 'S', 255, 4));
        EXPECT_EQ(-1, p->AddField("", 'S', 255, 4));
        EXPECT_EQ(0, p->AddField(std::string(255, 'k').c_str(), 'S', 255, 4));
        EXPECT_EQ(0, p->AddField("i", 'S', 255, 4));
        EXPECT_EQ(0, p->AddField("d", 'S', 255, 4));
        EXPECT_EQ(0, p->AddField("c", 'S', 255, 4));
        EXPECT_EQ(0, p->AddField("r", 'R', 1024, 4));
        p->AddStr("text");
        p->AddInt(-7);
        p->AddDouble(2.5);
        p->AddChar('Z');
        p->PackRaw("\0raw", 4);
        p->AddStr(nullptr);  // a second, short row
        p->EndPack();
        PackedBody b;
        ASSERT_EQ(0, DecodePacked(p->GetPackBuf(), p->GetPackLen(), &b));
        ASSERT_EQ(5u, b.columns.size());
        ASSERT_EQ(2u, b.rows.size());
        EXPECT_EQ("text", b.rows[0][0].bytes);
        EXPECT_EQ(-7, b.rows[0][1].i);
        EXPECT_EQ(2.5, b.rows[0][2].d);
        EXPECT_EQ('Z', b.rows[0][3].c);
        EXPECT_EQ(std::string("\0raw", 4), b.rows[0][4].bytes);
        EXPECT_EQ('S', b.rows[1][0].kind);
        EXPECT_EQ(0, b.rows[1][1].kind);
        IF2UnPacker* u = svr.GetUnPacker(33);
        ASSERT_EQ(0, u->Open(p->GetPackBuf(), p->GetPackLen()));
        EXPECT_EQ(-7, u->GetInt("i"));
        EXPECT_STREQ("2.5000", u->GetStr("d"));
        EXPECT_EQ(nullptr, u->GetStr("dd"));
        EXPECT_EQ(nullptr, u->GetStr(longName.c_str()));
        EXPECT_EQ(0, u->FindColumn(std::string(255, 'k').c_str()));
        u->Release();
    }
    p->Release();
}

}  // namespace
