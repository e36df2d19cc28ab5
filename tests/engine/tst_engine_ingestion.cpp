// Engine behaviour that needs no GL context: frames, thresholds, settings,
// palette selection, bounds, hit testing, range lines/arcs and range labels.

#include "FanGeometryEngineProbe.h"
#include "TestFrames.h"
#include "TestUnits.h"

#include <QDir>
#include <QtTest>

#include <atomic>
#include <cmath>
#include <locale>
#include <random>

using namespace Halcyra::Nereon::Visualisation;
using Halcyra::Nereon::NereonImage;
using TestSupport::uniformFrame;
namespace Options = FanDisplayOptions;

namespace {

bool near(double a, double b)
{
    return std::abs(a - b) < 1e-4;
}

NereonImage frameOf(const std::vector<std::uint8_t>& data, int beams)
{
    return TestSupport::makeFrame(beams, int(data.size()) / beams, 10.0,
        [&](int beam, int line) { return data[std::size_t(line * beams + beam)]; });
}

// Straightforward thresholds, to hold the engine's fast counting against.
void referenceThresholds(const std::vector<std::uint8_t>& data, float clamp, float& lower, float& upper)
{
    std::int64_t counts[256] = {};
    for (const std::uint8_t v : data)
        ++counts[v];
    const auto target = std::int64_t(std::int32_t(float(data.size()) * clamp));
    std::int64_t sum = 0;
    int b = 0;
    while (b < 256 && (sum += counts[b]) < target)
        ++b;
    if (b < 256)
        lower = float(b) / 255.0f * 0.2f + 0.8f * lower;
    sum = 0;
    for (b = 255; b >= 1 && (sum += counts[b]) < target;)
        --b;
    if (b >= 1)
        upper = float(b) / 255.0f * 0.2f + 0.8f * upper;
}

// A decimal comma, as in a German global locale.
struct CommaDecimal : std::numpunct<char>
{
    char do_decimal_point() const override { return ','; }
};

} // namespace

class TestEngineIngestion : public QObject
{
    Q_OBJECT

    // A fresh engine for every case.
    std::unique_ptr<FanGeometryEngine> engine;
    std::unique_ptr<FanGeometryEngineProbe> inspect;
    TestSupport::ScaledUnit metres = TestSupport::metres();

private slots:
    void init()
    {
        inspect.reset();
        engine = std::make_unique<FanGeometryEngine>();
        inspect = std::make_unique<FanGeometryEngineProbe>(*engine);
    }

    void layoutChanges()
    {
        // The first frame replaces the zero bearings although width and first bearing match.
        engine->processNewImage(uniformFrame(256, 4, 10.0, 0, 0, 13000));
        QVERIFY(inspect->newGeometry() && inspect->newImage() && inspect->aperture() == 130.0f);

        // Same width and first bearing, different later bearings: the old layout stays.
        inspect->newGeometry() = false;
        engine->processNewImage(uniformFrame(256, 4, 10.0, 0, 0, 9000));
        QCOMPARE(inspect->bearings().back(), std::int16_t(13000));
        QVERIFY(!inspect->newGeometry());

        // A new first bearing takes the new table; the aperture keeps hundredths, the start
        // angle is truncated.
        engine->processNewImage(uniformFrame(256, 4, 10.0, 0, -6475, 6475));
        QVERIFY(inspect->newGeometry() && inspect->aperture() == 129.5f && inspect->startAngle() == 25);
    }

