// libFuzzer target: the ARIS recording reader on any bytes.

#include "RecordingFuzzDriver.h"
#include "sources/ArisReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Halcyra::Nereon::Sources::ArisReader reader;
    return fuzzRecordingReader(reader, data, size, QStringLiteral("fuzz.aris"));
}
