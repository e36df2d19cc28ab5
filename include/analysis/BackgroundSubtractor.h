#pragma once

#include "TernwickNereonAnalysisExport.h"

#include "nereon/NereonImage.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace Halcyra::Nereon::Sources {
struct SourceFrame;
}

namespace Halcyra::Nereon::Analysis {

/**
 * The moving-target view: hands out, for every beam and range sample, how far a
 * frame's echo rises above a model of the still background (bed, posts, weed).
 *
 * The model is a per-sample running median with a running spread, so that fish
 * passing through do not burn into it; samples taken as foreground adapt far more
 * slowly still. It follows changes of the scene over about setAdaptationSeconds()
 * and starts afresh whenever the beam count, the sample count, the range or the
 * bearings change. A model started from live frames hands out no foreground for its
 * first few frames, while it settles.
 *
 * The foreground is an ordinary frame of the same layout as the input: intensity
 * above the background where a sample stands out, 0 elsewhere. It can be shown by
 * any display, exported or analysed like the original.
 */
class TERNWICK_NEREON_ANALYSIS_EXPORT BackgroundSubtractor
{
public:
    /// A subtractor without a model: the first frame starts one.
    BackgroundSubtractor();
    ~BackgroundSubtractor();
    BackgroundSubtractor(const BackgroundSubtractor&) = delete;
    BackgroundSubtractor& operator=(const BackgroundSubtractor&) = delete;

    /**
     * Compares `in` with the model, writes the foreground to `foreground` and lets
     * the model learn from `in`. Returns false, leaving `foreground` empty and the
     * model untouched, for a malformed frame.
     */
    bool apply(const NereonImage& in, NereonImage& foreground);
    /// As apply(const NereonImage&, NereonImage&), the frame rate taken from the frames' times
    /// unless setFrameRate() was called.
    bool apply(const Sources::SourceFrame& in, NereonImage& foreground);

    /**
     * Learns the model at once from frames sampled across a recording (a few dozen
     * spread over the whole file are plenty): the per-sample median and spread.
     * Frames whose layout differs from the first valid one are ignored.
     */
    void learn(const std::vector<NereonImage>& samples);

    /// Forgets the model; the next frame starts a new one.
    void reset();
    /// Whether a model exists (learnt, or built from at least one frame).
    bool hasModel() const;

    /// How long the model takes to follow a change of the scene, in seconds (default 20).
    void setAdaptationSeconds(double seconds);
    /// The adaptation time, seconds.
    double getAdaptationSeconds() const;
    /// Frames per second, to turn the adaptation time into frames (default 10 Hz).
    void setFrameRate(double hz);
    /// The frame rate set, or measured from the frames' times, Hz.
    double getFrameRate() const;
    /**
     * A sample is foreground where it exceeds the background by at least
     * `minimumDifference` intensity levels and by `spreadFactor` times the sample's
     * usual spread (defaults 12 and 4).
     */
    void setThreshold(int minimumDifference, double spreadFactor = 4.0);
    /// The smallest difference taken as foreground, intensity levels.
    int getThresholdDifference() const;
    /// How many times its usual spread a sample must exceed the background.
    double getThresholdSpreadFactor() const;

    /// The current background as a frame of the model's layout (empty without a model).
    NereonImage getBackground() const;

private:
    class BackgroundSubtractorPrivate;
    std::unique_ptr<BackgroundSubtractorPrivate> const d;
};

} // namespace Halcyra::Nereon::Analysis
