#pragma once

#include "TernwickNereonAnalysisExport.h"

#include "sources/SourceFrame.h"

#include <QObject>

#include <memory>

namespace Halcyra::Nereon::Analysis {

class BackgroundSubtractor;

/**
 * The moving-target view between a frame source and whatever shows its frames: takes
 * frames in a slot and hands out their foreground (see BackgroundSubtractor) through
 * the same signals a FrameSource has, so a display, an echogram or an exporter shows
 * the filtered frames unchanged. Move it to the source's thread (or one of its own)
 * so that the filter never runs on the GUI thread.
 *
 * @code
 * auto* filter = new LiveBackgroundSubtractor;
 * filter->moveToThread(&filterThread);
 * connect(source, &FrameSource::frameReady, filter, &LiveBackgroundSubtractor::addFrame);
 * connect(filter, &LiveBackgroundSubtractor::imageReady, display, &FanDisplay::newImageReceived);
 * @endcode
 */
class TERNWICK_NEREON_ANALYSIS_EXPORT LiveBackgroundSubtractor : public QObject
{
    Q_OBJECT

public:
    /// A filter with the subtractor's default settings.
    explicit LiveBackgroundSubtractor(QObject* parent = nullptr);
    ~LiveBackgroundSubtractor() override;

    /// The subtractor, to change its settings before frames come (not thread-safe).
    BackgroundSubtractor& getSubtractor();

public slots:
    /// Filters one frame and emits its foreground; a malformed frame is dropped.
    void addFrame(const Halcyra::Nereon::Sources::SourceFrame& frame);
    /// Forgets the model: the next frame starts a new one.
    void reset();

signals:
    /// The foreground of a frame, to connect to FanDisplay::newImageReceived.
    void imageReady(const Halcyra::Nereon::NereonImage& image);
    /// The same with the frame's number, time and window; emitted right after imageReady().
    void frameReady(const Halcyra::Nereon::Sources::SourceFrame& frame);

private:
    std::unique_ptr<BackgroundSubtractor> const subtractor;
};

} // namespace Halcyra::Nereon::Analysis
