#pragma once

#include "TernwickNereonSourcesExport.h"

#include "sources/SonarDescription.h"
#include "sources/SourceFrame.h"

#include <QObject>

namespace Halcyra::Nereon::Sources {

/**
 * Something that produces frames over time on a thread of its own (a recording
 * played at its pace, a live sonar) and hands them out through signals.
 *
 * Signals are emitted from the source's thread: a receiver on the GUI thread gets
 * them queued, as a display wants them:
 *
 * @code
 * QObject::connect(source, &FrameSource::imageReady, display, &FanDisplay::newImageReceived);
 * @endcode
 */
class TERNWICK_NEREON_SOURCES_EXPORT FrameSource : public QObject
{
    Q_OBJECT

public:
    /// A source that has not produced anything yet.
    explicit FrameSource(QObject* parent = nullptr);
    ~FrameSource() override;

    /// The sonar behind the source as last announced by descriptionChanged(). Thread-safe.
    virtual SonarDescription getDescription() const = 0;

signals:
    /// A new frame: its picture, to connect to FanDisplay::newImageReceived.
    void imageReady(const Halcyra::Nereon::NereonImage& image);
    /// The same frame with where and when it came from; emitted right after imageReady().
    void frameReady(const Halcyra::Nereon::Sources::SourceFrame& frame);
    /// The sonar behind the source is known, or has changed.
    void descriptionChanged(const Halcyra::Nereon::Sources::SonarDescription& description);
    /// No further frame comes without a request: `message` says why (empty at a normal end).
    void stopped(const QString& message);

protected:
    /// Emits imageReady() and frameReady() for `frame`.
    void emitFrame(const SourceFrame& frame);
};

} // namespace Halcyra::Nereon::Sources
