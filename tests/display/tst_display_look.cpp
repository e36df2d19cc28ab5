// The display's optional looks: colour scale, grid colour, see-through background.

#include "FanDisplay.h"
#include "display/FanDisplayPrivate.h"
#include "palettes/ShownPalette.h"

#include "../engine/FanGeometryEngineProbe.h"
#include "FanView.h"
#include "GlTestSupport.h"
#include "TestFrames.h"
#include "TestUnits.h"

#include <QApplication>
#include <QScreen>
#include <QStackedLayout>
#include <QtTest>

#include <cmath>

namespace Halcyra::Nereon::Visualisation {

struct FanDisplayProbe
{
    static auto& record(FanDisplay& display) { return *display.d; }
};

} // namespace Halcyra::Nereon::Visualisation

using namespace Halcyra::Nereon::Visualisation;
using Palettes::ShownPalette;
using Probe = FanDisplayProbe;
using TestSupport::fanToPixels;
using TestSupport::pixelOf;

Q_DECLARE_METATYPE(FanDisplayOptions::Palette)

namespace {

/// The fan's outline in widget pixels: the apex and a dense walk along the rim.
QPolygonF fanOutline(FanDisplay& display, double halfApertureDegrees)
{
    QPolygonF outline(QVector<QPointF>(1, QPointF()));
    for (int step = -200; step <= 200; ++step) {
        const double a = qDegreesToRadians(90.0 + halfApertureDegrees * step / 200.0);
        outline << QPointF(std::cos(a), std::sin(a));
    }
    return fanToPixels(display).map(outline);
}

/// A fan point clear of the range lines, arcs and labels.
const QPointF insideFan(0.1, 0.5);

} // namespace

class TestDisplayLook : public QObject
{
    Q_OBJECT

private:
    TestSupport::ScaledUnit metres = TestSupport::metres();
    std::unique_ptr<FanDisplay> display;

    void showDisplay(QSize size, int rotation)
    {
        display = std::make_unique<FanDisplay>();
        display->resize(size);
        display->setRotation(rotation);
        display->setDistanceUnit(&metres);
        QVERIFY(TestSupport::showExposed(*display));
    }

    /// Paints a frame of one intensity; thresholds, when given, replace the smoothed ones first.
    QImage paintUniform(std::uint8_t value, float lower = -1.0f, float upper = -1.0f)
    {
        display->newImageReceived(TestSupport::uniformFrame(64, 50, 30.0, value));
        if (lower >= 0.0f) {
            FanGeometryEngineProbe engine(Probe::record(*display).geometryEngine);
            engine.lowerThreshold() = lower;
            engine.upperThreshold() = upper;
        }
        return display->grabFramebuffer();
    }

private slots:
    void cleanup() { display.reset(); }