    void thresholdExamples()
    {
        // Default clamp 0: the thresholds stay at exactly 0 and 1.
        engine->processNewImage(uniformFrame(1000, 1, 10.0, 90));
        QVERIFY(inspect->lowerThreshold() == 0.0f && inspect->upperThreshold() == 1.0f);

        // Lowest 1 % ends at bin 51, highest 1 % begins at bin 204; a clamp above 1
        // asks for more bytes than there are.
        std::vector<std::uint8_t> data(10000, 128);
        std::fill(data.begin(), data.begin() + 99, 0);
        data[99] = 51;
        std::fill(data.end() - 99, data.end(), 255);
        data[data.size() - 100] = 204;
        for (float clamp : { 0.01f, 1.0e12f }) {
            engine->setClampLevel(clamp);
            engine->processNewImage(frameOf(data, 100));
            QCOMPARE(inspect->lowerThreshold(), 0.04f);
            QCOMPARE(inspect->upperThreshold(), 0.96f);
        }

        // All zero: the low end stops at bin 0, the high end never reaches the target.
        engine->setClampLevel(0.01f);
        engine->processNewImage(uniformFrame(4096, 1, 10.0, 0));
        QCOMPARE(inspect->lowerThreshold(), 0.8f * 0.04f);
        QCOMPARE(inspect->upperThreshold(), 0.96f);
    }

    void thresholdsMatchReference()
    {
        // Dark frames whose size is not a whole number of the counter's 8-byte words, alternating
        // with frames where every 61st byte is 0 and the rest 128: a sparse look promises enough
        // zeros at the low end, which the full frame does not have.
        engine->setClampLevel(0.02f);
        float lower = 0.0f, upper = 1.0f;
        std::mt19937 random(5);
        for (int frame = 0; frame < 4; ++frame) {
            const int beams = frame % 2 ? 512 : 509;
            std::vector<std::uint8_t> data(std::size_t(beams * 515));
            for (std::size_t i = 0; i < data.size(); ++i)
                data[i] = frame % 2 ? std::uint8_t(i % 61 ? 128 : 0)
                                    : std::uint8_t(random() % 100 < 97 ? 0 : random());
            referenceThresholds(data, 0.02f, lower, upper);
            engine->processNewImage(frameOf(data, beams));
            QVERIFY2(std::abs(inspect->lowerThreshold() - lower) < 1e-6f
                    && std::abs(inspect->upperThreshold() - upper) < 1e-6f,
                qPrintable(QString::number(frame)));
        }
    }

    void thresholdsFollowFramesInOrder_data()
    {
        QTest::addColumn<bool>("background");
        QTest::newRow("on the caller's thread") << false;
        QTest::newRow("on the worker") << true;
    }
    void thresholdsFollowFramesInOrder()
    {
        // Frames counted (on the worker while more come), clamp changes and recounts in between,
        // a switch of thread half-way: every frame moves the thresholds once, in order, with the
        // clamp of its arrival.
        QFETCH(bool, background);
        engine->setBackgroundProcessing(background);
        const auto threads = [] { return QDir(QStringLiteral("/proc/self/task")).count(); };
        // The last test's worker, joined as its engine went, can stay listed
        // for a moment while it exits (for long under an emulator).
        uint threadsBefore = threads();
        for (int wait = 0; wait < 100; ++wait) {
            QTest::qSleep(10);
            if (threads() == threadsBefore)
                break;
            threadsBefore = threads();
        }
        std::mt19937 random(11);
        const auto randomFrame = [&random](int beams, int lines) {
            std::vector<std::uint8_t> data(std::size_t(beams * lines));
            const int bright = int(random() % 200);
            for (std::uint8_t& v : data)
                v = std::uint8_t(random() % 100 < 90 ? random() % 40 : bright + int(random() % 56));
            return data;
        };
        // Made first, so that they follow one another faster than the worker counts them.
        std::vector<NereonImage> frames;
        for (int step = 0; step < 12; ++step) {
            const int beams = step % 3 ? 512 : 257;
            frames.push_back(frameOf(randomFrame(beams, 100 + 20 * step), beams));
        }
        float lower = 0.0f, upper = 1.0f;
        const float clamps[] = { 0.01f, 0.2f, 0.0f, 0.05f };
        for (int step = 0; step < 12; ++step) {
            const float clamp = clamps[step % 4];
            const std::vector<std::uint8_t>& data = frames[std::size_t(step)].getData();
            engine->setClampLevel(clamp);
            if (step == 8) {
                // Unless asked for, the engine starts no thread.
                QCOMPARE(threads() == threadsBefore, !background);
                engine->setBackgroundProcessing(!background);
            }
            engine->processNewImage(frames[std::size_t(step)]);
            referenceThresholds(data, clamp, lower, upper);
            if (step == 5) {
                // A recount of the newest frame comes after every frame before it.
                engine->setClampLevel(0.3f);
                engine->calculateThresholds();
                referenceThresholds(data, 0.3f, lower, upper);
            }
            // Within float rounding: compilers may fuse the smoothing's multiply and add
            // differently here and in the engine (aarch64 does); a frame counted twice, out of
            // order or not at all moves a threshold by far more.
            if (step % 4 == 3)
                QVERIFY2(std::abs(engine->getLowerThreshold() - lower) < 1e-6f
                        && std::abs(engine->getUpperThreshold() - upper) < 1e-6f,
                    qPrintable(QString::asprintf("step %d: %.9g %.9g, expected %.9g %.9g", step,
                        double(engine->getLowerThreshold()), double(engine->getUpperThreshold()),
                        double(lower), double(upper))));
        }
        QCOMPARE(engine->getUpperThreshold(), upper);
        QCOMPARE(engine->getLowerThreshold(), lower);
    }

