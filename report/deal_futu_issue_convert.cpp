// 620003 publications republished under other issue types as the conversion
// switches ask: quote records <-> quote texts, and 33101 report texts into
// the extended (23) and legacy (17) report records. 23 and 17 themselves are
// never converted here. Quote bodies are those of the UDP publications, so
// a peer's intake takes a converted record like one from UDP; a text that
// does not parse is converted all the same, with what the parser left in
// the zeroed record.
#include <cstring>

#include "frame/service_log.h"
#include "quote/quote_text.h"
#include "report/report_publish.h"
#include "report/report_text.h"
#include "quote/quote_publish.h"

namespace {

// Logged under the quote publication handler's name: operators find both
// handlers of a publication under one name.
const char* const kFn = "CTIKRONServiceImpl::DealTIKRONIssue";

bool TextBodyIssue(int issue) {
    return issue == 33100 || issue == 33101 || issue == 33102 || issue == 33105 || issue == 33110 ||
           issue == 33111;
}

// Copies a raw column into a zeroed record, at most the record's size.
template <typename T>
void ReadRaw(IF2UnPacker* u, const char* column, T& rec) {
    std::memset(&rec, 0, sizeof rec);
    int len = 0;
    const void* raw = u->GetRaw(column, &len);
    if (raw != nullptr && len > 0)
        std::memcpy(&rec, raw, static_cast<size_t>(len) < sizeof rec ? static_cast<size_t>(len) : sizeof rec);
}

template <size_t N>
int CodeLen(const char (&code)[N]) {
    return static_cast<int>(strnlen(code, N));
}

// Everything one conversion publication needs.
struct Publisher {
    CTIKRONServiceImpl& svc;
    IF2Packer* packer;
    const void* key;
    int keyLen;

    void Send(int issueType, const tikron::BodyPacker& body) const {
        tikron::ReportTarget target;
        target.functionNo = tikron::kFuncPublish;
        target.issueType = issueType;
        tikron::ReportKey k;
        k.kind = tikron::ReportKeyKind::Raw;
        k.raw = key;
        k.rawLen = keyLen;
        tikron::PublishMessage(svc, packer, target, k, body);
    }
    void Quote(int issueType, const tikron_udp::Body& body) const {
        Send(issueType, [&](IF2Packer& p) { tikron_udp::AddBody(p, body); });
    }
    void Text(int issueType, const char* text) const { Quote(issueType, tikron_udp::TextBody(text, 1024)); }
    template <typename T>
    void Record(int issueType, int type, const T& rec) const {
        Quote(issueType, tikron_udp::RawQuoteBody(type, &rec, static_cast<int>(sizeof rec)));
    }
    void Report(int issueType, char ly, const void* rec, int size) const {
        Send(issueType, [&](IF2Packer& p) {
            tikron::AddStrColumn(p, "business_type");
            tikron::AddRawColumn(p, "futu_hb_raw");
            p.AddChar(ly);
            p.PackRaw(rec, size);
        });
    }
};

}  // namespace

