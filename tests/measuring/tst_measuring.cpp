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
#include <limits>
#include <locale>
#include <memory>

using namespace Halcyra::Nereon::Visualisation;
using Halcyra::GUI::Widgets::Bases::OpenGLWidget;

namespace Halcyra::Nereon::Visualisation {

class MeasuringToolInspector
{
public:
    static float result(const MeasuringToolBase& tool)
    {
        if (auto line = dynamic_cast<const StraightLineMeasure*>(&tool))
            return line->distance;
        if (auto rectangle = dynamic_cast<const RectangleAreaMeasure*>(&tool))
            return rectangle->area;
        return dynamic_cast<const CircleAreaFromCentreMeasure&>(tool).area;
    }
    static float radius(const MeasuringToolBase& tool)
    {
        return dynamic_cast<const CircleAreaFromCentreMeasure&>(tool).radius;
    }
    static std::string label(const MeasuringToolBase& tool)
    {
        if (auto line = dynamic_cast<const StraightLineMeasure*>(&tool))
            return line->getLabel();
        if (auto rectangle = dynamic_cast<const RectangleAreaMeasure*>(&tool))
            return rectangle->getLabel();
        return dynamic_cast<const CircleAreaFromCentreMeasure&>(tool).getLabel();
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
    switch (kind) {
    case Line:
        return std::make_unique<StraightLineMeasure>();
    case Rectangle:
        return std::make_unique<RectangleAreaMeasure>();
    default:
        return std::make_unique<CircleAreaFromCentreMeasure>();
    }
}

/// Drives a tool through press, drag to end and release, as the display does.
void measure(MeasuringToolBase& tool, FanDisplay& display, QPointF start, QPointF end, double range,
    float scaleX, float scaleY)
{
    tool.startMeasuring(display, start);
    tool.takeMeasurement(end, range, scaleX, scaleY);
    tool.stopMeasuring(display);
}

/// A bare GL widget whose picture is only a tool's drawing on black, in clip coordinates.
class ToolCanvas : public OpenGLWidget
{
public:
    MeasuringToolBase* tool = nullptr;

protected:
    void initialise() override { glClearColor(0.0f, 0.0f, 0.0f, 1.0f); }
    void paintGL() override
    {
        glClear(GL_COLOR_BUFFER_BIT);
        painter().setFont(painter().addFont(QFont(), Qt::white));
        if (tool)
            tool->displayMeasurement(painter());
    }
};

/// Whether a pixel near (x, y) is the tools' red; lines are antialiased at their edges.
bool redNear(const QImage& image, int x, int y)
{
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx)
            if (TestSupport::pixelMatches(image, QPoint(x + dx, y + dy), QColor(255, 0, 0), 30))
                return true;
    return false;
}

/// A numpunct that writes a decimal comma, as many operators' locales do.
class CommaDecimal : public std::numpunct<char>
{
protected:
    char do_decimal_point() const override { return ','; }
};

} // namespace

class TestMeasuring : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void stateMachine_data();
    void stateMachine();
    void results_data();
    void results();
    void rangeChangeRescales_data();
    void rangeChangeRescales();
    void notANumberCountsAsMeasurement_data();
    void notANumberCountsAsMeasurement();
    void labels_data();
    void labels();
    void labelIgnoresGlobalLocale();

    void drawsLineWithLabelBelowEnd();
    void drawsRectangleOutline();
    void drawsCircleThroughEndPoint_data();
    void drawsCircleThroughEndPoint();

private:
    QImage paintTool(MeasuringToolBase& tool, QSize size);

    std::unique_ptr<FanDisplay> display;
    std::unique_ptr<ToolCanvas> canvas;
};

void TestMeasuring::initTestCase()
{
    display = std::make_unique<FanDisplay>();
    canvas = std::make_unique<ToolCanvas>();
}

void TestMeasuring::cleanupTestCase()
{
    canvas.reset();
    delete display->getZoomDisplay();
    display.reset();
}

