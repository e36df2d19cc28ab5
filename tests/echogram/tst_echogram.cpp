#include "EchogramPyramid.h"
#include "views/EchogramBuilder.h"
#include "views/EchogramColumns.h"
#include "views/EchogramDisplay.h"
#include "views/EchogramMark.h"

#include "FanDisplay.h"
#include "PaletteColours.h"
#include "sources/FrameReader.h"
#include "sources/RecordingWriter.h"

#include "FanView.h"
#include "GlTestSupport.h"
#include "TestFrames.h"

#include <QApplication>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

using namespace Halcyra::Nereon;
using namespace Halcyra::Nereon::Views;
using Halcyra::Nereon::Visualisation::FanDisplay;
namespace Options = Halcyra::Nereon::Visualisation::FanDisplayOptions;

Q_DECLARE_METATYPE(EchogramReduction)

namespace {

/// Max-pooling as a reader of the widget's documentation would write it: each row's beam maximum
/// (or rounded mean) goes to bin row × bins / rows; with fewer rows than bins, bin b shows row b × rows / bins.
std::vector<std::uint8_t> expectedColumn(const NereonImage& image, int bins, EchogramReduction reduction)
{
    const int beams = image.getWidth();
    const int rows = image.getHeight();
    std::vector<int> perRow(static_cast<std::size_t>(rows));
    for (int r = 0; r < rows; ++r) {
        const auto begin = image.getData().begin() + std::ptrdiff_t(r) * beams;
        if (reduction == EchogramReduction::Maximum) {
            perRow[std::size_t(r)] = *std::max_element(begin, begin + beams);
        } else {
            double sum = 0;
            for (int b = 0; b < beams; ++b)
                sum += begin[b];
            perRow[std::size_t(r)] = int(std::lround(sum / beams));
        }
    }
    std::vector<std::uint8_t> column(static_cast<std::size_t>(bins), 0);
    if (rows >= bins) {
        for (int r = 0; r < rows; ++r) {
            auto& bin = column[std::size_t(std::int64_t(r) * bins / rows)];
            bin = std::max<std::uint8_t>(bin, std::uint8_t(perRow[std::size_t(r)]));
        }
    } else {
        for (int b = 0; b < bins; ++b)
            column[std::size_t(b)] = std::uint8_t(perRow[std::size_t(std::int64_t(b) * rows / bins)]);
    }
    return column;
}

NereonImage randomFrame(int beams, int rows, double range, std::mt19937& random)
{
    std::uniform_int_distribution<int> byte(0, 255);
    // Sparse bright echoes over weak noise, so that a wrong bin or beam shows.
    return TestSupport::makeFrame(beams, rows, range, [&](int, int) {
        const int v = byte(random);
        return std::uint8_t(v > 250 ? v : v / 8);
    });
}

bool sameColumn(const EchogramColumns& columns, std::int64_t column, const std::vector<std::uint8_t>& expected)
{
    return std::equal(expected.begin(), expected.end(), columns.getColumn(column));
}

/// The default palette's colour of an intensity byte (the colour test shows these are the fan's).
QColor greyscale(int value)
{
    return QColor(Visualisation::PaletteColours::shownColours(Options::Greyscale, 0, 0.0f, 1.0f)[std::size_t(value)]);
}

QString writeRecording(const QString& path, const std::vector<NereonImage>& frames)
{
    Sources::RecordingWriter writer;
    if (!writer.open(path, 1700000000000))
        return writer.getErrorString();
    for (std::size_t i = 0; i < frames.size(); ++i)
        writer.write(frames[i], std::int64_t(i) * 100000);
    writer.close();
    return QString();
}

} // namespace

class TestEchogram : public QObject
{
    Q_OBJECT

private slots:
    void columnsArePooledBeamMaxima_data()
    {
        QTest::addColumn<int>("beams");
        QTest::addColumn<int>("rows");
        QTest::addColumn<int>("bins");
        QTest::addColumn<EchogramReduction>("reduction");
        QTest::newRow("more rows than bins") << 48 << 1000 << 256 << EchogramReduction::Maximum;
        QTest::newRow("rows not a multiple") << 97 << 513 << 256 << EchogramReduction::Maximum;
        QTest::newRow("fewer rows than bins") << 130 << 100 << 256 << EchogramReduction::Maximum;
        QTest::newRow("wide rows, vector path") << 512 << 700 << 512 << EchogramReduction::Maximum;
        QTest::newRow("mean of beams") << 64 << 900 << 256 << EchogramReduction::Mean;
    }

