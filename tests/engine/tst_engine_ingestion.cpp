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
namespace Options = FanDisplayOptions;

Q_DECLARE_METATYPE(Options::Palette)

namespace {

NereonImage frameWithBearings(std::vector<std::int16_t> bearings, std::uint8_t value = 0)
{
    const auto beams = static_cast<std::uint16_t>(bearings.size());
    return NereonImage(
        beams, 4, std::vector<std::uint8_t>(beams * 4u, value), std::move(bearings), 10.0, 1.0);
}

// A frame of the given bytes, one range line unless a beam count is given.
NereonImage frameWithData(std::vector<std::uint8_t> data, int beams = 0)
{
    if (beams == 0)
        beams = int(data.size());
    const auto lines = static_cast<std::uint16_t>(int(data.size()) / beams);
    return NereonImage(std::uint16_t(beams), lines, std::move(data),
        TestSupport::evenBearings(beams, -6500, 6500), 10.0, 1.0);
}

// Straightforward thresholds, to hold the engine's fast counting against.
void referenceThresholds(const std::vector<std::uint8_t>& data, float clamp, float& lower, float& upper)
{
    std::uint64_t counts[256] = {};
    for (const std::uint8_t v : data)
        ++counts[v];
    const auto target = static_cast<std::int64_t>(static_cast<std::int32_t>(float(data.size()) * clamp));
    std::int64_t sum = 0;
    for (int b = 0; b < 256; ++b) {
        sum += std::int64_t(counts[b]);
        if (sum >= target) {
            lower = float(b) / 255.0f * 0.2f + 0.8f * lower;
            break;
        }
    }
    sum = 0;
    for (int b = 255; b >= 1; --b) {
        sum += std::int64_t(counts[b]);
        if (sum >= target) {
            upper = float(b) / 255.0f * 0.2f + 0.8f * upper;
            break;
        }
    }
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

private slots:
    void layoutChanges();
    void apertureFromBearings_data();
    void apertureFromBearings();
    void thresholdExamples();
    void thresholdsMatchReference_data();
    void thresholdsMatchReference();
    void settingsRoundTrip();
    void paletteSelection_data();
    void paletteSelection();
    void rangeLinesAndArcs();
    void fanBounds_data();
    void fanBounds();
    void hitTest();
    void rangeLabels_data();
    void rangeLabels();
    void rangeLabelNumbers();
};

void TestEngineIngestion::layoutChanges()
{
    FanGeometryEngine engine;
    FanGeometryEngineInspector inspect(engine);

    // The first frame replaces the zero bearings although width and first bearing match.
    engine.processNewImage(frameWithBearings(TestSupport::evenBearings(256, 0, 13000)));
    QCOMPARE(inspect.bearings().back(), std::int16_t(13000));
    QCOMPARE(inspect.aperture(), 130.0f);
    QVERIFY(inspect.newGeometry());
    QVERIFY(inspect.newImage());

    // Same width and first bearing, different later bearings: the old layout stays.
    inspect.newGeometry() = false;
    engine.processNewImage(frameWithBearings(TestSupport::evenBearings(256, 0, 9000)));
    QCOMPARE(inspect.bearings().back(), std::int16_t(13000));
    QCOMPARE(inspect.aperture(), 130.0f);
    QVERIFY(!inspect.newGeometry());

    // A new first bearing takes the new table.
    engine.processNewImage(frameWithBearings(TestSupport::evenBearings(256, -4500, 4500)));
    QCOMPARE(inspect.aperture(), 90.0f);
    QCOMPARE(inspect.startAngle(), std::int16_t(45));
    QVERIFY(inspect.newGeometry());

    // A new width with the same first bearing takes it too, and the height follows.
    inspect.newGeometry() = false;
    engine.processNewImage(frameWithBearings(TestSupport::evenBearings(100, -4500, 6000)));
    QCOMPARE(inspect.width(), 100);
    QCOMPARE(inspect.height(), 4);
    QCOMPARE(inspect.bearings().size(), std::size_t(100));
    QCOMPARE(inspect.aperture(), 105.0f);
    QVERIFY(inspect.newGeometry());
    QCOMPARE(engine.getRange(), 10.0);
}

void TestEngineIngestion::apertureFromBearings_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("last");
    QTest::addColumn<float>("aperture");
    QTest::addColumn<int>("startAngle");

    QTest::newRow("130 degrees") << -6500 << 6500 << 130.0f << 25;
    QTest::newRow("129.5 degrees truncates") << -6475 << 6475 << 129.5f << 25;
    QTest::newRow("90 degrees") << -4500 << 4500 << 90.0f << 45;
    QTest::newRow("odd 45.5 degrees") << -2275 << 2275 << 45.5f << 67;
}

