#include "FanDisplay.h"
#include "GlTestSupport.h"
#include "TestFrames.h"
#include "TestUnits.h"
#include "ZoomDisplay.h"
#include "ZoomableFanDisplay.h"
#include "gui/OpenGLWidget.h"
#include "gui/OpenGLWidgetPainter.h"
#include "zoom/ZoomDisplayOutline.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QtTest>

#include <cmath>
#include <memory>
#include <vector>

using namespace Halcyra::Nereon::Visualisation;
using Halcyra::Vec3;
using Halcyra::GUI::Widgets::Bases::OpenGLWidget;

Q_DECLARE_METATYPE(Vec3<float>)

namespace {

const QColor FanClearGrey(77, 77, 77); // 0.3 of full scale

/// Counts the paints a widget receives.
class PaintCounter : public QObject
{
public:
    explicit PaintCounter(QWidget& widget) { widget.installEventFilter(this); }
    int paints = 0;

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::Paint)
            ++paints;
        return false;
    }
};

/// Lets pending paints and timers run.
void settle(int ms = 60)
{
    QTest::qWait(ms);
}

/// The fan point at the centre of a widget's view.
QPointF viewCentre(OpenGLWidget& widget)
{
    return widget.getCurrentProjection().inverted().map(QPointF(0.0, 0.0));
}

bool near(double a, double b, double tolerance = 1e-5)
{
    return std::abs(a - b) <= tolerance;
}

#define VERIFY_NEAR(actual, expected, tolerance)                                                             \
    QVERIFY2(near((actual), (expected), (tolerance)),                                                        \
        qPrintable(QStringLiteral("%1 is %2, expected %3")                                                   \
                       .arg(QStringLiteral(#actual))                                                         \
                       .arg(double(actual), 0, 'g', 10)                                                      \
                       .arg(double(expected), 0, 'g', 10)))

/// A fan display fed with one frame, with its magnifier owned here.
class DisplayUnderTest
{
public:
    explicit DisplayUnderTest(std::unique_ptr<FanDisplay> fanDisplay = std::make_unique<FanDisplay>())
        : display(std::move(fanDisplay))
        , zoom(display->getZoomDisplay())
    {
        display->setDistanceUnit(&metres);
        display->newImageReceived(TestSupport::uniformFrame(64, 100, 50.0, 160));
    }
    ~DisplayUnderTest()
    {
        // The magnifier must not outlive its display.
        delete zoom;
        display.reset();
    }

    bool show(QSize size = QSize(300, 200))
    {
        display->resize(size);
        display->show();
        if (!QTest::qWaitForWindowExposed(display.get()))
            return false;
        TestSupport::keepGlDriverLoaded();
        settle();
        return true;
    }

    TestSupport::ScaledUnit metres = TestSupport::metres();
    std::unique_ptr<FanDisplay> display;
    ZoomDisplay* zoom;
};

/// A bare GL widget with an identity transform that draws only the outline.
class OutlineCanvas : public OpenGLWidget
{
public:
    ZoomDisplayOutline* outline = nullptr;

protected:
    void initialise() override { glClearColor(0.0f, 0.0f, 0.0f, 1.0f); }
    void paintGL() override
    {
        glClear(GL_COLOR_BUFFER_BIT);
        if (outline)
            outline->draw(painter());
    }
};

bool greenNear(const QImage& image, QPoint at)
{
    for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
            const QColor c = image.pixelColor(at + QPoint(dx, dy));
            if (c.green() > 50 && c.red() < 20 && c.blue() < 20)
                return true;
        }
    }
    return false;
}

} // namespace

class TestZoom : public QObject
{
    Q_OBJECT

private slots:
    // Magnifier
    void zoomStepsFollowTableAndKeepCentre();
    void resetRestoresDefaultView_data();
    void resetRestoresDefaultView();
    void setRotation_data();
    void setRotation();
    void pan();
    void resizeKeepsPixelSize_data();
    void resizeKeepsPixelSize();
    void drawsSharedFanAndClearColour();

    // Outline
    void outlineDrawsMagnifiedRegion();
    void outlineBand_data();
    void outlineBand();
    void dragMovesRegion();

    // Zoomable display
    void zoomableStartsAsFanDisplayAndResizesZoomed();
    void instantZoomKeepsCentre_data();
    void instantZoomKeepsCentre();
    void animatedZoom_data();
    void animatedZoom();
    void animatedRequestForCurrentLevelStops();
    void instantRequestInterruptsAnimation();
};