    void columnsArePooledBeamMaxima()
    {
        QFETCH(int, beams);
        QFETCH(int, rows);
        QFETCH(int, bins);
        QFETCH(EchogramReduction, reduction);
        std::mt19937 random(beams * 1000 + rows);
        EchogramColumns columns(bins, reduction);
        std::vector<NereonImage> frames;
        for (int i = 0; i < 5; ++i) {
            frames.push_back(randomFrame(beams, rows, 20.0, random));
            QVERIFY(columns.append(frames.back(), i, 1000 * i));
        }
        QCOMPARE(columns.size(), std::size_t(5));
        for (int i = 0; i < 5; ++i)
            QVERIFY2(sameColumn(columns, i, expectedColumn(frames[std::size_t(i)], bins, reduction)),
                qPrintable(QString("column %1").arg(i)));
    }

    void realRecordingColumns()
    {
        const QString path = QStringLiteral(NEREON_REAL_DATA_DIR "/aris/sample.aris");
        if (!QFile::exists(path))
            QSKIP("no real ARIS recording at ../shared/real-data/aris/sample.aris");
        QString error;
        auto reader = Sources::FrameReader::create(path, &error);
        QVERIFY2(reader, qPrintable(error));
        const EchogramColumns columns = EchogramBuilder::build(*reader, 256);
        int checked = 0;
        for (std::int64_t c = columns.getFirstColumn(); c < columns.getEndColumn(); ++c) {
            if (columns.isBreak(c))
                continue;
            Sources::SourceFrame frame;
            QVERIFY(reader->readFrame(columns.getFrameIndex(c), frame));
            QCOMPARE(columns.getTimestamp(c), frame.timestamp);
            QVERIFY2(sameColumn(columns, c, expectedColumn(frame.image, 256, EchogramReduction::Maximum)),
                qPrintable(QString("frame %1").arg(frame.index)));
            ++checked;
        }
        QCOMPARE(checked, reader->getFrameCount());
    }

    void overviewPoolsAsTheColumnsDo()
    {
        // Enough columns for three levels, with one break, pooled over spans of every kind.
        std::mt19937 random(11);
        EchogramColumns columns(32);
        for (int i = 0; i < 5000; ++i) {
            const double range = i < 3001 ? 10.0 : 12.0;
            columns.append(TestSupport::makeFrame(4, 64, range, [&](int, int) { return std::uint8_t(random() % 200); }), i, i);
        }
        EchogramPyramid pyramid;
        pyramid.build(columns);
        std::uniform_int_distribution<std::int64_t> at(0, columns.getEndColumn());
        for (int trial = 0; trial < 300; ++trial) {
            std::int64_t from = at(random), to = at(random);
            if (trial < 3) { // exactly one entry of a level, or more than there are levels for
                from = 0;
                to = std::int64_t(1) << (4 * (trial + 1));
            }
            if (from > to)
                std::swap(from, to);
            if (from == to)
                continue;
            std::vector<std::uint8_t> expected(32, 0), pooled(32, 0);
            float range = 0.0f;
            for (std::int64_t c = from; c < to; ++c) {
                for (int b = 0; b < 32; ++b)
                    expected[std::size_t(b)] = std::max(expected[std::size_t(b)], columns.getColumn(c)[b]);
                range = std::max(range, columns.getRange(c));
            }
            const bool hasBreak = from <= 3001 && 3001 < to;
            QCOMPARE(pyramid.pool(columns, from, to, pooled.data()), hasBreak ? 0.0f : range);
            QVERIFY2(pooled == expected, qPrintable(QString("columns %1 to %2").arg(from).arg(to)));
        }
    }

