#include "ArisFrameHeader.h"
#include "ArisSampleOrder.h"
#include "sources/ArisReader.h"
#include "sources/FrameReader.h"
#include "sources/RecordingReader.h"
#include "sources/RecordingWriter.h"

#include <QBuffer>
#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <cstring>
#include <numeric>
#include <vector>

using namespace Halcyra::Nereon::Sources;
using Halcyra::Nereon::NereonImage;

namespace {

const QString realData = QStringLiteral(NEREON_REAL_DATA_DIR);
const QString sampleAris = realData + QStringLiteral("/aris/sample.aris");

// The sample recording's layout, from the format's documentation.
constexpr int sampleBeams = 48;
constexpr int sampleSamples = 2000;
constexpr qint64 fileHeader = 1024;
constexpr qint64 frameSize = 1024 + sampleBeams * sampleSamples;

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void put32(QByteArray& bytes, qint64 offset, quint32 value)
{
    for (int i = 0; i < 4; ++i)
        bytes[int(offset) + i] = char(value >> (8 * i));
}

void putFloat(QByteArray& bytes, qint64 offset, float value)
{
    quint32 bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    put32(bytes, offset, bits);
}

std::unique_ptr<FrameReader> openBytes(const QByteArray& bytes, const QString& name)
{
    auto buffer = std::make_unique<QBuffer>();
    buffer->setData(bytes);
    std::unique_ptr<FrameReader> reader = FrameReader::create(FrameReader::detectFormat(bytes.left(16)));
    if (reader)
        reader->open(std::move(buffer), name);
    return reader;
}

} // namespace

class TestSources : public QObject
{
    Q_OBJECT

private:
    QByteArray sample;

private slots:
    void initTestCase()
    {
        sample = readAll(sampleAris);
    }

    void arisHeaderAndWindow()
    {
        if (sample.isEmpty())
            QSKIP("the real ARIS recording (../shared/real-data/aris/sample.aris) is not here");
        QString error;
        const std::unique_ptr<FrameReader> reader = FrameReader::create(sampleAris, &error);
        QVERIFY2(reader, qPrintable(error));
        QVERIFY(dynamic_cast<ArisReader*>(reader.get()));
        QCOMPARE(reader->getFrameCount(), 6);
        QVERIFY(!reader->hasDamage());

        const SonarDescription sonar = reader->getDescription();
        QCOMPARE(sonar.format, QString("ARIS recording"));
        QCOMPARE(sonar.model, QString("ARIS 1200 (telephoto lens)"));
        QCOMPARE(sonar.serialNumber, QString("1098"));
        QCOMPARE(sonar.frequency, 1.2e6);
        QCOMPARE(sonar.beamCount, 48);
        QCOMPARE(sonar.samplesPerBeam, 2000);
        // SampleStartDelay 4593 µs, SamplePeriod 14 µs, SoundSpeed 1435.93 m/s, halved for the way back.
        QVERIFY(std::abs(sonar.soundSpeed - 1435.93) < 0.01);
        QVERIFY(std::abs(sonar.windowStart - 3.298) < 0.001);
        QVERIFY(std::abs(sonar.windowLength - 20.103) < 0.001);
        QVERIFY(std::abs(sonar.frameRate - 6.548) < 0.001);
        QVERIFY(std::abs(sonar.rightmostBearing - 7.34) < 0.01);
        QVERIFY(std::abs(sonar.leftmostBearing + 7.34) < 0.01);

        // Frame times: microseconds since 1970, on 2013-06-14, about 6.5 a second.
        const QDateTime start = QDateTime::fromMSecsSinceEpoch(sonar.startTime / 1000, Qt::UTC);
        QCOMPARE(start.date(), QDate(2013, 6, 14));
        for (int i = 1; i < 6; ++i) {
            const qint64 interval = reader->getTimestamp(i) - reader->getTimestamp(i - 1);
            QVERIFY2(interval > 140000 && interval < 165000, qPrintable(QString::number(interval)));
        }
        QCOMPARE(reader->findFrame(reader->getTimestamp(3) + 1), 3);
        QCOMPARE(reader->findFrame(0), 0);
    }