void TestZoom::zoomStepsFollowTableAndKeepCentre()
{
    DisplayUnderTest under;
    QVERIFY(under.show());
    ZoomDisplay& zoom = *under.zoom;
    PaintCounter counter(*under.display);

    QCOMPARE(zoom.getCurrentScale().x, 4.0f);
    QCOMPARE(zoom.getCurrentScale().y, 4.0f);
    QCOMPARE(zoom.getCurrentTranslation().y, -1.0f);
    zoom.pan(0.3f, -0.7f, true);

    const float table[] = { 4.0f, 4.5f, 5.0f, 5.5f, 6.0f, 6.5f, 7.0f, 8.0f, 9.0f, 10.0f };
    auto step = [&](bool in, int index) {
        const QPointF centre = viewCentre(zoom);
        counter.paints = 0;
        in ? zoom.zoomIn() : zoom.zoomOut();
        QCOMPARE(zoom.getCurrentScale().x, table[index]);
        QCOMPARE(zoom.getCurrentScale().y, table[index]);
        const QPointF moved = zoom.getCurrentProjection().map(centre);
        VERIFY_NEAR(moved.x(), 0.0, 1e-5);
        VERIFY_NEAR(moved.y(), 0.0, 1e-5);
        QTRY_VERIFY(counter.paints > 0);
    };
    auto stepAtEnd = [&](bool in) {
        const Vec3<float> scale = zoom.getCurrentScale();
        const Vec3<float> translation = zoom.getCurrentTranslation();
        settle();
        counter.paints = 0;
        in ? zoom.zoomIn() : zoom.zoomOut();
        settle();
        QCOMPARE(zoom.getCurrentScale().x, scale.x);
        QCOMPARE(zoom.getCurrentTranslation().x, translation.x);
        QCOMPARE(zoom.getCurrentTranslation().y, translation.y);
        QCOMPARE(counter.paints, 0);
    };

    stepAtEnd(false);
    for (int index = 1; index <= 9; ++index) {
        step(true, index);
        if (QTest::currentTestFailed())
            return;
    }
    stepAtEnd(true);
    for (int index = 8; index >= 0; --index) {
        step(false, index);
        if (QTest::currentTestFailed())
            return;
    }
    stepAtEnd(false);
}

void TestZoom::resetRestoresDefaultView_data()
{
    QTest::addColumn<float>("rotation");
    QTest::addColumn<QPointF>("translation");
    QTest::newRow("upright") << 0.0f << QPointF(0, -1);
    QTest::newRow("quarter turn") << 90.0f << QPointF(1, 0);
    QTest::newRow("upside down") << 180.0f << QPointF(0, 1);
    QTest::newRow("quarter turn back") << -90.0f << QPointF(-1, 0);
}

void TestZoom::resetRestoresDefaultView()
{
    QFETCH(float, rotation);
    QFETCH(QPointF, translation);
    DisplayUnderTest under;
    ZoomDisplay& zoom = *under.zoom;
    zoom.setRotation(rotation);
    zoom.zoomIn();
    zoom.zoomIn();
    zoom.pan(0.2f, 0.1f, false);

    zoom.reset();
    QCOMPARE(zoom.getCurrentRotation(), rotation);
    QCOMPARE(zoom.getCurrentScale().x, 4.0f);
    QCOMPARE(zoom.getCurrentScale().y, 4.0f);
    VERIFY_NEAR(zoom.getCurrentTranslation().x, translation.x(), 1e-6);
    VERIFY_NEAR(zoom.getCurrentTranslation().y, translation.y(), 1e-6);
    // The apex sits at the middle of the lower edge, whatever the rotation.
    const QPointF apex = zoom.getCurrentProjection().map(QPointF(0, 0));
    VERIFY_NEAR(apex.x(), translation.x(), 1e-6);
    // Level 0 again: the next step up is the second entry of the table.
    zoom.zoomIn();
    QCOMPARE(zoom.getCurrentScale().x, 4.5f);
}

void TestZoom::setRotation_data()
{
    QTest::addColumn<QPointF>("translation");
    QTest::addColumn<float>("from");
    QTest::addColumn<float>("to");
    QTest::addColumn<QPointF>("expected");

    QTest::newRow("quarter turn of the default view") << QPointF(0, -1) << 0.0f << 90.0f << QPointF(1, 0);
    // The tiny x component is rounded away for the direction but kept in the length.
    QTest::newRow("rounding near an axis")
        << QPointF(0.004, -1) << 0.0f << 90.0f << QPointF(std::hypot(0.004, 1.0), 0);
    QTest::newRow("same angle changes nothing") << QPointF(0.004, -1) << 30.0f << 30.0f << QPointF(0.004, -1);
    QTest::newRow("back from a half turn") << QPointF(0.25, 0.5) << 180.0f << 0.0f << QPointF(-0.25, -0.5);
}

