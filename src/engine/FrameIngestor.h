#pragma once

#include "engine/IntensityHistogram.h"
#include "nereon/NereonImage.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace Halcyra::Nereon::Visualisation {

/**
 * The costly half of taking in frames, on a worker thread of its own: counts
 * every frame's intensities for the display thresholds, in the order the
 * frames came, and smooths the newest frame for the intensity texture.
 *
 * The owner (one engine, on its GUI thread) hands over frames with submit()
 * and collects the results with takeCounts() and takeSmoothed(), which wait,
 * blocked, for work still under way. Frames are shared, never copied: a
 * NereonImage keeps its bytes alive and unchanged. The thread starts with the
 * first frame and is stopped and joined by the destructor, dropping what is
 * still queued.
 */
class FrameIngestor
{
public:
    FrameIngestor();
    ~FrameIngestor();

    FrameIngestor(const FrameIngestor&) = delete;
    FrameIngestor& operator=(const FrameIngestor&) = delete;

    /**
     * Called on the worker thread, with no lock of the owner's held, when the
     * newest frame has been counted and, if a radius is set, smoothed: the
     * owner can then collect without waiting. It must only post (a queued
     * call to the GUI thread, say). Once this returns with an empty callback,
     * the old one is not called any more.
     */
    void setReadyCallback(std::function<void()> callback);

    /// Queues a frame whose histogram scans stop at target (see IntensityHistogram).
    void submit(const NereonImage& image, std::int64_t target);

    /// Kernel radius with which the newest frame is smoothed ahead of being asked for; 0 for none.
    void setRadius(int radius);

    /// Waits until every frame submitted so far is counted; appends their bins, oldest first.
    void takeCounts(std::vector<IntensityHistogram::Bins>& bins);

    /**
     * Waits until the newest frame is smoothed with the given radius (above 0)
     * and swaps its texels into texels; what texels held is kept for reuse.
     */
    void takeSmoothed(int radius, std::vector<std::uint16_t>& texels);

private:
    struct Job
    {
        NereonImage image;
        std::int64_t target = 0;
    };

    void run();
    /// Whether the newest frame needs smoothing that has not been done; the lock must be held.
    bool smoothingWanted() const;
    /// Calls the ready callback; the lock must be held.
    void announceReady();

    std::mutex mutex;
    /// Wakes the worker: a frame, a radius, or the end.
    std::condition_variable workArrived;
    /// Wakes the owner: counts or a smoothed frame.
    std::condition_variable workDone;
    std::thread worker;
    bool stopping = false;

    std::deque<Job> queue;
    std::vector<IntensityHistogram::Bins> counted;
    /// Frames submitted and frames counted since construction.
    std::uint64_t submitted = 0;
    std::uint64_t countedFrames = 0;

    /// The newest frame and its number (0: none yet).
    NereonImage newest;
    std::uint64_t newestNumber = 0;
    int radius = 0;
    /// What the worker smoothed last, whether or not it has been taken since.
    std::uint64_t smoothedNumber = 0;
    int smoothedRadius = 0;
    bool smoothingUnderWay = false;
    /// The result waiting to be taken; its number is 0 once taken.
    std::vector<std::uint16_t> result;
    std::uint64_t resultNumber = 0;
    int resultRadius = 0;

    std::function<void()> readyCallback;
};

} // namespace Halcyra::Nereon::Visualisation
