// Message worker, heartbeat and registration threads.
#include "frame/service_threads.h"

#include <cstring>

#include "frame/heartbeat_clock.h"
#include "frame/message_service.h"
#include "frame/service_log.h"

// ---------------------------------------------------------------- workers

CMessageServiceThread::CMessageServiceThread()
    : m_lpOwnerService(nullptr),
      m_pV1UnPacker(nullptr),
      m_pV2UnPacker(nullptr),
      m_pV1Packer(nullptr),
      m_pV2Packer(nullptr),
      m_pUnPacker(nullptr),
      m_pPacker(nullptr) {
    memset(&m_szLocalHB, 0, sizeof(m_szLocalHB));
    memset(&m_szLocalCJ, 0, sizeof(m_szLocalCJ));
    memset(&m_szLocalCJ_EX, 0, sizeof(m_szLocalCJ_EX));
    memset(&m_szLocalWTQR, 0, sizeof(m_szLocalWTQR));
    memset(&m_szLocalWTQR_EX, 0, sizeof(m_szLocalWTQR_EX));
    memset(&m_szLocalBJ, 0, sizeof(m_szLocalBJ));
}

CMessageServiceThread::~CMessageServiceThread() {
    Stop(-1);
    if (m_pV1Packer != nullptr) m_pV1Packer->Release();
    m_pV1Packer = nullptr;
    if (m_pV2Packer != nullptr) m_pV2Packer->Release();
    m_pV2Packer = nullptr;
    if (m_pV1UnPacker != nullptr) m_pV1UnPacker->Release();
    m_pV1UnPacker = nullptr;
    if (m_pV2UnPacker != nullptr) m_pV2UnPacker->Release();
    m_pV2UnPacker = nullptr;
}

long CMessageServiceThread::Run() {
    return m_lpOwnerService != nullptr ? m_lpOwnerService->ThreadFunc(this) : 0;
}

void CMessageServiceThread::SetOwnerService(CMessageServiceImpl* owner) {
    m_lpOwnerService = owner;
    IF2PackSvr* packSvr = owner != nullptr ? owner->m_lpF2PackSvr : nullptr;
    if (packSvr == nullptr) return;
    m_pV1UnPacker = packSvr->GetUnPacker(1);
    m_pV1Packer = packSvr->GetPacker(1);
    m_pV2UnPacker = packSvr->GetUnPacker(33);
    m_pV2Packer = packSvr->GetPacker(33);
}

int CMessageServiceThread::GetUnPacker(const void* buf, int /*len*/) {
    IF2PackSvr* packSvr = m_lpOwnerService != nullptr ? m_lpOwnerService->m_lpF2PackSvr : nullptr;
    if (packSvr != nullptr && packSvr->GetPackVersion(buf) == 1) {
        m_pUnPacker = m_pV1UnPacker;
        m_pPacker = m_pV1Packer;
    } else {
        m_pUnPacker = m_pV2UnPacker;
        m_pPacker = m_pV2Packer;
    }
    return 0;
}

// ---------------------------------------------------------------- heartbeat

CHeartBeatThread::CHeartBeatThread()
    : m_iStatus(0),
      m_iSubscibeTime(0),
      m_iStop(0),
      m_pUnPacker(nullptr),
      m_pPacker(nullptr),
      m_szStopEvent(false),
      m_lpOwnerService(nullptr) {}

CHeartBeatThread::~CHeartBeatThread() {
    Stop(-1);
    if (m_pUnPacker != nullptr) m_pUnPacker->Release();
    m_pUnPacker = nullptr;
    if (m_pPacker != nullptr) m_pPacker->Release();
    m_pPacker = nullptr;
}

void CHeartBeatThread::SetOwnerService(CMessageServiceImpl* owner) {
    m_lpOwnerService = owner;
    IF2PackSvr* packSvr = owner != nullptr ? owner->m_lpF2PackSvr : nullptr;
    if (packSvr == nullptr) return;
    m_pUnPacker = packSvr->GetUnPacker(33);
    m_pPacker = packSvr->GetPacker(33);
}

void CHeartBeatThread::Signal() {
    m_bQuit = true;
    m_szStopEvent.Set();
}

long CHeartBeatThread::Run() {
    CMessageServiceImpl* svc = m_lpOwnerService;
    if (svc == nullptr) return 0;
    const int timeout = svc->m_iHeartBeatTimeout;
    const int subscribe = svc->m_iEnableSubscibeToMC;
    while (m_iStop == 0 && !m_bQuit) {
        const time_t now = Now();
        int t = TimeHmsAt(now);
        int d = DateYmdAt(now);
        if (svc->m_iInitTime < t && svc->m_iInitDate != d) {
            if (svc->SysInit() == 0) {
                svc->m_iInitDate = d;
                // The first field is read after the update, as the line always showed.
                TikronLog(svc->m_lpLogService, "CHeartBeatThread::Run",
                          "原日期: %d, 初始化时间: %d, 初始化成功, 日期: %d!", svc->m_iInitDate.load(),
                          svc->m_iInitTime, d);
            }
        }
        if (now - m_iSubscibeTime.load() > timeout) m_iStatus = 0;
        if (m_iStatus == 0 && subscribe == 1) svc->AddToMap();
        if (subscribe == 1) svc->SendRequest(m_pPacker);
        ++m_ulPasses;
        m_szStopEvent.Wait(1000);
    }
    return 0;
}

// ---------------------------------------------------------------- registration

CRegeditServiceThread::CRegeditServiceThread()
    : m_iStop(0), m_lpLogService(nullptr), m_szStopEvent(false), m_lpOwnerService(nullptr) {}

CRegeditServiceThread::~CRegeditServiceThread() { Stop(-1); }

void CRegeditServiceThread::Signal() {
    m_bQuit = true;
    m_szStopEvent.Set();
}

long CRegeditServiceThread::Run() {
    m_iStop = 0;
    TikronLog(m_lpLogService, "CRegeditServiceThread::Run", "RegeditThread start...");
    while (m_iStop == 0 && !m_bQuit) {
        if (m_lpOwnerService != nullptr) m_lpOwnerService->RegeditFunction();
        m_szStopEvent.Wait(1000);
    }
    TikronLog(m_lpLogService, "CRegeditServiceThread::Run", "RegeditThread stop!");
    m_iStop = 1;
    return 0;
}