    void destroyedWithWorkPending_data()
    {
        QTest::addColumn<int>("despeckleLevel");
        QTest::newRow("counting") << 0;
        QTest::newRow("smoothing") << 41;
    }
    void destroyedWithWorkPending()
    {
        // Queued frames are dropped and nothing is announced after the callback is cleared; the
        // sanitizers see to what is left behind.
        QFETCH(int, despeckleLevel);
        engine->setBackgroundProcessing(true);
        std::atomic<int> announced { 0 };
        engine->setFrameReadyCallback([&announced] { ++announced; });
        engine->setDespeckleLevel(despeckleLevel);
        const NereonImage frame = uniformFrame(512, 500, 10.0, 30);
        engine->processNewImage(frame);
        QTRY_VERIFY_WITH_TIMEOUT(announced > 0, 60000); // generous for emulated builds
        for (int i = 0; i < 20; ++i)
            engine->processNewImage(frame);
        engine->setFrameReadyCallback(nullptr);
        const int before = announced;
        engine.reset();
        QCOMPARE(int(announced), before);
    }

    void settingsAndModifierRouting()
    {
        Options::DisplaySettings fire;
        fire.palette = Options::Fire;
        fire.paletteModifier = 77;
        fire.horizontalFlip = true;
        engine->configureFromSettings(fire);
        engine->configureFromSettings(fire); // stored, never toggled
        Options::DisplaySettings out = engine->getCurrentDisplaySettings();
        QVERIFY(out.palette == Options::Fire && out.paletteModifier == 77 && out.horizontalFlip);
        QVERIFY(!out.clearColour.isValid() && !out.showRangeLabels); // the widget's share

        // A fixed palette reports modifier 0 and drops modifiers; a modifier
        // goes only to the selected dynamic palette.
        Options::DisplaySettings green;
        green.palette = Options::Green;
        engine->configureFromSettings(green);
        engine->setPaletteModifier(5);
        out = engine->getCurrentDisplaySettings();
        QVERIFY(out.paletteModifier == 0 && !out.horizontalFlip);
        engine->setPalette(Options::Aqua);
        engine->setPaletteModifier(200);
        QCOMPARE(int(inspect->firePalette()->getModifier()), 77);
        QCOMPARE(int(inspect->aquaPalette()->getModifier()), 200);

        // The standard texture's first band is the top of the picture, the far end of t.
        engine->setPalette(Options::Greyscale);
        QCOMPARE(inspect->chosenPalette(), 0.9166667f);
    }

