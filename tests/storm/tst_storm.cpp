// A seeded storm of what users and applications do to a shown zoomable display
// and its magnifier, in random order; afterwards a good frame at a sane size
// must give the same picture as a display that never saw the storm.

#include "FanDisplay.h"
#include "FanView.h"
#include "GlTestSupport.h"
#include "TestFrames.h"
#include "TestUnits.h"
#include "ZoomDisplay.h"
#include "ZoomableFanDisplay.h"

#include <QApplication>
#include <QWheelEvent>
#include <QtTest>

#include <cmath>
#include <limits>
#include <random>

using namespace Halcyra::Nereon::Visualisation;
using Halcyra::Nereon::NereonImage;
using TestSupport::pixelOf;

namespace {

constexpr int StormEvents = 600;
constexpr unsigned StormSeed = 20261123;

class Storm
{
public:
    Storm(ZoomableFanDisplay& display, ZoomDisplay& magnifier)
        : display(display)
        , magnifier(magnifier)
    {
    }

    void step()
    {
        const int what = pick(20);
        if (what < 6)
            mouse(what < 2     ? QEvent::MouseButtonPress
                    : what < 5 ? QEvent::MouseMove
                               : QEvent::MouseButtonRelease);
        else if (what == 6)
            wheel();
        else if (what == 7)
            resize(display, { { 0, 0 }, { 1, 5000 }, { 5000, 1 }, { 300, 0 } });
        else if (what == 8)
            resize(magnifier, { { 0, 0 }, { 240, 0 }, { 0, 240 }, { 1, 5000 } });
        else if (what == 9)
            display.setRotation(pick(1441) - 720);
        else if (what == 10)
            pick(2) ? display.verticalFlip() : display.horizontalFlip();
        else if (what == 11)
            display.setMeasurementMode(static_cast<FanDisplayOptions::MeasurementMode>(pick(4)));
        else if (what == 12)
            zoomLevel();
        else if (what == 13)
            magnifierAction();
        else if (what == 14)
            restyle();
        else if (what == 15)
            display.setOverlayFeature(static_cast<FanDisplayOptions::OverlayFeature>(pick(3)), pick(2));
        else
            display.newImageReceived(frame());
        // Paints happen in between, as they would at the user's pace.
        if (pick(4) == 0)
            QCoreApplication::processEvents();
    }

    int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random); }

