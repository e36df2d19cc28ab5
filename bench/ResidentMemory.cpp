#include "ResidentMemory.h"

#include <fstream>
#include <string>

namespace ResidentMemory {

namespace {

/// The field `key` ("VmRSS:") of /proc/self/status, which the kernel gives in kB.
double statusMegabytes(const char* key)
{
    std::ifstream status("/proc/self/status");
    const std::string prefix(key);
    std::string line;
    while (std::getline(status, line))
        if (line.compare(0, prefix.size(), prefix) == 0)
            return std::stod(line.substr(prefix.size())) / 1024.0;
    return 0.0;
}

} // namespace

double megabytes()
{
    return statusMegabytes("VmRSS:");
}

} // namespace ResidentMemory
