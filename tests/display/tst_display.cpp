// The fan display as a whole: fitting, mouse, overlays, measuring, frames, and its
// optional looks (colour scale, grid colour, see-through background).

#include "FanDisplay.h"
#include "ZoomDisplay.h"
#include "display/FanDisplayPrivate.h"
#include "measuring/CircleAreaFromCentreMeasure.h"
#include "measuring/RectangleAreaMeasure.h"
#include "measuring/StraightLineMeasure.h"
#include "palettes/ShownPalette.h"

#include "../engine/FanGeometryEngineProbe.h"
#include "FanView.h"
#include "GlTestSupport.h"
#include "SettingsText.h"
#include "TestFrames.h"
#include "TestUnits.h"

#include <QApplication>
#include <QLoggingCategory>
#include <QMouseEvent>
#include <QScreen>
#include <QStackedLayout>
#include <QtTest>

#include <cmath>

namespace Halcyra::Nereon::Visualisation {

struct FanDisplayProbe
{
    static auto& record(FanDisplay& display) { return *display.d; }
};

struct MeasuringToolProbe
{
    /// The tool's result in metres or square metres.
    static double result(const MeasuringToolBase& tool)
    {
        if (auto line = dynamic_cast<const StraightLineMeasure*>(&tool))
            return line->distance;
        if (auto rectangle = dynamic_cast<const RectangleAreaMeasure*>(&tool))
            return rectangle->area;
        return dynamic_cast<const CircleAreaFromCentreMeasure&>(tool).area;
    }
};

} // namespace Halcyra::Nereon::Visualisation

using namespace Halcyra::Nereon::Visualisation;
using Halcyra::Nereon::NereonImage;
using Probe = FanDisplayProbe;
using Tools = MeasuringToolProbe;
using Palettes::ShownPalette;
using TestSupport::describeSettings;
using TestSupport::fanToPixels;
using TestSupport::pixelOf;

Q_DECLARE_METATYPE(FanDisplayOptions::Palette)

namespace {

QStringList captured;

/// A left-button event; held is what is down afterwards.
void sendMouse(FanDisplay& display, QEvent::Type type, QPoint at, Qt::MouseButtons held = Qt::LeftButton)
{
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, QPointF(at), QPointF(display.mapToGlobal(at)), button, held, Qt::NoModifier);
    QCoreApplication::sendEvent(&display, &event);
}

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

class TestFanDisplay : public QObject
{
    Q_OBJECT

private:
    TestSupport::ScaledUnit metres = TestSupport::metres();
    TestSupport::ScaledUnit squareMetres = TestSupport::squareMetres();
    std::unique_ptr<FanDisplay> display;

    /// A shown display of the given size and rotation; nothing painted yet.
    void showDisplay(QSize size, int rotation = 0)
    {
        display = std::make_unique<FanDisplay>();
        display->resize(size);
        display->setRotation(rotation);
        display->setDistanceUnit(&metres);
        display->setAreaUnit(&squareMetres);
        QVERIFY(TestSupport::showExposed(*display));
    }

    /// Paints a frame; thresholds, when given, replace the smoothed ones first.
    QImage paint(const NereonImage& frame, float lower = -1.0f, float upper = -1.0f)
    {
        display->newImageReceived(frame);
        if (lower >= 0.0f) {
            FanGeometryEngineProbe engine(Probe::record(*display).geometryEngine);
            engine.lowerThreshold() = lower;
            engine.upperThreshold() = upper;
        }
        return display->grabFramebuffer();
    }

    QImage paintUniform(std::uint8_t value, float lower = -1.0f, float upper = -1.0f)
    {
        return paint(TestSupport::uniformFrame(64, 50, 30.0, value), lower, upper);
    }

private slots:
    void cleanup() { display.reset(); }

    void defaultLookAndSettingsRoundTrip()
    {
        // The view (scale and translation) is compared as it comes: it has no default of its own.
        FanDisplay fresh;
        const auto view = [&fresh](FanDisplayOptions::DisplaySettings settings) {
            settings.scale = fresh.getCurrentDisplaySettings().scale;
            settings.translation = fresh.getCurrentDisplaySettings().translation;
            return describeSettings(settings);
        };
        QCOMPARE(describeSettings(fresh.getCurrentDisplaySettings()),
            view({ FanDisplayOptions::Multicolour, 0, false, QColor(76, 76, 76), QColor(128, 128, 128), true,
                true, true, {}, {}, 0.0f }));

        const FanDisplayOptions::DisplaySettings look { FanDisplayOptions::Aqua, 40, true, QColor(10, 20, 30),
            QColor(200, 100, 0), false, true, false, {}, {}, 90.0f };
        // Applied twice: the mirror state is set, never toggled back.
        fresh.configureFromSettings(look);
        fresh.configureFromSettings(look);
        QCOMPARE(describeSettings(fresh.getCurrentDisplaySettings()), view(look));
    }

