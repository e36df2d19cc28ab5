#pragma once

#include "analysis/BackgroundSubtractor.h"
#include "sources/FrameReader.h"
#include "sources/SourceFrame.h"

#include <memory>
#include <vector>

/**
 * The viewer's "Moving targets" view: while on, frames are replaced by how far
 * they rise above the still background before anything shows them. Live frames
 * teach the model as they come; a recording teaches it first from frames sampled
 * across the file. Used on one thread at a time.
 */
class MovingTargetFilter
{
public:
    MovingTargetFilter();

    /// Off: apply() hands frames back unchanged. Turning it on or off forgets the model.
    void setEnabled(bool enabled);
    bool isEnabled() const { return enabled; }

    /// Learns the background from `samples` frames spread over `reader`'s recording (opened);
    /// the reader's position is left where it was. False when no frame could be read.
    bool learnFrom(Halcyra::Nereon::Sources::FrameReader& reader, int samples = 40);
    /// `count` frames spread over `reader`'s recording; the reader's position is left where it was.
    static std::vector<Halcyra::Nereon::NereonImage> sample(
        Halcyra::Nereon::Sources::FrameReader& reader, int count = 40);
    /// Forgets the background, as for a new source.
    void reset();

    /// The frame to show: `frame` itself while off, its moving targets while on. A frame the
    /// model cannot take is handed back unchanged, for the display to judge.
    Halcyra::Nereon::Sources::SourceFrame apply(const Halcyra::Nereon::Sources::SourceFrame& frame);

    /**
     * A reader handing out the moving targets of `reader`'s frames, for whoever reads a
     * whole recording (the echogram's loading thread): it learns the background from the
     * recording on its first read, on the reading thread.
     */
    static std::unique_ptr<Halcyra::Nereon::Sources::FrameReader> filtered(
        std::unique_ptr<Halcyra::Nereon::Sources::FrameReader> reader);

private:
    Halcyra::Nereon::Analysis::BackgroundSubtractor subtractor;
    bool enabled = false;
};
