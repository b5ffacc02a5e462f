// Service status state machine and its polling thread.
#include "frame/status_control.h"

#include "frame/esb_message.h"

CStatusControlThread::~CStatusControlThread() { Stop(-1); }

long CStatusControlThread::Run() {
    while (!m_bQuit) {
        if (m_lpOwnerService == nullptr) break;
        switch (m_lpOwnerService->GetServiceStatus()) {
            case ServiceUnRegister:
            case ServiceRegistering: m_lpOwnerService->RegisterService(); break;
            case ServiceReady:
            case ServiceDisbale: m_lpOwnerService->SendSvrHeartBeat(); break;
            default: break;
        }
    }
    return 0;
}

CStatusControl::CStatusControl(IMessageService* owner)
    : m_lpOwner(owner), m_Status(ServiceUnInite), m_iLsatChangeTime(0) {
    m_Thread.m_lpOwnerService = owner;
    m_Thread.m_lpStatucControl = this;
}

CStatusControl::~CStatusControl() { m_Thread.Stop(-1); }

void CStatusControl::Status(ServiceStatus status) {
    m_Status = status;
    m_iLsatChangeTime = static_cast<unsigned int>(KAVLE2::GetTimeSinceStart());
}

int CStatusControl::Start() { return m_Thread.Start(); }

int CStatusControl::Stop() { return m_Thread.Stop(-1); }

int CStatusControl::OnMessage(IESBMessage* msg) {
    if (msg == nullptr) return 0;
    int f = msg->GetItem(TAG_FUNCTION_ID)->GetInt(0);
    (void)msg->GetItem(TAG_PACKET_TYPE)->GetInt(0);
    ServiceStatus s = m_Status;
    if ((s == ServiceUnRegister || s == ServiceRegistering) && f == 2) {
        Status(ServiceReady);
    } else if (s == ServiceReady && f == 10) {
        Status(ServiceDisbale);
    } else if ((s == ServiceReady || s == ServiceDisbale) && f == 9) {
        m_iLsatChangeTime = static_cast<unsigned int>(KAVLE2::GetTimeSinceStart());
    }
    return 0;
}
