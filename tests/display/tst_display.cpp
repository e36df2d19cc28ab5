#include "FanDisplay.h"
#include "display/FanDisplayPrivate.h"
#include "measuring/CircleAreaFromCentreMeasure.h"
#include "measuring/RectangleAreaMeasure.h"
#include "measuring/StraightLineMeasure.h"

#include "GlTestSupport.h"
#include "TestFrames.h"
#include "TestUnits.h"

#include <QApplication>
#include <QLoggingCategory>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QtTest>

#include <cmath>

namespace Halcyra::Nereon::Visualisation {

struct FanDisplayInspector
{
    static auto& record(FanDisplay& display) { return *display.d; }
};

struct MeasuringToolInspector
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
using Inspector = FanDisplayInspector;
using Tools = MeasuringToolInspector;

namespace {

const QColor red(255, 0, 0);
const QColor gridGrey(128, 128, 128);

QStringList captured;
void captureMessage(QtMsgType, const QMessageLogContext&, const QString& message)
{
    captured << message;
}

/// Pixel under a point given in fan coordinates, as of the last paint.
QPoint pixelOf(FanDisplay& display, QPointF fanPoint)
{
    const QPointF clip = display.getCurrentProjection().map(fanPoint);
    return QPoint(
        qRound((clip.x() + 1.0) / 2.0 * display.width()), qRound((1.0 - clip.y()) / 2.0 * display.height()));
}

/// Fan coordinates of a pixel centre, by the inverse of the projection.
QPointF fanPointOf(FanDisplay& display, QPoint pixel)
{
    const QPointF clip(2.0 * pixel.x() / display.width() - 1.0, 1.0 - 2.0 * pixel.y() / display.height());
    return display.getCurrentProjection().inverted().map(clip);
}

/// For moves, button is what is held.
void sendMouse(FanDisplay& display, QEvent::Type type, QPoint at, Qt::MouseButton button = Qt::LeftButton)
{
    const bool move = type == QEvent::MouseMove;
    const Qt::MouseButtons held
        = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(button);
    QMouseEvent event(type, QPointF(at), move ? Qt::NoButton : button, held, Qt::NoModifier);
    QCoreApplication::sendEvent(&display, &event);
}

void drag(FanDisplay& display, QPoint from, QPoint to)
{
    for (const auto& [type, at] :
        { std::pair(QEvent::MouseButtonPress, from), { QEvent::MouseMove, (from + to) / 2 },
            { QEvent::MouseMove, to }, { QEvent::MouseButtonRelease, to } })
        sendMouse(display, type, at);
}

int countNear(const QImage& image, const QColor& colour, int tolerance = 40)
{
    return image.width() * image.height()
        - TestSupport::countPixelsDiffering(image, image.rect(), colour, tolerance);
}

} // namespace

class TestFanDisplay : public QObject
{
    Q_OBJECT

private:
    TestSupport::ScaledUnit metres = TestSupport::metres();
    TestSupport::ScaledUnit squareMetres = TestSupport::squareMetres();
    std::unique_ptr<FanDisplay> display;

    /// A shown display of the given size with a frame painted.
    void showDisplay(QSize size, const NereonImage& frame)
    {
        display = std::make_unique<FanDisplay>();
        display->resize(size);
        display->setDistanceUnit(&metres);
        display->setAreaUnit(&squareMetres);
        display->show();
        QVERIFY(QTest::qWaitForWindowExposed(display.get()));
        TestSupport::keepGlDriverLoaded();
        display->newImageReceived(frame);
        display->grabFramebuffer();
    }

private slots:
    void cleanup() { display.reset(); }