int CTIKRONServiceImpl::DealFUTUIssueeConvert(IESBMessage* msg, IMessageService*,
                                              CMessageServiceThread* thread) {
    if (msg == nullptr || thread == nullptr) return -1;
    const int packetType = msg->GetItem(TAG_PACKET_TYPE)->GetInt(0);
    if (packetType != 0) {
        TikronLog(m_lpLogService, kFn, "不能处理的包类型: %d!\n", packetType);
        return -1;
    }
    const int issue = msg->GetItem(TAG_ISSUE_TYPE)->GetInt(0);
    int bodyLen = 0, keyLen = 0;
    const void* body = msg->GetItem(TAG_MESSAGE_BODY)->GetRawData(&bodyLen, 0);
    const void* key = msg->GetItem(TAG_KEY_INFO)->GetRawData(&keyLen, 0);
    if (key == nullptr || keyLen < 1) {
        key = nullptr;
        keyLen = 0;
    }
    if (body == nullptr || bodyLen < 1) {
        // Text publications may carry their body in the key item.
        if (TextBodyIssue(issue)) {
            body = key;
            bodyLen = keyLen;
        }
        if (body == nullptr || bodyLen < 1) {
            TikronLog(m_lpLogService, kFn, "get TAG_MESSAGE_BODY fail!");
            return -2;
        }
    }
    thread->GetUnPacker(body, bodyLen);
    IF2UnPacker* u = thread->m_pUnPacker;
    const int r = u != nullptr ? u->Open(body, bodyLen) : -1;
    if (r != 0) {
        TikronLog(m_lpLogService, kFn, "解包错误, 错误代码: %d!\n", r);
        return -3;
    }
    const Publisher out{*this, thread->m_pPacker, key, keyLen};
    char text[1024];
    std::memset(text, 0, sizeof text);

    switch (issue) {
        case 18:
            if (m_convert18to33102 != 0) {
                tagArgHQInfo rec;
                ReadRaw(u, "futu_hq_raw", rec);
                Convert18To33102(&rec, text, sizeof text);
                out.Text(33102, text);
            }
            break;
        case 22:
            if (m_convert22to16 != 0 || m_convert22to33100 != 0) {
                tagHQInfo_EX rec;
                ReadRaw(u, "futu_hq_raw", rec);
                // The legacy record holds a contract code of at most 12 characters.
                if (m_convert22to16 != 0 && CodeLen(rec.contract_code) <= 12) {
                    tagHQInfo legacy;
                    std::memset(&legacy, 0, sizeof legacy);
                    ConvertHq22To16(&rec, legacy);
                    out.Record(16, tikron_udp::kTypeSingleLeg, legacy);
                }
                if (m_convert22to33100 != 0) {
                    const char* t = Convert22To33100(&rec, text, sizeof text);
                    out.Text(33100, t != nullptr ? t : "");
                }
            }
            break;
        case 33101:
            if (m_convert33101to23 != 0 || m_convert33101to17 != 0) {
                const char ly = u->GetChar("LY");
                const char* qh = u->GetStr("QH");
                // A text that does not parse fully still goes out with the
                // fields read so far.
                if (ly == 'B') {
                    tagCJ_EX rec;
                    std::memset(&rec, 0, sizeof rec);
                    Convert33101ToCj(qh != nullptr ? qh : "", &rec, 0);
                    if (m_convert33101to23 != 0) out.Report(23, ly, &rec, sizeof rec);
                    if (m_convert33101to17 != 0 && CodeLen(rec.contract_code) <= 12) {
                        tagCJ legacy;
                        std::memset(&legacy, 0, sizeof legacy);
                        ConvertCj23To17(&rec, legacy);
                        out.Report(17, ly, &legacy, sizeof legacy);
                    }
                } else {
                    tagWTQR_EX rec;
                    std::memset(&rec, 0, sizeof rec);
                    Convert33101ToWT(qh != nullptr ? qh : "", &rec, 0);
                    if (m_convert33101to23 != 0) out.Report(23, ly, &rec, sizeof rec);
                    if (m_convert33101to17 != 0 && CodeLen(rec.contract_code) <= 12) {
                        tagWTQR legacy;
                        std::memset(&legacy, 0, sizeof legacy);
                        ConvertHb23To17(&rec, legacy);
                        out.Report(17, ly, &legacy, sizeof legacy);
                    }
                }
            }
            break;
        case 24:
            if (m_convert24to33105 != 0) {
                tagEXCHSTATUS rec;
                ReadRaw(u, "futu_exch_status_raw", rec);
                Convert24To33105(&rec, text, sizeof text);
                out.Text(33105, text);
            }
            break;
        case 33100:
            if (m_convert33100to22 != 0 || m_convert33100to16 != 0) {
                const char* qh = u->GetStr("QH");
                if (m_convert33100to22 != 0) {
                    tagHQInfo_EX rec;
                    std::memset(&rec, 0, sizeof rec);
                    Convert33100To22(qh, &rec);
                    out.Record(22, tikron_udp::kTypeSingleLeg, rec);
                }
                if (m_convert33100to16 != 0) {
                    tagHQInfo rec;
                    std::memset(&rec, 0, sizeof rec);
                    Convert33100To16(qh, &rec);
                    out.Record(16, tikron_udp::kTypeSingleLeg, rec);
                }
            }
            break;
        case 33102:
            if (m_convert33102to18 != 0) {
                tagArgHQInfo rec;
                std::memset(&rec, 0, sizeof rec);
                Convert33102To18(u->GetStr("QH"), &rec);
                out.Record(18, tikron_udp::kTypeArbitrage, rec);
            }
            break;
        case 33105:
            if (m_convert33105to24 != 0) {
                tagEXCHSTATUS rec;
                std::memset(&rec, 0, sizeof rec);
                Convert33105To24(u->GetStr("QH"), &rec);
                out.Quote(24, tikron_udp::RawExchStatusBody(&rec, static_cast<int>(sizeof rec)));
            }
            break;
        default:
            break;
    }
    return 0;
}
