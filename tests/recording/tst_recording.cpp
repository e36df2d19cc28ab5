#include "Crc32c.h"
#include "sources/FramePlayer.h"
#include "sources/FrameRecorder.h"
#include "RecordingFormat.h"
#include "sources/RecordingReader.h"
#include "sources/RecordingWriter.h"
#include "SonarScene.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <cstring>
#include <limits>
#include <random>
#include <vector>

using Halcyra::Nereon::NereonImage;
using namespace Halcyra::Nereon::Sources;

namespace {

/// A frame that depends on `seed` alone: smooth echoes (compressible) and some noise.
NereonImage makeFrame(int seed, int width = 64, int height = 50)
{
    std::mt19937 random(std::uint32_t(seed) * 2654435761u + 1);
    std::vector<std::uint8_t> intensities(std::size_t(width) * height);
    for (int row = 0; row < height; ++row)
        for (int beam = 0; beam < width; ++beam)
            intensities[std::size_t(row) * width + beam]
                = std::uint8_t((row * 3 + beam + seed) / 4 + (random() % 8 == 0 ? random() % 64 : 0));
    std::vector<std::int16_t> bearings(static_cast<std::size_t>(width));
    for (int beam = 0; beam < width; ++beam)
        bearings[std::size_t(beam)] = std::int16_t(-6000 + beam * 12000 / std::max(1, width - 1));
    return NereonImage(std::uint16_t(width), std::uint16_t(height), std::move(intensities),
        std::move(bearings), 10.0 + seed * 0.1, 0.5 * seed);
}

bool sameBits(double a, double b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

/// Byte for byte, including what the frame's layout does not account for.
bool identical(const NereonImage& a, const NereonImage& b)
{
    return a.getWidth() == b.getWidth() && a.getHeight() == b.getHeight() && a.getData() == b.getData()
        && a.getBearings() == b.getBearings() && sameBits(a.getRange(), b.getRange())
        && sameBits(a.getGain(), b.getGain());
}

/// Writes `frames` 20 ms apart; returns each record's offset and, last, the file size.
std::vector<qint64> writeRecording(const QString& path, const std::vector<NereonImage>& frames)
{
    std::vector<qint64> offsets;
    RecordingWriter writer;
    if (!writer.open(path, 1700000000000))
        return offsets;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        offsets.push_back(writer.getBytesWritten());
        writer.write(frames[i], qint64(i) * 20000);
    }
    offsets.push_back(writer.getBytesWritten());
    return offsets;
}

/// Reads frames until the first that fails; returns how many were good and equal to `expected`.
int readGoodFrames(RecordingReader& reader, const std::vector<NereonImage>& expected)
{
    int good = 0;
    for (int i = 0; i < reader.getFrameCount(); ++i) {
        SourceFrame frame;
        if (!reader.readFrame(i, frame) || i >= int(expected.size()) || !identical(frame.image, expected[i]))
            break;
        ++good;
    }
    return good;
}

/// The child process of killedRecorderKeepsWholeFrames: records until it is killed.
int recordUntilKilled(const QString& path)
{
    FrameRecorder recorder;
    if (!recorder.start(path))
        return 3;
    for (int i = 0;; ++i) {
        recorder.record(makeFrame(i, 256, 200));
        QThread::msleep(3);
    }
}

constexpr int frameCount = 6;

} // namespace

class TestRecording : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir folder;
    std::vector<NereonImage> frames;
    std::vector<qint64> offsets; ///< of each record in reference.nrc, then its size
    QByteArray reference;

