#include "FanDisplay.h"
#include "GlTestSupport.h"
#include "TestUnits.h"
#include "ZoomDisplay.h"
#include "gui/OpenGLWidget.h"
#include "gui/OpenGLWidgetPainter.h"
#include "measuring/CircleAreaFromCentreMeasure.h"
#include "measuring/RectangleAreaMeasure.h"
#include "measuring/StraightLineMeasure.h"

#include <QApplication>
#include <QtTest>

#include <cmath>
#include <locale>
#include <memory>

using namespace Halcyra::Nereon::Visualisation;

namespace Halcyra::Nereon::Visualisation {
class MeasuringToolInspector
{
public:
    template <typename Visit> static auto visit(const MeasuringToolBase& tool, Visit visit)
    {
        if (auto line = dynamic_cast<const StraightLineMeasure*>(&tool))
            return visit(line->distance, line->getLabel());
        if (auto rectangle = dynamic_cast<const RectangleAreaMeasure*>(&tool))
            return visit(rectangle->area, rectangle->getLabel());
        auto& circle = dynamic_cast<const CircleAreaFromCentreMeasure&>(tool);
        return visit(circle.area, circle.getLabel());
    }
    static float result(const MeasuringToolBase& t)
    {
        return visit(t, [](float r, auto&&) { return r; });
    }
    static QString label(const MeasuringToolBase& t)
    {
        return visit(t, [](float, const std::string& l) { return QString::fromStdString(l); });
    }
    static float radius(const MeasuringToolBase& t)
    {
        return dynamic_cast<const CircleAreaFromCentreMeasure&>(t).radius;
    }
};
} // namespace Halcyra::Nereon::Visualisation

namespace {

using Inspector = MeasuringToolInspector;
enum Kind
{
    Line,
    Rectangle,
    Circle
};

std::unique_ptr<MeasuringToolBase> makeTool(int kind)
{
    if (kind == Line)
        return std::make_unique<StraightLineMeasure>();
    if (kind == Rectangle)
        return std::make_unique<RectangleAreaMeasure>();
    return std::make_unique<CircleAreaFromCentreMeasure>();
}

/// A bare GL widget showing only a tool's drawing on black.
class ToolCanvas : public Halcyra::GUI::Widgets::Bases::OpenGLWidget
{
public:
    MeasuringToolBase* tool = nullptr;

protected:
    void initialise() override { glClearColor(0.0f, 0.0f, 0.0f, 1.0f); }
    void paintGL() override
    {
        glClear(GL_COLOR_BUFFER_BIT);
        painter().setFont(painter().addFont(QFont(), Qt::white));
        tool->displayMeasurement(painter());
    }
};

/// Whether a pixel next to (x, y) is the tools' red; line edges are antialiased.
bool redNear(const QImage& image, QPoint at)
{
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx)
            if (TestSupport::pixelMatches(image, at + QPoint(dx, dy), QColor(255, 0, 0), 30))
                return true;
    return false;
}

class CommaDecimal : public std::numpunct<char>
{
protected:
    char do_decimal_point() const override { return ','; }
};

} // namespace

class TestMeasuring : public QObject
{
    Q_OBJECT

    FanDisplay display;
    void measure(MeasuringToolBase& tool, QPointF start, QPointF end, double range = 10.0,
        float scaleX = 1.0f, float scaleY = 1.0f)
    {
        tool.startMeasuring(display, start);
        tool.takeMeasurement(end, range, scaleX, scaleY);
        tool.stopMeasuring(display);
    }

private slots:
    void cleanupTestCase() { delete display.getZoomDisplay(); }

