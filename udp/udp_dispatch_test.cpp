// Dispatch on a service object built directly (no library load): results by
// type character, the on/off switches, a missing packer, the exchange-feed
// record bounded to its fields, and the legacy single-leg copy.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "store/hq_tables.h"
#include "store/single_leg_fields.h"
#include "testing/frame_test_support.h"
#include "testing/service_test_support.h"
#include "testing/store_test_support.h"

namespace {

using frametest::Datagram;

class Dispatch : public testing::Test {
protected:
    void SetUp() override {
        center_.SetMode(hostemu::CHostNeighbour::CountOnly);
        svc_->m_lpLogService = &log_;
    }
    void TearDown() override {
        service_.Close();
        EXPECT_EQ(0u, service_.Factory().Stats().live);
        EXPECT_EQ(0u, service_.Factory().Stats().doubleReleases);
    }
    int Run(const std::string& d) { return svc_->DoUDPHelper(const_cast<char*>(d.data()), static_cast<int>(d.size())); }

    hostemu::CHostLog log_;  // outlives the service that logs to it
    tikron_udp::ScratchService service_;
    CTIKRONServiceImpl* svc_ = &service_.Svc();
    hostemu::CHostNeighbour& center_ = service_.Center();
};

const std::string kDeal =
    "F4,IF2412,0,1,3861.2,5,1,1,3862.0,6,778,10086,R001,F01,OP1,6,8888,20240105,93002,C1,BC1,SC1,OCC,R,3,B,S,1,2,";

TEST_F(Dispatch, ResultsAndGates) {
    EXPECT_EQ(-2, Run("Q00003abc"));
    EXPECT_EQ(-2, Run("000010123456789"));  // declared longer than the text
    EXPECT_EQ(1u, log_.CountContaining("未知的记录类型: 81!"));
    EXPECT_EQ(0, Run(Datagram('0', SingleLegText("IF2412", "F4") + ",93015,")));
    EXPECT_EQ(3u, center_.Count());
    svc_->m_iDealUdpHq = 0;
    EXPECT_EQ(0, Run("000010123456789"));  // switched off: not even checked
    EXPECT_EQ(0, Run("900010123456789"));
    EXPECT_EQ(0, Run("B00010123456789"));
    svc_->m_iDealUdpHb = 0;
    EXPECT_EQ(0, Run(Datagram('C', kDeal)));
    EXPECT_EQ(0, Run(Datagram('3', kDeal)));
    EXPECT_EQ(3u, center_.Count());
    EXPECT_EQ(0, Run(Datagram('A', "F1,2,1,")));  // exchange status is never switched off
    EXPECT_EQ(5u, center_.Count());

    // No packer: nothing is sent, the line says why, no message leaks.
    IF2Packer* p = svc_->m_pPacker;
    svc_->m_pPacker = nullptr;
    EXPECT_EQ(0, Run(Datagram('A', "F1,2,1,")));
    svc_->m_pPacker = p;
    EXPECT_EQ(5u, center_.Count());
    EXPECT_EQ(2u, log_.CountContaining("no packer"));
}

TEST_F(Dispatch, ExchangeFeedFieldsAreBoundedToTheRecord) {
    svc_->m_iUdpHqVersion = 1;
    // A 60-character code and exchange field, more than 46 fields.
    std::string feed = "0\x01" "1\x01" "2\x01" "3\x01" + std::string(60, 'E') + "\x01" "5\x01" + std::string(60, 'C');
    for (int i = 7; i < 60; ++i) feed += "\x01" + std::to_string(i);
    EXPECT_EQ(0, Run(feed));
    ASSERT_EQ(1u, svc_->m_pTIKRONInfo_EX->GetCount());
    tagHQInfo_EX ex;
    memset(&ex, 0, sizeof ex);
    memset(ex.contract_code, 'C', 23);  // cut to the 24-byte field scratch
    ASSERT_EQ(1, svc_->m_pTIKRONInfo_EX->GetHQInfo(&ex));
    EXPECT_STREQ("EE", ex.futu_exch_type);
    EXPECT_EQ(2, ex.time_stamp);
    EXPECT_EQ(45, ex.ask_volume5);  // field 45, nothing after it read
    EXPECT_EQ(2u, center_.Count());
}

// The legacy record (issue type 16) of a '0' datagram is taken from the
// parsed extended record when that parse succeeded. For every datagram, valid
// or odd, it must be byte for byte what the legacy parser alone gives, and
// missing exactly when that parser refuses the text or the code is too long.
TEST_F(Dispatch, LegacyRecordEqualsTheLegacyParse) {
    center_.SetMode(hostemu::CHostNeighbour::Record);
    // Field texts the readers treat differently.
    const char* const numbers[] = {"3850.2", "12", "-3.5", "", "1e5", " 7", "4x", "0.0000005", "99999999999999999",
                                   "-0", "+8", "123456789012345678901234567890123456"};
    std::mt19937 gen(16);
    int published = 0, refused = 0, exFailed = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string t(gen() % 14, 'A');  // up to 13 characters: beyond both widths
        for (char& c : t) c = static_cast<char>('A' + gen() % 26);
        for (int f = 0; f < 46 && gen() % 200 != 0; ++f)  // now and then cut short
            t += "," + std::string(f == 18 ? "X" : numbers[gen() % 3 == 0 ? gen() % 12 : gen() % 2]);
        t += "," + std::string("ABC").substr(0, gen() % 4) + std::vector<std::string>{"", ",93015,", ",&", ",x,"}[gen() % 4];
        char head[8];  // every 10th: a ',' closes the length field early, whatever the code's length
        snprintf(head, sizeof head, i % 10 == 0 ? "0%04d," : "0%05d", static_cast<int>(t.size()));
        const std::string gram = head + t;
        center_.Clear();
        Run(gram);

        tagHQInfo want;
        std::memset(&want, 0, sizeof want);
        const char* cur = t.c_str();
        const bool wantPublished = gram.find(',') < 18 && tikron_store::ReadSingleLegFields(&cur, want) == 0;
        std::vector<std::string> legacy;
        bool exPublished = false;
        for (const auto& m : center_.Messages()) {
            if (m.IssueType() == 16) legacy.push_back(frametest::Decode(m.Body()).rows.at(0).at(1).bytes);
            exPublished = exPublished || m.IssueType() == 22;
        }
        ASSERT_EQ(legacy.size(), wantPublished ? 1u : 0u) << t;
        if (!wantPublished) {
            ++refused;
            continue;
        }
        ++published;
        exFailed += exPublished ? 0 : 1;
        ASSERT_EQ(legacy[0], std::string(reinterpret_cast<const char*>(&want), sizeof want)) << t;
    }
    // The generator covers all three roads.
    EXPECT_GT(published, 100);
    EXPECT_GT(refused, 100);
    EXPECT_GT(exFailed, 20);
}

}  // namespace
