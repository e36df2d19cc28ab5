// nereon-export: a sonar recording to a video or to PNG pictures, drawn as the
// display draws it, without a screen.

#include "CommandLineNumbers.h"
#include "ExportSettingsFile.h"
#include "PrivateXServer.h"
#include "export/ExportOptions.h"
#include "export/RecordingExporter.h"
#include "export/VideoEncoder.h"

#include "FanDisplay.h"
#include "FanDisplayExtensions.h"
#ifdef NEREON_HAVE_ANALYSIS
#include "MovingTargetFilter.h"
#include "sources/FrameReader.h"
#endif

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QEvent>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

using namespace Halcyra::Nereon::Export;
using namespace CommandLineNumbers;

namespace {

enum ExitStatus
{
    Success = 0,
    Failure = 1, ///< nothing was written
    Usage = 2,
    CutShort = 3, ///< written up to damage in the recording
};

/// Gives the exporter's display the viewer's look: the grid on the beams' true edges and the range
/// labels kept inside the picture. The display is made inside the export library, so it is caught
/// as it is first polished, before its first paint.
class ViewerLook : public QObject
{
public:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Polish) {
            if (auto* display = qobject_cast<Halcyra::Nereon::Visualisation::FanDisplay*>(watched)) {
                using Halcyra::Nereon::Visualisation::FanDisplayExtensions;
                FanDisplayExtensions::setTrueEdges(display, true);
                FanDisplayExtensions::setLabelMargin(display, true);
            }
        }
        return false;
    }
};

struct CommandLine
{
    QString input;
    QString output;
    QString settingsFile;
    ExportOptions options;
    QString error;
    QString note; ///< said on stderr before the export starts
    bool help = false;
    bool movingTargets = false;
};

