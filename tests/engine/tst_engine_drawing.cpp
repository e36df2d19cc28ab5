// The engine's GL side: intensity texture, vertex buffer, shader program and
// the pictures it draws, checked through a small widget on the host GL base.

#include "FanGeometryEngineInspector.h"
#include "GlTestSupport.h"
#include "TestFrames.h"

#include "gui/OpenGLWidget.h"
#include "palettes/AbstractPalette.h"

#include <QApplication>
#include <QOpenGLContext>
#include <QtTest>

#include <algorithm>
#include <cmath>
#include <random>

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
    FanTestWidget()
    {
        resize(widgetSize, widgetSize);
        translate(0.0f, apexOffset, 0.0f, true);
    }
    ~FanTestWidget() override
    {
        makeCurrent();
        engine.destroy();
        doneCurrent();
    }

    FanGeometryEngine engine;
    bool shadersBuilt = false;

protected:
    void initialise() override
    {
        shadersBuilt = engine.initFanImageShaders();
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

/// Pixel of the widget at a point in fan coordinates.
QPoint pixelAt(double x, double y)
{
    return QPoint(int((x + 1.0) / 2.0 * widgetSize), int((1.0 - y - double(apexOffset)) / 2.0 * widgetSize));
}

QPoint pixelAtPolar(double degrees, double radius)
{
    const double a = qDegreesToRadians(degrees);
    return pixelAt(radius * std::cos(a), radius * std::sin(a));
}

/// The texels of a texture as RGBA bytes (or one byte each for a red-only format).
std::vector<std::uint8_t> readTexture(GLuint texture, int width, int height, GLenum format)
{
    using GetTexImage = void(QOPENGLF_APIENTRYP)(GLenum, GLint, GLenum, GLenum, void*);
    QOpenGLContext* context = QOpenGLContext::currentContext();
    const auto getTexImage = reinterpret_cast<GetTexImage>(context->getProcAddress("glGetTexImage"));
    std::vector<std::uint8_t> texels(std::size_t(width * height * (format == GL_RED ? 1 : 4)));
    context->functions()->glPixelStorei(GL_PACK_ALIGNMENT, 1);
    context->functions()->glBindTexture(GL_TEXTURE_2D, texture);
    getTexImage(GL_TEXTURE_2D, 0, format, GL_UNSIGNED_BYTE, texels.data());
    context->functions()->glBindTexture(GL_TEXTURE_2D, 0);
    return texels;
}

/// The colour the palette texture gives at (s, t) with linear filtering across s.
QColor paletteColourAt(Palettes::AbstractPalette* palette, float s, float t)
{
    const int width = palette->width();
    const std::vector<std::uint8_t> texels
        = readTexture(palette->textureId(), width, palette->height(), GL_RGBA);
    const int row = std::min(palette->height() - 1, int(t * float(palette->height())));
    const float u = std::clamp(s * float(width) - 0.5f, 0.0f, float(width - 1));
    const int i0 = int(u), i1 = std::min(i0 + 1, width - 1);
    const auto channel = [&](int c) {
        const float a = texels[std::size_t((row * width + i0) * 4 + c)];
        return int(std::lround(a + (texels[std::size_t((row * width + i1) * 4 + c)] - a) * (u - float(i0))));
    };
    return QColor(channel(0), channel(1), channel(2));
}

NereonImage randomFrame(int beams, int lines, std::uint32_t seed)
{
    std::mt19937 random(seed);
    return makeFrame(beams, lines, 20.0, [&](int, int) { return std::uint8_t(random() & 0xff); });
}

/// Mostly dark water with speckle, a bright seabed arc and a target.
NereonImage realisticFrame()
{
    std::mt19937 random(7);
    std::exponential_distribution<double> noise(0.25);
    return makeFrame(256, 400, 40.0, [&](int beam, int line) {
        double v = noise(random) + (random() % 250 == 0 ? 120.0 : 0.0);
        const double seabed = 300.0 + 30.0 * std::sin(beam / 40.0);
        v += 200.0 * std::exp(-std::pow((line - seabed) / 6.0, 2.0)) * (0.6 + 0.4 * std::sin(beam * 0.3));
        v += 230.0 * std::exp(-(std::pow(beam - 90, 2.0) + std::pow(line - 150, 2.0)) / 30.0);
        return std::uint8_t(std::min(255.0, v));
    });
}

} // namespace

class TestEngineDrawing : public QObject
{
    Q_OBJECT

    std::unique_ptr<FanTestWidget> widget;
    FanGeometryEngine* engine = nullptr;
    std::unique_ptr<FanGeometryEngineInspector> inspect;

