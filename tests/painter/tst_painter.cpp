#include "GlTestSupport.h"

#include "gui/NereonLogo.h"
#include "gui/OpenGLWidget.h"
#include "gui/OpenGLWidgetPainter.h"
#include "gui/TernwickLogo.h"

#include <QApplication>
#include <QOpenGLContext>
#include <QPixmap>
#include <QTest>
#include <QVector3D>

#include <cmath>
#include <functional>
#include <memory>
#include <vector>

using Halcyra::GUI::Widgets::Bases::OpenGLWidget;
using Halcyra::GUI::Widgets::Bases::OpenGLWidgetPainter;
using Halcyra::GUI::Widgets::Displays::NereonLogo;
using Halcyra::GUI::Widgets::Displays::TernwickLogo;

namespace {

const QColor background(0, 0, 0);
const QColor red(255, 0, 0);

/// A GL widget whose paint clears to black and then runs the test's painter calls.
class Canvas : public OpenGLWidget
{
public:
    std::function<void(Canvas&, OpenGLWidgetPainter&)> draw;

    using OpenGLWidget::OpenGLWidget;

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

/// Bounding box, in logical pixels, of the pixels that differ from the background.
QRectF litBox(const QImage& image, int tolerance = 60)
{
    int left = image.width(), top = image.height(), right = -1, bottom = -1;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (!TestSupport::pixelMatches(image, QPoint(x, y), background, tolerance)) {
                left = std::min(left, x);
                right = std::max(right, x);
                top = std::min(top, y);
                bottom = std::max(bottom, y);
            }
        }
    }
    if (right < 0)
        return QRectF();
    const qreal ratio = image.devicePixelRatio();
    return QRectF(left / ratio, top / ratio, (right - left + 1) / ratio, (bottom - top + 1) / ratio);
}

/// Device pixel of a logical position in a grabbed picture.
QPoint device(const QImage& image, QPointF logical)
{
    const qreal ratio = image.devicePixelRatio();
    return QPoint(int(std::floor(logical.x() * ratio)), int(std::floor(logical.y() * ratio)));
}

int litCount(const QImage& image, const QRectF& logical)
{
    const qreal ratio = image.devicePixelRatio();
    const QRect rect(QPoint(int(logical.left() * ratio), int(logical.top() * ratio)),
        QPoint(int(logical.right() * ratio) - 1, int(logical.bottom() * ratio) - 1));
    return TestSupport::countPixelsDiffering(image, rect, background, 60);
}

struct LabelPlacement
{
    int angle;
    unsigned char anchor;
    QPointF outward; // screen direction (y up) in which the label must lie from its point
};

/// A label beside one edge of a fan, turned and anchored so that it stays upright.
LabelPlacement rangeLabel(float aperture, int startAngle, bool rightHand, float rotation)
{
    const int a = startAngle - 90;
    const int b = int(aperture + float(a));
    const auto flipped = [rotation](int angle) {
        const float sum = float(angle) + rotation;
        return sum > 90.0f && sum < 270.0f;
    };
    const auto direction = [](double degrees) {
        const double radians = degrees * M_PI / 180.0;
        return QPointF(
            std::round(std::cos(radians) * 1000.0) / 1000.0, std::round(std::sin(radians) * 1000.0) / 1000.0);
    };
    if (rightHand) {
        const QPointF away = direction(a + rotation);
        return flipped(a) ? LabelPlacement { startAngle - 270, 0x12, away }
                          : LabelPlacement { a, 0x10, away };
    }
    const QPointF away = direction(b + 180 + rotation);
    return flipped(b) ? LabelPlacement { b - 180, 0x10, away } : LabelPlacement { b, 0x12, away };
}

} // namespace

Q_DECLARE_METATYPE(Operation)
Q_DECLARE_METATYPE(std::vector<float>)

class TestPainter : public QObject
{
    Q_OBJECT

private:
    /// The shared canvas, cleared of earlier drawing and transform, at the given size.
    void prepareCanvas(int width, int height)
    {
        canvas->draw = nullptr;
        canvas->scale(1.0f, 1.0f, 1.0f, true);
        canvas->translate(0.0f, 0.0f, 0.0f, true);
        canvas->rotate(0.0f, true);
        canvas->resize(width, height);
    }

