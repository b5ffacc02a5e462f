// Test plug-in: a minimal service with the message-service, IoC and manager
// facets. It logs its lifecycle, echoes function 1 with a packed answer and
// publishes on function 2, using every host service through its interface.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/host_interfaces.h"
#include "frame/service_info.h"
#include "kos/kavle2.h"

#define TEST_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

const char kId[] = "test";

class CTestService;

class CTestIoC : public IIoC {
public:
    explicit CTestIoC(CTestService* owner) : m_owner(owner) {}
    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int SetConfig(const char* name, IRCfgObj* cfg) override;
    int SetDependService(const char* id, IKnown* obj) override;
    CTestService* m_owner;
};

class CTestMgr : public IManager {
public:
    explicit CTestMgr(CTestService* owner) : m_owner(owner) {}
    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int ProcMngRequest(IF2UnPacker*, IF2Packer*) override { return 0; }
    int ProcMngAnswer(IF2UnPacker*) override { return 0; }
    int ProcSysEvent(unsigned long event, unsigned long, unsigned long, void (*)(int)) override;
    CTestService* m_owner;
};

class CWorker : public KAVLE2::CThread {
public:
    explicit CWorker(CTestService* owner) : m_owner(owner) {}
    ~CWorker() override { Stop(-1); }
    long Run() override;
    void Signal() override { m_stop = 1; }
    CTestService* m_owner;
    std::atomic<int> m_stop{0};
};

class CTestService final : public IMessageService {
public:
    CTestService() : m_ioc(this), m_mgr(this), m_worker(this) { m_szServiceID[0] = 0; }
    ~CTestService() { m_worker.Stop(-1); }

    int QueryInterface(const char* id, IKnown** out) override {
        if (out == nullptr) return 0;
        *out = nullptr;
        if (id == nullptr) return 0;
        if (strcmp(id, SID_MESSAGESERVICE) == 0 || strcmp(id, kId) == 0) *out = this;
        else if (strcmp(id, SID_IOC) == 0) *out = &m_ioc;
        else if (strcmp(id, SID_MANAGER) == 0) *out = &m_mgr;
        return *out != nullptr ? 1 : 0;
    }
    int AddRef() override { return 1; }
    int Release() override {
        delete this;
        return 1;
    }
    int PostMsg(IESBMessage* msg, IMessageService* from) override {
        if (m_queue == nullptr) return -1;
        return m_queue->PushMsg(msg, from, 0);
    }
    int RegisterNextService(IMessageService* s) override {
        m_up = s;
        return 0;
    }
    int RegisterPrevService(IMessageService* s) override {
        m_down = s;
        return 0;
    }
    int RemoveService() override { return 0; }
    const char* GetServiceID() override { return m_szServiceID; }
    int SetServiceID(const char* id) override {
        snprintf(m_szServiceID, sizeof(m_szServiceID), "%s", id != nullptr ? id : "");
        return 0;
    }
    int GetServiceStatus() override { return m_status; }
    int RegisterService() override { return 0; }
    int SendSvrHeartBeat() override { return 0; }

    void Log(const char* fmt, const char* a = "", const char* b = "") {
        if (m_log == nullptr) return;
        char text[512];
        snprintf(text, sizeof(text), fmt, a, b);
        m_log->AddLog("CTestService::Log", 15006, text);
    }

    int OnInit() {
        if (m_factory == nullptr || m_packSvr == nullptr || m_pub == nullptr) return -9;
        m_queue = m_factory->GetESBQ();
        IRCfgObj* node = m_pub->GetFirstChild();
        const char* app = node != nullptr ? node->GetAttrValue("AppName") : nullptr;
        const char* svr = node != nullptr ? node->GetAttrValue("SvrName") : nullptr;
        Log("init app=%s svr=%s", app ? app : "(none)", svr ? svr : "(none)");
        int result = 0;
        if (m_plugin != nullptr) {
            if (IRCfgObj* args = m_plugin->GetChild("args")) {
                const char* r = args->GetAttrValue("initresult");
                if (r != nullptr) result = atoi(r);
            }
            if (IRCfgObj* conv = m_plugin->GetChild("convert")) {
                for (IRCfgObj* c = conv->GetFirstChild(); c != nullptr; c = c->GetNextSibling())
                    Log("convert %s=%s", c->GetName(), c->GetText());
            }
        }
        m_status = 2;
        return result;
    }

    void Transfer(IESBMessage* msg) {
        IESBMessageItem* stamp = msg->GetItem(100);
        stamp->SetString(m_szServiceID, 2);
        stamp->SetString("testsvr", 1);
        IMessageService* target = m_down != nullptr ? m_down : m_up;
        if (target == nullptr || target->PostMsg(msg, this) != 0) msg->Release();
    }

    // Function 1: answer with the text and n + 1 of every row of the body.
    void Echo(IESBMessage* msg) {
        int len = 0;
        const void* body = msg->GetItem(8)->GetRawData(&len, 0);
        if (body == nullptr || len < 1) {
            Log("echo without body");
            msg->Release();
            return;
        }
        int version = m_packSvr->GetPackVersion(body);
        IF2UnPacker* in = m_packSvr->GetUnPacker(version);
        int rc = in->Open(body, len);
        if (rc != 0) {
            char code[16];
            snprintf(code, sizeof(code), "%d", rc);
            Log("unpack failed %s", code);
            in->Release();
            msg->Release();
            return;
        }
        IF2Packer* out = m_packSvr->GetPacker(version);
        out->BeginPack();
        out->AddField("text", 'S', 255, 4);
        out->AddField("n", 'S', 255, 4);
        out->AddField("half", 'S', 255, 4);
        out->AddField("first", 'S', 255, 4);
        for (; !in->IsEOF(); in->Next()) {
            const char* text = in->GetStr("text");
            out->AddStr(text != nullptr ? text : "");
            out->AddInt(in->GetInt("n") + 1);
            out->AddDouble(in->GetDouble("n") / 2);
            out->AddChar(text != nullptr ? text[0] : '-');
        }
        out->EndPack();
        msg->ChangeToAnswer();
        msg->GetItem(8)->SetRawData(out->GetPackBuf(), out->GetPackLen());
        out->FreeMem(out->GetPackBuf());
        out->Release();
        in->Release();
        Transfer(msg);
    }