    QImage grab() { return widget->grabFramebuffer(); }

private slots:
    void initTestCase()
    {
        widget = std::make_unique<FanTestWidget>();
        widget->show();
        QVERIFY(QTest::qWaitForWindowExposed(widget.get()));
        TestSupport::keepGlDriverLoaded();
        QVERIFY2(widget->shadersBuilt, "the fan image shaders did not compile or link");
        engine = &widget->engine;
        inspect = std::make_unique<FanGeometryEngineInspector>(*engine);
    }

    void init()
    {
        engine->setPalette(Options::Greyscale);
        engine->setDespeckleLevel(0);
        if (inspect->flipped())
            engine->horizontalFlip();
        inspect->lowerThreshold() = 0.0f;
        inspect->upperThreshold() = 1.0f;
    }

    void cleanupTestCase()
    {
        inspect.reset();
        widget.reset();
    }

    void intensityTextureHoldsLastFrame_data()
    {
        QTest::addColumn<int>("beams");
        QTest::addColumn<int>("lines");
        QTest::newRow("256 x 64") << 256 << 64;
        QTest::newRow("13 beams, rows not 4-aligned") << 13 << 7;
    }
    void intensityTextureHoldsLastFrame()
    {
        QFETCH(int, beams);
        QFETCH(int, lines);
        grab();
        const GLuint before = inspect->intensities()->textureId();
        NereonImage frame;
        for (std::uint32_t seed = 1; seed <= 3; ++seed)
            engine->processNewImage(frame = randomFrame(beams, lines, seed));
        grab();
        QVERIFY(!inspect->newImage());
        QOpenGLTexture* texture = inspect->intensities();
        const GLuint uploaded = texture->textureId();
        QVERIFY(uploaded != before);
        QVERIFY(texture->width() == beams && texture->height() == lines);
        QCOMPARE(texture->format(), QOpenGLTexture::R8_UNorm);
        grab(); // a repaint without a new frame uploads nothing
        QCOMPARE(inspect->intensities()->textureId(), uploaded);
        widget->makeCurrent();
        const bool matches = readTexture(uploaded, beams, lines, GL_RED) == frame.getData();
        widget->doneCurrent();
        QVERIFY(matches);
    }

    void fanVertexBuffer()
    {
        const auto verifyBuffer = [&](const std::vector<float>& expected) {
            widget->makeCurrent();
            QOpenGLBuffer& buffer = inspect->fanVertexBuffer();
            buffer.bind();
            std::vector<float> actual(std::size_t(buffer.size()) / sizeof(float));
            buffer.read(0, actual.data(), buffer.size());
            buffer.release();
            widget->doneCurrent();
            QCOMPARE(actual.size(), expected.size());
            for (std::size_t i = 0; i < expected.size(); ++i)
                QVERIFY2(std::abs(actual[i] - expected[i]) < 1e-4f,
                    qPrintable(QString::asprintf(
                        "float %zu is %g, expected %g", i, double(actual[i]), double(expected[i]))));
        };

        // Two triangles of x, y, s, t for three beams, then a never-drawn third.
        engine->processNewImage(uniformFrame(3, 4, 10.0, 0));
        grab();
        std::vector<float> triangles = { 0, 0, 0, 0, -0.9063f, 0.4226f, 0, 1, 0, 1, 0.5f, 1, //
            0, 0, 0.5f, 0, 0, 1, 0.5f, 1, 0.9063f, 0.4226f, 1, 1, //
            0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 };
        verifyBuffer(triangles);
        if (QTest::currentTestFailed())
            return;

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
        QTest::addColumn<int>("modifier");
        QTest::newRow("Greyscale") << Options::Greyscale << 0;
        QTest::newRow("Multicolour") << Options::Multicolour << 0;
        QTest::newRow("Fire 128") << Options::Fire << 128;
        QTest::newRow("Aqua 128") << Options::Aqua << 128;
    }
    void paletteColours()
    {
        QFETCH(Options::Palette, palette);
        QFETCH(int, modifier);
        engine->setPalette(palette);
        engine->setPaletteModifier(std::uint8_t(modifier));
        // Three bands along the range: 0 near, 128 in the middle, 255 far.
        engine->processNewImage(makeFrame(256, 90, 30.0, [](int, int line) {
            return std::uint8_t(line < 30 ? 0 : line < 60 ? 128 : 255);
        }));
        inspect->lowerThreshold() = 0.25f;
        inspect->upperThreshold() = 0.75f;
        const QImage picture = grab();

        Palettes::AbstractPalette* table = palette == Options::Fire ? inspect->firePalette()
            : palette == Options::Aqua                              ? inspect->aquaPalette()
                                                                    : inspect->standardPalettes();
        widget->makeCurrent();
        // Bytes 0 and 255 are held at the thresholds; 128 shows its own entry.
        const QColor bands[3] = { paletteColourAt(table, 0.25f, inspect->chosenPalette()),
            paletteColourAt(table, 128.0f / 255.0f, inspect->chosenPalette()),
            paletteColourAt(table, 0.75f, inspect->chosenPalette()) };
        widget->doneCurrent();
        for (double angle : { 60.0, 90.0, 130.0 })
            for (int band = 0; band < 3; ++band)
                NEREON_VERIFY_PIXEL(picture, pixelAtPolar(angle, (2 * band + 1) / 6.0), bands[band], 3);
        // Outside the fan: beside it, beyond the rim, behind the apex.
        for (const QPoint outside :
            { pixelAtPolar(10.0, 0.5), pixelAtPolar(90.0, 1.05), pixelAt(0.0, -0.05) })
            NEREON_VERIFY_PIXEL(picture, outside, clearColour, 0);
    }