private:
    QPoint anywhere(const QWidget& widget)
    {
        return QPoint(pick(widget.width() + 41) - 20, pick(widget.height() + 41) - 20);
    }

    void mouse(QEvent::Type type)
    {
        static const Qt::MouseButton buttons[] = { Qt::LeftButton, Qt::RightButton, Qt::MiddleButton };
        const Qt::MouseButton button = buttons[pick(3)];
        QPoint at = anywhere(display);
        if (type == QEvent::MouseButtonPress && pick(2) && magnifier.isVisible()) {
            // Often on the outline's edge, where a press starts a drag.
            const QMatrix4x4 toFan = magnifier.getCurrentProjection().inverted();
            const QPointF clip = display.getCurrentProjection().map(toFan.map(QPointF(-1.0, 0.2)));
            const double x = (clip.x() + 1.0) / 2.0 * display.width();
            const double y = (1.0 - clip.y()) / 2.0 * display.height();
            if (std::abs(x) < 1e6 && std::abs(y) < 1e6)
                at = QPoint(int(x), int(y));
        }
        if (type == QEvent::MouseButtonPress)
            held |= button;
        else if (type == QEvent::MouseButtonRelease)
            held &= ~Qt::MouseButtons(button);
        const Qt::MouseButton eventButton = type == QEvent::MouseMove ? Qt::NoButton : button;
        QMouseEvent event(type, at, eventButton, held, Qt::NoModifier);
        QCoreApplication::sendEvent(&display, &event);
    }

    void wheel()
    {
        const bool up = pick(2);
        QWidget& target = pick(2) ? static_cast<QWidget&>(display) : magnifier;
        const QPoint at = anywhere(target);
        QWheelEvent event(at, target.mapToGlobal(at), QPoint(), QPoint(0, up ? 120 : -120), held,
            Qt::NoModifier, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(&target, &event);
        // What an application does with the wheel.
        if (&target == &magnifier)
            up ? magnifier.zoomIn() : magnifier.zoomOut();
        else
            display.setZoomLevel(display.getZoomLevel() * (up ? 1.25f : 0.8f), pick(2));
    }

    void resize(QWidget& widget, std::initializer_list<QSize> extremes)
    {
        if (pick(3) == 0)
            widget.resize(*(extremes.begin() + pick(int(extremes.size()))));
        else
            widget.resize(20 + pick(500), 20 + pick(400));
    }

    void zoomLevel()
    {
        static const float levels[] = { std::numeric_limits<float>::quiet_NaN(),
            std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(), 0.0f, -1.0f,
            0.25f, 1.0f, 2.0f, 8.0f, 1e30f, 3e38f, -1e-30f };
        constexpr int count = int(sizeof levels / sizeof levels[0]);
        const int index = pick(count + 2);
        const float level
            = index < count ? levels[index] : std::uniform_real_distribution<float>(0.1f, 6.0f)(random);
        display.setZoomLevel(level, pick(2));
    }

    void magnifierAction()
    {
        const int what = pick(6);
        if (what == 0)
            magnifier.zoomIn();
        else if (what == 1)
            magnifier.zoomOut();
        else if (what == 2)
            magnifier.reset();
        else if (what == 3)
            magnifier.pan(std::uniform_real_distribution<float>(-2.0f, 2.0f)(random),
                std::uniform_real_distribution<float>(-2.0f, 2.0f)(random), pick(2));
        else if (what == 4)
            magnifier.setVisible(!magnifier.isVisible());
        else
            display.setClearColour(QColor::fromRgb(pick(256), pick(256), pick(256)));
    }

    void restyle()
    {
        display.setPalette(static_cast<FanDisplayOptions::Palette>(pick(9)));
        display.setPaletteModifier(static_cast<std::uint8_t>(pick(256)));
        display.setClampLevel(std::uniform_real_distribution<float>(-0.1f, 1.2f)(random));
        display.setDespeckleLevel(pick(4));
    }

    NereonImage frame()
    {
        static const double ranges[]
            = { 0.0, 0.5, 50.0, 1e5, std::numeric_limits<double>::quiet_NaN(), -3.0 };
        const int beams = pick(8) == 0 ? pick(3) : 2 + pick(300);
        const int lines = pick(8) == 0 ? 0 : 1 + pick(200);
        const int half = 100 * (1 + pick(90));
        const double range = pick(4) == 0 ? ranges[pick(6)] : 1.0 + pick(200);
        const std::uint8_t base = std::uint8_t(pick(256));
        NereonImage image = TestSupport::makeFrame(
            beams, lines, range, [base](int beam, int line) { return std::uint8_t(base + beam * 3 + line); },
            -half, half);
        if (pick(10) == 0) // bearings in the wrong order
            image = NereonImage(std::uint16_t(beams), std::uint16_t(lines), image.getData(),
                TestSupport::evenBearings(beams, half, -half), range, 1.0);
        return image;
    }

    ZoomableFanDisplay& display;
    ZoomDisplay& magnifier;
    std::mt19937 random { StormSeed };
    Qt::MouseButtons held;
};

} // namespace

