// The figures (host/product_figures.h) as Prometheus metric families, named
// after the conventions: tikron_ prefix, _total for counters, base units.
#pragma once

#include <vector>

#include <nlohmann/json.hpp>
#include <prometheus/metric_family.h>

namespace product {

std::vector<prometheus::MetricFamily> FiguresToFamilies(const nlohmann::ordered_json& figures);

}  // namespace product
