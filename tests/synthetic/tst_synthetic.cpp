#include "sources/ArisReader.h"
#include "sources/ArisWriter.h"
#include "sources/FrameReader.h"
#include "sources/SyntheticPassage.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <vector>

using namespace Halcyra::Nereon::Sources;

class TestSynthetic : public QObject
{
    Q_OBJECT

private slots:
    void writerRoundTrip_data();
    void writerRoundTrip();
    void writerRefuses_data();
    void writerRefuses();
    void deterministicPerSeed();
    void truthMatchesPicture();
    void commandLine_data();
    void commandLine();
    void commandLineTruth();

private:
    QTemporaryDir folder;
};

void TestSynthetic::writerRoundTrip_data()
{
    QTest::addColumn<int>("beams");
    QTest::addColumn<int>("samples");
    QTest::addColumn<double>("windowStart");
    QTest::addColumn<double>("windowLength");
    QTest::addColumn<bool>("telephoto");
    QTest::newRow("48 beams") << 48 << 1000 << 2.0 << 15.0 << false;
    QTest::newRow("96 beams, telephoto") << 96 << 700 << 0.8 << 9.5 << true;
    QTest::newRow("64 beams, from the sonar") << 64 << 333 << 0.0 << 4.0 << false;
    QTest::newRow("128 beams, far window") << 128 << 2000 << 12.3 << 31.7 << false;
}

// Frames written are read back as they were made: samples, bearings, window, times.
void TestSynthetic::writerRoundTrip()
{
    QFETCH(int, beams);
    QFETCH(int, samples);
    QFETCH(double, windowStart);
    QFETCH(double, windowLength);
    QFETCH(bool, telephoto);
    SyntheticPassageOptions options;
    options.beams = beams;
    options.samples = samples;
    options.windowStart = windowStart;
    options.windowLength = windowLength;
    options.telephoto = telephoto;
    options.frames = 4;
    options.frameRate = 7.5;
    options.fish = 3;
    SyntheticPassage passage(options);
    const QString path = folder.filePath(QStringLiteral("round-trip-%1.aris").arg(beams));
    ArisWriter writer;
    QVERIFY2(writer.open(path, passage.getWriterOptions()), qPrintable(writer.getErrorString()));
    std::vector<SourceFrame> written;
    SourceFrame frame;
    while (passage.nextFrame(frame)) {
        QVERIFY2(writer.write(frame), qPrintable(writer.getErrorString()));
        written.push_back(frame);
    }
    // A frame of another size would make the file unreadable from there on.
    options.samples += 1;
    QVERIFY(SyntheticPassage(options).renderFrame(0, frame));
    QVERIFY(!writer.write(frame));
    QVERIFY(writer.close());

    ArisReader reader;
    QVERIFY2(reader.open(path), qPrintable(reader.getErrorString()));
    QVERIFY(!reader.hasDamage());
    QCOMPARE(reader.getFrameCount(), options.frames);
    const SonarDescription description = reader.getDescription();
    QCOMPARE(description.beamCount, beams);
    QCOMPARE(description.samplesPerBeam, samples);
    // The start moves by under half a microsecond of travel; the length is kept.
    QVERIFY(std::abs(description.windowStart - windowStart) < 4e-4);
    QVERIFY(std::abs(description.windowLength - windowLength) < 1e-5 * windowLength);
    QVERIFY(std::abs(description.frameRate - 7.5) < 1e-6);
    for (int i = 0; i < options.frames; ++i) {
        QVERIFY(reader.readFrame(i, frame));
        const SourceFrame& expected = written[std::size_t(i)];
        QCOMPARE(frame.timestamp, expected.timestamp);
        QCOMPARE(frame.firstSampleRow, expected.firstSampleRow);
        QCOMPARE(frame.windowStart, expected.windowStart);
        QCOMPARE(frame.image.getHeight(), expected.image.getHeight());
        QCOMPARE(frame.image.getRange(), expected.image.getRange());
        QCOMPARE(frame.image.getBearings(), expected.image.getBearings());
        QVERIFY(frame.image.getData() == expected.image.getData());
    }
    QCOMPARE(reader.getTimestamp(3) - reader.getTimestamp(0), std::int64_t(400000));
}

void TestSynthetic::writerRefuses_data()
{
    QTest::addColumn<int>("beams");
    QTest::addColumn<bool>("telephoto");
    QTest::addColumn<int>("samples");
    QTest::addColumn<double>("windowStart");
    QTest::newRow("beams of no sonar") << 50 << false << 1000 << 2.0;
    QTest::newRow("ARIS 3000 telephoto") << 128 << true << 1000 << 2.0;
    QTest::newRow("samples beyond the format") << 48 << false << 9000 << 2.0;
    QTest::newRow("window before the sonar") << 48 << false << 1000 << -1.0;
}