    void colourScaleShowsTheFansColours_data()
    {
        QTest::addColumn<FanDisplayOptions::Palette>("palette");
        QTest::addColumn<int>("modifier");
        QTest::addColumn<int>("rotation");
        QTest::addColumn<bool>("mirrored");
        QTest::addColumn<float>("lower");
        QTest::addColumn<float>("upper");
        QTest::newRow("multicolour, upright")
            << FanDisplayOptions::Multicolour << 0 << 0 << false << 0.0f << 1.0f;
        QTest::newRow("greyscale, thresholds, 90")
            << FanDisplayOptions::Greyscale << 0 << 90 << false << 0.2f << 0.75f;
        QTest::newRow("bronze, mirrored, 180")
            << FanDisplayOptions::Bronze << 0 << 180 << true << 0.1f << 0.9f;
        QTest::newRow("fire 100, 225") << FanDisplayOptions::Fire << 100 << 225 << false << 0.0f << 1.0f;
        QTest::newRow("aqua 60, thresholds, 300")
            << FanDisplayOptions::Aqua << 60 << 300 << true << 0.3f << 0.8f;
    }
    void colourScaleShowsTheFansColours()
    {
        QFETCH(FanDisplayOptions::Palette, palette);
        QFETCH(int, modifier);
        QFETCH(int, rotation);
        QFETCH(bool, mirrored);
        QFETCH(float, lower);
        QFETCH(float, upper);
        showDisplay(QSize(480, 400), rotation);
        if (mirrored)
            display->horizontalFlip();
        display->setColourScaleVisible(true);
        // The scale has been drawn with the default palette: changes must reach it by themselves.
        paintUniform(0);
        display->setPalette(palette);
        display->setPaletteModifier(static_cast<std::uint8_t>(modifier));

        for (const int value : { 0, 51, 100, 128, 180, 230, 255 }) {
            const QImage image = paintUniform(static_cast<std::uint8_t>(value), lower, upper);
            const QRect bar = Probe::record(*display).colourScale.getBarRectangle();
            QVERIFY(bar.height() >= 64);
            if (value == 0) {
                // In a corner the fan leaves free: no corner of the bar lies in the fan.
                const QPolygonF fan = fanOutline(*display, 65.0);
                for (const QPointF corner :
                    { bar.topLeft(), bar.topRight(), bar.bottomLeft(), bar.bottomRight() })
                    QVERIFY2(!fan.containsPoint(corner, Qt::OddEvenFill),
                        qPrintable(TestSupport::saveFailurePicture(image, QStringLiteral("covered"))));
            }

            // Intensity rises linearly from the bottom row to the top row; rows are whole
            // pixels, so the fan's colour lies within the span of the nearest row and its neighbours.
            // The picture has device pixels, the bar's place is in logical ones.
            const qreal ratio = display->devicePixelRatioF();
            const QColor fan = image.pixelColor((fanToPixels(*display).map(insideFan) * ratio).toPoint());
            const QRect barPixels(qRound(bar.left() * ratio), qRound(bar.top() * ratio),
                qRound(bar.width() * ratio), qRound(bar.height() * ratio));
            const int row = barPixels.top() + qRound((1.0 - value / 255.0) * (barPixels.height() - 1));
            const int column = barPixels.center().x();
            bool within = true;
            for (const auto channel : { &QColor::red, &QColor::green, &QColor::blue }) {
                int low = 255, high = 0;
                for (int r = std::max(row - 1, barPixels.top()); r <= std::min(row + 1, barPixels.bottom());
                     ++r) {
                    low = std::min(low, (image.pixelColor(column, r).*channel)());
                    high = std::max(high, (image.pixelColor(column, r).*channel)());
                }
                within = within && (fan.*channel)() >= low - 2 && (fan.*channel)() <= high + 2;
            }
            if (!within)
                QFAIL(qPrintable(QStringLiteral("intensity %1: fan %2, bar %3 at row %4 (%5)")
                                     .arg(value)
                                     .arg(fan.name(), image.pixelColor(column, row).name())
                                     .arg(row)
                                     .arg(TestSupport::saveFailurePicture(image, QStringLiteral("bar")))));
        }
    }

    void colourScaleIsOffByDefaultAndLabelled()
    {
        showDisplay(QSize(480, 400), 0);
        display->setClearColour(QColor(0, 0, 80));
        display->setTextColour(QColor(255, 255, 0));
        display->setOverlayFeature(FanDisplayOptions::RangeLabels, false);
        QVERIFY(!display->isColourScaleVisible());
        display->setColourScaleVisible(true);
        paintUniform(0);
        const QRect bar = Probe::record(*display).colourScale.getBarRectangle();
        const QRect beside = bar.adjusted(-60, -10, 60, 10).intersected(display->rect());

        const QImage shown = paintUniform(0);
        // Tick labels in the text colour beside the bar.
        QVERIFY2(TestSupport::countPixelsDiffering(shown, beside, QColor(255, 255, 0), 60)
                < beside.width() * beside.height() - 40,
            qPrintable(TestSupport::saveFailurePicture(shown, QStringLiteral("labels"))));

        display->setColourScaleVisible(false);
        const QImage hidden = paintUniform(0);
        QCOMPARE(TestSupport::countPixelsDiffering(hidden, beside, QColor(0, 0, 80), 0), 0);
    }

