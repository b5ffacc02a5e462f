// The service base built directly (no library load): facets and system
// events, the status state machine, chain operations and the management
// action table.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "frame/status_control.h"
#include "frame/tikron_service.h"
#include "host/host_emulator.h"

namespace {

// Records which lifecycle slot each system event reached.
struct RecordingService : CMessageServiceImpl {
    void OnStart() override { calls += "S"; }
    void OnStop() override { calls += "T"; }
    void OnExit() override { calls += "E"; }
    void OnFork() override { calls += "F"; }
    int RegisterService() override { return ++registers, 0; }
    std::string calls;
    int registers = 0;
};

// The facets answer the plug-in's own id and themselves, not the
// message-service id and not each other.
TEST(ServiceFacets, QueryInterfaceAndSystemEvents) {
    RecordingService svc;
    svc.SetInterfaceID("tikron");
    IKnown* const self = static_cast<IMessageService*>(&svc);
    IKnown *ioc = nullptr, *mgr = nullptr;
    ASSERT_EQ(1, svc.QueryInterface(SID_IOC, &ioc));
    ASSERT_EQ(1, svc.QueryInterface(SID_MANAGER, &mgr));
    const struct {
        IKnown* facet;
        const char* id;
        IKnown* expected;
    } asks[] = {
        {self, SID_MESSAGESERVICE, self},   {self, "tikron", self}, {self, "com.velmora.kavle.messageservicex", nullptr},
        {ioc, "tikron", self},              {ioc, SID_IOC, ioc},    {ioc, SID_MESSAGESERVICE, nullptr},
        {ioc, SID_MANAGER, nullptr},        {mgr, "tikron", self},  {mgr, SID_MANAGER, mgr},
        {mgr, SID_MESSAGESERVICE, nullptr}, {mgr, SID_IOC, nullptr},
    };
    for (const auto& a : asks) {
        IKnown* out = self;  // overwritten, null when refused
        EXPECT_EQ(a.expected != nullptr ? 1 : 0, a.facet->QueryInterface(a.id, &out)) << a.id;
        EXPECT_EQ(a.expected, out) << a.id;
    }
    for (IKnown* k : {self, ioc, mgr}) EXPECT_EQ(1, k->AddRef());
    for (IKnown* k : {ioc, mgr}) EXPECT_EQ(1, k->Release());
    auto* manager = static_cast<IManager*>(mgr);
    for (unsigned long event : {1UL, 2UL, 3UL, 4UL, 5UL, 0UL, 1000UL}) EXPECT_EQ(1, manager->ProcSysEvent(event, 7, 8, nullptr));
    EXPECT_EQ("STEF", svc.calls) << "events 1-4 call start, stop, exit and fork; others nothing";
    EXPECT_EQ(ServiceUnInite, svc.GetServiceStatus());
    EXPECT_EQ(1, manager->ProcMngAnswer(nullptr));
    EXPECT_EQ(-1, manager->ProcMngRequest(nullptr, nullptr));
}

TEST(StatusControl, TransitionsByFunctionNumber) {
    hostemu::CHostMessageFactory factory;
    RecordingService owner;
    CStatusControl control(&owner);
    EXPECT_EQ(ServiceUnInite, control.Status());
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    const struct {
        ServiceStatus from;
        int f, packetType;
        ServiceStatus to;
        bool timeStored;
    } steps[] = {
        {ServiceUnRegister, 2, 1, ServiceReady, true},       {ServiceRegistering, 2, 0, ServiceReady, true},
        {ServiceUnRegister, 9, 1, ServiceUnRegister, false}, {ServiceReady, 10, 1, ServiceDisbale, true},
        {ServiceReady, 9, 1, ServiceReady, true},            {ServiceDisbale, 9, 1, ServiceDisbale, true},
        {ServiceDisbale, 2, 1, ServiceDisbale, false},       {ServiceReady, 2, 1, ServiceReady, false},
        {ServiceUnInite, 2, 1, ServiceUnInite, false},       {ServiceDisbale, 10, 1, ServiceDisbale, false},
    };
    for (const auto& s : steps) {
        control.m_Status = s.from;
        control.m_iLsatChangeTime = 0;
        const auto before = static_cast<unsigned int>(KAVLE2::GetTimeSinceStart());
        IESBMessage* m = factory.NewMessage();
        m->Prepare(s.packetType, s.f);
        EXPECT_EQ(0, control.OnMessage(m));
        m->Release();
        EXPECT_EQ(s.to, control.Status()) << s.from << " f=" << s.f;
        // The change time is refreshed (not below before) or left at 0.
        EXPECT_EQ(s.timeStored ? before : 0u, std::min(before, control.m_iLsatChangeTime.load())) << s.from << " f=" << s.f;
    }
    EXPECT_EQ(0, control.OnMessage(nullptr));
    EXPECT_EQ(0, owner.registers) << "nothing started the polling thread";
}

// A service object between an up and a down neighbour.
struct Chain : testing::Test {
    hostemu::CHostMessageFactory factory;
    hostemu::CHostNeighbour up{"up"}, down{"down"}, other{"other"};
    CTIKRONServiceImpl* svc = new CTIKRONServiceImpl();
    void SetUp() override {
        svc->SetServiceID("tikron");
        strcpy(svc->m_szServerName, "S#2");
        svc->RegisterNextService(&up);
        svc->RegisterPrevService(&down);
    }
    void TearDown() override { svc->Release(); }
    IESBMessage* NewMsg(int f) {
        IESBMessage* m = factory.NewMessage();
        return m->Prepare(0, f), m;
    }
};

TEST_F(Chain, TransferChoosesTheTargetStampsAndCounts) {
    const unsigned long before = g_ulReleaseESBNum;
    ASSERT_EQ(0, svc->TransferMsg(NewMsg(1), nullptr));  // a null sender goes down when there is a down
    ASSERT_EQ(0, svc->TransferMsg(NewMsg(2), &up));      // from up goes down
    ASSERT_EQ(0, svc->TransferMsg(NewMsg(3), &down));    // from down goes up
    ASSERT_EQ(2u, down.Count());
    EXPECT_EQ("tikron", down.Messages()[0].PathStamp(2));
    EXPECT_EQ("S#2", down.Messages()[0].PathStamp(1));
    ASSERT_EQ(1u, up.Count());
    EXPECT_EQ(3, up.Messages()[0].FunctionNo());
    EXPECT_EQ(before + 3, g_ulReleaseESBNum);
    IESBMessage* m = NewMsg(4);
    EXPECT_EQ(100, svc->TransferMsg(m, &other)) << "any other sender";
    EXPECT_STREQ("", m->GetItem(TAG_PATH_STAMP)->GetString(2)) << "the message is left untouched to the caller";
    svc->RegisterPrevService(nullptr);
    EXPECT_EQ(0, svc->TransferMsg(m, nullptr));  // without a down neighbour a null sender goes up
    EXPECT_EQ(2u, up.Count());
    up.SetMode(hostemu::CHostNeighbour::Refuse);
    EXPECT_EQ(1, svc->TransferMsg(m = NewMsg(5), nullptr)) << "the target's refusal is passed on";
    svc->RegisterNextService(nullptr);
    EXPECT_EQ(100, svc->TransferMsg(m, nullptr)) << "no neighbour at all";
    EXPECT_EQ(before + 4, g_ulReleaseESBNum);
    ReleaseESBMsgEx(m);
    EXPECT_EQ(0u, factory.Stats().live);
    EXPECT_EQ(0u, factory.Stats().doubleReleases);
}

// RemoveService links the neighbours to each other; the service keeps its links.
TEST_F(Chain, RemoveServiceLinksTheNeighbours) {
    RecordingService a, b;
    svc->RegisterNextService(&a);
    svc->RegisterPrevService(&b);
    EXPECT_EQ(0, svc->RemoveService());
    EXPECT_TRUE(a.m_lpDownService == &b && a.m_lpUpService == nullptr);
    EXPECT_TRUE(b.m_lpUpService == &a && b.m_lpDownService == nullptr);
    EXPECT_TRUE(svc->m_lpUpService == &a && svc->m_lpDownService == &b);
    svc->RegisterPrevService(nullptr);
    EXPECT_EQ(0, svc->RemoveService());
    EXPECT_EQ(nullptr, a.m_lpDownService) << "an up neighbour alone learns that nothing is below";
}

TEST_F(Chain, ActionTableHasNineEntriesAndReplaces) {
    for (unsigned long n = 0; n < 10; ++n) EXPECT_EQ(n < 9, svc->mf_GetAction(n) != nullptr) << n;
    EXPECT_STREQ("取函数列表", svc->m_ProcReqActionList.at(0)->sCaption);
    EXPECT_STREQ("取主动发送队列信息", svc->m_ProcReqActionList.at(8)->sCaption);
    EXPECT_EQ(0, svc->mf_AddToActionList(3, [](CMessageServiceImpl*, IF2UnPacker*, IF2Packer*) { return 42; }, "x"));
    EXPECT_EQ(9u, svc->m_ProcReqActionList.size());
    hostemu::CHostPackSvr packSvr;
    IF2UnPacker* unpacker = packSvr.GetUnPacker(33);
    for (const auto& c : {std::make_pair(3, 42), std::make_pair(12, -1)}) {
        const auto body = hostemu::EncodePacked(hostemu::MakeBody(33, {"function_id"}, {{c.first}}));
        ASSERT_EQ(0, unpacker->Open(body.data(), static_cast<int>(body.size())));
        EXPECT_EQ(c.second, svc->OnManager(unpacker, packSvr.GetPacker(33))) << c.first;
    }
}

}  // namespace