    void layoutChangeBreaksAndBadFramesAreIgnored()
    {
        EchogramDisplay echogram;
        echogram.resize(400, 200);
        QVERIFY(TestSupport::showExposed(echogram));
        const auto frame = [](int beams, int rows, double range) {
            return TestSupport::uniformFrame(beams, rows, range, 255);
        };
        std::int64_t t = 0;
        for (int i = 0; i < 3; ++i)
            echogram.addImage(frame(48, 200, 10.0), t += 1000);
        echogram.addImage(NereonImage(), t += 1000);
        echogram.addImage(NereonImage(8, 8, std::vector<std::uint8_t>(10), std::vector<std::int16_t>(8), 5.0, 1), t += 1000);
        echogram.addImage(frame(64, 200, 10.0), t += 1000); // beams change
        echogram.addImage(frame(64, 300, 10.0), t += 1000); // samples change
        echogram.addImage(frame(64, 300, 15.0), t += 1000); // range changes
        echogram.addImage(frame(64, 300, 15.0), t += 1000);

        const EchogramColumns& columns = echogram.getColumns();
        QCOMPARE(columns.size(), std::size_t(3 + 2 + 2 + 3));
        QList<int> breaks;
        for (std::int64_t c = 0; c < columns.getEndColumn(); ++c)
            if (columns.isBreak(c))
                breaks << int(c);
        QCOMPARE(breaks, (QList<int>{ 3, 5, 7 }));
        // A break carries the next frame's number, so seeking onto it lands on a real frame.
        QCOMPARE(columns.getFrameIndex(3), columns.getFrameIndex(4));

        echogram.setVisibleColumns(0, 10);
        const QImage picture = echogram.grabFramebuffer();
        const int y = echogram.height() / 2;
        for (int c = 0; c < 10; ++c) {
            const QColor expected = breaks.contains(c) ? echogram.getBreakColour() : greyscale(255);
            NEREON_VERIFY_PIXEL(picture, QPoint(echogram.columnToPixel(c), y), expected, 0);
        }
    }

    void coloursAreTheFans_data()
    {
        QTest::addColumn<int>("palette");
        QTest::addColumn<int>("modifier");
        QTest::addColumn<float>("clampLevel");
        QTest::newRow("greyscale") << int(Options::Greyscale) << 0 << 0.0f;
        QTest::newRow("multicolour") << int(Options::Multicolour) << 0 << 0.0f;
        QTest::newRow("fire") << int(Options::Fire) << 90 << 0.0f;
        QTest::newRow("aqua, thresholds following the frames") << int(Options::Aqua) << 200 << 0.05f;
    }

    void coloursAreTheFans()
    {
        QFETCH(int, palette);
        QFETCH(int, modifier);
        QFETCH(float, clampLevel);
        std::mt19937 random(3);
        std::vector<NereonImage> earlier;
        for (int i = 0; i < 8; ++i)
            earlier.push_back(randomFrame(64, 100, 10.0, random));
        FanDisplay fan;
        fan.resize(300, 300);
        for (const auto overlay : { Options::RangeLabels, Options::RangeArcs, Options::RangeLines })
            fan.setOverlayFeature(overlay, false);
        fan.setPalette(Options::Palette(palette));
        fan.setPaletteModifier(std::uint8_t(modifier));
        fan.setClampLevel(clampLevel);
        QVERIFY(TestSupport::showExposed(fan));
        EchogramDisplay echogram;
        echogram.resize(300, 150);
        echogram.setPalette(Options::Palette(palette));
        echogram.setPaletteModifier(std::uint8_t(modifier));
        echogram.setAutomaticThresholds(clampLevel);
        echogram.setLiveWindow(16);
        QVERIFY(TestSupport::showExposed(echogram));

        for (const int value : { 40, 150, 230 }) {
            // Frames that move the thresholds first, then one intensity everywhere.
            const NereonImage frame = TestSupport::uniformFrame(64, 100, 10.0, std::uint8_t(value));
            for (const NereonImage& image : earlier)
                fan.newImageReceived(image);
            fan.newImageReceived(frame);
            const QImage fanPicture = fan.grabFramebuffer();
            const QColor fanColour
                = fanPicture.pixelColor(TestSupport::pixelOf(fan, fanPicture, QPointF(0.0, 0.5)));

            // Thresholds move with frames only followed (as while a recording plays) and with live ones.
            for (std::size_t i = 0; i < earlier.size(); ++i) {
                if (i < 4)
                    echogram.followThresholds(earlier[i]);
                else
                    echogram.addImage(earlier[i], value * 100 + std::int64_t(i));
            }
            echogram.addImage(frame, value * 100 + 50);
            if (clampLevel > 0.0f)
                QVERIFY(echogram.getUpperThreshold() < 0.5f); // the frames did move them
            const QImage picture = echogram.grabFramebuffer();
            const int x = echogram.columnToPixel(echogram.getColumns().getEndColumn() - 1);
            NEREON_VERIFY_PIXEL(picture, QPoint(x, echogram.height() / 3), fanColour, 1);
        }
    }