void TestEngineIngestion::apertureFromBearings()
{
    QFETCH(int, first);
    QFETCH(int, last);
    QFETCH(float, aperture);
    QFETCH(int, startAngle);

    FanGeometryEngine engine;
    FanGeometryEngineInspector inspect(engine);
    engine.processNewImage(frameWithBearings(TestSupport::evenBearings(64, first, last)));
    QCOMPARE(inspect.aperture(), aperture);
    QCOMPARE(int(inspect.startAngle()), startAngle);
}

void TestEngineIngestion::thresholdExamples()
{
    FanGeometryEngine engine;
    FanGeometryEngineInspector inspect(engine);

    // Default clamp 0: the thresholds stay at exactly 0 and 1.
    for (std::uint8_t value : { 90, 0, 255 })
        engine.processNewImage(frameWithData(std::vector<std::uint8_t>(1000, value)));
    QCOMPARE(inspect.lowerThreshold(), 0.0f);
    QCOMPARE(inspect.upperThreshold(), 1.0f);

    // Lowest 1 % ends at bin 51, highest 1 % begins at bin 204.
    std::vector<std::uint8_t> data(10000, 128);
    std::fill(data.begin(), data.begin() + 99, 0);
    data[99] = 51;
    std::fill(data.end() - 99, data.end(), 255);
    data[data.size() - 100] = 204;
    engine.setClampLevel(0.01f);
    engine.processNewImage(frameWithData(data));
    QCOMPARE(inspect.lowerThreshold(), 0.04f);
    QCOMPARE(inspect.upperThreshold(), 0.96f);

    // A clamp above 1 asks for more bytes than there are, however large it is.
    for (float clamp : { 1.5f, 1.0e12f }) {
        engine.setClampLevel(clamp);
        engine.processNewImage(frameWithData(data));
        QCOMPARE(inspect.lowerThreshold(), 0.04f);
        QCOMPARE(inspect.upperThreshold(), 0.96f);
    }

    // All zero with a positive clamp: the low end stops at bin 0, the high end
    // never reaches the target because bin 0 is not visited.
    engine.setClampLevel(0.01f);
    engine.processNewImage(frameWithData(std::vector<std::uint8_t>(4096, 0)));
    QCOMPARE(inspect.lowerThreshold(), 0.8f * 0.04f);
    QCOMPARE(inspect.upperThreshold(), 0.96f);
}

void TestEngineIngestion::thresholdsMatchReference_data()
{
    QTest::addColumn<int>("beams");
    QTest::addColumn<int>("lines");
    QTest::addColumn<float>("clamp");
    QTest::addColumn<int>("zeroPercent");

    // Sizes around the 8-byte words of the counter, dark and bright frames.
    QTest::newRow("1 byte") << 1 << 1 << 0.5f << 0;
    QTest::newRow("7 bytes") << 7 << 1 << 0.3f << 50;
    QTest::newRow("9 bytes") << 9 << 1 << 0.2f << 50;
    QTest::newRow("dark 4099") << 4099 << 1 << 0.01f << 90;
    QTest::newRow("all random 256 x 256") << 256 << 256 << 0.05f << 0;
    QTest::newRow("dark 509 x 515, clamp 0.5") << 509 << 515 << 0.5f << 97;
    QTest::newRow("dark 509 x 131, clamp 0.01") << 509 << 131 << 0.01f << 90;
    QTest::newRow("clamp 1 exactly") << 100 << 10 << 1.0f << 30;
    QTest::newRow("bright 512 x 256, clamp 0.02") << 512 << 256 << 0.02f << 1;
    // Every 61st byte is 0 (or now and then 255), the rest 128: a sparse look
    // promises enough zeros at the low end, which the full frame does not have.
    QTest::newRow("misleading sample") << 512 << 128 << 0.02f << -1;
}

