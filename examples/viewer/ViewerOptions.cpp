#include "ViewerOptions.h"

#include <QCommandLineParser>

#include <cmath>

namespace {

bool toInteger(const QString& text, int low, int high, int& result)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok || value < low || value > high)
        return false;
    result = value;
    return true;
}

/// Reads "a,b,..." into `count` numbers.
bool toNumbers(const QString& text, int count, double* values)
{
    const QStringList parts = text.split(',');
    if (parts.size() != count)
        return false;
    for (int i = 0; i < count; ++i) {
        bool ok = false;
        values[i] = parts[i].toDouble(&ok);
        if (!ok || !std::isfinite(values[i]))
            return false;
    }
    return true;
}

} // namespace

ViewerOptions ViewerOptions::parse(const QStringList& arguments)
{
    ViewerOptions options;
    QCommandLineParser parser;
    parser.setApplicationDescription("Shows a multibeam sonar on the fan display: a simulated one, or a\n"
                                     "recording (the viewer's own .nrec or an ARIS .aris file) given as FILE.");
    parser.addPositionalArgument("FILE", "A recording to replay (as --replay).", "[FILE]");
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption screenshot("screenshot", "Save the window to <file> and quit.", "file");
    const QCommandLineOption frames("frames", "Frames to show before the screenshot (default 30).", "n");
    const QCommandLineOption palette("palette", "Palette 0 to 7.", "n");
    const QCommandLineOption modifier("modifier", "Modifier of the Fire and Aqua palettes, 0 to 255.", "n");
    const QCommandLineOption beams("beams", "Beams of the simulated sonar: 256 or 512.", "n");
    const QCommandLineOption despeckle("despeckle", "Despeckle level, 0 (off) to 9.", "n");
    const QCommandLineOption clamp("clamp", "Clamp level, 0 to 0.5.", "fraction");
    const QCommandLineOption zoom("zoom", "Zoom level of the main display, 1 to 8.", "level");
    const QCommandLineOption feet("feet", "Show distances in feet and areas in square feet.");
    const QCommandLineOption fresh("no-settings", "Neither restore nor save the look.");
    const QCommandLineOption size("size", "Window size, e.g. 1280x800.", "WxH");
    const QCommandLineOption fanOnly("fan-only", "The screenshot shows only the fan display.");
    const QCommandLineOption colourScale("colour-scale", "Show the colour scale.");
    const QCommandLineOption autoGrid(
        "auto-grid", "Draw the range grid in a grey that stands out from the palette.");
    const QCommandLineOption record("record", "Record the frames the viewer receives to <file>.", "file");
    const QCommandLineOption replay(
        "replay", "Replay the recording <file> instead of the simulated sonar.", "file");
    const QCommandLineOption speed(
        "speed", "Replay speed, 0.125 to 16 (default 1, the recorded pace).", "factor");
    const QCommandLineOption frame("frame", "Show frame <n> of the replay (the first is 1), paused.", "n");
    const QCommandLineOption magnify("magnify", "Magnifier zoom: 4 to 10 times (default 4).", "factor");
    const QCommandLineOption magnifyAt("magnify-at",
        "Centre the magnifier on the fan point x,y (the sonar at 0,0, the rim at radius 1).", "x,y");
    const QCommandLineOption measure("measure",
        "Measure a distance on the magnifier from x1,y1 to x2,y2 (fan points, as --magnify-at).",
        "x1,y1,x2,y2");
    const QCommandLineOption sonar("sonar",
        "Show the live ARIS sonar with serial number <sonar>, or at the address <sonar> (with :port when it is not "
        "56888).",
        "sonar");
    parser.addOptions({ screenshot, frames, palette, modifier, beams, despeckle, clamp, zoom, feet, fresh,
        size, fanOnly, colourScale, autoGrid, record, replay, speed, frame, magnify, magnifyAt, measure, sonar });

    if (!parser.parse(arguments)) {
        options.error = parser.errorText();
        return options;
    }
    // --help-all comes with the help option; the viewer has no options of its own to add there.
    if (parser.isSet(help) || parser.isSet(QStringLiteral("help-all"))) {
        options.helpShown = true;
        options.error = parser.helpText();
        return options;
    }
    auto fail = [&options](const QString& message) {
        options.error = message;
        return options;
    };

    options.screenshotPath = parser.value(screenshot);
    if (parser.isSet(frames) && !toInteger(parser.value(frames), 1, 100000, options.frames))
        return fail("--frames needs a positive number");
    if (parser.isSet(palette) && !toInteger(parser.value(palette), 0, 7, options.palette))
        return fail("--palette needs a number from 0 to 7");
    if (parser.isSet(modifier) && !toInteger(parser.value(modifier), 0, 255, options.paletteModifier))
        return fail("--modifier needs a number from 0 to 255");
    if (parser.isSet(beams)) {
        if (!toInteger(parser.value(beams), 256, 512, options.beamCount)
            || (options.beamCount != 256 && options.beamCount != 512))
            return fail("--beams needs 256 or 512");
    }
    if (parser.isSet(despeckle) && !toInteger(parser.value(despeckle), 0, 9, options.despeckleLevel))
        return fail("--despeckle needs a number from 0 to 9");
    if (parser.isSet(clamp)) {
        bool ok = false;
        options.clampLevel = parser.value(clamp).toDouble(&ok);
        if (!ok || options.clampLevel < 0.0 || options.clampLevel > 0.5)
            return fail("--clamp needs a fraction from 0 to 0.5");
    }
    if (parser.isSet(zoom)) {
        bool ok = false;
        options.zoomLevel = parser.value(zoom).toDouble(&ok);
        if (!ok || options.zoomLevel < 1.0 || options.zoomLevel > 8.0)
            return fail("--zoom needs a level from 1 to 8");
    }
    if (parser.isSet(size)) {
        const QStringList parts = parser.value(size).split('x');
        int w = 0;
        int h = 0;
        if (parts.size() != 2 || !toInteger(parts[0], 320, 8192, w) || !toInteger(parts[1], 240, 8192, h))
            return fail("--size needs WIDTHxHEIGHT, at least 320x240");
        options.windowSize = QSize(w, h);
    }
    if (parser.isSet(speed)) {
        bool ok = false;
        options.replaySpeed = parser.value(speed).toDouble(&ok);
        if (!ok || options.replaySpeed < 0.125 || options.replaySpeed > 16.0)
            return fail("--speed needs a factor from 0.125 to 16");
    }
    if (parser.isSet(frame)) {
        int oneBased = 0;
        if (!toInteger(parser.value(frame), 1, 100000000, oneBased))
            return fail("--frame needs a frame number from 1");
        options.replayFrame = oneBased - 1;
    }
    if (parser.isSet(magnify)) {
        bool ok = false;
        const double factor = parser.value(magnify).toDouble(&ok);
        if (!ok || factor < 4.0 || factor > 10.0)
            return fail("--magnify needs a factor from 4 to 10");
        // The magnifier's levels are 4, 4.5, ... 8, then 9 and 10.
        static const double levels[] = { 4.0, 4.5, 5.0, 5.5, 6.0, 6.5, 7.0, 8.0, 9.0, 10.0 };
        while (options.magnifierSteps < 9 && levels[options.magnifierSteps + 1] <= factor + 1e-9)
            ++options.magnifierSteps;
    }
    double numbers[4] = {};
    if (parser.isSet(magnifyAt)) {
        if (!toNumbers(parser.value(magnifyAt), 2, numbers))
            return fail("--magnify-at needs x,y");
        options.magnifierCentred = true;
        options.magnifierCentre = QPointF(numbers[0], numbers[1]);
    }
    if (parser.isSet(measure)) {
        if (!toNumbers(parser.value(measure), 4, numbers))
            return fail("--measure needs x1,y1,x2,y2");
        options.measurement = QLineF(numbers[0], numbers[1], numbers[2], numbers[3]);
    }
    options.recordPath = parser.value(record);
    options.replayPath = parser.value(replay);
    const QStringList files = parser.positionalArguments();
    if (files.size() > 1)
        return fail("unexpected argument " + files[1]);
    if (!files.isEmpty()) {
        if (parser.isSet(replay))
            return fail("give the recording either as FILE or with --replay, not both");
        options.replayPath = files.first();
    }
    options.sonar = parser.value(sonar).trimmed();
    if (parser.isSet(sonar) && options.sonar.isEmpty())
        return fail("--sonar needs a serial number or an address");
    if (!options.sonar.isEmpty() && !options.replayPath.isEmpty())
        return fail("show either a live sonar or a recording, not both");
    if (options.replayFrame >= 0 && options.replayPath.isEmpty())
        return fail("--frame needs a recording to replay");
    if (parser.isSet(record) && options.recordPath.isEmpty())
        return fail("--record needs a file");
    if (parser.isSet(replay) && options.replayPath.isEmpty())
        return fail("--replay needs a file");
    options.feet = parser.isSet(feet);
    options.fanOnly = parser.isSet(fanOnly);
    options.colourScale = parser.isSet(colourScale);
    options.automaticGridColour = parser.isSet(autoGrid);
    options.useSavedSettings = !parser.isSet(fresh) && options.screenshotPath.isEmpty();
    return options;
}

bool ViewerOptions::mayHoldToolkitOptions(const QStringList& arguments)
{
    for (int i = 1; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        if (argument.size() > 2 && argument[0] == '-' && argument[1] != '-')
            return true;
    }
    return false;
}
