// Push records on their own: the field tables against their records, the
// reader's rules for numbers, texts and missing fields, and the per-kind
// counters and log lines of the handler.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "testing/frame_test_support.h"
#include "testing/service_test_support.h"
#include "udp/push_counter.h"
#include "udp/push_parse.h"
#include "udp/push_records.h"

namespace tikron_udp {
namespace {

// Reads an exercise-status record whose field at index i is v; rc, and the
// failed field's index (-1 when none).
std::pair<int, int> ReadExercise(int i, const std::string& v, tagEXERCISESTATUS& rec) {
    std::string f[13] = {"80012345", "8", "20241220", "F4", "IO2412-P-3800", "0001234567", "30017",
                         "2",        "1", "8",        "150102", "0",    ""};
    f[i] = v;
    std::string text;
    for (const std::string& x : f) text += x + ",";
    std::memset(&rec, 0, sizeof rec);
    int failed = -7;
    const int rc = ReadPushRecord(ExerciseStatusSpec(), text.c_str(), &rec, sizeof rec, &failed);
    return {rc, failed};
}

TEST(PushReader, NumbersMustBePlainAndFitTheirType) {
    tagEXERCISESTATUS r;
    const struct {
        const char* text;
        int rc, value;
    } ints[] = {{"2147483647", 0, 2147483647}, {"-2147483648", 0, -2147483647 - 1}, {"+5", 0, 5}, {"007", 0, 7},
                {"", 0, 0}, {"2147483648", -3, 0}, {"-2147483649", -3, 0}, {"9999999999999999", -3, 0},
                {"12345678901234567", -3, 0}, {"5a", -3, 0}, {" 5", -3, 0}, {"-", -3, 0}, {"1.5", -3, 0}};
    for (const auto& c : ints) {
        EXPECT_EQ(ReadExercise(8, c.text, r), std::make_pair(c.rc, c.rc == 0 ? -1 : 8)) << c.text;
        EXPECT_EQ(r.exercise_amount, c.value) << c.text;
        EXPECT_EQ(r.exercise_type, '2') << c.text;  // fields before a failure stay
    }
    tagOPTHQ q;
    auto readPrice = [&q](const std::string& v) {
        const std::string text = "F1,SR505C6000,SR505,C,6000," + v + ",1,1,1,1,1,1,1,1,1,1,1,1,1,1,20250408,93000,";
        std::memset(&q, 0, sizeof q);
        int failed = -7;
        const int rc = ReadPushRecord(OptHqSpec(), text.c_str(), &q, sizeof q, &failed);
        return std::make_pair(rc, failed);
    };
    const std::pair<std::string, double> prices[] = {{"87.25", 87.25}, {"-1e-3", -0.001}, {"", 0.0},
                                                     {std::string(32, '9'), 1e32}};
    for (const auto& [text, want] : prices) {
        EXPECT_EQ(readPrice(text), std::make_pair(0, -1)) << text;
        EXPECT_EQ(q.pre_square_price, want) << text;
    }
    for (const std::string bad : {"1e999", "nan", "inf", "87.2.5", " 87", "87 ", "0x", "abc", "-", "9e99999999999999999999999999999999"})
        EXPECT_EQ(readPrice(bad), std::make_pair(-3, 5)) << bad;
}

// A character field keeps its first character; the table must fit the
// record given, and there must be a text and a record.
TEST(PushReader, CharactersAndArguments) {
    tagEXERCISESTATUS r;
    EXPECT_EQ(ReadExercise(7, "12", r), std::make_pair(0, -1));
    EXPECT_EQ('1', r.exercise_type);
    int failed = -7;
    EXPECT_EQ(-1, ReadPushRecord(ExerciseStatusSpec(), nullptr, &r, sizeof r, &failed));
    EXPECT_EQ(-1, failed);
    EXPECT_EQ(-1, ReadPushRecord(ExerciseStatusSpec(), "a,", nullptr, sizeof r, &failed));
    EXPECT_EQ(-1, ReadPushRecord(ExerciseStatusSpec(), "a,", &r, sizeof r - 1, nullptr));
    EXPECT_EQ(nullptr, SpecOf(PUSH_KINDS));
}

TEST(PushHandler, EveryDatagramIsCountedByItsOutcome) {
    using frametest::Datagram;
    hostemu::CHostLog log;
    ScratchService service;
    CTIKRONServiceImpl& svc = service.Svc();
    svc.m_lpLogService = &log;
    auto run = [&svc](const std::string& d) { return svc.DoUDPHelper(const_cast<char*>(d.c_str()), static_cast<int>(d.size())); };
    const unsigned long rec = PushReceived(PUSH_STP), pub = PushPublished(PUSH_STP), ref = PushRefused(PUSH_STP);
    EXPECT_EQ(0, run(Datagram('S', "80012345,8,CN,info")));
    EXPECT_EQ(-2, run(Datagram('S', "80012345,8,CN")));  // field 4 missing
    EXPECT_EQ(-2, run("S00099" "80012345,8,CN,info"));  // declared length too long
    EXPECT_EQ(-2, run("S0"));                            // no header
    EXPECT_EQ(-3, run(Datagram('S', "80012345,99999999999,CN,info")));
    EXPECT_EQ(rec + 5, PushReceived(PUSH_STP));
    EXPECT_EQ(pub + 1, PushPublished(PUSH_STP));
    EXPECT_EQ(ref + 4, PushRefused(PUSH_STP));
    EXPECT_EQ(1u, service.Center().Count());
    EXPECT_EQ(4u, log.CountContaining("CTIKRONServiceImpl::DealPUSH_STP"));
    // Refused by the chain: released by the plug-in, the record still counts
    // as read. No message from the host: nothing sent, nothing leaks.
    service.Center().SetMode(hostemu::CHostNeighbour::Refuse);
    EXPECT_EQ(0, run(Datagram('S', "80012345,8,CN,info")));
    service.Factory().FailNextGetMsg(4);  // the first get and its three retries
    EXPECT_EQ(0, run(Datagram('S', "80012345,8,CN,info")));
    EXPECT_EQ(pub + 2, PushPublished(PUSH_STP));
    service.Close();
    EXPECT_EQ(0u, service.Factory().Stats().live);
    EXPECT_EQ(0u, service.Factory().Stats().doubleReleases);
}

}  // namespace
}  // namespace tikron_udp
