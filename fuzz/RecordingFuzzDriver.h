#pragma once

// What the recording readers' fuzz targets do with an input: the input is the
// whole file; every frame that opens is decoded, as a replay would.

#include "sources/FrameReader.h"

#include <QBuffer>

#include <cstddef>
#include <cstdint>
#include <memory>

inline int fuzzRecordingReader(Halcyra::Nereon::Sources::FrameReader& reader, const std::uint8_t* data,
    std::size_t size, const QString& name)
{
    auto buffer = std::make_unique<QBuffer>();
    buffer->setData(reinterpret_cast<const char*>(data), int(size));
    if (reader.open(std::move(buffer), name)) {
        Halcyra::Nereon::Sources::SourceFrame frame;
        while (reader.next(frame)) { }
        reader.findFrame(reader.getTimestamp(0) + 1);
        reader.getDescription();
    }
    reader.describeDamage();
    return 0;
}
