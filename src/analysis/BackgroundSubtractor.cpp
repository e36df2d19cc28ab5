#include "analysis/BackgroundSubtractor.h"

#include "BackgroundSubtractorPrivate.h"
#include "sources/SourceFrame.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

// A model of our own rather than OpenCV's MOG2 or KNN: on one core MOG2 takes about
// 50 ms for a frame of 512 beams by 4000 samples, this model about 2 ms (see
// bench_analysis), and a per-sample median with a spread needs no mixture to be
// robust to fish passing through.

namespace Halcyra::Nereon::Analysis {

namespace {

// Intensities in the model are fixed point, so that a slow adaptation can move the
// estimate by less than one level a frame.
constexpr int kFractionBits = 8;
constexpr int kOne = 1 << kFractionBits;

bool isWellFormed(const NereonImage& image)
{
    const std::size_t samples = std::size_t(image.getWidth()) * image.getHeight();
    return samples > 0 && image.getData().size() == samples && image.getBearings().size() == image.getWidth()
        && std::isfinite(image.getRange()) && image.getRange() > 0.0;
}

// The spread a fresh model assumes before it has seen the scene vary, in levels.
constexpr int initialSpreadLevels = 10;
// A model built from a handful of frames mistakes their speckle for the scene: it
// hands out no foreground before it has seen this many.
constexpr int settlingFrames = 8;
// Frames over which a fresh model's steps shrink from large to the adaptation step
// (a running estimate of the median converges with steps falling as 1/n).
constexpr int warmUpLevels = 32;

#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
// Wider vectors on processors that have them, chosen when the library loads.
#define NEREON_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define NEREON_VECTOR_CLONES
#endif

// One frame's step of the running medians of the background and of the spread, and
// the foreground: where a sample exceeds the background by more than the threshold.
// Written without branches so that the compiler vectorises it.
NEREON_VECTOR_CLONES void updateModel(const std::uint8_t* src, std::uint16_t* bg, std::uint16_t* sp,
    std::uint8_t* dst, std::size_t count, const UpdateParameters& p)
{
    const int step = p.step, foregroundStep = p.foregroundStep, spreadStep = p.spreadStep;
    const int minimum = p.minimum, factor = p.factor;
    for (std::size_t i = 0; i < count; ++i) {
        const int x = int(src[i]) << kFractionBits;
        const int b = bg[i];
        const int s = sp[i];
        const int diff = x - b;
        const int limit = std::max(minimum, (s * factor) >> 4);
        const int isForeground = -int(diff > limit); // all bits set where foreground
        const int bStep = step ^ ((step ^ foregroundStep) & isForeground);
        bg[i] = std::uint16_t(b + std::min(std::max(diff, -bStep), bStep));
        const int sStep = spreadStep & ~isForeground;
        sp[i] = std::uint16_t(s + std::min(std::max(std::abs(diff) - s, -sStep), sStep));
        dst[i] = std::uint8_t(std::min(255, diff >> kFractionBits) & isForeground);
    }
}

} // namespace

bool BackgroundSubtractor::BackgroundSubtractorPrivate::isSameLayout(const NereonImage& image) const
{
    return image.getWidth() == width && image.getHeight() == height && image.getRange() == range
        && image.getBearings() == bearings;
}

void BackgroundSubtractor::BackgroundSubtractorPrivate::startModel(const NereonImage& image)
{
    width = image.getWidth();
    height = image.getHeight();
    range = image.getRange();
    bearings = image.getBearings();
    const auto& data = image.getData();
    background.resize(data.size());
    spread.assign(data.size(), std::uint16_t(initialSpreadLevels * kOne));
    std::transform(data.begin(), data.end(), background.begin(),
        [](std::uint8_t v) { return std::uint16_t(v << kFractionBits); });
    framesSeen = 1;
}

int BackgroundSubtractor::BackgroundSubtractorPrivate::getStep() const
{
    // Following a change of about 64 levels in the adaptation time.
    const double frames = std::max(1.0, adaptationSeconds * frameRateHz);
    return std::clamp(int(std::lround(64.0 * kOne / frames)), 1, 64 * kOne);
}

BackgroundSubtractor::BackgroundSubtractor()
    : d(std::make_unique<BackgroundSubtractorPrivate>())
{
}

BackgroundSubtractor::~BackgroundSubtractor() = default;

bool BackgroundSubtractor::BackgroundSubtractorPrivate::apply(
    const NereonImage& in, NereonImage& foreground, int firstRow)
{
    if (!isWellFormed(in)) {
        foreground = NereonImage();
        return false;
    }
    std::vector<std::uint8_t> out(in.getData().size(), 0);
    if (framesSeen == 0 || !isSameLayout(in)) {
        startModel(in);
        foreground = NereonImage(
            in.getWidth(), in.getHeight(), std::move(out), in.getBearings(), in.getRange(), in.getGain());
        return true;
    }

    UpdateParameters p;
    const int baseStep = getStep();
    const int warmStep = warmUpLevels * kOne / (framesSeen + 1);
    const bool warmingUp = warmStep > baseStep;
    p.step = std::max(baseStep, warmStep);
    // Where a fish is, the model hardly moves: it must not burn in while a fish lingers.
    p.foregroundStep = warmingUp ? p.step / 2 : std::max(1, p.step / 16);
    p.spreadStep = std::max(1, p.step / 2);
    p.minimum = thresholdDifference * kOne;
    p.factor = int(std::lround(spreadFactor * 16.0));

    // Rows before the first recorded sample are padding, the same in every frame.
    const std::size_t first = std::size_t(std::clamp(firstRow, 0, int(in.getHeight()))) * in.getWidth();
    updateModel(in.getData().data() + first, background.data() + first, spread.data() + first,
        out.data() + first, out.size() - first, p);
    if (++framesSeen < settlingFrames)
        std::fill(out.begin(), out.end(), 0);
    foreground = NereonImage(
        in.getWidth(), in.getHeight(), std::move(out), in.getBearings(), in.getRange(), in.getGain());
    return true;
}

bool BackgroundSubtractor::apply(const NereonImage& in, NereonImage& foreground)
{
    return d->apply(in, foreground, 0);
}

bool BackgroundSubtractor::apply(const Sources::SourceFrame& in, NereonImage& foreground)
{
    if (in.timestamp > 0 && d->lastTimestamp > 0) {
        const double interval = double(in.timestamp - d->lastTimestamp);
        // Ignore pauses and clock jumps: they say nothing about the frame rate.
        if (interval > 0.0 && interval < 10e6)
            d->meanIntervalUs = d->meanIntervalUs > 0.0 ? 0.9 * d->meanIntervalUs + 0.1 * interval : interval;
        if (!d->frameRateSet && d->meanIntervalUs > 0.0)
            d->frameRateHz = 1e6 / d->meanIntervalUs;
    }
    d->lastTimestamp = in.timestamp;
    return d->apply(in.image, foreground, in.firstSampleRow);
}

void BackgroundSubtractor::learn(const std::vector<NereonImage>& samples)
{
    std::vector<const NereonImage*> usable;
    for (const auto& image : samples) {
        if (!isWellFormed(image))
            continue;
        if (!usable.empty()) {
            const auto& first = *usable.front();
            if (image.getWidth() != first.getWidth() || image.getHeight() != first.getHeight()
                || image.getRange() != first.getRange() || image.getBearings() != first.getBearings())
                continue;
        }
        usable.push_back(&image);
    }
    if (usable.empty())
        return;

    d->startModel(*usable.front());
    const std::size_t n = usable.size();
    const std::size_t count = d->background.size();
    std::vector<int> values(n);
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t k = 0; k < n; ++k)
            values[k] = int(usable[k]->getData()[i]) << kFractionBits;
        std::nth_element(values.begin(), values.begin() + n / 2, values.end());
        const int median = values[n / 2];
        for (auto& v : values)
            v = std::abs(v - median);
        std::nth_element(values.begin(), values.begin() + n / 2, values.end());
        d->background[i] = std::uint16_t(median);
        // A handful of samples underestimates the spread; a floor keeps speckle out.
        d->spread[i] = std::uint16_t(std::max(values[n / 2], kOne));
    }
    // A learnt model needs no warming up.
    d->framesSeen = std::max<int>(int(n), warmUpLevels * kOne);
}

