// What tikron-host sees of the plug-in from its own side, for the metrics:
// messages towards the center by function and issue type, log lines of
// dropped datagrams, refusals, and the last heartbeat the plug-in took.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

#include "host/host_log.h"
#include "host/product_endpoint.h"

namespace product {

class CHostObserver {
public:
    // A message the plug-in sent towards the center.
    void OnToCenter(COutgoing& msg);
    // A line of the host log.
    void OnLogLine(const hostemu::LogLine& line);
    // A message posted into the plug-in, with the plug-in's PostMsg result.
    void OnPostedIn(int functionNo, int rc);

    // Publications (functions 620003 and 620031, packet type 0) by
    // (function, issue type).
    std::map<std::pair<int, int>, uint64_t> Publications() const;
    uint64_t FramingErrors() const { return m_framing.load(); }
    uint64_t ParseFailures() const { return m_parse.load(); }
    uint64_t UnknownTypes() const { return m_unknown.load(); }
    uint64_t RefusedByPlugin() const { return m_refused.load(); }
    // Seconds since the plug-in took the last heartbeat; < 0 when none yet.
    double SecondsSinceHeartbeat() const;

private:
    mutable std::mutex m_mutex;
    std::map<std::pair<int, int>, uint64_t> m_publications;
    std::atomic<uint64_t> m_framing{0}, m_parse{0}, m_unknown{0}, m_refused{0};
    std::atomic<int64_t> m_lastHeartbeatNs{0};
};

}  // namespace product
