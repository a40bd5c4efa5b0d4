// Runs the real worker: writes requests to it, and reads its results and log lines. It speaks the
// frame format by itself, with no code of the worker.
//
// A result other than the right one throws std::runtime_error, and so does a worker that ends or
// falls silent.
#pragma once

#include "Measurement.h"
#include "Service.h"

#include <optional>
#include <string>

namespace bench {

// Throughput, processor time and peak memory, with the checks of the load under way.
Measurement measureWorker(const Load& load, Service* service, const std::string& program);

// Resident memory for each check under way, in KiB, with all of `atOnce` waiting for the last
// step of the service. Memory of the kernel doesn't count. Nothing for one check: it is lost
// among the pages that the worker touches anyhow.
std::optional<double> measureMemory(const Load& load, Service* service, const std::string& program);

}  // namespace bench
