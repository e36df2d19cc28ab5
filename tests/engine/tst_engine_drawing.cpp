// The engine's GL side: intensity texture, vertex buffer, shader program and
// the pictures it draws, checked through a small widget on the host GL base.

#include "FanDisplay.h"
#include "FanGeometryEngineProbe.h"
#include "GlTestSupport.h"
#include "TestFrames.h"
#include "display/FanDisplayPrivate.h"
#include "engine/GaussianSmoother.h"

#include "gui/OpenGLWidget.h"

#include <QApplication>
#include <QOpenGLContext>
#include <QOpenGLFunctions_2_0>
#include <QtTest>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

namespace Halcyra::Nereon::Visualisation {
struct FanDisplayProbe
{
    static FanGeometryEngine& engine(FanDisplay& display) { return display.d->geometryEngine; }
};
} // namespace Halcyra::Nereon::Visualisation

using namespace Halcyra::Nereon::Visualisation;
using Halcyra::GUI::Widgets::Bases::OpenGLWidget;
using Halcyra::Nereon::NereonImage;
using TestSupport::makeFrame;
using TestSupport::uniformFrame;
namespace Options = FanDisplayOptions;

Q_DECLARE_METATYPE(Options::Palette)

namespace {

const QColor clearColour(20, 30, 40);
constexpr int widgetSize = 200;
// The fan is moved down so that its apex sits near the bottom edge.
constexpr float apexOffset = -0.8f;

/// Draws the engine's fan image over a cleared background, nothing else.
class FanTestWidget : public OpenGLWidget
{
public:
    FanGeometryEngine engine;

protected:
    void initialise() override
    {
        engine.initFanImageShaders();
        engine.initPalettes();
        engine.initIntensities(1, 1, { 0 });
    }
    void paintGL() override
    {
        glClearColor(clearColour.redF(), clearColour.greenF(), clearColour.blueF(), 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        engine.drawFanImage(getCurrentProjection());
    }
};

/// Pixel of the widget at a point of the fan, in degrees anticlockwise from the right and radii.
QPoint pixelAt(double degrees, double radius)
{
    const double a = qDegreesToRadians(degrees);
    return QPoint(int((radius * std::cos(a) + 1.0) / 2.0 * widgetSize),
        int((1.0 - radius * std::sin(a) - double(apexOffset)) / 2.0 * widgetSize));
}

} // namespace

class TestEngineDrawing : public QObject
{
    Q_OBJECT

    std::unique_ptr<FanTestWidget> widget;
    FanGeometryEngine* engine = nullptr;
    std::unique_ptr<FanGeometryEngineProbe> inspect;
    // Every test's GL calls are checked at the end.
    std::unique_ptr<TestSupport::GlErrorWatcher> errorWatcher;
    QOpenGLFunctions_2_0* gl = nullptr;

    QImage grab() { return widget->grabFramebuffer(); }

    /// The intensity texture's texels as fractions of full scale, row by row.
    std::vector<float> readIntensityTexture(int textureWidth, int textureHeight)
    {
        QOpenGLTexture* texture = inspect->intensities();
        if (texture->width() != textureWidth || texture->height() != textureHeight)
            return {};
        widget->makeCurrent();
        std::vector<float> texels(std::size_t(textureWidth) * std::size_t(textureHeight));
        gl->glPixelStorei(GL_PACK_ALIGNMENT, 1);
        texture->bind();
        gl->glGetTexImage(GL_TEXTURE_2D, 0, GL_RED, GL_FLOAT, texels.data());
        texture->release();
        return texels;
    }

private slots:
    void initTestCase()
    {
        widget = std::make_unique<FanTestWidget>();
        widget->resize(widgetSize, widgetSize);
        widget->translate(0.0f, apexOffset, 0.0f, true);
        widget->show();
        QVERIFY(QTest::qWaitForWindowExposed(widget.get()));
        TestSupport::keepGlDriverLoaded();
        engine = &widget->engine;
        inspect = std::make_unique<FanGeometryEngineProbe>(*engine);
        widget->makeCurrent();
        errorWatcher = std::make_unique<TestSupport::GlErrorWatcher>(widget->context());
        QVERIFY(errorWatcher->isLogging());
        gl = TestSupport::gl20Functions(widget->context());
        QVERIFY(gl);
    }

    void init()
    {
        engine->setBackgroundProcessing(false);
        engine->setPalette(Options::Greyscale);
        engine->setDespeckleLevel(0);
        if (inspect->flipped())
            engine->horizontalFlip();
        inspect->lowerThreshold() = 0.0f;
        inspect->upperThreshold() = 1.0f;
    }

