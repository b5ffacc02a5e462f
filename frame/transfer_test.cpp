// Chain operations on a service object built directly (no library load).
#include <gtest/gtest.h>

#include <cstring>

#include "frame/tikron_service.h"
#include "host/host_emulator.h"

namespace {

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
        m->Prepare(0, f);
        return m;
    }
};

}  // namespace

TEST_F(Chain, TargetChoiceAndPathStamp) {
    unsigned long before = g_ulReleaseESBNum;
    // Null sender goes down when a down neighbour exists.
    ASSERT_EQ(0, svc->TransferMsg(NewMsg(1), nullptr));
    ASSERT_EQ(1u, down.Count());
    EXPECT_EQ("tikron", down.Messages()[0].PathStamp(2));
    EXPECT_EQ("S#2", down.Messages()[0].PathStamp(1));
    // From up goes down, from down goes up.
    ASSERT_EQ(0, svc->TransferMsg(NewMsg(2), &up));
    EXPECT_EQ(2u, down.Count());
    ASSERT_EQ(0, svc->TransferMsg(NewMsg(3), &down));
    ASSERT_EQ(1u, up.Count());
    EXPECT_EQ(3, up.Messages()[0].FunctionNo());
    EXPECT_EQ(before + 3, g_ulReleaseESBNum);

    // Any other sender: 100 and the message is left untouched to the caller.
    IESBMessage* m = NewMsg(4);
    EXPECT_EQ(100, svc->TransferMsg(m, &other));
    EXPECT_STREQ("", m->GetItem(TAG_PATH_STAMP)->GetString(2));
    EXPECT_EQ(0u, other.Count());
    EXPECT_EQ(before + 3, g_ulReleaseESBNum);

    // Without a down neighbour a null sender goes up.
    svc->RegisterPrevService(nullptr);
    EXPECT_EQ(0, svc->TransferMsg(m, nullptr));
    EXPECT_EQ(2u, up.Count());
    // A refusing target: its result is passed on and the caller keeps the message.
    up.SetMode(hostemu::CHostNeighbour::Refuse);
    IESBMessage* kept = NewMsg(5);
    EXPECT_EQ(1, svc->TransferMsg(kept, nullptr));
    ReleaseESBMsgEx(kept);
    // No neighbour at all.
    svc->RegisterNextService(nullptr);
    IESBMessage* none = NewMsg(6);
    EXPECT_EQ(100, svc->TransferMsg(none, nullptr));
    ReleaseESBMsgEx(none);
    EXPECT_EQ(0u, factory.Stats().live);
    EXPECT_EQ(0u, factory.Stats().doubleReleases);
}

namespace {

// Records the chain registrations it receives.
struct LinkRecorder : IMessageService {
    IMessageService* next = nullptr;
    IMessageService* prev = nullptr;
    int nextCalls = 0, prevCalls = 0;
    int QueryInterface(const char*, IKnown**) override { return 0; }
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int PostMsg(IESBMessage*, IMessageService*) override { return 1; }
    int RegisterNextService(IMessageService* s) override { next = s; ++nextCalls; return 0; }
    int RegisterPrevService(IMessageService* s) override { prev = s; ++prevCalls; return 0; }
    int RemoveService() override { return 0; }
    const char* GetServiceID() override { return "rec"; }
    int SetServiceID(const char*) override { return 0; }
    int GetServiceStatus() override { return 0; }
    int RegisterService() override { return 0; }
    int SendSvrHeartBeat() override { return 0; }
};

}  // namespace

TEST_F(Chain, RemoveServiceLinksTheNeighbours) {
    LinkRecorder a, b;
    svc->RegisterNextService(&a);
    svc->RegisterPrevService(&b);
    EXPECT_EQ(0, svc->RemoveService());
    EXPECT_EQ(&b, a.prev);
    EXPECT_EQ(&a, b.next);
    EXPECT_EQ(0, a.nextCalls);
    EXPECT_EQ(0, b.prevCalls);
    // The service's own links keep their values.
    EXPECT_EQ(&a, svc->m_lpUpService);
    EXPECT_EQ(&b, svc->m_lpDownService);

    // Only an up neighbour: it learns that nothing is below any more.
    svc->RegisterPrevService(nullptr);
    a.prev = &a;
    EXPECT_EQ(0, svc->RemoveService());
    EXPECT_EQ(nullptr, a.prev);
}

TEST_F(Chain, ActionTableHasNineEntriesAndReplaces) {
    EXPECT_EQ(9u, svc->m_ProcReqActionList.size());
    for (unsigned long n = 0; n < 9; ++n) EXPECT_NE(nullptr, svc->mf_GetAction(n)) << n;
    EXPECT_EQ(nullptr, svc->mf_GetAction(9));
    EXPECT_STREQ("取函数列表", svc->m_ProcReqActionList.at(0)->sCaption);
    EXPECT_STREQ("取主动发送队列信息", svc->m_ProcReqActionList.at(8)->sCaption);
    auto custom = [](CMessageServiceImpl*, IF2UnPacker*, IF2Packer*) { return 42; };
    EXPECT_EQ(0, svc->mf_AddToActionList(3, custom, "x"));
    EXPECT_EQ(9u, svc->m_ProcReqActionList.size());
    EXPECT_EQ(+custom, svc->mf_GetAction(3));

    hostemu::CHostPackSvr packSvr;
    IF2Packer* packer = packSvr.GetPacker(33);
    auto body = hostemu::EncodePacked(hostemu::MakeBody(33, {"function_id"}, {{3}}));
    IF2UnPacker* unpacker = packSvr.GetUnPacker(33);
    ASSERT_EQ(0, unpacker->Open(body.data(), static_cast<int>(body.size())));
    EXPECT_EQ(42, svc->OnManager(unpacker, packer));
    auto unknown = hostemu::EncodePacked(hostemu::MakeBody(33, {"function_id"}, {{12}}));
    ASSERT_EQ(0, unpacker->Open(unknown.data(), static_cast<int>(unknown.size())));
    EXPECT_EQ(-1, svc->OnManager(unpacker, packer));
}
