// Status controller state machine, its unwired default, and the system
// events of the manager facet.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "frame/message_service.h"
#include "frame/status_control.h"
#include "host/host_queue.h"

namespace {

// Records which lifecycle slot each system event reached.
class RecordingService : public CMessageServiceImpl {
public:
    void OnStart() override { calls += "S"; }
    void OnStop() override { calls += "T"; }
    void OnExit() override { calls += "E"; }
    void OnFork() override { calls += "F"; }
    int RegisterService() override {
        ++registers;
        return 0;
    }
    std::string calls;
    int registers = 0;
};

TEST(StatusControl, TransitionsByFunctionNumber) {
    hostemu::CHostMessageFactory factory;
    RecordingService owner;
    CStatusControl control(&owner);
    EXPECT_EQ(ServiceUnInite, control.Status());
    auto send = [&](int f, int packetType = 1) {
        IESBMessage* m = factory.NewMessage();
        m->Prepare(packetType, f);
        EXPECT_EQ(0, control.OnMessage(m));
        m->Release();
    };
    std::this_thread::sleep_for(std::chrono::milliseconds(2));

    struct Step {
        ServiceStatus from;
        int f;
        ServiceStatus to;
        bool timeStored;
    };
    const Step steps[] = {
        {ServiceUnRegister, 2, ServiceReady, true},   {ServiceRegistering, 2, ServiceReady, true},
        {ServiceUnRegister, 9, ServiceUnRegister, false}, {ServiceReady, 10, ServiceDisbale, true},
        {ServiceReady, 9, ServiceReady, true},        {ServiceDisbale, 9, ServiceDisbale, true},
        {ServiceDisbale, 2, ServiceDisbale, false},   {ServiceReady, 2, ServiceReady, false},
        {ServiceUnInite, 2, ServiceUnInite, false},   {ServiceDisbale, 10, ServiceDisbale, false},
    };
    for (const Step& s : steps) {
        control.m_Status = s.from;
        control.m_iLsatChangeTime = 0;
        const unsigned int before = static_cast<unsigned int>(KAVLE2::GetTimeSinceStart());
        send(s.f);
        EXPECT_EQ(s.to, control.Status()) << s.from << " f=" << s.f;
        if (s.timeStored)
            EXPECT_GE(control.m_iLsatChangeTime.load(), before) << s.from << " f=" << s.f;
        else
            EXPECT_EQ(0u, control.m_iLsatChangeTime.load()) << s.from << " f=" << s.f;
    }
    // The packet type plays no part.
    control.m_Status = ServiceRegistering;
    send(2, 0);
    EXPECT_EQ(ServiceReady, control.Status());
    EXPECT_EQ(0, control.OnMessage(nullptr));
    // Nothing started the polling thread: the owner was never asked to register.
    EXPECT_EQ(0, owner.registers);
}

TEST(StatusControl, ServiceStaysUninitialisedAndSystemEventsReachTheSlots) {
    RecordingService svc;
    EXPECT_EQ(ServiceUnInite, svc.GetServiceStatus());
    ASSERT_NE(nullptr, svc.m_lpStatusControl);
    EXPECT_EQ(&svc, svc.m_lpStatusControl->m_lpOwner);
    EXPECT_EQ(svc.m_lpStatusControl, svc.m_lpStatusControl->m_Thread.m_lpStatucControl);

    IKnown* known = nullptr;
    ASSERT_EQ(1, svc.QueryInterface(SID_MANAGER, &known));
    IManager* mgr = static_cast<IManager*>(known);
    for (unsigned long event : {1UL, 2UL, 3UL, 4UL, 5UL, 0UL, 1000UL})
        EXPECT_EQ(1, mgr->ProcSysEvent(event, 7, 8, nullptr));
    // Events 1-4 call start, stop, exit and fork; others change nothing.
    EXPECT_EQ("STEF", svc.calls);
    EXPECT_EQ(ServiceUnInite, svc.GetServiceStatus());
    EXPECT_EQ(1, mgr->ProcMngAnswer(nullptr));
}

}  // namespace
