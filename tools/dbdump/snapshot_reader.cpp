#include "tools/dbdump/snapshot_reader.h"

#include <iconv.h>

#include <charconv>
#include <cstring>

#include "wire/quote_records.h"

namespace dbdump {

namespace {

#define FS(T, f) FieldDesc{#f, offsetof(T, f), 's', sizeof(T::f)}
#define FC(T, f) FieldDesc{#f, offsetof(T, f), 'c', 1}
#define FI(T, f) FieldDesc{#f, offsetof(T, f), 'i', 4}
#define FD(T, f) FieldDesc{#f, offsetof(T, f), 'd', 8}

template <typename T>
std::vector<FieldDesc> SingleLeg() {
    std::vector<FieldDesc> v = {
        FS(T, contract_code),     FD(T, pre_square_price), FD(T, futu_open_price),   FD(T, futu_last_price),
        FD(T, buy_high_price),    FI(T, buy_high_amount),  FI(T, buy_total_amount),  FD(T, sale_low_price),
        FI(T, sale_low_amount),   FI(T, sale_total_amount), FD(T, futu_high_price),  FD(T, futu_low_price),
        FD(T, average_price),     FD(T, change_direction), FI(T, business_amount),   FI(T, bear_amount),
        FD(T, business_balance),  FD(T, uplimited_price),  FD(T, downlimited_price), FS(T, futu_exch_type),
        FD(T, form_buy_price),    FD(T, form_sale_price),  FI(T, form_buy_amount),   FI(T, form_sale_amount),
        FD(T, pre_close_price),   FD(T, pre_open_interest), FD(T, futu_close_price), FD(T, square_price),
        FD(T, pre_delta),         FD(T, curr_delta),       FD(T, bid_price2),        FI(T, bid_volume2),
        FD(T, bid_price3),        FI(T, bid_volume3),      FD(T, bid_price4),        FI(T, bid_volume4),
        FD(T, bid_price5),        FI(T, bid_volume5),      FD(T, ask_price2),        FI(T, ask_volume2),
        FD(T, ask_price3),        FI(T, ask_volume3),      FD(T, ask_price4),        FI(T, ask_volume4),
        FD(T, ask_price5),        FI(T, ask_volume5),
    };
    return v;
}

bool EndsWithDb(const std::string& s, const char* prefix) {
    size_t n = std::strlen(prefix);
    return s.size() > n + 3 && s.compare(0, n, prefix) == 0 && s.compare(s.size() - 3, 3, ".db") == 0;
}

}  // namespace

Kind KindFromName(const std::string& name) {
    if (name == "hq") return Kind::Hq;
    if (name == "hq_ex") return Kind::HqEx;
    if (name == "arg") return Kind::Arg;
    if (name == "exch") return Kind::Exch;
    return Kind::Unknown;
}

Kind KindFromPath(const std::string& path) {
    size_t slash = path.find_last_of('/');
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    if (EndsWithDb(base, "tikron_ex_")) return Kind::HqEx;
    if (EndsWithDb(base, "tikronarg_")) return Kind::Arg;
    if (EndsWithDb(base, "futuexchstatus_")) return Kind::Exch;
    if (EndsWithDb(base, "tikron_")) return Kind::Hq;
    return Kind::Unknown;
}

const char* KindName(Kind k) {
    switch (k) {
        case Kind::Hq: return "hq";
        case Kind::HqEx: return "hq_ex";
        case Kind::Arg: return "arg";
        case Kind::Exch: return "exch";
        default: return "unknown";
    }
}

size_t RecordSize(Kind k) {
    switch (k) {
        case Kind::Hq: return sizeof(tagHQInfo);
        case Kind::HqEx: return sizeof(tagHQInfo_EX);
        case Kind::Arg: return sizeof(tagArgHQInfo);
        case Kind::Exch: return sizeof(tagEXCHSTATUS);
        default: return 0;
    }
}

const std::vector<FieldDesc>& Fields(Kind k) {
    static const std::vector<FieldDesc> hq = SingleLeg<tagHQInfo>();
    static const std::vector<FieldDesc> hqex = [] {
        auto v = SingleLeg<tagHQInfo_EX>();
        v.push_back(FI(tagHQInfo_EX, time_stamp));
        return v;
    }();
    static const std::vector<FieldDesc> arg = {
        FS(tagArgHQInfo, contract_code),    FS(tagArgHQInfo, futu_exch_type),  FS(tagArgHQInfo, first_code),
        FS(tagArgHQInfo, second_code),      FC(tagArgHQInfo, arbi_type),       FD(tagArgHQInfo, buy_price),
        FI(tagArgHQInfo, buy_amount),       FI(tagArgHQInfo, buy_total_amount), FD(tagArgHQInfo, sale_price),
        FI(tagArgHQInfo, sale_amount),      FI(tagArgHQInfo, sale_total_amount), FD(tagArgHQInfo, futu_high_price),
        FD(tagArgHQInfo, futu_low_price),   FD(tagArgHQInfo, uplimited_price), FD(tagArgHQInfo, downlimited_price),
    };
    static const std::vector<FieldDesc> exch = {
        FS(tagEXCHSTATUS, futu_exch_type), FS(tagEXCHSTATUS, futu_status), FI(tagEXCHSTATUS, can_trade)};
    static const std::vector<FieldDesc> none;
    switch (k) {
        case Kind::Hq: return hq;
        case Kind::HqEx: return hqex;
        case Kind::Arg: return arg;
        case Kind::Exch: return exch;
        default: return none;
    }
}

bool ParseSnapshot(const std::string& bytes, Kind kind, Snapshot& out, std::string& error) {
    out = Snapshot{};
    size_t rec = RecordSize(kind);
    if (rec == 0) {
        error = "unknown record kind";
        return false;
    }
    if (bytes.size() < 16) {
        error = "short header: file has " + std::to_string(bytes.size()) + " bytes, header needs 16";
        return false;
    }
    std::memcpy(&out.date, bytes.data(), 8);
    std::memcpy(&out.count, bytes.data() + 8, 8);
    size_t slotSize = rec + 8;
    size_t pos = 16;
    while (bytes.size() - pos >= slotSize) {
        Slot s;
        std::memcpy(&s.recordNo, bytes.data() + pos, 4);
        s.record.assign(bytes.begin() + static_cast<long>(pos + 4), bytes.begin() + static_cast<long>(pos + 4 + rec));
        std::memcpy(&s.crc, bytes.data() + pos + 4 + rec, 4);
        out.slots.push_back(std::move(s));
        pos += slotSize;
    }
    out.trailingBytes = bytes.size() - pos;
    return true;
}

std::string GbkToUtf8(const unsigned char* p, size_t width) {
    size_t n = strnlen(reinterpret_cast<const char*>(p), width);
    std::string out;
    iconv_t cd = iconv_open("UTF-8", "GBK");
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        out.assign(reinterpret_cast<const char*>(p), n);
        return out;
    }
    size_t i = 0;
    while (i < n) {
        char buf[64];
        char* in = const_cast<char*>(reinterpret_cast<const char*>(p + i));
        size_t inLeft = n - i;
        char* o = buf;
        size_t oLeft = sizeof buf;
        size_t r = iconv(cd, &in, &inLeft, &o, &oLeft);
        out.append(buf, static_cast<size_t>(o - buf));
        i = n - inLeft;
        if (r == static_cast<size_t>(-1) && errno != E2BIG) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", p[i]);
            out += hex;
            ++i;
            iconv(cd, nullptr, nullptr, nullptr, nullptr);
        }
    }
    iconv_close(cd);
    return out;
}

std::string FieldText(const FieldDesc& f, const unsigned char* record) {
    const unsigned char* p = record + f.offset;
    switch (f.type) {
        case 's': return GbkToUtf8(p, f.width);
        case 'c': return p[0] == 0 ? std::string() : GbkToUtf8(p, 1);
        case 'i': {
            int v;
            std::memcpy(&v, p, 4);
            return std::to_string(v);
        }
        default: {
            double v;
            std::memcpy(&v, p, 8);
            char buf[64];
            auto res = std::to_chars(buf, buf + sizeof buf, v);
            return std::string(buf, res.ptr);
        }
    }
}

}  // namespace dbdump
