// CTIKRONServiceImpl: construction, lifecycle and the daily reset.
#include "frame/tikron_service.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "frame/fatal_check.h"
#include "frame/local_clock.h"
#include "frame/mgmt_actions.h"
#include "frame/service_log.h"
#include "store/hq_tables.h"

CTIKRONServiceImpl::CTIKRONServiceImpl()
    : m_pPacker(nullptr),
      m_pUDPRecv(nullptr),
      m_pTIKRONInfo(nullptr),
      m_pTIKRONARGInfo(nullptr),
      m_pTIKRONInfo_EX(nullptr),
      m_pFUTUExchStatusInfo(nullptr),
      m_iSendToMC(1),
      m_bStop(false),
      m_uiRecvUDPHB(0),
      m_uiRecvCJNum(0),
      m_uiRecvWTQRNum(0),
      m_hThread(0) {
    memset(&m_szHB, 0, sizeof(m_szHB));
    memset(&m_szCJ, 0, sizeof(m_szCJ));
    memset(&m_szCJ_EX, 0, sizeof(m_szCJ_EX));
    memset(&m_szWTQR, 0, sizeof(m_szWTQR));
    memset(&m_szWTQR_EX, 0, sizeof(m_szWTQR_EX));
    memset(&m_szBJHB, 0, sizeof(m_szBJHB));
    RegisterManagementActions(*this);
    // The datagram consumer stays joinable (never detached) so the
    // destructor can join it; it runs from here until destruction.
    m_bThreadStarted = pthread_create(&m_hThread, nullptr, DoUDPData, this) == 0;
    TIKRON_FATAL_CHECK(m_bThreadStarted);
    pthread_setname_np(m_hThread, "tikron-udp");
}

CTIKRONServiceImpl::~CTIKRONServiceImpl() {
    DetachStatsSink();  // also when the host skipped OnStop
    // Workers call this object's virtual handlers: they end before any part
    // of it is destroyed, also when the host skipped OnStop.
    StopThreads();
    m_bStop = true;
    m_qUDPData.Wake();
    if (m_bThreadStarted) pthread_join(m_hThread, nullptr);
    m_bThreadStarted = false;
    // Datagrams still queued are dropped unprocessed; their blocks are freed.
    for (char* item = m_qUDPData.TryPop(); item != nullptr; item = m_qUDPData.TryPop()) free(item);
    // Cleanup the host would otherwise miss when OnStop never ran.
    if (m_pUDPRecv != nullptr) {
        m_pUDPRecv->Destroy();
        delete m_pUDPRecv;
        m_pUDPRecv = nullptr;
    }
    DeleteTables();
}

int CTIKRONServiceImpl::OnInit() {
    int r = CMessageServiceImpl::OnInit();
    if (r != 0) return r;
    if (m_lpF2PackSvr != nullptr) m_pPacker = m_lpF2PackSvr->GetPacker(33);
    return 0;
}

