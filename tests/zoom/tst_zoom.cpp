#include "FanDisplay.h"
#include "FanDisplayExtensions.h"
#include "FanView.h"
#include "GlTestSupport.h"
#include "TestFrames.h"
#include "ZoomDisplay.h"
#include "ZoomableFanDisplay.h"
#include "zoom/ZoomDisplayOutline.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDockWidget>
#include <QElapsedTimer>
#include <QHBoxLayout>
#include <QMainWindow>
#include <QtTest>

#include <cmath>
#include <functional>
#include <memory>
#include <vector>

using namespace Halcyra::Nereon::Visualisation;
using TestSupport::OpenGLWidget;
using TestSupport::pixelOf;

namespace {

/// The fan point at the centre of a widget's view.
QPointF viewCentre(OpenGLWidget& widget)
{
    return widget.getCurrentProjection().inverted().map(QPointF());
}

QPointF translationOf(const OpenGLWidget& widget)
{
    return { widget.getCurrentTranslation().x, widget.getCurrentTranslation().y };
}

#define VERIFY_NEAR(actual, expected, tolerance)                                                             \
    QVERIFY2(QLineF((actual), (expected)).length() <= (tolerance),                                           \
        qPrintable(QString::asprintf(#actual " is (%.9g, %.9g)", (actual).x(), (actual).y())))

// Inside the magnifier's default region, clear of the range grid.
const QPointF probePoint(0.1, 0.3);
// The magnifier's background until the application sets another.
const QColor magnifierBackground(77, 77, 77);

/// Whether the magnifier shows its background only, where the fan would be.
bool showsBackground(ZoomDisplay* zoom)
{
    const QImage image = zoom->grabFramebuffer();
    if (TestSupport::pixelMatches(image, pixelOf(*zoom, image, probePoint), magnifierBackground, 2))
        return true;
    qWarning("%s", qPrintable(TestSupport::saveFailurePicture(image, QStringLiteral("magnifier"))));
    return false;
}

/// Whether the magnifier shows the fan in the display's colours.
bool showsPicture(ZoomDisplay* zoom, FanDisplay* display)
{
    const QImage fan = display->grabFramebuffer();
    const QColor expected = fan.pixelColor(pixelOf(*display, fan, probePoint));
    const QImage image = zoom->grabFramebuffer();
    if (!TestSupport::pixelMatches(fan, pixelOf(*display, fan, probePoint), QColor(76, 76, 76), 24)
        && TestSupport::pixelMatches(image, pixelOf(*zoom, image, probePoint), expected, 4))
        return true;
    qWarning("%s", qPrintable(TestSupport::saveFailurePicture(image, QStringLiteral("magnifier"))));
    qWarning("%s", qPrintable(TestSupport::saveFailurePicture(fan, QStringLiteral("display"))));
    return false;
}

/// Whether the shown window got exposed; a little later, when its first paints are done.
bool exposed(QWidget* window)
{
    const bool result = QTest::qWaitForWindowExposed(window);
    TestSupport::keepGlDriverLoaded();
    QTest::qWait(60);
    return result;
}

/// Whether the widget stops repainting: a quiet 300 ms comes within a few seconds. An
/// animation ends in 300 ms; a view that repaints for ever is never quiet that long.
bool settles(QOpenGLWidget* widget)
{
    QSignalSpy repaints(widget, &QOpenGLWidget::frameSwapped);
    for (QDeadlineTimer deadline(5000); !deadline.hasExpired();) {
        repaints.clear();
        QTest::qWait(300);
        if (repaints.isEmpty())
            return true;
    }
    return false;
}

/// A fan display showing one frame; it owns its magnifier here, which must go first.
struct Fixture
{
    explicit Fixture(FanDisplay* fanDisplay = new FanDisplay)
        : display(fanDisplay)
        , zoom(display->getZoomDisplay())
    {
        display->newImageReceived(TestSupport::uniformFrame(64, 100, 50.0, 160));
    }
    ~Fixture() { delete display->getZoomDisplay(); }
    bool show(QWidget* window)
    {
        window->resize(300, 200);
        window->show();
        return exposed(window);
    }
    bool show() { return show(display.get()); }
    /// Display and magnifier in one window, so that their GL contexts share the engine's objects.
    bool showSideBySide(QWidget& window, int magnifierSide = 200)
    {
        display->setParent(&window);
        zoom->setParent(&window);
        display->setGeometry(0, 0, 300, 200);
        zoom->setGeometry(300, 0, magnifierSide, magnifierSide);
        return show(&window);
    }

    std::unique_ptr<FanDisplay> display;
    ZoomDisplay* zoom;
};

} // namespace

class TestZoom : public QObject
{
    Q_OBJECT

private slots:
    void zoomStepsKeepCentreAndStopAtEnds()
    {
        Fixture f;
        QVERIFY(f.show());
        QSignalSpy repaints(f.display.get(), &QOpenGLWidget::frameSwapped);
        f.zoom->pan(0.5f, -0.5f, true);
        f.zoom->pan(-0.25f, -0.25f, false);
        QCOMPARE(translationOf(*f.zoom), QPointF(0.25, -0.75));

        const float table[] = { 4.0f, 4.5f, 5.0f, 5.5f, 6.0f, 6.5f, 7.0f, 8.0f, 9.0f, 10.0f };
        // Up one step past the top, then down one step past the bottom.
        for (int step = 1; step <= 20; ++step) {
            const int level = step <= 10 ? std::min(step, 9) : std::max(19 - step, 0);
            const bool atEnd = step % 10 == 0; // nothing changes there, not even a repaint
            const QPointF centre = viewCentre(*f.zoom);
            QTest::qWait(atEnd ? 60 : 0);
            repaints.clear();
            step <= 10 ? f.zoom->zoomIn() : f.zoom->zoomOut();
            QCOMPARE(f.zoom->getCurrentScale().x, table[level]);
            VERIFY_NEAR(f.zoom->getCurrentProjection().map(centre), QPointF(), 1e-5);
            QTest::qWait(atEnd ? 60 : 0);
            QTRY_COMPARE(repaints.isEmpty(), atEnd);
        }
    }

    void rotationKeepsRegionAndResetFollowsIt()
    {
        Fixture f;
        f.zoom->zoomIn();
        f.zoom->pan(0.004f, -1.0f, true);
        const QPointF centre = viewCentre(*f.zoom);

        // The tiny x is rounded away from the direction but kept in the length.
        f.zoom->setRotation(90.0f);
        VERIFY_NEAR(translationOf(*f.zoom), QPointF(std::hypot(0.004, 1.0), 0), 1e-6);
        VERIFY_NEAR(viewCentre(*f.zoom), centre, 2e-3); // the region stays, up to the rounding

        f.zoom->reset(); // keeps the rotation
        VERIFY_NEAR(translationOf(*f.zoom), QPointF(1, 0), 1e-6);
        f.zoom->zoomIn(); // level 0 again
        QCOMPARE(f.zoom->getCurrentScale().y, 4.5f);
    }

    void magnifierAndOutline()
    {
        // One window, so that the two GL contexts share the engine's objects; the
        // fixture goes first and takes the display and magnifier out of it.
        QWidget window;
        Fixture f;
        QVERIFY(f.showSideBySide(window));

        // Settings reach both contexts; here the magnifier draws first after the change.
        f.display->setPalette(FanDisplayOptions::RedYellow);
        QVERIFY(showsPicture(f.zoom, f.display.get()));
        f.display->setPalette(FanDisplayOptions::Greyscale);
        const QImage magnified = f.zoom->grabFramebuffer();
        const QImage greyFan = f.display->grabFramebuffer();
        const QColor grey = magnified.pixelColor(pixelOf(*f.zoom, magnified, probePoint));
        QCOMPARE(grey.red(), grey.blue());
        NEREON_VERIFY_PIXEL(greyFan, pixelOf(*f.display, greyFan, probePoint), grey, 4);
        f.display->setPalette(FanDisplayOptions::Multicolour); // the outline is told apart from its colours

        // Apex at the bottom centre; the bottom corners lie 90 degrees off the centre line.
        NEREON_VERIFY_PIXEL(f.zoom->grabFramebuffer(), QPoint(3, 196), QColor(77, 77, 77), 3);

        // On the fan display the region, fan x -0.25 to 0.25 and y 0 to 0.5, is outlined in green,
        // or in the colour an application chose (magenta here: none of the palette's colours).
        const auto outlined = [&](const std::function<bool(const QColor&)>& isOutline, const char* name) {
            const QImage fan = f.display->grabFramebuffer();
            for (const QPointF& edge : { QPointF(-0.25, 0.25), QPointF(0, 0.5) }) {
                const QPointF clip = f.display->getCurrentProjection().map(edge);
                bool found = false;
                for (int i = 0; i < 9; ++i)
                    found = found || isOutline(fan.pixelColor(
                        QPoint((clip.x() + 1) * 150 + i % 3 - 1, (1 - clip.y()) * 100 + i / 3 - 1)));
                if (!found)
                    return TestSupport::saveFailurePicture(fan, QString::fromLatin1(name));
            }
            return QString();
        };
        const auto isGreen = [](const QColor& c) { return c.green() - c.red() > 80 && c.blue() < 60; };
        const auto isMagenta = [](const QColor& c) { return c.red() - c.green() > 80 && c.blue() - c.green() > 80; };
        QString failure = outlined(isGreen, "outline"); // not the fan's yellow-green
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
        FanDisplayExtensions::setMagnifierOutlineColour(f.display.get(), QColor(255, 0, 255));
        failure = outlined(isMagenta, "outline-coloured");
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
        FanDisplayExtensions::setMagnifierOutlineColour(f.display.get(), QColor());
        QCOMPARE(FanDisplayExtensions::getMagnifierOutlineColour(f.display.get()), QColor(0, 128, 0));
        failure = outlined(isGreen, "outline-restored");
        QVERIFY2(failure.isEmpty(), qPrintable(failure));

        // Dragging the outline moves the region by the pointer's travel; returning restores it.
        ZoomDisplayOutline outline(f.zoom);
        QSignalSpy repaints(f.display.get(), &QOpenGLWidget::frameSwapped);
        outline.beginDrag(QPointF(0.1, 0.2));
        outline.updateDrag(QPointF(0.4, -0.1));
        outline.updateDrag(QPointF(0.2, 0.2));
        // Pointer moved (0.1, 0) from the start in the display's scaled units; magnifier scale 4.
        VERIFY_NEAR(translationOf(*f.zoom), QPointF(-0.4, -1), 1e-6);
        QTRY_VERIFY(!repaints.isEmpty());
        outline.updateDrag(QPointF(0.1, 0.2));
        outline.endDrag();
        outline.updateDrag(QPointF(0.5, 0.5));
        VERIFY_NEAR(translationOf(*f.zoom), QPointF(0, -1), 1e-6);

        // The first resize (from no size) kept the scale; later ones keep a fan unit's pixel size.
        QCOMPARE(f.zoom->getCurrentScale().x, 4.0f);
        f.zoom->resize(400, 200);
        QCOMPARE(f.zoom->getCurrentScale().x, 2.0f);
        QCOMPARE(f.zoom->getCurrentScale().y, 4.0f);
    }

    void outlineBandAroundTurnedRegion()
    {
        Fixture f;
        ZoomDisplayOutline outline(f.zoom);
        f.zoom->setRotation(90.0f);
        QMatrix4x4 display; // a fitted, turned fan display; the magnifier turns with it
        display.translate(0.1f, -0.6f);
        display.scale(0.9f, 1.35f);
        display.rotate(90.0f, 0.0f, 0.0f, 1.0f);
        const auto within = [&](QPointF clip) { // clip: the magnifier's clip coordinates
            return outline.pointIsWithinBounds(
                display.map(f.zoom->getCurrentProjection().inverted().map(clip)), display);
        };
        QVERIFY(within(QPointF(-1, 0))); // the drawn edge
        QVERIFY(!within(QPointF(0, 0)));
        QVERIFY(!within(QPointF(-1.0501, 0.3))); // just beyond the band, 5% either side of the edge
        QVERIFY(within(QPointF(0.2, 0.9501)));
    }

    void zoomableAnimatesAndKeepsCentre()
    {
        Fixture plain;
        auto zoomable = new ZoomableFanDisplay;
        Fixture f(zoomable);
        QVERIFY(plain.show());
        QVERIFY(f.show());
        const float fitted = zoomable->getCurrentScale().x;
        QElapsedTimer clock;
        clock.start();
        zoomable->setZoomLevel(2.0f, true);
        QCOMPARE(zoomable->getCurrentScale().x, fitted); // nothing moves before the first tick

        std::vector<double> levels { 1.0 }; // every level the view passes through
        while (clock.elapsed() < 1000 && levels.size() < 11) {
            QTest::qWait(2);
            const double level = double(zoomable->getCurrentScale().x) / fitted;
            if (std::abs(level - levels.back()) > 0.02)
                levels.push_back(level);
        }
        QCOMPARE(int(levels.size()), 11);
        for (std::size_t tick = 0; tick < levels.size(); ++tick)
            QVERIFY(std::abs(levels[tick] - (1.0 + tick / 10.0)) < 1e-4);

        // Exactly at the end level, and the timer has stopped: no more repaints.
        QVERIFY(settles(zoomable));
        QCOMPARE(zoomable->getCurrentScale().x, 2.0f * fitted);

        // An instant change ends a running animation for good.
        zoomable->setZoomLevel(1.0f, true);
        QTRY_VERIFY(zoomable->getCurrentScale().x < 2.0f * fitted);
        zoomable->setZoomLevel(3.0f, false);
        QVERIFY(settles(zoomable));
        QVERIFY(qFuzzyCompare(zoomable->getCurrentScale().x, 3.0f * fitted));

        // Off-centre, so that keeping the centre is not free.
        zoomable->translate(0.2f, -0.3f, 0.0f, false);
        const QPointF centre = viewCentre(*zoomable);
        zoomable->setZoomLevel(2.0f, false);
        QCOMPARE(zoomable->getCurrentScale().x, 2.0f * fitted);
        VERIFY_NEAR(zoomable->getCurrentProjection().map(centre), QPointF(), 1e-5);

        // At level 2 a resize fits the fan as the plain display does, then doubles it.
        zoomable->resize(400, 300);
        plain.display->resize(400, 300);
        QTest::qWait(60);
        QCOMPARE(zoomable->getCurrentScale().x, 2.0f * plain.display->getCurrentScale().x);
        QCOMPARE(zoomable->getCurrentScale().y, 2.0f * plain.display->getCurrentScale().y);
        VERIFY_NEAR(viewCentre(*zoomable), viewCentre(*plain.display), 1e-5);
    }

    void magnifierInAnyPlacementOrder_data()
    {
        QTest::addColumn<int>("order");
        QTest::newRow("magnifier first in a layout") << 0;
        QTest::newRow("magnifier shown before its display") << 1;
        QTest::newRow("dock floated and docked again") << 2;
        QTest::newRow("display moved to another window") << 3;
    }

    void magnifierInAnyPlacementOrder()
    {
        QFETCH(int, order);
        QWidget window;
        QWidget otherWindow;
        QMainWindow mainWindow;
        Fixture f;
        FanDisplay* display = f.display.get();
        ZoomDisplay* zoom = f.zoom;

        switch (order) {
        case 0: {
            auto* layout = new QHBoxLayout(&window);
            layout->addWidget(zoom);
            layout->addWidget(display);
            window.resize(500, 200);
            window.show();
            QVERIFY(exposed(&window));
            break;
        }
        case 1:
            zoom->resize(200, 200);
            zoom->show();
            QVERIFY(exposed(zoom));
            QVERIFY(showsBackground(zoom));
            QVERIFY(f.show());
            break;
        case 2: {
            mainWindow.setCentralWidget(display);
            auto* dock = new QDockWidget(&mainWindow);
            dock->setWidget(zoom);
            mainWindow.addDockWidget(Qt::LeftDockWidgetArea, dock);
            mainWindow.resize(500, 250);
            mainWindow.show();
            QVERIFY(exposed(&mainWindow));
            QTRY_VERIFY(showsPicture(zoom, display));
            dock->setFloating(true);
            QVERIFY(exposed(dock));
            QTRY_VERIFY(showsPicture(zoom, display));
            dock->setFloating(false);
            QVERIFY(exposed(&mainWindow));
            break;
        }
        case 3: {
            QVERIFY(f.showSideBySide(window));
            QTRY_VERIFY(showsPicture(zoom, display));
            // A new window gives the display a new GL context and initialises it again.
            display->setParent(&otherWindow);
            display->setGeometry(0, 0, 300, 200);
            QVERIFY(f.show(&otherWindow));
            display->show();
            QVERIFY(exposed(&otherWindow));
            break;
        }
        }
        QTRY_VERIFY(showsPicture(zoom, display));
    }

    void magnifierDeletedDuringOutlineDrag()
    {
        QWidget window;
        Fixture f;
        QVERIFY(f.showSideBySide(window));

        // Press on the outline's left edge, then the application deletes the magnifier.
        const QImage fan = f.display->grabFramebuffer();
        const QPoint edge = pixelOf(*f.display, fan, QPointF(-0.25, 0.25));
        QTest::mousePress(f.display.get(), Qt::LeftButton, {}, edge);
        QCOMPARE(f.display->cursor().shape(), Qt::ClosedHandCursor);
        delete f.zoom;
        QCOMPARE(f.display->getZoomDisplay(), nullptr);

        // The drag has ended: the move only reports the position, the release changes nothing.
        QSignalSpy positions(f.display.get(), &FanDisplay::newMousePosition);
        const QPoint moved = edge + QPoint(20, 0);
        QMouseEvent move(
            QEvent::MouseMove, moved, f.display->mapToGlobal(moved), Qt::NoButton, Qt::LeftButton, {});
        QCoreApplication::sendEvent(f.display.get(), &move);
        QCOMPARE(positions.count(), 1);
        QVERIFY(f.display->cursor().shape() != Qt::ClosedHandCursor);
        QTest::mouseRelease(f.display.get(), Qt::LeftButton, {}, edge + QPoint(20, 0));
        f.display->newImageReceived(TestSupport::uniformFrame(64, 100, 30.0, 200));
        QVERIFY(!f.display->grabFramebuffer().isNull());
    }

    void magnifierOutlivingItsDisplay()
    {
        // The application placed the magnifier in a window that it destroys after the display.
        QWidget window;
        auto* display = new FanDisplay;
        ZoomDisplay* zoom = display->getZoomDisplay();
        zoom->setParent(&window);
        zoom->setGeometry(0, 0, 200, 200);
        display->newImageReceived(TestSupport::uniformFrame(64, 100, 50.0, 160));
        delete display;

        zoom->zoomIn();
        zoom->pan(0.1f, 0.0f, false);
        zoom->reset();
        window.resize(200, 200);
        window.show();
        QVERIFY(exposed(&window));
        QVERIFY(showsBackground(zoom));
    }

    void zoomLevelsThatAreNoNumbersAreIgnored()
    {
        auto zoomable = new ZoomableFanDisplay;
        Fixture f(zoomable);
        QVERIFY(f.show());
        const auto fitted = zoomable->getCurrentScale();
        zoomable->setZoomLevel(2.0f, false);
        QVERIFY(settles(zoomable));
        for (const float level : { std::nanf(""), INFINITY, -INFINITY }) {
            for (const bool animate : { false, true })
                zoomable->setZoomLevel(level, animate);
        }
        QCOMPARE(zoomable->getZoomLevel(), 2.0f);
        QVERIFY(settles(zoomable));
        QCOMPARE(zoomable->getCurrentScale().x, 2.0f * fitted.x);

        // Zero shrinks the fan to a point; a negative level turns the view about its centre.
        zoomable->setZoomLevel(0.0f, false);
        QVERIFY(settles(zoomable));
        QCOMPARE(zoomable->getZoomLevel(), 0.0f);
        QCOMPARE(zoomable->getCurrentScale().y, 0.0f);
        zoomable->setZoomLevel(-1.0f, false);
        QVERIFY(settles(zoomable));
        QCOMPARE(zoomable->getCurrentScale().y, -fitted.y);
        zoomable->setZoomLevel(0.0f, false);
        zoomable->setZoomLevel(3.0f, true);
        QVERIFY(settles(zoomable));
        QVERIFY(qFuzzyCompare(zoomable->getCurrentScale().y, 3.0f * fitted.y));
        const QImage picture = zoomable->grabFramebuffer();
        QVERIFY(!TestSupport::pixelMatches(
            picture, pixelOf(*zoomable, picture, QPointF(0.1, 0.5)), QColor(76, 76, 76), 24));
    }

    void magnifierThroughEmptySize_data()
    {
        QTest::addColumn<QSize>("via");
        QTest::newRow("0x0") << QSize(0, 0);
        QTest::newRow("240x0") << QSize(240, 0);
        QTest::newRow("0x240") << QSize(0, 240);
        QTest::newRow("1x5000") << QSize(1, 5000);
    }

    void magnifierThroughEmptySize()
    {
        QFETCH(QSize, via);
        QWidget window;
        Fixture f;
        QVERIFY(f.showSideBySide(window, 240));
        f.zoom->zoomIn();
        const auto before = f.zoom->getCurrentScale();

        f.zoom->resize(via);
        QTest::qWait(20);
        f.zoom->resize(240, 240);
        QVERIFY(qFuzzyCompare(f.zoom->getCurrentScale().x, before.x));
        QVERIFY(qFuzzyCompare(f.zoom->getCurrentScale().y, before.y));
        QTRY_VERIFY(showsPicture(f.zoom, f.display.get()));
    }
};

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