    void rangeLinesAndArcs()
    {
        engine->processNewImage(uniformFrame(256, 4, 10.0, 0));
        engine->calculateStraightLineGeometry();
        const std::vector<float>& lines = inspect->rangeLineVertices();
        QCOMPARE(lines.size(), std::size_t(20));
        // From the apex, right-hand edge first, left-hand edge last.
        QVERIFY(lines[0] == 0.0f && lines[1] == 0.0f && near(lines[2], 0.9063f) && near(lines[3], 0.4226f));
        QVERIFY(near(lines[18], -0.9063f) && near(lines[19], 0.4226f));

        // The second of five arcs runs from the right-hand edge to the left-hand edge at 0.4.
        engine->calculateArcGeometry();
        const std::vector<float>& arc = inspect->rangeArcVertices()[1];
        QVERIFY(arc.size() == 512 && near(arc[0], 0.9063f * 0.4f) && near(arc[510], -0.9063f * 0.4f));
    }

    void fanBounds()
    {
        // Turned to 300 the span crosses 360 and 450; turned to 65 it starts exactly on the 90
        // entry, which is skipped, and the start supplies y = 1.
        const std::pair<float, QRectF> cases[] = { { 300.0f, QRectF(-0.0872, 1.0, 1.0872, -1.5736) },
            { 65.0f, QRectF(-1.0, 1.0, 1.0, -1.6428) } };
        for (const auto& [rotation, expected] : cases) {
            const QRectF b = engine->getFanBounds(rotation);
            const double error = (b.topLeft() - expected.topLeft()).manhattanLength()
                + (b.bottomRight() - expected.bottomRight()).manhattanLength();
            QVERIFY2(error < 4e-3, qPrintable(QString::number(double(rotation))));
        }
    }

    void hitTest()
    {
        // Three beams: the polygon is the apex and three rim points joined by chords.
        engine->processNewImage(uniformFrame(3, 4, 10.0, 0));
        QMatrix4x4 transform;
        transform.translate(0.0f, -0.5f);
        transform.scale(0.8f);
        QVERIFY(engine->pointIsWithinFan(QPointF(0.0, 0.0), transform));
        const double a = qDegreesToRadians(57.5); // inside the circle, beyond a chord
        QVERIFY(!engine->pointIsWithinFan(QPointF(0.76 * std::cos(a), -0.5 + 0.76 * std::sin(a)), transform));

        // A new layout under the same transform answers from the cached polygon;
        // a changed transform rebuilds it for the current beams.
        engine->processNewImage(uniformFrame(256, 4, 10.0, 0));
        engine->pointIsWithinFan(QPointF(0.0, 0.0), transform);
        QCOMPARE(inspect->fanPolygon().size(), 4);
        transform.rotate(180.0f, 0.0f, 0.0f, 1.0f);
        QVERIFY(engine->pointIsWithinFan(QPointF(0.0, -0.9), transform));
        QCOMPARE(inspect->fanPolygon().size(), 257);
    }

    void rangeLabels()
    {
        QVERIFY(engine->getRangeLabelParams(90.0f).empty()); // no unit yet
        engine->setDistanceUnit(&metres);
        engine->processNewImage(uniformFrame(256, 8, 12.34, 0));

        // Numbers are written as the application's global locale writes them.
        const std::locale previous
            = std::locale::global(std::locale(std::locale::classic(), new CommaDecimal));
        // Turned by 90 degrees, the left-hand labels would read upside down, so they are flipped.
        const std::vector<RangeLabelParams> labels = engine->getRangeLabelParams(90.0f);
        std::locale::global(previous);
        QCOMPARE(labels.size(), std::size_t(10));
        const RangeLabelParams &right = labels[8], &left = labels[9];
        QVERIFY(right.angle == -65 && left.angle == -115 && !right.screenCoordinates);
        QVERIFY(int(right.anchor) == 16 && int(left.anchor) == 16 && right.text == " 12,3m"
            && left.text == right.text);
        QVERIFY(near(right.x, 0.90631) && near(right.y, 0.42262) && near(left.x, -0.90631));
    }
};

QTEST_GUILESS_MAIN(TestEngineIngestion)
#include "tst_engine_ingestion.moc"