    void cleanupTestCase()
    {
        widget->makeCurrent();
        QCOMPARE(gl->glGetError(), GLenum(GL_NO_ERROR));
        for (const QOpenGLDebugMessage& message : errorWatcher->errors())
            QFAIL(qPrintable(message.message()));
    }

    void intensityTextureHoldsLastFrame()
    {
        // Rows of 13 bytes are not 4-aligned; of three frames only the last reaches GL.
        NereonImage frame;
        for (int seed = 1; seed <= 3; ++seed)
            engine->processNewImage(frame = makeFrame(13, 7, 20.0, [seed](int beam, int line) {
                return std::uint8_t(beam * 37 + line * 101 * seed);
            }));
        grab();
        QOpenGLTexture* texture = inspect->intensities();
        QVERIFY(texture->width() == 13 && texture->height() == 7);
        widget->makeCurrent();
        std::vector<std::uint8_t> texels(13 * 7);
        gl->glPixelStorei(GL_PACK_ALIGNMENT, 1);
        texture->bind();
        gl->glGetTexImage(GL_TEXTURE_2D, 0, GL_RED, GL_UNSIGNED_BYTE, texels.data());
        texture->release();
        QVERIFY(texels == frame.getData());
    }

    void fanVertexBuffer()
    {
        const auto verifyBuffer = [&](const std::vector<float>& expected) {
            widget->makeCurrent();
            QOpenGLBuffer& buffer = inspect->fanVertexBuffer();
            buffer.bind(); // the size is only known while bound
            std::vector<float> actual(std::size_t(buffer.size()) / sizeof(float));
            buffer.read(0, actual.data(), buffer.size());
            buffer.release();
            QVERIFY(std::equal(actual.begin(), actual.end(), expected.begin(), expected.end(),
                [](float a, float b) { return std::abs(a - b) < 1e-4f; }));
        };

        // Two triangles of x, y, s, t for three beams, then a never-drawn third.
        engine->processNewImage(uniformFrame(3, 4, 10.0, 0));
        grab();
        std::vector<float> triangles = { 0, 0, 0, 0, -0.9063f, 0.4226f, 0, 1, 0, 1, 0.5f, 1, //
            0, 0, 0.5f, 0, 0, 1, 0.5f, 1, 0.9063f, 0.4226f, 1, 1, //
            0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 };
        verifyBuffer(triangles);

        // The mirror changes only the s coordinates.
        engine->horizontalFlip();
        grab();
        for (std::size_t i : { 2, 6, 10, 14, 18, 22 })
            triangles[i] = 1.0f - triangles[i];
        verifyBuffer(triangles);
    }

    void paletteColours_data()
    {
        QTest::addColumn<Options::Palette>("palette");
        QTest::addColumn<QVector<QColor>>("bands");
        // Bytes 0 and 255 are held at the thresholds 0.25 and 0.75, between two entries; 128 shows
        // its own entry.
        QTest::newRow("Multicolour") << Options::Multicolour
                                     << QVector<QColor> { { 0, 32, 190 }, { 52, 173, 202 }, { 255, 255, 0 } };
        QTest::newRow("Fire") << Options::Fire
                              << QVector<QColor> { { 126, 0, 0 }, { 255, 0, 0 }, { 255, 127, 2 } };
        QTest::newRow("Aqua") << Options::Aqua
                              << QVector<QColor> { { 4, 20, 96 }, { 8, 40, 128 }, { 29, 145, 96 } };
    }
    void paletteColours()
    {
        QFETCH(Options::Palette, palette);
        QFETCH(QVector<QColor>, bands);
        engine->setPalette(palette);
        engine->setPaletteModifier(128);
        // Three bands along the range: 0 near, 128 in the middle, 255 far.
        engine->processNewImage(makeFrame(256, 90, 30.0, [](int, int line) {
            return std::uint8_t(line < 30 ? 0 : line < 60 ? 128 : 255);
        }));
        inspect->lowerThreshold() = 0.25f;
        inspect->upperThreshold() = 0.75f;
        const QImage picture = grab();
        for (int band = 0; band < 3; ++band)
            NEREON_VERIFY_PIXEL(picture, pixelAt(60.0, (2 * band + 1) / 6.0), bands[band], 3);
        // Beside the fan and beyond its rim.
        NEREON_VERIFY_PIXEL(picture, pixelAt(10.0, 0.5), clearColour, 0);
        NEREON_VERIFY_PIXEL(picture, pixelAt(90.0, 1.05), clearColour, 0);
    }

