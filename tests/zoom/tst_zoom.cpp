#include "FanDisplay.h"
#include "GlTestSupport.h"
#include "TestFrames.h"
#include "TestUnits.h"
#include "ZoomDisplay.h"
#include "ZoomableFanDisplay.h"
#include "zoom/ZoomDisplayOutline.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QtTest>

#include <cmath>
#include <memory>
#include <vector>

using namespace Halcyra::Nereon::Visualisation;
using Halcyra::GUI::Widgets::Bases::OpenGLWidget;

namespace {

class PaintCounter : public QObject
{
public:
    explicit PaintCounter(QWidget& widget) { widget.installEventFilter(this); }
    int paints = 0;

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        paints += event->type() == QEvent::Paint;
        return false;
    }
};

void settle(int ms = 60)
{
    QTest::qWait(ms);
}

/// The fan point at the centre of a widget's view.
QPointF viewCentre(OpenGLWidget& widget)
{
    return widget.getCurrentProjection().inverted().map(QPointF());
}

QPointF translationOf(const OpenGLWidget& widget)
{
    return { widget.getCurrentTranslation().x, widget.getCurrentTranslation().y };
}

bool near(QPointF a, QPointF b, double tolerance)
{
    return std::abs(a.x() - b.x()) <= tolerance && std::abs(a.y() - b.y()) <= tolerance;
}

#define VERIFY_NEAR(actual, expected, tolerance)                                                             \
    QVERIFY2(near((actual), (expected), (tolerance)),                                                        \
        qPrintable(QStringLiteral(#actual " is (%1, %2)")                                                    \
                       .arg((actual).x(), 0, 'g', 9)                                                         \
                       .arg((actual).y(), 0, 'g', 9)))

/// A fan display showing one frame; it owns its magnifier here, which must go first.
struct Fixture
{
    explicit Fixture(FanDisplay* fanDisplay = new FanDisplay)
        : display(fanDisplay)
        , zoom(display->getZoomDisplay())
    {
        display->setDistanceUnit(&metres);
        display->newImageReceived(TestSupport::uniformFrame(64, 100, 50.0, 160));
    }
    ~Fixture() { delete zoom; }
    bool show(QWidget* window)
    {
        window->resize(300, 200);
        window->show();
        const bool exposed = QTest::qWaitForWindowExposed(window);
        TestSupport::keepGlDriverLoaded();
        settle();
        return exposed;
    }
    bool show() { return show(display.get()); }

    TestSupport::ScaledUnit metres = TestSupport::metres();
    std::unique_ptr<FanDisplay> display;
    ZoomDisplay* zoom;
};

} // namespace

class TestZoom : public QObject
{
    Q_OBJECT

private slots:
    void zoomStepsKeepCentre()
    {
        Fixture f;
        QVERIFY(f.show());
        PaintCounter counter(*f.display);
        QCOMPARE(f.zoom->getCurrentScale().x, 4.0f);
        QCOMPARE(translationOf(*f.zoom), QPointF(0, -1));
        f.zoom->pan(0.5f, -0.5f, true);
        f.zoom->pan(-0.25f, -0.25f, false);
        QCOMPARE(translationOf(*f.zoom), QPointF(0.25, -0.75));

        const float table[] = { 4.0f, 4.5f, 5.0f, 5.5f, 6.0f, 6.5f, 7.0f, 8.0f, 9.0f, 10.0f };
        // Up to the top, one step too far, down to the bottom, one step too far.
        const int path[] = { 1, 2, 3, 4, 5, 6, 7, 8, 9, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 0 };
        int index = 0;
        for (int next : path) {
            const QPointF centre = viewCentre(*f.zoom);
            const QPointF translation = translationOf(*f.zoom);
            settle(next == index ? 60 : 0);
            counter.paints = 0;
            next > index || next == 9 ? f.zoom->zoomIn() : f.zoom->zoomOut();
            QCOMPARE(f.zoom->getCurrentScale().x, table[next]);
            QCOMPARE(f.zoom->getCurrentScale().y, table[next]);
            if (next == index) { // at an end: nothing at all, not even a repaint
                QCOMPARE(translationOf(*f.zoom), translation);
                settle();
                QCOMPARE(counter.paints, 0);
            } else {
                VERIFY_NEAR(f.zoom->getCurrentProjection().map(centre), QPointF(), 1e-5);
                QTRY_VERIFY(counter.paints > 0);
            }
            index = next;
        }
    }

