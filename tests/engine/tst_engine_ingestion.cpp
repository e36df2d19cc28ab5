// Engine behaviour that needs no GL context: frames, thresholds, settings,
// palette selection, bounds, hit testing, range lines/arcs and range labels.

#include "FanGeometryEngineInspector.h"
#include "TestFrames.h"
#include "TestUnits.h"

#include <QtTest>

#include <locale>
#include <random>

using namespace Halcyra::Nereon::Visualisation;
using Halcyra::Nereon::NereonImage;
using TestSupport::uniformFrame;
namespace Options = FanDisplayOptions;

namespace {

bool near(double a, double b, double tolerance = 1e-4)
{
    return std::abs(a - b) < tolerance;
}

NereonImage frameOf(const std::vector<std::uint8_t>& data, int beams = 0)
{
    beams = beams ? beams : int(data.size());
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

// A decimal comma, to show that labels do not follow the global locale's punctuation.
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
    std::unique_ptr<FanGeometryEngineInspector> inspect;
    TestSupport::ScaledUnit metres = TestSupport::metres();

private slots:
    void init()
    {
        engine = std::make_unique<FanGeometryEngine>();
        inspect = std::make_unique<FanGeometryEngineInspector>(*engine);
    }

    void layoutChanges()
    {
        // The first frame replaces the zero bearings although width and first bearing match.
        engine->processNewImage(uniformFrame(256, 4, 10.0, 0, 0, 13000));
        QVERIFY(inspect->newGeometry() && inspect->newImage());
        QCOMPARE(inspect->aperture(), 130.0f);

        // Same width and first bearing, different later bearings: the old layout stays.
        inspect->newGeometry() = false;
        engine->processNewImage(uniformFrame(256, 4, 10.0, 0, 0, 9000));
        QCOMPARE(inspect->bearings().back(), std::int16_t(13000));
        QVERIFY(!inspect->newGeometry());

        // A new first bearing takes the new table; the aperture keeps hundredths, the start
        // angle is truncated.
        engine->processNewImage(uniformFrame(256, 4, 10.0, 0, -6475, 6475));
        QVERIFY(inspect->newGeometry());
        QCOMPARE(inspect->aperture(), 129.5f);
        QCOMPARE(inspect->startAngle(), std::int16_t(25));

        // A new width with the same first bearing takes it too, and the height follows.
        inspect->newGeometry() = false;
        engine->processNewImage(uniformFrame(100, 7, 10.0, 0, -6475, -1925));
        QVERIFY(inspect->width() == 100 && inspect->height() == 7 && inspect->bearings().size() == 100);
        QVERIFY(inspect->newGeometry());
        QCOMPARE(inspect->aperture(), 45.5f);
        QCOMPARE(inspect->startAngle(), std::int16_t(67));
    }

    void thresholdExamples()
    {
        // Default clamp 0: the thresholds stay at exactly 0 and 1.
        for (std::uint8_t value : { 90, 0, 255 })
            engine->processNewImage(uniformFrame(1000, 1, 10.0, value));
        QVERIFY(inspect->lowerThreshold() == 0.0f && inspect->upperThreshold() == 1.0f);

        // Lowest 1 % ends at bin 51, highest 1 % begins at bin 204; a clamp above 1
        // asks for more bytes than there are, however large it is.
        std::vector<std::uint8_t> data(10000, 128);
        std::fill(data.begin(), data.begin() + 99, 0);
        data[99] = 51;
        std::fill(data.end() - 99, data.end(), 255);
        data[data.size() - 100] = 204;
        for (float clamp : { 0.01f, 1.5f, 1.0e12f }) {
            engine->setClampLevel(clamp);
            engine->processNewImage(frameOf(data));
            QCOMPARE(inspect->lowerThreshold(), 0.04f);
            QCOMPARE(inspect->upperThreshold(), 0.96f);
        }

        // All zero: the low end stops at bin 0, the high end never reaches the target.
        engine->setClampLevel(0.01f);
        engine->processNewImage(uniformFrame(4096, 1, 10.0, 0));
        QCOMPARE(inspect->lowerThreshold(), 0.8f * 0.04f);
        QCOMPARE(inspect->upperThreshold(), 0.96f);
    }

    void thresholdsMatchReference_data()
    {
        QTest::addColumn<int>("beams");
        QTest::addColumn<int>("lines");
        QTest::addColumn<float>("clamp");
        QTest::addColumn<int>("zeroPercent");
        // Sizes around the 8-byte words of the counter, dark and bright frames.
        QTest::newRow("7 bytes") << 7 << 1 << 0.3f << 50;
        QTest::newRow("dark 4099") << 4099 << 1 << 0.01f << 90;
        QTest::newRow("dark 509 x 515, clamp 0.5") << 509 << 515 << 0.5f << 97;
        QTest::newRow("clamp 1 exactly") << 100 << 10 << 1.0f << 30;
        // Every 61st byte is 0 (or now and then 255), the rest 128: a sparse look
        // promises enough zeros at the low end, which the full frame does not have.
        QTest::newRow("misleading sample") << 512 << 128 << 0.02f << -1;
    }
    void thresholdsMatchReference()
    {
        QFETCH(int, beams);
        QFETCH(int, lines);
        QFETCH(float, clamp);
        QFETCH(int, zeroPercent);
        engine->setClampLevel(clamp);
        float lower = 0.0f, upper = 1.0f;
        std::mt19937 random(std::uint32_t(beams * lines + zeroPercent));
        std::uniform_int_distribution<int> percent(0, 99), byte(0, 255);
        const auto nextByte = [&](std::size_t i) -> std::uint8_t {
            if (zeroPercent < 0)
                return i % 61 ? 128 : (i / 61) % 20 ? 0 : 255;
            return percent(random) < zeroPercent ? 0 : std::uint8_t(byte(random));
        };
        for (int frame = 0; frame < 3; ++frame) {
            std::vector<std::uint8_t> data(std::size_t(beams * lines));
            for (std::size_t i = 0; i < data.size(); ++i)
                data[i] = nextByte(i);
            referenceThresholds(data, clamp, lower, upper);
            engine->processNewImage(frameOf(data, beams));
            QVERIFY(inspect->intensityData() == data);
            QVERIFY(inspect->lowerThreshold() == lower && inspect->upperThreshold() == upper);
            // On the stored bytes alone as well.
            referenceThresholds(data, clamp, lower, upper);
            engine->calculateThresholds();
            QVERIFY(inspect->lowerThreshold() == lower && inspect->upperThreshold() == upper);
        }
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
        QVERIFY(inspect->newGeometry());
        QVERIFY(!out.clearColour.isValid() && !out.showRangeLabels); // the widget's share

        // A fixed palette reports modifier 0 and drops modifiers; a modifier
        // goes only to the selected dynamic palette.
        Options::DisplaySettings green;
        green.palette = Options::Green;
        green.paletteModifier = 9;
        engine->configureFromSettings(green);
        engine->setPaletteModifier(5);
        out = engine->getCurrentDisplaySettings();
        QVERIFY(out.paletteModifier == 0 && !out.horizontalFlip);
        engine->setPalette(Options::Aqua);
        engine->setPaletteModifier(200);
        QCOMPARE(int(engine->getCurrentDisplaySettings().paletteModifier), 200);
        QCOMPARE(int(inspect->firePalette()->getModifier()), 77);
        QCOMPARE(int(inspect->aquaPalette()->getModifier()), 200);
    }

    void paletteSelection_data()
    {
        QTest::addColumn<int>("palette");
        QTest::addColumn<float>("chosen");
        QTest::newRow("Greyscale") << 0 << 0.9166667f;
        QTest::newRow("Multicolour") << 5 << 0.0833334f;
        QTest::newRow("Fire") << 6 << 0.5f;
        QTest::newRow("above 7") << 8 << 0.5f;
        QTest::newRow("negative") << -1 << 1.0833334f;
    }
    void paletteSelection()
    {
        QFETCH(int, palette);
        QFETCH(float, chosen);
        QCOMPARE(inspect->chosenPalette(), 0.083333336f);
        engine->setPalette(Options::Palette(palette));
        QCOMPARE(int(inspect->palette()), palette);
        QCOMPARE(inspect->chosenPalette(), chosen);
    }

    void rangeLinesAndArcs()
    {
        engine->processNewImage(uniformFrame(256, 4, 10.0, 0));
        engine->calculateStraightLineGeometry();
        const std::vector<float>& lines = inspect->rangeLineVertices();
        QCOMPARE(lines.size(), std::size_t(20));
        const float ends[5][2] = { { 0.9063f, 0.4226f }, { 0.5373f, 0.8434f }, { 0.0f, 1.0f },
            { -0.5373f, 0.8434f }, { -0.9063f, 0.4226f } };
        for (std::size_t i = 0; i < 5; ++i)
            QVERIFY2(lines[4 * i] == 0.0f && lines[4 * i + 1] == 0.0f && near(lines[4 * i + 2], ends[i][0])
                    && near(lines[4 * i + 3], ends[i][1]),
                qPrintable(QString::number(i)));

        // Each arc runs from the right-hand edge to the left-hand edge on its radius.
        engine->calculateArcGeometry();
        for (std::size_t k = 1; k <= 5; ++k) {
            const std::vector<float>& arc = inspect->rangeArcVertices()[k - 1];
            const float r = float(k) / 5.0f;
            QCOMPARE(arc.size(), std::size_t(512));
            QVERIFY(near(arc[0], 0.9063f * r) && near(arc[1], 0.4226f * r));
            QVERIFY(near(arc[510], -0.9063f * r) && near(arc[511], 0.4226f * r));
            QVERIFY(near(std::hypot(arc[256], arc[257]), r, 1e-5));
        }
    }

    void fanBounds_data()
    {
        QTest::addColumn<float>("rotation");
        QTest::addColumn<QRectF>("expected");
        QTest::newRow("0") << 0.0f << QRectF(-0.9063, 1.0, 1.8126, -1.0);
        QTest::newRow("90") << 90.0f << QRectF(-1.0, 0.9063, 1.0, -1.8126);
        QTest::newRow("300 crosses 360 and 450") << 300.0f << QRectF(-0.0872, 1.0, 1.0872, -1.5736);
        // The span starts exactly on the 90 entry, which is skipped; the start supplies y = 1.
        QTest::newRow("start on an axis") << 65.0f << QRectF(-1.0, 1.0, 1.0, -1.6428);
    }
    void fanBounds()
    {
        QFETCH(float, rotation);
        QFETCH(QRectF, expected);
        const QRectF b = engine->getFanBounds(rotation);
        QVERIFY2(near(b.x(), expected.x(), 1e-3) && near(b.y(), expected.y(), 1e-3)
                && near(b.width(), expected.width(), 1e-3) && near(b.height(), expected.height(), 1e-3),
            qPrintable(QString::asprintf("got %g %g %g %g", b.x(), b.y(), b.width(), b.height())));
    }

    void hitTest()
    {
        // Three beams: the polygon is the apex and three rim points joined by chords.
        engine->processNewImage(uniformFrame(3, 4, 10.0, 0));
        QMatrix4x4 transform;
        transform.translate(0.0f, -0.5f);
        transform.scale(0.8f);
        QVERIFY(engine->pointIsWithinFan(QPointF(0.0, 0.0), transform));
        QVERIFY(engine->pointIsWithinFan(QPointF(-0.3, -0.2), transform));
        QCOMPARE(inspect->fanPolygon().size(), 4);
        QVERIFY(!engine->pointIsWithinFan(QPointF(0.0, 0.35), transform)); // beyond the rim
        QVERIFY(!engine->pointIsWithinFan(QPointF(0.5, -0.45), transform)); // right of the edge
        QVERIFY(!engine->pointIsWithinFan(QPointF(0.0, -0.6), transform)); // behind the apex
        const double a = qDegreesToRadians(57.5); // inside the circle, beyond a chord
        QVERIFY(!engine->pointIsWithinFan(QPointF(0.76 * std::cos(a), -0.5 + 0.76 * std::sin(a)), transform));

        // A new layout under the same transform answers from the cached polygon;
        // a changed transform rebuilds it for the current beams.
        engine->processNewImage(uniformFrame(256, 4, 10.0, 0));
        engine->pointIsWithinFan(QPointF(0.0, 0.0), transform);
        QCOMPARE(inspect->fanPolygon().size(), 4);
        transform.rotate(180.0f, 0.0f, 0.0f, 1.0f);
        QVERIFY(engine->pointIsWithinFan(QPointF(0.0, -0.9), transform));
        QVERIFY(!engine->pointIsWithinFan(QPointF(0.0, 0.0), transform));
        QCOMPARE(inspect->fanPolygon().size(), 257);
    }

    void rangeLabels_data()
    {
        QTest::addColumn<float>("rotation");
        QTest::addColumn<int>("rightAngle");
        QTest::addColumn<int>("leftAngle");
        QTest::addColumn<bool>("rightFlipped");
        QTest::addColumn<bool>("leftFlipped");
        QTest::newRow("0") << 0.0f << -65 << 65 << false << false;
        QTest::newRow("180") << 180.0f << -245 << -115 << true << true;
        QTest::newRow("90") << 90.0f << -65 << -115 << false << true;
        QTest::newRow("-200 is not reduced") << -200.0f << -65 << 65 << false << false;
    }
    void rangeLabels()
    {
        QFETCH(float, rotation);
        QFETCH(int, rightAngle);
        QFETCH(int, leftAngle);
        QFETCH(bool, rightFlipped);
        QFETCH(bool, leftFlipped);
        QVERIFY(engine->getRangeLabelParams(rotation).empty()); // no unit yet
        const TestSupport::ScaledUnit feet = TestSupport::feet();
        engine->setDistanceUnit(&metres);
        engine->processNewImage(uniformFrame(256, 8, 12.34, 0));

        // The application's global locale must not turn the point into a comma.
        const std::locale previous
            = std::locale::global(std::locale(std::locale::classic(), new CommaDecimal));
        const std::vector<RangeLabelParams> labels = engine->getRangeLabelParams(rotation);
        engine->setDistanceUnit(&feet);
        const std::string feetText = engine->getRangeLabelParams(rotation).back().text;
        std::locale::global(previous);
        QVERIFY2(feetText.find("40.5ft") != std::string::npos, feetText.c_str());

        QCOMPARE(labels.size(), std::size_t(10));
        const std::string numbers[] = { "2.5m", "4.9m", "7.4m", "9.9m", "12.3m" };
        for (int j = 1; j <= 5; ++j) {
            const std::string& number = numbers[j - 1];
            const RangeLabelParams& right = labels[std::size_t(2 * j - 2)];
            const RangeLabelParams& left = labels[std::size_t(2 * j - 1)];
            QVERIFY(right.angle == rightAngle && left.angle == leftAngle);
            QCOMPARE(int(right.anchor), rightFlipped ? 18 : 16);
            QCOMPARE(int(left.anchor), leftFlipped ? 16 : 18);
            QCOMPARE(right.text, rightFlipped ? number + ' ' : ' ' + number);
            QCOMPARE(left.text, leftFlipped ? ' ' + number : number + ' ');
            QVERIFY(!right.screenCoordinates && !left.screenCoordinates);
            QVERIFY(near(right.x, 0.181262 * j) && near(left.x, -0.181262 * j));
            QVERIFY(near(right.y, 0.084524 * j) && near(left.y, 0.084524 * j));
        }
    }
};

QTEST_GUILESS_MAIN(TestEngineIngestion)
#include "tst_engine_ingestion.moc"