QImage TestMeasuring::paintTool(MeasuringToolBase& tool, QSize size)
{
    canvas->tool = &tool;
    canvas->resize(size);
    if (!canvas->isVisible()) {
        canvas->show();
        if (!QTest::qWaitForWindowExposed(canvas.get()))
            return {};
        TestSupport::keepGlDriverLoaded();
    }
    QImage picture = canvas->grabFramebuffer();
    canvas->tool = nullptr;
    return picture;
}

void TestMeasuring::stateMachine_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("straight line") << int(Line);
    QTest::newRow("rectangle") << int(Rectangle);
    QTest::newRow("circle") << int(Circle);
}

void TestMeasuring::stateMachine()
{
    QFETCH(int, kind);
    const auto tool = makeTool(kind);
    QCOMPARE(tool->getState(), MeasuringToolBase::Idle);
    QVERIFY(!tool->hasMeasurement());

    tool->startMeasuring(*display, QPointF(-0.2, -0.2));
    QCOMPARE(tool->getState(), MeasuringToolBase::Measuring);
    QCOMPARE(display->cursor().shape(), Qt::CrossCursor);
    QVERIFY2(!tool->hasMeasurement(), "a press alone measures nothing");

    tool->takeMeasurement(QPointF(0.3, 0.4), 10.0, 1.0f, 1.0f);
    QCOMPARE(tool->getState(), MeasuringToolBase::Measuring);
    QVERIFY(tool->hasMeasurement());

    tool->stopMeasuring(*display);
    QCOMPARE(tool->getState(), MeasuringToolBase::Finished);
    QCOMPARE(display->cursor().shape(), Qt::ArrowCursor);
    QVERIFY(tool->hasMeasurement());

    // A new press discards the finished result through the tool's own reset.
    tool->startMeasuring(*display, QPointF(0.1, 0.1));
    QCOMPARE(tool->getState(), MeasuringToolBase::Measuring);
    QVERIFY(!tool->hasMeasurement());
    QCOMPARE(Inspector::result(*tool), 0.0f);

    tool->takeMeasurement(QPointF(0.5, 0.6), 10.0, 1.0f, 1.0f);
    tool->reset();
    QCOMPARE(tool->getState(), MeasuringToolBase::Idle);
    QVERIFY(!tool->hasMeasurement());
    QCOMPARE(Inspector::result(*tool), 0.0f);
    if (kind == Circle)
        QCOMPARE(Inspector::radius(*tool), 0.0f);

    // Releasing without a drag leaves a zero result, which the display discards.
    measure(*tool, *display, QPointF(0.2, 0.2), QPointF(0.2, 0.2), 10.0, 1.0f, 1.0f);
    QVERIFY(!tool->hasMeasurement());
}

void TestMeasuring::results_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QPointF>("start");
    QTest::addColumn<QPointF>("end");
    QTest::addColumn<float>("scaleX");
    QTest::addColumn<float>("scaleY");
    QTest::addColumn<double>("expected");

    const double pi = 3.14159265358979323846;
    QTest::newRow("line, horizontal, square scale")
        << int(Line) << QPointF(-0.5, 0) << QPointF(0.5, 0) << 1.0f << 1.0f << 10.0;
    QTest::newRow("line, horizontal, wide scale")
        << int(Line) << QPointF(0, 0) << QPointF(1, 0) << 2.0f << 1.0f << 5.0;
    QTest::newRow("line, vertical, tall scale")
        << int(Line) << QPointF(0, 0) << QPointF(0, 1) << 2.0f << 2.0f << 5.0;
    QTest::newRow("line, diagonal") << int(Line) << QPointF(0, 0) << QPointF(0.3, 0.4) << 1.0f << 1.0f << 5.0;
    QTest::newRow("rectangle, square scale")
        << int(Rectangle) << QPointF(-0.5, -0.5) << QPointF(0.5, 0.5) << 1.0f << 1.0f << 100.0;
    QTest::newRow("rectangle, wide scale")
        << int(Rectangle) << QPointF(0, 0) << QPointF(1, 1) << 2.0f << 1.0f << 50.0;
    QTest::newRow("rectangle, dragged backwards")
        << int(Rectangle) << QPointF(1, 1) << QPointF(0, 0) << 2.0f << 1.0f << 50.0;
    QTest::newRow("rectangle, flat") << int(Rectangle) << QPointF(-0.5, 0.2) << QPointF(0.5, 0.2) << 1.0f
                                     << 1.0f << 0.0;
    QTest::newRow("rectangle, thin") << int(Rectangle) << QPointF(0.2, -0.5) << QPointF(0.2, 0.5) << 1.0f
                                     << 1.0f << 0.0;
    QTest::newRow("circle, square scale")
        << int(Circle) << QPointF(0, 0) << QPointF(0, 0.5) << 1.0f << 1.0f << pi * 25.0;
    QTest::newRow("circle, wide scale")
        << int(Circle) << QPointF(0, 0) << QPointF(0.5, 0) << 2.0f << 1.0f << pi * 2.5 * 2.5;
}

