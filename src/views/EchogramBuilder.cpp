#include "views/EchogramBuilder.h"

#include "sources/FrameReader.h"

namespace Halcyra::Nereon::Views {

EchogramColumns EchogramBuilder::build(
    Sources::FrameReader& reader, int rangeBins, EchogramReduction reduction, const Progress& progress)
{
    EchogramColumns columns(rangeBins, reduction);
    reader.seekToFrame(0);
    // A few breaks may come on top; a vector doubling past its reserve is rare then.
    columns.reserve(static_cast<std::size_t>(reader.getFrameCount()) + 16);
    Sources::SourceFrame frame;
    int done = 0;
    while (reader.next(frame)) {
        columns.append(frame.image, frame.index, frame.timestamp);
        ++done;
        if (progress && !progress(done, reader.getFrameCount()))
            return columns;
    }
    return columns;
}

} // namespace Halcyra::Nereon::Views