    // Function 2: publish a fresh message (issue type 16) with the request's key.
    void Publish(IESBMessage* msg) {
        IESBMessage* pub = m_factory->GetESBMsg();
        if (pub == nullptr) {
            Log("no message for the publication");
        } else {
            pub->Prepare(0, 620003);
            pub->GetItem(53)->SetInt(16, 0);
            int len = 0;
            const void* key = msg->GetItem(54)->GetRawData(&len, 0);
            pub->GetItem(54)->SetRawData(key, len);
            Transfer(pub);
        }
        msg->Release();
    }

    void Deal(IESBMessage* msg) {
        int function = msg->GetItem(5)->GetInt(0);
        if (function == 1) Echo(msg);
        else if (function == 2) Publish(msg);
        else msg->Release();
    }

    int m_status = 0;
    char m_szServiceID[256];
    CTestIoC m_ioc;
    CTestMgr m_mgr;
    CWorker m_worker;
    IMessageService* m_up = nullptr;
    IMessageService* m_down = nullptr;
    IRCfgObj* m_plugin = nullptr;
    IRCfgObj* m_pub = nullptr;
    IESBMessageFactory* m_factory = nullptr;
    IF2PackSvr* m_packSvr = nullptr;
    ILogService* m_log = nullptr;
    ICfgSvr* m_cfg = nullptr;
    IESBQ* m_queue = nullptr;
};

long CWorker::Run() {
    IESBQ* q = m_owner->m_queue;
    while (m_stop == 0) {
        IMessageService* from = nullptr;
        IESBMessage* msg = q->PopMsg(40, &from, 0);
        if (msg != nullptr) m_owner->Deal(msg);
    }
    return 0;
}

int CTestIoC::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    *out = nullptr;
    if (id != nullptr && strcmp(id, kId) == 0) *out = m_owner;
    else if (id != nullptr && strcmp(id, SID_IOC) == 0) *out = this;
    return *out != nullptr ? 1 : 0;
}

int CTestIoC::SetConfig(const char* name, IRCfgObj* cfg) {
    if (cfg == nullptr || name == nullptr) return 1;
    cfg->AddRef();
    if (strcmp(name, "plugin") == 0) m_owner->m_plugin = cfg;
    else if (strcmp(name, "pub") == 0) m_owner->m_pub = cfg;
    return 1;
}

int CTestIoC::SetDependService(const char* id, IKnown* obj) {
    if (id == nullptr) return 1;
    if (strcmp(id, SID_ESBMESSAGEFACTORY) == 0) m_owner->m_factory = static_cast<IESBMessageFactory*>(obj);
    else if (strcmp(id, SID_F2PACKSVR) == 0) m_owner->m_packSvr = static_cast<IF2PackSvr*>(obj);
    else if (strcmp(id, SID_LOG) == 0) m_owner->m_log = static_cast<ILogService*>(obj);
    else if (strcmp(id, SID_CFGSVR) == 0) m_owner->m_cfg = static_cast<ICfgSvr*>(obj);
    return 1;
}

int CTestMgr::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    *out = nullptr;
    if (id != nullptr && strcmp(id, kId) == 0) *out = m_owner;
    else if (id != nullptr && strcmp(id, SID_MANAGER) == 0) *out = this;
    return *out != nullptr ? 1 : 0;
}

int CTestMgr::ProcSysEvent(unsigned long event, unsigned long, unsigned long, void (*)(int)) {
    if (event == SYSEVENT_START) {
        m_owner->m_worker.m_stop = 0;
        m_owner->m_worker.Start();
        m_owner->m_status = 4;
        m_owner->Log("测试插件启动");
    } else if (event == SYSEVENT_STOP) {
        m_owner->m_worker.Stop(-1);
        m_owner->m_status = 10;
        m_owner->Log("stopped");
    } else if (event == SYSEVENT_EXIT) {
        m_owner->Log("exited");
    }
    return 0;
}

int TestInit(void* instance, void*) {
    if (instance == nullptr) return 0;
    return static_cast<CTestService*>(static_cast<IKnown*>(instance))->OnInit();
}

IKnown* TestInstance() { return new CTestService; }

const char* TestDepends(void*) {
    return SID_ESBMESSAGEFACTORY "\0" SID_F2PACKSVR "\0" SID_CFGSVR "\0" SID_LOG "\0";
}

}  // namespace

TEST_EXPORT int GetTESTInit(void* instance, void* reserved) { return TestInit(instance, reserved); }
TEST_EXPORT IKnown* GetTESTInstance() { return TestInstance(); }
TEST_EXPORT const char* GetTESTDependSvr(void* reserved) { return TestDepends(reserved); }
TEST_EXPORT int GetTESTInfo(int index, tagBaseServiceInfo* info) {
    if (index != 0) return 0;
    if (info == nullptr) return 1;
    info->ServiceID = kId;
    info->iVersion = 1;
    info->Init = &GetTESTInit;
    info->getInstance = &GetTESTInstance;
    info->getDependServices = &GetTESTDependSvr;
    info->Caption = __DATE__ " " __TIME__ " V1.0.0.0";
    return 1;
}