    void arisSamplesInPlace()
    {
        if (sample.isEmpty())
            QSKIP("the real ARIS recording (../shared/real-data/aris/sample.aris) is not here");
        const std::unique_ptr<FrameReader> reader = FrameReader::create(sampleAris);
        SourceFrame frame;
        reader->seekToFrame(2);
        QVERIFY(reader->next(frame));
        QCOMPARE(frame.index, 2);
        QCOMPARE(frame.timestamp, reader->getTimestamp(2));
        const NereonImage& image = frame.image;
        QCOMPARE(int(image.getWidth()), sampleBeams);
        QCOMPARE(int(image.getHeight()), frame.firstSampleRow + sampleSamples);

        // Row r stands for (r + 0.5) × spacing: sample 0 within half a spacing of the window start.
        const double spacing = image.getRange() / image.getHeight();
        QVERIFY(std::abs(spacing - 20.103 / 2000) < 1e-5);
        QVERIFY(std::abs((frame.firstSampleRow + 0.5) * spacing - frame.windowStart) <= spacing / 2);
        QVERIFY(std::abs(frame.windowStart - 3.298) < 0.001);

        // Padding is empty; the samples are the file's bytes, beam 0 (the right-most) last in a row.
        const auto& data = image.getData();
        QVERIFY(std::all_of(data.begin(), data.begin() + frame.firstSampleRow * sampleBeams,
            [](std::uint8_t v) { return v == 0; }));
        const char* samples = sample.constData() + fileHeader + 2 * frameSize + 1024;
        for (int k : { 0, 1, 999, 1999 })
            for (int column : { 0, 17, 47 })
                QCOMPARE(int(data[std::size_t(frame.firstSampleRow + k) * sampleBeams + column]),
                    int(std::uint8_t(samples[k * sampleBeams + (sampleBeams - 1 - column)])));

        // Read in this order the echoes fade with range, smoothly from row to row.
        std::vector<double> means(sampleSamples);
        for (int k = 0; k < sampleSamples; ++k) {
            const auto row = data.begin() + (frame.firstSampleRow + k) * sampleBeams;
            means[std::size_t(k)] = std::accumulate(row, row + sampleBeams, 0.0) / sampleBeams;
        }
        const double near = std::accumulate(means.begin(), means.begin() + 200, 0.0) / 200;
        const double far = std::accumulate(means.end() - 200, means.end(), 0.0) / 200;
        QVERIFY2(near > far + 50, qPrintable(QString("near %1, far %2").arg(near).arg(far)));
        const double mean = std::accumulate(means.begin(), means.end(), 0.0) / sampleSamples;
        double lagged = 0.0, variance = 0.0;
        for (std::size_t k = 0; k < means.size(); ++k) {
            variance += (means[k] - mean) * (means[k] - mean);
            if (k > 0)
                lagged += (means[k] - mean) * (means[k - 1] - mean);
        }
        QVERIFY(lagged / variance > 0.9);

        // Bearings ascend from the left-most beam; beam 0, the right-most, is the last column.
        const auto& bearings = image.getBearings();
        QVERIFY(std::is_sorted(bearings.begin(), bearings.end()));
        QVERIFY(std::adjacent_find(bearings.begin(), bearings.end()) == bearings.end());
        QCOMPARE(int(bearings.back()), 734); // beam 0's table centre, -7.339 degrees, on the right
        QCOMPARE(int(bearings.front()), -734);
    }

    void formatFromContents()
    {
        QTemporaryDir folder;
        // A recording of the viewer's own named .aris, and an ARIS file named .nrec.
        const QString nrec = folder.filePath("really-a-recording.aris");
        {
            RecordingWriter writer;
            QVERIFY(writer.open(nrec, 0));
            QVERIFY(writer.write(NereonImage(2, 2, { 1, 2, 3, 4 }, { -100, 100 }, 5.0, 0.0), 0));
        }
        QVERIFY(dynamic_cast<RecordingReader*>(FrameReader::create(nrec).get()));
        if (!sample.isEmpty()) {
            const QString aris = folder.filePath("really-aris.nrec");
            QVERIFY(QFile::copy(sampleAris, aris));
            QVERIFY(dynamic_cast<ArisReader*>(FrameReader::create(aris).get()));
        }
        QString error;
        const QString text = folder.filePath("notes.aris");
        QFile file(text);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("not a sonar recording at all");
        file.close();
        QVERIFY(!FrameReader::create(text, &error));
        QVERIFY2(error.contains("notes.aris") && error.contains("not a sonar recording"), qPrintable(error));
        QVERIFY(!FrameReader::create(folder.filePath("missing.aris"), &error));
        QVERIFY2(error.contains("missing.aris"), qPrintable(error));
    }