    // One window for all GL cases: a child resizes at once, and creating a
    // window and context per case costs more than the cases themselves.
    std::unique_ptr<QWidget> window;
    Canvas* canvas = nullptr;

private slots:
    void initTestCase();
    void cleanup();
    void modelTransform_data();
    void modelTransform();
    void lines_data();
    void lines();
    void polylines_data();
    void polylines();
    void circleIsRoundOnScreen();
    void imageCorner_data();
    void imageCorner();
    void textAnchor_data();
    void textAnchor();
    void rangeLabelsReadUpright_data();
    void rangeLabelsReadUpright();
    void glStateLeftSane();
    void logos_data();
    void logos();
};

void TestPainter::initTestCase()
{
    window = std::make_unique<QWidget>();
    window->resize(260, 260);
    canvas = new Canvas(window.get());
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    canvas->grabFramebuffer();
    TestSupport::keepGlDriverLoaded();
}

void TestPainter::cleanup()
{
    // The drawing captures the finished case's locals; a later repaint must not run it.
    canvas->draw = nullptr;
}

void TestPainter::modelTransform_data()
{
    QTest::addColumn<Operation>("operations");
    QTest::addColumn<QPointF>("point");
    QTest::addColumn<QPointF>("expected");

    QTest::newRow("initial identity")
        << Operation([](OpenGLWidget&) {}) << QPointF(0.3, -0.4) << QPointF(0.3, -0.4);
    QTest::newRow("rotation is counter-clockwise")
        << Operation([](OpenGLWidget& w) { w.rotate(90.0f, true); }) << QPointF(1.0, 0.0)
        << QPointF(0.0, 1.0);
    // Rotated first, then scaled, then translated.
    QTest::newRow("translation x scale x rotation") << Operation([](OpenGLWidget& w) {
        w.translate(0.5f, -0.25f, 0.0f, true);
        w.rotate(90.0f, true);
        w.scale(2.0f, 3.0f, 1.0f, true);
    }) << QPointF(1.0, 0.0) << QPointF(0.5, 2.75);
    QTest::newRow("relative changes accumulate") << Operation([](OpenGLWidget& w) {
        w.scale(2.0f, 2.0f, 1.0f, true);
        w.scale(0.5f, 3.0f, 1.0f, false);
        w.translate(0.1f, 0.2f, 0.0f, true);
        w.translate(0.1f, -0.4f, 0.0f, false);
        w.rotate(30.0f, true);
        w.rotate(60.0f, false);
    }) << QPointF(1.0, 0.0) << QPointF(0.2, 5.8);
    QTest::newRow("absolute replaces") << Operation([](OpenGLWidget& w) {
        w.scale(5.0f, 5.0f, 5.0f, false);
        w.translate(1.0f, 1.0f, 0.0f, false);
        w.rotate(45.0f, false);
        w.scale(1.0f, 2.0f, 1.0f, true);
        w.translate(0.0f, -1.0f, 0.0f, true);
        w.rotate(-90.0f, true);
    }) << QPointF(0.0, 1.0) << QPointF(1.0, -1.0);
    // A matrix read between changes must not be served stale afterwards.
    QTest::newRow("read between changes") << Operation([](OpenGLWidget& w) {
        w.rotate(180.0f, true);
        w.getCurrentProjection();
        w.translate(0.0f, 0.5f, 0.0f, false);
    }) << QPointF(0.25, 0.25) << QPointF(-0.25, 0.25);
}

void TestPainter::modelTransform()
{
    QFETCH(Operation, operations);
    QFETCH(QPointF, point);
    QFETCH(QPointF, expected);

    OpenGLWidget widget;
    operations(widget);
    const QVector3D mapped = widget.getCurrentProjection().map(QVector3D(point));
    QVERIFY2(std::abs(mapped.x() - expected.x()) < 1e-5 && std::abs(mapped.y() - expected.y()) < 1e-5,
        qPrintable(QStringLiteral("mapped to (%1, %2)").arg(mapped.x()).arg(mapped.y())));
}

