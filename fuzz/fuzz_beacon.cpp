// libFuzzer target: availability beacons of ARIS sonars, as any datagram on the port.

#include "sources/ArisBeacon.h"

#include <cstddef>
#include <cstdint>

using namespace Halcyra::Nereon::Sources;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ArisBeacon beacon;
    if (ArisBeacon::parse(QByteArray(reinterpret_cast<const char*>(data), int(size)), beacon)) {
        beacon.getModel();
        beacon.serialise();
    }
    return 0;
}
