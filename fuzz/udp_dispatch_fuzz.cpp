// Raw datagram bytes through the record dispatch (DoUDPHelper) and every
// handler behind it: quotes, arbitrage, exchange status, inquiry, quote and
// trade reports, offset and margin records, option/STP pushes.
//
// Input: one options byte, then the datagram exactly as the receiver queues
// it (type character, five-digit length, text; a NUL follows the bytes).
// Options: bit 0 m_iSysVersion, bit 1 m_iUdpHqVersion, bit 2 the neighbour
// refuses, bit 3 quotes off, bit 4 reports off.
//
// Checked: no crash or sanitizer report; every published message decodes;
// after each input no message is live and none was released twice.
#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/tikron_service.h"
#include "fuzz/fuzz_support.h"
#include "host/host_queue.h"
#include "host/host_pack.h"
#include "store/hq_tables.h"

namespace {

struct World {
    hostemu::CHostMessageFactory factory;
    hostemu::CHostPackSvr packSvr;
    fuzzsupport::CheckingLog log;
    fuzzsupport::CheckingNeighbour center;
    CTIKRONServiceImpl* svc = nullptr;

    World() {
        const std::string& dir = fuzzsupport::WorkDir();
        factory.SetReportLeaks(false);
        g_lpMsgFactory = &factory;
        svc = new CTIKRONServiceImpl();
        svc->RegisterPrevService(&center);
        svc->m_pPacker = packSvr.GetPacker(33);
        svc->m_lpLogService = &log;
        svc->m_pTIKRONInfo = new CTIKRONInfo((dir + "/tikron_F#1.db").c_str());
        svc->m_pTIKRONInfo_EX = new CTIKRONInfo_EX((dir + "/tikron_ex_F#1.db").c_str());
        svc->m_pTIKRONARGInfo = new CTIKRONARGInfo((dir + "/tikronarg_F#1.db").c_str());
        svc->m_pFUTUExchStatusInfo = new CExchStatusInfo((dir + "/futuexchstatus_F#1.db").c_str());
        svc->m_pTIKRONInfo->SetLogService(&log);
        svc->m_pTIKRONARGInfo->SetLogService(&log);
    }

    // Tables grow with every new key; empty them now and then so memory and
    // the snapshot files stay bounded over a long run.
    void Trim() {
        if (svc->m_pTIKRONInfo_EX->GetCount() + svc->m_pTIKRONInfo->GetCount() +
                svc->m_pTIKRONARGInfo->GetCount() + svc->m_pFUTUExchStatusInfo->GetCount() >
            4096)
            svc->SysInit();
    }
};

World& TheWorld() {
    static World* w = new World();  // lives for the process (threads use it)
    return *w;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 65536) return 0;
    World& w = TheWorld();
    const uint8_t opt = data[0];
    w.svc->m_iSysVersion = opt & 1;
    w.svc->m_iUdpHqVersion = (opt >> 1) & 1;
    w.center.SetRefuse((opt & 4) != 0);
    w.svc->m_iDealUdpHq = (opt & 8) ? 0 : 1;
    w.svc->m_iDealUdpHb = (opt & 16) ? 0 : 1;

    const hostemu::MessageStats before = w.factory.Stats();
    {
        fuzzsupport::TextBlock block(data + 1, size - 1);
        if (block.Len() > 0) w.svc->DoUDPHelper(block.Get(), block.Len());
    }
    const hostemu::MessageStats after = w.factory.Stats();
    FUZZ_CHECK(after.live == 0);
    FUZZ_CHECK(after.doubleReleases == before.doubleReleases);
    FUZZ_CHECK(after.usesAfterRelease == before.usesAfterRelease);
    w.Trim();
    return 0;
}