void TestPainter::lines_data()
{
    QTest::addColumn<bool>("screenCoordinates");
    QTest::addColumn<QPointF>("from");
    QTest::addColumn<QPointF>("to");
    QTest::addColumn<QPointF>("onLine");
    QTest::addColumn<QPointF>("offLine");

    // Canvas 200 x 160 with scale (0.5, 0.8), rotation 90 and translation (0.2, -0.1).
    QTest::newRow("clip") << true << QPointF(-0.5, 0.5) << QPointF(0.5, 0.5) << QPointF(100, 40)
                          << QPointF(100, 52);
    QTest::newRow("clip ends") << true << QPointF(-0.5, 0.5) << QPointF(0.5, 0.5) << QPointF(60, 40)
                               << QPointF(160, 40);
    // Model x axis turns to clip x = 0.2, y from -0.1 to 0.7: pixels x 120, y 24 to 88.
    QTest::newRow("model") << false << QPointF(0.0, 0.0) << QPointF(1.0, 0.0) << QPointF(120, 56)
                           << QPointF(132, 56);
    QTest::newRow("model ends") << false << QPointF(0.0, 0.0) << QPointF(1.0, 0.0) << QPointF(120, 30)
                                << QPointF(120, 100);
}

void TestPainter::lines()
{
    QFETCH(bool, screenCoordinates);
    QFETCH(QPointF, from);
    QFETCH(QPointF, to);
    QFETCH(QPointF, onLine);
    QFETCH(QPointF, offLine);

    prepareCanvas(200, 160);
    canvas->scale(0.5f, 0.8f, 1.0f, true);
    canvas->rotate(90.0f, true);
    canvas->translate(0.2f, -0.1f, 0.0f, true);
    canvas->draw = [&](Canvas&, OpenGLWidgetPainter& painter) {
        painter.drawLine(
            float(from.x()), float(from.y()), float(to.x()), float(to.y()), 5, red, screenCoordinates);
    };
    const QImage image = canvas->grabFramebuffer();
    NEREON_VERIFY_PIXEL(image, device(image, onLine), red, 8);
    NEREON_VERIFY_PIXEL(image, device(image, offLine), background, 8);
}

void TestPainter::polylines_data()
{
    QTest::addColumn<bool>("connected");
    QTest::addColumn<bool>("closed");
    QTest::addColumn<int>("litSides"); // of: top, right, bottom, left (the closing side)

    // Corners of a square: top-left, top-right, bottom-right, bottom-left.
    QTest::newRow("separate segments") << false << false << 0b1010;
    QTest::newRow("open line") << true << false << 0b1110;
    QTest::newRow("closed line") << true << true << 0b1111;
}

void TestPainter::polylines()
{
    QFETCH(bool, connected);
    QFETCH(bool, closed);
    QFETCH(int, litSides);

    prepareCanvas(200, 200);
    // Model coordinates scaled by a half: the square spans pixels 50 to 150.
    canvas->scale(0.5f, 0.5f, 1.0f, true);
    const std::vector<float> corners { -1.0f, 1.0f, 1.0f, 1.0f, 1.0f, -1.0f, -1.0f, -1.0f };
    canvas->draw = [&](Canvas&, OpenGLWidgetPainter& painter) {
        painter.drawLines(corners, 3, red, false, connected, closed);
    };
    const QImage image = canvas->grabFramebuffer();
    const QPointF sideMiddles[4] = { { 100, 50 }, { 150, 100 }, { 100, 150 }, { 50, 100 } };
    for (int side = 0; side < 4; ++side) {
        const bool lit = litSides & (0b1000 >> side);
        NEREON_VERIFY_PIXEL(image, device(image, sideMiddles[side]), lit ? red : background, 16);
    }
    NEREON_VERIFY_PIXEL(image, device(image, QPointF(100, 100)), background, 0);
}

void TestPainter::circleIsRoundOnScreen()
{
    prepareCanvas(240, 120);
    // Radius 0.5 of the vertical half-height: 30 pixels both ways.
    canvas->draw
        = [](Canvas&, OpenGLWidgetPainter& painter) { painter.drawCircle(QPointF(0.0, 0.0), 0.5f, 3, red); };
    const QImage image = canvas->grabFramebuffer();
    NEREON_VERIFY_PIXEL(image, device(image, QPointF(150, 60)), red, 16);
    NEREON_VERIFY_PIXEL(image, device(image, QPointF(120, 30)), red, 16);
    NEREON_VERIFY_PIXEL(image, device(image, QPointF(90, 60)), red, 16);
    NEREON_VERIFY_PIXEL(image, device(image, QPointF(120, 90)), red, 16);
    NEREON_VERIFY_PIXEL(image, device(image, QPointF(120, 60)), background, 0);
    NEREON_VERIFY_PIXEL(image, device(image, QPointF(180, 60)), background, 0);
}

