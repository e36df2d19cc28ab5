#include "GlTestSupport.h"

#include "gui/NereonLogo.h"
#include "gui/OpenGLWidget.h"
#include "gui/OpenGLWidgetPainter.h"
#include "gui/TernwickLogo.h"

#include <QApplication>
#include <QPixmap>
#include <QTest>
#include <QVector3D>

#include <cmath>
#include <functional>
#include <memory>

using namespace Halcyra::GUI::Widgets;
using Bases::OpenGLWidget;
using Bases::OpenGLWidgetPainter;

namespace {

const QColor black(0, 0, 0);
const QColor red(255, 0, 0);

/// Clears to black, then runs the case's painter calls.
class Canvas : public OpenGLWidget
{
public:
    using OpenGLWidget::OpenGLWidget;
    std::function<void(Canvas&, OpenGLWidgetPainter&)> draw;

protected:
    void paintGL() override
    {
        glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        if (draw)
            draw(*this, painter());
    }
};

using Operation = std::function<void(OpenGLWidget&)>;
using Drawing = std::function<void(OpenGLWidgetPainter&)>;
using LogoFactory = std::function<std::unique_ptr<QWidget>()>;

/// Device pixel of a logical position in a grabbed picture.
QPoint device(const QImage& image, QPointF logical)
{
    return (logical * image.devicePixelRatio()).toPoint();
}

/// Bounding box, in logical pixels, of the pixels that differ from black.
QRectF litBox(const QImage& image)
{
    QRect box;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (!TestSupport::pixelMatches(image, QPoint(x, y), black, 60))
                box |= QRect(x, y, 1, 1);
    const qreal ratio = image.devicePixelRatio();
    return QRectF(box.x() / ratio, box.y() / ratio, box.width() / ratio, box.height() / ratio);
}

int litCount(const QImage& image, const QRectF& logical)
{
    const qreal ratio = image.devicePixelRatio();
    return TestSupport::countPixelsDiffering(
        image, QRectF(logical.topLeft() * ratio, logical.size() * ratio).toRect(), black, 60);
}

QString describeBox(const QRectF& box, const char* what)
{
    return QStringLiteral("%1: lit box (%2, %3) %4 x %5")
        .arg(QLatin1String(what))
        .arg(box.x())
        .arg(box.y())
        .arg(box.width())
        .arg(box.height());
}

} // namespace

/// QVERIFY2 that saves the picture and builds its message only when the check fails.
#define VERIFY_PICTURE(condition, image, message)                                                            \
    do {                                                                                                     \
        if (!(condition))                                                                                    \
            QFAIL(qPrintable(QString(message) + QStringLiteral(", picture ")                                 \
                + TestSupport::saveFailurePicture((image), QStringLiteral("actual"))));                      \
    } while (false)

Q_DECLARE_METATYPE(Operation)
Q_DECLARE_METATYPE(Drawing)
Q_DECLARE_METATYPE(LogoFactory)

class TestPainter : public QObject
{
    Q_OBJECT

    // One window for all GL cases: a child resizes at once, and a window and
    // context per case would cost more than the cases themselves.
    std::unique_ptr<QWidget> window;
    Canvas* canvas = nullptr;

    void prepareCanvas(int width, int height)
    {
        canvas->scale(1.0f, 1.0f, 1.0f, true);
        canvas->translate(0.0f, 0.0f, 0.0f, true);
        canvas->rotate(0.0f, true);
        canvas->resize(width, height);
    }

private slots:
    void initTestCase()
    {
        window = std::make_unique<QWidget>();
        window->resize(260, 260);
        canvas = new Canvas(window.get());
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        canvas->grabFramebuffer();
        TestSupport::keepGlDriverLoaded();
    }

    // The drawing captures the finished case's locals; a later repaint must not run it.
    void cleanup() { canvas->draw = nullptr; }

    void modelTransform_data();
    void modelTransform();
    void shapes_data();
    void shapes();
    void imageCorner();
    void textAnchor_data();
    void textAnchor();
    void rangeLabelsReadUpright_data();
    void rangeLabelsReadUpright();
    void glStateLeftSane();
    void logos_data();
    void logos();
};