void TestZoom::setRotation()
{
    QFETCH(QPointF, translation);
    QFETCH(float, from);
    QFETCH(float, to);
    QFETCH(QPointF, expected);

    DisplayUnderTest under;
    ZoomDisplay& zoom = *under.zoom;
    zoom.rotate(from, true);
    zoom.pan(float(translation.x()), float(translation.y()), true);
    zoom.zoomIn();
    zoom.pan(float(translation.x()), float(translation.y()), true);
    const QPointF centre = viewCentre(zoom);

    zoom.setRotation(to);
    QCOMPARE(zoom.getCurrentRotation(), to);
    if (from == to) {
        QCOMPARE(zoom.getCurrentTranslation().x, float(expected.x()));
        QCOMPARE(zoom.getCurrentTranslation().y, float(expected.y()));
        return;
    }
    VERIFY_NEAR(zoom.getCurrentTranslation().x, expected.x(), 1e-6);
    VERIFY_NEAR(zoom.getCurrentTranslation().y, expected.y(), 1e-6);
    QCOMPARE(zoom.getCurrentTranslation().z, 0.0f);
    // The magnified region stays where it was on the fan (up to the rounding of the direction).
    const QPointF turnedCentre = viewCentre(zoom);
    VERIFY_NEAR(turnedCentre.x(), centre.x(), 2e-3);
    VERIFY_NEAR(turnedCentre.y(), centre.y(), 2e-3);
}

void TestZoom::pan()
{
    DisplayUnderTest under;
    QVERIFY(under.show());
    ZoomDisplay& zoom = *under.zoom;
    PaintCounter counter(*under.display);

    zoom.pan(0.1f, 0.0f, false);
    QCOMPARE(zoom.getCurrentTranslation().x, 0.1f);
    QCOMPARE(zoom.getCurrentTranslation().y, -1.0f);
    QTRY_VERIFY(counter.paints > 0);

    zoom.pan(0.1f, 0.0f, true);
    QCOMPARE(zoom.getCurrentTranslation().x, 0.1f);
    QCOMPARE(zoom.getCurrentTranslation().y, 0.0f);
    QCOMPARE(zoom.getCurrentTranslation().z, 0.0f);
    QCOMPARE(zoom.getCurrentScale().x, 4.0f);
}

void TestZoom::resizeKeepsPixelSize_data()
{
    QTest::addColumn<QSize>("to");
    QTest::addColumn<float>("scaleX");
    QTest::addColumn<float>("scaleY");
    QTest::newRow("twice as wide") << QSize(400, 200) << 2.0f << 4.0f;
    QTest::newRow("half as high") << QSize(200, 100) << 4.0f << 8.0f;
}

void TestZoom::resizeKeepsPixelSize()
{
    QFETCH(QSize, to);
    QFETCH(float, scaleX);
    QFETCH(float, scaleY);

    DisplayUnderTest under;
    // Both in one window, so that their GL contexts share the engine's objects.
    QWidget window;
    under.display->setParent(&window);
    under.zoom->setParent(&window);
    under.display->setGeometry(0, 0, 300, 200);
    under.zoom->setGeometry(300, 0, 200, 200);
    window.resize(700, 300);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    settle();
    // The first resize, from no size at all, keeps the initial magnification.
    QCOMPARE(under.zoom->getCurrentScale().x, 4.0f);

    under.zoom->resize(to);
    QCOMPARE(under.zoom->getCurrentScale().x, scaleX);
    QCOMPARE(under.zoom->getCurrentScale().y, scaleY);
    QCOMPARE(under.zoom->getCurrentTranslation().y, -1.0f);

    under.zoom->setParent(nullptr);
    under.display->setParent(nullptr);
}

