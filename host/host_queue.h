// Message factory and the service's inbound queue.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "frame/host_interfaces.h"
#include "host/host_message.h"

namespace hostemu {

// Inbound queue of a service. PopMsg waits up to `wait` MILLISECONDS (0 does
// not block, negative waits without limit). PushMsg of a null message queues
// a wake-up: one waiting PopMsg returns null.
class CHostQueue final : public IESBQ {
public:
    CHostQueue() = default;
    ~CHostQueue();
    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }  // owned by the factory
    IESBMessage* PopMsg(int wait, IMessageService** from, int reserved) override;
    int PushMsg(IESBMessage* msg, IMessageService* from, int reserved) override;  // 0
    int GetMsgCount() override;     // messages (and wake-ups) waiting
    int GetMaxMsgCount() override;  // highest count seen
    int GetDealedCount() override;  // non-null messages popped

    // Releases every queued message (messages left over at shutdown).
    int Drain();

private:
    struct Entry {
        IESBMessage* msg;
        IMessageService* from;
    };
    std::mutex m_mutex;
    std::condition_variable m_cond;
    std::deque<Entry> m_queue;
    int m_max = 0;
    int m_dealed = 0;
};

struct MessageStats {
    uint64_t created = 0;          // GetESBMsg/NewMessage results handed out
    uint64_t released = 0;         // first releases
    uint64_t live = 0;             // created - released
    uint64_t doubleReleases = 0;   // Release on an already released message
    uint64_t usesAfterRelease = 0; // any other call on a released message
    uint64_t failedGets = 0;       // GetESBMsg calls answered null by injection
};

class CHostMessageFactory final : public IESBMessageFactory, private IMessageOwner {
public:
    // `quarantine`: how many released messages are kept before reuse.
    explicit CHostMessageFactory(size_t quarantine = 4096);
    // Drains the queue, then writes a report of live messages to stderr
    // (unless SetReportLeaks(false)).
    ~CHostMessageFactory();
    CHostMessageFactory(const CHostMessageFactory&) = delete;
    CHostMessageFactory& operator=(const CHostMessageFactory&) = delete;

    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    IESBQ* GetESBQ() override;           // always the same queue
    IESBMessage* GetESBMsg() override;   // null when fault injection says so

    CHostQueue& Queue() { return m_queue; }
    // A new message regardless of fault injection (for tests and helpers).
    CHostMessage* NewMessage();

    // Fault injection.
    void SetGetMsgAlwaysFails(bool on);
    void FailNextGetMsg(int n);  // the next n GetESBMsg calls return null

    MessageStats Stats() const;
    // One line per live message: serial and function number.
    std::string LeakReport() const;
    void SetReportLeaks(bool on) { m_reportLeaks = on; }

private:
    void OnRelease(CHostMessage* msg) override;
    void OnUseAfterRelease() override;
    CHostMessage* NewMessageLocked();  // m_mutex held

    mutable std::mutex m_mutex;
    size_t m_quarantineLimit;
    std::vector<std::unique_ptr<CHostMessage>> m_all;  // every object ever made
    std::vector<CHostMessage*> m_free;
    std::deque<CHostMessage*> m_quarantine;
    uint64_t m_nextSerial = 1;
    MessageStats m_stats;
    std::atomic<uint64_t> m_usesAfterRelease{0};
    bool m_failAlways = false;
    int m_failNext = 0;
    bool m_reportLeaks = true;
    CHostQueue m_queue;
};

// What a test wants in a message.
struct MessageSpec {
    MessageSpec(int function = 0, int packet = 0) : functionNo(function), packetType(packet) {}
    int functionNo = 0;
    int packetType = 0;      // item 3
    int issueType = -1;      // item 53, -1: not set
    int packetId = -1;       // item 11, -1: not set
    int errorFlag = 0;       // item 7 (set only when non-zero)
    int errorNo = 0;         // item 19 (set only when non-zero)
    std::string errorInfo;   // item 20 (set when not empty)
    std::vector<std::string> route;  // item 9, indexes 0.. (OSPF, neighbour, server, plug-in)
    std::vector<char> body;  // item 8 (set when not empty)
    std::vector<char> key;   // item 54 (set when not empty)
};

// A new message (never null) from the factory filled from the fields.
CHostMessage* BuildMessage(CHostMessageFactory& factory, const MessageSpec& fields);

}  // namespace hostemu
