// The counters of the relay in the text format of Prometheus.
#pragma once

#include <string>

#include "status/report.hpp"

namespace relay {

inline constexpr char kMetricsType[] = "text/plain; version=0.0.4; charset=utf-8";

// Names and units follow the conventions of Prometheus. Throws if memory is short.
std::string to_metrics(const Report& report);

}  // namespace relay