    void liveWindowScrolls()
    {
        // Many more frames than the window holds, painted now and then: the slots
        // written one by one must wrap around into the right places.
        EchogramDisplay echogram;
        echogram.resize(300, 120);
        echogram.setLiveWindow(64);
        QVERIFY(TestSupport::showExposed(echogram));
        echogram.makeCurrent();
        TestSupport::GlErrorWatcher glErrors(echogram.context());
        QVERIFY(glErrors.isLogging());
        const auto valueOf = [](int frame) { return std::uint8_t((frame * 37) % 256); };
        int frame = 0;
        for (const int batch : { 10, 1, 50, 3, 100, 7 }) {
            for (int i = 0; i < batch; ++i, ++frame)
                echogram.addImage(TestSupport::uniformFrame(16, 50, 5.0, valueOf(frame)), 1000 * frame);
            const QImage picture = echogram.grabFramebuffer();
            const EchogramColumns& columns = echogram.getColumns();
            QVERIFY(columns.size() <= 64);
            for (std::int64_t c = columns.getFirstColumn(); c < columns.getEndColumn(); ++c) {
                const int x = echogram.columnToPixel(c);
                QVERIFY(x >= 0);
                NEREON_VERIFY_PIXEL(picture, QPoint(x, 40), greyscale(valueOf(columns.getFrameIndex(c))), 0);
            }
        }
        QVERIFY(glErrors.errors().empty());
    }

    void cursorAndClickAgree_data()
    {
        QTest::addColumn<double>("first");
        QTest::addColumn<double>("count");
        QTest::newRow("zoomed in") << 100.0 << 40.0;
        QTest::newRow("many frames a pixel") << 0.0 << 1000.0;
    }

    void cursorAndClickAgree()
    {
        QFETCH(double, first);
        QFETCH(double, count);
        EchogramDisplay echogram;
        echogram.resize(250, 120);
        echogram.setCursorColour(QColor(255, 0, 0));
        QVERIFY(TestSupport::showExposed(echogram));
        for (int i = 0; i < 1000; ++i)
            echogram.addFrame({ TestSupport::uniformFrame(16, 50, 5.0, 0), 500 + i, 1000000LL * i, 0.0, 0 });
        echogram.setVisibleColumns(first, count);
        QSignalSpy requested(&echogram, &EchogramDisplay::frameRequested);
        for (const int frame : { 503, 517, 640, 777 }) {
            const std::int64_t column = echogram.getColumns().findFrame(frame);
            const int x = echogram.columnToPixel(column);
            if (x < 0)
                continue; // not in view
            echogram.showFrame({ TestSupport::uniformFrame(16, 50, 5.0, 0), frame, 0, 0.0, 0 });
            const QImage picture = echogram.grabFramebuffer();
            NEREON_VERIFY_PIXEL(picture, QPoint(x, 60), QColor(255, 0, 0), 0);
            requested.clear();
            QTest::mouseClick(&echogram, Qt::LeftButton, Qt::NoModifier, QPoint(x, 60));
            QCOMPARE(requested.count(), 1);
            QCOMPARE(requested.at(0).at(0).toInt(), frame);
            QCOMPARE(requested.at(0).at(1).toLongLong(), 1000000LL * (frame - 500));
        }
    }

