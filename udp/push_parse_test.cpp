// Push records on their own: the field tables against their records, the
// reader's rules for numbers, texts and missing fields, and the per-kind
// counters on a service object built directly.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include "frame/tikron_service.h"
#include "host/host_emulator.h"
#include "udp/push_counter.h"
#include "udp/push_parse.h"
#include "udp/push_publish.h"
#include "udp/push_records.h"

namespace tikron_udp {
namespace {

TEST(PushTables, FieldsCoverTheirRecordsInOrderWithoutOverlap) {
    for (int k = 0; k < PUSH_KINDS; ++k) {
        const PushSpec* s = SpecOf(static_cast<PushKind>(k));
        ASSERT_NE(nullptr, s);
        SCOPED_TRACE(s->function);
        EXPECT_EQ(k, s->kind);
        ASSERT_GT(s->fieldCount, 0);
        std::set<std::string> names;
        std::size_t end = 0;
        for (int i = 0; i < s->fieldCount; ++i) {
            const PushField& f = s->fields[i];
            EXPECT_TRUE(names.insert(f.name).second) << f.name;
            EXPECT_GE(f.offset, end) << f.name;  // declaration order = datagram order
            end = f.offset + f.size;
            EXPECT_LE(end, s->recordSize) << f.name;
        }
        if (s->key == PUSH_KEY_BRANCH_FUND) {
            EXPECT_EQ(0, FindPushField(*s, "fund_account"));
            EXPECT_EQ(1, FindPushField(*s, "branch_no"));
        }
    }
    EXPECT_EQ(nullptr, SpecOf(PUSH_KINDS));
    // The deal report is the entrust record without its two error fields.
    EXPECT_EQ(OptEntrustSpec().fields, OptCjhbSpec().fields);
    EXPECT_EQ(OptEntrustSpec().fieldCount - 2, OptCjhbSpec().fieldCount);
    EXPECT_STREQ("error_no", OptEntrustSpec().fields[OptCjhbSpec().fieldCount].name);
    EXPECT_EQ(-1, FindPushField(OptCjhbSpec(), "error_info"));
    EXPECT_EQ(1023, PushColumnWidth(StpSpec().fields[3]));
    EXPECT_EQ(255, PushColumnWidth(OptEntrustSpec().fields[32]));  // error_info, 255 characters
}

// Reads an exercise-status record whose field at index i is v.
int ReadExercise(int i, const std::string& v, tagEXERCISESTATUS* rec, int* failed) {
    std::string f[13] = {"80012345", "8",   "20241220", "F4", "IO2412-P-3800", "0001234567", "30017",
                         "2",        "1",   "8",        "150102", "0",          ""};
    f[i] = v;
    std::string text;
    for (const std::string& x : f) text += x + ",";
    std::memset(rec, 0, sizeof *rec);
    return ReadPushRecord(ExerciseStatusSpec(), text.c_str(), rec, sizeof *rec, failed);
}

TEST(PushReader, NumbersMustBePlainAndFitTheirType) {
    tagEXERCISESTATUS r;
    int failed = 0;
    struct {
        const char* text;
        int rc;
        int value;
    } ints[] = {
        {"2147483647", 0, 2147483647}, {"-2147483648", 0, -2147483647 - 1}, {"+5", 0, 5}, {"007", 0, 7},
        {"", 0, 0},                    {"2147483648", -3, 0},  {"-2147483649", -3, 0}, {"9999999999999999", -3, 0},
        {"12345678901234567", -3, 0},  {"5a", -3, 0},          {" 5", -3, 0},          {"-", -3, 0},
        {"1.5", -3, 0},
    };
    for (const auto& c : ints) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(c.rc, ReadExercise(8, c.text, &r, &failed));
        if (c.rc == 0) {
            EXPECT_EQ(c.value, r.exercise_amount);
            EXPECT_EQ(-1, failed);
        } else {
            EXPECT_EQ(8, failed);
            EXPECT_EQ(0, r.exercise_amount);
            EXPECT_EQ('2', r.exercise_type);  // fields before the failure stay
        }
    }