    void defaultLookAndSettingsRoundTrip()
    {
        FanDisplay fresh;
        const FanDisplayOptions::DisplaySettings defaults = fresh.getCurrentDisplaySettings();
        QVERIFY(defaults.palette == FanDisplayOptions::Multicolour && defaults.paletteModifier == 0
            && !defaults.horizontalFlip);
        QCOMPARE(defaults.clearColour, QColor(76, 76, 76));
        QCOMPARE(defaults.textColour, QColor(128, 128, 128));
        QVERIFY(defaults.showRangeLabels && defaults.showRangeArcs && defaults.showRangeLines);

        const FanDisplayOptions::DisplaySettings look { FanDisplayOptions::Aqua, 40, true, QColor(10, 20, 30),
            QColor(200, 100, 0), false, true, false, {}, {}, 90.0f };
        // Applied twice: the mirror state is set, never toggled back.
        fresh.configureFromSettings(look);
        fresh.configureFromSettings(look);
        const FanDisplayOptions::DisplaySettings read = fresh.getCurrentDisplaySettings();
        QVERIFY(read.palette == look.palette && read.paletteModifier == 40 && read.horizontalFlip);
        QCOMPARE(read.clearColour, look.clearColour);
        QCOMPARE(read.textColour, look.textColour);
        QVERIFY(!read.showRangeLabels && read.showRangeArcs && !read.showRangeLines);
        QCOMPARE(read.rotation, 90.0f);
    }

    void fitsFanAndReportsPosition_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("halfAperture"); // hundredths of a degree
        QTest::addColumn<int>("rotation");
        QTest::addColumn<bool>("heightLimits");
        QTest::addColumn<double>("radius"); // of the mouse position
        QTest::addColumn<double>("bearing"); // degrees from the centre line, clockwise
        QTest::newRow("square, 180-degree fan, ahead")
            << QSize(400, 400) << 9000 << 0 << false << 0.95 << 0.0;
        QTest::newRow("wide, right edge") << QSize(800, 200) << 6500 << 0 << true << 0.6 << 64.0;
        QTest::newRow("turned 90") << QSize(600, 300) << 6500 << 90 << true << 0.5 << -40.0;
        QTest::newRow("tall, turned 90") << QSize(300, 600) << 6500 << 90 << false << 0.3 << 10.0;
        QTest::newRow("turned 225") << QSize(500, 400) << 4500 << 225 << true << 0.8 << -20.0;
        QTest::newRow("turned 270") << QSize(500, 400) << 6500 << 270 << true << 0.7 << 30.0;
    }
    void fitsFanAndReportsPosition()
    {
        QFETCH(QSize, size);
        QFETCH(int, halfAperture);
        QFETCH(int, rotation);
        QFETCH(bool, heightLimits);
        QFETCH(double, radius);
        QFETCH(double, bearing);
        const double range = 80.0;
        showDisplay(size, TestSupport::uniformFrame(64, 50, range, 0, -halfAperture, halfAperture));
        display->setRotation(rotation);
        display->grabFramebuffer();

        // Extent of the drawn fan in clip units: the apex and a dense walk along the rim.
        const QMatrix4x4& projection = display->getCurrentProjection();
        QPolygonF outline;
        outline << projection.map(QPointF(0, 0));
        for (int step = -500; step <= 500; ++step) {
            const double a = qDegreesToRadians(90.0 - halfAperture / 100.0 * step / 500.0);
            outline << projection.map(QPointF(std::cos(a), std::sin(a)));
        }
        const QRectF extent = outline.boundingRect();
        // Centred, the limiting side filling 90 % of the widget, the other within it.
        QVERIFY(std::abs(extent.center().x()) < 1e-3 && std::abs(extent.center().y()) < 1e-3);
        const double limiting = heightLimits ? extent.height() : extent.width();
        const double other = heightLimits ? extent.width() : extent.height();
        QVERIFY2(
            std::abs(limiting - 1.8) < 2e-3 && other <= 1.8 + 2e-3, qPrintable(QString::number(limiting)));
        // Fan units are equally long on screen in both directions.
        const Halcyra::Vec3<float>& s = display->getCurrentScale();
        QVERIFY(qFuzzyCompare(s.x * size.width(), s.y * size.height()));
        QCOMPARE(display->getCurrentRotation(), float(rotation));

        // The position under the mouse, inside the fan only.
        QSignalSpy positions(display.get(), &FanDisplay::newMousePosition);
        const double a = qDegreesToRadians(90.0 - bearing);
        const QPoint pixel = pixelOf(*display, QPointF(radius * std::cos(a), radius * std::sin(a)));
        sendMouse(*display, QEvent::MouseMove, pixel, Qt::NoButton);
        sendMouse(*display, QEvent::MouseMove, QPoint(1, 1), Qt::NoButton);
        QCOMPARE(positions.count(), 1);
        const QPointF f = fanPointOf(*display, pixel) * range;
        const QList<QVariant> args = positions.first();
        QVERIFY(std::abs(args[0].toDouble() - f.x()) < 1e-3 * range);
        QVERIFY(std::abs(args[1].toDouble() - f.y()) < 1e-3 * range);
        QVERIFY(std::abs(args[2].toDouble() - std::hypot(f.x(), f.y())) < 1e-3 * range);
        // The bearing may come out a whole turn off (a rotation of 270 counts as -90).
        const double bearingError = args[3].toDouble() - qRadiansToDegrees(std::atan2(f.x(), f.y()));
        QVERIFY2(std::abs(std::remainder(bearingError, 360.0)) < 0.05, qPrintable(args[3].toString()));
    }

