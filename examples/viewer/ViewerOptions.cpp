#include "ViewerOptions.h"

#include "CommandLineNumbers.h"

#include <QCommandLineParser>

#include <cmath>

using namespace CommandLineNumbers;

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
        "Centre the magnifier on a point of the fan: its range and bearing with units, as 5m,-3deg or "
        "16ft,10deg (bearings positive to starboard); or the fan point x,y (the sonar at 0,0, the rim at "
        "radius 1).",
        "where");
    const QCommandLineOption measure("measure",
        "Measure a distance on the magnifier from x1,y1 to x2,y2 (fan points, as --magnify-at).",
        "x1,y1,x2,y2");
    const QCommandLineOption sonar("sonar",
        "Show the live ARIS sonar with serial number <sonar>, or at the address <sonar> (with :port when it is not "
        "56888).",
        "sonar");
    const QCommandLineOption echogram("echogram", "Show the echogram under the fan.");
    const QCommandLineOption movingTargets(
        "moving-targets", "Show only what moves: echoes above the still background.");
    const QCommandLineOption measurements(
        "measurements", "Write the measurements taken to <file> (CSV) when the viewer ends.", "file");
    const QCommandLineOption countFish("count-fish", "Count the fish passing through the beams.");
    const QCommandLineOption fish("fish", "Let fish swim through the simulated sonar's scene.");
    parser.addOptions({ screenshot, frames, palette, modifier, beams, despeckle, clamp, zoom, feet, fresh,
        size, fanOnly, colourScale, autoGrid, record, replay, speed, frame, magnify, magnifyAt, measure,
        sonar, echogram, movingTargets, measurements, countFish, fish });

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
    if (parser.isSet(clamp) && !toNumber(parser.value(clamp), 0.0, 0.5, options.clampLevel))
        return fail("--clamp needs a fraction from 0 to 0.5");
    if (parser.isSet(zoom) && !toNumber(parser.value(zoom), 1.0, 8.0, options.zoomLevel))
        return fail("--zoom needs a level from 1 to 8");
    if (parser.isSet(size)) {
        QSize window;
        if (!toSize(parser.value(size), 1, 8192, window) || window.width() < 320 || window.height() < 240)
            return fail("--size needs WIDTHxHEIGHT, at least 320x240");
        options.windowSize = window;
    }
    if (parser.isSet(speed) && !toNumber(parser.value(speed), 0.125, 16.0, options.replaySpeed))
        return fail("--speed needs a factor from 0.125 to 16");
    if (parser.isSet(frame)) {
        int oneBased = 0;
        if (!toInteger(parser.value(frame), 1, 100000000, oneBased))
            return fail("--frame needs a frame number from 1");
        options.replayFrame = oneBased - 1;
    }
    if (parser.isSet(magnify)) {
        double factor = 0.0;
        if (!toNumber(parser.value(magnify), 4.0, 10.0, factor))
            return fail("--magnify needs a factor from 4 to 10");
        // The magnifier's levels are 4, 4.5, ... 8, then 9 and 10.
        static const double levels[] = { 4.0, 4.5, 5.0, 5.5, 6.0, 6.5, 7.0, 8.0, 9.0, 10.0 };
        while (options.magnifierSteps < 9 && levels[options.magnifierSteps + 1] <= factor + 1e-9)
            ++options.magnifierSteps;
    }
    double numbers[4] = {};
    if (parser.isSet(magnifyAt)) {
        if (toRangeBearing(parser.value(magnifyAt), options.magnifierAt))
            options.magnifierAtRangeBearing = true;
        else if (toNumbers(parser.value(magnifyAt), 2, numbers))
            options.magnifierCentre = QPointF(numbers[0], numbers[1]);
        else
            return fail("--magnify-at needs a range and bearing with units (5m,-3deg) or a fan point x,y");
        options.magnifierCentred = true;
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
    options.measurementsPath = parser.value(measurements);
    if (parser.isSet(measurements) && options.measurementsPath.isEmpty())
        return fail("--measurements needs a file");
    options.echogram = parser.isSet(echogram);
    options.movingTargets = parser.isSet(movingTargets);
    options.countFish = parser.isSet(countFish);
    options.simulatedFish = parser.isSet(fish);
    options.feet = parser.isSet(feet);
    options.fanOnly = parser.isSet(fanOnly);
    options.colourScale = parser.isSet(colourScale);
    options.automaticGridColour = parser.isSet(autoGrid);
    options.useSavedSettings = !parser.isSet(fresh) && options.screenshotPath.isEmpty();
    return options;
}

QPointF ViewerOptions::fanPoint(const CommandLineNumbers::RangeBearing& point, double range)
{
    // Bearings count from the centre line, positive to starboard: x across, y along the fan.
    const double r = range > 0.0 ? point.range / range : 0.0;
    const double bearing = point.bearing * M_PI / 180.0;
    return QPointF(r * std::sin(bearing), r * std::cos(bearing));
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
