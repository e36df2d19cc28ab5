// libFuzzer target: the frame stream of a live ARIS sonar. The input is a run of
// datagrams, each a 2-byte little-endian length and that many bytes, handed to one
// assembler in order, as they would arrive.

#include "ArisFramePartAssembler.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>

using namespace Halcyra::Nereon::Sources;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ArisFramePartAssembler assembler;
    std::size_t at = 0;
    while (at + 2 <= size) {
        const std::size_t length = std::size_t(data[at] | data[at + 1] << 8);
        at += 2;
        const std::size_t taken = length < size - at ? length : size - at;
        assembler.add(QByteArray(reinterpret_cast<const char*>(data + at), int(taken)));
        at += taken;
    }
    return 0;
}