CommandLine parse(const QStringList& arguments)
{
    CommandLine line;
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Exports a sonar recording (the viewer's .nrec or an ARIS .aris) to a video (.mp4, .mov, .mkv, .avi)\n"
        "or to PNG pictures, drawn exactly as the fan display draws it. Without a display it starts\n"
        "an Xvfb server of its own.");
    parser.addPositionalArgument("INPUT", "The recording.");
    parser.addPositionalArgument("OUTPUT", "The video, or the picture(s): NAME.png.");
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption size("size",
        "Picture size (default 1280x720). A video's odd width or height is rounded down to even.", "WxH");
    const QCommandLineOption fps("fps", "Video frames per second (default 25).", "N");
    const QCommandLineOption from("from", "Start T seconds after the recording's first frame.", "T");
    const QCommandLineOption to("to", "End T seconds after the recording's first frame.", "T");
    const QCommandLineOption settings("settings",
        "The look: the viewer's settings file, ~/.config/Ternwick/nereon-viewer.conf (or an INI with its "
        "[display] and [viewer] groups): palette, colours, grid, colour scale, units, despeckle and clamp.",
        "FILE");
    const QCommandLineOption palette("palette", "Palette 0 to 7.", "N");
    const QCommandLineOption modifier("modifier", "Modifier of the Fire and Aqua palettes, 0 to 255.", "N");
    const QCommandLineOption despeckle("despeckle", "Despeckle level, 0 to 9.", "N");
    const QCommandLineOption clamp("clamp", "Clamp level, 0 to 0.5.", "F");
    const QCommandLineOption feet("feet", "Range labels in feet.");
    const QCommandLineOption colourScale("colour-scale", "Show the colour scale.");
    const QCommandLineOption autoGrid(
        "auto-grid", "Draw the range grid in a grey that stands out from the palette.");
    const QCommandLineOption timestamp("timestamp", "Write the recorded time (UTC) into every picture.");
    const QCommandLineOption frame("frame", "PNG only: save frame N only (the first is 1).", "N");
    const QCommandLineOption every(
        "every", "PNG only: save every N-th frame, as NAME-000001.png and so on.", "N");
    parser.addOptions({ size, fps, from, to, settings, palette, modifier, despeckle, clamp, feet, colourScale,
        autoGrid, timestamp, frame, every });
#ifdef NEREON_HAVE_ANALYSIS
    const QCommandLineOption movingTargets("moving-targets",
        "Show only what moves: the still background (bed, posts, weed), learnt first from frames spread "
        "over the whole recording, is taken out of every frame.");
    parser.addOption(movingTargets);
#endif
    if (!parser.parse(arguments)) {
        line.error = parser.errorText();
        return line;
    }
    if (parser.isSet(help)) {
        line.help = true;
        line.error = parser.helpText();
        return line;
    }
    const QStringList files = parser.positionalArguments();
    if (files.size() != 2) {
        line.error = "give the recording and the output: nereon-export INPUT OUTPUT (see --help)";
        return line;
    }
    line.input = files[0];
    line.output = files[1];
    ExportOptions& o = line.options;
    const bool video = VideoEncoder::isVideoFile(line.output);
    if (parser.isSet(size)) {
        if (!toSize(parser.value(size), 0, 1000000, o.size)) {
            line.error = "--size needs WIDTHxHEIGHT in pixels";
            return line;
        }
        // Video codecs take whole 2 x 2 blocks of colour: a pixel less rather than a refusal.
        const QSize even(std::max(2, o.size.width() & ~1), std::max(2, o.size.height() & ~1));
        if (video && o.size.width() > 0 && o.size.height() > 0 && even != o.size) {
            line.note = QStringLiteral("a video needs an even width and height: %1x%2 rounded down to %3x%4")
                            .arg(o.size.width())
                            .arg(o.size.height())
                            .arg(even.width())
                            .arg(even.height());
            o.size = even;
        }
    }
    if (video && (parser.isSet(frame) || parser.isSet(every))) {
        line.error
            = "--frame and --every save pictures: give a NAME.png output (a video takes --from and --to)";
        return line;
    }
    if (parser.isSet(fps) && !toNumber(parser.value(fps), 1, 240, o.framesPerSecond))
        line.error = "--fps needs 1 to 240";
    if (parser.isSet(from) && !toNumber(parser.value(from), 0, 1e9, o.from))
        line.error = "--from needs seconds from the start";
    if (parser.isSet(to) && !toNumber(parser.value(to), 0, 1e9, o.to))
        line.error = "--to needs seconds from the start";
    if (parser.isSet(from) && parser.isSet(to) && line.error.isEmpty() && o.from > o.to)
        line.error = "--from must not come after --to";
    if (parser.isSet(palette) && !toInteger(parser.value(palette), 0, 7, o.palette))
        line.error = "--palette needs 0 to 7";
    if (parser.isSet(modifier) && !toInteger(parser.value(modifier), 0, 255, o.paletteModifier))
        line.error = "--modifier needs 0 to 255";
    if (parser.isSet(despeckle) && !toInteger(parser.value(despeckle), 0, 9, o.despeckleLevel))
        line.error = "--despeckle needs 0 to 9";
    if (parser.isSet(clamp) && !toNumber(parser.value(clamp), 0, 0.5, o.clampLevel))
        line.error = "--clamp needs 0 to 0.5";
    int number = 0;
    if (parser.isSet(frame) && toInteger(parser.value(frame), 1, 1000000000, number))
        o.stillFrame = number - 1;
    else if (parser.isSet(frame))
        line.error = "--frame needs a frame number from 1";
    if (parser.isSet(every) && !toInteger(parser.value(every), 1, 1000000000, o.every))
        line.error = "--every needs a positive number";
    o.feet = parser.isSet(feet);
    o.colourScale = parser.isSet(colourScale);
    o.automaticGridColour = parser.isSet(autoGrid);
    o.timestampOverlay = parser.isSet(timestamp);
    line.settingsFile = parser.value(settings);
#ifdef NEREON_HAVE_ANALYSIS
    line.movingTargets = parser.isSet(movingTargets);
#endif
    return line;
}

QString formatDuration(double seconds)
{
    const int s = int(std::lround(std::max(0.0, seconds)));
    return QString::asprintf("%d:%02d", s / 60, s % 60);
}

/// The platform Qt is told to use first: "name:arguments", or a list "a;b" of which Qt
/// takes the first that loads.
QByteArray requestedPlatform()
{
    return qgetenv("QT_QPA_PLATFORM").split(';').first().split(':').first().trimmed();
}

/// Whether Qt would find no screen to draw on without a server of our own: no X display,
/// and a platform that draws through one. Qt's default is xcb unless Wayland is there;
/// the offscreen platform is drawn through xcb (see main).
bool needsPrivateServer()
{
    const char* display = std::getenv("DISPLAY");
    if (display && *display)
        return false;
    const QByteArray first = requestedPlatform();
    if (first.isEmpty()) {
        const char* wayland = std::getenv("WAYLAND_DISPLAY");
        return !wayland || !*wayland;
    }
    return first == "xcb" || first == "offscreen";
}

} // namespace