    void resetAndRotation_data()
    {
        QTest::addColumn<QPointF>("translation");
        QTest::addColumn<float>("from");
        QTest::addColumn<float>("to");
        QTest::addColumn<QPointF>("turned");
        QTest::addColumn<QPointF>("afterReset");
        QTest::newRow("quarter turn") << QPointF(0, -1) << 0.f << 90.f << QPointF(1, 0) << QPointF(1, 0);
        // The tiny x is rounded away from the direction but kept in the length.
        QTest::newRow("near an axis")
            << QPointF(0.004, -1) << 0.f << 90.f << QPointF(std::hypot(0.004, 1.0), 0) << QPointF(1, 0);
        QTest::newRow("same angle") << QPointF(0.004, -1) << 30.f << 30.f << QPointF(double(0.004f), -1)
                                    << QPointF(0.5, -std::sqrt(0.75));
        QTest::newRow("half turn back")
            << QPointF(0.25, 0.5) << 180.f << 0.f << QPointF(-0.25, -0.5) << QPointF(0, -1);
    }

    void resetAndRotation()
    {
        QFETCH(QPointF, translation);
        QFETCH(float, from);
        QFETCH(float, to);
        QFETCH(QPointF, turned);
        QFETCH(QPointF, afterReset);
        Fixture f;
        f.zoom->rotate(from, true);
        f.zoom->zoomIn();
        f.zoom->pan(float(translation.x()), float(translation.y()), true);
        const QPointF centre = viewCentre(*f.zoom);

        f.zoom->setRotation(to);
        QCOMPARE(f.zoom->getCurrentRotation(), to);
        if (from == to)
            QCOMPARE(translationOf(*f.zoom), turned); // exactly untouched
        VERIFY_NEAR(translationOf(*f.zoom), turned, 1e-6);
        VERIFY_NEAR(viewCentre(*f.zoom), centre, 2e-3); // the region stays, up to the rounding

        f.zoom->reset();
        QCOMPARE(f.zoom->getCurrentRotation(), to);
        QCOMPARE(f.zoom->getCurrentScale().x, 4.0f);
        VERIFY_NEAR(translationOf(*f.zoom), afterReset, 1e-6);
        f.zoom->zoomIn(); // level 0 again
        QCOMPARE(f.zoom->getCurrentScale().y, 4.5f);
    }

    void magnifierDrawsSharedFanWithOutline()
    {
        // One window, so that the two GL contexts share the engine's objects; the
        // fixture goes first and takes the display and magnifier out of it.
        QWidget window;
        Fixture f;
        f.display->setParent(&window);
        f.zoom->setParent(&window);
        f.display->setGeometry(0, 0, 300, 200);
        f.zoom->setGeometry(300, 0, 200, 200);
        QVERIFY(f.show(&window));

        // Apex at the bottom centre; the bottom corners lie 90 degrees off the centre line.
        const QImage magnified = f.zoom->grabFramebuffer();
        NEREON_VERIFY_PIXEL(magnified, QPoint(3, 196), QColor(77, 77, 77), 3);
        QVERIFY2(!TestSupport::pixelMatches(magnified, QPoint(100, 100), QColor(77, 77, 77), 10),
            qPrintable(TestSupport::saveFailurePicture(magnified, QStringLiteral("no-fan"))));
        f.zoom->setClearColour(Qt::blue);
        NEREON_VERIFY_PIXEL(f.zoom->grabFramebuffer(), QPoint(3, 196), QColor(Qt::blue), 3);

        // On the fan display the region, fan x -0.25 to 0.25 and y 0 to 0.5, is outlined in green.
        const QImage fan = f.display->grabFramebuffer();
        const QMatrix4x4& toClip = f.display->getCurrentProjection();
        for (const QPointF& edge :
            { QPointF(-0.25, 0.25), QPointF(0.25, 0.25), QPointF(0, 0.5), QPointF(0, 0) }) {
            const QPointF clip = toClip.map(edge);
            const QPoint pixel((clip.x() + 1) * 150, (1 - clip.y()) * 100);
            bool green = false;
            for (int i = 0; i < 9; ++i) {
                const QColor c = fan.pixelColor(pixel + QPoint(i % 3 - 1, i / 3 - 1));
                green = green || (c.green() - c.red() > 80 && c.blue() < 60); // not the fan's yellow-green
            }
            QVERIFY2(green, qPrintable(TestSupport::saveFailurePicture(fan, QStringLiteral("outline"))));
        }

        // The first resize (from no size) kept the scale; later ones keep a fan unit's pixel size.
        QCOMPARE(f.zoom->getCurrentScale().x, 4.0f);
        f.zoom->resize(400, 200);
        QCOMPARE(f.zoom->getCurrentScale().x, 2.0f);
        QCOMPARE(f.zoom->getCurrentScale().y, 4.0f);
    }