void TestEngineIngestion::thresholdsMatchReference()
{
    QFETCH(int, beams);
    QFETCH(int, lines);
    QFETCH(float, clamp);
    const int size = beams * lines;
    QFETCH(int, zeroPercent);

    FanGeometryEngine engine;
    FanGeometryEngineInspector inspect(engine);
    engine.setClampLevel(clamp);
    float lower = 0.0f;
    float upper = 1.0f;

    std::mt19937 random(std::uint32_t(size) * 31u + std::uint32_t(zeroPercent));
    std::uniform_int_distribution<int> percent(0, 99);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int frame = 0; frame < 4; ++frame) {
        std::vector<std::uint8_t> data(static_cast<std::size_t>(size));
        for (std::size_t i = 0; i < data.size(); ++i) {
            if (zeroPercent < 0)
                data[i] = i % 61 ? 128 : (i / 61) % 20 ? 0 : 255;
            else
                data[i] = percent(random) < zeroPercent ? 0 : std::uint8_t(byte(random));
        }
        referenceThresholds(data, clamp, lower, upper);
        engine.processNewImage(frameWithData(data, beams));
        QVERIFY(inspect.intensityData() == data);
        QCOMPARE(inspect.lowerThreshold(), lower);
        QCOMPARE(inspect.upperThreshold(), upper);

        // calculateThresholds works on the stored bytes on its own as well.
        referenceThresholds(data, clamp, lower, upper);
        engine.calculateThresholds();
        QCOMPARE(inspect.lowerThreshold(), lower);
        QCOMPARE(inspect.upperThreshold(), upper);
    }
}

void TestEngineIngestion::settingsRoundTrip()
{
    FanGeometryEngine engine;
    FanGeometryEngineInspector inspect(engine);

    Options::DisplaySettings fire;
    fire.palette = Options::Fire;
    fire.paletteModifier = 77;
    fire.horizontalFlip = true;
    inspect.newGeometry() = false;
    engine.configureFromSettings(fire);
    engine.configureFromSettings(fire); // applied twice: stored, never toggled
    QVERIFY(inspect.newGeometry());
    QCOMPARE(int(inspect.aquaPalette()->getModifier()), 0);

    Options::DisplaySettings out = engine.getCurrentDisplaySettings();
    QCOMPARE(out.palette, Options::Fire);
    QCOMPARE(int(out.paletteModifier), 77);
    QVERIFY(out.horizontalFlip);
    QVERIFY(!out.clearColour.isValid() && !out.showRangeLabels); // the widget's share

    // A fixed palette reports modifier 0, and modifiers sent meanwhile are dropped.
    Options::DisplaySettings green;
    green.palette = Options::Green;
    green.paletteModifier = 9;
    engine.configureFromSettings(green);
    engine.setPaletteModifier(5);
    out = engine.getCurrentDisplaySettings();
    QCOMPARE(int(out.paletteModifier), 0);
    QVERIFY(!out.horizontalFlip);
    QCOMPARE(int(inspect.firePalette()->getModifier()), 77);
    QCOMPARE(int(inspect.aquaPalette()->getModifier()), 0);

    // A modifier goes only to the selected dynamic palette.
    engine.setPalette(Options::Aqua);
    engine.setPaletteModifier(200);
    QCOMPARE(int(engine.getCurrentDisplaySettings().paletteModifier), 200);
    QCOMPARE(int(inspect.firePalette()->getModifier()), 77);

    engine.horizontalFlip();
    engine.horizontalFlip();
    QVERIFY(!inspect.flipped());
}

void TestEngineIngestion::paletteSelection_data()
{
    QTest::addColumn<int>("palette");
    QTest::addColumn<float>("chosen");

    QTest::newRow("Greyscale") << 0 << 0.9166667f;
    QTest::newRow("Bronze") << 1 << 0.75f;
    QTest::newRow("Blue") << 2 << 0.5833333f;
    QTest::newRow("Green") << 3 << 0.4166667f;
    QTest::newRow("RedYellow") << 4 << 0.25f;
    QTest::newRow("Multicolour") << 5 << 0.0833334f;
    QTest::newRow("Fire") << 6 << 0.5f;
    QTest::newRow("Aqua") << 7 << 0.5f;
    QTest::newRow("above 7") << 8 << 0.5f;
    QTest::newRow("negative") << -1 << 1.0833334f;
}

void TestEngineIngestion::paletteSelection()
{
    QFETCH(int, palette);
    QFETCH(float, chosen);

    FanGeometryEngine engine;
    FanGeometryEngineInspector inspect(engine);
    QCOMPARE(inspect.chosenPalette(), 0.083333336f);

    engine.setPalette(Options::Palette(palette));
    QCOMPARE(int(inspect.palette()), palette);
    QCOMPARE(inspect.chosenPalette(), chosen);

    // configureFromSettings selects the same way.
    engine.setPalette(Options::Blue);
    Options::DisplaySettings settings;
    settings.palette = Options::Palette(palette);
    engine.configureFromSettings(settings);
    QCOMPARE(inspect.chosenPalette(), chosen);
}