void TestSynthetic::writerRefuses()
{
    QFETCH(int, beams);
    QFETCH(bool, telephoto);
    QFETCH(int, samples);
    QFETCH(double, windowStart);
    ArisWriterOptions options;
    options.beams = beams;
    options.telephoto = telephoto;
    options.samplesPerBeam = samples;
    options.windowStart = windowStart;
    ArisWriter writer;
    QVERIFY(!writer.open(folder.filePath(QStringLiteral("refused.aris")), options));
    QVERIFY(writer.getErrorString().contains(QStringLiteral("refused.aris")));
    QVERIFY(!writer.isOpen());
}

void TestSynthetic::deterministicPerSeed()
{
    SyntheticPassageOptions options;
    options.frames = 40;
    options.fish = 10;
    SyntheticPassage first(options), second(options);
    options.seed = 2;
    SyntheticPassage other(options);

    QCOMPARE(first.getPositions().size(), std::size_t(40 * 10));
    for (std::size_t i = 0; i < first.getPositions().size(); ++i) {
        QCOMPARE(first.getPositions()[i].rangeM, second.getPositions()[i].rangeM);
        QCOMPARE(first.getPositions()[i].bearingDeg, second.getPositions()[i].bearingDeg);
    }
    QVERIFY(first.getPositions()[0].rangeM != other.getPositions()[0].rangeM);
    SourceFrame a, b, c, alone;
    for (int i = 0; i < options.frames; ++i) {
        QVERIFY(first.nextFrame(a) && second.nextFrame(b) && other.nextFrame(c));
        QVERIFY(a.image.getData() == b.image.getData());
        QVERIFY(a.image.getData() != c.image.getData());
    }
    QVERIFY(!first.nextFrame(a));
    // Any frame drawn alone is the frame drawn in turn.
    QVERIFY(first.renderFrame(17, alone));
    first.rewind();
    for (int i = 0; i <= 17; ++i)
        QVERIFY(first.nextFrame(a));
    QCOMPARE(a.index, 17);
    QVERIFY(a.image.getData() == alone.image.getData());
}

// Where the truth puts a fish, the picture has its echo: the centre of what the fish
// adds to the bed lies at the fish's true range and bearing.
void TestSynthetic::truthMatchesPicture()
{
    SyntheticPassageOptions options;
    options.frames = 300;
    options.fish = 12;
    options.seed = 7;
    options.faintFraction = 0.25;
    options.crossingFraction = 0.34;
    options.briefFraction = 0.17;
    SyntheticPassage passage(options);
    options.fish = 0;
    SyntheticPassage bed(options);

    const auto& fish = passage.getFish();
    int faint = 0, brief = 0;
    for (const SyntheticFish& f : fish) {
        faint += f.faint;
        brief += f.brief;
        QVERIFY(f.lengthM >= 0.3 && f.lengthM <= 1.2);
        QVERIFY(f.speedMS >= 0.3 && f.speedMS <= 1.5);
        QVERIFY2(f.firstFrame >= 0 && f.firstFrame <= f.lastFrame, qPrintable(QString::number(f.id)));
    }
    QCOMPARE(faint, 3);
    QCOMPARE(brief, 2);

    const auto& positions = passage.getPositions();
    const auto at = [&](int id, int frame) { return positions[std::size_t(frame * 12 + id)]; };
    int checked = 0;
    for (const SyntheticFish& f : fish) {
        // Direction and speed as the truth says, over its visible frames.
        const SyntheticFishPosition first = at(f.id, f.firstFrame), last = at(f.id, f.lastFrame);
        if (f.lastFrame > f.firstFrame) {
            QCOMPARE(last.bearingDeg > first.bearingDeg, f.up);
            const double metres = std::hypot(last.rangeM * std::sin(last.bearingDeg * M_PI / 180)
                    - first.rangeM * std::sin(first.bearingDeg * M_PI / 180),
                last.rangeM * std::cos(last.bearingDeg * M_PI / 180)
                    - first.rangeM * std::cos(first.bearingDeg * M_PI / 180));
            QVERIFY(std::abs(metres / ((f.lastFrame - f.firstFrame) / options.frameRate) - f.speedMS) < 1e-6);
        }

        for (int frame = f.firstFrame; frame <= f.lastFrame; frame += 2) {
            const SyntheticFishPosition truth = at(f.id, frame);
            QVERIFY(truth.visible);
            const double b = truth.bearingDeg * M_PI / 180.0;
            const double x = truth.rangeM * std::sin(b), y = truth.rangeM * std::cos(b);
            bool alone = true;
            for (const SyntheticFish& g : fish) {
                const SyntheticFishPosition o = at(g.id, frame);
                const double ob = o.bearingDeg * M_PI / 180.0;
                alone = alone
                    && (g.id == f.id
                        || std::hypot(o.rangeM * std::sin(ob) - x, o.rangeM * std::cos(ob) - y) > 3.0);
            }
            // Whole fish only: away from the fan's sides.
            const auto& bearings = passage.getBearings();
            if (!truth.visible || !alone || truth.bearingDeg < bearings.front() / 100.0 + 4.0
                || truth.bearingDeg > bearings.back() / 100.0 - 4.0)
                continue;
            SourceFrame withFish, without;
            QVERIFY(passage.renderFrame(frame, withFish) && bed.renderFrame(frame, without));
            const int width = withFish.image.getWidth();
            const double spacing = withFish.image.getRange() / withFish.image.getHeight();
            double weight = 0.0, sumX = 0.0, sumY = 0.0;
            for (int row = withFish.firstSampleRow; row < withFish.image.getHeight(); ++row) {
                const double range = withFish.windowStart + (row - withFish.firstSampleRow) * spacing;
                for (int column = 0; column < width; ++column) {
                    const std::size_t i = std::size_t(row) * std::size_t(width) + std::size_t(column);
                    const double added
                        = double(withFish.image.getData()[i]) - double(without.image.getData()[i]);
                    if (added <= 0.0)
                        continue;
                    const double bearing = bearings[std::size_t(column)] / 100.0 * M_PI / 180.0;
                    const double px = range * std::sin(bearing), py = range * std::cos(bearing);
                    if (std::hypot(px - x, py - y) > 1.5)
                        continue;
                    weight += added;
                    sumX += added * px;
                    sumY += added * py;
                }
            }
            QVERIFY(weight > 0.0);
            const double off = std::hypot(sumX / weight - x, sumY / weight - y);
            QVERIFY2(off < 0.08 + 0.1 * f.lengthM,
                qPrintable(QStringLiteral("fish %1 in frame %2: echo %3 m from its truth")
                               .arg(f.id)
                               .arg(frame)
                               .arg(off)));
            ++checked;
        }
    }
    QVERIFY2(checked >= 40, qPrintable(QString::number(checked)));
}

