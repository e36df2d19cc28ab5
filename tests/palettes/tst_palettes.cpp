#include "palettes/AquaPalette.h"
#include "palettes/FirePalette.h"
#include "palettes/StandardPalettes.h"

#include "GlTestSupport.h"

#include <QApplication>
#include <QFile>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFunctions_2_0>
#include <QResource>
#include <QTest>

#include <memory>

using namespace Halcyra::Nereon::Visualisation::Palettes;

namespace {

const QString picturePath = QStringLiteral(":/ternwick-nereon-visualisation/texture-images/palettes.bmp");

/// Counts generations, to see when the lazy regeneration really runs.
class CountingFirePalette : public FirePalette
{
public:
    void generatePalette() override
    {
        ++generations;
        FirePalette::generatePalette();
    }
    int generations = 0;
};

} // namespace

class TestPalettes : public QObject
{
    Q_OBJECT

    QOffscreenSurface surface;
    QOpenGLContext context;
    QOpenGLFunctions_2_0* gl = nullptr;

    /// The palette's texels read back from GL, top row of the picture first.
    QImage readBack(AbstractPalette& palette)
    {
        palette.bindPalette(0);
        QImage texels(palette.width(), palette.height(), QImage::Format_RGBA8888);
        gl->glPixelStorei(GL_PACK_ALIGNMENT, 4);
        gl->glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, texels.bits());
        palette.release();
        // GL's row 0 is t = 0, the bottom of the picture.
        return texels.mirrored(false, true);
    }

private slots:
    void initTestCase()
    {
        surface.create();
        QVERIFY(context.create());
        QVERIFY(context.makeCurrent(&surface));
        TestSupport::keepGlDriverLoaded();
        gl = TestSupport::gl20Functions(&context);
        QVERIFY(gl);
    }

    void cleanupTestCase() { QCOMPARE(gl->glGetError(), GLenum(GL_NO_ERROR)); }

    void standardPictureAndTexture()
    {
        QCOMPARE(QResource(picturePath).compressionAlgorithm(), QResource::ZlibCompression);
        QFile file(picturePath);
        QVERIFY(file.open(QIODevice::ReadOnly));
        // 256 x 60, 24 bits, bottom row first, uncompressed, no colour table.
        QCOMPARE(file.readAll().left(54).toHex(),
            QByteArray("424d36b40000000000003600000028000000000100003c000000010018000000"
                       "00000000000011170000111700000000000000000000"));

        // Bands top to bottom: grey, bronze, blue, green, red-yellow, multicolour.
        const QImage picture(picturePath);
        NEREON_VERIFY_PIXEL(picture, QPoint(192, 5), QColor(213, 213, 213), 3);
        NEREON_VERIFY_PIXEL(picture, QPoint(128, 50), QColor(52, 173, 202), 3);

        StandardPalettes palettes;
        palettes.initialisePalette();
        QCOMPARE(readBack(palettes), picture.convertToFormat(QImage::Format_RGBA8888));
    }

    void dynamicEntriesAndLazyRegeneration()
    {
        CountingFirePalette fire;
        AquaPalette aqua;
        fire.initialisePalette();
        aqua.initialisePalette();
        aqua.changeModifier(128);
        readBack(fire);

        // Modifier changes need no context and cost nothing until the next bind.
        context.doneCurrent();
        fire.changeModifier(128);
        QVERIFY(context.makeCurrent(&surface));
        QCOMPARE(fire.generations, 1);
        const QImage fireTexels = readBack(fire), aquaTexels = readBack(aqua);
        QCOMPARE(fire.generations, 2);
        NEREON_VERIFY_PIXEL(fireTexels, QPoint(0, 0), QColor(0, 0, 0), 0);
        NEREON_VERIFY_PIXEL(fireTexels, QPoint(64, 0), QColor(127, 0, 0), 0);
        NEREON_VERIFY_PIXEL(fireTexels, QPoint(191, 0), QColor(255, 126, 0), 0);
        NEREON_VERIFY_PIXEL(fireTexels, QPoint(254, 0), QColor(255, 252, 251), 0);
        NEREON_VERIFY_PIXEL(aquaTexels, QPoint(0, 0), QColor(0, 0, 64), 0);
        NEREON_VERIFY_PIXEL(aquaTexels, QPoint(191, 0), QColor(28, 144, 96), 0);

        // Empty upper segments: their zero divisors must give 0.
        fire.changeModifier(255);
        NEREON_VERIFY_PIXEL(readBack(fire), QPoint(255, 0), QColor(255, 0, 0), 0);
    }
};

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QApplication app(argc, argv);
    TestPalettes test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_palettes.moc"
