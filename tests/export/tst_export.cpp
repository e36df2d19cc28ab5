#include "DisplaySettingsStore.h"
#include "ExportSettingsFile.h"
#include "FanDisplay.h"
#include "export/FrameRenderer.h"
#include "export/RecordingExporter.h"
#include "nereon/NereonImage.h"
#include "sources/RecordingWriter.h"
#include "sources/SourceFrame.h"

#include "GlTestSupport.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <cmath>
#include <vector>

using namespace Halcyra::Nereon::Export;
using namespace Halcyra::Nereon::Sources;
using Halcyra::Nereon::NereonImage;

namespace {

/// A frame of 64 beams like a sonar's: echoes fading with range, speckle, and a band of
/// strong echoes that moves out with `index`.
NereonImage frameNumber(int index)
{
    constexpr int beams = 64, lines = 120;
    std::vector<std::uint8_t> data(beams * lines);
    std::uint32_t noise = 12345u + std::uint32_t(index);
    for (int line = 0; line < lines; ++line)
        for (int beam = 0; beam < beams; ++beam) {
            noise = noise * 1664525u + 1013904223u;
            const int speckle = int(noise >> 28) - 8;
            data[std::size_t(line * beams + beam)] = std::uint8_t(
                std::abs(line - 15 * index - 10) < 6 ? 230 + speckle : 170 - line + speckle);
        }
    std::vector<std::int16_t> bearings(beams);
    for (int beam = 0; beam < beams; ++beam)
        bearings[std::size_t(beam)] = std::int16_t(-4500 + 9000 * beam / (beams - 1));
    return NereonImage(beams, lines, std::move(data), std::move(bearings), 25.0, 0.0);
}

/// Frames taken at irregular times, microseconds after the start.
const std::vector<std::int64_t> times = { 0, 30000, 100000, 110000, 400000, 1000000 };

QString writeRecording(const QTemporaryDir& folder, const QString& name = "input.nrec")
{
    const QString path = folder.filePath(name);
    RecordingWriter writer;
    writer.open(path, 1700000000000);
    for (std::size_t i = 0; i < times.size(); ++i)
        writer.write(frameNumber(int(i)), times[i]);
    return path;
}

/// Every frame of a video as RGB32 pictures, and its duration in seconds from the frames' times.
struct DecodedVideo
{
    std::vector<QImage> frames;
    double duration = 0.0;
    QString codec;
};

DecodedVideo decode(const QString& path)
{
    DecodedVideo video;
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, QFile::encodeName(path).constData(), nullptr, nullptr) < 0)
        return video;
    avformat_find_stream_info(format, nullptr);
    const int index = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    AVStream* stream = format->streams[index];
    const AVCodec* decoder = avcodec_find_decoder(stream->codecpar->codec_id);
    AVCodecContext* context = avcodec_alloc_context3(decoder);
    avcodec_parameters_to_context(context, stream->codecpar);
    avcodec_open2(context, decoder, nullptr);
    video.codec = QString::fromLatin1(decoder->name);
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    SwsContext* scaler = nullptr;
    std::int64_t lastPts = 0;
    auto receive = [&] {
        while (avcodec_receive_frame(context, frame) == 0) {
            scaler = sws_getCachedContext(scaler, frame->width, frame->height, AVPixelFormat(frame->format),
                frame->width, frame->height, AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr);
            QImage image(frame->width, frame->height, QImage::Format_RGB32);
            std::uint8_t* target[1] = { image.bits() };
            const int stride[1] = { int(image.bytesPerLine()) };
            sws_scale(scaler, frame->data, frame->linesize, 0, frame->height, target, stride);
            video.frames.push_back(image);
            lastPts = std::max<std::int64_t>(lastPts, frame->best_effort_timestamp);
        }
    };
    while (av_read_frame(format, packet) >= 0) {
        if (packet->stream_index == index)
            avcodec_send_packet(context, packet);
        av_packet_unref(packet);
        receive();
    }
    avcodec_send_packet(context, nullptr);
    receive();
    // The last frame lasts one frame period.
    video.duration = (double(lastPts - std::max<std::int64_t>(0, stream->start_time)) * av_q2d(stream->time_base))
        + 1.0 / av_q2d(stream->avg_frame_rate);
    sws_freeContext(scaler);
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&context);
    avformat_close_input(&format);
    return video;
}

double psnr(const QImage& a, const QImage& b)
{
    double squared = 0.0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y), q = b.pixel(x, y);
            for (int d : { qRed(p) - qRed(q), qGreen(p) - qGreen(q), qBlue(p) - qBlue(q) })
                squared += double(d * d);
        }
    const double mean = squared / (3.0 * a.width() * a.height());
    return mean == 0.0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 / mean);
}

/// The display's own picture after the recording's frames up to `last`.
QImage displayPicture(const ExportOptions& options, int last)
{
    FrameRenderer renderer(options);
    for (int i = 0; i <= last; ++i)
        renderer.addFrame(frameNumber(i));
    return renderer.grab();
}