private slots:
    void initTestCase()
    {
        QVERIFY(folder.isValid());
        for (int i = 0; i < frameCount; ++i)
            frames.push_back(makeFrame(i));
        offsets = writeRecording(folder.filePath("reference.nrc"), frames);
        QCOMPARE(int(offsets.size()), frameCount + 1);
        QFile file(folder.filePath("reference.nrc"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        reference = file.readAll();
        QCOMPARE(qint64(reference.size()), offsets.back());
    }

    void checksumIsCrc32c()
    {
        // The published check value, so that other programs can verify recordings.
        QCOMPARE(Crc32c::compute("123456789", 9), 0xe3069283u);
        // In pieces of any length, as the writer feeds it.
        const QByteArray text = QByteArray("123456789").repeated(7);
        std::uint32_t crc = 0;
        for (int i = 0; i < text.size(); i += 5)
            crc = Crc32c::update(crc, text.constData() + i, std::size_t(std::min(5, int(text.size()) - i)));
        QCOMPARE(crc, Crc32c::compute(text.constData(), std::size_t(text.size())));
    }

    void roundTrip_data()
    {
        QTest::addColumn<NereonImage>("frame");
        QTest::addColumn<qint64>("timestamp");
        const SonarConfiguration sonar { 512, 130.0, 40.0, 1000, 40 };
        QTest::newRow("simulated sonar 512 x 1000") << SonarScene(sonar).renderFrame(1.5) << qint64(25000);
        std::mt19937 random(7);
        std::vector<std::uint8_t> noise(300 * 200);
        for (auto& byte : noise)
            byte = std::uint8_t(random());
        QTest::newRow("incompressible")
            << NereonImage(300, 200, noise, makeFrame(1, 300, 1).getBearings(), 5.0, 1.0) << qint64(0);
        QTest::newRow("empty") << NereonImage() << qint64(1);
        // Frames the display would reject still come back as they went in.
        QTest::newRow("data and bearings short of the layout") << NereonImage(40, 30,
            std::vector<std::uint8_t>(37, 9), { -5, 3, 2 }, std::numeric_limits<double>::quiet_NaN(), -0.0)
                                                               << qint64(36) * 3600 * 1000000;
    }

    void roundTrip()
    {
        QFETCH(NereonImage, frame);
        QFETCH(qint64, timestamp);
        const QString path = folder.filePath("round-trip.nrc");
        {
            RecordingWriter writer;
            QVERIFY(writer.open(path, 1700000000123));
            QVERIFY(writer.write(frame, timestamp));
            QVERIFY(writer.write(makeFrame(3), timestamp + 1));
        }
        RecordingReader reader;
        QVERIFY2(reader.open(path), qPrintable(reader.getErrorString()));
        QCOMPARE(reader.getStartTime(), qint64(1700000000123));
        QCOMPARE(reader.getFrameCount(), 2);
        QVERIFY(!reader.hasDamage());
        // Timestamps come back as wall-clock time: the start plus the time into the recording.
        const qint64 start = qint64(1700000000123) * 1000;
        SourceFrame read;
        QVERIFY(reader.readFrame(0, read));
        QVERIFY(identical(read.image, frame));
        QCOMPARE(read.timestamp, start + timestamp);
        QCOMPARE(reader.getTimestamp(0), start + timestamp);
        QVERIFY(reader.readFrame(1, read));
        QVERIFY(identical(read.image, makeFrame(3)));
        QCOMPARE(reader.getTimestamp(1), start + timestamp + 1);
    }

    void damagedFile_data()
    {
        // How the reference file is spoiled, how many frames remain readable, where reading stops.
        QTest::addColumn<QString>("damage");
        QTest::addColumn<qint64>("position");
        QTest::addColumn<bool>("opens");
        QTest::addColumn<int>("goodFrames");
        QTest::addColumn<qint64>("stopsAt");
        const qint64 header = RecordingFormat::recordHeaderSize;
        const qint64 end = offsets.back();
        QTest::newRow("missing") << "remove" << qint64(0) << false << 0 << qint64(-1);
        QTest::newRow("not a recording") << "replace" << qint64(0) << false << 0 << qint64(0);
        QTest::newRow("file header flipped") << "flip" << qint64(9) << false << 0 << qint64(0);
        QTest::newRow("record marker flipped") << "flip" << offsets[3] << true << 3 << offsets[3];
        QTest::newRow("record size flipped") << "flip" << offsets[3] + 9 << true << 3 << offsets[3];
        QTest::newRow("timestamp flipped") << "flip" << offsets[2] + 13 << true << 2 << offsets[2];
        QTest::newRow("frame layout flipped") << "flip" << offsets[4] + header + 1 << true << 4 << offsets[4];
        QTest::newRow("first payload flipped") << "flip" << offsets[0] + 40 << false << 0 << offsets[0];
        QTest::newRow("intensities flipped") << "flip" << offsets[5] - 3 << true << 4 << offsets[4];
        QTest::newRow("last byte flipped") << "flip" << end - 1 << true << 5 << offsets[5];
        QTest::newRow("cut in the file header") << "cut" << qint64(20) << false << 0 << qint64(0);
        QTest::newRow("cut after the file header") << "cut" << qint64(32) << false << 0 << qint64(-1);
        QTest::newRow("cut in a record header") << "cut" << offsets[2] + 10 << true << 2 << offsets[2];
        QTest::newRow("cut in a payload") << "cut" << offsets[4] + header + 5 << true << 4 << offsets[4];
        QTest::newRow("last byte cut") << "cut" << end - 1 << true << 5 << offsets[5];
        QTest::newRow("cut between records") << "cut" << offsets[3] << true << 3 << qint64(-1);
        QTest::newRow("garbage appended") << "append" << end << true << 6 << end;
    }

    void damagedFile()
    {
        QFETCH(QString, damage);
        QFETCH(qint64, position);
        QFETCH(bool, opens);
        QFETCH(int, goodFrames);
        QFETCH(qint64, stopsAt);
        QByteArray bytes = reference;
        if (damage == "flip")
            bytes[int(position)] = char(bytes[int(position)] ^ 0x10);
        else if (damage == "cut")
            bytes.truncate(int(position));
        else
            bytes = damage == "append" ? bytes + QByteArray(100, 'x') : QByteArray(1000, 'a');
        const QString path = folder.filePath("damaged.nrc");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes);
        file.close();
        if (damage == "remove")
            QVERIFY(file.remove());

        RecordingReader reader;
        QCOMPARE(reader.open(path), opens);
        QCOMPARE(readGoodFrames(reader, frames), goodFrames);
        // Reading stops exactly at the damage, and the reader knows it.
        QCOMPARE(reader.getFrameCount(), goodFrames);
        QCOMPARE(reader.getDamageOffset(), stopsAt);
        QCOMPARE(reader.hasDamage(), !reader.getDamageDescription().isEmpty());

        // The player shows the good frames, then stops at the damage or reaches the end;
        // without a single frame it refuses the file.
        FramePlayer player;
        QObject receiver;
        int shown = 0;
        QStringList outcomes;
        connect(&player, &FramePlayer::frameReady, &receiver, [&] { ++shown; });
        connect(&player, &FramePlayer::reachedEnd, &receiver, [&] { outcomes << "end"; });
        connect(&player, &FramePlayer::openFailed, &receiver, [&](const QString& message) {
            outcomes << (message.isEmpty() ? "refused silently" : "refused");
        });
        connect(&player, &FramePlayer::stoppedAtDamage, &receiver,
            [&](qint64 offset) { outcomes << QString::number(offset); });
        player.setSpeed(16.0);
        player.open(path);
        player.play();
        QTRY_VERIFY(!outcomes.isEmpty());
        const bool refused = !opens || (goodFrames == 0 && stopsAt < 0);
        QCOMPARE(outcomes, QStringList(refused ? "refused" : stopsAt < 0 ? "end" : QString::number(stopsAt)));
        QCOMPARE(shown, goodFrames);
    }

    void recorderWritesWhatItReceives()
    {
        const QString path = folder.filePath("recorder.nrc");
        const SonarConfiguration sonar;
        SonarScene scene(sonar);
        std::vector<NereonImage> sent;
        FrameRecorder recorder;
        QVERIFY(recorder.start(path));
        QVERIFY(recorder.isRecording());
        for (int i = 0; i < 20; ++i) {
            sent.push_back(scene.renderFrame(i / 15.0));
            recorder.record(sent.back());
        }
        recorder.stop();
        QVERIFY(!recorder.isRecording());
        recorder.record(sent.front()); // ignored once stopped
        const FrameRecorder::Statistics statistics = recorder.getStatistics();
        QCOMPARE(statistics.framesWritten + statistics.framesDropped, qint64(sent.size()));
        QCOMPARE(statistics.bytesWritten, QFileInfo(path).size());
        QVERIFY(statistics.storedIntensityBytes < statistics.intensityBytes);

        RecordingReader reader;
        QVERIFY(reader.open(path));
        QCOMPARE(qint64(reader.getFrameCount()), statistics.framesWritten);
        QCOMPARE(readGoodFrames(reader, sent), reader.getFrameCount());
        for (int i = 1; i < reader.getFrameCount(); ++i)
            QVERIFY(reader.getTimestamp(i) >= reader.getTimestamp(i - 1));
        QVERIFY(!reader.hasDamage());

        // A file that cannot be made is refused at once.
        QVERIFY(!recorder.start(folder.filePath("no-such-folder/x.nrc")));
        QVERIFY(!recorder.getErrorString().isEmpty());
    }

    void killedRecorderKeepsWholeFrames()
    {
        const QString path = folder.filePath("killed.nrc");
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(QCoreApplication::applicationFilePath(), { "--record-until-killed", path });
        QVERIFY(child.waitForStarted());
        const auto framesOnDisk = [&path] {
            RecordingReader reader;
            return reader.open(path) ? reader.getFrameCount() : 0;
        };
        QTRY_VERIFY_WITH_TIMEOUT(framesOnDisk() >= 30, 60000);
        child.kill(); // SIGKILL: no chance to finish a record or close the file
        QVERIFY(child.waitForFinished());
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);

        RecordingReader reader;
        QVERIFY(reader.open(path));
        const int count = reader.getFrameCount();
        QVERIFY(count >= 30);
        std::vector<NereonImage> expected;
        for (int i = 0; i < count; ++i)
            expected.push_back(makeFrame(i, 256, 200));
        QCOMPARE(readGoodFrames(reader, expected), count);
        // Anything after the last whole frame is a record cut short, reported as such.
        const QFileInfo info(path);
        if (reader.hasDamage())
            QVERIFY(reader.getDamageOffset() < info.size());
    }

    void playerReplaysInOrder()
    {
        FramePlayer player;
        QObject receiver;
        std::vector<std::pair<int, qint64>> shown;
        std::vector<NereonImage> images;
        int ends = 0;
        int opened = 0;
        connect(&player, &FramePlayer::frameReady, &receiver, [&](const SourceFrame& frame) {
            shown.emplace_back(frame.index, frame.timestamp - qint64(1700000000000) * 1000);
            images.push_back(frame.image);
        });
        connect(&player, &FramePlayer::reachedEnd, &receiver, [&] { ++ends; });
        connect(&player, &FramePlayer::opened, &receiver, [&](int count, qint64 duration) {
            QCOMPARE(count, frameCount);
            QCOMPARE(duration, qint64(frameCount - 1) * 20000);
            ++opened;
        });
        player.open(folder.filePath("reference.nrc"));
        QTRY_COMPARE(opened, 1);
        QVERIFY(shown.empty()); // opened paused

        player.setSpeed(16.0);
        player.play();
        QTRY_COMPARE(ends, 1);
        QCOMPARE(int(shown.size()), frameCount);
        for (int i = 0; i < frameCount; ++i) {
            QCOMPARE(shown[i], std::make_pair(i, qint64(i) * 20000));
            QVERIFY(identical(images[i], frames[i]));
        }
        QVERIFY(!player.isPlaying());

        // Seeking shows the frame received at or before the time; stepping the next one.
        shown.clear();
        player.seek(45000);
        QTRY_COMPARE(int(shown.size()), 1);
        QCOMPARE(shown.back().first, 2);
        player.step();
        QTRY_COMPARE(int(shown.size()), 2);
        QCOMPARE(shown.back().first, 3);
        QTest::qWait(50);
        QCOMPARE(int(shown.size()), 2); // a step does not start playing
        player.seek(-1);
        QTRY_COMPARE(int(shown.size()), 3);
        QCOMPARE(shown.back().first, 0);

        // Playing again after the end starts from the beginning.
        shown.clear();
        player.seek(1000000);
        QTRY_COMPARE(ends, 2);
        shown.clear();
        player.play();
        QTRY_COMPARE(ends, 3);
        QCOMPARE(shown.front().first, 0);
        QCOMPARE(int(shown.size()), frameCount);
    }
};

int main(int argc, char* argv[])
{
    if (argc == 3 && std::strcmp(argv[1], "--record-until-killed") == 0) {
        QCoreApplication application(argc, argv);
        return recordUntilKilled(QString::fromLocal8Bit(argv[2]));
    }
    QCoreApplication application(argc, argv);
    TestRecording test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_recording.moc"
