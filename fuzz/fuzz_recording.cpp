// libFuzzer target: the reader of the viewer's own recordings on any bytes. The
// input is the whole file; every frame that opens is decoded, as a replay would.

#include "sources/RecordingReader.h"

#include <QBuffer>

#include <cstddef>
#include <cstdint>
#include <memory>

using namespace Halcyra::Nereon::Sources;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    auto buffer = std::make_unique<QBuffer>();
    buffer->setData(reinterpret_cast<const char*>(data), int(size));
    RecordingReader reader;
    if (reader.open(std::move(buffer), QStringLiteral("fuzz.nrec"))) {
        SourceFrame frame;
        while (reader.next(frame)) {
        }
        reader.findFrame(reader.getTimestamp(0) + 1);
        reader.getDescription();
    }
    reader.describeDamage();
    return 0;
}