void TestEngineIngestion::rangeLinesAndArcs()
{
    FanGeometryEngine engine;
    FanGeometryEngineInspector inspect(engine);
    engine.processNewImage(frameWithBearings(TestSupport::evenBearings(256, -6500, 6500)));

    engine.calculateStraightLineGeometry();
    const std::vector<float>& lines = inspect.rangeLineVertices();
    QCOMPARE(lines.size(), std::size_t(20));
    const float ends[5][2] = { { 0.9063f, 0.4226f }, { 0.5373f, 0.8434f }, { 0.0f, 1.0f },
        { -0.5373f, 0.8434f }, { -0.9063f, 0.4226f } };
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(lines[std::size_t(4 * i)], 0.0f);
        QCOMPARE(lines[std::size_t(4 * i + 1)], 0.0f);
        QVERIFY2(
            std::abs(lines[std::size_t(4 * i + 2)] - ends[i][0]) < 1e-4f, qPrintable(QString::number(i)));
        QVERIFY2(
            std::abs(lines[std::size_t(4 * i + 3)] - ends[i][1]) < 1e-4f, qPrintable(QString::number(i)));
    }

    engine.calculateArcGeometry();
    const auto& arcs = inspect.rangeArcVertices();
    for (int k = 1; k <= 5; ++k) {
        // From the right-hand edge to the left-hand edge, on the arc's radius.
        const std::vector<float>& arc = arcs[std::size_t(k - 1)];
        const float radius = float(k) / 5.0f;
        QCOMPARE(arc.size(), std::size_t(512));
        QVERIFY(std::abs(arc[0] - 0.9063f * radius) < 1e-4f && std::abs(arc[1] - 0.4226f * radius) < 1e-4f);
        QVERIFY(
            std::abs(arc[510] + 0.9063f * radius) < 1e-4f && std::abs(arc[511] - 0.4226f * radius) < 1e-4f);
        QVERIFY(std::abs(std::hypot(arc[256], arc[257]) - radius) < 1e-5f);
    }
}

void TestEngineIngestion::fanBounds_data()
{
    QTest::addColumn<float>("rotation");
    QTest::addColumn<QRectF>("expected");

    QTest::newRow("0") << 0.0f << QRectF(-0.9063, 1.0, 1.8126, -1.0);
    QTest::newRow("90") << 90.0f << QRectF(-1.0, 0.9063, 1.0, -1.8126);
    QTest::newRow("300 crosses 360 and 450") << 300.0f << QRectF(-0.0872, 1.0, 1.0872, -1.5736);
    // The span starts exactly on the 90 entry, which is skipped; the start supplies y = 1.
    QTest::newRow("start on an axis") << 65.0f << QRectF(-1.0, 1.0, 1.0, -1.6428);
}

void TestEngineIngestion::fanBounds()
{
    QFETCH(float, rotation);
    QFETCH(QRectF, expected);

    FanGeometryEngine engine;
    const QRectF bounds = engine.getFanBounds(rotation);
    const auto near = [](double a, double b) { return std::abs(a - b) < 1e-3; };
    QVERIFY2(near(bounds.x(), expected.x()) && near(bounds.y(), expected.y())
            && near(bounds.width(), expected.width()) && near(bounds.height(), expected.height()),
        qPrintable(QStringLiteral("got %1 %2 %3 %4")
                       .arg(bounds.x())
                       .arg(bounds.y())
                       .arg(bounds.width())
                       .arg(bounds.height())));
}

void TestEngineIngestion::hitTest()
{
    FanGeometryEngine engine;
    FanGeometryEngineInspector inspect(engine);
    // Three beams: the polygon is the apex and three rim points joined by chords.
    engine.processNewImage(frameWithBearings({ -6500, 0, 6500 }));

    QMatrix4x4 transform;
    transform.translate(0.0f, -0.5f);
    transform.scale(0.8f);

    QVERIFY(engine.pointIsWithinFan(QPointF(0.0, 0.0), transform));
    QCOMPARE(inspect.fanPolygon().size(), 4);
    QVERIFY(engine.pointIsWithinFan(QPointF(-0.3, -0.2), transform));
    QVERIFY(!engine.pointIsWithinFan(QPointF(0.0, 0.35), transform)); // beyond the rim
    QVERIFY(!engine.pointIsWithinFan(QPointF(0.5, -0.45), transform)); // right of the edge
    QVERIFY(!engine.pointIsWithinFan(QPointF(0.0, -0.6), transform)); // behind the apex

    // Inside the circle but beyond the chord between two beams.
    const double angle = qDegreesToRadians(57.5);
    QVERIFY(!engine.pointIsWithinFan(
        QPointF(0.8 * 0.95 * std::cos(angle), -0.5 + 0.8 * 0.95 * std::sin(angle)), transform));

    // A new layout under the same transform answers from the cached polygon.
    engine.processNewImage(frameWithBearings(TestSupport::evenBearings(256, -6500, 6500)));
    engine.pointIsWithinFan(QPointF(0.0, 0.0), transform);
    QCOMPARE(inspect.fanPolygon().size(), 4);

    // A changed transform rebuilds it for the current beams.
    transform.rotate(180.0f, 0.0f, 0.0f, 1.0f);
    QVERIFY(engine.pointIsWithinFan(QPointF(0.0, -0.9), transform));
    QVERIFY(!engine.pointIsWithinFan(QPointF(0.0, 0.0), transform));
    QCOMPARE(inspect.fanPolygon().size(), 257);
}

