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
class MeasuringToolProbe
{
public:
    struct Reading
    {
        float value; // metres or square metres
        QString label;
        float radius; // of the drawn circle, in clip units
    };
    static Reading read(const MeasuringToolBase& tool)
    {
        if (auto line = dynamic_cast<const StraightLineMeasure*>(&tool))
            return { line->distance, QString::fromStdString(line->getLabel()), 0.0f };
        if (auto rectangle = dynamic_cast<const RectangleAreaMeasure*>(&tool))
            return { rectangle->area, QString::fromStdString(rectangle->getLabel()), 0.0f };
        auto& circle = dynamic_cast<const CircleAreaFromCentreMeasure&>(tool);
        return { circle.area, QString::fromStdString(circle.getLabel()), circle.radius };
    }
};
} // namespace Halcyra::Nereon::Visualisation

using Tool = std::shared_ptr<MeasuringToolBase>;
using Points = QVector<QPointF>;
Q_DECLARE_METATYPE(Tool)

namespace {

using Probe = MeasuringToolProbe;

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

// Numbers as a German locale writes them, without depending on installed locales.
class GermanNumbers : public std::numpunct<char>
{
protected:
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
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

    void toolMeasuresAndDraws_data()
    {
        QTest::addColumn<Tool>("tool");
        QTest::addColumn<QPointF>("start");
        QTest::addColumn<QPointF>("end");
        QTest::addColumn<QString>("label"); // range 10, no unit: base value and symbol
        QTest::addColumn<double>("atRange100");
        QTest::addColumn<Points>("red"); // clip coordinates
        QTest::addColumn<QRect>("text"); // pixels that must hold label pixels

        // Label below the end point, centred on it, clear of the line.
        QTest::newRow("line") << Tool(new StraightLineMeasure) << QPointF(-0.6, 0.3) << QPointF(0.4, -0.5)
                              << "Distance: 8.50m" << 85.0
                              << Points { { -0.55, 0.26 }, { -0.1, -0.1 }, { 0.35, -0.46 } }
                              << QRect(170, 153, 35, 30);
        // Dragged from the lower right: the outline closes on all four sides. Label at the centre.
        QTest::newRow("rectangle") << Tool(new RectangleAreaMeasure) << QPointF(0.5, -0.5)
                                   << QPointF(-0.5, 0.5) << "Area: 37.50m\u00b2" << 3750.0
                                   << Points { { -0.5, 0.3 }, { 0.5, -0.3 }, { 0, 0.5 }, { 0, -0.5 } }
                                   << QRect(130, 92, 40, 16);
        // Round in the wide canvas (radius in height units) and through the end point.
        QTest::newRow("circle") << Tool(new CircleAreaFromCentreMeasure) << QPointF(0, 0)
                                << QPointF(1.0 / 3.0, 0) << "Area: 19.63m\u00b2" << (625 * M_PI)
                                << Points { { 1.0 / 3.0, 0 }, { 0, 0.5 }, { -1.0 / 3.0, 0 }, { 0, -0.5 } }
                                << QRect(130, 92, 40, 16);
    }

    void toolMeasuresAndDraws()
    {
        QFETCH(Tool, tool);
        QFETCH(QPointF, start);
        QFETCH(QPointF, end);
        QFETCH(double, atRange100);
        QFETCH(Points, red);
        QFETCH(QRect, text);

        // The display keeps scaleX × width = scaleY × height; with scaleY 2 a clip unit is 5 m at range 10.
        const float scaleX = 2.0f * 200 / 300;
        measure(*tool, start, end, scaleX, 2.0f);
        QTEST(Probe::read(*tool).label, "label");

        // A fixed size, settled before grabbing: a window briefly at another size on the X server
        // would draw with a different aspect than the one measured with.
        ToolCanvas canvas;
        canvas.tool = tool.get();
        canvas.setFixedSize(300, 200);
        QVERIFY(TestSupport::showExposed(canvas));
        QTRY_COMPARE(canvas.size(), QSize(300, 200));
        const QImage picture = canvas.grabFramebuffer();
        bool drawn = TestSupport::countPixelsDiffering(picture, text, Qt::black) > 20; // the label
        for (const QPointF& clip : red) { // line edges are antialiased: a red neighbour will do
            const QRect around(qRound((clip.x() + 1) * 150) - 1, qRound((1 - clip.y()) * 100) - 1, 3, 3);
            drawn = drawn && TestSupport::countPixelsDiffering(picture, around, Qt::red, 30) < 9;
        }
        if (!drawn)
            QFAIL(qPrintable(TestSupport::saveFailurePicture(picture, QStringLiteral("drawn"))));

        // A frame with a new range rescales the result but not the drawn circle.
        const float radius = Probe::read(*tool).radius;
        tool->updateMeasurement(100.0, scaleX, 2.0f);
        QCOMPARE(Probe::read(*tool).value, float(atRange100));
        QCOMPARE(Probe::read(*tool).radius, radius);

        // A new press discards the result through the tool's own reset; a click leaves nothing.
        tool->startMeasuring(display, end);
        QCOMPARE(display.cursor().shape(), Qt::CrossCursor);
        QVERIFY(!tool->hasMeasurement());
        tool->takeMeasurement(end, 10.0, 1.0f, 1.0f);
        tool->stopMeasuring(display);
        QCOMPARE(display.cursor().shape(), Qt::ArrowCursor);
        QVERIFY(!tool->hasMeasurement());

        // An x scale of 0 makes 0 × ∞ a NaN, which counts as a measurement.
        measure(*tool, QPointF(0, 0), QPointF(0.25, 0.5), 0.0f, 1.0f);
        QVERIFY(std::isnan(Probe::read(*tool).value) && tool->hasMeasurement());
    }

    void labelConvertsThroughUnit()
    {
        const TestSupport::ScaledUnit feet = TestSupport::feet();
        StraightLineMeasure tool;
        tool.setUnit(&feet);
        measure(tool, QPointF(0, 0), QPointF(0, 0.75));
        QCOMPARE(Probe::read(tool).label, QStringLiteral("Distance: 24.61ft"));

        // Numbers are written as the application's global locale writes them.
        const TestSupport::ScaledUnit metres = TestSupport::metres();
        tool.setUnit(&metres);
        const std::locale previous
            = std::locale::global(std::locale(std::locale::classic(), new GermanNumbers));
        const QString label = Probe::read(tool).label;
        measure(tool, QPointF(0, 0), QPointF(0, 1000));
        const QString longLabel = Probe::read(tool).label;
        std::locale::global(previous);
        QCOMPARE(label, QStringLiteral("Distance: 7,50m"));
        QCOMPARE(longLabel, QStringLiteral("Distance: 10.000,00m"));
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