void TestZoom::drawsSharedFanAndClearColour()
{
    DisplayUnderTest under;
    QWidget window;
    under.display->setParent(&window);
    under.zoom->setParent(&window);
    under.display->setGeometry(0, 0, 300, 200);
    under.zoom->setGeometry(300, 0, 200, 200);
    window.resize(500, 200);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    settle();

    // Default view: apex at the bottom centre, fan x from -0.25 to 0.25 across the widget.
    QImage picture = under.zoom->grabFramebuffer();
    const QPoint insideFan(100, 100);
    const QPoint besideApex(3, 196); // 90 degrees off the centre line: outside any fan
    NEREON_VERIFY_PIXEL(picture, besideApex, FanClearGrey, 3);
    if (TestSupport::pixelMatches(picture, insideFan, FanClearGrey, 10))
        QFAIL(qPrintable(TestSupport::saveFailurePicture(picture, QStringLiteral("no-fan"))));

    under.zoom->setClearColour(QColor(0, 0, 255));
    picture = under.zoom->grabFramebuffer();
    NEREON_VERIFY_PIXEL(picture, besideApex, QColor(0, 0, 255), 3);

    under.zoom->setParent(nullptr);
    under.display->setParent(nullptr);
}

void TestZoom::outlineDrawsMagnifiedRegion()
{
    DisplayUnderTest under;
    ZoomDisplayOutline outline(under.zoom);
    OutlineCanvas canvas;
    canvas.outline = &outline;
    canvas.resize(200, 200);
    canvas.show();
    QVERIFY(QTest::qWaitForWindowExposed(&canvas));

    // Scale 4, translation (0, -1): fan x -0.25 to 0.25, y 0 to 0.5, that is
    // pixels 75 to 125 across and 50 to 100 down on an identity canvas.
    const QImage picture = canvas.grabFramebuffer();
    const QPoint edges[] = { { 75, 75 }, { 125, 75 }, { 100, 50 }, { 100, 100 }, { 76, 99 }, { 124, 51 } };
    for (const QPoint& edge : edges) {
        if (!greenNear(picture, edge))
            QFAIL(qPrintable(QStringLiteral("no outline at (%1, %2): %3")
                                 .arg(edge.x())
                                 .arg(edge.y())
                                 .arg(TestSupport::saveFailurePicture(picture, QStringLiteral("outline")))));
    }
    QCOMPARE(TestSupport::countPixelsDiffering(picture, QRect(78, 53, 44, 44), Qt::black, 10), 0);
    QCOMPARE(TestSupport::countPixelsDiffering(picture, QRect(0, 104, 200, 96), Qt::black, 10), 0);
}

void TestZoom::outlineBand_data()
{
    QTest::addColumn<QPointF>("clip"); // in the magnifier's clip coordinates
    QTest::addColumn<bool>("inside");

    // Band edges as the magnifier's clip factors, in single precision.
    const double outer = double(1.05f);
    const double inner = double(0.95f);
    QTest::newRow("on the drawn edge") << QPointF(-1, 0) << true;
    QTest::newRow("on the drawn corner") << QPointF(1, 1) << true;
    QTest::newRow("centre") << QPointF(0, 0) << false;
    QTest::newRow("on the outer edge") << QPointF(-outer, 0.3) << true;
    QTest::newRow("just beyond the outer edge") << QPointF(-outer - 1e-4, 0.3) << false;
    QTest::newRow("on the inner edge") << QPointF(0.2, inner) << false;
    QTest::newRow("just outside the inner edge") << QPointF(0.2, inner + 1e-4) << true;
    QTest::newRow("outer corner") << QPointF(outer, -outer) << true;
    QTest::newRow("far away") << QPointF(3, 0) << false;
}

void TestZoom::outlineBand()
{
    QFETCH(QPointF, clip);
    QFETCH(bool, inside);

    DisplayUnderTest under;
    ZoomDisplayOutline outline(under.zoom);
    const QPointF fanPoint = under.zoom->getCurrentProjection().inverted().map(clip);

    // The point reaches the outline in the fan display's coordinates, with
    // whatever transform that display has; the rotation matches the magnifier's.
    QMatrix4x4 plain;
    QCOMPARE(outline.pointIsWithinBounds(plain.map(fanPoint), plain), inside);

    under.zoom->setRotation(90.0f);
    QMatrix4x4 fitted;
    fitted.translate(0.1f, -0.6f);
    fitted.scale(0.9f, 1.35f);
    fitted.rotate(90.0f, 0.0f, 0.0f, 1.0f);
    const QPointF turnedFanPoint = under.zoom->getCurrentProjection().inverted().map(clip);
    QCOMPARE(outline.pointIsWithinBounds(fitted.map(turnedFanPoint), fitted), inside);
}