void TestPainter::modelTransform_data()
{
    QTest::addColumn<Operation>("operations");
    QTest::addColumn<QPointF>("point");
    QTest::addColumn<QPointF>("expected");

    QTest::newRow("initial identity")
        << Operation([](OpenGLWidget&) {}) << QPointF(0.3, -0.4) << QPointF(0.3, -0.4);
    // Rotated (counter-clockwise) first, then scaled, then translated.
    QTest::newRow("order") << Operation([](OpenGLWidget& w) {
        w.translate(0.5f, -0.25f, 0.0f, true);
        w.rotate(90.0f, true);
        w.scale(2.0f, 3.0f, 1.0f, true);
    }) << QPointF(1.0, 0.0) << QPointF(0.5, 2.75);
    // Relative changes build on the last absolute one; a matrix read between
    // changes must not be served stale afterwards.
    QTest::newRow("absolute and relative") << Operation([](OpenGLWidget& w) {
        w.scale(2.0f, 2.0f, 1.0f, true);
        w.scale(0.5f, 3.0f, 1.0f, false);
        w.translate(1.0f, 1.0f, 0.0f, false);
        w.rotate(45.0f, false);
        w.getCurrentProjection();
        w.translate(0.1f, 0.2f, 0.0f, true);
        w.translate(0.1f, -0.4f, 0.0f, false);
        w.rotate(30.0f, true);
        w.rotate(60.0f, false);
    }) << QPointF(1.0, 0.0) << QPointF(0.2, 5.8);
}

void TestPainter::modelTransform()
{
    QFETCH(Operation, operations);
    QFETCH(QPointF, point);
    QFETCH(QPointF, expected);

    OpenGLWidget widget;
    operations(widget);
    const QPointF mapped = widget.getCurrentProjection().map(QVector3D(point)).toPointF();
    QVERIFY2((mapped - expected).manhattanLength() < 1e-5,
        qPrintable(QStringLiteral("(%1, %2)").arg(mapped.x()).arg(mapped.y())));
}

void TestPainter::shapes_data()
{
    QTest::addColumn<Drawing>("drawing");
    QTest::addColumn<QVector<QPointF>>("lit");
    QTest::addColumn<QVector<QPointF>>("dark");

    // Canvas 240 x 160, model turned by 90, scaled (0.5, 0.8), moved by (0.2, -0.1).
    QTest::newRow("line, clip") << Drawing([](OpenGLWidgetPainter& p) {
        p.drawLine(-0.5f, 0.5f, 0.5f, 0.5f, 5, red, true);
    }) << QVector<QPointF> { { 120, 40 }, { 70, 40 } }
                                << QVector<QPointF> { { 120, 52 }, { 190, 40 } };
    // The model x axis lands on clip x 0.2 from y -0.1 to 0.7: pixels x 144, y 88 up to 24.
    QTest::newRow("line, model") << Drawing([](OpenGLWidgetPainter& p) {
        p.drawLine(0.0f, 0.0f, 1.0f, 0.0f, 5, red, false);
    }) << QVector<QPointF> { { 144, 56 }, { 144, 30 } }
                                 << QVector<QPointF> { { 156, 56 }, { 144, 100 } };

    // A clip square from pixel (60, 40) to (180, 120): sides top, right, bottom, left.
    const std::vector<float> corners { -0.5f, 0.5f, 0.5f, 0.5f, 0.5f, -0.5f, -0.5f, -0.5f };
    const QPointF top(120, 40), right(180, 80), bottom(120, 120), left(60, 80);
    QTest::newRow("separate segments")
        << Drawing([=](OpenGLWidgetPainter& p) { p.drawLines(corners, 3, red, true, false, false); })
        << QVector<QPointF> { top, bottom } << QVector<QPointF> { right, left, { 120, 80 } };
    QTest::newRow("open line") << Drawing(
        [=](OpenGLWidgetPainter& p) { p.drawLines(corners, 3, red, true, true, false); })
                               << QVector<QPointF> { top, right, bottom } << QVector<QPointF> { left };
    QTest::newRow("closed line") << Drawing([=](OpenGLWidgetPainter& p) {
        p.drawLines(corners, 3, red, true, true, true);
    }) << QVector<QPointF> { top, right, bottom, left }
                                 << QVector<QPointF> { { 120, 80 } };

    // Radius 0.5 of the half-height is 40 pixels both ways, not 60 across.
    QTest::newRow("circle") << Drawing([](OpenGLWidgetPainter& p) {
        p.drawCircle(QPointF(0.0, 0.0), 0.5f, 3, red);
    }) << QVector<QPointF> { { 160, 80 }, { 80, 80 }, { 120, 40 }, { 120, 120 } }
                            << QVector<QPointF> { { 120, 80 }, { 180, 80 } };
}

