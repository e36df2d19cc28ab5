// An application built against the installed package: it writes a recording and
// reads it back through the frame-source library, shows a frame and checks that
// the fan was drawn.
#include <FanDisplay.h>
#include <LinearUnit.h>
#include <nereon/NereonImage.h>
#include <sources/FrameReader.h>
#include <sources/RecordingWriter.h>

#include <QApplication>
#include <QImage>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char* argv[])
{
    if (std::strncmp(NEREON_PACKAGE_VERSION, "2.", 2) != 0) {
        std::fprintf(stderr, "unexpected package version %s\n", NEREON_PACKAGE_VERSION);
        return 1;
    }

    // The package must bring the Qt it was built with, at compile and at run time.
    static_assert(QT_VERSION_MAJOR == NEREON_EXPECTED_QT_MAJOR, "the package brought the wrong Qt");
    if (std::atoi(qVersion()) != NEREON_EXPECTED_QT_MAJOR) {
        std::fprintf(stderr, "running against Qt %s\n", qVersion());
        return 1;
    }

    QApplication application(argc, argv);
    using Halcyra::Nereon::Visualisation::LinearUnit;
    Halcyra::Nereon::Visualisation::FanDisplay display;
    // The package's own units: none to write before the first label.
    display.setDistanceUnit(&LinearUnit::feet());
    display.setAreaUnit(&LinearUnit::squareFeet());
    display.resize(400, 300);
    display.show();

    constexpr std::uint16_t beams = 64;
    constexpr std::uint16_t lines = 100;
    std::vector<std::int16_t> bearings(beams);
    for (int i = 0; i < beams; ++i)
        bearings[i] = static_cast<std::int16_t>(-3000 + 6000 * i / (beams - 1));
    const Halcyra::Nereon::NereonImage recorded(
        beams, lines, std::vector<std::uint8_t>(beams * lines, 255), bearings, 20.0, 1.0);

    // Through a recording, as an application replaying files would get it.
    using namespace Halcyra::Nereon::Sources;
    QTemporaryDir folder;
    const QString path = folder.filePath("consumer.nrec");
    {
        RecordingWriter writer;
        if (!writer.open(path, 1700000000000) || !writer.write(recorded, 0) || !writer.write(recorded, 40000)) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
            return 1;
        }
    }
    QString error;
    const std::unique_ptr<FrameReader> reader = FrameReader::create(path, &error);
    SourceFrame read;
    if (!reader || reader->getFrameCount() != 2 || !reader->readFrame(1, read)
        || read.timestamp != 1700000000000LL * 1000 + 40000) {
        std::fprintf(stderr, "cannot read the recording back: %s\n", qPrintable(error));
        return 1;
    }
    const Halcyra::Nereon::NereonImage frame = read.image;

    int result = 1;
    QTimer::singleShot(300, [&] { display.newImageReceived(frame); });
    QTimer::singleShot(1000, [&] {
        const QImage picture = display.grabFramebuffer();
        const QRgb background = qRgb(76, 76, 76);
        int drawn = 0;
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < picture.width(); ++x)
                drawn += (picture.pixel(x, y) & 0xffffff) != (background & 0xffffff);
        std::printf("package %s on Qt %s: %d of %d pixels drawn over the background\n", NEREON_PACKAGE_VERSION, qVersion(), drawn,
            picture.width() * picture.height());
        result = drawn > picture.width() * picture.height() / 10 ? 0 : 1;
        QCoreApplication::quit();
    });
    QApplication::exec();
    return result;
}
