// The legacy single-leg record (issue type 16) of a '0' datagram is taken
// from the already parsed extended record when that parse succeeded. For
// every datagram, valid or odd, the published record must be byte for byte
// what the legacy parser alone gives, and must be missing exactly when that
// parser refuses the text or the code is too long.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "frame/tikron_service.h"
#include "host/host_emulator.h"
#include "host/host_pack.h"
#include "store/hq_tables.h"
#include "store/single_leg_fields.h"
#include "testing/scratch_service.h"

namespace {

// commaHeader: a ',' closes the length field early ("0" + 4 digits + ","),
// so the comma gate passes whatever the code's length.
std::string Datagram(const std::string& text, bool commaHeader = false) {
    char head[8];
    snprintf(head, sizeof head, commaHeader ? "0%04d," : "0%05d", static_cast<int>(text.size()));
    return head + text;
}

// Field texts the readers treat differently: plain, signed, empty, exponent,
// blanks, trailing junk, long.
const char* const kNumbers[] = {"3850.2", "12", "-3.5", "", "1e5", " 7", "4x", "0.0000005", "99999999999999999",
                                "-0", "+8", "123456789012345678901234567890123456"};

std::string RandomText(std::mt19937& gen) {
    std::string t;
    const int codeLen = static_cast<int>(gen() % 14);  // up to 13: beyond both widths
    for (int i = 0; i < codeLen; ++i) t += static_cast<char>('A' + gen() % 26);
    t += ',';
    // 46 fields between the code and the exchange code; the 19th is text.
    for (int i = 0; i < 46; ++i) {
        if (gen() % 200 == 0) return t;  // cut short
        t += i == 18 ? "X" : kNumbers[gen() % 3 == 0 ? gen() % (sizeof kNumbers / sizeof *kNumbers) : gen() % 2];
        t += ',';
    }
    const int exchLen = static_cast<int>(gen() % 4);  // 3 is too long for both
    for (int i = 0; i < exchLen; ++i) t += static_cast<char>('A' + gen() % 26);
    switch (gen() % 4) {
        case 0: break;                  // ends after the exchange code
        case 1: t += ",93015,"; break;  // time stamp
        case 2: t += ",&"; break;       // no time stamp
        default: t += ",x,"; break;     // bad time stamp: extended parse fails
    }
    return t;
}

class LegacyCopy : public testing::Test {
protected:
    void TearDown() override {
        service_.Close();
        EXPECT_EQ(0u, factory_.Stats().live);
    }

    tikron_udp::ScratchService service_;
    CTIKRONServiceImpl* svc_ = &service_.Svc();
    hostemu::CHostMessageFactory& factory_ = service_.Factory();
    hostemu::CHostNeighbour& center_ = service_.Center();
};

TEST_F(LegacyCopy, PublishedLegacyRecordEqualsTheLegacyParse) {
    std::mt19937 gen(16);
    int published = 0, refused = 0, exFailedLegacyOk = 0;
    for (int i = 0; i < 3000; ++i) {
        const std::string text = RandomText(gen);
        const std::string gram = Datagram(text, i % 10 == 0);
        center_.Clear();
        svc_->DoUDPHelper(const_cast<char*>(gram.c_str()), static_cast<int>(gram.size()));

        // What the legacy parser alone makes of the text.
        tagHQInfo want;
        std::memset(&want, 0, sizeof want);
        const char* cur = text.c_str();
        const size_t comma = gram.find(',');
        const bool fits = comma == std::string::npos || comma < 18;
        const bool wantPublished = fits && tikron_store::ReadSingleLegFields(&cur, want) == 0;

        std::vector<hostemu::MessageSnapshot> legacy;
        bool exPublished = false;
        for (const auto& m : center_.Messages()) {
            if (m.IssueType() == 16) legacy.push_back(m);
            if (m.IssueType() == 22) exPublished = true;
        }
        ASSERT_EQ(legacy.size(), wantPublished ? 1u : 0u) << text;
        if (!wantPublished) {
            ++refused;
            continue;
        }
        ++published;
        if (!exPublished) ++exFailedLegacyOk;
        hostemu::PackedBody body;
        const std::vector<char> raw = legacy[0].Body();
        ASSERT_EQ(0, hostemu::DecodePacked(raw.data(), static_cast<int>(raw.size()), &body));
        ASSERT_EQ(body.rows.size(), 1u);
        ASSERT_EQ(body.rows[0].size(), 2u);
        const std::string& rec = body.rows[0][1].bytes;
        ASSERT_EQ(rec.size(), sizeof want);
        ASSERT_EQ(0, std::memcmp(rec.data(), &want, sizeof want)) << text;
    }
    // The generator covers all three roads.
    EXPECT_GT(published, 100);
    EXPECT_GT(refused, 100);
    EXPECT_GT(exFailedLegacyOk, 50);
}

}  // namespace
