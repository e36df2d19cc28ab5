#include "GlTestSupport.h"

#include "gui/NereonLogo.h"
#include "gui/OpenGLWidget.h"
#include "gui/OpenGLWidgetPainter.h"
#include "gui/TernwickLogo.h"

#include <QApplication>
#include <QPixmap>
#include <QTest>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>

using namespace Halcyra::GUI::Widgets;
using Bases::OpenGLWidget;
using Bases::OpenGLWidgetPainter;

namespace {

const QColor black(0, 0, 0);
const QColor red(255, 0, 0);

using Drawing = std::function<void(OpenGLWidgetPainter&)>;

/// Clears to black, runs the case's painter calls and checks they raised no GL error and left the
/// GL state clean.
class Canvas : public OpenGLWidget
{
public:
    using OpenGLWidget::OpenGLWidget;
    Drawing draw;

protected:
    void paintGL() override
    {
        glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        if (!draw)
            return;
        // The widgets set their clear colour only when they change it, so the painter must keep it.
        glClearColor(0.25f, 0.5f, 0.75f, 1.0f);
        const TestSupport::GlErrorWatcher watcher(context());
        draw(painter());
        GLfloat clear[4] = {};
        glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
        QVERIFY(!glIsEnabled(GL_BLEND) && !glIsEnabled(GL_SCISSOR_TEST) && clear[2] == 0.75f);
        QVERIFY(watcher.errors().empty());
    }
};
using Points = QVector<QPointF>;

/// Bounding box, in device pixels, of the pixels that differ from black.
QRect litBox(const QImage& image)
{
    QRect box;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (!TestSupport::pixelMatches(image, QPoint(x, y), black, 60))
                box |= QRect(x, y, 1, 1);
    return box;
}

} // namespace

Q_DECLARE_METATYPE(Drawing)

class TestPainter : public QObject
{
    Q_OBJECT

    // One window for all GL cases: a child resizes at once, and a window and
    // context per case would cost more than the cases themselves.
    std::unique_ptr<QWidget> window;
    Canvas* canvas = nullptr;

    /// The drawing on a canvas of the given size and model transform.
    QImage paint(const Drawing& drawing, QSize size, QPointF scale, float rotation, QPointF shift = {})
    {
        canvas->resize(size);
        canvas->scale(float(scale.x()), float(scale.y()), 1.0f, true);
        canvas->rotate(rotation, true);
        canvas->translate(float(shift.x()), float(shift.y()), 0.0f, true);
        canvas->draw = drawing;
        const QImage image = canvas->grabFramebuffer();
        canvas->draw = nullptr; // it may capture the case's locals
        return image;
    }

private slots:
    void initTestCase()
    {
        window = std::make_unique<QWidget>();
        canvas = new Canvas(window.get());
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        canvas->grabFramebuffer();
        TestSupport::keepGlDriverLoaded();
    }

    void relativeTransform()
    {
        // Relative changes build on the last absolute ones (the shapes show the absolute
        // composition); the matrix read in between must not be served stale.
        OpenGLWidget w;
        w.translate(0.5f, -0.25f, 0.0f, true);
        w.rotate(90.0f, true);
        w.scale(2.0f, 3.0f, 1.0f, true);
        w.getCurrentProjection();
        w.scale(0.5f, 2.0f, 1.0f, false);
        w.translate(-0.3f, 0.05f, 0.0f, false);
        w.rotate(-60.0f, true);
        w.rotate(150.0f, false);
        QVERIFY(
            (w.getCurrentProjection().map(QPointF(1.0, 0.0)) - QPointF(0.2, 5.8)).manhattanLength() < 1e-5);
    }

    void shapes_data()
    {
        QTest::addColumn<Drawing>("drawing");
        QTest::addColumn<Points>("lit");
        QTest::addColumn<Points>("dark");

        // Canvas 240 x 160, model turned by 90 (counter-clockwise) first, then scaled by (0.5, 0.8),
        // then moved by (0.2, -0.1).
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
        // Radius 0.5 of the half-height is 40 pixels both ways, not 60 across.
        QTest::newRow("circle") << Drawing([](OpenGLWidgetPainter& p) {
            p.drawCircle(QPointF(), 0.5f, 3, red);
        }) << Points { { 160, 80 }, { 80, 80 }, { 120, 40 }, { 120, 120 } }
                                << Points { { 120, 80 }, { 180, 80 } };
        // A 12 x 8 picture's corner on clip (-0.5, 0.5), one picture pixel per device pixel.
        QTest::newRow("image corner") << Drawing([](OpenGLWidgetPainter& p) {
            QImage picture(12, 8, QImage::Format_ARGB32);
            picture.fill(red);
            p.drawImage(-0.5f, 0.5f, picture, true);
        }) << Points { { 60, 40 }, { 65, 43 } }
                                      << Points { { 59, 40 }, { 60, 39 }, { 72, 40 }, { 60, 48 } };
    }