    void mirroredFanSwapsSides()
    {
        // The first beams are the leftmost.
        engine->processNewImage(
            makeFrame(256, 32, 10.0, [](int beam, int) { return std::uint8_t(beam < 128 ? 40 : 220); }));
        const QPoint left = pixelAt(125.0, 0.6), right = pixelAt(55.0, 0.6);
        const QImage plain = grab();
        QVERIFY(plain.pixelColor(left).red() + 100 < plain.pixelColor(right).red());
        engine->horizontalFlip();
        const QImage mirrored = grab();
        NEREON_VERIFY_PIXEL(mirrored, left, plain.pixelColor(right), 1);
        NEREON_VERIFY_PIXEL(mirrored, right, plain.pixelColor(left), 1);
    }

    void despeckle()
    {
        // A checkerboard shows any smoothing: one tap through the kernel must leave it as it is,
        // 3 x 3 must even it out to nearly uniform grey.
        engine->processNewImage(makeFrame(
            32, 32, 10.0, [](int beam, int line) { return std::uint8_t((beam + line) % 2 * 255); }));
        const QImage level0 = grab();
        engine->setDespeckleLevel(1);
        QVERIFY(grab() == level0);
        engine->setDespeckleLevel(3);
        const QImage smoothed = grab();
        const QRect box(pixelAt(90.0, 0.65) - QPoint(15, 0), QSize(31, 31));
        // The greyscale palette puts the half-way byte at about 150.
        if (TestSupport::countPixelsDiffering(smoothed, box, QColor(153, 153, 153), 20) > 0)
            QFAIL(qPrintable(TestSupport::saveFailurePicture(smoothed, QStringLiteral("level3"))));
        // Back to no smoothing without a new frame: the stored frame is shown as it came.
        engine->setDespeckleLevel(0);
        QVERIFY(grab() == level0);
    }

    void everyPaintShowsTheNewestFrame_data()
    {
        QTest::addColumn<bool>("background");
        QTest::newRow("on the GUI thread") << false;
        QTest::newRow("on the worker") << true;
    }
    void everyPaintShowsTheNewestFrame()
    {
        // Frames of changing size in quick succession, kernel sizes changed before a frame, after
        // it and without one: a paint right after shows the newest frame, smoothed bit for bit as
        // the filter smooths it.
        QFETCH(bool, background);
        engine->setBackgroundProcessing(background);
        struct Step
        {
            int beams, rangeLines, level;
            bool levelFirst, newFrames;
        };
        const Step steps[] = { { 40, 30, 0, false, true }, { 40, 30, 5, false, true },
            { 13, 7, 5, true, true }, { 13, 7, 9, false, false }, { 300, 500, 9, true, true },
            { 300, 500, 0, false, false }, { 64, 100, 3, false, true }, { 50, 60, 0, true, true } };
        NereonImage frame;
        int seed = 0;
        for (const Step& step : steps) {
            if (step.levelFirst)
                engine->setDespeckleLevel(step.level);
            for (int i = 0; step.newFrames && i < 3; ++i) {
                ++seed;
                engine->processNewImage(
                    frame = makeFrame(step.beams, step.rangeLines, 10.0, [seed](int beam, int line) {
                        return std::uint8_t((beam * 37 + line * 11 * seed) % 251);
                    }));
            }
            engine->setDespeckleLevel(step.level);
            grab();

            QOpenGLTexture* texture = inspect->intensities();
            QVERIFY(texture->width() == step.beams && texture->height() == step.rangeLines);
            const std::size_t texels = frame.getData().size();
            const int radius = GaussianSmoother::radiusForLevel(step.level);
            std::vector<std::uint16_t> expected(frame.getData().begin(), frame.getData().end());
            if (radius > 0)
                GaussianSmoother().apply(
                    frame.getData().data(), step.beams, step.rangeLines, radius, expected);
            std::vector<std::uint16_t> actual(texels);
            widget->makeCurrent();
            gl->glPixelStorei(GL_PACK_ALIGNMENT, 1);
            texture->bind();
            if (radius > 0) {
                gl->glGetTexImage(GL_TEXTURE_2D, 0, GL_RED, GL_UNSIGNED_SHORT, actual.data());
            } else {
                std::vector<std::uint8_t> bytes(texels);
                gl->glGetTexImage(GL_TEXTURE_2D, 0, GL_RED, GL_UNSIGNED_BYTE, bytes.data());
                actual.assign(bytes.begin(), bytes.end());
            }
            texture->release();
            QVERIFY2(actual == expected,
                qPrintable(QStringLiteral("frame %1, level %2").arg(seed).arg(step.level)));
        }
    }

