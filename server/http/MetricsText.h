#pragma once

#include "base/Metrics.h"
#include "model/ModelCatalog.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace quellora::server {

/// All counters in Prometheus' text format, version 0.0.4. @p queues: how many jobs wait for a
/// thread, by the name of the pool.
std::string metricsText(const Metrics &metrics, const std::map<std::string, std::size_t> &queues,
                        const std::vector<ModelStanding> &models);

} // namespace quellora::server