    void marksLandOnTheirFramesAndRanges_data()
    {
        QTest::addColumn<double>("first");
        QTest::addColumn<double>("count");
        QTest::newRow("zoomed in") << 100.0 << 40.0;
        QTest::newRow("many frames a pixel") << 0.0 << 1000.0;
    }

    void marksLandOnTheirFramesAndRanges()
    {
        QFETCH(double, first);
        QFETCH(double, count);
        EchogramDisplay echogram;
        echogram.resize(250, 160);
        QVERIFY(TestSupport::showExposed(echogram));
        // Brighter with range, so that the bare picture says which row shows which range.
        const NereonImage ramp
            = TestSupport::makeFrame(8, 50, 5.0, [](int, int line) { return std::uint8_t(line * 5); });
        for (int i = 0; i < 1000; ++i)
            echogram.addFrame({ ramp, 500 + i, 1000000LL * i, 0.0, 0 });
        echogram.setVisibleColumns(first, count);
        const QImage bare = echogram.grabFramebuffer();

        // Nothing to draw: frames not kept, ranges not finite.
        EchogramMark unseen;
        unseen.addPoint(100, 1.0);
        unseen.addPoint(1600, 2.0);
        echogram.addMark(unseen);
        EchogramMark broken;
        broken.addPoint(605, std::nan(""));
        broken.addPoint(606, std::numeric_limits<double>::infinity());
        echogram.addMark(broken);
        QCOMPARE(echogram.grabFramebuffer(), bare);

        struct Spot
        {
            EchogramMark::Axis axis;
            std::int64_t position;
            int frame;
            double range;
        };
        const Spot spots[] = { { EchogramMark::Axis::Frame, 605, 605, 1.05 },
            { EchogramMark::Axis::Frame, 636, 636, 3.55 }, { EchogramMark::Axis::Frame, 900, 900, 2.55 },
            { EchogramMark::Axis::Time, 1000000LL * 120, 620, 4.05 },
            { EchogramMark::Axis::Time, 1000000LL * 300 + 400000, 800, 1.55 } };
        const QColor red(255, 0, 0);
        for (const Spot& spot : spots) {
            EchogramMark mark(spot.axis, red);
            mark.addPoint(spot.position, spot.range);
            echogram.addMark(mark);
        }
        const QImage marked = echogram.grabFramebuffer();
        int checked = 0;
        for (const Spot& spot : spots) {
            const int x = echogram.columnToPixel(echogram.getColumns().findFrame(spot.frame));
            if (x < 0)
                continue; // not in view
            // The row of the bare picture whose grey is that range's.
            const int grey = greyscale(int(spot.range * 10) * 5).red();
            int row = -1;
            for (int y = 0, best = 256; y < bare.height(); ++y) {
                const int off = std::abs(qRed(bare.pixel(x, y)) - grey);
                if (off < best)
                    best = off, row = y;
            }
            bool found = false;
            for (int dx = -1; dx <= 1 && !found; ++dx) {
                for (int dy = -2; dy <= 2 && !found; ++dy)
                    found = marked.pixelColor(x + dx, row + dy) == red;
            }
            if (!found)
                QFAIL(qPrintable(QStringLiteral("no mark near (%1, %2): %3")
                                     .arg(x)
                                     .arg(row)
                                     .arg(TestSupport::saveFailurePicture(marked, QStringLiteral("marks")))));
            ++checked;
        }
        QVERIFY(checked >= 2);

        echogram.clearMarks();
        QCOMPARE(echogram.getMarkCount(), 0);
        QCOMPARE(echogram.grabFramebuffer(), bare);
    }