    void overlaysFollowTheirSwitches_data()
    {
        QTest::addColumn<bool>("lines");
        QTest::addColumn<bool>("arcs");
        QTest::addColumn<bool>("labels");
        QTest::newRow("all off") << false << false << false;
        QTest::newRow("lines") << true << false << false;
        QTest::newRow("arcs") << false << true << false;
        QTest::newRow("labels") << false << false << true;
    }
    void overlaysFollowTheirSwitches()
    {
        QFETCH(bool, lines);
        QFETCH(bool, arcs);
        QFETCH(bool, labels);
        showDisplay(QSize(401, 401), TestSupport::uniformFrame(64, 50, 30.0, 0));
        display->setTextColour(QColor(255, 255, 0));
        display->setOverlayFeature(FanDisplayOptions::RangeLines, lines);
        display->setOverlayFeature(FanDisplayOptions::RangeArcs, arcs);
        display->toggleOverlayFeature(FanDisplayOptions::RangeLabels);
        if (labels)
            display->toggleOverlayFeature(FanDisplayOptions::RangeLabels);
        const QImage image = display->grabFramebuffer();

        // The fan itself, away from every overlay, and a box on the centre line
        // (a range line) and on the second arc, each away from the other.
        const QColor fan = image.pixelColor(pixelOf(*display, QPointF(0.2, 0.5)));
        const auto marked = [&](QPointF at) {
            const QRect box(pixelOf(*display, at) - QPoint(2, 2), QSize(5, 5));
            return TestSupport::countPixelsDiffering(image, box, fan) > 0;
        };
        const bool onLine = marked(QPointF(0.0, 0.5));
        const bool onArc = marked(QPointF(0.4 * std::cos(1.309), 0.4 * std::sin(1.309))); // 75 degrees
        const bool yellow = countNear(image, QColor(255, 255, 0), 60) > 0;
        const bool grey = countNear(image, gridGrey) > 0;
        if (lines != onLine || arcs != onArc || labels != yellow || grey != (lines || arcs))
            QFAIL(qPrintable(
                QString::asprintf("line %d, arc %d, labels %d, grey %d: ", onLine, onArc, yellow, grey)
                + TestSupport::saveFailurePicture(image, QStringLiteral("overlays"))));
    }

