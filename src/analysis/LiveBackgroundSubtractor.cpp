#include "analysis/LiveBackgroundSubtractor.h"

#include "analysis/BackgroundSubtractor.h"

namespace Halcyra::Nereon::Analysis {

LiveBackgroundSubtractor::LiveBackgroundSubtractor(QObject* parent)
    : QObject(parent)
    , subtractor(std::make_unique<BackgroundSubtractor>())
{
    // Queued connections need the types registered at run time.
    qRegisterMetaType<Sources::SourceFrame>();
}

LiveBackgroundSubtractor::~LiveBackgroundSubtractor() = default;

BackgroundSubtractor& LiveBackgroundSubtractor::getSubtractor()
{
    return *subtractor;
}

void LiveBackgroundSubtractor::addFrame(const Sources::SourceFrame& frame)
{
    Sources::SourceFrame out = frame;
    if (!subtractor->apply(frame, out.image))
        return;
    emit imageReady(out.image);
    emit frameReady(out);
}

void LiveBackgroundSubtractor::reset()
{
    subtractor->reset();
}

} // namespace Halcyra::Nereon::Analysis
