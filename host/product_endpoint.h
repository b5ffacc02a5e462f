// A chain neighbour for tikron-host: decodes every message the plug-in
// transfers to it, releases it and hands the snapshot to a callback. Unlike
// the test neighbour it keeps nothing, so a long run uses constant memory.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

#include "frame/host_interfaces.h"
#include "host/host_message.h"

namespace product {

class CEndpoint final : public IMessageService {
public:
    using Handler = std::function<void(const hostemu::MessageSnapshot&)>;
    // Sees the message and its encoding first; true: taken, the handler is
    // not called (the recorder, when set, still gets the snapshot).
    using Filter = std::function<bool(IESBMessage*, const void* encoded, int len)>;
    explicit CEndpoint(std::string id) : m_id(std::move(id)) {}

    // Set before the endpoint is registered with the plug-in.
    void SetHandler(Handler h) { m_handler = std::move(h); }
    // Sees every message first, as the plug-in sent it (metrics).
    void SetTap(std::function<void(IESBMessage*)> tap) { m_tap = std::move(tap); }
    void SetFilter(Filter f, Handler recorder) {
        m_filter = std::move(f);
        m_recorder = std::move(recorder);
    }
    uint64_t Count() const { return m_count.load(); }

    int QueryInterface(const char*, IKnown** out) override {
        if (out != nullptr) *out = nullptr;
        return -1;
    }
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int PostMsg(IESBMessage* msg, IMessageService* from) override;
    int RegisterNextService(IMessageService*) override { return 0; }
    int RegisterPrevService(IMessageService*) override { return 0; }
    int RemoveService() override { return 0; }
    const char* GetServiceID() override { return m_id.c_str(); }
    int SetServiceID(const char*) override { return 0; }
    int GetServiceStatus() override { return 7; }
    int RegisterService() override { return 0; }
    int SendSvrHeartBeat() override { return 0; }

private:
    std::string m_id;
    Handler m_handler;
    Filter m_filter;
    Handler m_recorder;
    std::function<void(IESBMessage*)> m_tap;
    std::atomic<uint64_t> m_count{0};
};

}  // namespace product