void TestPainter::imageCorner_data()
{
    QTest::addColumn<bool>("screenCoordinates");
    QTest::addColumn<QPointF>("at");
    QTest::addColumn<QPointF>("expectedCorner");

    QTest::newRow("clip") << true << QPointF(-0.5, 0.5) << QPointF(50, 40);
    // Scale a half and translation (0.25, 0): model (-0.5, 0.5) is clip (0, 0.25).
    QTest::newRow("model") << false << QPointF(-0.5, 0.5) << QPointF(100, 60);
}

void TestPainter::imageCorner()
{
    QFETCH(bool, screenCoordinates);
    QFETCH(QPointF, at);
    QFETCH(QPointF, expectedCorner);

    prepareCanvas(200, 160);
    canvas->scale(0.5f, 0.5f, 1.0f, true);
    canvas->translate(0.25f, 0.0f, 0.0f, true);
    const QColor green(0, 255, 0);
    QImage picture(12, 8, QImage::Format_ARGB32);
    picture.fill(green);
    canvas->draw = [&](Canvas&, OpenGLWidgetPainter& painter) {
        painter.drawImage(float(at.x()), float(at.y()), picture, screenCoordinates);
    };
    const QImage image = canvas->grabFramebuffer();

    // One picture pixel per device pixel, whatever the device pixel ratio.
    const QPoint corner = device(image, expectedCorner);
    NEREON_VERIFY_PIXEL(image, corner, green, 0);
    NEREON_VERIFY_PIXEL(image, corner + QPoint(11, 7), green, 0);
    NEREON_VERIFY_PIXEL(image, corner + QPoint(-1, 0), background, 0);
    NEREON_VERIFY_PIXEL(image, corner + QPoint(0, -1), background, 0);
    NEREON_VERIFY_PIXEL(image, corner + QPoint(12, 7), background, 0);
    NEREON_VERIFY_PIXEL(image, corner + QPoint(11, 8), background, 0);
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
    const QColor textColour(255, 255, 0);
    canvas->draw = [&](Canvas&, OpenGLWidgetPainter& painter) {
        painter.addFont(font, QColor(0, 0, 255));
        painter.setFont(painter.addFont(font, textColour));
        painter.drawText(0.0f, 0.0f, 0, "88.8m", static_cast<unsigned char>(anchor), true);
    };
    const QImage image = canvas->grabFramebuffer();
    const QRectF box = litBox(image);
    const QPointF point(120, 80);
    const auto describe = [&](const char* what) {
        return QStringLiteral("%1: lit box %2,%3 %4x%5 (picture: %6)")
            .arg(QLatin1String(what))
            .arg(box.x())
            .arg(box.y())
            .arg(box.width())
            .arg(box.height())
            .arg(TestSupport::saveFailurePicture(image, QStringLiteral("actual")));
    };
    if (box.isEmpty())
        QFAIL(qPrintable(describe("no text")));
    if (box.width() < 30 || box.width() > 90 || box.height() < 10 || box.height() > 22)
        QFAIL(qPrintable(describe("size")));

    const double tolerance = 3.0;
    switch (anchor & 0x0f) {
    case 0x00:
        if (std::abs(box.left() - point.x()) > tolerance)
            QFAIL(qPrintable(describe("start not at the point")));
        break;
    case 0x02:
        if (std::abs(box.right() - point.x()) > tolerance)
            QFAIL(qPrintable(describe("end not at the point")));
        break;
    default:
        if (std::abs(box.center().x() - point.x()) > tolerance)
            QFAIL(qPrintable(describe("not centred horizontally")));
    }
    if (anchor & 0x20) {
        // The font's ascent sits a little above the digits' tops.
        if (box.top() < point.y() - 1 || box.top() > point.y() + 6)
            QFAIL(qPrintable(describe("top not at the point")));
    } else if (std::abs(box.center().y() - point.y()) > tolerance) {
        QFAIL(qPrintable(describe("not centred vertically")));
    }

    // The selected font's colour, not the first registered one.
    const QPoint brightest = device(image, box.center());
    bool yellowFound = false;
    for (int dy = -4; dy <= 4 && !yellowFound; ++dy) {
        for (int x = 0; x < image.width() && !yellowFound; ++x)
            yellowFound = TestSupport::pixelMatches(image, QPoint(x, brightest.y() + dy), textColour, 40);
    }
    if (!yellowFound)
        QFAIL(qPrintable(describe("text not in the selected colour")));
}

