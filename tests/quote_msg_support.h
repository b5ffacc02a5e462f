// Shared pieces of the quote message tests: a started plug-in in its own
// working directory, the message-center side, quote records and the bodies
// that carry them.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "testing/frame_test_support.h"
#include "host/host_center.h"
#include "host/plugin_symbols.h"
#include "quote/quote_text.h"
#include "store/hq_tables.h"

namespace msgtest {

using hostemu::MessageSnapshot;
using hostemu::PackCell;
using hostemu::PackedBody;

using frametest::Datagram;
using frametest::Decode;
using frametest::WaitUntil;

template <typename T>
std::string Bytes(const T& rec) {
    return std::string(reinterpret_cast<const char*>(&rec), sizeof rec);
}

// Records with distinguishable values; doubles are written through memcpy-free
// assignments of the packed fields (never bound to references).
inline tagHQInfo_EX HqEx(const std::string& code, double last, int stamp = 93000) {
    tagHQInfo_EX r;
    memset(&r, 0, sizeof r);
    snprintf(r.contract_code, sizeof r.contract_code, "%s", code.c_str());
    snprintf(r.futu_exch_type, sizeof r.futu_exch_type, "F1");
    r.pre_square_price = last - 10;
    r.futu_last_price = last;
    r.buy_high_price = last - 0.5;
    r.buy_high_amount = 12;
    r.sale_low_price = last + 0.5;
    r.sale_low_amount = 8;
    r.business_amount = 80321;
    r.bid_price5 = last - 2;
    r.bid_volume5 = 11;
    r.ask_price5 = last + 2;
    r.ask_volume5 = 10;
    r.time_stamp = stamp;
    return r;
}

inline tagHQInfo Hq(const std::string& code, double last) {
    tagHQInfo_EX ex = HqEx(code, last);
    tagHQInfo r;
    memset(&r, 0, sizeof r);
    snprintf(r.contract_code, sizeof r.contract_code, "%s", code.c_str());
    snprintf(r.futu_exch_type, sizeof r.futu_exch_type, "F1");
    r.pre_square_price = ex.pre_square_price;
    r.futu_last_price = last;
    r.buy_high_amount = 12;
    r.bid_volume5 = 11;
    r.ask_price5 = last + 2;
    return r;
}

inline tagArgHQInfo Arg(const std::string& code, double buy) {
    tagArgHQInfo r;
    memset(&r, 0, sizeof r);
    snprintf(r.contract_code, sizeof r.contract_code, "%s", code.c_str());
    snprintf(r.futu_exch_type, sizeof r.futu_exch_type, "F2");
    snprintf(r.first_code, sizeof r.first_code, "m2409");
    snprintf(r.second_code, sizeof r.second_code, "m2501");
    r.arbi_type = '1';
    r.buy_price = buy;
    r.buy_amount = 3;
    r.sale_price = buy + 1;
    r.downlimited_price = buy - 100;
    return r;
}

inline tagEXCHSTATUS Exch(const std::string& code, const std::string& status, int canTrade) {
    tagEXCHSTATUS r;
    memset(&r, 0, sizeof r);
    snprintf(r.futu_exch_type, sizeof r.futu_exch_type, "%s", code.c_str());
    snprintf(r.futu_status, sizeof r.futu_status, "%s", status.c_str());
    r.can_trade = canTrade;
    return r;
}

// Body of a binary publication: "type" and one raw column.
inline PackedBody RawBody(int subType, const std::string& raw, const char* column = "futu_hq_raw") {
    PackedBody b;
    b.columns = {{"type", 'S', 255, 4}, {column, 'R', static_cast<int>(raw.size()) + 1, 4}};
    b.rows = {{PackCell(subType), PackCell::Raw(raw)}};
    return b;
}

inline PackedBody TextBody(const std::string& text) { return hostemu::MakeBody(33, {"QH"}, {{text}}); }

// Plug-in started in a temporary working directory (its snapshot files land
// there) with a message center attached.
class PluginFixture : public testing::Test {
protected:
    void StartPlugin(const std::string& args = "", const std::string& plugin = "") {
        ASSERT_TRUE(dir_.Enter());
        Restart(args, plugin);
    }
    // A new lifecycle in the same directory (the previous one is shut down).
    void Restart(const std::string& args = "", const std::string& plugin = "") {
        StopPlugin();
        host_.reset(new hostemu::HostEmulator(frametest::Options(
            frametest::Config("<args enableudprecv=\"0\" " + args + "/>" + plugin))));
        host_->Factory().SetReportLeaks(false);
        center_.reset(new hostemu::CMessageCenter(*host_));
        ASSERT_EQ(0, host_->Start()) << host_->Error();
        svc_ = frametest::Svc(*host_);
    }
    void StopPlugin() {
        center_.reset();
        if (host_) {
            host_->Shutdown();
            auto st = host_->Factory().Stats();
            EXPECT_EQ(0u, st.live);
            EXPECT_EQ(0u, st.doubleReleases);
            EXPECT_EQ(0u, st.usesAfterRelease);
        }
        host_.reset();
        svc_ = nullptr;
    }
    void TearDown() override {
        StopPlugin();
        dir_.Leave();
    }

