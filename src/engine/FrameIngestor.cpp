#include "engine/FrameIngestor.h"

#include "engine/GaussianSmoother.h"

#include <utility>

namespace Halcyra::Nereon::Visualisation {

namespace {

// Frames waiting beyond this make submit() wait: a worker that falls behind
// must not let frames pile up in memory without bound.
constexpr std::size_t maximumQueued = 8;

} // namespace

FrameIngestor::FrameIngestor() = default;

FrameIngestor::~FrameIngestor()
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
        readyCallback = nullptr;
    }
    workArrived.notify_all();
    if (worker.joinable())
        worker.join();
}

void FrameIngestor::setReadyCallback(std::function<void()> callback)
{
    const std::lock_guard<std::mutex> lock(mutex);
    readyCallback = std::move(callback);
}

void FrameIngestor::submit(const NereonImage& image, std::int64_t target)
{
    {
        std::unique_lock<std::mutex> lock(mutex);
        workDone.wait(lock, [this] { return queue.size() < maximumQueued; });
        queue.push_back(Job { image, target });
        newest = image;
        newestNumber = ++submitted;
        if (!worker.joinable())
            worker = std::thread(&FrameIngestor::run, this);
    }
    workArrived.notify_one();
}

void FrameIngestor::setRadius(int newRadius)
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (radius == newRadius)
            return;
        radius = newRadius;
    }
    workArrived.notify_one();
}

void FrameIngestor::takeCounts(std::vector<IntensityHistogram::Bins>& bins)
{
    std::unique_lock<std::mutex> lock(mutex);
    workDone.wait(lock, [this] { return countedFrames == submitted; });
    bins.insert(bins.end(), counted.begin(), counted.end());
    counted.clear();
}

void FrameIngestor::takeSmoothed(int wantedRadius, std::vector<std::uint16_t>& texels)
{
    {
        std::unique_lock<std::mutex> lock(mutex);
        radius = wantedRadius;
        const auto resultIsWanted
            = [this] { return resultNumber == newestNumber && resultRadius == radius && newestNumber != 0; };
        if (!resultIsWanted()) {
            // Smoothed before but taken already (a new context uploads again): smooth anew.
            if (!smoothingUnderWay && smoothedNumber == newestNumber && smoothedRadius == radius)
                smoothedNumber = 0;
            workArrived.notify_one();
            workDone.wait(lock, resultIsWanted);
        }
        std::swap(result, texels);
        resultNumber = 0;
    }
}

bool FrameIngestor::smoothingWanted() const
{
    return radius > 0 && newestNumber != 0 && (smoothedNumber != newestNumber || smoothedRadius != radius);
}

void FrameIngestor::announceReady()
{
    // Called with the lock held, so that an owner clearing the callback knows
    // it is not running; a callback that only posts cannot deadlock on it.
    if (readyCallback)
        readyCallback();
}

void FrameIngestor::run()
{
    GaussianSmoother smoother;
    std::vector<std::uint16_t> smoothing;

    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        workArrived.wait(lock, [this] { return stopping || !queue.empty() || smoothingWanted(); });
        if (stopping)
            return;

        // Counting first: every frame's thresholds are needed, in order, and cheaply.
        if (!queue.empty()) {
            const Job job = std::move(queue.front());
            queue.pop_front();
            lock.unlock();
            const std::vector<std::uint8_t>& data = job.image.getData();
            const IntensityHistogram::Bins bins = IntensityHistogram::findBins(
                IntensityHistogram::count(data.data(), nullptr, data.size(), job.target), job.target);
            lock.lock();
            counted.push_back(bins);
            ++countedFrames;
            workDone.notify_all();
            if (queue.empty() && radius == 0)
                announceReady();
            continue;
        }

        // Then the newest frame's smoothing, at the radius asked for now. A
        // frame that comes meanwhile waits for the end of it; the result is
        // kept only if it is still the newest.
        const NereonImage image = newest;
        const std::uint64_t number = newestNumber;
        const int kernelRadius = radius;
        smoothedNumber = number;
        smoothedRadius = kernelRadius;
        smoothingUnderWay = true;
        lock.unlock();
        // The owner never asks for a frame with fewer bytes than its size says.
        const std::size_t texels = std::size_t { image.getWidth() } * image.getHeight();
        if (image.getData().size() >= texels)
            smoother.apply(
                image.getData().data(), image.getWidth(), image.getHeight(), kernelRadius, smoothing);
        lock.lock();
        smoothingUnderWay = false;
        if (number == newestNumber) {
            std::swap(result, smoothing);
            resultNumber = number;
            resultRadius = kernelRadius;
            workDone.notify_all();
        }
        // Even a result overtaken by a newer frame asks for a paint: with frames
        // coming faster than they are smoothed, none would be shown otherwise.
        announceReady();
    }
}

} // namespace Halcyra::Nereon::Visualisation
