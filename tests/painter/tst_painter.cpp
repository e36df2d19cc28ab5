#include "GlTestSupport.h"

#include "gui/NereonLogo.h"
#include "gui/OpenGLWidget.h"
#include "gui/OpenGLWidgetPainter.h"
#include "gui/TernwickLogo.h"

#include <QApplication>
#include <QPixmap>
#include <QTest>

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

using Drawing = std::function<void(OpenGLWidgetPainter&)>;
using Points = QVector<QPointF>;

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
    return QString::asprintf(
        "%s: lit box (%g, %g) %g x %g", what, box.x(), box.y(), box.width(), box.height());
}

} // namespace

/// QVERIFY2 that saves the picture and builds its message only when the check fails.
#define VERIFY_PICTURE(condition, image, message)                                                            \
    do {                                                                                                     \
        if (!(condition))                                                                                    \
            QFAIL(qPrintable(QString(message) + QStringLiteral(", picture ")                                 \
                + TestSupport::saveFailurePicture((image), QStringLiteral("actual"))));                      \
    } while (false)

Q_DECLARE_METATYPE(Drawing)

class TestPainter : public QObject
{
    Q_OBJECT

    // One window for all GL cases: a child resizes at once, and a window and
    // context per case would cost more than the cases themselves.
    std::unique_ptr<QWidget> window;
    Canvas* canvas = nullptr;
    QFont font;

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
        font.setPixelSize(20);
    }

    // The drawing captures the finished case's locals; a later repaint must not run it.
    void cleanup() { canvas->draw = nullptr; }

    void modelTransform()
    {
        // Rotated (counter-clockwise) first, then scaled, then translated; relative changes
        // build on the last absolute one; a matrix read between changes must not be served
        // stale afterwards.
        const auto map = [](OpenGLWidget& w) { return w.getCurrentProjection().map(QPointF(1.0, 0.0)); };
        OpenGLWidget w;
        w.translate(0.5f, -0.25f, 0.0f, true);
        w.rotate(90.0f, true);
        w.scale(2.0f, 3.0f, 1.0f, true);
        QVERIFY((map(w) - QPointF(0.5, 2.75)).manhattanLength() < 1e-5);
        w.scale(2.0f, 2.0f, 1.0f, true);
        w.scale(0.5f, 3.0f, 1.0f, false);
        w.translate(1.0f, 1.0f, 0.0f, false);
        w.rotate(45.0f, false);
        map(w);
        w.translate(0.1f, 0.2f, 0.0f, true);
        w.translate(0.1f, -0.4f, 0.0f, false);
        w.rotate(30.0f, true);
        w.rotate(60.0f, false);
        QVERIFY2((map(w) - QPointF(0.2, 5.8)).manhattanLength() < 1e-5,
            qPrintable(QStringLiteral("(%1, %2)").arg(map(w).x()).arg(map(w).y())));
    }

    void shapes_data()
    {
        QTest::addColumn<Drawing>("drawing");
        QTest::addColumn<Points>("lit");
        QTest::addColumn<Points>("dark");

        // Canvas 240 x 160, model turned by 90, scaled (0.5, 0.8), moved by (0.2, -0.1).
        const auto line = [](float x1, float y1, float x2, float y2, bool clip) {
            return Drawing([=](OpenGLWidgetPainter& p) { p.drawLine(x1, y1, x2, y2, 5, red, clip); });
        };
        QTest::newRow("line, clip") << line(-0.5f, 0.5f, 0.5f, 0.5f, true)
                                    << Points { { 120, 40 }, { 70, 40 } }
                                    << Points { { 120, 52 }, { 190, 40 } };
        // The model x axis lands on clip x 0.2 from y -0.1 to 0.7: pixels x 144, y 88 up to 24.
        QTest::newRow("line, model") << line(0.0f, 0.0f, 1.0f, 0.0f, false)
                                     << Points { { 144, 56 }, { 144, 30 } }
                                     << Points { { 156, 56 }, { 144, 100 } };

        // A clip square from pixel (60, 40) to (180, 120): sides top, right, bottom, left.
        const auto square = [](bool connected, bool closed) {
            return Drawing([=](OpenGLWidgetPainter& p) {
                p.drawLines(
                    { -0.5f, 0.5f, 0.5f, 0.5f, 0.5f, -0.5f, -0.5f, -0.5f }, 3, red, true, connected, closed);
            });
        };
        const QPointF top(120, 40), right(180, 80), bottom(120, 120), left(60, 80), centre(120, 80);
        QTest::newRow("separate segments")
            << square(false, false) << Points { top, bottom } << Points { right, left, centre };
        QTest::newRow("open line") << square(true, false) << Points { top, right, bottom } << Points { left };
        QTest::newRow("closed line") << square(true, true) << Points { top, right, bottom, left }
                                     << Points { centre };

        // Radius 0.5 of the half-height is 40 pixels both ways, not 60 across.
        QTest::newRow("circle") << Drawing([](OpenGLWidgetPainter& p) {
            p.drawCircle(QPointF(), 0.5f, 3, red);
        }) << Points { { 160, 80 }, { 80, 80 }, { 120, 40 }, { 120, 120 } }
                                << Points { centre, { 180, 80 } };
    }

    void shapes()
    {
        QFETCH(Drawing, drawing);
        QFETCH(Points, lit);
        QFETCH(Points, dark);

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

    void imageCorner()
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

    void textPlacement_data()
    {
        QTest::addColumn<float>("rotation");
        QTest::addColumn<QPointF>("point");
        QTest::addColumn<int>("angle");
        QTest::addColumn<int>("anchor");
        QTest::addColumn<bool>("screen");

        // Screen coordinates, one row per anchor.
        for (const int anchor : { 0x10, 0x12, 0x14, 0x24 })
            QTest::addRow("anchor 0x%x", anchor) << 0.0f << QPointF(0.2, -0.1) << 0 << anchor << true;
        // Range labels at the edges of a half-disc fan turned sideways and of a needle-thin
        // one upright or upside down, with the angles and anchors the fan gives them.
        QTest::newRow("half disc, right, 90") << 90.0f << QPointF(0.6, 0) << -90 << 0x10 << false;
        QTest::newRow("half disc, left, 90") << 90.0f << QPointF(-0.6, 0) << -90 << 0x10 << false;
        QTest::newRow("half disc, right, 270") << 270.0f << QPointF(0.6, 0) << -270 << 0x12 << false;
        QTest::newRow("half disc, left, 270") << 270.0f << QPointF(-0.6, 0) << 90 << 0x12 << false;
        QTest::newRow("needle, right, 0") << 0.0f << QPointF(0, 0.6) << 0 << 0x10 << false;
        QTest::newRow("needle, left, 0") << 0.0f << QPointF(0, 0.6) << 0 << 0x12 << false;
        QTest::newRow("needle, right, 180") << 180.0f << QPointF(0, 0.6) << -180 << 0x12 << false;
        QTest::newRow("needle, left, 180") << 180.0f << QPointF(0, 0.6) << -180 << 0x10 << false;
    }

    void textPlacement()
    {
        QFETCH(float, rotation);
        QFETCH(QPointF, point);
        QFETCH(int, angle);
        QFETCH(int, anchor);
        QFETCH(bool, screen);

        prepareCanvas(240, 240);
        canvas->scale(0.8f, 0.8f, 1.0f, true);
        canvas->rotate(rotation, true);
        const QColor yellow(255, 255, 0);
        canvas->draw = [&](Canvas&, OpenGLWidgetPainter& painter) {
            painter.addFont(font, QColor(0, 0, 255));
            painter.setFont(painter.addFont(font, yellow));
            painter.drawText(float(point.x()), float(point.y()), angle, "TTTT", uchar(anchor), screen);
        };
        const QImage image = canvas->grabFramebuffer();
        const QRectF box = litBox(image);
        const QPointF clip = screen ? point : canvas->getCurrentProjection().map(point);
        const QPointF at((clip.x() + 1.0) * 120.0, (1.0 - clip.y()) * 120.0);

        // Every case reads level on screen, so its box sits by the anchor's rule.
        VERIFY_PICTURE(box.width() > 30 && box.width() < 90 && box.height() > 10 && box.height() < 22, image,
            describeBox(box, "size"));
        const double x = anchor == 0x10 ? box.left() : anchor == 0x12 ? box.right() : box.center().x();
        VERIFY_PICTURE(std::abs(x - at.x()) <= 3.0, image, describeBox(box, "horizontal placement"));
        // The font's ascent sits a little above the tops of the letters.
        const bool vertical = anchor & 0x20 ? box.top() >= at.y() - 1 && box.top() <= at.y() + 6
                                            : std::abs(box.center().y() - at.y()) <= 3.0;
        VERIFY_PICTURE(vertical, image, describeBox(box, "vertical placement"));

        // Upright: the bars of the Ts on top; in the selected font's colour, not the first one's.
        const QSizeF quarter(box.width(), box.height() / 4);
        const int upper = litCount(image, QRectF(box.topLeft(), quarter));
        const int lower = litCount(image, QRectF(box.bottomLeft() - QPointF(0, quarter.height()), quarter));
        VERIFY_PICTURE(upper > 2 * lower, image, describeBox(box, "upside down"));
        const int notYellow = TestSupport::countPixelsDiffering(image, image.rect(), yellow, 40);
        VERIFY_PICTURE(notYellow < image.width() * image.height(), image, describeBox(box, "colour"));
    }

    void glStateLeftSane()
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

    void logos_data()
    {
        QTest::addColumn<bool>("product");
        QTest::addColumn<QColor>("first");
        QTest::addColumn<QColor>("second");
        QTest::newRow("maker, default colours") << false << QColor(255, 255, 255) << QColor(30, 144, 255);
        QTest::newRow("maker, own colours") << false << QColor(220, 40, 40) << QColor(40, 200, 60);
        QTest::newRow("product, own colour") << true << QColor(250, 160, 20) << QColor();
    }

    void logos()
    {
        QFETCH(bool, product);
        QFETCH(QColor, first);
        QFETCH(QColor, second);
        std::unique_ptr<QWidget> logo;
        QSize natural;
        if (product) {
            auto* nereon = new Displays::NereonLogo;
            nereon->setColour(first);
            logo.reset(nereon);
            natural = nereon->getSvgSize();
        } else {
            auto* maker = new Displays::TernwickLogo;
            if (first != QColor(Qt::white)) {
                maker->setPrimaryColour(first);
                maker->setSecondaryColour(second);
            }
            logo.reset(maker);
            natural = maker->getSvgSize();
        }
        // As the display renders them: never shown, transparent, its drawing's aspect.
        QVERIFY(!natural.isEmpty());
        logo->setStyleSheet(QStringLiteral("background: transparent;"));
        logo->setFixedSize(natural.width() * 60 / natural.height(), 60);
        const QImage image = logo->grab().toImage().convertToFormat(QImage::Format_ARGB32);

        for (const QPoint corner :
            { QPoint(0, 0), image.rect().topRight(), image.rect().bottomLeft(), image.rect().bottomRight() })
            VERIFY_PICTURE(qAlpha(image.pixel(corner)) == 0, image, QStringLiteral("corner not transparent"));

        // Fully covered pixels are of the requested colours only.
        int counts[3] = {}; // first, second, any other
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                if (qAlpha(image.pixel(x, y)) >= 250)
                    ++counts[TestSupport::pixelMatches(image, QPoint(x, y), first, 2) ? 0
                            : second.isValid() && TestSupport::pixelMatches(image, QPoint(x, y), second, 2)
                            ? 1
                            : 2];
        VERIFY_PICTURE(counts[0] > 50 && (!second.isValid() || counts[1] > 50) && counts[2] == 0, image,
            QStringLiteral("colour counts %1, %2, other %3").arg(counts[0]).arg(counts[1]).arg(counts[2]));
    }
};

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QApplication application(argc, argv);
    TestPainter test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_painter.moc"
