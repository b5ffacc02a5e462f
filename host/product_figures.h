// The operator's figures of a running tikron-host in one JSON object: what
// the host sees itself (kos receiver totals, log lines of dropped datagrams,
// publications, messages, the worker queue, the center, NATS) and what the
// plug-in reports through the statistics sink (datagram queue, tables,
// snapshot files, latency). /metrics and /api/stats are both made from it.
#pragma once

#include <nlohmann/json.hpp>

#include "frame/stats_sink.h"

namespace product {

class ProductHost;

// Gathers the figures; {"ok":false,...} when the plug-in is not running.
nlohmann::ordered_json CollectFigures(ProductHost& host);

}  // namespace product