void TestPainter::shapes()
{
    QFETCH(Drawing, drawing);
    QFETCH(QVector<QPointF>, lit);
    QFETCH(QVector<QPointF>, dark);

    prepareCanvas(240, 160);
    canvas->scale(0.5f, 0.8f, 1.0f, true);
    canvas->rotate(90.0f, true);
    canvas->translate(0.2f, -0.1f, 0.0f, true);
    canvas->draw = [&](Canvas&, OpenGLWidgetPainter& painter) { drawing(painter); };
    const QImage image = canvas->grabFramebuffer();
    for (const QPointF& point : lit)
        NEREON_VERIFY_PIXEL(image, device(image, point), red, 16);
    for (const QPointF& point : dark)
        NEREON_VERIFY_PIXEL(image, device(image, point), black, 8);
}

void TestPainter::imageCorner()
{
    prepareCanvas(200, 160);
    const QColor green(0, 255, 0);
    QImage picture(12, 8, QImage::Format_ARGB32);
    picture.fill(green);
    canvas->draw
        = [&](Canvas&, OpenGLWidgetPainter& painter) { painter.drawImage(-0.5f, 0.5f, picture, true); };
    const QImage image = canvas->grabFramebuffer();

    // One picture pixel per device pixel, whatever the device pixel ratio.
    const QPoint corner = device(image, QPointF(50, 40));
    NEREON_VERIFY_PIXEL(image, corner, green, 0);
    NEREON_VERIFY_PIXEL(image, corner + QPoint(11, 7), green, 0);
    for (const QPoint outside : { QPoint(-1, 0), QPoint(0, -1), QPoint(12, 7), QPoint(11, 8) })
        NEREON_VERIFY_PIXEL(image, corner + outside, black, 0);
}

void TestPainter::textAnchor_data()
{
    QTest::addColumn<int>("anchor");

    QTest::newRow("start, middle") << 0x10;
    QTest::newRow("end, middle") << 0x12;
    QTest::newRow("centre, middle") << 0x14;
    QTest::newRow("centre, top") << 0x24;
}

void TestPainter::textAnchor()
{
    QFETCH(int, anchor);

    prepareCanvas(240, 160);
    QFont font;
    font.setPixelSize(20);
    const QColor yellow(255, 255, 0);
    canvas->draw = [&](Canvas&, OpenGLWidgetPainter& painter) {
        painter.addFont(font, QColor(0, 0, 255));
        painter.setFont(painter.addFont(font, yellow));
        painter.drawText(0.0f, 0.0f, 0, "88.8m", static_cast<unsigned char>(anchor), true);
    };
    const QImage image = canvas->grabFramebuffer();
    const QRectF box = litBox(image);
    const QPointF point(120, 80);

    VERIFY_PICTURE(box.width() > 30 && box.width() < 90 && box.height() > 10 && box.height() < 22, image,
        describeBox(box, "size"));
    const double horizontal = anchor == 0x10 ? box.left() : anchor == 0x12 ? box.right() : box.center().x();
    VERIFY_PICTURE(std::abs(horizontal - point.x()) <= 3.0, image, describeBox(box, "horizontal placement"));
    // The font's ascent sits a little above the tops of the digits.
    const bool vertical = anchor & 0x20 ? box.top() >= point.y() - 1 && box.top() <= point.y() + 6
                                        : std::abs(box.center().y() - point.y()) <= 3.0;
    VERIFY_PICTURE(vertical, image, describeBox(box, "vertical placement"));

    // In the selected font's colour, not the first registered one.
    int yellowPixels = 0;
    for (int x = 0; x < image.width(); ++x)
        yellowPixels
            += TestSupport::pixelMatches(image, QPoint(x, device(image, box.center()).y()), yellow, 40);
    VERIFY_PICTURE(yellowPixels > 0, image, describeBox(box, "colour"));
}