void TestMeasuring::results()
{
    QFETCH(int, kind);
    QFETCH(QPointF, start);
    QFETCH(QPointF, end);
    QFETCH(float, scaleX);
    QFETCH(float, scaleY);
    QFETCH(double, expected);

    const auto tool = makeTool(kind);
    measure(*tool, *display, start, end, 10.0, scaleX, scaleY);
    QCOMPARE(double(Inspector::result(*tool)), double(float(expected)));
    QCOMPARE(tool->hasMeasurement(), expected != 0.0);
}

void TestMeasuring::rangeChangeRescales_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<double>("factor"); // result ratio for a range ten times as long
    QTest::newRow("straight line") << int(Line) << 10.0;
    QTest::newRow("rectangle") << int(Rectangle) << 100.0;
    QTest::newRow("circle") << int(Circle) << 100.0;
}

void TestMeasuring::rangeChangeRescales()
{
    QFETCH(int, kind);
    QFETCH(double, factor);
    const auto tool = makeTool(kind);
    measure(*tool, *display, QPointF(-0.3, -0.2), QPointF(0.4, 0.3), 5.0, 1.5f, 1.0f);
    const float before = Inspector::result(*tool);
    const float radiusBefore = kind == Circle ? Inspector::radius(*tool) : 0.0f;

    tool->updateMeasurement(50.0, 1.5f, 1.0f);
    // Single-precision results: compare to a relative tolerance.
    const double after = double(Inspector::result(*tool));
    QVERIFY2(std::abs(after / (double(before) * factor) - 1.0) < 1e-6,
        qPrintable(QStringLiteral("%1 then %2").arg(double(before)).arg(after)));
    QCOMPARE(tool->getState(), MeasuringToolBase::Finished);
    if (kind == Circle)
        QCOMPARE(Inspector::radius(*tool), radiusBefore);
}

void TestMeasuring::notANumberCountsAsMeasurement_data()
{
    stateMachine_data();
}

void TestMeasuring::notANumberCountsAsMeasurement()
{
    QFETCH(int, kind);
    const auto tool = makeTool(kind);
    // A zero x scale makes the aspect factor infinite and 0 × ∞ a NaN.
    measure(*tool, *display, QPointF(0, 0), QPointF(0.25, 0.5), 10.0, 0.0f, 1.0f);
    QVERIFY(std::isnan(Inspector::result(*tool)));
    QVERIFY(tool->hasMeasurement());
}

