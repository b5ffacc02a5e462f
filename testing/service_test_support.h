// The service object as unit tests and benchmarks run it without a host:
// its four tables with snapshot files in a fresh scratch directory, the
// emulator's message factory and packer, and a neighbour in front of it that
// takes what the service hands on.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "frame/tikron_service.h"
#include "host/host_emulator.h"
#include "store/hq_tables.h"
#include "testing/temp_dir.h"

namespace tikron_udp {

class ScratchService {
public:
    // quarantine: released messages the factory holds back before reuse (its
    // use-after-release check); 0 reuses them at once, as a production host.
    explicit ScratchService(size_t quarantine = 4096) : m_factory(quarantine) {
        g_lpMsgFactory = &m_factory;
        m_svc = new CTIKRONServiceImpl();
        m_svc->RegisterPrevService(&m_center);
        m_svc->m_pPacker = m_pack.GetPacker(33);
        m_svc->m_pTIKRONInfo = new CTIKRONInfo((m_dir / "tikron.db").c_str());
        m_svc->m_pTIKRONInfo_EX = new CTIKRONInfo_EX((m_dir / "tikron_ex.db").c_str());
        m_svc->m_pTIKRONARGInfo = new CTIKRONARGInfo((m_dir / "tikronarg.db").c_str());
        m_svc->m_pFUTUExchStatusInfo = new CExchStatusInfo((m_dir / "status.db").c_str());
    }
    ~ScratchService() {
        Close();
        g_lpMsgFactory = nullptr;
    }
    ScratchService(const ScratchService&) = delete;
    ScratchService& operator=(const ScratchService&) = delete;

    // Releases the service with its tables (the factory's counts can be
    // checked afterwards); later calls do nothing.
    void Close() {
        if (m_svc != nullptr) m_svc->Release();
        m_svc = nullptr;
    }

    CTIKRONServiceImpl& Svc() { return *m_svc; }
    hostemu::CHostMessageFactory& Factory() { return m_factory; }
    hostemu::CHostNeighbour& Center() { return m_center; }

private:
    testing_support::TempDir m_dir;  // first member: outlives the tables
    hostemu::CHostMessageFactory m_factory;
    hostemu::CHostPackSvr m_pack;
    hostemu::CHostNeighbour m_center{"mc"};
    CTIKRONServiceImpl* m_svc = nullptr;
};

}  // namespace tikron_udp