void TestSynthetic::commandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("help") << QStringList { "--help" } << 0;
    QTest::newRow("no file") << QStringList { "--frames", "3" } << 2;
    QTest::newRow("beams of no sonar") << QStringList { "x.aris", "--beams", "50" } << 2;
    QTest::newRow("frames not a number") << QStringList { "x.aris", "--frames", "many" } << 2;
    QTest::newRow("unknown option") << QStringList { "x.aris", "--colour" } << 2;
    QTest::newRow("window too fine") << QStringList { "x.aris", "--samples", "8000", "--window-length",
        "0.5" } << 2;
}

void TestSynthetic::commandLine()
{
#ifndef NEREON_MAKE_ARIS
    QSKIP("nereon-make-aris is not built");
#else
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QProcess program;
    program.setWorkingDirectory(folder.path());
    program.start(QStringLiteral(NEREON_MAKE_ARIS), arguments);
    QVERIFY(program.waitForFinished(30000));
    QCOMPARE(program.exitCode(), exitCode);
    QVERIFY(!QFile::exists(folder.filePath(QStringLiteral("x.aris"))));
#endif
}

void TestSynthetic::commandLineTruth()
{
#ifndef NEREON_MAKE_ARIS
    QSKIP("nereon-make-aris is not built");
#else
    QProcess program;
    const QString path = folder.filePath(QStringLiteral("small.aris"));
    const QString prefix = folder.filePath(QStringLiteral("small"));
    program.start(QStringLiteral(NEREON_MAKE_ARIS),
        { path, "--frames", "30", "--beams", "96", "--samples", "400", "--fish", "5", "--seed", "3",
            "--window-start", "1.5", "--window-length", "12", "--frame-rate", "12", "--truth", prefix });
    QVERIFY(program.waitForFinished(30000));
    QVERIFY2(program.exitCode() == 0, program.readAllStandardError().constData());

    QString error;
    const auto reader = FrameReader::create(path, &error);
    QVERIFY2(reader, qPrintable(error));
    QCOMPARE(reader->getFrameCount(), 30);
    QCOMPARE(reader->getDescription().beamCount, 96);
    QCOMPARE(reader->getDescription().samplesPerBeam, 400);
    QVERIFY(std::abs(reader->getDescription().frameRate - 12.0) < 1e-6);

    const auto lines = [](const QString& file) {
        QFile f(file);
        return f.open(QIODevice::ReadOnly) ? QString::fromLatin1(f.readAll()).split('\n', Qt::SkipEmptyParts)
                                           : QStringList();
    };
    const QStringList fish = lines(prefix + "-fish.csv");
    QCOMPARE(fish.size(), 1 + 5);
    QCOMPARE(fish.first(),
        QStringLiteral("fish_id,first_frame,last_frame,direction,length_m,speed_m_s,faint,brief"));
    QVERIFY(fish[1].contains(",up,") || fish[1].contains(",down,"));
    const QStringList positions = lines(prefix + "-positions.csv");
    QCOMPARE(positions.size(), 1 + 30 * 5);
    QCOMPARE(positions.first(), QStringLiteral("fish_id,frame,range_m,bearing_deg,visible"));
    QCOMPARE(positions.last().split(',').size(), 5);
#endif
}

QTEST_GUILESS_MAIN(TestSynthetic)
#include "tst_synthetic.moc"