    void wheelZoomsAboutTheMouseAndDragsPan()
    {
        EchogramDisplay echogram;
        echogram.resize(400, 120);
        QVERIFY(TestSupport::showExposed(echogram));
        for (int i = 0; i < 1000; ++i)
            echogram.addImage(TestSupport::uniformFrame(16, 50, 5.0, 0), 1000 * i);
        echogram.setVisibleColumns(200, 400);

        const QPoint at(100, 60);
        const std::int64_t under = echogram.pixelToColumn(at.x());
        QWheelEvent wheel(at, echogram.mapToGlobal(at), QPoint(), QPoint(0, 240), Qt::NoButton, Qt::NoModifier,
            Qt::NoScrollPhase, false);
        QApplication::sendEvent(&echogram, &wheel);
        QVERIFY(echogram.getVisibleColumnCount() < 300); // two notches in
        QCOMPARE(echogram.pixelToColumn(at.x()), under);

        // Right button, or Shift with the left one: the picture follows the mouse, and nothing is sought.
        QSignalSpy requested(&echogram, &EchogramDisplay::frameRequested);
        for (const auto& [button, modifiers] : { std::pair(Qt::RightButton, Qt::NoModifier),
                 std::pair(Qt::LeftButton, Qt::ShiftModifier) }) {
            const double before = echogram.getFirstVisibleColumn();
            QTest::mousePress(&echogram, button, modifiers, at);
            const QPoint to = at + QPoint(40, 0);
            QMouseEvent move(QEvent::MouseMove, to, echogram.mapToGlobal(to), button, button, modifiers);
            QApplication::sendEvent(&echogram, &move);
            QTest::mouseRelease(&echogram, button, modifiers, to);
            const double perPixel = echogram.getVisibleColumnCount() / echogram.width();
            QVERIFY(std::abs(echogram.getFirstVisibleColumn() - (before - 40 * perPixel)) < 1e-6);
        }
        QCOMPARE(requested.count(), 0);
    }

    void recordingLoadsAndCancels()
    {
        QTemporaryDir folder;
        std::vector<NereonImage> frames;
        std::mt19937 random(7);
        for (int i = 0; i < 60; ++i)
            frames.push_back(randomFrame(32, 400, i < 40 ? 10.0 : 20.0, random));
        const QString small = folder.filePath("small.nrec");
        QCOMPARE(writeRecording(small, frames), QString());
        frames.resize(1000, frames.front());
        const QString large = folder.filePath("large.nrec");
        QCOMPARE(writeRecording(large, frames), QString());

        EchogramDisplay echogram;
        echogram.resize(300, 150);
        QVERIFY(TestSupport::showExposed(echogram));
        QSignalSpy finished(&echogram, &EchogramDisplay::loadFinished);
        QSignalSpy progress(&echogram, &EchogramDisplay::loadProgress);
        echogram.loadRecording(small);
        QTRY_COMPARE(finished.count(), 1);
        QVERIFY2(finished.at(0).at(0).toBool(), qPrintable(echogram.getLoadMessage()));
        QCOMPARE(progress.last().at(0).toInt(), 60);
        const EchogramColumns& columns = echogram.getColumns();
        QCOMPARE(columns.size(), std::size_t(61));
        QVERIFY(columns.isBreak(40));
        QCOMPARE(columns.getTimestamp(59), 1700000000000000LL + 58 * 100000);
        QVERIFY(sameColumn(columns, 45, expectedColumn(frames[44], 256, EchogramReduction::Maximum)));

        // Cancelled: the echogram shown before stays, and the widget goes on working.
        echogram.loadRecording(large);
        echogram.cancelLoad();
        QCOMPARE(finished.count(), 2);
        QCOMPARE(finished.at(1).at(0).toBool(), false);
        QVERIFY(!echogram.isLoading());
        QTest::qWait(50);
        QCOMPARE(columns.size(), std::size_t(61));
        echogram.loadRecording(QStringLiteral("/nonexistent/recording.nrec"));
        QTRY_COMPARE(finished.count(), 3);
        QCOMPARE(finished.at(2).at(0).toBool(), false);
        QVERIFY(echogram.getLoadMessage().contains("recording.nrec"));
        echogram.loadRecording(large);
        QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 4, 20000);
        QCOMPARE(finished.at(3).at(0).toBool(), true);
        QCOMPARE(columns.size(), std::size_t(1002)); // back to the first layout: a second break
    }
};

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QApplication app(argc, argv);
    TestEchogram test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_echogram.moc"
