#include "views/EchogramBuilder.h"

#include "sources/FrameReader.h"

namespace Halcyra::Nereon::Views {

EchogramColumns EchogramBuilder::build(
    Sources::FrameReader& reader, int rangeBins, EchogramReduction reduction, const Progress& progress)
{
    EchogramColumns columns(rangeBins, reduction);
    reader.seekToFrame(0);
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
