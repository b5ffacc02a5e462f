// The end-to-end tests' plug-in: loaded by the host emulator in a temporary
// working directory with the message center attached, optionally receiving
// datagrams on 127.0.0.1; quote records with distinguishable values, and
// messages shown as one line of text so a whole message is one expectation.
#pragma once

#include <cstring>

#include "host/host_center.h"
#include "report/report_text.h"
#include "store/hq_tables.h"
#include "testing/frame_test_support.h"

namespace e2e {

using frametest::Datagram;
using frametest::Decode;
using frametest::WaitUntil;
using hostemu::MessageSnapshot;
using hostemu::MessageSpec;
using hostemu::PackCell;
using hostemu::PackedBody;

template <typename T>
std::string Bytes(const T& rec) {
    return std::string(reinterpret_cast<const char*>(&rec), sizeof rec);
}

// Report and quote texts with their 0x01 separators shown as '|'.
inline std::string Bars(std::string s) {
    for (char& c : s)
        if (c == '\x01') c = '|';
    return s;
}
// The 33101 text of a report record (entrust and quote-report records,
// deals), as the plug-in converts it.
template <typename T>
std::string TextOf(T rec) {
    char t[1024] = {0};
    ConvertHbTo33101(&rec, t, sizeof t);
    return Bars(t);
}
inline std::string TextOf(tagCJ_EX rec) {
    char t[1024] = {0};
    ConvertCjTo33101(&rec, t, sizeof t);
    return Bars(t);
}

// "name:TW" per column (".S" appended for a scale other than 4), then the
// rows; text cells as they are ('|' for 0x01), other cells with their kind
// first (I8, D12.5000, C1), raw cells as their size (R<328>), a missing
// cell as "-".
inline std::string Show(const PackedBody& b) {
    std::string s;
    for (const auto& c : b.columns)
        s += (s.empty() ? "" : " ") + c.name + ":" + c.type + std::to_string(c.width) +
             (c.scale == 4 ? "" : "." + std::to_string(c.scale));
    for (const auto& row : b.rows) {
        s += " =";
        for (const auto& cell : row)
            s += " " + (cell.kind == 'S'   ? Bars(cell.bytes)
                        : cell.kind == 'R' ? "R<" + std::to_string(cell.bytes.size()) + ">"
                        : cell.kind == 0   ? std::string("-")
                                           : cell.kind + cell.Text());
    }
    return s;
}

inline std::string ShowItem(const std::vector<char>& bytes) {
    if (bytes.empty()) return "";
    PackedBody b;
    return hostemu::DecodePacked(bytes.data(), static_cast<int>(bytes.size()), &b) == 0 ? Show(b) : "<not packed>";
}

// "function/issue type [p<packet type> ]key[..] body[..]".
inline std::string Show(const MessageSnapshot& m) {
    return std::to_string(m.FunctionNo()) + "/" + std::to_string(m.IssueType()) +
           (m.PacketType() != 0 ? " p" + std::to_string(m.PacketType()) : "") + " key[" + ShowItem(m.Key()) +
           "] body[" + ShowItem(m.Body()) + "]";
}

inline std::vector<std::string> Show(const std::vector<MessageSnapshot>& msgs) {
    std::vector<std::string> out;
    for (const auto& m : msgs) out.push_back(Show(m));
    return out;
}

// The first cell of the first row of item 8 (a text or a raw record).
inline std::string FirstCell(const MessageSnapshot& m, size_t col = 0) {
    PackedBody b = Decode(m.Body());
    return b.rows.empty() || b.rows[0].size() <= col ? "" : b.rows[0][col].bytes;
}

template <typename T>
T RecordOf(const MessageSnapshot& m, size_t col) {
    T rec;
    std::memset(&rec, 0, sizeof rec);
    const std::string raw = FirstCell(m, col);
    EXPECT_EQ(sizeof rec, raw.size());
    std::memcpy(&rec, raw.data(), std::min(raw.size(), sizeof rec));
    return rec;
}

// Records with distinguishable values.
template <typename T>
T Blank(const std::string& code, const char* exch) {
    T r;
    memset(&r, 0, sizeof r);
    snprintf(r.contract_code, sizeof r.contract_code, "%s", code.c_str());
    snprintf(r.futu_exch_type, sizeof r.futu_exch_type, "%s", exch);
    return r;
}
inline tagHQInfo_EX HqEx(const std::string& code, double last, int stamp = 93000) {
    tagHQInfo_EX r = Blank<tagHQInfo_EX>(code, "F1");
    r.futu_last_price = last;
    r.buy_high_amount = 12;
    r.ask_price5 = last + 2;
    r.time_stamp = stamp;
    return r;
}
inline tagHQInfo Hq(const std::string& code, double last) {
    tagHQInfo r = Blank<tagHQInfo>(code, "F1");
    r.futu_last_price = last;
    return r;
}
inline tagArgHQInfo Arg(const std::string& code, double buy) {
    tagArgHQInfo r = Blank<tagArgHQInfo>(code, "F2");
    memcpy(r.first_code, "m2409", 6);
    memcpy(r.second_code, "m2501", 6);
    r.arbi_type = '1';
    r.buy_price = buy;
    r.buy_amount = 3;
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

inline std::string Join(const std::vector<std::string>& v, const char* sep = " ") {
    std::string s;
    for (size_t i = 0; i < v.size(); ++i) s += (i ? sep : "") + v[i];
    return s;
}

// Body of a binary publication: "type" and one raw column.
inline PackedBody RawBody(int subType, const std::string& raw, const char* column = "futu_hq_raw") {
    PackedBody b;
    b.columns = {{"type", 'S', 255, 4}, {column, 'R', static_cast<int>(raw.size()) + 1, 4}};
    b.rows = {{PackCell(subType), PackCell::Raw(raw)}};
    return b;
}

inline PackedBody TextBody(const std::string& text) { return hostemu::MakeBody(33, {"QH"}, {{text}}); }

// The plug-in started in a temporary working directory (its snapshot files
// land there) with a message center attached. At the end no message may be
// left alive, released twice or used after its release.
class Plugin : public testing::Test {
protected:
    // args: attributes of <args>; extra: further elements of <plugin>;
    // prepare runs in the working directory before the start.
    void Start(const std::string& args = "", const std::string& extra = "",
               const std::function<void()>& prepare = nullptr) {
        if (!entered_) {
            ASSERT_TRUE(entered_ = dir_.Enter());
        }
        if (prepare) prepare();
        StopPlugin();
        const bool udp = args.find("enableudprecv=\"1\"") != std::string::npos;
        host_.reset(new hostemu::HostEmulator(frametest::Options(frametest::Config(
            "<args " + std::string(udp ? "port=\"0\" udprecvbuflen=\"4\" " : "enableudprecv=\"0\" ") + args + "/>" +
            extra))));
        host_->Factory().SetReportLeaks(false);
        center_.reset(new hostemu::CMessageCenter(*host_));
        ASSERT_EQ(0, host_->Start()) << host_->Error();
        svc_ = frametest::Svc(*host_);
        if (udp) {
            ASSERT_NE(0, port_ = static_cast<int>(svc_->m_pUDPRecv->GetPort()));
        }
    }
    void StartUdp(const std::string& args = "", const std::string& extra = "") {
        Start("enableudprecv=\"1\" " + args, extra);
    }
    void StopPlugin() {
        if (host_) {
            host_->Factory().SetGetMsgAlwaysFails(false);
            host_->PackSvr().SetPackRawFails(false);
            host_->Shutdown();
        }
        center_.reset();  // after the plug-in's threads, which post into it
        if (host_) {
            const hostemu::MessageStats st = host_->Factory().Stats();
            EXPECT_EQ("live 0, released twice 0, used after release 0",
                      "live " + std::to_string(st.live) + ", released twice " + std::to_string(st.doubleReleases) +
                          ", used after release " + std::to_string(st.usesAfterRelease))
                << host_->Factory().LeakReport();
        }
        host_.reset();
        svc_ = nullptr;
    }
    void TearDown() override {
        StopPlugin();
        dir_.Leave();
    }

    void Send(const std::string& d) { ASSERT_TRUE(udp_.Send(port_, d)); }
    // Publications (620003, 620031) that reached the center so far, Flush's
    // markers left out.
    std::vector<MessageSnapshot> Published() {
        std::vector<MessageSnapshot> out;
        for (auto& m : host_->Center().Messages())
            if ((m.FunctionNo() == 620003 || m.FunctionNo() == 620031) &&
                ShowItem(m.Key()).rfind("futu_exch_type:S255 = Z", 0) != 0)
                out.push_back(m);
        return out;
    }
    // Sends an exchange status "Z<n>" (never gated) and waits until its text
    // is out: everything sent before it has been handled.
    std::vector<MessageSnapshot> Flush() {
        const std::string code = "Z" + std::to_string(++markers_);
        Send(Datagram('A', code + ",1,1,"));
        EXPECT_TRUE(host_->Center().WaitFor(
            [&](const MessageSnapshot& m) {  // 33105 is the marker's last publication
                return m.IssueType() == 33105 && ShowItem(m.Key()) == "futu_exch_type:S255 = " + code;
            },
            3000))
            << "marker " << code << " not published";
        return Published();
    }
    // Records in the single-leg, extended, arbitrage and exchange-status tables.
    std::string Tables() {
        return Join({std::to_string(svc_->GetTIKRONInfo()->GetCount()), std::to_string(svc_->GetTIKRONInfo_EX()->GetCount()),
                     std::to_string(svc_->GetTIKRONARGInfo()->GetCount()),
                     std::to_string(svc_->GetExchStatusInfo()->GetCount())});
    }
    size_t LogCount(const std::string& text) { return host_->Log().CountContaining(text); }
    // Waits until text was logged n times; false also when it was logged more.
    bool WaitLog(const std::string& text, size_t n = 1) {
        return WaitUntil([&] { return LogCount(text) >= n; }) && LogCount(text) == n;
    }

    // Publishes a record (16, 22, 18 or 24) and waits until its table holds it.
    template <typename Table, typename T>
    void Put(Table* (CTIKRONServiceImpl::*table)(), int issueType, const PackedBody& body, const T& rec) {
        ASSERT_EQ(0, center_->Publish(issueType, body));
        Table* t = (svc_->*table)();
        ASSERT_TRUE(WaitUntil([&] {
            T probe = rec;
            return t->GetHQInfo(&probe) == 1 && memcmp(&probe, &rec, sizeof rec) == 0;
        })) << "issue type " << issueType;
    }
    void Put(const tagHQInfo_EX& r) { Put(&CTIKRONServiceImpl::GetTIKRONInfo_EX, 22, RawBody(1, Bytes(r)), r); }
    void Put(const tagHQInfo& r) { Put(&CTIKRONServiceImpl::GetTIKRONInfo, 16, RawBody(1, Bytes(r)), r); }
    void Put(const tagArgHQInfo& r) { Put(&CTIKRONServiceImpl::GetTIKRONARGInfo, 18, RawBody(9, Bytes(r)), r); }
    void Put(const tagEXCHSTATUS& r) {
        Put(&CTIKRONServiceImpl::GetExchStatusInfo, 24, RawBody(0, Bytes(r), "futu_exch_status_raw"), r);
    }

    // Sends a request as a client (body in item 8, or in item 54) and waits
    // for the answer with its packet id.
    bool Ask(int function, const PackedBody& body, MessageSnapshot* answer, bool inKeyItem = false,
             int packetType = 0, int waitMs = 3000) {
        MessageSpec request(function, packetType);
        const int id = request.packetId = ++nextId_;
        (inKeyItem ? request.key : request.body) = hostemu::EncodePacked(body);
        if (host_->PostFromClient(request) != 0) return false;
        return host_->Center().WaitFor(
            [&](const MessageSnapshot& m) { return m.PacketId() == id && m.FunctionNo() == function && m.PacketType() == 1; },
            waitMs, answer);
    }

    testing_support::TempWorkDir dir_;
    bool entered_ = false;
    std::unique_ptr<hostemu::HostEmulator> host_;
    std::unique_ptr<hostemu::CMessageCenter> center_;
    CTIKRONServiceImpl* svc_ = nullptr;
    frametest::UdpSender udp_;
    int port_ = 0, nextId_ = 1000, markers_ = 0;
};

}  // namespace e2e
