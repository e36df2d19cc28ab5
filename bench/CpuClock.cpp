#include "CpuClock.h"

#include <ctime>

namespace {

double milliseconds(clockid_t clock)
{
    timespec now {};
    clock_gettime(clock, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

} // namespace

namespace CpuClock {

double threadMs()
{
    return milliseconds(CLOCK_THREAD_CPUTIME_ID);
}

double processMs()
{
    return milliseconds(CLOCK_PROCESS_CPUTIME_ID);
}

} // namespace CpuClock
