// Registration thread: asks the host to register the service once a second
// until the registration answer stops it.
#include "frame/service_threads.h"

#include "frame/message_service.h"
#include "frame/service_log.h"

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