    void stateMachine_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("line") << int(Line);
        QTest::newRow("rectangle") << int(Rectangle);
        QTest::newRow("circle") << int(Circle);
    }

    void stateMachine()
    {
        QFETCH(int, kind);
        const auto tool = makeTool(kind);
        QCOMPARE(tool->getState(), MeasuringToolBase::Idle);
        QVERIFY(!tool->hasMeasurement());

        measure(*tool, QPointF(-0.2, -0.2), QPointF(0.3, 0.4));
        QCOMPARE(tool->getState(), MeasuringToolBase::Finished);
        QCOMPARE(display.cursor().shape(), Qt::ArrowCursor);
        QVERIFY(tool->hasMeasurement());

        // A new press discards the old result through the tool's own reset.
        tool->startMeasuring(display, QPointF(0.1, 0.1));
        QCOMPARE(tool->getState(), MeasuringToolBase::Measuring);
        QCOMPARE(display.cursor().shape(), Qt::CrossCursor);
        QVERIFY(!tool->hasMeasurement());

        tool->takeMeasurement(QPointF(0.5, 0.6), 10.0, 1.0f, 1.0f);
        tool->reset();
        QCOMPARE(tool->getState(), MeasuringToolBase::Idle);
        QVERIFY(!tool->hasMeasurement());
        if (kind == Circle)
            QCOMPARE(Inspector::radius(*tool), 0.0f);

        // An x scale of 0 makes the aspect factor infinite and 0 × ∞ a NaN, which counts.
        measure(*tool, QPointF(0, 0), QPointF(0.25, 0.5), 10.0, 0.0f, 1.0f);
        QVERIFY(std::isnan(Inspector::result(*tool)));
        QVERIFY(tool->hasMeasurement());
    }

    void results_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QPointF>("start");
        QTest::addColumn<QPointF>("end");
        QTest::addColumn<float>("scaleX");
        QTest::addColumn<float>("scaleY");
        QTest::addColumn<double>("expected");
        QTest::addColumn<double>("expectedAtRange100"); // the same points after a range change

        const double pi = 3.14159265358979323846;
        auto row
            = [](const char* name, Kind kind, QPointF a, QPointF b, float sx, float sy, double value,
                  double at100) { QTest::newRow(name) << int(kind) << a << b << sx << sy << value << at100; };
        row("line", Line, { -0.5, 0 }, { 0.5, 0 }, 1, 1, 10, 100);
        row("line, x stretched", Line, { 0, 0 }, { 1, 0 }, 2, 1, 5, 50);
        row("line, y stretched", Line, { 0, 0 }, { 0, 1 }, 2, 2, 5, 50);
        row("line, no drag", Line, { 0.2, 0.2 }, { 0.2, 0.2 }, 1, 1, 0, 0);
        row("rectangle", Rectangle, { -0.5, -0.5 }, { 0.5, 0.5 }, 1, 1, 100, 10000);
        row("rectangle, x stretched", Rectangle, { 0, 0 }, { 1, 1 }, 2, 1, 50, 5000);
        row("rectangle, dragged back", Rectangle, { 1, 1 }, { 0, 0 }, 2, 1, 50, 5000);
        row("rectangle, flat", Rectangle, { -0.5, 0.2 }, { 0.5, 0.2 }, 1, 1, 0, 0);
        row("circle", Circle, { 0, 0 }, { 0, 0.5 }, 1, 1, pi * 25, pi * 2500);
        row("circle, x stretched", Circle, { 0, 0 }, { 0.5, 0 }, 2, 1, pi * 6.25, pi * 625);
    }

    void results()
    {
        QFETCH(int, kind);
        QFETCH(QPointF, start);
        QFETCH(QPointF, end);
        QFETCH(float, scaleX);
        QFETCH(float, scaleY);
        QFETCH(double, expected);
        QFETCH(double, expectedAtRange100);

        const auto tool = makeTool(kind);
        measure(*tool, start, end, 10.0, scaleX, scaleY);
        QCOMPARE(Inspector::result(*tool), float(expected));
        QCOMPARE(tool->hasMeasurement(), expected != 0.0);
        const float radius = kind == Circle ? Inspector::radius(*tool) : 0.0f;

        tool->updateMeasurement(100.0, scaleX, scaleY);
        QCOMPARE(Inspector::result(*tool), float(expectedAtRange100));
        QCOMPARE(tool->getState(), MeasuringToolBase::Finished);
        if (kind == Circle)
            QCOMPARE(Inspector::radius(*tool), radius); // the drawn circle stays
    }

    void labels_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QPointF>("end");
        QTest::addColumn<double>("unitFactor"); // 0: no unit set
        QTest::addColumn<QString>("symbol");
        QTest::addColumn<QString>("expected");
        const QString squared = QString::fromUtf8("m\u00b2");
        QTest::newRow("metres") << int(Line) << QPointF(0, 0.75) << 1.0 << "m"
                                << "Distance: 7.50m";
        QTest::newRow("feet") << int(Line) << QPointF(0, 0.75) << 1 / 0.3048 << "ft"
                              << "Distance: 24.61ft";
        QTest::newRow("no unit") << int(Line) << QPointF(0, 0.75) << 0.0 << ""
                                 << "Distance: 7.50m";
        QTest::newRow("no drag yet") << int(Line) << QPointF(0, 0) << 1.0 << "m"
                                     << "Distance: 0.00m";
        QTest::newRow("rectangle") << int(Rectangle) << QPointF(0.5, 0.5) << 1.0 << squared
                                   << "Area: 25.00" + squared;
        QTest::newRow("area, no unit") << int(Rectangle) << QPointF(0.5, 0.5) << 0.0 << ""
                                       << "Area: 25.00" + squared;
        QTest::newRow("circle") << int(Circle) << QPointF(0, 0.5) << 1.0 << squared
                                << "Area: 78.54" + squared;
    }

    void labels()
    {
        QFETCH(int, kind);
        QFETCH(QPointF, end);
        QFETCH(double, unitFactor);
        QFETCH(QString, symbol);
        QFETCH(QString, expected);

        const TestSupport::ScaledUnit unit(unitFactor, symbol.toStdString());
        const auto tool = makeTool(kind);
        if (unitFactor != 0.0)
            tool->setUnit(&unit);
        tool->startMeasuring(display, QPointF(0, 0));
        tool->takeMeasurement(end, 10.0, 1.0f, 1.0f);
        // A decimal comma in the global locale must not reach the label.
        const std::locale previous
            = std::locale::global(std::locale(std::locale::classic(), new CommaDecimal));
        const QString label = Inspector::label(*tool);
        std::locale::global(previous);
        QCOMPARE(label, expected);
    }

    void drawing_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QPointF>("start");
        QTest::addColumn<QPointF>("end");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QVector<QPoint>>("red");
        QTest::addColumn<QVector<QRect>>("text"); // each must hold label pixels
        QTest::addColumn<QRect>("empty");

        // Below the end point, centred on it, clear of the line.
        QTest::newRow("line") << int(Line) << QPointF(-0.5, -0.5) << QPointF(0.5, -0.5) << QSize(200, 200)
                              << QVector<QPoint> { { 55, 150 }, { 100, 150 }, { 145, 150 } }
                              << QVector<QRect> { { 110, 153, 35, 30 }, { 155, 153, 35, 30 } }
                              << QRect(0, 0, 200, 147);
        // Dragged from the lower right: the outline closes on all four sides.
        QTest::newRow("rectangle") << int(Rectangle) << QPointF(0.5, -0.5) << QPointF(-0.5, 0.5)
                                   << QSize(200, 200)
                                   << QVector<QPoint> { { 50, 70 }, { 150, 130 }, { 100, 50 }, { 100, 150 },
                                          { 140, 50 } }
                                   << QVector<QRect> { { 80, 92, 40, 16 } } << QRect(0, 0, 200, 46);
        // Circular on screen in a wide widget, through the end point; the label on the centre.
        QTest::newRow("circle") << int(Circle) << QPointF(0, 0) << QPointF(1.0 / 3.0, 0) << QSize(300, 200)
                                << QVector<QPoint> { { 200, 100 }, { 150, 50 }, { 100, 100 }, { 150, 150 } }
                                << QVector<QRect> { { 130, 92, 40, 16 } } << QRect(140, 60, 20, 20);
    }

    void drawing()
    {
        QFETCH(int, kind);
        QFETCH(QPointF, start);
        QFETCH(QPointF, end);
        QFETCH(QSize, size);
        QFETCH(QVector<QPoint>, red);
        QFETCH(QVector<QRect>, text);
        QFETCH(QRect, empty);

        const auto tool = makeTool(kind);
        // The display keeps scaleX × width = scaleY × height.
        measure(*tool, start, end, 10.0, float(size.height()) / size.width(), 1.0f);
        ToolCanvas canvas;
        canvas.tool = tool.get();
        canvas.resize(size);
        canvas.show();
        QVERIFY(QTest::qWaitForWindowExposed(&canvas));
        TestSupport::keepGlDriverLoaded();
        QTest::qWait(20); // let the window's first configure settle
        const QImage picture = canvas.grabFramebuffer();
        QStringList faults;
        for (const QPoint& at : red)
            if (!redNear(picture, at))
                faults << QStringLiteral("no red at %1,%2").arg(at.x()).arg(at.y());
        for (const QRect& box : text)
            if (TestSupport::countPixelsDiffering(picture, box, Qt::black) <= 20)
                faults << QStringLiteral("no label at %1,%2").arg(box.x()).arg(box.y());
        if (TestSupport::countPixelsDiffering(picture, empty, Qt::black) > 0)
            faults << QStringLiteral("drawing where nothing belongs");
        if (!faults.isEmpty())
            QFAIL(qPrintable(faults.join(QStringLiteral("; ")) + QStringLiteral(" (picture: ")
                + TestSupport::saveFailurePicture(picture, QStringLiteral("drawn")) + ')'));
    }
};

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QApplication app(argc, argv);
    TestMeasuring test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_measuring.moc"