    void displayGoneBeforeItsRepaint_data()
    {
        QTest::addColumn<bool>("announced");
        QTest::newRow("repaint posted") << true;
        QTest::newRow("frame still on the worker") << false;
    }
    void displayGoneBeforeItsRepaint()
    {
        // A display asks for its repaint from the engine's worker; the request must neither
        // reach a display destroyed meanwhile nor keep the worker waiting.
        QFETCH(bool, announced);
        auto display = std::make_unique<FanDisplay>();
        display->setBackgroundFrameProcessing(true);
        display->resize(120, 90);
        display->show();
        QVERIFY(QTest::qWaitForWindowExposed(display.get()));
        QSignalSpy swapped(display.get(), &QOpenGLWidget::frameSwapped);
        const NereonImage frame = uniformFrame(512, 1000, 10.0, 90);
        display->newImageReceived(frame);
        QTRY_VERIFY_WITH_TIMEOUT(!swapped.isEmpty(), 30000); // the frame alone brings its paint

        display->newImageReceived(frame);
        if (announced) // the counts are in, so the repaint has been posted
            FanDisplayProbe::engine(*display).getLowerThreshold();
        display.reset();
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
    }

    void despeckledTextureMatchesKernel_data()
    {
        QTest::addColumn<int>("beams");
        QTest::addColumn<int>("rangeLines");
        QTest::addColumn<int>("level");
        QTest::addColumn<int>("referenceLevel");
        // Kernels narrower and wider than the texture (the taps wrap around, some several times),
        // and sizes past the bound, which must smooth as the unbounded kernel does.
        QTest::newRow("3, 40 x 30") << 40 << 30 << 3 << 3;
        QTest::newRow("6, 40 x 30") << 40 << 30 << 6 << 6;
        QTest::newRow("9, 13 x 7") << 13 << 7 << 9 << 9;
        QTest::newRow("41, 50 x 60") << 50 << 60 << 41 << 41;
        QTest::newRow("60, 50 x 60") << 50 << 60 << 60 << 60;
        QTest::newRow("3001, 5 x 3") << 5 << 3 << 3001 << 3001;
        QTest::newRow("INT_MAX, 5 x 3") << 5 << 3 << std::numeric_limits<int>::max() << 3001;
    }
    void despeckledTextureMatchesKernel()
    {
        QFETCH(int, beams);
        QFETCH(int, rangeLines);
        QFETCH(int, level);
        QFETCH(int, referenceLevel);
        const NereonImage frame = makeFrame(beams, rangeLines, 10.0,
            [](int beam, int line) { return std::uint8_t((beam * 97 + line * 31 + beam * line) % 256); });
        engine->processNewImage(frame);
        engine->setDespeckleLevel(level);
        grab();

        // What the per-fragment kernel takes in at texel (i, j): every tap of the square kernel,
        // wrapped as the texture repeats, weighted by the Gaussian of sigma 5.
        const int r = (referenceLevel - 1) / 2;
        std::vector<double> weight(std::size_t(2 * r + 1));
        for (int x = -r; x <= r; ++x)
            weight[std::size_t(x + r)] = std::pow(2.71828, -double(x * x) / 50.0);
        const auto wrap = [](int v, int n) { return ((v % n) + n) % n; };
        const std::vector<std::uint8_t>& data = frame.getData();

        const std::vector<float> texels = readIntensityTexture(beams, rangeLines);
        QCOMPARE(texels.size(), data.size());
        double worst = 0.0;
        for (int j = 0; j < rangeLines; ++j) {
            for (int i = 0; i < beams; ++i) {
                double sum = 0.0, weights = 0.0;
                for (int y = -r; y <= r; ++y) {
                    const std::size_t row = std::size_t(wrap(j + y, rangeLines)) * std::size_t(beams);
                    for (int x = -r; x <= r; ++x) {
                        const double w = weight[std::size_t(x + r)] * weight[std::size_t(y + r)];
                        sum += w * data[row + std::size_t(wrap(i + x, beams))];
                        weights += w;
                    }
                }
                const double expected = sum / weights / 255.0;
                worst = std::max(worst, std::abs(expected - double(texels[std::size_t(j * beams + i)])));
            }
        }
        QVERIFY2(worst < 1.0 / 255.0, qPrintable(QString::number(worst * 255.0)));
    }
    void filterRunsDrawTheSamePicture_data()
    {
        QTest::addColumn<int>("beams");
        QTest::addColumn<int>("rangeLines");
        QTest::addColumn<float>("scale");
        QTest::addColumn<float>("rotation");
        QTest::addColumn<int>("despeckle");
        QTest::addColumn<bool>("minified");
        QTest::addColumn<bool>("magnified");
        // 115 lines over the fan's 100-pixel radius straddle one texel a pixel:
        // the beams near the axes are minified, those at 45 degrees magnified.
        QTest::newRow("both filters") << 64 << 115 << 1.0f << 0.0f << 0 << true << true;
        QTest::newRow("both, turned") << 60 << 115 << 1.0f << 33.0f << 0 << true << true;
        QTest::newRow("both, smoothed, mirrored") << 64 << 115 << 1.0f << 0.0f << 5 << true << true;
        QTest::newRow("minified") << 256 << 1000 << 1.0f << 0.0f << 0 << true << false;
        QTest::newRow("magnified") << 24 << 30 << 1.3f << -70.0f << 0 << false << true;
        QTest::newRow("magnified far") << 96 << 500 << 8.0f << 10.0f << 0 << false << true;
    }