void TestPainter::rangeLabelsReadUpright_data()
{
    QTest::addColumn<float>("aperture");
    QTest::addColumn<int>("startAngle");
    QTest::addColumn<bool>("rightHand");
    QTest::addColumn<float>("rotation");

    // A half-disc fan has horizontal labels when turned by 90 or 270 degrees,
    // a needle-thin one when upright or upside down; both have vertical ones otherwise.
    for (const float rotation : { 0.0f, 90.0f, 180.0f, 270.0f }) {
        for (const bool right : { true, false }) {
            const char* side = right ? "right" : "left";
            QTest::addRow("half-disc %s %g", side, double(rotation)) << 180.0f << 0 << right << rotation;
            QTest::addRow("needle %s %g", side, double(rotation)) << 0.0f << 90 << right << rotation;
        }
    }
}

void TestPainter::rangeLabelsReadUpright()
{
    QFETCH(float, aperture);
    QFETCH(int, startAngle);
    QFETCH(bool, rightHand);
    QFETCH(float, rotation);

    const LabelPlacement label = rangeLabel(aperture, startAngle, rightHand, rotation);
    const double edge = (rightHand ? 90.0 - aperture / 2.0 : 90.0 + aperture / 2.0) * M_PI / 180.0;
    const float x = float(std::cos(edge) * 0.6);
    const float y = float(std::sin(edge) * 0.6);

    prepareCanvas(240, 240);
    canvas->scale(0.8f, 0.8f, 1.0f, true);
    canvas->rotate(rotation, true);
    QFont font;
    font.setPixelSize(20);
    canvas->draw = [&](Canvas&, OpenGLWidgetPainter& painter) {
        painter.setFont(painter.addFont(font, QColor(255, 255, 255)));
        painter.drawText(x, y, label.angle, "TTTT", label.anchor, false);
    };
    const QImage image = canvas->grabFramebuffer();
    const QRectF box = litBox(image);
    const QVector3D clip = canvas->getCurrentProjection().map(QVector3D(x, y, 0.0f));
    const QPointF point((clip.x() + 1.0) * 120.0, (1.0 - clip.y()) * 120.0);
    const auto describe = [&](const char* what) {
        return QStringLiteral("%1: lit box %2,%3 %4x%5, point %6,%7 (picture: %8)")
            .arg(QLatin1String(what))
            .arg(box.x())
            .arg(box.y())
            .arg(box.width())
            .arg(box.height())
            .arg(point.x())
            .arg(point.y())
            .arg(TestSupport::saveFailurePicture(image, QStringLiteral("actual")));
    };
    if (box.isEmpty())
        QFAIL(qPrintable(describe("no text")));

    // Outside the fan: the whole text lies beyond its point, away from the edge.
    const double slack = 2.0;
    if ((label.outward.x() > 0.5 && box.left() < point.x() - slack)
        || (label.outward.x() < -0.5 && box.right() > point.x() + slack)
        || (label.outward.y() > 0.5 && box.bottom() > point.y() + slack)
        || (label.outward.y() < -0.5 && box.top() < point.y() - slack))
        QFAIL(qPrintable(describe("text not on the outer side of its point")));

    const bool horizontal = std::abs(label.outward.x()) > 0.5;
    if (horizontal != (box.width() > box.height()))
        QFAIL(qPrintable(describe(
            horizontal ? "horizontal label not wider than tall" : "vertical label not taller than wide")));
    if (horizontal) {
        // The bars of the Ts are on top when the text is upright.
        const QRectF upperQuarter(box.left(), box.top(), box.width(), box.height() / 4);
        const QRectF lowerQuarter(box.left(), box.bottom() - box.height() / 4, box.width(), box.height() / 4);
        if (litCount(image, upperQuarter) <= 2 * litCount(image, lowerQuarter))
            QFAIL(qPrintable(describe("text upside down")));
    }
}