    tagOPTHQ q;
    auto readPrice = [&](const std::string& v) {
        std::string text = "F1,SR505C6000,SR505,C,6000," + v + ",1,1,1,1,1,1,1,1,1,1,1,1,1,1,20250408,93000,";
        std::memset(&q, 0, sizeof q);
        return ReadPushRecord(OptHqSpec(), text.c_str(), &q, sizeof q, &failed);
    };
    EXPECT_EQ(0, readPrice("87.25"));
    EXPECT_EQ(87.25, q.pre_square_price);
    EXPECT_EQ(0, readPrice("-1e-3"));
    EXPECT_EQ(-0.001, q.pre_square_price);
    EXPECT_EQ(0, readPrice(""));
    EXPECT_EQ(0.0, q.pre_square_price);
    EXPECT_EQ(0, readPrice(std::string(32, '9')));
    for (const char* bad : {"1e999", "nan", "inf", "87.2.5", " 87", "87 ", "0x", "abc"}) {
        EXPECT_EQ(-3, readPrice(bad)) << bad;
        EXPECT_EQ(5, failed);
    }
    EXPECT_EQ(-3, readPrice(std::string(33, '9')));
}

TEST(PushReader, TextsCharactersAndMissingFields) {
    tagEXERCISESTATUS r;
    int failed = 0;
    EXPECT_EQ(0, ReadExercise(4, std::string(30, 'x'), &r, &failed));
    EXPECT_EQ(std::string(30, 'x'), r.option_code);
    EXPECT_EQ(-2, ReadExercise(4, std::string(31, 'x'), &r, &failed));
    EXPECT_EQ(4, failed);
    EXPECT_EQ(0, ReadExercise(7, "12", &r, &failed));  // a character field keeps its first character
    EXPECT_EQ('1', r.exercise_type);
    EXPECT_EQ(-3, ReadExercise(7, "", &r, &failed));
    EXPECT_EQ(7, failed);
    EXPECT_EQ(0, ReadExercise(12, "委托已撤", &r, &failed));
    EXPECT_STREQ("委托已撤", r.error_info);

    // Missing fields: every field needs its ',' in the prepared text.
    std::memset(&r, 0, sizeof r);
    EXPECT_EQ(-2, ReadPushRecord(ExerciseStatusSpec(), "80012345,8,20241220,F4", &r, sizeof r, &failed));
    EXPECT_EQ(3, failed);
    EXPECT_STREQ("80012345", r.fund_account);
    EXPECT_EQ(-2, ReadPushRecord(ExerciseStatusSpec(), "", &r, sizeof r, &failed));
    EXPECT_EQ(0, failed);

    // Bad arguments.
    EXPECT_EQ(-1, ReadPushRecord(ExerciseStatusSpec(), nullptr, &r, sizeof r, &failed));
    EXPECT_EQ(-1, ReadPushRecord(ExerciseStatusSpec(), "a,", nullptr, sizeof r, &failed));
    EXPECT_EQ(-1, ReadPushRecord(ExerciseStatusSpec(), "a,", &r, sizeof r - 1, nullptr));
}

std::string Datagram(char type, const std::string& text) {
    char head[8];
    snprintf(head, sizeof head, "%c%05d", type, static_cast<int>(text.size()));
    return head + text;
}

class PushCounters : public testing::Test {
protected:
    void SetUp() override {
        g_lpMsgFactory = &factory_;
        svc_ = new CTIKRONServiceImpl();
        svc_->RegisterPrevService(&center_);
        svc_->m_pPacker = packSvr_.GetPacker(33);
        svc_->m_lpLogService = &log_;
    }
    void TearDown() override {
        svc_->Release();
        g_lpMsgFactory = nullptr;
        EXPECT_EQ(0u, factory_.Stats().live);
        EXPECT_EQ(0u, factory_.Stats().doubleReleases);
    }
    int Run(const std::string& d) { return svc_->DoUDPHelper(const_cast<char*>(d.c_str()), static_cast<int>(d.size())); }

    hostemu::CHostMessageFactory factory_;
    hostemu::CHostPackSvr packSvr_;
    hostemu::CHostLog log_;
    hostemu::CHostNeighbour center_{"mc"};
    CTIKRONServiceImpl* svc_ = nullptr;
};

TEST_F(PushCounters, EveryDatagramIsCountedAndRefusalsGiveTheirCodes) {
    const unsigned long rec = PushReceived(PUSH_STP), pub = PushPublished(PUSH_STP), ref = PushRefused(PUSH_STP);
    EXPECT_EQ(0, Run(Datagram('S', "80012345,8,CN,info")));
    EXPECT_EQ(-2, Run(Datagram('S', "80012345,8,CN")));       // field 4 missing
    EXPECT_EQ(-2, Run("S00099" "80012345,8,CN,info"));         // declared length too long
    EXPECT_EQ(-2, Run("S0"));                                   // no header
    EXPECT_EQ(-3, Run(Datagram('S', "80012345,99999999999,CN,info")));
    EXPECT_EQ(rec + 5, PushReceived(PUSH_STP));
    EXPECT_EQ(pub + 1, PushPublished(PUSH_STP));
    EXPECT_EQ(ref + 4, PushRefused(PUSH_STP));
    EXPECT_EQ(1u, center_.Count());
    EXPECT_EQ(4u, log_.CountContaining("CTIKRONServiceImpl::DealPUSH_STP"));

    // A message refused by the chain is released by the plug-in, the record
    // still counts as read.
    center_.SetMode(hostemu::CHostNeighbour::Refuse);
    EXPECT_EQ(0, Run(Datagram('S', "80012345,8,CN,info")));
    // No message from the host: nothing sent, nothing leaks.
    factory_.FailNextGetMsg(4);  // the first get and its three retries
    EXPECT_EQ(0, Run(Datagram('S', "80012345,8,CN,info")));
    EXPECT_EQ(pub + 2, PushPublished(PUSH_STP));
}

}  // namespace
}  // namespace tikron_udp
