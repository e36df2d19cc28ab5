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
    std::unique_ptr<TestSupport::GlErrorWatcher> errorWatcher;

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
        gl = context.versionFunctions<QOpenGLFunctions_2_0>();
        QVERIFY(gl && gl->initializeOpenGLFunctions());
        errorWatcher = std::make_unique<TestSupport::GlErrorWatcher>(&context);
        QVERIFY(errorWatcher->isLogging());
    }

    void cleanupTestCase()
    {
        const GLenum glError = gl->glGetError();
        for (const QOpenGLDebugMessage& message : errorWatcher->errors())
            QFAIL(qPrintable(message.message()));
        QCOMPARE(glError, GLenum(GL_NO_ERROR));
    }

    void pictureIsCompressedBmp()
    {
        QCOMPARE(QResource(picturePath).compressionAlgorithm(), QResource::ZlibCompression);

        QFile file(picturePath);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        QCOMPARE(bytes.size(), 46134);
        // Signature, file size, reserved, pixel offset 54; header size 40, 256 × 60
        // stored bottom row first, 1 plane, 24 bits, uncompressed, image size 0,
        // 5 905 pixels a metre both ways, no colour table.
        QCOMPARE(bytes.left(54).toHex(),
            QByteArray("424d36b40000000000003600000028000000000100003c000000010018000000"
                       "00000000000011170000111700000000000000000000"));
    }

    void standardEntries_data()
    {
        QTest::addColumn<int>("band");
        QTest::addColumn<int>("column");
        QTest::addColumn<QColor>("expected");

        QTest::newRow("grey 0") << 0 << 0 << QColor(1, 1, 1);
        QTest::newRow("grey 192") << 0 << 192 << QColor(213, 213, 213);
        QTest::newRow("bronze 64") << 1 << 64 << QColor(126, 80, 0);
        QTest::newRow("blue 128") << 2 << 128 << QColor(1, 193, 230);
        QTest::newRow("green 64") << 3 << 64 << QColor(57, 99, 0);
        QTest::newRow("red-yellow 255") << 4 << 255 << QColor(253, 234, 25);
        QTest::newRow("multicolour 128") << 5 << 128 << QColor(52, 173, 202);
    }

    void standardEntries()
    {
        QFETCH(int, band);
        QFETCH(int, column);
        QFETCH(QColor, expected);

        StandardPalettes palettes;
        palettes.initialisePalette();
        const QImage picture(picturePath);
        const QImage texture = readBack(palettes);
        QVERIFY(picture.size() == QSize(256, 60) && texture.size() == picture.size());

        // Every row of a band must hold the entry: the shader samples the band's middle,
        // but a wrong band order or a flip shows up anywhere in it.
        for (int row = band * 10; row < band * 10 + 10; ++row) {
            NEREON_VERIFY_PIXEL(picture, QPoint(column, row), expected, 3);
            NEREON_VERIFY_PIXEL(texture, QPoint(column, row), expected, 3);
            QCOMPARE(qAlpha(texture.pixel(column, row)), 255);
        }
    }

    void dynamicEntries_data()
    {
        QTest::addColumn<bool>("fire");
        QTest::addColumn<int>("modifier");
        QTest::addColumn<QVector<int>>("indices");
        QTest::addColumn<QVector<QColor>>("expected");

        QTest::newRow("fire 128") << true << 128 << QVector<int> { 0, 64, 127, 128, 191, 254, 255 }
                                  << QVector<QColor> { { 0, 0, 0 }, { 127, 0, 0 }, { 253, 0, 0 },
                                         { 255, 0, 0 }, { 255, 126, 0 }, { 255, 252, 251 },
                                         { 255, 255, 255 } };
        // Never given a modifier: no black part, the ramp starts at full red.
        QTest::newRow("fire unset") << true << -1 << QVector<int> { 0, 128, 255 }
                                    << QVector<QColor> { { 255, 0, 0 }, { 255, 128, 1 }, { 255, 255, 255 } };
        // Empty upper segments: their zero divisors must give 0.
        QTest::newRow("fire 255") << true << 255 << QVector<int> { 1, 100, 254, 255 }
                                  << QVector<QColor> { { 1, 0, 0 }, { 100, 0, 0 }, { 254, 0, 0 },
                                         { 255, 0, 0 } };
        QTest::newRow("aqua 128") << false << 128 << QVector<int> { 0, 64, 128, 191, 255 }
                                  << QVector<QColor> { { 0, 0, 64 }, { 4, 20, 96 }, { 8, 40, 128 },
                                         { 28, 144, 96 }, { 50, 250, 64 } };
        QTest::newRow("aqua 0") << false << 0 << QVector<int> { 0, 127, 255 }
                                << QVector<QColor> { { 8, 40, 128 }, { 28, 144, 96 }, { 50, 250, 64 } };
    }

    void dynamicEntries()
    {
        QFETCH(bool, fire);
        QFETCH(int, modifier);
        QFETCH(QVector<int>, indices);
        QFETCH(QVector<QColor>, expected);

        const std::unique_ptr<AbstractDynamicPalette> palette(
            fire ? static_cast<AbstractDynamicPalette*>(new FirePalette) : new AquaPalette);
        palette->initialisePalette();
        if (modifier >= 0)
            palette->changeModifier(static_cast<unsigned char>(modifier));

        const QImage texture = readBack(*palette);
        QCOMPARE(texture.size(), QSize(256, 1));
        for (int k = 0; k < indices.size(); ++k)
            NEREON_VERIFY_PIXEL(texture, QPoint(indices[k], 0), expected[k], 0);
        for (int i = 0; i < 256; ++i)
            QCOMPARE(qAlpha(texture.pixel(i, 0)), 255);
    }

    void regenerationWaitsForBind()
    {
        CountingFirePalette palette;
        palette.initialisePalette();
        palette.bindPalette(0);
        palette.bindPalette(0);
        QCOMPARE(palette.generations, 1);

        // Modifier changes need no context and cost nothing until the next bind.
        context.doneCurrent();
        for (unsigned char modifier : { 10, 200, 128 })
            palette.changeModifier(modifier);
        QVERIFY(context.makeCurrent(&surface));
        QCOMPARE(palette.generations, 1);
        QCOMPARE(palette.getModifier(), (unsigned char)128);

        QImage texture = readBack(palette);
        QCOMPARE(palette.generations, 2);
        NEREON_VERIFY_PIXEL(texture, QPoint(64, 0), QColor(127, 0, 0), 0);

        // The same value again still regenerates.
        palette.changeModifier(128);
        texture = readBack(palette);
        QCOMPARE(palette.generations, 3);
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
