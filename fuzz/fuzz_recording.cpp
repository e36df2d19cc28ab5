// libFuzzer target: the reader of the viewer's own recordings on any bytes.

#include "RecordingFuzzDriver.h"
#include "sources/RecordingReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Halcyra::Nereon::Sources::RecordingReader reader;
    return fuzzRecordingReader(reader, data, size, QStringLiteral("fuzz.nrec"));
}
