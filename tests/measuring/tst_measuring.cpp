#include "FanDisplay.h"
#include "GlTestSupport.h"
#include "TestUnits.h"
#include "ZoomDisplay.h"
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
    /// The first result field and the label the tool would draw.
    static std::pair<float, QString> read(const MeasuringToolBase& tool)
    {
        if (auto line = dynamic_cast<const StraightLineMeasure*>(&tool))
            return { line->distance, QString::fromStdString(line->getLabel()) };
        if (auto rectangle = dynamic_cast<const RectangleAreaMeasure*>(&tool))
            return { rectangle->area, QString::fromStdString(rectangle->getLabel()) };
        auto& circle = dynamic_cast<const CircleAreaFromCentreMeasure&>(tool);
        return { circle.area, QString::fromStdString(circle.getLabel()) };
    }
    static float radius(const MeasuringToolBase& tool)
    {
        auto circle = dynamic_cast<const CircleAreaFromCentreMeasure*>(&tool);
        return circle ? circle->radius : 0.0f;
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
        if (tool)
            tool->displayMeasurement(painter());
    }
};

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
    void measure(MeasuringToolBase& tool, QPointF start, QPointF end, float scaleX = 1, float scaleY = 1)
    {
        tool.startMeasuring(display, start);
        tool.takeMeasurement(end, 10.0, scaleX, scaleY);
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
        QCOMPARE(Inspector::radius(*tool), 0.0f);

        // An x scale of 0 makes 0 × ∞ a NaN, which counts as a measurement.
        measure(*tool, QPointF(0, 0), QPointF(0.25, 0.5), 0.0f, 1.0f);
        QVERIFY(std::isnan(Inspector::read(*tool).first));
        QVERIFY(tool->hasMeasurement());
    }

    void results_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QPointF>("start");
        QTest::addColumn<QPointF>("end");
        QTest::addColumn<float>("scaleX");
        QTest::addColumn<float>("scaleY");
        QTest::addColumn<QString>("label"); // no unit set: base value and symbol
        QTest::addColumn<double>("atRange100");

        const double pi = 3.14159265358979323846;
        const QString area = QStringLiteral("Area: %1m\u00b2");
        auto row
            = [](const char* name, Kind kind, QPointF a, QPointF b, float sx, float sy, QString label,
                  double at100) { QTest::newRow(name) << int(kind) << a << b << sx << sy << label << at100; };
        row("line", Line, { -0.5, 0 }, { 0.5, 0 }, 1, 1, "Distance: 10.00m", 100);
        row("line, x stretched", Line, { 0, 0 }, { 1, 0 }, 2, 1, "Distance: 5.00m", 50);
        row("line, y stretched", Line, { 0, 0 }, { 0, 1 }, 2, 2, "Distance: 5.00m", 50);
        row("line, no drag", Line, { 0.2, 0.2 }, { 0.2, 0.2 }, 1, 1, "Distance: 0.00m", 0);
        row("rectangle", Rectangle, { -0.5, -0.5 }, { 0.5, 0.5 }, 1, 1, area.arg("100.00"), 10000);
        row("rectangle, dragged back", Rectangle, { 1, 1 }, { 0, 0 }, 2, 1, area.arg("50.00"), 5000);
        row("rectangle, flat", Rectangle, { -0.5, 0.2 }, { 0.5, 0.2 }, 1, 1, area.arg("0.00"), 0);
        row("circle", Circle, { 0, 0 }, { 0, 0.5 }, 1, 1, area.arg("78.54"), pi * 2500);
        row("circle, x stretched", Circle, { 0, 0 }, { 0.5, 0 }, 2, 1, area.arg("19.63"), pi * 625);
    }

    void results()
    {
        QFETCH(int, kind);
        QFETCH(QPointF, start);
        QFETCH(QPointF, end);
        QFETCH(float, scaleX);
        QFETCH(float, scaleY);
        QFETCH(QString, label);
        QFETCH(double, atRange100);

        const auto tool = makeTool(kind);
        measure(*tool, start, end, scaleX, scaleY);
        QCOMPARE(Inspector::read(*tool).second, label);
        QCOMPARE(tool->hasMeasurement(), atRange100 != 0.0);

        // A frame with a new range rescales the result but not the drawn circle.
        const float radius = Inspector::radius(*tool);
        tool->updateMeasurement(100.0, scaleX, scaleY);
        QCOMPARE(Inspector::read(*tool).first, float(atRange100));
        QCOMPARE(Inspector::radius(*tool), radius);
        QCOMPARE(tool->getState(), MeasuringToolBase::Finished);
    }

    void labelConvertsThroughUnitWithDecimalPoint()
    {
        const TestSupport::ScaledUnit feet = TestSupport::feet();
        StraightLineMeasure tool;
        tool.setUnit(&feet);
        measure(tool, QPointF(0, 0), QPointF(0, 0.75));
        // An operator's locale with a decimal comma must not reach the label.
        const std::locale previous
            = std::locale::global(std::locale(std::locale::classic(), new CommaDecimal));
        const QString label = Inspector::read(tool).second;
        std::locale::global(previous);
        QCOMPARE(label, QStringLiteral("Distance: 24.61ft"));
    }

    void drawing_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QPointF>("start");
        QTest::addColumn<QPointF>("end");
        QTest::addColumn<QVector<QPointF>>("red"); // clip coordinates
        QTest::addColumn<QPointF>("labelAt");
        QTest::addColumn<QVector<QRect>>("text"); // pixels from labelAt; each must hold label pixels
        QTest::addColumn<QRectF>("empty"); // clip coordinates

        // Label below the end point, centred on it, clear of the line.
        QTest::newRow("line") << int(Line) << QPointF(-0.5, -0.5) << QPointF(0.5, -0.5)
                              << QVector<QPointF> { { -0.45, -0.5 }, { 0, -0.5 }, { 0.45, -0.5 } }
                              << QPointF(0.5, -0.5) << QVector<QRect> { { -40, 3, 35, 30 }, { 5, 3, 35, 30 } }
                              << QRectF(QPointF(-1, 1), QPointF(1, -0.47));
        // Dragged from the lower right: the outline closes on all four sides.
        QTest::newRow("rectangle") << int(Rectangle) << QPointF(0.5, -0.5) << QPointF(-0.5, 0.5)
                                   << QVector<QPointF> { { -0.5, 0.3 }, { 0.5, -0.3 }, { 0, 0.5 },
                                          { 0, -0.5 }, { 0.4, 0.5 } }
                                   << QPointF(0, 0) << QVector<QRect> { { -20, -8, 40, 16 } }
                                   << QRectF(QPointF(-1, 1), QPointF(1, 0.54));
        // Round in the wide canvas (radius in height units) and through the end point.
        QTest::newRow("circle") << int(Circle) << QPointF(0, 0) << QPointF(1.0 / 3.0, 0)
                                << QVector<QPointF> { { 1.0 / 3.0, 0 }, { 0, 0.5 }, { -1.0 / 3.0, 0 },
                                       { 0, -0.5 } }
                                << QPointF(0, 0) << QVector<QRect> { { -20, -8, 40, 16 } }
                                << QRectF(QPointF(-1.0 / 15, 0.4), QPointF(1.0 / 15, 0.2));
    }

    void drawing()
    {
        QFETCH(int, kind);
        QFETCH(QPointF, start);
        QFETCH(QPointF, end);
        QFETCH(QVector<QPointF>, red);
        QFETCH(QPointF, labelAt);
        QFETCH(QVector<QRect>, text);
        QFETCH(QRectF, empty);

        // A fixed size, settled before measuring: a window briefly at another size on the X server
        // would otherwise draw with a different aspect than the one measured with.
        const QSize size(300, 200);
        ToolCanvas canvas;
        canvas.setFixedSize(size);
        canvas.show();
        QVERIFY(QTest::qWaitForWindowExposed(&canvas));
        TestSupport::keepGlDriverLoaded();
        QTRY_COMPARE(canvas.size(), size);

        const auto tool = makeTool(kind);
        // The display keeps scaleX × width = scaleY × height. No unit: the label must still show.
        measure(*tool, start, end, float(canvas.height()) / canvas.width(), 1.0f);
        canvas.tool = tool.get();
        const QImage picture = canvas.grabFramebuffer();
        QCOMPARE(picture.size(), canvas.size() * canvas.devicePixelRatio());
        const auto pixel = [&](QPointF clip) {
            return QPointF((clip.x() + 1) / 2 * picture.width(), (1 - clip.y()) / 2 * picture.height());
        };

        QStringList faults;
        for (const QPointF& clip : red) {
            const QPoint at = pixel(clip).toPoint();
            bool found = false; // line edges are antialiased: accept a neighbour
            for (int i = 0; i < 9; ++i)
                found = found
                    || TestSupport::pixelMatches(picture, at + QPoint(i % 3 - 1, i / 3 - 1), Qt::red, 30);
            if (!found)
                faults << QStringLiteral("no red at %1,%2").arg(at.x()).arg(at.y());
        }
        for (QRect box : text) {
            box.translate(pixel(labelAt).toPoint());
            if (TestSupport::countPixelsDiffering(picture, box, Qt::black) <= 20)
                faults << QStringLiteral("no label at %1,%2").arg(box.x()).arg(box.y());
        }
        if (TestSupport::countPixelsDiffering(
                picture, QRectF(pixel(empty.topLeft()), pixel(empty.bottomRight())).toRect(), Qt::black)
            > 0)
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
