// The message center's side of a plug-in test: answers the plug-in's
// subscription requests, sends message-center heartbeats (620000) and
// carries publications (620003) into the plug-in. It works through the
// emulator's Center() neighbour, whose handler it installs.
//
//   hostemu::CMessageCenter mc(host);
//   mc.AnswerSubscriptions({620001}, 0);      // "subscibe_result" 0
//   mc.Heartbeat();
//   mc.Publish(22, body);                     // body in item 8
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <vector>

#include "host/host_emulator.h"
#include "host/host_pack.h"

namespace hostemu {

class CMessageCenter {
public:
    explicit CMessageCenter(HostEmulator& host);
    ~CMessageCenter();  // removes the handler
    CMessageCenter(const CMessageCenter&) = delete;
    CMessageCenter& operator=(const CMessageCenter&) = delete;

    // Requests (packet type 0) of these function numbers are answered with a
    // message of function `answerFunction` (packet type 1): item 11 = the
    // request's packet id, item 54 = one row {"subscibe_result": result}.
    void AnswerSubscriptions(const std::set<int>& requestFunctions, int result, int answerFunction = 620001);
    // Result for one packet id only (overrides the common result).
    void SetResultFor(int packetId, int result);
    // No more answers (requests are still recorded by Center()).
    void StopAnswering();
    // Answers posted into the plug-in so far.
    size_t AnswersSent() const { return m_answers.load(); }

    // A message-center heartbeat: function 620000, packet type 0.
    int Heartbeat();
    // A publication: function 620003, packet type 0, item 53 = issueType,
    // the packed body in item 8 (or item 54 with inKeyItem).
    int Publish(int issueType, const PackedBody& body, bool inKeyItem = false);
    int Publish(int issueType, const std::vector<char>& body, bool inKeyItem = false);

private:
    void OnMessage(const MessageSnapshot& m);

    HostEmulator& m_host;
    mutable std::mutex m_mutex;
    std::set<int> m_functions;
    int m_result = 0;
    int m_answerFunction = 620001;
    std::map<int, int> m_resultById;
    std::atomic<size_t> m_answers{0};
};

}  // namespace hostemu