int main(int argc, char* argv[])
{
    {
        // Help and mistakes need no display.
        const QCoreApplication console(argc, argv);
        const CommandLine line = parse(QCoreApplication::arguments());
        if (line.help) {
            std::printf("%s", qPrintable(line.error));
            return Success;
        }
        if (!line.error.isEmpty()) {
            std::fprintf(stderr, "nereon-export: %s\n", qPrintable(line.error));
            return Usage;
        }
    }
    PrivateXServer server;
    if (needsPrivateServer()) {
        std::string why;
        if (!server.start(why)) {
            std::fprintf(stderr, "nereon-export: no display, and no server of its own: %s\n", why.c_str());
            return Failure;
        }
    }
    // Scripts often ask for the offscreen platform to stay off screen; pictures need GL
    // contexts, which that platform does not make with every Qt, so they are drawn
    // through xcb on the X server (ours if there was none), which shows nothing either.
    if (requestedPlatform() == "offscreen")
        qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication application(argc, argv);
    ViewerLook look;
    application.installEventFilter(&look);
    CommandLine line = parse(QCoreApplication::arguments());
    if (!line.settingsFile.isEmpty()) {
        QString error;
        if (!ExportSettingsFile::apply(line.settingsFile, line.options, error)) {
            std::fprintf(stderr, "nereon-export: %s\n", qPrintable(error));
            return Usage;
        }
    }
    if (!line.note.isEmpty())
        std::fprintf(stderr, "nereon-export: %s\n", qPrintable(line.note));

    RecordingExporter exporter;
#ifdef NEREON_HAVE_ANALYSIS
    MovingTargetFilter movingTargets;
    if (line.movingTargets) {
        // A recording that cannot be read is left for start() to refuse in its own words.
        if (const auto reader = Halcyra::Nereon::Sources::FrameReader::create(line.input)) {
            movingTargets.setEnabled(true);
            movingTargets.learnFrom(*reader, 50);
        }
        exporter.setFrameFilter([&movingTargets](const Halcyra::Nereon::Sources::SourceFrame& in,
                                    Halcyra::Nereon::NereonImage& out) {
            out = movingTargets.apply(in).image;
            return true;
        });
    }
#endif
    const bool started = exporter.start(line.input, line.output, line.options);
    for (const QString& notice : exporter.getNotices())
        std::fprintf(stderr, "nereon-export: %s\n", qPrintable(notice));
    if (!started) {
        std::fprintf(stderr, "nereon-export: %s\n", qPrintable(exporter.getErrorString()));
        return Failure;
    }
    // A progress line on a terminal only; scripts and logs get nothing but errors.
    const bool terminal = isatty(fileno(stderr));
    QElapsedTimer clock;
    clock.start();
    qint64 lastShown = -1000;
    while (exporter.step()) {
        if (!terminal || (clock.elapsed() - lastShown < 200 && exporter.getDone() < exporter.getTotal()))
            continue;
        lastShown = clock.elapsed();
        const double seconds = double(clock.elapsed()) / 1000.0;
        const double rate = seconds > 0 ? exporter.getDone() / seconds : 0.0;
        const int left = exporter.getTotal() - exporter.getDone();
        std::fprintf(stderr, "\r%d/%d frames  %3d %%  %.1f frames/s  %s left ", exporter.getDone(),
            exporter.getTotal(), int(100 * exporter.getDone() / std::max(1, exporter.getTotal())), rate,
            qPrintable(formatDuration(rate > 0 ? left / rate : 0)));
        std::fflush(stderr);
    }
    if (terminal)
        std::fprintf(stderr, "\n");
    if (!exporter.isFinished()) {
        std::fprintf(stderr, "nereon-export: %s\n", qPrintable(exporter.getErrorString()));
        return Failure;
    }
    if (!exporter.getWarning().isEmpty()) {
        std::fprintf(stderr, "nereon-export: exported up to the damage: %s\n", qPrintable(exporter.getWarning()));
        return CutShort;
    }
    if (terminal) {
        const RecordingExporter::Timing t = exporter.getTiming();
        std::fprintf(stderr, "Wrote %s: %d %s in %.1f s (%s; reading %.0f ms, drawing %.0f ms, colours %.0f ms, encoding %.0f ms)\n",
            qPrintable(line.output), exporter.getDone(), exporter.getDone() == 1 ? "picture" : "pictures",
            double(clock.elapsed()) / 1000.0,
            qPrintable(exporter.getCodecName().isEmpty() ? QStringLiteral("PNG") : exporter.getCodecName()),
            t.reading, t.drawing, t.conversion, t.encoding);
    }
    return Success;
}