void TestZoom::dragMovesRegion()
{
    DisplayUnderTest under;
    QVERIFY(under.show());
    ZoomDisplay& zoom = *under.zoom;
    ZoomDisplayOutline outline(&zoom);
    PaintCounter counter(*under.display);

    outline.updateDrag(QPointF(0.3, 0.3));
    settle();
    QCOMPARE(zoom.getCurrentTranslation().x, 0.0f);
    QCOMPARE(zoom.getCurrentTranslation().y, -1.0f);
    QCOMPARE(counter.paints, 0);

    const QPointF start(0.1, 0.2);
    outline.beginDrag(start);
    QVERIFY(outline.isBeingDragged());
    const QPointF path[] = { { 0.15, 0.2 }, { 0.4, -0.1 }, { -0.2, 0.35 }, { 0.2, 0.2 } };
    for (const QPointF& point : path)
        outline.updateDrag(point);
    // Pointer moved by (0.1, 0) in the display's scaled units; magnifier scale 4.
    VERIFY_NEAR(zoom.getCurrentTranslation().x, -0.4, 1e-6);
    VERIFY_NEAR(zoom.getCurrentTranslation().y, -1.0, 1e-6);
    QTRY_VERIFY(counter.paints > 0);

    outline.updateDrag(QPointF(0.3, -0.4));
    outline.updateDrag(start);
    VERIFY_NEAR(zoom.getCurrentTranslation().x, 0.0, 1e-6);
    VERIFY_NEAR(zoom.getCurrentTranslation().y, -1.0, 1e-6);

    outline.endDrag();
    QVERIFY(!outline.isBeingDragged());
    const Vec3<float> translation = zoom.getCurrentTranslation();
    settle();
    counter.paints = 0;
    outline.updateDrag(QPointF(0.5, 0.5));
    settle();
    QCOMPARE(zoom.getCurrentTranslation().x, translation.x);
    QCOMPARE(zoom.getCurrentTranslation().y, translation.y);
    QCOMPARE(counter.paints, 0);
}

void TestZoom::zoomableStartsAsFanDisplayAndResizesZoomed()
{
    DisplayUnderTest plain;
    auto zoomableOwner = std::make_unique<ZoomableFanDisplay>();
    ZoomableFanDisplay* zoomable = zoomableOwner.get();
    DisplayUnderTest under(std::move(zoomableOwner));
    QVERIFY(plain.show());
    QVERIFY(under.show());

    QCOMPARE(zoomable->getZoomLevel(), 1.0f);
    QCOMPARE(zoomable->getCurrentScale().x, plain.display->getCurrentScale().x);
    QCOMPARE(zoomable->getCurrentScale().y, plain.display->getCurrentScale().y);
    VERIFY_NEAR(zoomable->getCurrentTranslation().x, plain.display->getCurrentTranslation().x, 1e-6);
    VERIFY_NEAR(zoomable->getCurrentTranslation().y, plain.display->getCurrentTranslation().y, 1e-6);

    zoomable->setZoomLevel(2.0f, false);
    zoomable->resize(400, 300);
    plain.display->resize(400, 300);
    settle();
    QCOMPARE(zoomable->getCurrentScale().x, 2.0f * plain.display->getCurrentScale().x);
    QCOMPARE(zoomable->getCurrentScale().y, 2.0f * plain.display->getCurrentScale().y);
    const QPointF zoomedCentre = viewCentre(*zoomable);
    const QPointF fittedCentre = viewCentre(*plain.display);
    VERIFY_NEAR(zoomedCentre.x(), fittedCentre.x(), 1e-5);
    VERIFY_NEAR(zoomedCentre.y(), fittedCentre.y(), 1e-5);
}

void TestZoom::instantZoomKeepsCentre_data()
{
    QTest::addColumn<float>("level");
    QTest::newRow("twice") << 2.0f;
    QTest::newRow("half") << 0.5f;
}

void TestZoom::instantZoomKeepsCentre()
{
    QFETCH(float, level);
    auto owner = std::make_unique<ZoomableFanDisplay>();
    ZoomableFanDisplay& zoomable = *owner;
    DisplayUnderTest under(std::move(owner));
    QVERIFY(under.show());
    // Off-centre view, so that keeping the centre is not automatic.
    zoomable.translate(0.2f, -0.3f, 0.0f, false);
    const Vec3<float> scale = zoomable.getCurrentScale();
    const QPointF centre = viewCentre(zoomable);
    PaintCounter counter(zoomable);

    zoomable.setZoomLevel(level, false);
    QCOMPARE(zoomable.getZoomLevel(), level);
    QCOMPARE(zoomable.getCurrentScale().x, scale.x * level);
    QCOMPARE(zoomable.getCurrentScale().y, scale.y * level);
    const QPointF moved = zoomable.getCurrentProjection().map(centre);
    VERIFY_NEAR(moved.x(), 0.0, 1e-5);
    VERIFY_NEAR(moved.y(), 0.0, 1e-5);
    QTRY_VERIFY(counter.paints > 0);
}