void TestPainter::rangeLabelsReadUpright_data()
{
    QTest::addColumn<float>("aperture");
    QTest::addColumn<bool>("rightHand");
    QTest::addColumn<float>("rotation");

    // A half-disc fan has horizontal labels when turned by 90 or 270 degrees,
    // a needle-thin one when upright or upside down; vertical ones otherwise.
    for (const float rotation : { 0.0f, 90.0f, 180.0f, 270.0f })
        for (const bool right : { true, false })
            for (const float aperture : { 180.0f, 0.0f })
                QTest::addRow("aperture %g, %s, rotation %g", double(aperture), right ? "right" : "left",
                    double(rotation))
                    << aperture << right << rotation;
}

void TestPainter::rangeLabelsReadUpright()
{
    QFETCH(float, aperture);
    QFETCH(bool, rightHand);
    QFETCH(float, rotation);

    // How the fan's labels choose angle and anchor to stay upright outside the fan.
    const int startAngle = int(90.0f - aperture / 2.0f);
    const int a = startAngle - 90;
    const int b = int(aperture + float(a));
    const auto flipped = [&](int angle) { return angle + rotation > 90.0f && angle + rotation < 270.0f; };
    int angle = rightHand ? a : b;
    unsigned char anchor = rightHand ? 0x10 : 0x12;
    if (flipped(angle)) {
        angle = rightHand ? startAngle - 270 : b - 180;
        anchor ^= 0x02;
    }
    // Away from the fan on screen: along a for right-hand labels, against b for left-hand ones.
    const double away = ((rightHand ? a : b + 180) + rotation) * M_PI / 180.0;
    const QPointF outward(std::round(std::cos(away)), std::round(std::sin(away)));

    const double edge = (rightHand ? 90.0 - aperture / 2.0 : 90.0 + aperture / 2.0) * M_PI / 180.0;
    const QVector3D labelPoint(float(std::cos(edge) * 0.6), float(std::sin(edge) * 0.6), 0.0f);

    prepareCanvas(240, 240);
    canvas->scale(0.8f, 0.8f, 1.0f, true);
    canvas->rotate(rotation, true);
    QFont font;
    font.setPixelSize(20);
    canvas->draw = [&](Canvas&, OpenGLWidgetPainter& painter) {
        painter.setFont(painter.addFont(font, Qt::white));
        painter.drawText(labelPoint.x(), labelPoint.y(), angle, "TTTT", anchor, false);
    };
    const QImage image = canvas->grabFramebuffer();
    const QRectF box = litBox(image);
    const QVector3D clip = canvas->getCurrentProjection().map(labelPoint);
    const QPointF point((clip.x() + 1.0) * 120.0, (1.0 - clip.y()) * 120.0);

    const double slack = 2.0;
    const bool outside = (outward.x() <= 0.5 || box.left() >= point.x() - slack)
        && (outward.x() >= -0.5 || box.right() <= point.x() + slack)
        && (outward.y() <= 0.5 || box.bottom() <= point.y() + slack)
        && (outward.y() >= -0.5 || box.top() >= point.y() - slack);
    VERIFY_PICTURE(outside, image, describeBox(box, "not beyond its point, away from the fan"));

    const bool horizontal = std::abs(outward.x()) > 0.5;
    VERIFY_PICTURE(horizontal == (box.width() > box.height()), image, describeBox(box, "orientation"));
    if (horizontal) {
        // The bars of the Ts are on top when the text is upright.
        const QSizeF quarter(box.width(), box.height() / 4);
        const int upper = litCount(image, QRectF(box.topLeft(), quarter));
        const int lower = litCount(image, QRectF(box.bottomLeft() - QPointF(0, quarter.height()), quarter));
        VERIFY_PICTURE(upper > 2 * lower, image, describeBox(box, "upside down"));
    }
}

