// Counting recordings: the CSV files, cancelling, and the counts of generated
// passages against the fish drawn into them.

#include "CountEvaluation.h"

#include "analysis/FishCsv.h"
#include "analysis/RecordingCounter.h"
#include "sources/ArisWriter.h"
#include "sources/SyntheticPassage.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <limits>
#include <sys/stat.h>
#include <thread>

using namespace Halcyra::Nereon::Analysis;
using namespace Halcyra::Nereon::Sources;

namespace {

/// Writes a generated passage to `path` and returns its options (for its truth).
bool writePassage(const QString& path, const SyntheticPassageOptions& options)
{
    SyntheticPassage passage(options);
    ArisWriter writer;
    if (!writer.open(path, passage.getWriterOptions()))
        return false;
    SourceFrame frame;
    while (passage.nextFrame(frame))
        if (!writer.write(frame))
            return false;
    return writer.close();
}

} // namespace

class TestCount : public QObject
{
    Q_OBJECT

private slots:
    void formatsTimes_data();
    void formatsTimes();
    void writesWholeFilesOnly();
    void cancelsFromProgress();
    void countsWithinAims();
};

void TestCount::formatsTimes_data()
{
    QTest::addColumn<qint64>("microseconds");
    QTest::addColumn<QString>("text");
    QTest::newRow("epoch") << qint64(0) << "1970-01-01T00:00:00.000000Z";
    QTest::newRow("microseconds kept") << qint64(1714564800123456) << "2024-05-01T12:00:00.123456Z";
    QTest::newRow("before 1970") << qint64(-1) << "1969-12-31T23:59:59.999999Z";
}

void TestCount::formatsTimes()
{
    QFETCH(qint64, microseconds);
    QFETCH(QString, text);
    QCOMPARE(FishCsv::formatTime(microseconds), text);
}

void TestCount::writesWholeFilesOnly()
{
    QTemporaryDir dir;
    FishRecord fish;
    fish.id = 7;
    fish.firstFrame = 12;
    fish.lastFrame = 40;
    fish.firstTime = 1714564800000000;
    fish.lastTime = 1714564802800000;
    fish.direction = Direction::Down;
    fish.lengthM = 0.6245;
    fish.rangeM = 8.5;
    fish.bearingDeg = -3.25;
    fish.speedMS = std::numeric_limits<double>::quiet_NaN(); // unknown: an empty field
    fish.detections = 20;

    const mode_t old = umask(027);
    QString error;
    const bool written = FishCsv::writeFish(dir.filePath("a.fish.csv"), { fish }, &error);
    umask(old);
    QVERIFY2(written, qPrintable(error));
    QFile file(dir.filePath("a.fish.csv"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(),
        QByteArray(
            "fish_id,first_frame,last_frame,first_time,last_time,direction,length_m,range_m,bearing_deg,"
            "speed_m_s,detections\n"
            "7,12,40,2024-05-01T12:00:00.000000Z,2024-05-01T12:00:02.800000Z,down,0.625,8.500,-3.250,,20\n"));
    QCOMPARE(file.permissions() & (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther),
        QFile::Permissions(QFile::ReadGroup));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList { "a.fish.csv" });

    QVERIFY(!FishCsv::writeTracks(dir.filePath("missing/a.tracks.csv"), {}, &error));
    QVERIFY2(error.contains("a.tracks.csv"), qPrintable(error));
}

void TestCount::cancelsFromProgress()
{
    QTemporaryDir dir;
    SyntheticPassageOptions options;
    options.frames = 40;
    QVERIFY(writePassage(dir.filePath("p.aris"), options));
    RecordingCounter counter;
    counter.setProgress([](int done, int total) { return !(done == 10 && total == 40); });
    RecordingCount result;
    QVERIFY(!counter.count(dir.filePath("p.aris"), result));
    QVERIFY(result.cancelled);
    QCOMPARE(result.frames, 10);
}

void TestCount::countsWithinAims()
{
    // Six passages of a minute at 10 Hz: fish both ways, faint ones, crossings, rocks.
    constexpr int files = 6;
    QTemporaryDir dir;
    std::vector<SyntheticPassageOptions> passages(files);
    for (int i = 0; i < files; ++i) {
        passages[std::size_t(i)].frames = 600;
        passages[std::size_t(i)].seed = std::uint64_t(101 + i);
        QVERIFY(writePassage(
            dir.filePath(QStringLiteral("passage%1.aris").arg(i + 1)), passages[std::size_t(i)]));
    }
    std::vector<RecordingCount> counts(files);
    RecordingCounter::setLibraryThreads(1);
    std::vector<std::thread> jobs;
    for (int job = 0; job < 2; ++job)
        jobs.emplace_back([&, job] {
            RecordingCounter counter;
            for (int i = job; i < files; i += 2)
                counter.count(
                    dir.filePath(QStringLiteral("passage%1.aris").arg(i + 1)), counts[std::size_t(i)]);
        });
    for (std::thread& job : jobs)
        job.join();

    CountScore total;
    total.name = QStringLiteral("all");
    QString table = CountScore::header() + '\n';
    for (int i = 0; i < files; ++i) {
        QVERIFY2(counts[std::size_t(i)].error.isEmpty(), qPrintable(counts[std::size_t(i)].error));
        const SyntheticPassage truth(passages[std::size_t(i)]);
        const CountScore score = scoreCount(QStringLiteral("passage%1").arg(i + 1), truth.getFish(),
            truth.getPositions(), counts[std::size_t(i)].fish, counts[std::size_t(i)].trackPoints);
        total.add(score);
        table += score.row() + '\n';
    }
    table += total.row();
    qInfo().noquote() << "\n" << table;

    // Brief fish are cut by the recording's ends or seen for a moment: they are not
    // all countable, and recall is judged without them.
    QVERIFY2(std::abs(total.countError()) <= 0.15, qPrintable(table));
    QVERIFY2(total.steadyRecall() >= 0.85, qPrintable(table));
    QVERIFY2(total.precision() >= 0.85, qPrintable(table));
    QVERIFY2(total.split <= total.truth / 10, qPrintable(table));
    QVERIFY2(total.directionAgreement() >= 0.9, qPrintable(table));
    QVERIFY2(total.medianLengthError() <= 0.15, qPrintable(table));
}

QTEST_GUILESS_MAIN(TestCount)
#include "tst_count.moc"