void TestPainter::glStateLeftSane()
{
    prepareCanvas(160, 120);
    canvas->makeCurrent();
    TestSupport::GlErrorWatcher watcher(canvas->context());
    canvas->doneCurrent();

    QImage picture(4, 4, QImage::Format_ARGB32);
    picture.fill(Qt::white);
    GLboolean blend = GL_TRUE;
    GLboolean scissor = GL_TRUE;
    GLfloat clear[4] = {};
    GLint blendSource = 0;
    GLint blendDestination = 0;
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
        gl.glGetIntegerv(GL_BLEND_SRC_RGB, &blendSource);
        gl.glGetIntegerv(GL_BLEND_DST_RGB, &blendDestination);
    };
    canvas->grabFramebuffer();

    QCOMPARE(blend, GLboolean(GL_FALSE));
    QCOMPARE(scissor, GLboolean(GL_FALSE));
    // The widgets set their clear colour only when it changes.
    QCOMPARE(clear[0], 0.25f);
    QCOMPARE(clear[1], 0.5f);
    QCOMPARE(clear[2], 0.75f);
    // Raw GL that blends relies on the function it set, not on QPainter's.
    QCOMPARE(blendSource, GLint(GL_SRC_ALPHA));
    QCOMPARE(blendDestination, GLint(GL_ONE));
    canvas->makeCurrent();
    for (const QOpenGLDebugMessage& message : watcher.errors())
        QFAIL(qPrintable(message.message()));
}

void TestPainter::logos_data()
{
    QTest::addColumn<bool>("twoColours");
    QTest::addColumn<bool>("setColours");
    QTest::addColumn<QColor>("first");
    QTest::addColumn<QColor>("second");

    QTest::newRow("maker, default colours") << true << false << QColor(255, 255, 255) << QColor(30, 144, 255);
    QTest::newRow("maker, own colours") << true << true << QColor(220, 40, 40) << QColor(40, 200, 60);
    QTest::newRow("product, default colour") << false << false << QColor(255, 255, 255) << QColor();
    QTest::newRow("product, own colour") << false << true << QColor(250, 160, 20) << QColor();
}

void TestPainter::logos()
{
    QFETCH(bool, twoColours);
    QFETCH(bool, setColours);
    QFETCH(QColor, first);
    QFETCH(QColor, second);

    std::unique_ptr<QWidget> logo;
    QSize natural;
    if (twoColours) {
        auto maker = std::make_unique<TernwickLogo>(nullptr);
        if (setColours) {
            maker->setPrimaryColour(first);
            maker->setSecondaryColour(second);
        }
        natural = maker->getSvgSize();
        logo = std::move(maker);
    } else {
        auto product = std::make_unique<NereonLogo>(nullptr);
        if (setColours)
            product->setColour(first);
        natural = product->getSvgSize();
        logo = std::move(product);
    }
    QVERIFY(!natural.isEmpty());

    // As the display renders them: a twelfth of its height, never shown.
    const int height = 60;
    const int width = int(float(natural.width()) / float(natural.height()) * float(height));
    logo->setStyleSheet(QStringLiteral("background: transparent;"));
    logo->setFixedSize(width, height);
    const QImage image = logo->grab().toImage().convertToFormat(QImage::Format_ARGB32);
    QVERIFY(!logo->isVisible());

    const auto describe = [&](const char* what) {
        return QStringLiteral("%1 (picture: %2)")
            .arg(QLatin1String(what))
            .arg(TestSupport::saveFailurePicture(image, QStringLiteral("actual")));
    };
    for (const QPoint corner : { QPoint(0, 0), QPoint(image.width() - 1, 0), QPoint(0, image.height() - 1),
             QPoint(image.width() - 1, image.height() - 1) }) {
        if (qAlpha(image.pixel(corner)) != 0)
            QFAIL(qPrintable(describe("corner not transparent")));
    }

    // Fully covered pixels of each colour, and nothing of any other opaque colour.
    int firstCount = 0, secondCount = 0, strayCount = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            if (pixel.alpha() < 250)
                continue;
            if (TestSupport::pixelMatches(image, QPoint(x, y), first, 2))
                ++firstCount;
            else if (second.isValid() && TestSupport::pixelMatches(image, QPoint(x, y), second, 2))
                ++secondCount;
            else
                ++strayCount;
        }
    }
    if (firstCount < 50)
        QFAIL(qPrintable(describe("too little of the first colour")));
    if (second.isValid() && secondCount < 50)
        QFAIL(qPrintable(describe("too little of the second colour")));
    if (strayCount > 0)
        QFAIL(qPrintable(describe("opaque pixels of another colour")));
}

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QApplication application(argc, argv);
    TestPainter test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_painter.moc"