void BackgroundSubtractor::reset()
{
    d->framesSeen = 0;
    d->background.clear();
    d->spread.clear();
    d->width = d->height = 0;
    d->range = 0.0;
    d->bearings.clear();
    d->lastTimestamp = 0;
    d->meanIntervalUs = 0.0;
}

bool BackgroundSubtractor::hasModel() const
{
    return d->framesSeen > 0;
}

void BackgroundSubtractor::setAdaptationSeconds(double seconds)
{
    if (std::isfinite(seconds) && seconds > 0.0)
        d->adaptationSeconds = seconds;
}

double BackgroundSubtractor::getAdaptationSeconds() const
{
    return d->adaptationSeconds;
}

void BackgroundSubtractor::setFrameRate(double hz)
{
    if (std::isfinite(hz) && hz > 0.0) {
        d->frameRateHz = hz;
        d->frameRateSet = true;
    }
}

double BackgroundSubtractor::getFrameRate() const
{
    return d->frameRateHz;
}

void BackgroundSubtractor::setThreshold(int minimumDifference, double spreadFactor)
{
    d->thresholdDifference = std::clamp(minimumDifference, 1, 255);
    if (std::isfinite(spreadFactor) && spreadFactor >= 0.0)
        d->spreadFactor = std::min(spreadFactor, 64.0);
}

int BackgroundSubtractor::getThresholdDifference() const
{
    return d->thresholdDifference;
}

double BackgroundSubtractor::getThresholdSpreadFactor() const
{
    return d->spreadFactor;
}

NereonImage BackgroundSubtractor::getBackground() const
{
    if (!hasModel())
        return NereonImage();
    std::vector<std::uint8_t> data(d->background.size());
    std::transform(d->background.begin(), d->background.end(), data.begin(),
        [](std::uint16_t v) { return std::uint8_t((v + kOne / 2) >> kFractionBits); });
    return NereonImage(
        std::uint16_t(d->width), std::uint16_t(d->height), std::move(data), d->bearings, d->range, 0.0);
}

} // namespace Halcyra::Nereon::Analysis