bool runToEnd(RecordingExporter& exporter)
{
    while (exporter.step()) {
    }
    return exporter.isFinished();
}

} // namespace

class TestExport : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // A first context, so that the GL driver is loaded and kept (see keepGlDriverLoaded).
        ExportOptions options;
        options.size = QSize(64, 64);
        FrameRenderer renderer(options);
        QVERIFY2(renderer.isValid(), qPrintable(renderer.getErrorString()));
        renderer.grab();
        TestSupport::keepGlDriverLoaded();
    }

    void videoKeepsTheRecordedPace()
    {
        QTemporaryDir folder;
        ExportOptions options;
        options.size = QSize(640, 480);
        const QString output = folder.filePath("pace.mp4");
        RecordingExporter exporter;
        QVERIFY2(exporter.start(writeRecording(folder), output, options), qPrintable(exporter.getErrorString()));
        QVERIFY2(runToEnd(exporter), qPrintable(exporter.getErrorString()));
        QVERIFY(exporter.getWarning().isEmpty());

        // 1 s of recording at 25 frames a second: the frame at 1.0 s is the 26th.
        const DecodedVideo video = decode(output);
        QCOMPARE(video.codec, QString("h264"));
        QCOMPARE(int(video.frames.size()), 26);
        QVERIFY2(std::abs(video.duration - 1.0) <= 1.0 / 25 + 1e-6, qPrintable(QString::number(video.duration)));

        // At 0.4 s the video shows the frame taken at 0.4 s (the fifth), as the display does.
        const double quality = psnr(video.frames[10], displayPicture(options, 4));
        QVERIFY2(quality >= 30.0, qPrintable(QString("PSNR %1 dB").arg(quality)));
        // And at 0.36 s still the one taken at 0.11 s: frames repeat until the next is due.
        QVERIFY(psnr(video.frames[9], displayPicture(options, 3)) >= 30.0);
        QVERIFY(QDir(folder.path()).entryList(QStringList("*.part"), QDir::Files | QDir::Hidden).isEmpty());
    }

    void stillIsTheDisplaysPicture()
    {
        QTemporaryDir folder;
        ExportOptions options;
        options.size = QSize(300, 200);
        options.stillFrame = 2;
        const QString output = folder.filePath("still.png");
        RecordingExporter exporter;
        QVERIFY2(exporter.start(writeRecording(folder), output, options), qPrintable(exporter.getErrorString()));
        QVERIFY(runToEnd(exporter));
        const QImage still(output);
        QVERIFY(!still.isNull());
        QCOMPARE(still.convertToFormat(QImage::Format_RGB32), displayPicture(options, 2));

        // Every second frame as numbered pictures.
        options.stillFrame = -1;
        options.every = 2;
        QVERIFY(exporter.start(writeRecording(folder), folder.filePath("many.png"), options));
        QVERIFY(runToEnd(exporter));
        QCOMPARE(QDir(folder.path()).entryList(QStringList("many-*.png")),
            QStringList({ "many-000001.png", "many-000003.png", "many-000005.png" }));
    }

    void frameFilterDecidesWhatIsDrawn()
    {
        QTemporaryDir folder;
        ExportOptions options;
        options.size = QSize(300, 200);
        options.stillFrame = 2;
        const QString output = folder.filePath("filtered.png");
        RecordingExporter exporter;

        // Every frame up to the still passes through the filter, in order, and what it
        // hands out is what the display is given (the recording played backwards here).
        std::vector<int> seen;
        exporter.setFrameFilter([&seen](const SourceFrame& in, NereonImage& out) {
            seen.push_back(in.index);
            out = frameNumber(5 - in.index);
            return true;
        });
        QVERIFY2(
            exporter.start(writeRecording(folder), output, options), qPrintable(exporter.getErrorString()));
        QVERIFY(runToEnd(exporter));
        QCOMPARE(seen, std::vector<int>({ 0, 1, 2 }));
        FrameRenderer backwards(options);
        for (int i = 5; i >= 3; --i)
            backwards.addFrame(frameNumber(i));
        QCOMPARE(QImage(output).convertToFormat(QImage::Format_RGB32), backwards.grab());

        // A frame the filter declines is drawn as read.
        exporter.setFrameFilter([](const SourceFrame&, NereonImage& out) {
            out = NereonImage();
            return false;
        });
        QVERIFY(exporter.start(writeRecording(folder), output, options));
        QVERIFY(runToEnd(exporter));
        QCOMPARE(QImage(output).convertToFormat(QImage::Format_RGB32), displayPicture(options, 2));
    }

    void viewerSettingsFileGivesTheViewersLook()
    {
        // Saved as the viewer saves them, read as the export tool reads them.
        QTemporaryDir folder;
        const QString path = folder.filePath("nereon-viewer.conf");
        auto look = Halcyra::Nereon::Visualisation::FanDisplay().getCurrentDisplaySettings();
        look.palette = Halcyra::Nereon::Visualisation::FanDisplayOptions::Fire;
        look.paletteModifier = 90;
        DisplaySettingsStore::ViewerChoices choices;
        choices.despeckleLevel = 2;
        choices.colourScale = true;
        choices.automaticGridColour = true;
        choices.feet = true;
        {
            QSettings settings(path, QSettings::IniFormat);
            settings.beginGroup("display");
            DisplaySettingsStore::write(settings, look);
            settings.endGroup();
            settings.beginGroup("viewer");
            DisplaySettingsStore::writeChoices(settings, choices);
        }
        ExportOptions fromFile;
        fromFile.size = QSize(400, 300);
        QString error;
        QVERIFY2(ExportSettingsFile::apply(path, fromFile, error), qPrintable(error));

        ExportOptions viewers = fromFile;
        viewers.look = look;
        viewers.despeckleLevel = 2;
        viewers.clampLevel = choices.clampLevel;
        viewers.colourScale = viewers.automaticGridColour = viewers.feet = true;
        const QImage expected = displayPicture(viewers, 3);
        QCOMPARE(displayPicture(fromFile, 3), expected);
        // Each choice shows in the picture, so none can be lost unseen.
        for (bool ExportOptions::*choice :
            { &ExportOptions::colourScale, &ExportOptions::automaticGridColour, &ExportOptions::feet }) {
            ExportOptions without = viewers;
            without.*choice = false;
            QVERIFY(displayPicture(without, 3) != expected);
        }
        QVERIFY(!ExportSettingsFile::apply(folder.filePath("missing.conf"), fromFile, error));
        QVERIFY(error.contains("missing.conf"));
    }

    void refusedWithAClearMessage_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QString>("message");
        QTest::newRow("missing input") << "missing.nrec" << "out.mp4" << QSize(320, 240) << "missing.nrec";
        QTest::newRow("not a recording") << "notes.txt" << "out.mp4" << QSize(320, 240) << "not a sonar recording";
        QTest::newRow("unknown output") << "input.nrec" << "out.gif" << QSize(320, 240) << "out.gif";
        QTest::newRow("unwritable output") << "input.nrec" << "no/such/folder/out.mp4" << QSize(320, 240)
                                           << "cannot write";
        QTest::newRow("no pixels") << "input.nrec" << "out.mp4" << QSize(0, 0) << "cannot be drawn";
        QTest::newRow("beyond GL") << "input.nrec" << "out.mp4" << QSize(100000, 100) << "cannot be drawn";
        QTest::newRow("odd video") << "input.nrec" << "out.mp4" << QSize(321, 240) << "even";
    }

    void refusedWithAClearMessage()
    {
        QFETCH(QString, input);
        QFETCH(QString, output);
        QFETCH(QSize, size);
        QFETCH(QString, message);
        QTemporaryDir folder;
        writeRecording(folder);
        QFile notes(folder.filePath("notes.txt"));
        QVERIFY(notes.open(QIODevice::WriteOnly));
        notes.write("plain text");
        notes.close();
        ExportOptions options;
        options.size = size;
        RecordingExporter exporter;
        QVERIFY(!exporter.start(folder.filePath(input), folder.filePath(output), options));
        QVERIFY2(exporter.getErrorString().contains(message), qPrintable(exporter.getErrorString()));
        QVERIFY(!exporter.step());
        QVERIFY(!QFile::exists(folder.filePath(output)));
    }

    void damagedRecordingExportsUpToTheDamage()
    {
        QTemporaryDir folder;
        const QString path = writeRecording(folder);
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        file.resize(file.size() - 100); // into the last frame, taken at 1.0 s
        file.close();
        ExportOptions options;
        options.size = QSize(320, 240);
        RecordingExporter exporter;
        QVERIFY(exporter.start(path, folder.filePath("cut.mp4"), options));
        QVERIFY(runToEnd(exporter));
        QVERIFY2(exporter.getWarning().startsWith("Stopped at byte "), qPrintable(exporter.getWarning()));
        // Up to the frame taken at 0.4 s: eleven frames of 40 ms.
        QCOMPARE(int(decode(folder.filePath("cut.mp4")).frames.size()), 11);
    }

    void cancelledExportLeavesNoFile()
    {
        QTemporaryDir folder;
        const QString output = folder.filePath("cancelled.mp4");
        ExportOptions options;
        options.size = QSize(320, 240);
        {
            RecordingExporter exporter;
            QVERIFY(exporter.start(writeRecording(folder), output, options));
            for (int i = 0; i < 3; ++i)
                QVERIFY(exporter.step());
            exporter.cancel();
            QVERIFY(!exporter.step());
        }
        {
            // Destroyed unfinished: the same.
            RecordingExporter exporter;
            QVERIFY(exporter.start(writeRecording(folder), output, options));
            QVERIFY(exporter.step());
        }
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden), QStringList("input.nrec"));
    }
};

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    TestExport test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_export.moc"
