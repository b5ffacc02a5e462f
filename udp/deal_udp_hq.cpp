// '0' single-leg quote: the comma-separated feed (extended and legacy tables,
// issue types 33100, 22 and 16) or, with "udphqversion" 1, the exchange's
// 0x01-separated feed (extended table, issue types 33100 and 22).
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "frame/service_log.h"
#include "frame/text_copy.h"
#include "frame/tikron_service.h"
#include "quote/quote_text.h"
#include "store/hq_tables.h"
#include "quote/quote_publish.h"

using namespace tikron_udp;

namespace {

const char* const kFn = "CTIKRONServiceImpl::DealUDP_hq";

// Longest 33100 text of any record: 47 numbers of at most 317 characters
// (a %f of the largest double) plus texts, header and separators. Valid
// quotes need far less; the room means no record is ever cut.
constexpr int kQuoteTextBuf = 16384;

// The contract code of the comma feed ends at the first ','; a code of at
// most 11 characters (',' before position 18, or no ',' at all) also fits
// the legacy record.
bool FitsLegacy(const char* data, int len) {
    const void* comma = memchr(data, ',', strnlen(data, static_cast<size_t>(len)));
    return comma == nullptr || static_cast<const char*>(comma) - data < 18;
}

// The 33100 and 22 publications of one record share the packed key.
void PublishExtended(CTIKRONServiceImpl& svc, const PackedKey& key, tagHQInfo_EX& rec, const char* text,
                     int textWidth) {
    Publish(svc, kFuncQuotePublish, 33100, key, TextBody(text, textWidth));
    Publish(svc, kFuncQuotePublish, 22, key,
            RawQuoteBody(kTypeSingleLeg, &rec, static_cast<int>(sizeof rec)));
}

void PublishExtended(CTIKRONServiceImpl& svc, tagHQInfo_EX& rec, const char* text, int textWidth) {
    char key[sizeof rec.contract_code];
    FieldText(key, rec.contract_code);
    PublishExtended(svc, PackedKey(svc, TextKey("contract_code", key)), rec, text, textWidth);
}

// The legacy record is copied from a parsed extended one (see DealCommaFeed)
// only while both readers refuse the same exchange codes and the extended
// code field holds every code the legacy one does.
static_assert(sizeof(tagHQInfo::futu_exch_type) == sizeof(tagHQInfo_EX::futu_exch_type),
              "exchange code widths differ");
static_assert(sizeof(tagHQInfo::contract_code) <= sizeof(tagHQInfo_EX::contract_code),
              "legacy contract code wider than the extended one");

// The legacy reader takes codes shorter than its field; a longer code passes
// the comma gate only through a ',' in the length field, and then the legacy
// reader itself decides (it refuses the code).
bool CopiesToLegacy(const tagHQInfo_EX& ex) {
    const size_t n = strnlen(ex.contract_code, sizeof ex.contract_code);
    return n > 0 && n < sizeof(tagHQInfo::contract_code);
}

int DealCommaFeed(CTIKRONServiceImpl& svc, const char* data, int len) {
    int r = svc.CheckUDPData(const_cast<char*>(data), len);
    if (r != '0') {
        TikronLog(svc.m_lpLogService, kFn, "包格式不对, 错误代码: %d!", r);
        return -2;
    }
    tagHQInfo_EX ex;
    memset(&ex, 0, sizeof ex);
    bool exParsed = false;
    char exKey[sizeof ex.contract_code];
    exKey[0] = '\0';
    // Packed once the extended record is parsed; reused by the 16 message
    // when its key text is the same.
    std::optional<PackedKey> packedKey;
    if (svc.m_pTIKRONInfo_EX != nullptr) {
        const int rc = svc.m_pTIKRONInfo_EX->AddHQData(data, len, &ex, '0', 0);
        // The extended table has no log service of its own.
        if (rc != 0) TikronLog(svc.m_lpLogService, kFn, "get hq from data fail, error code: %d!", rc);
        if (rc == 0) {
            exParsed = true;
            char buf[kQuoteTextBuf];
            const char* text = Convert22To33100(&ex, buf, sizeof buf);
            FieldText(exKey, ex.contract_code);
            packedKey.emplace(svc, TextKey("contract_code", exKey));
            PublishExtended(svc, *packedKey, ex, text, static_cast<int>(strlen(text)) + 1);
        }
    }
    if (svc.m_pTIKRONInfo != nullptr && FitsLegacy(data, len)) {
        tagHQInfo hq;
        memset(&hq, 0, sizeof hq);
        int rc;
        if (exParsed && CopiesToLegacy(ex)) {
            // The legacy parser reads the same fields of the same text; with
            // the code within the legacy width and equal exchange-code widths
            // it cannot fail where the extended one succeeded, and gives the
            // same values. Copying them saves the second parse; the store
            // step is the same.
            ConvertHq22To16(&ex, hq);
            rc = svc.m_pTIKRONInfo->AddHQInfo(&hq, 0);
        } else {
            rc = svc.m_pTIKRONInfo->AddHQData(data, len, &hq, '0', 0);
        }
        if (rc == 0) {
            char key[sizeof hq.contract_code];
            FieldText(key, hq.contract_code);
            const Body body = RawQuoteBody(kTypeSingleLeg, &hq, static_cast<int>(sizeof hq));
            if (packedKey && strcmp(key, exKey) == 0)
                Publish(svc, kFuncQuotePublish, 16, *packedKey, body);
            else
                Publish(svc, kFuncQuotePublish, 16, TextKey("contract_code", key), body);
        }
    }
    return 0;
}

// Exchange feed fields by index (0x01-separated, the 33100 layout).
constexpr int kFeedFields = 46;
constexpr size_t kFieldScratch = 24;

// Sets the record field of feed field idx from its text (a terminated
// scratch copy). Doubles are assigned, never bound by reference: those of
// the packed record may be misaligned.
void AssignFeedField(tagHQInfo_EX& r, int idx, const char* s) {
    switch (idx) {
        case 2: r.time_stamp = atoi(s); break;
        // Text copies are bounded by the record fields: the feed is trusted,
        // but a long field is cut rather than overrunning the record.
        case 4: CopyField(r.futu_exch_type, s); break;
        case 6: CopyField(r.contract_code, s); break;
        case 7: r.pre_square_price = atof(s); break;
        case 8: r.pre_close_price = atof(s); break;
        case 9: r.pre_open_interest = atof(s); break;
        case 10: r.pre_delta = atof(s); break;
        case 11: r.futu_open_price = atof(s); break;
        case 12: r.futu_last_price = atof(s); break;
        case 13: r.buy_high_price = atof(s); break;
        case 14: r.buy_high_amount = atoi(s); break;
        case 15: r.sale_low_price = atof(s); break;
        case 16: r.sale_low_amount = atoi(s); break;
        case 17: r.futu_high_price = atof(s); break;
        case 18: r.futu_low_price = atof(s); break;
        case 19: r.uplimited_price = atof(s); break;
        case 20: r.downlimited_price = atof(s); break;
        case 21: r.average_price = atof(s); break;
        case 22: r.change_direction = atof(s); break;
        case 23: r.business_amount = atoi(s); break;
        case 24: r.bear_amount = atoi(s); break;
        case 25: r.business_balance = atof(s); break;
        case 26: r.futu_close_price = atof(s); break;
        case 27: r.square_price = atof(s); break;
        case 29: r.curr_delta = atof(s); break;
        case 30: r.bid_price2 = atof(s); break;
        case 31: r.bid_volume2 = atoi(s); break;
        case 32: r.bid_price3 = atof(s); break;
        case 33: r.bid_volume3 = atoi(s); break;
        case 34: r.bid_price4 = atof(s); break;
        case 35: r.bid_volume4 = atoi(s); break;
        case 36: r.bid_price5 = atof(s); break;
        case 37: r.bid_volume5 = atoi(s); break;
        case 38: r.ask_price2 = atof(s); break;
        case 39: r.ask_volume2 = atoi(s); break;
        case 40: r.ask_price3 = atof(s); break;
        case 41: r.ask_volume3 = atoi(s); break;
        case 42: r.ask_price4 = atof(s); break;
        case 43: r.ask_volume4 = atoi(s); break;
        case 44: r.ask_price5 = atof(s); break;
        case 45: r.ask_volume5 = atoi(s); break;
        default: break;  // 0, 1, 3, 5, 28: not used
    }
}

int DealExchangeFeed(CTIKRONServiceImpl& svc, const char* data, int len) {
    tagHQInfo_EX ex;
    memset(&ex, 0, sizeof ex);
    const char* end = data + strnlen(data, static_cast<size_t>(len));
    const char* p = data;
    for (int idx = 0; idx < kFeedFields; ++idx) {
        const char* sep = static_cast<const char*>(memchr(p, '\x01', static_cast<size_t>(end - p)));
        const char* fieldEnd = sep != nullptr ? sep : end;
        // Each field goes through a zeroed 24-byte scratch; a longer field is
        // cut to 23 characters instead of overrunning it.
        char scratch[kFieldScratch] = {0};
        size_t n = static_cast<size_t>(fieldEnd - p);
        memcpy(scratch, p, n < kFieldScratch - 1 ? n : kFieldScratch - 1);
        AssignFeedField(ex, idx, scratch);
        if (sep == nullptr) break;
        p = sep + 1;
    }
    if (svc.m_pTIKRONInfo_EX != nullptr) svc.m_pTIKRONInfo_EX->AddHQInfo(&ex, 0);
    // The feed's own text is the 33100 text.
    std::string text(data, static_cast<size_t>(end - data));
    PublishExtended(svc, ex, text.c_str(), 1024);
    return 0;
}

}  // namespace

int CTIKRONServiceImpl::DealUDP_hq(void* data, int len) {
    if (data == nullptr || len < 1) return -2;
    const char* d = static_cast<const char*>(data);
    if (m_iUdpHqVersion == 1) return DealExchangeFeed(*this, d, len);
    return DealCommaFeed(*this, d, len);
}