void CTIKRONServiceImpl::OnStart() {
    static const char* const kFn = "CTIKRONServiceImpl::OnStart";
    m_iInitDate = LocalDateYmd();

    char path[1024];
    snprintf(path, sizeof(path), "./tikron_%s.db", g_cAppName);
    m_pTIKRONInfo = new (std::nothrow) CTIKRONInfo(path);
    if (m_pTIKRONInfo == nullptr) {
        TikronLog(m_lpLogService, kFn, "new tikroninfo fail!");
        return;
    }
    snprintf(path, sizeof(path), "./tikron_ex_%s.db", g_cAppName);
    m_pTIKRONInfo_EX = new (std::nothrow) CTIKRONInfo_EX(path);
    if (m_pTIKRONInfo_EX == nullptr) {
        TikronLog(m_lpLogService, kFn, "new tikroninfo_ex fail!");
        return;
    }
    snprintf(path, sizeof(path), "./tikronarg_%s.db", g_cAppName);
    m_pTIKRONARGInfo = new (std::nothrow) CTIKRONARGInfo(path);
    if (m_pTIKRONARGInfo == nullptr) {
        TikronLog(m_lpLogService, kFn, "new tikronarginfo fail!");
        return;
    }
    snprintf(path, sizeof(path), "./futuexchstatus_%s.db", g_cAppName);
    m_pFUTUExchStatusInfo = new (std::nothrow) CExchStatusInfo(path);
    if (m_pFUTUExchStatusInfo == nullptr) {
        TikronLog(m_lpLogService, kFn, "new exchstatusinfo fail!");
        return;
    }
    // Only the single-leg and arbitrage tables log.
    m_pTIKRONInfo->SetLogService(m_lpLogService);
    m_pTIKRONARGInfo->SetLogService(m_lpLogService);

    if (m_iEnableRecvUDP != 0) {
        m_pUDPRecv = new (std::nothrow) KAVLE2::CUDPBroadcast();
        if (m_pUDPRecv == nullptr) {
            TikronLog(m_lpLogService, kFn, "new CUDPBroadcast fail!");
            return;
        }
        int r = m_pUDPRecv->Init(static_cast<unsigned>(m_iUDPPort), OnUDPReceive, this);
        if (r != 0) {
            TikronLog(m_lpLogService, kFn, "init udp recv fail, error code: %d!", r);
            return;
        }
        // Megabytes to bytes; values above 2047 MB are capped to stay in int.
        long long want = static_cast<long long>(m_iUDPRecvBufLen) * 1024 * 1024;
        if (want > 0x7fffffffLL) want = 0x7fffffffLL;
        int granted = m_pUDPRecv->SetRecvBufLen(static_cast<int>(want));
        char line[256];
        if (granted == want) {
            snprintf(line, sizeof(line), "set the udp recv-buffer size successfully, buflen: %dM!",
                     m_iUDPRecvBufLen);
        } else if (granted == -1) {
            snprintf(line, sizeof(line), "set the udp recv-buffer size fail!");
        } else {
            snprintf(line, sizeof(line),
                     "set the udp recv-buffer size, set value: %dM, actual value: %d bytes!",
                     m_iUDPRecvBufLen, granted);
        }
        TikronLog(m_lpLogService, kFn, "%s", line);
        printf("\n%s\n", line);
        fflush(stdout);
        // Without CAP_NET_ADMIN the kernel caps the buffer at net.core.rmem_max
        // and bursts overflow it; say so, with both ways out.
        if (granted >= 0 && granted < want) {
            TikronLog(m_lpLogService, kFn,
                      "warning: udp recv-buffer smaller than requested, requested: %lld bytes, granted: %d bytes; "
                      "give the host process CAP_NET_ADMIN (systemd: AmbientCapabilities=CAP_NET_ADMIN) or raise "
                      "the sysctl net.core.rmem_max to at least %lld!",
                      want, granted, want);
        }
        m_pUDPRecv->Start();
        TikronLog(m_lpLogService, kFn, "udp recv start on port: %d!", m_iUDPPort);
    } else {
        TikronLog(m_lpLogService, kFn, "没有启动UDP接收功能!");
    }

    CMessageServiceImpl::OnStart();
    AttachStatsSink();
}

void CTIKRONServiceImpl::DeleteTables() {
    delete m_pTIKRONInfo;
    m_pTIKRONInfo = nullptr;
    delete m_pTIKRONInfo_EX;
    m_pTIKRONInfo_EX = nullptr;
    delete m_pTIKRONARGInfo;
    m_pTIKRONARGInfo = nullptr;
    delete m_pFUTUExchStatusInfo;
    m_pFUTUExchStatusInfo = nullptr;
}

void CTIKRONServiceImpl::OnStop() {
    DetachStatsSink();  // no fill may run while the tables go
    if (m_pUDPRecv != nullptr) {
        m_pUDPRecv->Destroy();
        // The receiver object is freed here too; it used to be forgotten.
        delete m_pUDPRecv;
        m_pUDPRecv = nullptr;
    }
    // The workers still run here and may touch the tables; they are stopped
    // first so no handler sees a freed table. The observable order of the
    // steps (receiver, tables, packer, threads) is otherwise unchanged.
    CMessageServiceImpl::OnStop();
    std::lock_guard<std::mutex> guard(m_udpWork);
    DeleteTables();
    if (m_pPacker != nullptr) m_pPacker->Release();
    m_pPacker = nullptr;
}

void CTIKRONServiceImpl::OnExit() { CMessageServiceImpl::OnExit(); }

int CTIKRONServiceImpl::SysInit() {
    if (m_pTIKRONInfo != nullptr) m_pTIKRONInfo->DeleteAll();
    if (m_pTIKRONInfo_EX != nullptr) m_pTIKRONInfo_EX->DeleteAll();
    if (m_pTIKRONARGInfo != nullptr) m_pTIKRONARGInfo->DeleteAll();
    if (m_pFUTUExchStatusInfo != nullptr) m_pFUTUExchStatusInfo->DeleteAll();
    m_uiRecvUDPHB = 0;
    m_uiRecvCJNum = 0;
    m_uiRecvWTQRNum = 0;
    return 0;
}

void CTIKRONServiceImpl::RefreshSubscribeTime() {
    if (m_pHeartBeatThread != nullptr) m_pHeartBeatThread->m_iSubscibeTime = m_pHeartBeatThread->Now();
}