void TestMeasuring::labels_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QPointF>("end");
    QTest::addColumn<QString>("unit"); // "", "m", "ft", "m2"
    QTest::addColumn<QString>("expected");

    QTest::newRow("distance in metres")
        << int(Line) << QPointF(0, 0.75) << QStringLiteral("m") << QStringLiteral("Distance: 7.50m");
    QTest::newRow("distance in feet")
        << int(Line) << QPointF(0, 0.75) << QStringLiteral("ft") << QStringLiteral("Distance: 24.61ft");
    QTest::newRow("distance without unit")
        << int(Line) << QPointF(0, 0.75) << QString() << QStringLiteral("Distance: 7.50m");
    QTest::newRow("zero distance right after the press")
        << int(Line) << QPointF(0, 0) << QStringLiteral("m") << QStringLiteral("Distance: 0.00m");
    QTest::newRow("rectangle area") << int(Rectangle) << QPointF(0.5, 0.5) << QStringLiteral("m2")
                                    << QString::fromUtf8("Area: 25.00m\u00b2");
    QTest::newRow("rectangle area without unit")
        << int(Rectangle) << QPointF(0.5, 0.5) << QString() << QString::fromUtf8("Area: 25.00m\u00b2");
    QTest::newRow("circle area") << int(Circle) << QPointF(0, 0.5) << QStringLiteral("m2")
                                 << QString::fromUtf8("Area: 78.54m\u00b2");
}

void TestMeasuring::labels()
{
    QFETCH(int, kind);
    QFETCH(QPointF, end);
    QFETCH(QString, unit);
    QFETCH(QString, expected);

    const TestSupport::ScaledUnit metres = TestSupport::metres();
    const TestSupport::ScaledUnit feet = TestSupport::feet();
    const TestSupport::ScaledUnit squareMetres = TestSupport::squareMetres();
    const auto tool = makeTool(kind);
    if (unit == QLatin1String("m"))
        tool->setUnit(&metres);
    else if (unit == QLatin1String("ft"))
        tool->setUnit(&feet);
    else if (unit == QLatin1String("m2"))
        tool->setUnit(&squareMetres);

    tool->startMeasuring(*display, QPointF(0, 0));
    if (end != QPointF(0, 0))
        tool->takeMeasurement(end, 10.0, 1.0f, 1.0f);
    QCOMPARE(QString::fromStdString(Inspector::label(*tool)), expected);
}

void TestMeasuring::labelIgnoresGlobalLocale()
{
    const std::locale previous = std::locale::global(std::locale(std::locale::classic(), new CommaDecimal));
    StraightLineMeasure tool;
    const TestSupport::ScaledUnit metres = TestSupport::metres();
    tool.setUnit(&metres);
    measure(tool, *display, QPointF(0, 0), QPointF(0, 0.75), 10.0, 1.0f, 1.0f);
    const std::string label = Inspector::label(tool);
    std::locale::global(previous);
    QCOMPARE(QString::fromStdString(label), QStringLiteral("Distance: 7.50m"));
}

void TestMeasuring::drawsLineWithLabelBelowEnd()
{
    StraightLineMeasure tool;
    // (-0.5, -0.5) to (0.5, -0.5) in a 200 × 200 widget: pixels (50, 150) to (150, 150).
    measure(tool, *display, QPointF(-0.5, -0.5), QPointF(0.5, -0.5), 10.0, 1.0f, 1.0f);
    const QImage picture = paintTool(tool, QSize(200, 200));
    QVERIFY(!picture.isNull());

    for (int x : { 55, 100, 145 }) {
        if (!redNear(picture, x, 150))
            QFAIL(qPrintable(TestSupport::saveFailurePicture(picture, QStringLiteral("line"))));
    }
    // The label hangs below the end point, centred on it: nothing reaches above the
    // line, and the text extends to both sides of x = 150.
    QCOMPARE(TestSupport::countPixelsDiffering(picture, QRect(60, 100, 140, 47), Qt::black), 0);
    QVERIFY(TestSupport::countPixelsDiffering(picture, QRect(110, 153, 35, 30), Qt::black) > 20);
    QVERIFY(TestSupport::countPixelsDiffering(picture, QRect(155, 153, 35, 30), Qt::black) > 20);
    QCOMPARE(TestSupport::countPixelsDiffering(picture, QRect(0, 0, 200, 100), Qt::black), 0);
}

