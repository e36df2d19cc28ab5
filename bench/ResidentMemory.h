#pragma once

/// What the benchmark process holds in memory, for counters of memory growth.
namespace ResidentMemory {

/// Resident set size now, in MB (VmRSS); 0 where /proc/self/status cannot be read.
double megabytes();

} // namespace ResidentMemory
