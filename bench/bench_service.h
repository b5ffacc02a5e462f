// The service object as the UDP benchmarks run it: its four tables with
// snapshot files in a scratch directory, the emulator's packer, and a
// neighbour that counts and releases what it is handed.
#pragma once

#include <cstdlib>
#include <string>

#include "frame/tikron_service.h"
#include "host/host_emulator.h"
#include "store/hq_tables.h"

namespace benchquotes {

class BenchService {
public:
    explicit BenchService(const char* dirTemplate) {
        std::string tmpl = dirTemplate;
        m_dir = mkdtemp(tmpl.data()) ? tmpl : "/tmp";
        g_lpMsgFactory = &m_factory;
        m_svc = new CTIKRONServiceImpl();
        m_center.SetMode(hostemu::CHostNeighbour::CountOnly);
        m_svc->RegisterPrevService(&m_center);
        m_svc->m_pPacker = m_pack.GetPacker(33);
        m_svc->m_pTIKRONInfo = new CTIKRONInfo((m_dir + "/tikron.db").c_str());
        m_svc->m_pTIKRONInfo_EX = new CTIKRONInfo_EX((m_dir + "/tikron_ex.db").c_str());
        m_svc->m_pTIKRONARGInfo = new CTIKRONARGInfo((m_dir + "/tikronarg.db").c_str());
        m_svc->m_pFUTUExchStatusInfo = new CExchStatusInfo((m_dir + "/status.db").c_str());
    }
    ~BenchService() {
        m_svc->Release();
        g_lpMsgFactory = nullptr;
        (void)system(("rm -rf '" + m_dir + "'").c_str());
    }
    BenchService(const BenchService&) = delete;
    BenchService& operator=(const BenchService&) = delete;

    CTIKRONServiceImpl& Svc() { return *m_svc; }
    size_t Published() const { return m_center.Count(); }

private:
    std::string m_dir;
    // No quarantine: a production host reuses a released message at once
    // (the default quarantine is a test aid for use-after-release detection).
    hostemu::CHostMessageFactory m_factory{0};
    hostemu::CHostPackSvr m_pack;
    hostemu::CHostNeighbour m_center{"mc"};
    CTIKRONServiceImpl* m_svc;
};

}  // namespace benchquotes
