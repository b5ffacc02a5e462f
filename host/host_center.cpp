// Message-center side for plug-in tests: subscription answers, heartbeats
// and publications.
#include "host/host_center.h"

#include "host/host_queue.h"

namespace hostemu {

CMessageCenter::CMessageCenter(HostEmulator& host) : m_host(host) {
    m_host.Center().SetHandler([this](const MessageSnapshot& m) { OnMessage(m); });
}

CMessageCenter::~CMessageCenter() { m_host.Center().SetHandler(nullptr); }

void CMessageCenter::AnswerSubscriptions(const std::set<int>& requestFunctions, int result, int answerFunction) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_functions = requestFunctions;
    m_result = result;
    m_answerFunction = answerFunction;
}

void CMessageCenter::SetResultFor(int packetId, int result) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_resultById[packetId] = result;
}

void CMessageCenter::StopAnswering() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_functions.clear();
}

void CMessageCenter::OnMessage(const MessageSnapshot& m) {
    if (m.PacketType() != 0) return;
    MessageSpec answer(0, 1);
    int result = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_functions.count(m.FunctionNo()) == 0) return;
        auto it = m_resultById.find(m.PacketId());
        result = it != m_resultById.end() ? it->second : m_result;
        answer.functionNo = m_answerFunction;
    }
    answer.packetId = m.PacketId();
    answer.key = EncodePacked(MakeBody(33, {"subscibe_result"}, {{result}}));
    ++m_answers;
    m_host.PostFromCenter(answer);
}

int CMessageCenter::Heartbeat() { return m_host.PostFromCenter(MessageSpec(620000, 0)); }

int CMessageCenter::Publish(int issueType, const PackedBody& body, bool inKeyItem) {
    return Publish(issueType, EncodePacked(body), inKeyItem);
}

int CMessageCenter::Publish(int issueType, const std::vector<char>& body, bool inKeyItem) {
    MessageSpec msg(620003, 0);
    msg.issueType = issueType;
    if (inKeyItem)
        msg.key = body;
    else
        msg.body = body;
    return m_host.PostFromCenter(msg);
}

}  // namespace hostemu