    void gridTakesItsColour_data()
    {
        QTest::addColumn<QColor>("set");
        QTest::addColumn<bool>("automaticThenOff");
        QTest::addColumn<QColor>("expected");
        QTest::newRow("default") << QColor() << false << QColor(128, 128, 128);
        QTest::newRow("red") << QColor(255, 0, 0) << false << QColor(255, 0, 0);
        QTest::newRow("set colour back after automatic")
            << QColor(0, 200, 255) << true << QColor(0, 200, 255);
    }
    void gridTakesItsColour()
    {
        QFETCH(QColor, set);
        QFETCH(bool, automaticThenOff);
        QFETCH(QColor, expected);
        showDisplay(QSize(401, 401), 0);
        if (set.isValid())
            display->setRangeGridColour(set);
        if (automaticThenOff) {
            display->setAutomaticGridColour(true);
            paintUniform(128);
            display->setAutomaticGridColour(false);
        }
        const QImage image = paintUniform(0); // a black fan
        // The centre range line runs along a pixel column; arcs are antialiased, so the
        // pixel nearest the colour in a small box stands for them.
        NEREON_VERIFY_PIXEL(image, pixelOf(*display, image, QPointF(0.0, 0.5)), expected, 2);
        const QPoint onArc
            = fanToPixels(*display).map(QPointF(0.4 * std::cos(1.3), 0.4 * std::sin(1.3))).toPoint();
        int nearest = 1000;
        for (int y = -2; y <= 2; ++y) {
            for (int x = -2; x <= 2; ++x) {
                const QColor c = image.pixelColor(onArc + QPoint(x, y));
                nearest = std::min(nearest,
                    std::abs(c.red() - expected.red()) + std::abs(c.green() - expected.green())
                        + std::abs(c.blue() - expected.blue()));
            }
        }
        QVERIFY2(nearest < 100, qPrintable(TestSupport::saveFailurePicture(image, QStringLiteral("arc"))));
    }

    void automaticGridStandsOutOnEveryPalette_data()
    {
        QTest::addColumn<FanDisplayOptions::Palette>("palette");
        QTest::addColumn<int>("modifier");
        QTest::addColumn<float>("lower");
        QTest::addColumn<float>("upper");
        QTest::newRow("greyscale") << FanDisplayOptions::Greyscale << 0 << 0.0f << 1.0f;
        QTest::newRow("bronze") << FanDisplayOptions::Bronze << 0 << 0.0f << 1.0f;
        QTest::newRow("blue") << FanDisplayOptions::Blue << 0 << 0.0f << 1.0f;
        QTest::newRow("green") << FanDisplayOptions::Green << 0 << 0.0f << 1.0f;
        QTest::newRow("red-yellow") << FanDisplayOptions::RedYellow << 0 << 0.0f << 1.0f;
        QTest::newRow("multicolour") << FanDisplayOptions::Multicolour << 0 << 0.0f << 1.0f;
        QTest::newRow("multicolour, thresholds") << FanDisplayOptions::Multicolour << 0 << 0.3f << 0.6f;
        QTest::newRow("fire 0") << FanDisplayOptions::Fire << 0 << 0.0f << 1.0f;
        QTest::newRow("fire 200") << FanDisplayOptions::Fire << 200 << 0.0f << 1.0f;
        QTest::newRow("aqua 0") << FanDisplayOptions::Aqua << 0 << 0.0f << 1.0f;
        QTest::newRow("aqua 128, thresholds") << FanDisplayOptions::Aqua << 128 << 0.1f << 0.9f;
    }
    void automaticGridStandsOutOnEveryPalette()
    {
        QFETCH(FanDisplayOptions::Palette, palette);
        QFETCH(int, modifier);
        QFETCH(float, lower);
        QFETCH(float, upper);
        showDisplay(QSize(401, 401), 0);
        display->setPalette(palette);
        display->setPaletteModifier(static_cast<std::uint8_t>(modifier));
        display->setAutomaticGridColour(true);
        QVERIFY(display->isAutomaticGridColourEnabled());

        // Middle tones: 40 % to 60 % of the way from the lower to the upper threshold.
        for (const double share : { 0.4, 0.5, 0.6 }) {
            const double intensity = lower + share * (upper - lower);
            const QImage image
                = paintUniform(static_cast<std::uint8_t>(std::lround(intensity * 255.0)), lower, upper);
            const QColor fan = image.pixelColor(fanToPixels(*display).map(insideFan).toPoint());
            const QColor line = image.pixelColor(pixelOf(*display, image, QPointF(0.0, 0.5)));
            // Web accessibility's contrast ratio for graphics that must be seen: at least 3 to 1.
            const double ratio = ShownPalette::contrastRatio(fan, line);
            QVERIFY2(ratio >= 3.0,
                qPrintable(QStringLiteral("fan %1, grid %2: %3 to 1 (%4)")
                               .arg(fan.name(), line.name())
                               .arg(ratio)
                               .arg(TestSupport::saveFailurePicture(image, QStringLiteral("contrast")))));
        }
    }

