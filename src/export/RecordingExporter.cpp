#include "export/RecordingExporter.h"

#include "export/FrameRenderer.h"
#include "export/VideoEncoder.h"
#include "sources/FrameReader.h"
#include "sources/SourceFrame.h"

#include <QBuffer>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QPainter>
#include <QSaveFile>

#include <algorithm>
#include <cmath>

namespace Halcyra::Nereon::Export {

using Sources::FrameReader;
using Sources::SourceFrame;

struct RecordingExporter::State
{
    ExportOptions options;
    QString output;
    bool video = false;
    std::unique_ptr<FrameReader> reader;
    std::unique_ptr<FrameRenderer> renderer;
    VideoEncoder encoder;
    std::int64_t firstTimestamp = 0; ///< of the recording, µs since 1970
    std::int64_t fromTime = 0; ///< µs after the first frame
    std::int64_t toTime = 0;
    int firstFrame = 0; ///< the first frame exported
    int lastFrame = 0; ///< the last frame exported
    int nextFrame = 0; ///< the next frame to hand to the display
    std::int64_t shownTimestamp = -1; ///< of the frame the display shows; -1 before the first
    bool pictureStale = true;
    QImage lastPicture;
    QString codecName;
    QStringList notices;
    RecordingExporter::FrameFilter filter;
    Timing timing;
};

RecordingExporter::RecordingExporter() = default;

RecordingExporter::~RecordingExporter()
{
    cancel();
}

QString RecordingExporter::formatTimestamp(std::int64_t timestamp)
{
    return QDateTime::fromMSecsSinceEpoch(timestamp / 1000, Qt::UTC).toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"))
        + QStringLiteral(" UTC");
}

bool RecordingExporter::fail(const QString& message)
{
    errorString = message;
    if (state)
        state->encoder.abandon();
    state.reset();
    return false;
}

bool RecordingExporter::start(const QString& input, const QString& output, const ExportOptions& options)
{
    cancel();
    errorString.clear();
    startNotices.clear();
    done = 0;
    total = 0;
    finished = false;
    state = std::make_unique<State>();
    State& s = *state;
    s.options = options;
    s.output = output;
    s.filter = frameFilter;
    s.video = VideoEncoder::isVideoFile(output);
    if (!s.video && QFileInfo(output).suffix().compare(QLatin1String("png"), Qt::CaseInsensitive) != 0)
        return fail(QStringLiteral("%1: the output is a video (.mp4, .mov, .mkv, .avi) or pictures (.png)")
                        .arg(output));
    if (!QFileInfo(QFileInfo(output).absolutePath()).isDir())
        return fail(QStringLiteral("cannot write %1: no folder %2").arg(output, QFileInfo(output).absolutePath()));
    if (!std::isfinite(options.framesPerSecond) || options.framesPerSecond < 1.0 || options.framesPerSecond > 240.0)
        return fail(QStringLiteral("%1 frames per second: 1 to 240 possible").arg(options.framesPerSecond));

    QString error;
    s.reader = FrameReader::create(input, &error);
    if (!s.reader)
        return fail(error);
    FrameReader& reader = *s.reader;
    s.firstTimestamp = reader.getTimestamp(0);
    const std::int64_t end = reader.getTimestamp(reader.getFrameCount() - 1) - s.firstTimestamp;
    s.fromTime = std::int64_t(std::llround(std::max(0.0, options.from) * 1e6));
    s.toTime = options.to < 0.0 ? end : std::min(end, std::int64_t(std::llround(options.to * 1e6)));
    if (s.fromTime > end)
        return fail(QStringLiteral("%1 lasts %2 s: nothing to export from %3 s")
                        .arg(QFileInfo(input).fileName())
                        .arg(double(end) / 1e6, 0, 'f', 1)
                        .arg(options.from));
    if (s.fromTime > s.toTime)
        return fail(QStringLiteral("%1: the part from %2 s to %3 s is empty")
                        .arg(QFileInfo(input).fileName())
                        .arg(options.from)
                        .arg(options.to));
    s.firstFrame = reader.findFrame(s.firstTimestamp + s.fromTime);
    s.lastFrame = reader.findFrame(s.firstTimestamp + s.toTime);

    s.renderer = std::make_unique<FrameRenderer>(options);
    if (!s.renderer->isValid())
        return fail(s.renderer->getErrorString());

    if (s.video) {
        // Output frame n shows the recording at n / fps after the start: enough frames to
        // cover the last one, so the video is at most one frame period longer than the part.
        total = int(std::floor(double(s.toTime - s.fromTime) * options.framesPerSecond / 1e6)) + 1;
        const bool opened
            = s.encoder.open(output, options.size.width(), options.size.height(), options.framesPerSecond);
        const QStringList stale = s.encoder.getRemovedStaleFiles();
        if (!stale.isEmpty())
            s.notices << QStringLiteral("removed %1 left in %2 by %3 that %4 killed: %5")
                             .arg(stale.size() == 1 ? QStringLiteral("a temporary file")
                                                    : QStringLiteral("%1 temporary files").arg(stale.size()))
                             .arg(QFileInfo(output).absolutePath())
                             .arg(stale.size() == 1 ? QStringLiteral("an export") : QStringLiteral("exports"))
                             .arg(stale.size() == 1 ? QStringLiteral("was") : QStringLiteral("were"))
                             .arg(stale.join(QStringLiteral(", ")));
        if (!opened) {
            // The notice outlives the failed start.
            const QStringList notices = s.notices;
            fail(s.encoder.getErrorString());
            startNotices = notices;
            return false;
        }
        s.codecName = s.encoder.getCodecName();
        // Thresholds settle as on a display that played from the part's first frame.
        s.nextFrame = s.firstFrame;
    } else if (options.stillFrame >= 0) {
        if (options.stillFrame >= reader.getFrameCount())
            return fail(QStringLiteral("%1 has %2 frames, not %3")
                            .arg(QFileInfo(input).fileName())
                            .arg(reader.getFrameCount())
                            .arg(options.stillFrame + 1));
        // The display's thresholds as after a replay from the start up to that frame.
        s.firstFrame = s.lastFrame = options.stillFrame;
        s.nextFrame = 0;
        total = 1;
    } else {
        const int every = std::max(1, options.every);
        total = (s.lastFrame - s.firstFrame) / every + 1;
        s.nextFrame = s.firstFrame;
    }
    return true;
}

bool RecordingExporter::feedUpTo(std::int64_t relativeTime)
{
    State& s = *state;
    FrameReader& reader = *s.reader;
    QElapsedTimer timer;
    timer.start();
    while (s.nextFrame <= s.lastFrame && s.nextFrame < reader.getFrameCount()
           && reader.getTimestamp(s.nextFrame) - s.firstTimestamp <= relativeTime) {
        SourceFrame frame;
        if (!reader.readFrame(s.nextFrame, frame))
            break; // damaged: the count is cut, the warning says where
        Halcyra::Nereon::NereonImage filtered;
        if (s.filter && s.filter(frame, filtered))
            s.renderer->addFrame(filtered);
        else
            s.renderer->addFrame(frame.image);
        s.shownTimestamp = frame.timestamp;
        s.pictureStale = true;
        ++s.nextFrame;
    }
    s.timing.reading += double(timer.nsecsElapsed()) / 1e6;
    return s.shownTimestamp >= 0;
}

QImage RecordingExporter::picture()
{
    State& s = *state;
    if (!s.pictureStale)
        return s.lastPicture;
    QElapsedTimer timer;
    timer.start();
    QImage image = s.renderer->grab();
    s.timing.drawing += double(timer.nsecsElapsed()) / 1e6;
    if (s.options.timestampOverlay && !image.isNull()) {
        QPainter painter(&image);
        QFont font = painter.font();
        font.setPixelSize(std::max(12, image.height() / 40));
        font.setBold(true);
        painter.setFont(font);
        const QString text = formatTimestamp(s.shownTimestamp);
        QRect box = painter.fontMetrics().boundingRect(text).adjusted(-6, -3, 6, 3);
        box.moveBottomLeft(QPoint(8, image.height() - 8));
        painter.fillRect(box, QColor(0, 0, 0, 170));
        painter.setPen(Qt::white);
        painter.drawText(box, Qt::AlignCenter, text);
    }
    s.lastPicture = image;
    s.pictureStale = false;
    return image;
}

bool RecordingExporter::step()
{
    if (!state || finished)
        return false;
    return state->video ? stepVideo() : stepPictures();
}

bool RecordingExporter::stepVideo()
{
    State& s = *state;
    const std::int64_t at = s.fromTime + std::int64_t(std::llround(double(done) * 1e6 / s.options.framesPerSecond));
    // The first picture shows the part's first frame even when it was taken a little before `from`.
    if (!feedUpTo(std::max(at, s.reader->getTimestamp(s.firstFrame) - s.firstTimestamp)))
        return fail(s.reader->hasDamage() ? s.reader->describeDamage() : QStringLiteral("no frame to show"));
    if (!s.encoder.addFrame(picture()))
        return fail(s.encoder.getErrorString());
    s.timing.conversion = s.encoder.getConversionMilliseconds();
    s.timing.encoding = s.encoder.getEncodingMilliseconds();
    ++done;
    // Damage found while reading ends the video with the last frame before it.
    const int readable = s.reader->getFrameCount();
    if (readable <= s.lastFrame) {
        const std::int64_t end = std::min(s.toTime, s.reader->getTimestamp(readable - 1) - s.firstTimestamp);
        total = std::max(done, int(std::floor(double(end - s.fromTime) * s.options.framesPerSecond / 1e6)) + 1);
    }
    if (done >= total) {
        if (!s.encoder.finish())
            return fail(s.encoder.getErrorString());
        finished = true;
    }
    return true;
}

bool RecordingExporter::stepPictures()
{
    State& s = *state;
    const int every = std::max(1, s.options.every);
    const int frame = s.options.stillFrame >= 0 ? s.options.stillFrame : s.firstFrame + done * every;
    if (frame >= s.reader->getFrameCount()) {
        // Damage cut the recording short: the pictures before it are written.
        total = done;
        finished = true;
        return done > 0 || fail(s.reader->describeDamage());
    }
    feedUpTo(s.reader->getTimestamp(frame) - s.firstTimestamp);
    if (s.nextFrame <= frame)
        return fail(s.reader->hasDamage() ? s.reader->describeDamage() : QStringLiteral("frame %1 unreadable").arg(frame + 1));
    QString path = s.output;
    if (s.options.stillFrame < 0) {
        const QFileInfo info(s.output);
        path = info.dir().filePath(
            QStringLiteral("%1-%2.%3").arg(info.completeBaseName()).arg(frame + 1, 6, 10, QChar('0')).arg(info.suffix()));
    }
    // Encoded first, so that a failure to write says why in the file system's words
    // (a full disk) rather than the image writer's.
    QByteArray png;
    {
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        if (!picture().save(&buffer, "PNG"))
            return fail(QStringLiteral("cannot encode the picture for %1").arg(path));
    }
    // Written under another name and renamed once whole.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return fail(QStringLiteral("cannot write %1: %2").arg(path, file.errorString()));
    // A write cut short (a full disk) sets no error; the next attempt at the rest says why.
    for (qint64 written = 0; written < png.size();) {
        const qint64 n = file.write(png.constData() + written, png.size() - written);
        if (n <= 0)
            return fail(QStringLiteral("cannot write %1: %2").arg(path, file.errorString()));
        written += n;
    }
    if (!file.commit())
        return fail(QStringLiteral("cannot write %1: %2").arg(path, file.errorString()));
    ++done;
    if (done >= total)
        finished = true;
    return true;
}

void RecordingExporter::setFrameFilter(FrameFilter filter)
{
    frameFilter = std::move(filter);
}

void RecordingExporter::cancel()
{
    if (state)
        state->encoder.abandon();
    state.reset();
}

QString RecordingExporter::getWarning() const
{
    return state && state->reader && state->reader->hasDamage() ? state->reader->describeDamage() : QString();
}

QStringList RecordingExporter::getNotices() const
{
    return state ? state->notices : startNotices;
}

QString RecordingExporter::getCodecName() const
{
    return state ? state->codecName : QString();
}

RecordingExporter::Timing RecordingExporter::getTiming() const
{
    return state ? state->timing : Timing();
}

} // namespace Halcyra::Nereon::Export