    void filterRunsDrawTheSamePicture()
    {
        QFETCH(int, beams);
        QFETCH(int, rangeLines);
        QFETCH(float, scale);
        QFETCH(float, rotation);
        QFETCH(int, despeckle);
        QFETCH(bool, minified);
        QFETCH(bool, magnified);
        // Speckle: any texel taken from the wrong place, or blended with the
        // wrong weights, changes pixels.
        engine->processNewImage(makeFrame(beams, rangeLines, 20.0, [](int beam, int line) {
            return std::uint8_t((beam * 7919 + line * 104729 + beam * line * 31) % 251);
        }));
        engine->setDespeckleLevel(despeckle);
        if (despeckle > 0)
            engine->horizontalFlip();
        widget->scale(scale, scale, 1.0f, true);
        widget->rotate(rotation, true);
        const auto restore = qScopeGuard([this] {
            widget->scale(1.0f, 1.0f, 1.0f, true);
            widget->rotate(0.0f, true);
            inspect->filterRunsAllowed() = true;
        });

        inspect->filterRunsAllowed() = false;
        const QImage mixed = grab();
        inspect->filterRunsAllowed() = true;
        const QImage runs = grab();
        if (runs != mixed) {
            TestSupport::saveFailurePicture(mixed, QStringLiteral("mixed"));
            QFAIL(qPrintable(TestSupport::saveFailurePicture(runs, QStringLiteral("runs"))));
        }

        // Only the software renderer draws in runs; elsewhere the comparison is all there is.
        widget->makeCurrent();
        const QByteArray renderer(reinterpret_cast<const char*>(gl->glGetString(GL_RENDERER)));
        if (!renderer.contains("llvmpipe"))
            return;
        std::set<TextureFilterRuns::Filter> filters;
        for (const TextureFilterRuns::Run& run : inspect->filterRuns().runs())
            filters.insert(run.filter);
        QCOMPARE(filters.count(TextureFilterRuns::Filter::Nearest) == 1, minified);
        QCOMPARE(filters.count(TextureFilterRuns::Filter::Linear) == 1, magnified);
    }

    void unusualSettingsAndPicture()
    {
        // A dynamic palette, a wide kernel and an odd beam count, for the GL error check.
        engine->setPalette(Options::Aqua);
        engine->setDespeckleLevel(5);
        engine->processNewImage(uniformFrame(255, 50, 10.0, 77, -4500, 4500));
        grab();

        // A bright seabed across speckled dark water, kept as a picture to look at.
        engine->setPalette(Options::Multicolour);
        engine->processNewImage(makeFrame(256, 400, 40.0, [](int beam, int line) {
            return std::uint8_t(std::abs(line - 300 - beam / 8) < 8 ? 230 : (beam * 37 + line * 11) % 50);
        }));
        const QImage picture = grab();
        QVERIFY(picture.save(QStringLiteral("engine-fan.png")));
    }

    // Last: it leaves the shared widget without GL objects.
    void destroyReleasesGlObjects()
    {
        engine->setPalette(Options::Fire);
        grab();
        const GLuint textures[]
            = { inspect->intensities()->textureId(), inspect->standardPalettes()->textureId(),
                  inspect->firePalette()->textureId(), inspect->aquaPalette()->textureId() };
        const GLuint buffer = inspect->fanVertexBuffer().bufferId();
        widget->makeCurrent();
        const auto alive = [this](GLuint texture) { return gl->glIsTexture(texture) == GL_TRUE; };
        QVERIFY(std::all_of(std::begin(textures), std::end(textures), alive) && gl->glIsBuffer(buffer));
        engine->destroy();
        QVERIFY(std::none_of(std::begin(textures), std::end(textures), alive) && !gl->glIsBuffer(buffer));
    }
};

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QApplication app(argc, argv);
    TestEngineDrawing test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_engine_drawing.moc"
