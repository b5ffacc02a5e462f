// A neighbour service in the plug-in's chain. It records every message the
// plug-in transfers to it (as a snapshot), then releases it; it can refuse
// messages or only count them, and can answer through a handler.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "frame/host_interfaces.h"
#include "host/host_message.h"

namespace hostemu {

class CHostNeighbour final : public IMessageService {
public:
    enum Mode {
        Record,        // snapshot, keep, release; PostMsg returns 0
        CountOnly,     // count and release; PostMsg returns 0 (benchmarks)
        Refuse,        // PostMsg returns 1; the sender keeps the message
    };
    explicit CHostNeighbour(const std::string& id);

    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int PostMsg(IESBMessage* msg, IMessageService* from) override;
    int RegisterNextService(IMessageService* svc) override;
    int RegisterPrevService(IMessageService* svc) override;
    int RemoveService() override { return 0; }
    const char* GetServiceID() override { return m_id.c_str(); }
    int SetServiceID(const char*) override { return 0; }
    int GetServiceStatus() override { return 7; }  // ServiceReady
    int RegisterService() override { return 0; }
    int SendSvrHeartBeat() override { return 0; }

    void SetMode(Mode m) { m_mode = m; }
    // Called for every recorded message before it is released (on the
    // sender's thread). The handler may post answers into the plug-in.
    void SetHandler(std::function<void(const MessageSnapshot&)> handler);

    std::vector<MessageSnapshot> Messages() const;
    // Messages of one function number (and packet type when >= 0).
    std::vector<MessageSnapshot> MessagesOf(int functionNo, int packetType = -1) const;
    size_t Count() const;  // messages taken (recorded or counted)
    size_t Refused() const { return m_refused.load(); }
    // True once at least n messages were taken within timeoutMs.
    bool WaitForCount(size_t n, int timeoutMs) const;
    // True once a message matching the predicate was recorded within timeoutMs.
    bool WaitFor(const std::function<bool(const MessageSnapshot&)>& pred, int timeoutMs,
                 MessageSnapshot* found = nullptr) const;
    void Clear();

private:
    std::string m_id;
    std::atomic<Mode> m_mode{Record};
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_cond;
    std::vector<MessageSnapshot> m_msgs;
    // Messages taken. Recording raises it under m_mutex; counting raises it
    // without the lock and takes the lock to notify only while someone waits
    // (m_waiters), so the counting path costs one atomic add per message.
    std::atomic<size_t> m_count{0};
    mutable std::atomic<int> m_waiters{0};
    std::atomic<size_t> m_refused{0};
    std::function<void(const MessageSnapshot&)> m_handler;
};

}  // namespace hostemu
