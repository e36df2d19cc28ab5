#pragma once

#include "TernwickNereonExportExport.h"

#include "export/ExportOptions.h"

#include <QImage>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>

namespace Halcyra::Nereon {
class NereonImage;
}
namespace Halcyra::Nereon::Sources {
struct SourceFrame;
}

namespace Halcyra::Nereon::Export {

class FrameRenderer;
class VideoEncoder;

/**
 * Exports a recording of any format the frame-source library reads to a video or
 * to PNG pictures, drawn as the display draws it.
 *
 * A video runs at a constant frame rate placed by the recorded times: output frame
 * n shows the last recording frame taken at or before n / framesPerSecond seconds
 * after the start, so frames are repeated or dropped as the rates differ and the
 * video lasts as long as the recording, to within one output frame. Every frame of
 * the recording still reaches the display in order, so its thresholds move as they
 * would on screen.
 *
 * The work is done a step at a time (step()), so that a caller can show progress,
 * keep a window responsive and cancel. A damaged recording is exported up to the
 * damage; getWarning() then says where it stopped. Use it on the GUI thread.
 */
class TERNWICK_NEREON_EXPORT_EXPORT RecordingExporter
{
public:
    /// Where the time of an export went, in milliseconds.
    struct Timing
    {
        double reading = 0.0; ///< reading and decoding the recording, filtering, handing frames to the display
        double drawing = 0.0; ///< drawing the pictures and reading them back from GL
        double conversion = 0.0; ///< RGB to YUV
        double encoding = 0.0; ///< the video codec and the file
    };

    /**
     * Replaces a recording frame before the display gets it (the moving-target view):
     * called once for every frame read, in order, on the exporting thread. It writes the
     * frame to draw into `out` and returns true, or returns false to have `in` drawn as
     * it is. Whatever it must learn from the recording first, the caller teaches it
     * before start().
     */
    using FrameFilter = std::function<bool(const Sources::SourceFrame& in, NereonImage& out)>;

    RecordingExporter();
    ~RecordingExporter();
    RecordingExporter(const RecordingExporter&) = delete;
    RecordingExporter& operator=(const RecordingExporter&) = delete;

    /**
     * Opens `input` and prepares `output` (.mp4, .mov, .mkv, .avi for a video; .png
     * for pictures). False, with getErrorString(), when the input cannot be read, the
     * output's kind is unknown or it cannot be written, or the size is unusable.
     */
    bool start(const QString& input, const QString& output, const ExportOptions& options);
    /// The filter of the exports started from now on; an empty one (the default) draws frames as read.
    void setFrameFilter(FrameFilter filter);
    /// Exports the next picture. False when there is nothing more to do: then isFinished()
    /// is true, or the export failed (getErrorString()) and left no file under the output name.
    bool step();
    /// Whether every picture has been written and the output has its name.
    bool isFinished() const { return finished; }
    /// Stops the export; what it wrote so far is removed.
    void cancel();

    /// Pictures written so far.
    int getDone() const { return done; }
    /// Pictures to write in all (fewer when damage cuts the recording short).
    int getTotal() const { return total; }
    /// Why start() or step() failed.
    QString getErrorString() const { return errorString; }
    /// Set when the recording is damaged: "Stopped at byte N of FILE: why".
    QString getWarning() const;
    /// What start() did besides, worth telling the user (temporary files of killed exports it removed).
    QStringList getNotices() const;
    /// The codec of a video export, e.g. "libx264".
    QString getCodecName() const;
    /// Where the time went so far.
    Timing getTiming() const;

    /// The text written by the time-stamp overlay for a time in µs since 1970.
    static QString formatTimestamp(std::int64_t timestamp);

private:
    struct State;
    std::unique_ptr<State> state;
    int done = 0;
    int total = 0;
    bool finished = false;
    QString errorString;
    QStringList startNotices; ///< of a start() that failed
    FrameFilter frameFilter;

    bool fail(const QString& message);
    bool stepVideo();
    bool stepPictures();
    bool feedUpTo(std::int64_t relativeTime);
    QImage picture();
};

} // namespace Halcyra::Nereon::Export