    // Publishes and waits until the record is in the table.
    template <typename Table, typename T>
    void PublishAndWait(Table* (CTIKRONServiceImpl::*table)(), int issueType, const PackedBody& body, const T& rec) {
        ASSERT_EQ(0, center_->Publish(issueType, body));
        Table* t = (svc_->*table)();
        ASSERT_NE(nullptr, t);
        ASSERT_TRUE(WaitUntil([&] {
            T probe;
            memcpy(&probe, &rec, sizeof probe);
            return t->GetHQInfo(&probe) == 1 && memcmp(&probe, &rec, sizeof rec) == 0;
        })) << "issue type " << issueType;
    }
    void PutEx(const tagHQInfo_EX& r) {
        PublishAndWait(&CTIKRONServiceImpl::GetTIKRONInfo_EX, 22, RawBody(1, Bytes(r)), r);
    }
    void PutHq(const tagHQInfo& r) { PublishAndWait(&CTIKRONServiceImpl::GetTIKRONInfo, 16, RawBody(1, Bytes(r)), r); }
    void PutArg(const tagArgHQInfo& r) {
        PublishAndWait(&CTIKRONServiceImpl::GetTIKRONARGInfo, 18, RawBody(9, Bytes(r)), r);
    }
    void PutExch(const tagEXCHSTATUS& r) {
        PublishAndWait(&CTIKRONServiceImpl::GetExchStatusInfo, 24, RawBody(0, Bytes(r), "futu_exch_status_raw"), r);
    }

    // Sends a request as a client and waits for the answer with its packet id.
    bool Ask(int function, const PackedBody& body, MessageSnapshot* answer, int packetType = 0,
             bool inKeyItem = false, int waitMs = 3000) {
        hostemu::MessageSpec msgDef(function, packetType);
        msgDef.packetId = ++nextId_;
        std::vector<char> bytes = hostemu::EncodePacked(body);
        if (inKeyItem) {
            msgDef.key = bytes;
        } else {
            msgDef.body = bytes;
        }
        const int id = msgDef.packetId;
        if (host_->PostFromClient(msgDef) != 0) return false;
        return host_->Center().WaitFor(
            [&](const MessageSnapshot& m) { return m.PacketId() == id && m.FunctionNo() == function && m.PacketType() == 1; },
            waitMs, answer);
    }

    // Plug-in message counters (GetESBMsgEx/pops minus releases/transfers).
    long HeldByPlugin() {
        auto* got = static_cast<unsigned long*>(hostemu::FindLocalSymbol(TIKRON_PLUGIN_PATH, "g_ulGetESBNum"));
        auto* rel = static_cast<unsigned long*>(hostemu::FindLocalSymbol(TIKRON_PLUGIN_PATH, "g_ulReleaseESBNum"));
        if (got == nullptr || rel == nullptr) {
            ADD_FAILURE() << "plug-in counters not found";
            return -1;
        }
        return static_cast<long>(__atomic_load_n(got, __ATOMIC_RELAXED) - __atomic_load_n(rel, __ATOMIC_RELAXED));
    }

    frametest::TempWorkDir dir_;
    std::unique_ptr<hostemu::HostEmulator> host_;
    std::unique_ptr<hostemu::CMessageCenter> center_;
    CTIKRONServiceImpl* svc_ = nullptr;
    int nextId_ = 1000;
};

}  // namespace msgtest
