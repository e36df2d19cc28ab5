#pragma once

/// CPU time used so far, for counters of what a paint or a frame costs a thread.
namespace CpuClock {

/// CPU time of the calling thread, in milliseconds.
double threadMs();
/// CPU time of the whole process (every thread, llvmpipe's included), in milliseconds.
double processMs();

} // namespace CpuClock