void TestEngineIngestion::rangeLabels_data()
{
    QTest::addColumn<float>("rotation");
    QTest::addColumn<int>("rightAngle");
    QTest::addColumn<bool>("rightFlipped");
    QTest::addColumn<int>("leftAngle");
    QTest::addColumn<bool>("leftFlipped");

    QTest::newRow("0") << 0.0f << -65 << false << 65 << false;
    QTest::newRow("180") << 180.0f << -245 << true << -115 << true;
    QTest::newRow("90") << 90.0f << -65 << false << -115 << true;
    QTest::newRow("-200 is not reduced") << -200.0f << -65 << false << 65 << false;
}

void TestEngineIngestion::rangeLabels()
{
    QFETCH(float, rotation);
    QFETCH(int, rightAngle);
    QFETCH(bool, rightFlipped);
    QFETCH(int, leftAngle);
    QFETCH(bool, leftFlipped);

    FanGeometryEngine engine;
    QVERIFY(engine.getRangeLabelParams(rotation).empty()); // no unit yet

    const TestSupport::ScaledUnit metres = TestSupport::metres();
    engine.setDistanceUnit(&metres);
    engine.processNewImage(TestSupport::uniformFrame(256, 8, 50.0, 0));

    const std::vector<RangeLabelParams> labels = engine.getRangeLabelParams(rotation);
    QCOMPARE(labels.size(), std::size_t(10));
    for (int j = 1; j <= 5; ++j) {
        const std::string number = std::to_string(10 * j) + ".0m";
        const RangeLabelParams& right = labels[std::size_t(2 * (j - 1))];
        const RangeLabelParams& left = labels[std::size_t(2 * (j - 1) + 1)];

        QCOMPARE(right.angle, rightAngle);
        QCOMPARE(int(right.anchor), rightFlipped ? 18 : 16);
        QCOMPARE(right.text, rightFlipped ? number + ' ' : ' ' + number);
        QCOMPARE(left.angle, leftAngle);
        QCOMPARE(int(left.anchor), leftFlipped ? 16 : 18);
        QCOMPARE(left.text, leftFlipped ? ' ' + number : number + ' ');
        QVERIFY(!right.screenCoordinates && !left.screenCoordinates);

        QVERIFY(std::abs(right.x - 0.181262f * float(j)) < 1e-4f);
        QVERIFY(std::abs(right.y - 0.084524f * float(j)) < 1e-4f);
        QVERIFY(std::abs(left.x + 0.181262f * float(j)) < 1e-4f);
        QVERIFY(std::abs(left.y - 0.084524f * float(j)) < 1e-4f);
    }
}

void TestEngineIngestion::rangeLabelNumbers()
{
    FanGeometryEngine engine;
    const TestSupport::ScaledUnit metres = TestSupport::metres();
    const TestSupport::ScaledUnit feet = TestSupport::feet();
    engine.setDistanceUnit(&metres);
    engine.processNewImage(TestSupport::uniformFrame(256, 8, 12.34, 0));

    // The application's global locale must not turn the point into a comma.
    const std::locale previous = std::locale::global(std::locale(std::locale::classic(), new CommaDecimal));
    const std::vector<RangeLabelParams> labels = engine.getRangeLabelParams(0.0f);
    engine.setDistanceUnit(&feet);
    const std::vector<RangeLabelParams> feetLabels = engine.getRangeLabelParams(0.0f);
    std::locale::global(previous);

    const char* expected[] = { " 2.5m", " 4.9m", " 7.4m", " 9.9m", " 12.3m" };
    for (int j = 0; j < 5; ++j)
        QCOMPARE(labels[std::size_t(2 * j)].text, std::string(expected[j]));
    QCOMPARE(feetLabels[8].text, std::string(" 40.5ft"));
    QCOMPARE(feetLabels[9].text, std::string("40.5ft "));
}

QTEST_GUILESS_MAIN(TestEngineIngestion)
#include "tst_engine_ingestion.moc"