    void mirroredFanSwapsSides()
    {
        // The first beams are the leftmost.
        engine->processNewImage(
            makeFrame(256, 32, 10.0, [](int beam, int) { return std::uint8_t(beam < 128 ? 40 : 220); }));
        const QPoint left = pixelAtPolar(125.0, 0.6), right = pixelAtPolar(55.0, 0.6);
        const QImage plain = grab();
        QVERIFY(plain.pixelColor(left).red() + 100 < plain.pixelColor(right).red());
        engine->horizontalFlip();
        const QImage mirrored = grab();
        NEREON_VERIFY_PIXEL(mirrored, left, plain.pixelColor(right), 1);
        NEREON_VERIFY_PIXEL(mirrored, right, plain.pixelColor(left), 1);
    }

    void despeckle()
    {
        // One tap through the kernel is the unsmoothed picture.
        engine->processNewImage(randomFrame(32, 32, 3));
        const QImage level0 = grab();
        engine->setDespeckleLevel(1);
        const QImage level1 = grab();
        if (level0 != level1)
            QFAIL(qPrintable(TestSupport::saveFailurePicture(level1, QStringLiteral("level1"))));

        // A checkerboard smoothed over 3 x 3 comes out nearly even grey.
        engine->processNewImage(makeFrame(
            32, 32, 10.0, [](int beam, int line) { return std::uint8_t((beam + line) % 2 * 255); }));
        engine->setDespeckleLevel(3);
        const QImage smoothed = grab();
        const QRect box(pixelAt(-0.15, 0.65), pixelAt(0.15, 0.35));
        int low = 255, high = 0;
        for (int y = box.top(); y <= box.bottom(); ++y)
            for (int x = box.left(); x <= box.right(); ++x) {
                low = std::min(low, smoothed.pixelColor(x, y).red());
                high = std::max(high, smoothed.pixelColor(x, y).red());
            }
        if (high - low > 40 || low < 100 || high > 190)
            QFAIL(qPrintable(QStringLiteral("%1..%2, ").arg(low).arg(high)
                + TestSupport::saveFailurePicture(smoothed, QStringLiteral("level3"))));
    }

    void realisticPictureWithoutGlErrors()
    {
        widget->makeCurrent();
        TestSupport::GlErrorWatcher watcher(widget->context());
        QVERIFY(watcher.isLogging());
        widget->doneCurrent();

        // Dynamic palettes, a wide kernel and an odd beam count first.
        engine->setPalette(Options::Fire);
        engine->setPaletteModifier(90);
        engine->setDespeckleLevel(5);
        engine->processNewImage(uniformFrame(255, 50, 10.0, 77, -4500, 4500));
        grab();
        engine->setPalette(Options::Aqua);
        grab();

        engine->setPalette(Options::Multicolour);
        engine->setDespeckleLevel(0);
        engine->setClampLevel(0.01f);
        const NereonImage frame = realisticFrame();
        for (int i = 0; i < 20; ++i)
            engine->processNewImage(frame); // let the thresholds settle
        engine->setClampLevel(0.0f);
        const QImage picture = grab();
        QVERIFY(picture.save(QStringLiteral("engine-fan.png")));
        NEREON_VERIFY_PIXEL(picture, pixelAtPolar(10.0, 0.5), clearColour, 0);
        QVERIFY(TestSupport::countPixelsDiffering(picture, picture.rect(), clearColour) > 10000);

        widget->makeCurrent();
        const GLenum error = widget->context()->functions()->glGetError();
        widget->doneCurrent();
        QCOMPARE(error, GLenum(GL_NO_ERROR));
        const auto errors = watcher.errors();
        QVERIFY2(errors.empty(), errors.empty() ? "" : qPrintable(errors.front().message()));
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
        QOpenGLFunctions* gl = widget->context()->functions();
        const auto alive = [gl](GLuint texture) { return gl->glIsTexture(texture) == GL_TRUE; };
        QVERIFY(std::all_of(std::begin(textures), std::end(textures), alive) && gl->glIsBuffer(buffer));
        engine->destroy();
        QVERIFY(std::none_of(std::begin(textures), std::end(textures), alive) && !gl->glIsBuffer(buffer));
        QVERIFY(!inspect->intensities() && !inspect->firePalette());
        widget->doneCurrent();
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
