// nereon-count: counts the fish passing in sonar recordings, one recording per
// core, into CSV files for each recording and a summary of the run.

#include "CommandLineNumbers.h"
#include "analysis/FishCsv.h"
#include "analysis/RecordingCounter.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSet>
#include <QSettings>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <thread>
#include <unistd.h>

using namespace Halcyra::Nereon::Analysis;
using CommandLineNumbers::toInteger;
using CommandLineNumbers::toNumber;

namespace {

enum ExitStatus
{
    Success = 0,
    Failure = 1, ///< a recording could not be counted, or only up to damage
    Usage = 2,
};

struct CommandLine
{
    QStringList inputs;
    QString outDir = QStringLiteral(".");
    int jobs = 0; ///< 0: one per core
    int backgroundSamples = 60;
    CountOptions options;
    QString error;
    bool help = false;
};

/// One --direction value: which way is upstream, or the line fish cross.
bool applyDirection(const QString& text, CountOptions& options)
{
    const QString value = text.trimmed().toLower();
    if (value == QLatin1String("up-is-right")) {
        options.upstream = CountOptions::Upstream::TowardsPositiveBearing;
        return true;
    }
    if (value == QLatin1String("up-is-left")) {
        options.upstream = CountOptions::Upstream::TowardsNegativeBearing;
        return true;
    }
    double bearing = 0.0;
    if (value.startsWith(QLatin1String("line:")) && toNumber(value.mid(5), -180.0, 180.0, bearing)) {
        options.countLineBearingDeg = bearing;
        return true;
    }
    return false;
}

/// The options a settings file and the command line share: name, what it takes, help.
struct Setting
{
    const char* name;
    const char* value;
    const char* help;
};
const Setting settingsTable[] = {
    { "out", "DIR", "Where the CSV files go (default: the current folder)." },
    { "jobs", "N", "Recordings counted at once, one per thread (default: one per core)." },
    { "min-length", "M", "Shortest fish counted, metres (default 0.25)." },
    { "direction", "WHICH",
        "up-is-right (upstream is towards increasing bearing, the default), up-is-left, or line:DEG "
        "(only fish that cross the bearing DEG count, going up when they cross it upstream); may be given "
        "twice, e.g. up-is-left and line:5." },
    { "confirm-hits", "N", "Detections before a track counts as a fish (default 3)." },
    { "max-misses", "N", "Frames without a detection before a track ends (default 5)." },
    { "gate", "M", "Farthest a fish moves between frames and stays the same fish, metres (default 0.6)." },
    { "background-samples", "N",
        "Frames sampled across each recording to learn the background (default 60)." },
};

/// Applies one option to `line`; an error message, or empty.
QString apply(const QString& name, const QString& value, CommandLine& line)
{
    double number = 0.0;
    CountOptions& o = line.options;
    if (name == QLatin1String("out"))
        line.outDir = value;
    else if (name == QLatin1String("jobs") && !toInteger(value, 1, 4096, line.jobs))
        return QStringLiteral("--jobs needs a number of jobs from 1");
    else if (name == QLatin1String("min-length")) {
        if (!toNumber(value, 0.0, 100.0, number))
            return QStringLiteral("--min-length needs metres, 0 to 100");
        o.minLengthM = number;
    } else if (name == QLatin1String("direction")) {
        for (const QString& part : value.split(QLatin1Char(','), Qt::SkipEmptyParts))
            if (!applyDirection(part, o))
                return QStringLiteral(
                    "--direction takes up-is-right, up-is-left or line:DEG (-180 to 180), not '%1'")
                    .arg(part);
    } else if (name == QLatin1String("confirm-hits") && !toInteger(value, 1, 1000, o.confirmHits))
        return QStringLiteral("--confirm-hits needs 1 to 1000");
    else if (name == QLatin1String("max-misses") && !toInteger(value, 0, 1000, o.maxMisses))
        return QStringLiteral("--max-misses needs 0 to 1000");
    else if (name == QLatin1String("gate")) {
        if (!toNumber(value, 0.001, 100.0, number))
            return QStringLiteral("--gate needs metres, above 0 to 100");
        o.gateM = number;
    } else if (name == QLatin1String("background-samples")
        && !toInteger(value, 0, 10000, line.backgroundSamples))
        return QStringLiteral("--background-samples needs 0 to 10000");
    return QString();
}

/// Reads the [count] group of an INI file (keys as the long options) into `line`.
QString readSettings(const QString& path, CommandLine& line)
{
    if (!QFileInfo(path).isReadable())
        return QStringLiteral("cannot read the settings file %1").arg(path);
    QSettings settings(path, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError)
        return QStringLiteral("%1 is not an INI file").arg(path);
    settings.beginGroup(QStringLiteral("count"));
    for (const QString& key : settings.childKeys()) {
        const auto known = std::find_if(std::begin(settingsTable), std::end(settingsTable),
            [&](const Setting& s) { return key == QLatin1String(s.name); });
        if (known == std::end(settingsTable))
            return QStringLiteral("%1: unknown setting [count] %2").arg(path, key);
        // A list-valued INI entry (a,b) comes back as a string list.
        const QString error = apply(key, settings.value(key).toStringList().join(QLatin1Char(',')), line);
        if (!error.isEmpty())
            return QStringLiteral("%1: %2").arg(path, error);
    }
    return QString();
}

CommandLine parse(const QStringList& arguments)
{
    CommandLine line;
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Counts the fish passing through sonar recordings (the viewer's .nrec or ARIS .aris) and the way\n"
        "each one went. For each recording NAME it writes NAME.fish.csv (one row per fish) and\n"
        "NAME.tracks.csv (one row per fish per frame), and summary.csv for the whole run. A folder\n"
        "stands for every recording in it and below it.\n"
        "\n"
        "Exit status: 0 all counted, 1 a recording could not be counted or only up to damage in it,\n"
        "2 a mistake on the command line.");
    parser.addPositionalArgument("FILE_OR_FOLDER", "Recordings, or folders of them.", "FILE_OR_FOLDER...");
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption settings("settings",
        "An INI file whose [count] group holds any of the options below under their long names "
        "(min-length=0.3); the command line wins.",
        "FILE");
    parser.addOption(settings);
    std::vector<QCommandLineOption> options;
    for (const Setting& s : settingsTable) {
        options.emplace_back(
            QString::fromLatin1(s.name), QString::fromLatin1(s.help), QString::fromLatin1(s.value));
        parser.addOption(options.back());
    }
    if (!parser.parse(arguments)) {
        line.error = parser.errorText();
        return line;
    }
    if (parser.isSet(help)) {
        line.help = true;
        line.error = parser.helpText();
        return line;
    }
    line.inputs = parser.positionalArguments();
    if (line.inputs.isEmpty()) {
        line.error = QStringLiteral("give at least one recording or folder (see --help)");
        return line;
    }
    if (parser.isSet(settings)) {
        line.error = readSettings(parser.value(settings), line);
        if (!line.error.isEmpty())
            return line;
    }
    for (const QCommandLineOption& option : options) {
        const QString name = option.names().constFirst();
        // --direction may be given more than once: each value is applied in turn.
        for (const QString& value : parser.values(option)) {
            line.error = apply(name, value, line);
            if (!line.error.isEmpty())
                return line;
        }
    }
    return line;
}

bool isRecording(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    return suffix == QLatin1String("aris") || suffix == QLatin1String("nrec");
}

/// The recordings named on the command line, folders searched below; problems in `errors`.
QStringList findRecordings(const QStringList& inputs, QStringList& errors)
{
    QStringList files;
    for (const QString& input : inputs) {
        const QFileInfo info(input);
        if (info.isDir()) {
            QStringList found;
            QDirIterator it(input, QDir::Files | QDir::Readable,
                QDirIterator::Subdirectories | QDirIterator::FollowSymlinks);
            while (it.hasNext()) {
                const QString path = it.next();
                if (isRecording(path))
                    found << path;
            }
            if (found.isEmpty())
                errors << QStringLiteral("no .aris or .nrec recording in %1").arg(input);
            found.sort();
            files << found;
        } else {
            // A file is counted whatever its name: the reader tells its format from its bytes.
            files << input;
        }
    }
    return files;
}

/// NAME of NAME.fish.csv for each file: the recording's name, numbered where two share one.
QStringList outputNames(const QStringList& files)
{
    QStringList names;
    QSet<QString> taken;
    for (const QString& file : files) {
        const QString base = QFileInfo(file).completeBaseName();
        QString name = base;
        for (int n = 2; taken.contains(name); ++n)
            name = QStringLiteral("%1-%2").arg(base).arg(n);
        taken.insert(name);
        names << name;
    }
    return names;
}

QString formatDuration(double seconds)
{
    const long s = std::lround(std::max(0.0, seconds));
    return s >= 3600 ? QString::asprintf("%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60)
                     : QString::asprintf("%ld:%02ld", s / 60, s % 60);
}

/// Where one recording is, shared between its job and the progress line.
struct Job
{
    std::atomic<int> done { 0 };
    std::atomic<int> total { 0 };
    std::atomic<bool> finished { false };
    std::int64_t bytes = 0;
};

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const CommandLine line = parse(QCoreApplication::arguments());
    if (line.help) {
        std::printf("%s", qPrintable(line.error));
        return Success;
    }
    if (!line.error.isEmpty()) {
        std::fprintf(stderr, "nereon-count: %s\n", qPrintable(line.error));
        return Usage;
    }

    QStringList problems;
    const QStringList files = findRecordings(line.inputs, problems);
    for (const QString& problem : problems)
        std::fprintf(stderr, "nereon-count: %s\n", qPrintable(problem));
    if (!QDir().mkpath(line.outDir)) {
        std::fprintf(stderr, "nereon-count: cannot make the folder %s\n", qPrintable(line.outDir));
        return Failure;
    }
    const QDir out(line.outDir);
    const QStringList names = outputNames(files);

    // Every core counts a recording of its own; OpenCV's pool would only compete with them.
    RecordingCounter::setLibraryThreads(1);
    const int jobCount
        = std::max(1, std::min<int>(line.jobs > 0 ? line.jobs : QThread::idealThreadCount(), files.size()));

    std::vector<Job> jobs(std::size_t(files.size()));
    std::int64_t allBytes = 0;
    for (int i = 0; i < files.size(); ++i) {
        jobs[std::size_t(i)].bytes = std::max<std::int64_t>(1, QFileInfo(files[i]).size());
        allBytes += jobs[std::size_t(i)].bytes;
    }
    std::vector<RecordingCount> results(std::size_t(files.size()));
    std::atomic<int> next { 0 };
    std::atomic<int> failures { 0 };
    std::mutex messages;
    const bool terminal = isatty(fileno(stderr)) && isatty(fileno(stdout));
    bool progressShown = false;

    auto say = [&](const QString& text) {
        const std::lock_guard<std::mutex> lock(messages);
        if (progressShown)
            std::fprintf(stderr, "\r\033[K");
        std::fprintf(stderr, "nereon-count: %s\n", qPrintable(text));
    };

    auto work = [&] {
        RecordingCounter counter(line.options);
        counter.setBackgroundSamples(line.backgroundSamples);
        for (int i = next++; i < files.size(); i = next++) {
            Job& job = jobs[std::size_t(i)];
            counter.setProgress([&job](int done, int total) {
                job.done = done;
                job.total = total;
                return true;
            });
            RecordingCount& result = results[std::size_t(i)];
            const bool counted = counter.count(files[i], result);
            job.finished = true;
            if (!counted) {
                say(result.error);
                ++failures;
                continue;
            }
            QString error;
            if (!FishCsv::writeFish(out.filePath(names[i] + QStringLiteral(".fish.csv")), result.fish, &error)
                || !FishCsv::writeTracks(
                    out.filePath(names[i] + QStringLiteral(".tracks.csv")), result.trackPoints, &error)) {
                say(error);
                result.error = error;
                ++failures;
            } else if (!result.damage.isEmpty()) {
                say(QStringLiteral("counted up to the damage: %1").arg(result.damage));
                ++failures;
            }
            // The track points are on disk now; only the summary's figures are kept.
            result.fish = {};
            result.trackPoints = {};
        }
    };

    QElapsedTimer clock;
    clock.start();
    std::vector<std::thread> threads;
    for (int t = 0; t < jobCount; ++t)
        threads.emplace_back(work);
    while (terminal) {
        int finished = 0;
        long frames = 0;
        double bytesDone = 0.0;
        for (const Job& job : jobs) {
            frames += job.done;
            if (job.finished)
                ++finished, bytesDone += double(job.bytes);
            else if (job.total > 0)
                bytesDone += double(job.bytes) * job.done / job.total;
        }
        if (finished == files.size())
            break;
        const double seconds = double(clock.elapsed()) / 1000.0;
        const double rate = seconds > 0.0 ? bytesDone / seconds : 0.0;
        {
            const std::lock_guard<std::mutex> lock(messages);
            std::fprintf(stderr, "\r\033[K%d/%d files  %ld frames  %.0f frames/s  %s left", finished,
                int(files.size()), frames, seconds > 0.0 ? frames / seconds : 0.0,
                rate > 0.0 ? qPrintable(formatDuration((double(allBytes) - bytesDone) / rate)) : "?");
            std::fflush(stderr);
            progressShown = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
    }
    for (std::thread& thread : threads)
        thread.join();
    if (progressShown)
        std::fprintf(stderr, "\r\033[K");

    QString error;
    if (!FishCsv::writeSummary(out.filePath(QStringLiteral("summary.csv")), results, &error)) {
        std::fprintf(stderr, "nereon-count: %s\n", qPrintable(error));
        return Failure;
    }
    if (terminal) {
        int up = 0, down = 0;
        long frames = 0;
        for (const RecordingCount& r : results)
            up += r.upstream, down += r.downstream, frames += r.frames;
        const double seconds = double(clock.elapsed()) / 1000.0;
        std::fprintf(stderr, "%d recordings, %ld frames in %s (%.0f frames/s): %d fish up, %d down\n",
            int(files.size()), frames, qPrintable(formatDuration(seconds)),
            seconds > 0 ? frames / seconds : 0.0, up, down);
    }
    return failures > 0 || !problems.isEmpty() ? Failure : Success;
}
