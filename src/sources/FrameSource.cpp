#include "sources/FrameSource.h"

namespace Halcyra::Nereon::Sources {

namespace {
// Registered when the library is loaded, so that queued connections carrying
// them work without the application registering the types itself.
const int sourceMetaTypes = [] {
    qRegisterMetaType<SourceFrame>("Halcyra::Nereon::Sources::SourceFrame");
    qRegisterMetaType<SonarDescription>("Halcyra::Nereon::Sources::SonarDescription");
    return 0;
}();
} // namespace

FrameSource::FrameSource(QObject* parent)
    : QObject(parent)
{
}

FrameSource::~FrameSource() = default;

void FrameSource::emitFrame(const SourceFrame& frame)
{
    emit imageReady(frame.image);
    emit frameReady(frame);
}

} // namespace Halcyra::Nereon::Sources
