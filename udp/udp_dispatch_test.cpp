// Dispatch robustness on a service object built directly (no library load):
// random, truncated and mutated datagrams of every type character never
// crash, and the tables stay consistent with what was published.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "frame/tikron_service.h"
#include "host/host_emulator.h"
#include "store/hq_tables.h"
#include "udp/push_counter.h"
#include "testing/scratch_service.h"

namespace {

std::string Datagram(char type, const std::string& text) {
    char head[8];
    snprintf(head, sizeof head, "%c%05d", type, static_cast<int>(text.size()));
    return head + text;
}

const char* const kValid[] = {
    "IF2412,3850.2,3855.0,3861.4,3861.2,12,340,3861.6,8,290,3870.0,3845.2,3858.37,11.2,80321,160234,"
    "92973211400.0,4235.2,3465.2,X,0,0,0,0,3849.8,158000,0,0,0,0,3861.0,5,3860.8,7,3860.6,9,"
    "3860.4,11,3861.8,4,3862.0,6,3862.2,8,3862.4,10,F4,93015,",
    "SP a2501&a2505,F2,a2501,a2505,SP,12.5,3,30,13.0,4,40,14.0,11.0,80.0,-80.0,F2,",
    "F1,2,1,",
    "FQ1,IF2412,20240105,93001,&x",
    "F4,IF2412,0,1,3861.2,5,1,1,3862.0,6,778,10086,R001,F01,OP1,6,8888,20240105,93002,C1,BC1,SC1,OCC,R,3,B,S,1,2,",
};
const char kTypes[] = {'0', '9', 'A', 'B', 'C', '3', 'F', 'E', 'S', 'D', 'X', 'Y', 'Z', 'Q', '\0'};

class Dispatch : public testing::Test {
protected:
    void SetUp() override {
        center_.SetMode(hostemu::CHostNeighbour::CountOnly);
        svc_->m_lpLogService = &log_;
    }
    void TearDown() override {
        service_.Close();
        EXPECT_EQ(0u, factory_.Stats().live);
        EXPECT_EQ(0u, factory_.Stats().doubleReleases);
    }
    // Through the heap like a queued block: exactly len bytes, so any read
    // past the datagram is caught by the address sanitizer.
    int Run(const std::string& d) {
        char* block = static_cast<char*>(malloc(d.size() + 1));
        memcpy(block, d.data(), d.size());
        block[d.size()] = '\0';
        int r = svc_->DoUDPHelper(block, static_cast<int>(d.size()));
        free(block);
        return r;
    }
    // Every stored record is well formed: its key text is terminated within
    // the field and it can be found again by that key.
    template <typename Table, typename Rec>
    void ExpectConsistent(Table* t) {
        t->LockMap();
        std::vector<Rec> recs;
        for (auto& kv : t->GetHQMap()) recs.push_back(kv.second->szHQInfo);
        t->UnlockMap();
        for (Rec r : recs) {
            const char* key = reinterpret_cast<const char*>(&r);
            const size_t cap = sizeof(Rec) < 31 ? sizeof(Rec) : 31;
            ASSERT_LT(strnlen(key, cap), cap);
            Rec probe;
            memset(&probe, 0, sizeof probe);
            memcpy(&probe, key, strlen(key));
            ASSERT_EQ(1, t->GetHQInfo(&probe)) << key;
        }
    }

    hostemu::CHostLog log_;  // outlives the service that logs to it
    tikron_udp::ScratchService service_;
    CTIKRONServiceImpl* svc_ = &service_.Svc();
    hostemu::CHostMessageFactory& factory_ = service_.Factory();
    hostemu::CHostNeighbour& center_ = service_.Center();
};

TEST_F(Dispatch, ResultsAndGates) {
    EXPECT_EQ(-2, Run("Q00003abc"));
    EXPECT_EQ(-2, Run("000010123456789"));
    EXPECT_EQ(0, Run(Datagram('0', kValid[0])));
    EXPECT_EQ(3u, center_.Count());
    svc_->m_iDealUdpHq = 0;
    EXPECT_EQ(0, Run("000010123456789"));  // switched off: not even checked
    svc_->m_iDealUdpHb = 0;
    EXPECT_EQ(0, Run(Datagram('C', kValid[4])));
    EXPECT_EQ(3u, center_.Count());
    EXPECT_EQ(0, Run(Datagram('A', kValid[2])));
    EXPECT_EQ(5u, center_.Count());

    // Malformed pushes are counted per kind, refused and publish nothing.
    unsigned long before = tikron_udp::PushReceived(tikron_udp::PUSH_OPT_HQ);
    EXPECT_EQ(-2, Run(Datagram('Z', "x,")));
    EXPECT_EQ(-2, Run("Z"));
    EXPECT_EQ(before + 2, tikron_udp::PushReceived(tikron_udp::PUSH_OPT_HQ));
    EXPECT_EQ(5u, center_.Count());

    // No packer: nothing is sent, the line says why, no message leaks.
    IF2Packer* p = svc_->m_pPacker;
    svc_->m_pPacker = nullptr;
    EXPECT_EQ(0, Run(Datagram('A', kValid[2])));
    svc_->m_pPacker = p;
    EXPECT_EQ(5u, center_.Count());
    EXPECT_EQ(2u, log_.CountContaining("no packer"));
}

TEST_F(Dispatch, RandomTruncatedAndMutatedDatagramsNeverCrash) {
    std::mt19937 rng(12345);
    const std::string alphabet = "0123456789,.&-+eE \x01" "ABCXYZabc";
    for (int round = 0; round < 4000; ++round) {
        const char type = kTypes[rng() % (sizeof kTypes)];
        std::string d;
        switch (round % 4) {
            case 0: {  // a valid record cut anywhere
                std::string full = Datagram(type, kValid[rng() % 5]);
                d = full.substr(0, rng() % (full.size() + 1));
                break;
            }
            case 1: {  // valid record with bytes replaced
                d = Datagram(type, kValid[rng() % 5]);
                for (int k = 0; k < 4; ++k) d[6 + rng() % (d.size() - 6)] = alphabet[rng() % alphabet.size()];
                break;
            }
            case 2: {  // random text, random declared length
                size_t n = rng() % 300;
                for (size_t k = 0; k < n; ++k) d += alphabet[rng() % alphabet.size()];
                char head[8];
                snprintf(head, sizeof head, "%c%05u", type, static_cast<unsigned>(rng() % 400));
                d = head + d;
                break;
            }
            default: {  // very long fields and embedded NULs
                d = Datagram(type, std::string(rng() % 3000, "9,a\x01"[rng() % 4]));
                if (rng() % 2 && d.size() > 8) d[7] = '\0';
                break;
            }
        }
        if (d.empty()) continue;
        svc_->m_iUdpHqVersion = (round % 7 == 0) ? 1 : 0;
        svc_->m_iSysVersion = round % 2;
        Run(d);
    }
    ExpectConsistent<CTIKRONInfo, tagHQInfo>(svc_->m_pTIKRONInfo);
    ExpectConsistent<CTIKRONInfo_EX, tagHQInfo_EX>(svc_->m_pTIKRONInfo_EX);
    ExpectConsistent<CTIKRONARGInfo, tagArgHQInfo>(svc_->m_pTIKRONARGInfo);
    ExpectConsistent<CExchStatusInfo, tagEXCHSTATUS>(svc_->m_pFUTUExchStatusInfo);
    EXPECT_GT(center_.Count(), 0u);
    EXPECT_EQ(0u, factory_.Stats().live);
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

}  // namespace
