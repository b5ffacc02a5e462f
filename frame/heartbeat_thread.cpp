// Heartbeat thread: daily reset, message-center watch and the resend of
// unanswered subscription requests, once a second.
#include "frame/service_threads.h"

#include "frame/heartbeat_clock.h"
#include "frame/message_service.h"
#include "frame/service_log.h"

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