    void measureAndDiscard_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QPointF>("from");
        QTest::addColumn<QPointF>("to");
        QTest::addColumn<QString>("discard");
        QTest::newRow("distance, click outside")
            << int(FanDisplayOptions::StraightLine) << QPointF(0, 0.2) << QPointF(0.1, 0.6) << "click";
        QTest::newRow("rectangle, resize")
            << int(FanDisplayOptions::RectangleArea) << QPointF(-0.2, 0.3) << QPointF(0.2, 0.7) << "resize";
        QTest::newRow("circle, mode set again")
            << int(FanDisplayOptions::CircleAreaFromCentre) << QPointF(0, 0.5) << QPointF(0.2, 0.5) << "mode";
    }
    void measureAndDiscard()
    {
        QFETCH(int, mode);
        QFETCH(QPointF, from);
        QFETCH(QPointF, to);
        QFETCH(QString, discard);
        const double range = 50.0;
        showDisplay(QSize(401, 401), TestSupport::uniformFrame(64, 50, range, 0));
        const auto measurementMode = FanDisplayOptions::MeasurementMode(mode);
        display->setMeasurementMode(measurementMode);
        const QPoint start = pixelOf(*display, from), end = pixelOf(*display, to);
        drag(*display, start, end);

        auto& d = Inspector::record(*display);
        QCOMPARE(d.tool->getState(), MeasuringToolBase::Finished);
        const QPointF p = fanPointOf(*display, start), q = fanPointOf(*display, end);
        const double dx = (q.x() - p.x()) * range, dy = (q.y() - p.y()) * range;
        const double expected = mode == FanDisplayOptions::StraightLine ? std::hypot(dx, dy)
            : mode == FanDisplayOptions::RectangleArea                  ? std::abs(dx * dy)
                                                                        : M_PI * (dx * dx + dy * dy);
        const double measured = Tools::result(*d.tool);
        QVERIFY2(std::abs(measured - expected) < 1e-3 * expected,
            qPrintable(QStringLiteral("%1 != %2").arg(measured).arg(expected)));
        QImage image = display->grabFramebuffer();
        if (countNear(image, red) < 20)
            QFAIL(qPrintable(TestSupport::saveFailurePicture(image, QStringLiteral("no-shape"))));

        // A new range rescales the finished measurement; the same range does not.
        display->newImageReceived(TestSupport::uniformFrame(64, 50, range, 0));
        QCOMPARE(Tools::result(*d.tool), measured);
        display->newImageReceived(TestSupport::uniformFrame(64, 50, 2 * range, 0));
        const double factor = mode == FanDisplayOptions::StraightLine ? 2.0 : 4.0;
        QVERIFY(std::abs(Tools::result(*d.tool) - factor * measured) < 1e-3 * factor * measured);

        // Buttons other than the left one leave the measurement alone.
        sendMouse(*display, QEvent::MouseButtonPress, QPoint(2, 2), Qt::RightButton);
        sendMouse(*display, QEvent::MouseButtonRelease, QPoint(2, 2), Qt::RightButton);
        QVERIFY(d.tool->hasMeasurement());
        if (discard == "click") {
            sendMouse(*display, QEvent::MouseButtonPress, QPoint(2, 2));
            sendMouse(*display, QEvent::MouseButtonRelease, QPoint(2, 2));
        } else if (discard == "resize") {
            display->resize(420, 380);
        } else {
            display->setMeasurementMode(measurementMode);
        }
        QVERIFY(d.tool->getState() == MeasuringToolBase::Idle && !d.tool->hasMeasurement());
        image = display->grabFramebuffer();
        QCOMPARE(countNear(image, red), 0);
    }

    void rejectsMalformedFrames_data()
    {
        QTest::addColumn<NereonImage>("frame");
        const auto bytes = [](int n) { return std::vector<std::uint8_t>(std::size_t(n), 200); };
        const auto bearings = TestSupport::evenBearings(8, -6000, 6000);
        QTest::newRow("one beam") << NereonImage(1, 4, bytes(4), { 0 }, 40.0, 1.0);
        QTest::newRow("no range lines") << NereonImage(8, 0, {}, bearings, 40.0, 1.0);
        QTest::newRow("few bearings") << NereonImage(8, 4, bytes(32), { -10, 0, 10 }, 40.0, 1.0);
        QTest::newRow("few bytes") << NereonImage(8, 4, bytes(31), bearings, 40.0, 1.0);
        QTest::newRow("descending") << NereonImage(
            8, 4, bytes(32), { -600, -400, -200, 0, 400, 200, 600, 800 }, 40.0, 1.0);
        QTest::newRow("no span") << NereonImage(
            8, 4, bytes(32), std::vector<std::int16_t>(8, 100), 40.0, 1.0);
        QTest::newRow("NaN range") << NereonImage(8, 4, bytes(32), bearings, std::nan(""), 1.0);
        QTest::newRow("negative range") << NereonImage(8, 4, bytes(32), bearings, -1.0, 1.0);
        QTest::newRow("wider than a texture") << NereonImage(
            40000, 1, bytes(40000), TestSupport::evenBearings(40000, -20000, 19999), 40.0, 1.0);
    }
    void rejectsMalformedFrames()
    {
        QFETCH(NereonImage, frame);
        showDisplay(
            QSize(301, 301), TestSupport::makeFrame(32, 40, 25.0, [](int b, int l) { return b * 8 + l; }));
        drag(*display, pixelOf(*display, QPointF(0, 0.2)), pixelOf(*display, QPointF(0, 0.7)));
        auto& d = Inspector::record(*display);
        const double measured = Tools::result(*d.tool);
        const auto framesBefore = d.framesThisSecond;
        const QImage before = display->grabFramebuffer();

        // Silent unless the application asks for the reason.
        captured.clear();
        const QtMessageHandler previous = qInstallMessageHandler(captureMessage);
        display->newImageReceived(frame);
        const int silent = captured.size();
        QLoggingCategory::setFilterRules(QStringLiteral("ternwick.nereon.visualisation.frames.warning=true"));
        display->newImageReceived(frame);
        QLoggingCategory::setFilterRules(QString());
        qInstallMessageHandler(previous);
        QCOMPARE(silent, 0);
        QCOMPARE(captured.size(), 1);
        QVERIFY2(captured.first().contains("rejected"), qPrintable(captured.first()));

        const QImage after = display->grabFramebuffer();
        if (after != before)
            QFAIL(qPrintable(TestSupport::saveFailurePicture(after, QStringLiteral("changed"))));
        QCOMPARE(d.geometryEngine.getRange(), 25.0);
        QCOMPARE(Tools::result(*d.tool), measured);
        QCOMPARE(d.framesThisSecond, framesBefore);
    }

    void countsFramesPerSecond()
    {
        FanDisplay fresh;
        QSignalSpy rates(&fresh, &FanDisplay::frameRateChanged);
        const NereonImage frame = TestSupport::uniformFrame(16, 8, 10.0, 0);
        fresh.newImageReceived(frame);
        QCOMPARE(rates.count(), 1);
        QCOMPARE(rates.takeFirst().at(0).toInt(), 0);

        // Thirty frames inside one second, then one in the next.
        const auto second = [] { return QDateTime::currentMSecsSinceEpoch() / 1000; };
        const qint64 first = second();
        QTRY_VERIFY_WITH_TIMEOUT(second() > first && QDateTime::currentMSecsSinceEpoch() % 1000 < 500, 2500);
        const qint64 counted = second();
        for (int i = 0; i < 30; ++i)
            fresh.newImageReceived(frame);
        QCOMPARE(rates.count(), 1);
        QCOMPARE(rates.takeFirst().at(0).toInt(), 1);
        if (second() != counted)
            QSKIP("thirty frames took longer than the rest of a second");
        QTRY_VERIFY_WITH_TIMEOUT(second() > counted, 1500);
        fresh.newImageReceived(frame);
        QCOMPARE(rates.count(), 1);
        QCOMPARE(rates.first().at(0).toInt(), 30);
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