    void seeThroughBackground_data()
    {
        QTest::addColumn<int>("alpha");
        QTest::addColumn<bool>("setWhileShown");
        QTest::newRow("clear, set before showing") << 0 << false;
        QTest::newRow("half, set while shown") << 128 << true;
        QTest::newRow("opaque") << 255 << false;
    }
    void seeThroughBackground()
    {
        QFETCH(int, alpha);
        QFETCH(bool, setWhileShown);
        const QColor behind(200, 30, 40);
        const QColor clear(0, 0, 255, alpha);

        // A stand-in for a camera picture under the display, in one stacked layout.
        QWidget window;
        window.resize(401, 401);
        auto* layout = new QStackedLayout(&window);
        layout->setStackingMode(QStackedLayout::StackAll);
        auto* backdrop = new QWidget;
        backdrop->setAutoFillBackground(true);
        QPalette colours;
        colours.setColor(QPalette::Window, behind);
        backdrop->setPalette(colours);
        layout->addWidget(backdrop);
        auto* shown = new FanDisplay;
        shown->setDistanceUnit(&metres);
        layout->addWidget(shown);
        shown->raise();
        if (!setWhileShown)
            shown->setClearColour(clear);
        QVERIFY(TestSupport::showExposed(window));
        shown->newImageReceived(TestSupport::uniformFrame(64, 50, 30.0, 128));
        if (setWhileShown)
            shown->setClearColour(clear);
        const QColor fan = shown->grabFramebuffer().pixelColor(fanToPixels(*shown).map(insideFan).toPoint());

        const auto mix
            = [alpha](int over, int under) { return (over * alpha + under * (255 - alpha)) / 255; };
        const QColor outside(mix(clear.red(), behind.red()), mix(clear.green(), behind.green()),
            mix(clear.blue(), behind.blue()));
        const QPoint corner = shown->mapTo(&window, QPoint(4, 4));
        const QPoint inside = shown->mapTo(&window, fanToPixels(*shown).map(insideFan).toPoint());
        QImage screen;
        const auto composed = [&]() {
            screen = window.screen()->grabWindow(window.winId()).toImage();
            return TestSupport::pixelMatches(screen, corner, outside, 3)
                && TestSupport::pixelMatches(screen, inside, fan, 3);
        };
        // The window composes the GL picture a little after the paint.
        (void)QTest::qWaitFor(composed, 10000);
        NEREON_VERIFY_PIXEL(screen, corner, outside, 3);
        NEREON_VERIFY_PIXEL(screen, inside, fan, 3);
    }
};

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QApplication app(argc, argv);
    TestDisplayLook test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_display_look.moc"