    void outlineBand_data()
    {
        QTest::addColumn<QPointF>("clip"); // in the magnifier's clip coordinates
        QTest::addColumn<bool>("inside");
        const double outer = double(1.05f), inner = double(0.95f);
        QTest::newRow("drawn edge") << QPointF(-1, 0) << true;
        QTest::newRow("drawn corner") << QPointF(1, 1) << true;
        QTest::newRow("centre") << QPointF(0, 0) << false;
        QTest::newRow("outer edge") << QPointF(-outer, 0.3) << true;
        QTest::newRow("beyond outer edge") << QPointF(-outer - 1e-4, 0.3) << false;
        QTest::newRow("inner edge") << QPointF(0.2, inner) << false;
        QTest::newRow("outside inner edge") << QPointF(0.2, inner + 1e-4) << true;
    }

    void outlineBand()
    {
        QFETCH(QPointF, clip);
        QFETCH(bool, inside);
        Fixture f;
        ZoomDisplayOutline outline(f.zoom);
        QCOMPARE(
            outline.pointIsWithinBounds(f.zoom->getCurrentProjection().inverted().map(clip), {}), inside);

        // A fitted, turned fan display; the magnifier turns with it.
        f.zoom->setRotation(90.0f);
        QMatrix4x4 display;
        display.translate(0.1f, -0.6f);
        display.scale(0.9f, 1.35f);
        display.rotate(90.0f, 0.0f, 0.0f, 1.0f);
        const QPointF point = display.map(f.zoom->getCurrentProjection().inverted().map(clip));
        QCOMPARE(outline.pointIsWithinBounds(point, display), inside);
    }

    void outlineDrag()
    {
        Fixture f;
        QVERIFY(f.show());
        ZoomDisplayOutline outline(f.zoom);
        PaintCounter counter(*f.display);
        outline.updateDrag(QPointF(0.3, 0.3)); // no drag begun
        settle();
        QCOMPARE(translationOf(*f.zoom), QPointF(0, -1));
        QCOMPARE(counter.paints, 0);

        const QPointF start(0.1, 0.2);
        outline.beginDrag(start);
        for (const QPointF& p : { QPointF(0.15, 0.2), QPointF(0.4, -0.1), QPointF(0.2, 0.2) })
            outline.updateDrag(p);
        // Pointer moved (0.1, 0) in the display's scaled units; magnifier scale 4.
        VERIFY_NEAR(translationOf(*f.zoom), QPointF(-0.4, -1), 1e-6);
        QTRY_VERIFY(counter.paints > 0);
        outline.updateDrag(start);
        VERIFY_NEAR(translationOf(*f.zoom), QPointF(0, -1), 1e-6);

        outline.endDrag();
        settle();
        counter.paints = 0;
        outline.updateDrag(QPointF(0.5, 0.5));
        settle();
        VERIFY_NEAR(translationOf(*f.zoom), QPointF(0, -1), 1e-6);
        QCOMPARE(counter.paints, 0);
    }