void TestZoom::animatedZoom_data()
{
    QTest::addColumn<float>("from");
    QTest::addColumn<float>("to");
    QTest::newRow("in") << 1.0f << 2.0f;
    QTest::newRow("out") << 2.0f << 1.0f;
}

void TestZoom::animatedZoom()
{
    QFETCH(float, from);
    QFETCH(float, to);
    auto owner = std::make_unique<ZoomableFanDisplay>();
    ZoomableFanDisplay& zoomable = *owner;
    DisplayUnderTest under(std::move(owner));
    QVERIFY(under.show());
    const float fitted = zoomable.getCurrentScale().x;
    zoomable.setZoomLevel(from, false);
    settle();

    QElapsedTimer clock;
    clock.start();
    zoomable.setZoomLevel(to, true);
    QCOMPARE(zoomable.getZoomLevel(), to);
    QCOMPARE(zoomable.getCurrentScale().x, fitted * from); // nothing moves before the first tick

    // Record every level the view passes through.
    std::vector<double> levels;
    double last = from;
    while (clock.elapsed() < 2000 && !near(last, to, 1e-3)) {
        QTest::qWait(2);
        const double level = double(zoomable.getCurrentScale().x) / double(fitted);
        if (std::abs(level - last) > 0.02) {
            levels.push_back(level);
            last = level;
        }
    }
    const qint64 elapsed = clock.elapsed();
    QCOMPARE(int(levels.size()), 10);
    for (int tick = 0; tick < 10; ++tick)
        VERIFY_NEAR(levels[std::size_t(tick)], from + (to - from) * (tick + 1) / 10.0, 1e-4);
    QVERIFY2(elapsed >= 250, qPrintable(QStringLiteral("ten ticks took %1 ms").arg(elapsed)));

    // The target is reached exactly, and then the timer stops: no more paints.
    settle(100);
    QCOMPARE(zoomable.getCurrentScale().x, fitted * to);
    PaintCounter counter(zoomable);
    settle(200);
    QCOMPARE(counter.paints, 0);
}

void TestZoom::animatedRequestForCurrentLevelStops()
{
    auto owner = std::make_unique<ZoomableFanDisplay>();
    ZoomableFanDisplay& zoomable = *owner;
    DisplayUnderTest under(std::move(owner));
    QVERIFY(under.show());
    const Vec3<float> scale = zoomable.getCurrentScale();
    PaintCounter counter(zoomable);

    zoomable.setZoomLevel(1.0f, true);
    settle(300);
    QCOMPARE(zoomable.getZoomLevel(), 1.0f);
    QCOMPARE(zoomable.getCurrentScale().x, scale.x);
    // One tick (and its repaint) at most, not a running timer.
    QVERIFY2(counter.paints <= 2, qPrintable(QString::number(counter.paints)));
}

void TestZoom::instantRequestInterruptsAnimation()
{
    auto owner = std::make_unique<ZoomableFanDisplay>();
    ZoomableFanDisplay& zoomable = *owner;
    DisplayUnderTest under(std::move(owner));
    QVERIFY(under.show());
    const float fitted = zoomable.getCurrentScale().x;

    zoomable.setZoomLevel(2.0f, true);
    QTRY_VERIFY_WITH_TIMEOUT(zoomable.getCurrentScale().x > 1.25f * fitted, 2000);
    zoomable.setZoomLevel(3.0f, false);
    QCOMPARE(zoomable.getZoomLevel(), 3.0f);

    settle(100);
    const float settled = zoomable.getCurrentScale().x;
    QCOMPARE(settled, fitted * 3.0f);
    PaintCounter counter(zoomable);
    settle(200);
    QCOMPARE(zoomable.getCurrentScale().x, settled);
    QCOMPARE(counter.paints, 0);
}

int main(int argc, char** argv)
{
    // The magnifier draws with the fan display's GL objects.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    TestSupport::useTestSurfaceFormat();
    QApplication app(argc, argv);
    TestZoom test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_zoom.moc"