    void damagedAris_data()
    {
        QTest::addColumn<QString>("damage");
        QTest::addColumn<qint64>("position");
        QTest::addColumn<quint32>("value");
        QTest::addColumn<int>("frames");
        QTest::addColumn<qint64>("stopsAt"); // -1: whole

        const auto frame = [](int i) { return fileHeader + i * frameSize; };
        QTest::newRow("cut in the file header") << "cut" << qint64(500) << 0u << 0 << qint64(0);
        QTest::newRow("cut in the first frame header") << "cut" << frame(0) + 500 << 0u << 0 << frame(0);
        QTest::newRow("last frame cut short") << "cut" << frame(5) + 5000 << 0u << 5 << frame(5);
        QTest::newRow("trailing bytes") << "append" << qint64(0) << 100u << 6 << frame(6);
        QTest::newRow("wrong magic") << "word" << qint64(0) << 0x04464444u << 0 << qint64(-1);
        QTest::newRow("frame signature broken") << "word" << frame(3) + 12 << 0u << 3 << frame(3);
        QTest::newRow("ping mode 0") << "word" << frame(2) + 436 << 0u << 2 << frame(2);
        QTest::newRow("ping mode 100") << "word" << frame(0) + 436 << 100u << 0 << frame(0);
        QTest::newRow("ping mode of another beam count") << "word" << frame(4) + 436 << 9u << 4 << frame(4);
        QTest::newRow("no samples") << "word" << frame(0) + 468 << 0u << 0 << frame(0);
        QTest::newRow("100000 samples") << "word" << frame(0) + 468 << 100000u << 0 << frame(0);
        QTest::newRow("samples overflowing 32 bits") << "word" << frame(0) + 468 << 0xffffffffu << 0 << frame(0);
        QTest::newRow("other samples later") << "word" << frame(5) + 468 << 1000u << 5 << frame(5);
        QTest::newRow("sample period 0") << "word" << frame(4) + 452 << 0u << 4 << frame(4);
        QTest::newRow("sound speed NaN") << "nan" << frame(1) + 464 << 0u << 1 << frame(1);
        QTest::newRow("window beyond the frame type")
            << "word" << frame(0) + 476 << 0xffffffu << 0 << frame(0);
    }

    void damagedAris()
    {
        if (sample.isEmpty())
            QSKIP("the real ARIS recording (../shared/real-data/aris/sample.aris) is not here");
        QFETCH(QString, damage);
        QFETCH(qint64, position);
        QFETCH(quint32, value);
        QFETCH(int, frames);
        QFETCH(qint64, stopsAt);
        QByteArray bytes = sample;
        if (damage == "cut")
            bytes.truncate(int(position));
        else if (damage == "append")
            bytes.append(QByteArray(int(value), '\x55'));
        else if (damage == "nan")
            putFloat(bytes, position, std::nanf(""));
        else
            put32(bytes, position, value);

        QTemporaryDir folder;
        const QString path = folder.filePath("damaged.aris");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        file.close();
        QString error;
        const std::unique_ptr<FrameReader> reader = FrameReader::create(path, &error);
        if (frames == 0) {
            // Nothing to show: refused, saying which file and where.
            QVERIFY(!reader);
            QVERIFY2(error.contains("damaged.aris"), qPrintable(error));
            if (stopsAt >= 0)
                QVERIFY2(error.contains(QString("byte %1 ").arg(stopsAt)), qPrintable(error));
            return;
        }
        QVERIFY2(reader, qPrintable(error));
        // Every frame before the damage reads; reading stops at the damaged one.
        SourceFrame frame;
        int read = 0;
        while (reader->next(frame))
            ++read;
        QCOMPARE(read, frames);
        QCOMPARE(reader->getFrameCount(), frames);
        QCOMPARE(reader->getDamageOffset(), stopsAt);
        QVERIFY2(reader->describeDamage().startsWith(QString("Stopped at byte %1 of damaged.aris: ").arg(stopsAt)),
            qPrintable(reader->describeDamage()));
    }