void TestMeasuring::drawsRectangleOutline()
{
    RectangleAreaMeasure tool;
    // Dragged from the lower right to the upper left: pixels 50 to 150 on both axes.
    measure(tool, *display, QPointF(0.5, -0.5), QPointF(-0.5, 0.5), 10.0, 1.0f, 1.0f);
    const QImage picture = paintTool(tool, QSize(200, 200));
    QVERIFY(!picture.isNull());

    const QPoint sides[] = { { 50, 70 }, { 150, 130 }, { 100, 50 }, { 100, 150 }, { 50, 140 }, { 140, 50 } };
    for (const QPoint& side : sides) {
        if (!redNear(picture, side.x(), side.y()))
            QFAIL(qPrintable(QStringLiteral("no outline at (%1, %2): %3")
                                 .arg(side.x())
                                 .arg(side.y())
                                 .arg(TestSupport::saveFailurePicture(picture, QStringLiteral("rect")))));
    }
    // Label centred on the rectangle; nothing outside the outline.
    QVERIFY(TestSupport::countPixelsDiffering(picture, QRect(80, 92, 40, 16), Qt::black) > 20);
    QCOMPARE(TestSupport::countPixelsDiffering(picture, QRect(0, 0, 200, 45), Qt::black), 0);
    QCOMPARE(TestSupport::countPixelsDiffering(picture, QRect(0, 155, 200, 45), Qt::black), 0);
}

void TestMeasuring::drawsCircleThroughEndPoint_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QPointF>("end");
    QTest::addColumn<float>("scaleX");
    QTest::addColumn<QPoint>("onCircle"); // the end point's pixel and another rim pixel

    // The display keeps scaleX × width = scaleY × height, so one fan unit is square on screen.
    QTest::newRow("square widget") << QSize(200, 200) << QPointF(0, 0.5) << 1.0f << QPoint(150, 100);
    QTest::newRow("wide widget") << QSize(300, 200) << QPointF(1.0 / 3.0, 0) << float(2.0 / 3.0)
                                 << QPoint(150, 50);
}

void TestMeasuring::drawsCircleThroughEndPoint()
{
    QFETCH(QSize, size);
    QFETCH(QPointF, end);
    QFETCH(float, scaleX);
    QFETCH(QPoint, onCircle);

    CircleAreaFromCentreMeasure tool;
    measure(tool, *display, QPointF(0, 0), end, 10.0, scaleX, 1.0f);
    QCOMPARE(Inspector::radius(tool), 0.5f);
    const QImage picture = paintTool(tool, size);
    QVERIFY(!picture.isNull());
    QCOMPARE(picture.size(), size);

    const QPoint endPixel((end.x() + 1.0) / 2.0 * size.width(), (1.0 - end.y()) / 2.0 * size.height());
    const QPoint centre(size.width() / 2, size.height() / 2);
    const QPoint opposite = 2 * centre - onCircle;
    for (const QPoint& rim : { endPixel, onCircle, opposite }) {
        if (!redNear(picture, rim.x(), rim.y()))
            QFAIL(qPrintable(QStringLiteral("circle misses (%1, %2): %3")
                                 .arg(rim.x())
                                 .arg(rim.y())
                                 .arg(TestSupport::saveFailurePicture(picture, QStringLiteral("circle")))));
    }
    // Inside the rim, away from the centred label, and outside it: background.
    QVERIFY(TestSupport::pixelMatches(picture, centre + QPoint(0, -30), Qt::black));
    QVERIFY(TestSupport::pixelMatches(picture, centre + QPoint(0, -70), Qt::black));
    QVERIFY(
        TestSupport::countPixelsDiffering(picture, QRect(centre - QPoint(20, 8), QSize(40, 16)), Qt::black)
        > 20);
}

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QApplication app(argc, argv);
    TestMeasuring test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_measuring.moc"
