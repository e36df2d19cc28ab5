#include "MovingTargetFilter.h"

#include <QBuffer>

#include <algorithm>
#include <vector>

using Halcyra::Nereon::NereonImage;
using Halcyra::Nereon::Sources::FrameReader;
using Halcyra::Nereon::Sources::SourceFrame;

namespace {

/// Reads another reader's frames and filters them; it has no file of its own.
class FilteredReader : public FrameReader
{
public:
    explicit FilteredReader(std::unique_ptr<FrameReader> source)
        : inner(std::move(source))
    {
        filter.setEnabled(true);
        // The base class reads from a device: an empty one stands in, decodeFrame() never touches it.
        open(std::make_unique<QBuffer>(), inner->getFileName());
    }

    int getFrameCount() const override { return inner->getFrameCount(); }
    std::int64_t getTimestamp(int frame) const override { return inner->getTimestamp(frame); }
    Halcyra::Nereon::Sources::SonarDescription getDescription() const override
    {
        return inner->getDescription();
    }

protected:
    bool openDevice(QIODevice&) override { return true; }
    void closeDevice() override { }
    bool decodeFrame(QIODevice&, int frame, SourceFrame& out) override
    {
        if (!learnt) {
            learnt = true;
            filter.learnFrom(*inner);
        }
        SourceFrame raw;
        if (!inner->readFrame(frame, raw)) {
            if (inner->hasDamage())
                markDamage(inner->getDamageOffset(), inner->getDamageDescription());
            return false;
        }
        out = filter.apply(raw);
        return true;
    }

private:
    std::unique_ptr<FrameReader> inner;
    MovingTargetFilter filter;
    bool learnt = false;
};

} // namespace

MovingTargetFilter::MovingTargetFilter() = default;

void MovingTargetFilter::setEnabled(bool on)
{
    if (on != enabled)
        subtractor.reset();
    enabled = on;
}

std::vector<NereonImage> MovingTargetFilter::sample(FrameReader& reader, int count)
{
    const int frames = reader.getFrameCount();
    const int position = reader.getPosition();
    std::vector<NereonImage> images;
    SourceFrame frame;
    const int taken = std::min(count, frames);
    for (int i = 0; i < taken; ++i) {
        // Spread over the whole file, so that a fish lingering somewhere is a small minority.
        if (reader.readFrame(int(qint64(i) * frames / taken), frame))
            images.push_back(frame.image);
    }
    reader.seekToFrame(position);
    return images;
}

bool MovingTargetFilter::learnFrom(FrameReader& reader, int samples)
{
    const std::vector<NereonImage> images = sample(reader, samples);
    if (images.empty())
        return false;
    subtractor.reset();
    subtractor.learn(images);
    return true;
}

void MovingTargetFilter::reset()
{
    subtractor.reset();
}

SourceFrame MovingTargetFilter::apply(const SourceFrame& frame)
{
    if (!enabled)
        return frame;
    SourceFrame out = frame;
    if (!subtractor.apply(frame, out.image))
        return frame;
    return out;
}

std::unique_ptr<FrameReader> MovingTargetFilter::filtered(std::unique_ptr<FrameReader> reader)
{
    if (!reader)
        return nullptr;
    return std::make_unique<FilteredReader>(std::move(reader));
}