    void zoomableInstantAndResize()
    {
        Fixture plain;
        auto zoomable = new ZoomableFanDisplay;
        Fixture f(zoomable);
        QVERIFY(plain.show());
        QVERIFY(f.show());
        QCOMPARE(zoomable->getZoomLevel(), 1.0f);
        QCOMPARE(zoomable->getCurrentScale().x, plain.display->getCurrentScale().x);
        VERIFY_NEAR(translationOf(*zoomable), translationOf(*plain.display), 1e-6);

        zoomable->translate(0.2f, -0.3f, 0.0f, false); // off-centre, so keeping the centre is not free
        const float scaleX = zoomable->getCurrentScale().x;
        const QPointF centre = viewCentre(*zoomable);
        PaintCounter counter(*zoomable);
        zoomable->setZoomLevel(2.0f, false);
        QCOMPARE(zoomable->getCurrentScale().x, 2.0f * scaleX);
        VERIFY_NEAR(zoomable->getCurrentProjection().map(centre), QPointF(), 1e-5);
        QTRY_VERIFY(counter.paints > 0);

        zoomable->resize(400, 300);
        plain.display->resize(400, 300);
        settle();
        QCOMPARE(zoomable->getCurrentScale().x, 2.0f * plain.display->getCurrentScale().x);
        QCOMPARE(zoomable->getCurrentScale().y, 2.0f * plain.display->getCurrentScale().y);
        VERIFY_NEAR(viewCentre(*zoomable), viewCentre(*plain.display), 1e-5);
    }

    void animation_data()
    {
        QTest::addColumn<float>("from");
        QTest::addColumn<float>("to");
        QTest::addColumn<float>("interruptWith"); // 0: let it run
        QTest::newRow("in") << 1.0f << 2.0f << 0.0f;
        QTest::newRow("out") << 2.0f << 1.0f << 0.0f;
        QTest::newRow("to the same level") << 1.0f << 1.0f << 0.0f;
        QTest::newRow("interrupted") << 1.0f << 2.0f << 3.0f;
    }

    void animation()
    {
        QFETCH(float, from);
        QFETCH(float, to);
        QFETCH(float, interruptWith);
        auto zoomable = new ZoomableFanDisplay;
        Fixture f(zoomable);
        QVERIFY(f.show());
        const float fitted = zoomable->getCurrentScale().x;
        zoomable->setZoomLevel(from, false);
        settle();

        QElapsedTimer clock;
        clock.start();
        zoomable->setZoomLevel(to, true);
        QCOMPARE(zoomable->getZoomLevel(), to);
        QCOMPARE(zoomable->getCurrentScale().x, fitted * from); // nothing moves before the first tick

        std::vector<double> levels; // every level the view passes through
        double last = from;
        while (clock.elapsed() < 1000 && std::abs(last - to) > 1e-3) {
            QTest::qWait(2);
            const double level = double(zoomable->getCurrentScale().x) / fitted;
            if (std::abs(level - last) > 0.02)
                levels.push_back(last = level);
            if (interruptWith != 0.0f && levels.size() == 3)
                break;
        }
        float end = to;
        if (interruptWith != 0.0f) {
            zoomable->setZoomLevel(interruptWith, false);
            end = interruptWith;
        } else {
            QCOMPARE(int(levels.size()), from == to ? 0 : 10);
            for (std::size_t tick = 0; tick < levels.size(); ++tick)
                QVERIFY(std::abs(levels[tick] - (from + (to - from) * (tick + 1) / 10.0)) < 1e-4);
            QVERIFY2(levels.empty() || clock.elapsed() >= 250, qPrintable(QString::number(clock.elapsed())));
        }

        // Exactly at the end level, and the timer has stopped: no more repaints.
        settle(100);
        QCOMPARE(zoomable->getCurrentScale().x, fitted * end);
        PaintCounter counter(*zoomable);
        settle(200);
        QCOMPARE(counter.paints, 0);
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
