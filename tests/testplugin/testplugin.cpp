// Test plug-in: one object offering the message-service, IoC and manager
// facets. It logs its lifecycle and answers function 1 with a packed body,
// using the host's services only through their interfaces.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <thread>

#include "frame/host_interfaces.h"
#include "frame/service_info.h"

#define TEST_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

const char kId[] = "test";

class CTestService final : public IMessageService, public IIoC, public IManager {
public:
    ~CTestService() { StopWorker(); }

    int QueryInterface(const char* id, IKnown** out) override {
        if (out == nullptr) return 0;
        *out = nullptr;
        if (id == nullptr) return 0;
        if (strcmp(id, SID_MESSAGESERVICE) == 0 || strcmp(id, kId) == 0) *out = static_cast<IMessageService*>(this);
        else if (strcmp(id, SID_IOC) == 0) *out = static_cast<IIoC*>(this);
        else if (strcmp(id, SID_MANAGER) == 0) *out = static_cast<IManager*>(this);
        return *out != nullptr ? 1 : 0;
    }
    int AddRef() override { return 1; }
    int Release() override {
        delete this;
        return 1;
    }
    int PostMsg(IESBMessage* msg, IMessageService* from) override {
        return m_queue != nullptr ? m_queue->PushMsg(msg, from, 0) : -1;
    }
    int RegisterNextService(IMessageService* s) override { return m_up = s, 0; }
    int RegisterPrevService(IMessageService* s) override { return m_down = s, 0; }
    int RemoveService() override { return 0; }
    const char* GetServiceID() override { return m_szServiceID; }
    int SetServiceID(const char* id) override {
        snprintf(m_szServiceID, sizeof(m_szServiceID), "%s", id != nullptr ? id : "");
        return 0;
    }
    int GetServiceStatus() override { return m_status; }
    int RegisterService() override { return 0; }
    int SendSvrHeartBeat() override { return 0; }

    int SetConfig(const char* name, IRCfgObj* cfg) override {
        if (cfg == nullptr || name == nullptr) return 1;
        cfg->AddRef();
        if (strcmp(name, "plugin") == 0) m_plugin = cfg;
        else if (strcmp(name, "pub") == 0) m_pub = cfg;
        return 1;
    }
    int SetDependService(const char* id, IKnown* obj) override {
        if (id == nullptr) return 1;
        if (strcmp(id, SID_ESBMESSAGEFACTORY) == 0) m_factory = static_cast<IESBMessageFactory*>(obj);
        else if (strcmp(id, SID_F2PACKSVR) == 0) m_packSvr = static_cast<IF2PackSvr*>(obj);
        else if (strcmp(id, SID_LOG) == 0) m_log = static_cast<ILogService*>(obj);
        return 1;
    }

    int ProcMngRequest(IF2UnPacker*, IF2Packer*) override { return 0; }
    int ProcMngAnswer(IF2UnPacker*) override { return 0; }
    int ProcSysEvent(unsigned long event, unsigned long, unsigned long, void (*)(int)) override {
        if (event == SYSEVENT_START) {
            m_stop = false;
            m_worker = std::thread([this] {
                while (!m_stop) {
                    IMessageService* from = nullptr;
                    if (IESBMessage* msg = m_queue->PopMsg(40, &from, 0)) Deal(msg);
                }
            });
            m_status = 4;
            Log("测试插件启动");
        } else if (event == SYSEVENT_STOP) {
            StopWorker();
            m_status = 10;
            Log("stopped");
        } else if (event == SYSEVENT_EXIT) {
            Log("exited");
        }
        return 0;
    }

    int OnInit() {
        if (m_factory == nullptr || m_packSvr == nullptr || m_pub == nullptr) return -9;
        m_queue = m_factory->GetESBQ();
        IRCfgObj* node = m_pub->GetFirstChild();
        const char* app = node != nullptr ? node->GetAttrValue("AppName") : nullptr;
        const char* svr = node != nullptr ? node->GetAttrValue("SvrName") : nullptr;
        Log("init app=%s svr=%s", app ? app : "(none)", svr ? svr : "(none)");
        int result = 0;
        if (IRCfgObj* args = m_plugin != nullptr ? m_plugin->GetChild("args") : nullptr)
            if (const char* r = args->GetAttrValue("initresult")) result = atoi(r);
        if (IRCfgObj* conv = m_plugin != nullptr ? m_plugin->GetChild("convert") : nullptr)
            for (IRCfgObj* c = conv->GetFirstChild(); c != nullptr; c = c->GetNextSibling())
                Log("convert %s=%s", c->GetName(), c->GetText());
        m_status = 2;
        return result;
    }

private:
    void StopWorker() {
        m_stop = true;
        if (m_worker.joinable()) m_worker.join();
    }
    void Log(const char* fmt, const char* a = "", const char* b = "") {
        if (m_log == nullptr) return;
        char text[512];
        snprintf(text, sizeof(text), fmt, a, b);
        m_log->AddLog("CTestService::Log", 15006, text);
    }

    // Function 1: answer with the text, n + 1, n / 2 and the first character
    // of every row; anything else is dropped.
    void Deal(IESBMessage* msg) {
        int len = 0;
        const void* body = msg->GetItem(8)->GetRawData(&len, 0);
        if (msg->GetItem(5)->GetInt(0) != 1 || body == nullptr || len < 1) {
            msg->Release();
            return;
        }
        int version = m_packSvr->GetPackVersion(body);
        IF2UnPacker* in = m_packSvr->GetUnPacker(version);
        if (in->Open(body, len) != 0) {
            Log("unpack failed");
            in->Release();
            msg->Release();
            return;
        }
        IF2Packer* out = m_packSvr->GetPacker(version);
        out->BeginPack();
        for (const char* name : {"text", "n", "half", "first"}) out->AddField(name, 'S', 255, 4);
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
        IESBMessageItem* stamp = msg->GetItem(100);
        stamp->SetString(m_szServiceID, 2);
        stamp->SetString("testsvr", 1);
        IMessageService* target = m_down != nullptr ? m_down : m_up;
        if (target == nullptr || target->PostMsg(msg, static_cast<IMessageService*>(this)) != 0) msg->Release();
    }

    int m_status = 0;
    char m_szServiceID[256] = {0};
    std::atomic<bool> m_stop{false};
    std::thread m_worker;
    IMessageService* m_up = nullptr;
    IMessageService* m_down = nullptr;
    IRCfgObj* m_plugin = nullptr;
    IRCfgObj* m_pub = nullptr;
    IESBMessageFactory* m_factory = nullptr;
    IF2PackSvr* m_packSvr = nullptr;
    ILogService* m_log = nullptr;
    IESBQ* m_queue = nullptr;
};

}  // namespace

TEST_EXPORT int GetTESTInit(void* instance, void*) {
    if (instance == nullptr) return 0;
    return static_cast<CTestService*>(static_cast<IMessageService*>(static_cast<IKnown*>(instance)))->OnInit();
}
TEST_EXPORT IKnown* GetTESTInstance() { return static_cast<IMessageService*>(new CTestService); }
TEST_EXPORT const char* GetTESTDependSvr(void*) {
    return SID_ESBMESSAGEFACTORY "\0" SID_F2PACKSVR "\0" SID_CFGSVR "\0" SID_LOG "\0";
}
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
