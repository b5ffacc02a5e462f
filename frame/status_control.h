// Service status holder with its state machine and polling thread. Present
// for the host's framework; nothing in this service feeds or starts it.
#pragma once

#include <atomic>

#include "frame/host_interfaces.h"
#include "frame/service_info.h"
#include "kos/kavle2.h"

class CStatusControl;

class CStatusControlThread : public KAVLE2::CThread {
public:
    CStatusControlThread() : m_lpOwnerService(nullptr), m_lpStatucControl(nullptr) {}
    ~CStatusControlThread() override;
    long Run() override;
    void Signal() override { m_bQuit = true; }

    IMessageService* m_lpOwnerService;
    CStatusControl* m_lpStatucControl;

private:
    std::atomic<bool> m_bQuit{false};
};

class CStatusControl {
public:
    explicit CStatusControl(IMessageService* owner);
    virtual ~CStatusControl();

    // Registration and heartbeat state machine driven by function numbers.
    int OnMessage(IESBMessage* msg);
    ServiceStatus Status() const { return m_Status.load(); }
    void Status(ServiceStatus status);
    int Start();
    int Stop();

    IMessageService* m_lpOwner;
    std::atomic<ServiceStatus> m_Status;
    std::atomic<unsigned int> m_iLsatChangeTime;
    CStatusControlThread m_Thread;
};
