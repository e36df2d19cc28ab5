// nereon-make-aris: writes a synthetic ARIS recording of fish passing the sonar,
// and with --truth where every fish is in every frame, for trying the viewer, the
// fake sonar and fish counting without a real recording.

#include "CommandLineNumbers.h"
#include "sources/ArisWriter.h"
#include "sources/SyntheticPassage.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cmath>
#include <cstdio>

using namespace Halcyra::Nereon::Sources;

namespace {

int mistake(const QString& message)
{
    std::fprintf(stderr, "nereon-make-aris: %s (see --help)\n", qPrintable(message));
    return 2;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("nereon-make-aris"));
    // Without options: a demo of a few MB, 20 s at 10 frames a second.
    SyntheticPassageOptions options;
    options.samples = 500;
    options.frames = 200;
    options.fish = 6;

    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Writes a synthetic ARIS recording (.aris) of fish passing a sonar: a bed with rocks and their\n"
        "shadows, speckle, and fish crossing the beams both ways, drawn from a seed. With --truth, also\n"
        "PREFIX-fish.csv (fish_id,first_frame,last_frame,direction,length_m,speed_m_s,faint,brief;\n"
        "direction up: towards increasing bearings, left to right) and PREFIX-positions.csv\n"
        "(fish_id,frame,range_m,bearing_deg,visible), every fish in every frame.");
    parser.addHelpOption();
    parser.addPositionalArgument("OUT", "The recording to write (.aris).");
    const QCommandLineOption frames(
        "frames", QStringLiteral("Frames (default %1).").arg(options.frames), "N");
    const QCommandLineOption beams(
        "beams", QStringLiteral("Beams: 48, 64, 96 or 128 (default %1).").arg(options.beams), "N");
    const QCommandLineOption samples(
        "samples", QStringLiteral("Samples per beam (default %1).").arg(options.samples), "N");
    const QCommandLineOption fish(
        "fish", QStringLiteral("Fish passing (default %1).").arg(options.fish), "N");
    const QCommandLineOption seed(
        "seed", QStringLiteral("Seed of the scene (default %1).").arg(options.seed), "S");
    const QCommandLineOption windowStart("window-start",
        QStringLiteral("Range of the first sample in metres (default %1).").arg(options.windowStart), "M");
    const QCommandLineOption windowLength("window-length",
        QStringLiteral("Length of the window in metres (default %1).").arg(options.windowLength), "M");
    const QCommandLineOption frameRate(
        "frame-rate", QStringLiteral("Frames per second (default %1).").arg(options.frameRate), "HZ");
    const QCommandLineOption telephoto("telephoto", "The telephoto lens: narrower beams (48 or 96 beams).");
    const QCommandLineOption truth(
        "truth", "Write the truth to PREFIX-fish.csv and PREFIX-positions.csv.", "PREFIX");
    parser.addOptions(
        { frames, beams, samples, fish, seed, windowStart, windowLength, frameRate, telephoto, truth });
    if (!parser.parse(QCoreApplication::arguments()))
        return mistake(parser.errorText());
    if (parser.isSet(QStringLiteral("help"))) {
        std::printf("%s", qPrintable(parser.helpText()));
        return 0;
    }
    if (parser.positionalArguments().size() != 1)
        return mistake(QStringLiteral("give one recording to write"));

    bool ok = true;
    const auto integer = [&](const QCommandLineOption& option, int& value, int minimum, int maximum) {
        if (!ok || !parser.isSet(option))
            return;
        int given = 0;
        if (!CommandLineNumbers::toInteger(parser.value(option), minimum, maximum, given)) {
            ok = false;
            mistake(QStringLiteral("--%1 takes a whole number from %2 to %3, not \"%4\"")
                        .arg(option.names().first())
                        .arg(minimum)
                        .arg(maximum)
                        .arg(parser.value(option)));
            return;
        }
        value = given;
    };
    const auto real = [&](const QCommandLineOption& option, double& value, double minimum, double maximum) {
        if (!ok || !parser.isSet(option))
            return;
        double given = 0.0;
        if (!CommandLineNumbers::toNumber(parser.value(option), minimum, maximum, given)) {
            ok = false;
            mistake(QStringLiteral("--%1 takes a number from %2 to %3, not \"%4\"")
                        .arg(option.names().first())
                        .arg(minimum)
                        .arg(maximum)
                        .arg(parser.value(option)));
            return;
        }
        value = given;
    };
    integer(frames, options.frames, 1, 10000000);
    integer(beams, options.beams, 1, 128);
    integer(samples, options.samples, 1, 8192);
    integer(fish, options.fish, 0, 100000);
    real(windowStart, options.windowStart, 0.0, 1000.0);
    real(windowLength, options.windowLength, 0.01, 1000.0);
    real(frameRate, options.frameRate, 0.01, 1000.0);
    if (ok && parser.isSet(seed)) {
        options.seed = parser.value(seed).toULongLong(&ok);
        if (!ok)
            mistake(QStringLiteral("--seed takes a whole number, not \"%1\"").arg(parser.value(seed)));
    }
    if (!ok)
        return 2;
    options.telephoto = parser.isSet(telephoto);

    SyntheticPassage passage(options);
    const QString path = parser.positionalArguments().first();
    ArisWriter writer;
    const ArisWriterOptions writerOptions = passage.getWriterOptions();
    if (ArisWriter::getSystemType(writerOptions) < 0)
        return mistake(QStringLiteral("no ARIS sonar has %1 beams%2")
                           .arg(options.beams)
                           .arg(options.telephoto ? QStringLiteral(" with the telephoto lens") : QString()));
    ArisWriter::Window window;
    QString why;
    if (!ArisWriter::computeWindow(writerOptions, window, &why))
        return mistake(why);
    if (!writer.open(path, writerOptions)) {
        std::fprintf(stderr, "nereon-make-aris: %s\n", qPrintable(writer.getErrorString()));
        return 1;
    }
    SourceFrame frame;
    while (passage.nextFrame(frame)) {
        if (!writer.write(frame)) {
            std::fprintf(stderr, "nereon-make-aris: %s\n", qPrintable(writer.getErrorString()));
            return 1;
        }
    }
    if (!writer.close()) {
        std::fprintf(stderr, "nereon-make-aris: %s\n", qPrintable(writer.getErrorString()));
        return 1;
    }
    if (parser.isSet(truth)) {
        const QString prefix = parser.value(truth);
        if (!passage.writeTruth(
                prefix + QStringLiteral("-fish.csv"), prefix + QStringLiteral("-positions.csv"), &why)) {
            std::fprintf(stderr, "nereon-make-aris: %s\n", qPrintable(why));
            return 1;
        }
    }
    std::printf("%s: %d frames of %d beams x %d samples, %.2f to %.2f m, %d fish\n", qPrintable(path),
        writer.getFramesWritten(), options.beams, options.samples, window.start,
        window.start + window.spacing * options.samples, options.fish);
    return 0;
}