    void shapes()
    {
        QFETCH(Drawing, drawing);
        QFETCH(Points, lit);
        QFETCH(Points, dark);

        const QImage image = paint(drawing, QSize(240, 160), QPointF(0.5, 0.8), 90.0f, QPointF(0.2, -0.1));
        for (const QPointF& point : lit)
            NEREON_VERIFY_PIXEL(image, (point * image.devicePixelRatio()).toPoint(), red, 16);
        for (const QPointF& point : dark)
            NEREON_VERIFY_PIXEL(image, (point * image.devicePixelRatio()).toPoint(), black, 8);
    }

    void textPlacement_data()
    {
        QTest::addColumn<float>("rotation");
        QTest::addColumn<QPointF>("point");
        QTest::addColumn<int>("angle");
        QTest::addColumn<int>("anchor");

        // Range labels on fans turned each way, with the angles the fan gives them.
        QTest::newRow("0, anchor 0x10") << 0.0f << QPointF(0, 0.6) << 0 << 0x10;
        QTest::newRow("90, anchor 0x12") << 90.0f << QPointF(0.6, 0) << -90 << 0x12;
        QTest::newRow("180, anchor 0x14") << 180.0f << QPointF(0, 0.6) << -180 << 0x14;
        QTest::newRow("270, anchor 0x24") << 270.0f << QPointF(-0.6, 0) << 90 << 0x24;
    }

    void textPlacement()
    {
        QFETCH(float, rotation);
        QFETCH(QPointF, point);
        QFETCH(int, angle);
        QFETCH(int, anchor);

        const auto text = [&](OpenGLWidgetPainter& painter) {
            QFont font;
            font.setPixelSize(20);
            painter.setFont(painter.addFont(font, QColor(255, 255, 0)));
            painter.drawText(float(point.x()), float(point.y()), angle, "TTTT", uchar(anchor), false);
        };
        const QImage image = paint(text, QSize(240, 240), QPointF(0.8, 0.8), rotation);
        const qreal ratio = image.devicePixelRatio();
        const QRect box = litBox(image);
        const QPointF clip = canvas->getCurrentProjection().map(point);
        const QPointF at = QPointF(clip.x() + 1.0, 1.0 - clip.y()) * 120.0 * ratio;

        // Every case reads level on screen, so its box sits by the anchor's rule; the font's
        // ascent sits a little above the tops of the letters. Upright: the bars of the Ts on top.
        const double x = anchor == 0x10 ? box.left() : anchor == 0x12 ? box.right() : box.center().x();
        const double y = anchor & 0x20 ? box.top() - 3 * ratio : box.center().y();
        const QSize quarter(box.width(), box.height() / 4);
        const int upper = TestSupport::countPixelsDiffering(image, QRect(box.topLeft(), quarter), black, 60);
        const int lower = TestSupport::countPixelsDiffering(
            image, QRect(box.bottomLeft() - QPoint(0, quarter.height() - 1), quarter), black, 60);
        if (box.width() < 30 * ratio || box.width() > 90 * ratio || box.height() > 22 * ratio
            || std::abs(x - at.x()) > 3 * ratio || std::abs(y - at.y()) > 4 * ratio || upper <= 2 * lower)
            QFAIL(qPrintable(
                QString::asprintf("lit box (%d, %d) %d x %d, anchor (%g, %g), top %d, bottom %d: ", box.x(),
                    box.y(), box.width(), box.height(), at.x(), at.y(), upper, lower)
                + TestSupport::saveFailurePicture(image, QStringLiteral("text"))));
    }

    void logos()
    {
        Displays::TernwickLogo maker;
        maker.setPrimaryColour(QColor(220, 40, 40));
        maker.setSecondaryColour(QColor(40, 200, 60));
        Displays::NereonLogo product;
        product.setColour(QColor(250, 160, 20));
        const std::pair<QWidget*, QVector<QColor>> cases[]
            = { { &maker, { QColor(220, 40, 40), QColor(40, 200, 60) } },
                  { &product, { QColor(250, 160, 20) } } };
        for (const auto& [logo, colours] : cases) {
            // As the display renders them: never shown, transparent, at their drawing's aspect.
            logo->setStyleSheet(QStringLiteral("background: transparent;"));
            logo->setFixedSize(logo->sizeHint().scaled(1000, 60, Qt::KeepAspectRatio));
            const QImage image = logo->grab().toImage().convertToFormat(QImage::Format_ARGB32);
            QCOMPARE(qAlpha(image.pixel(0, 0)), 0);

            // Fully covered pixels are of the requested colours only, and each colour is there.
            QVector<int> counts(colours.size() + 1); // the last for any other colour
            for (int y = 0; y < image.height(); ++y)
                for (int x = 0; x < image.width(); ++x)
                    if (qAlpha(image.pixel(x, y)) >= 250)
                        ++counts[std::find_if(colours.begin(), colours.end(), [&](const QColor& colour) {
                            return TestSupport::pixelMatches(image, QPoint(x, y), colour, 2);
                        }) - colours.begin()];
            const int fewest = *std::min_element(counts.begin(), counts.end() - 1);
            QVERIFY2(counts.back() == 0 && fewest > 50,
                qPrintable(QStringLiteral("%1: %2 other, fewest %3")
                               .arg(logo->metaObject()->className())
                               .arg(counts.back())
                               .arg(fewest)));
        }
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