    void arisHeaderWithoutPadding()
    {
        // A live sonar sends only the header's bytes in use: missing ones read as zero.
        std::vector<std::uint8_t> bytes(ArisFrameHeader::minimumSize, 0);
        const auto put = [&bytes](std::size_t at, std::uint32_t v) {
            for (int i = 0; i < 4; ++i)
                bytes[at + std::size_t(i)] = std::uint8_t(v >> (8 * i));
        };
        put(12, ArisFrameHeader::signature);
        put(436, 9);
        put(452, 10);
        put(468, 512);
        float speed = 1480.0f;
        std::uint32_t bits = 0;
        std::memcpy(&bits, &speed, 4);
        put(464, bits);
        ArisFrameHeader header;
        QString problem;
        QVERIFY2(ArisFrameHeader::parse(bytes.data(), bytes.size(), header, &problem), qPrintable(problem));
        QCOMPARE(header.getBeamCount(), 128);
        QVERIFY(!ArisFrameHeader::parse(bytes.data(), bytes.size() - 1, header, &problem));
        QVERIFY(problem.contains("cut short"));
    }

    void liveSampleOrder_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("beams");
        QTest::addColumn<int>("samples");
        QTest::newRow("48 beams, ARIS 1200") << "1_1200" << 48 << 512;
        QTest::newRow("48 beams, ARIS 1800") << "1_1800" << 48 << 544;
        QTest::newRow("96 beams") << "3" << 96 << 512;
        QTest::newRow("64 beams") << "6" << 64 << 410;
        QTest::newRow("128 beams") << "9" << 128 << 512;
    }

    void liveSampleOrder()
    {
        QFETCH(QString, name);
        QFETCH(int, beams);
        QFETCH(int, samples);
        const QByteArray input = readAll(realData + "/aris-live/input_pingmode_" + name + ".dat");
        const QByteArray expected = readAll(realData + "/aris-live/expected_pingmode_" + name + ".dat");
        if (input.isEmpty() || expected.isEmpty())
            QSKIP("the live reordering vectors (../shared/real-data/aris-live) are not here");
        QCOMPARE(input.size(), beams * samples);
        const auto* in = reinterpret_cast<const std::uint8_t*>(input.constData());
        std::vector<std::uint8_t> ordered(std::size_t(input.size()));
        QVERIFY(ArisSampleOrder::toDisplayOrder(in, beams, samples, ordered.data()));
        QVERIFY(std::memcmp(ordered.data(), expected.constData(), ordered.size()) == 0);
        std::vector<std::uint8_t> back(ordered.size());
        QVERIFY(ArisSampleOrder::toSonarOrder(ordered.data(), beams, samples, back.data()));
        QVERIFY(std::memcmp(back.data(), in, back.size()) == 0);
        QVERIFY(!ArisSampleOrder::toDisplayOrder(in, 50, samples, ordered.data()));
    }

    void recordingThroughTheInterface()
    {
        // Fuzzers and applications open recordings from memory as well as from files.
        QByteArray bytes;
        {
            QTemporaryDir folder;
            const QString path = folder.filePath("memory.nrec");
            RecordingWriter writer;
            QVERIFY(writer.open(path, 1000));
            for (int i = 0; i < 3; ++i)
                QVERIFY(writer.write(NereonImage(2, 1, { std::uint8_t(i), 9 }, { -10, 10 }, 3.0, 0.0), 1000 * i));
            writer.close();
            bytes = readAll(path);
        }
        std::unique_ptr<FrameReader> reader = openBytes(bytes, "memory.nrec");
        QVERIFY(reader && reader->isOpen());
        QCOMPARE(reader->getFrameCount(), 3);
        QCOMPARE(reader->getDescription().beamCount, 2);
        SourceFrame frame;
        reader->seekToTime(1000 * 1000 + 1500);
        QVERIFY(reader->next(frame));
        QCOMPARE(frame.index, 1);
        QCOMPARE(int(frame.image.getData()[0]), 1);
        QVERIFY(reader->next(frame));
        QVERIFY(!reader->next(frame));
        QCOMPARE(reader->getPosition(), 3);
        reader->close();
        QVERIFY(!reader->isOpen());
        QCOMPARE(reader->getFrameCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TestSources)

#include "tst_sources.moc"