class TestStorm : public QObject
{
    Q_OBJECT

private slots:
    void stormLeavesAWorkingDisplay()
    {
        const TestSupport::ScaledUnit metres = TestSupport::metres();
        const TestSupport::ScaledUnit squareMetres = TestSupport::squareMetres();
        QWidget window;
        window.resize(1000, 700);
        auto* display = new ZoomableFanDisplay(&window);
        ZoomDisplay* magnifier = display->getZoomDisplay();
        magnifier->setParent(&window);
        // Never stormed: what the same frame must look like.
        auto* reference = new ZoomableFanDisplay(&window);
        for (FanDisplay* each : { static_cast<FanDisplay*>(display), static_cast<FanDisplay*>(reference) }) {
            each->setDistanceUnit(&metres);
            each->setAreaUnit(&squareMetres);
        }
        display->setGeometry(0, 0, 300, 200);
        magnifier->setGeometry(300, 0, 200, 200);
        reference->setGeometry(0, 400, 300, 200);
        QVERIFY(TestSupport::showExposed(window));

        Storm storm(*display, *magnifier);
        // NEREON_STORM_EVENTS runs a longer (or shorter) storm by hand.
        const int events = qEnvironmentVariableIsSet("NEREON_STORM_EVENTS")
            ? qEnvironmentVariableIntValue("NEREON_STORM_EVENTS")
            : StormEvents;
        for (int event = 0; event < events; ++event)
            storm.step();

        // Back to a sane state through the public interface only.
        QMouseEvent release(QEvent::MouseButtonRelease, QPointF(10, 10), Qt::LeftButton, Qt::NoButton, {});
        QCoreApplication::sendEvent(display, &release);
        display->setZoomLevel(1.0f, false);
        display->setRotation(0);
        if (display->getCurrentDisplaySettings().horizontalFlip)
            display->horizontalFlip();
        display->setPalette(FanDisplayOptions::Multicolour);
        display->setClampLevel(0.0f);
        display->setDespeckleLevel(0);
        display->setClearColour(QColor(76, 76, 76));
        display->setMeasurementMode(FanDisplayOptions::StraightLine);
        for (int feature = 0; feature < 3; ++feature)
            display->setOverlayFeature(static_cast<FanDisplayOptions::OverlayFeature>(feature), true);
        display->resize(300, 200);
        magnifier->resize(200, 200);
        magnifier->show();
        magnifier->reset();
        // Smoothed thresholds forget the storm's frames at a fifth a frame.
        for (int frame = 0; frame < 60; ++frame) {
            const NereonImage good = TestSupport::uniformFrame(64, 100, 50.0, 160);
            display->newImageReceived(good);
            reference->newImageReceived(good);
        }
        QTest::qWait(100);

        const auto scale = display->getCurrentScale();
        QCOMPARE(scale.x, reference->getCurrentScale().x);
        QCOMPARE(scale.y, reference->getCurrentScale().y);

        const QImage stormed = display->grabFramebuffer();
        const QImage expected = reference->grabFramebuffer();
        // Inside the fan clear of grid and outline, and the background beyond it.
        for (const QPointF& fanPoint : { QPointF(0.6, 0.5), QPointF(-0.6, 0.5), QPointF(0.1, 0.7),
                 QPointF(0.0, 0.95), QPointF(0.95, 0.1), QPointF(0.0, -0.05) }) {
            const QPoint at = pixelOf(*display, stormed, fanPoint);
            if (!TestSupport::pixelMatches(stormed, at, expected.pixelColor(at), 3)) {
                TestSupport::saveFailurePicture(expected, QStringLiteral("expected"));
                NEREON_VERIFY_PIXEL(stormed, at, expected.pixelColor(at), 3);
            }
        }
        // The magnifier shows the same colour where it shows the same fan point.
        const QPointF probe(0.1, 0.3);
        const QImage magnified = magnifier->grabFramebuffer();
        NEREON_VERIFY_PIXEL(magnified, pixelOf(*magnifier, magnified, probe),
            expected.pixelColor(pixelOf(*reference, expected, probe)), 4);

        // Mesa's shared state leaks when the display's context goes first.
        delete magnifier;
    }
};

int main(int argc, char** argv)
{
    // The magnifier may float away from its display's window during the storm.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    TestSupport::useTestSurfaceFormat();
    QApplication app(argc, argv);
    TestStorm test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_storm.moc"