void TestPainter::glStateLeftSane()
{
    prepareCanvas(160, 120);
    canvas->makeCurrent();
    TestSupport::GlErrorWatcher watcher(canvas->context());

    QImage picture(4, 4, QImage::Format_ARGB32);
    picture.fill(Qt::white);
    GLboolean blend = GL_TRUE, scissor = GL_TRUE;
    GLfloat clear[4] = {};
    GLint blendFunction[2] = {};
    canvas->draw = [&](Canvas& gl, OpenGLWidgetPainter& painter) {
        gl.glClearColor(0.25f, 0.5f, 0.75f, 1.0f);
        gl.glBlendFunc(GL_SRC_ALPHA, GL_ONE);
        painter.setFont(painter.addFont(QFont(), Qt::white));
        painter.drawText(0.0f, 0.0f, 30, "state", 0x14, false);
        painter.drawLines({ -0.5f, -0.5f, 0.5f, 0.5f, 0.5f, -0.5f }, 1, red, true, true, true);
        painter.drawCircle(QPointF(0.0, 0.0), 0.3f, 1, red);
        painter.drawImage(-0.9f, 0.9f, picture, true);
        blend = gl.glIsEnabled(GL_BLEND);
        scissor = gl.glIsEnabled(GL_SCISSOR_TEST);
        gl.glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
        gl.glGetIntegerv(GL_BLEND_SRC_RGB, &blendFunction[0]);
        gl.glGetIntegerv(GL_BLEND_DST_RGB, &blendFunction[1]);
    };
    canvas->grabFramebuffer();
    canvas->makeCurrent();

    QCOMPARE(blend, GLboolean(GL_FALSE));
    QCOMPARE(scissor, GLboolean(GL_FALSE));
    // The widgets set their clear colour and blending only when they change them.
    QCOMPARE(QColor::fromRgbF(clear[0], clear[1], clear[2]), QColor::fromRgbF(0.25, 0.5, 0.75));
    QCOMPARE(blendFunction[0], GLint(GL_SRC_ALPHA));
    QCOMPARE(blendFunction[1], GLint(GL_ONE));
    for (const QOpenGLDebugMessage& message : watcher.errors())
        QFAIL(qPrintable(message.message()));
}

void TestPainter::logos_data()
{
    QTest::addColumn<LogoFactory>("make");
    QTest::addColumn<QColor>("first");
    QTest::addColumn<QColor>("second");

    QTest::newRow("maker, default colours")
        << LogoFactory([] { return std::make_unique<Displays::TernwickLogo>(); }) << QColor(255, 255, 255)
        << QColor(30, 144, 255);
    QTest::newRow("maker, own colours") << LogoFactory([]() -> std::unique_ptr<QWidget> {
        auto logo = std::make_unique<Displays::TernwickLogo>();
        logo->setPrimaryColour(QColor(220, 40, 40));
        logo->setSecondaryColour(QColor(40, 200, 60));
        return logo;
    }) << QColor(220, 40, 40) << QColor(40, 200, 60);
    QTest::newRow("product, own colour") << LogoFactory([]() -> std::unique_ptr<QWidget> {
        auto logo = std::make_unique<Displays::NereonLogo>();
        logo->setColour(QColor(250, 160, 20));
        return logo;
    }) << QColor(250, 160, 20) << QColor();
}

void TestPainter::logos()
{
    QFETCH(LogoFactory, make);
    QFETCH(QColor, first);
    QFETCH(QColor, second);

    // As the display renders them: never shown, transparent, its drawing's aspect.
    const std::unique_ptr<QWidget> logo = make();
    const QSize natural = dynamic_cast<Bases::SvgWidget&>(*logo).getSvgSize();
    QVERIFY(!natural.isEmpty());
    logo->setStyleSheet(QStringLiteral("background: transparent;"));
    logo->setFixedSize(natural.width() * 60 / natural.height(), 60);
    const QImage image = logo->grab().toImage().convertToFormat(QImage::Format_ARGB32);

    for (const QPoint corner :
        { QPoint(0, 0), image.rect().topRight(), image.rect().bottomLeft(), image.rect().bottomRight() })
        VERIFY_PICTURE(qAlpha(image.pixel(corner)) == 0, image, QStringLiteral("corner not transparent"));

    // Fully covered pixels are of the requested colours only.
    int firstCount = 0, secondCount = 0, strayCount = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (qAlpha(image.pixel(x, y)) < 250)
                continue;
            if (TestSupport::pixelMatches(image, QPoint(x, y), first, 2))
                ++firstCount;
            else if (second.isValid() && TestSupport::pixelMatches(image, QPoint(x, y), second, 2))
                ++secondCount;
            else
                ++strayCount;
        }
    }
    VERIFY_PICTURE(firstCount > 50, image, QStringLiteral("too little of the first colour"));
    VERIFY_PICTURE(
        !second.isValid() || secondCount > 50, image, QStringLiteral("too little of the second colour"));
    VERIFY_PICTURE(strayCount == 0, image, QStringLiteral("opaque pixels of another colour"));
}

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QApplication application(argc, argv);
    TestPainter test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_painter.moc"