    void fitsFanAndReportsPosition_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("halfAperture"); // hundredths of a degree
        QTest::addColumn<int>("rotation");
        QTest::addColumn<double>("bearing"); // of the mouse position, degrees clockwise from ahead
        QTest::newRow("square, half disc, ahead") << QSize(400, 400) << 9000 << 0 << 0.0;
        QTest::newRow("wide, right edge") << QSize(800, 200) << 6500 << 0 << 64.0;
        QTest::newRow("turned 225") << QSize(500, 400) << 4500 << 225 << -20.0;
    }
    void fitsFanAndReportsPosition()
    {
        QFETCH(QSize, size);
        QFETCH(int, halfAperture);
        QFETCH(int, rotation);
        QFETCH(double, bearing);
        const double range = 80.0;
        showDisplay(size, rotation);
        paint(TestSupport::uniformFrame(64, 50, range, 0, -halfAperture, halfAperture));

        // Extent of the drawn fan in clip units: the apex and a dense walk along the rim.
        QPolygonF outline(QVector<QPointF>(1, QPointF()));
        for (int step = -500; step <= 500; ++step)
            outline << QPointF(
                std::sin(halfAperture * step * M_PI / 9e6), std::cos(halfAperture * step * M_PI / 9e6));
        // Centred, the limiting side filling 90 % of the widget, and fan units equally long on
        // screen in both directions.
        const QRectF extent = display->getCurrentProjection().toTransform().map(outline).boundingRect();
        const double limiting = std::max(extent.width(), extent.height());
        const Halcyra::Vec3<float>& s = display->getCurrentScale();
        QVERIFY(std::abs(extent.center().x()) < 1e-3 && std::abs(extent.center().y()) < 1e-3);
        QVERIFY2(std::abs(limiting - 1.8) < 2e-3, qPrintable(QString::number(limiting)));
        QVERIFY(qFuzzyCompare(s.x * size.width(), s.y * size.height()));

        // The position under the mouse, inside the fan only; a rotation of 270 may count as -90.
        // Qt 6 hands over fractions of a pixel (scaled screens, tablets), Qt 5 whole pixels: the
        // display reads whole pixels under both, so a report never depends on the Qt in use.
        QSignalSpy positions(display.get(), &FanDisplay::newMousePosition);
        const double a = qDegreesToRadians(90.0 - bearing);
        const QPoint pixel = fanToPixels(*display).map(0.7 * QPointF(std::cos(a), std::sin(a))).toPoint();
        for (const QPointF offset : { QPointF(0.0, 0.0), QPointF(0.4, -0.3), QPointF(-0.45, 0.45) }) {
            const QPointF at = QPointF(pixel) + offset;
            QMouseEvent event(QEvent::MouseMove, at, QPointF(display->mapToGlobal(QPoint())) + at,
                Qt::NoButton, Qt::NoButton, Qt::NoModifier);
            QCoreApplication::sendEvent(display.get(), &event);
        }
        sendMouse(*display, QEvent::MouseMove, QPoint(1, 1), Qt::NoButton);
        QCOMPARE(positions.count(), 3);
        QVERIFY(positions.at(1) == positions.at(0) && positions.at(2) == positions.at(0));
        const QPointF f = fanToPixels(*display).inverted().map(QPointF(pixel)) * range;
        const QList<QVariant> args = positions.first();
        const double bearingError = args[3].toDouble() - qRadiansToDegrees(std::atan2(f.x(), f.y()));
        QVERIFY2(std::abs(args[0].toDouble() - f.x()) < 0.1 && std::abs(args[1].toDouble() - f.y()) < 0.1
                && std::abs(args[2].toDouble() - std::hypot(f.x(), f.y())) < 0.1
                && std::abs(std::remainder(bearingError, 360.0)) < 0.05,
            qPrintable(QStringLiteral("r %1, bearing %2").arg(args[2].toDouble()).arg(args[3].toDouble())));
    }

    void overlaysFollowTheirSwitches()
    {
        showDisplay(QSize(401, 401));
        paintUniform(0);
        display->setTextColour(QColor(255, 255, 0));
        // Each switch both on and off, on the same display.
        for (const auto& [lines, arcs, labels] : { std::tuple(true, false, true), { false, true, false } }) {
            display->setOverlayFeature(FanDisplayOptions::RangeLines, lines);
            display->setOverlayFeature(FanDisplayOptions::RangeArcs, arcs);
            display->setOverlayFeature(FanDisplayOptions::RangeLabels, labels);
            const QImage image = display->grabFramebuffer();

            // Against the fan itself, away from every overlay: a box on the centre line (a range
            // line) and one on the second arc at 75 degrees, each away from the other.
            const QColor fan = image.pixelColor(fanToPixels(*display).map(QPointF(0.2, 0.5)).toPoint());
            const auto marked = [&](QPointF at) {
                const QRect box(fanToPixels(*display).map(at).toPoint() - QPoint(2, 2), QSize(5, 5));
                return TestSupport::countPixelsDiffering(image, box, fan) > 0;
            };
            const bool onLine = marked(QPointF(0.0, 0.5)), onArc = marked(QPointF(0.1035, 0.3864));
            const bool yellow
                = TestSupport::countPixelsDiffering(image, image.rect(), QColor(255, 255, 0), 60)
                < image.width() * image.height();
            if (lines != onLine || arcs != onArc || labels != yellow)
                QFAIL(qPrintable(QString::asprintf("line %d, arc %d, labels %d: ", onLine, onArc, yellow)
                    + TestSupport::saveFailurePicture(image, QStringLiteral("overlays"))));
        }
    }

    void keepsItsPictureInANewContext()
    {
        // Without shared contexts a move to another window gives the display a new
        // context, whose objects must all be made again, dynamic palette included.
        showDisplay(QSize(301, 301));
        paintUniform(150);
        display->setPalette(FanDisplayOptions::Fire);
        display->setPaletteModifier(90);
        const QPoint inFan = fanToPixels(*display).map(QPointF(0.1, 0.5)).toPoint();
        const QColor before = display->grabFramebuffer().pixelColor(inFan);
        QVERIFY(!TestSupport::pixelMatches(display->grabFramebuffer(), inFan, QColor(76, 76, 76), 10));

        QWidget window;
        FanDisplay* moved = display.release();
        moved->setParent(&window);
        moved->move(0, 0);
        window.resize(301, 301);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        const QImage after = moved->grabFramebuffer();
        NEREON_VERIFY_PIXEL(after, inFan, before, 3);
        moved->newImageReceived(TestSupport::uniformFrame(64, 50, 30.0, 150));
        NEREON_VERIFY_PIXEL(moved->grabFramebuffer(), inFan, before, 3);
    }

    void magnifierKeepsItsClearColourInANewContext()
    {
        // A move to another window gives the magnifier a new context, which starts grey.
        display = std::make_unique<FanDisplay>();
        ZoomDisplay* zoom = display->getZoomDisplay();
        const QColor chosen(20, 140, 60);
        QWidget first;
        QWidget second;
        for (QWidget* window : { &first, &second }) {
            zoom->setParent(window);
            zoom->setGeometry(0, 0, 120, 120);
            window->resize(120, 120);
            window->show();
            QVERIFY(QTest::qWaitForWindowExposed(window));
            if (window == &first)
                zoom->setClearColour(chosen);
            const QImage image = zoom->grabFramebuffer();
            QCOMPARE(image.pixelColor(60, 60), chosen);
        }
        zoom->setParent(nullptr);
        delete zoom;
    }

    void measureAndDiscard_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QPointF>("to"); // from (-0.1, 0.4)
        QTest::newRow("distance, click outside") << int(FanDisplayOptions::StraightLine) << QPointF(0.1, 0.6);
        QTest::newRow("rectangle, resize") << int(FanDisplayOptions::RectangleArea) << QPointF(0.2, 0.7);
        QTest::newRow("circle, mode set again")
            << int(FanDisplayOptions::CircleAreaFromCentre) << QPointF(0.2, 0.5);
    }
    void measureAndDiscard()
    {
        QFETCH(int, mode);
        QFETCH(QPointF, to);
        const double range = 50.0;
        showDisplay(QSize(401, 401));
        paint(TestSupport::uniformFrame(64, 50, range, 0));
        display->setMeasurementMode(FanDisplayOptions::MeasurementMode(mode));
        const QTransform toPixels = fanToPixels(*display);
        const QPoint start = toPixels.map(QPointF(-0.1, 0.4)).toPoint(), end = toPixels.map(to).toPoint();
        sendMouse(*display, QEvent::MouseButtonPress, start);
        sendMouse(*display, QEvent::MouseMove, (start + end) / 2);
        sendMouse(*display, QEvent::MouseMove, end);
        sendMouse(*display, QEvent::MouseButtonRelease, end, Qt::NoButton);

        auto& d = Probe::record(*display);
        const QPointF p = toPixels.inverted().map(QPointF(start)), q = toPixels.inverted().map(QPointF(end));
        const double dx = (q.x() - p.x()) * range, dy = (q.y() - p.y()) * range;
        const double expected = mode == FanDisplayOptions::StraightLine ? std::hypot(dx, dy)
            : mode == FanDisplayOptions::RectangleArea                  ? std::abs(dx * dy)
                                                                        : M_PI * (dx * dx + dy * dy);
        const double measured = Tools::result(*d.tool);
        QCOMPARE(d.tool->getState(), MeasuringToolBase::Finished);
        QVERIFY2(std::abs(measured / expected - 1.0) < 1e-3, qPrintable(QString::number(measured)));

        // A new range rescales the finished measurement.
        display->newImageReceived(TestSupport::uniformFrame(64, 50, 2 * range, 0));
        const double factor = mode == FanDisplayOptions::StraightLine ? 2.0 : 4.0;
        QVERIFY(std::abs(Tools::result(*d.tool) - factor * measured) < 1e-3 * factor * measured);

        if (mode == FanDisplayOptions::StraightLine) {
            sendMouse(*display, QEvent::MouseButtonPress, QPoint(2, 2));
            sendMouse(*display, QEvent::MouseButtonRelease, QPoint(2, 2), Qt::NoButton);
        } else if (mode == FanDisplayOptions::RectangleArea) {
            display->resize(420, 380);
        } else {
            display->setMeasurementMode(FanDisplayOptions::MeasurementMode(mode));
        }
        QVERIFY(d.tool->getState() == MeasuringToolBase::Idle && !d.tool->hasMeasurement());
    }

    void rejectsMalformedFrames()
    {
        const std::vector<std::uint8_t> bytes(32, 200);
        const auto bearings = TestSupport::evenBearings(8, -6000, 6000);
        const NereonImage malformed[] = { NereonImage(1, 4, { 1, 2, 3, 4 }, { 0 }, 40.0, 1.0),
            NereonImage(8, 4, std::vector<std::uint8_t>(31, 200), bearings, 40.0, 1.0),
            NereonImage(8, 4, bytes, { -600, -400, -200, 0, 400, 200, 600, 800 }, 40.0, 1.0),
            NereonImage(8, 4, bytes, bearings, std::nan(""), 1.0) };
        showDisplay(QSize(301, 301));
        paint(TestSupport::uniformFrame(32, 40, 25.0, 0));
        const QImage before = display->grabFramebuffer();

        // Silent unless the application asks for the reasons.
        captured.clear();
        const QtMessageHandler previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& message) { captured << message; });
        for (const NereonImage& frame : malformed)
            display->newImageReceived(frame);
        const int silent = captured.size();
        QLoggingCategory::setFilterRules(QStringLiteral("ternwick.nereon.visualisation.frames.warning=true"));
        for (const NereonImage& frame : malformed)
            display->newImageReceived(frame);
        QLoggingCategory::setFilterRules(QString());
        qInstallMessageHandler(previous);
        QCOMPARE(silent, 0);
        QCOMPARE(captured.filter("rejected").size(), 4);

        const QImage after = display->grabFramebuffer();
        if (after != before)
            QFAIL(qPrintable(TestSupport::saveFailurePicture(after, QStringLiteral("changed"))));
    }

    void countsFramesPerSecond()
    {
        FanDisplay fresh;
        QSignalSpy rates(&fresh, &FanDisplay::frameRateChanged);
        const NereonImage frame = TestSupport::uniformFrame(16, 8, 10.0, 0);
        fresh.newImageReceived(frame);

        // Thirty frames early in one second, then one in the next.
        const auto second = [] { return QDateTime::currentMSecsSinceEpoch() / 1000; };
        const qint64 first = second();
        QTRY_VERIFY_WITH_TIMEOUT(second() > first && QDateTime::currentMSecsSinceEpoch() % 1000 < 500, 2500);
        const qint64 counted = second();
        for (int i = 0; i < 30; ++i)
            fresh.newImageReceived(frame);
        if (second() != counted)
            QSKIP("thirty frames took longer than the rest of a second");
        QTRY_VERIFY_WITH_TIMEOUT(second() > counted, 1500);
        fresh.newImageReceived(frame);
        QCOMPARE(rates.count(), 3);
        QVERIFY(rates[0][0].toInt() == 0 && rates[1][0].toInt() == 1 && rates[2][0].toInt() == 30);
    }
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
        showDisplay(QSize(480, 400));
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
        showDisplay(QSize(401, 401));
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
        showDisplay(QSize(401, 401));
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
    TestFanDisplay test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_display.moc"
