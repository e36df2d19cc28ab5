#include "export/VideoEncoder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Halcyra::Nereon::Export {

namespace {

/// ".NAME.PID-N.part": the owner's process id in the name tells a killed export's leftovers
/// from those of an export still running.
const QRegularExpression temporaryName(QStringLiteral("^\\..+\\.(\\d+)-\\d+\\.part$"));

/// Creates the temporary file beside `path` with the mode a new file gets from the umask
/// (a QTemporaryFile would be 0600, and the rename keeps the mode). Empty, with `error`, when it cannot.
QString createTemporary(const QString& path, QString& error)
{
    const QFileInfo info(path);
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QString name = info.absoluteDir().filePath(
            QStringLiteral(".%1.%2-%3.part").arg(info.fileName()).arg(getpid()).arg(attempt));
        const int fd
            = ::open(QFile::encodeName(name).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            ::close(fd);
            return name;
        }
        if (errno != EEXIST)
            break;
    }
    error = QString::fromLocal8Bit(std::strerror(errno));
    return QString();
}

/// Removes the temporary files of exports into `folder` that were killed: ours by name, owned by
/// this user, whose process is gone. Returns their names.
QStringList removeStaleTemporaries(const QDir& folder)
{
    QStringList removed;
    const QStringList candidates
        = folder.entryList({ QStringLiteral(".*.part") }, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
    for (const QString& name : candidates) {
        const QRegularExpressionMatch match = temporaryName.match(name);
        bool ok = false;
        const qint64 pid = match.hasMatch() ? match.captured(1).toLongLong(&ok) : 0;
        if (!ok || pid <= 0 || pid == getpid())
            continue;
        struct stat status = {};
        const QByteArray file = QFile::encodeName(folder.filePath(name));
        if (::stat(file.constData(), &status) != 0 || status.st_uid != getuid())
            continue;
        // EPERM means the process exists under another user: not ours to judge.
        if (::kill(pid_t(pid), 0) == 0 || errno != ESRCH)
            continue;
        if (::unlink(file.constData()) == 0)
            removed << name;
    }
    return removed;
}

/// The container FFmpeg writes for a file name, or null.
const char* containerOf(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == QLatin1String("mp4"))
        return "mp4";
    if (suffix == QLatin1String("mov"))
        return "mov";
    if (suffix == QLatin1String("mkv"))
        return "matroska";
    if (suffix == QLatin1String("avi"))
        return "avi";
    return nullptr;
}

QString describe(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return QString::fromUtf8(text);
}

} // namespace

struct VideoEncoder::Codec
{
    QString path;
    QString temporaryPath;
    AVFormatContext* format = nullptr;
    AVCodecContext* context = nullptr;
    AVStream* stream = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    SwsContext* scaler = nullptr;
    bool headerWritten = false;
    int frames = 0;
    double conversion = 0.0;
    double encoding = 0.0;

    ~Codec()
    {
        sws_freeContext(scaler);
        av_packet_free(&packet);
        av_frame_free(&frame);
        avcodec_free_context(&context);
        if (format) {
            if (format->pb)
                avio_closep(&format->pb);
            avformat_free_context(format);
        }
    }

    /// Sends `input` (null to flush) and writes every packet the encoder gives back.
    int encode(AVFrame* input)
    {
        int result = avcodec_send_frame(context, input);
        while (result >= 0) {
            result = avcodec_receive_packet(context, packet);
            if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
                return 0;
            if (result < 0)
                return result;
            av_packet_rescale_ts(packet, context->time_base, stream->time_base);
            packet->stream_index = stream->index;
            result = av_interleaved_write_frame(format, packet);
        }
        return result;
    }
};

VideoEncoder::VideoEncoder() = default;

VideoEncoder::~VideoEncoder()
{
    abandon();
}

bool VideoEncoder::isVideoFile(const QString& path)
{
    return containerOf(path) != nullptr;
}

bool VideoEncoder::open(const QString& path, int width, int height, double framesPerSecond)
{
    abandon();
    errorString.clear();
    const char* container = containerOf(path);
    if (!container) {
        errorString = QStringLiteral("%1: a video is written as .mp4, .mov, .mkv or .avi").arg(path);
        return false;
    }
    if (width <= 0 || height <= 0 || width % 2 || height % 2) {
        errorString = QStringLiteral("a video needs an even width and height, not %1 x %2").arg(width).arg(height);
        return false;
    }
    if (!std::isfinite(framesPerSecond) || framesPerSecond < 1.0 || framesPerSecond > 240.0) {
        errorString = QStringLiteral("%1 frames per second: 1 to 240 possible").arg(framesPerSecond);
        return false;
    }
    // FFmpeg's libraries report every encoder's statistics by default; errors are ours to report.
    if (av_log_get_level() == AV_LOG_INFO)
        av_log_set_level(AV_LOG_ERROR);
    auto c = std::make_unique<Codec>();
    c->path = path;
    removedStale = removeStaleTemporaries(QFileInfo(path).absoluteDir());
    {
        // A name of our own beside the output, so that the final rename stays on one file system.
        QString why;
        c->temporaryPath = createTemporary(path, why);
        if (c->temporaryPath.isEmpty()) {
            errorString = QStringLiteral("cannot write %1: %2").arg(path, why);
            return false;
        }
    }
    int result = avformat_alloc_output_context2(&c->format, nullptr, container, nullptr);
    if (result < 0 || !c->format) {
        errorString = QStringLiteral("no %1 writer: %2").arg(container, describe(result));
        QFile::remove(c->temporaryPath);
        return false;
    }
    // H.264 where the build has it; libavcodec's own MPEG-4 encoder always exists.
    const AVCodec* encoder = avcodec_find_encoder_by_name("libx264");
    if (!encoder)
        encoder = avcodec_find_encoder(AV_CODEC_ID_H264);
    if (!encoder)
        encoder = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    if (!encoder) {
        errorString = QStringLiteral("this FFmpeg build has neither an H.264 nor an MPEG-4 encoder");
        QFile::remove(c->temporaryPath);
        return false;
    }
    c->stream = avformat_new_stream(c->format, nullptr);
    c->context = avcodec_alloc_context3(encoder);
    c->frame = av_frame_alloc();
    c->packet = av_packet_alloc();
    if (!c->stream || !c->context || !c->frame || !c->packet) {
        errorString = QStringLiteral("out of memory");
        QFile::remove(c->temporaryPath);
        return false;
    }
    AVCodecContext* context = c->context;
    context->width = width;
    context->height = height;
    // Whole frames per second are exact; others as a fraction of thousandths.
    const AVRational rate = std::abs(framesPerSecond - std::round(framesPerSecond)) < 1e-9
        ? AVRational { int(std::lround(framesPerSecond)), 1 }
        : AVRational { int(std::lround(framesPerSecond * 1000)), 1000 };
    context->time_base = av_inv_q(rate);
    context->framerate = rate;
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->gop_size = int(std::lround(framesPerSecond * 2));
    if (c->format->oformat->flags & AVFMT_GLOBALHEADER)
        context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    AVDictionary* settings = nullptr;
    if (encoder->id == AV_CODEC_ID_H264) {
        // Speckle is fine detail: a low constant rate factor keeps it; "veryfast" keeps up with the drawing.
        av_dict_set(&settings, "preset", "veryfast", 0);
        av_dict_set(&settings, "crf", "18", 0);
    } else {
        context->bit_rate = std::int64_t(width) * height * 6; // about 0.25 bits a pixel at 25 fps
        context->qmax = 8;
    }
    result = avcodec_open2(context, encoder, &settings);
    av_dict_free(&settings);
    if (result < 0) {
        errorString = QStringLiteral("cannot start the %1 encoder: %2").arg(encoder->name, describe(result));
        QFile::remove(c->temporaryPath);
        return false;
    }
    avcodec_parameters_from_context(c->stream->codecpar, context);
    c->stream->time_base = context->time_base;
    c->stream->avg_frame_rate = rate;

    c->frame->format = context->pix_fmt;
    c->frame->width = width;
    c->frame->height = height;
    if (av_frame_get_buffer(c->frame, 0) < 0) {
        errorString = QStringLiteral("out of memory");
        QFile::remove(c->temporaryPath);
        return false;
    }
    c->scaler = sws_getContext(width, height, AV_PIX_FMT_BGRA, width, height, AV_PIX_FMT_YUV420P,
        SWS_BILINEAR | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, nullptr, nullptr, nullptr);
    const QByteArray file = QFile::encodeName(c->temporaryPath);
    result = avio_open(&c->format->pb, file.constData(), AVIO_FLAG_WRITE);
    if (!c->scaler || result < 0) {
        errorString = QStringLiteral("cannot write %1: %2").arg(path, describe(result));
        QFile::remove(c->temporaryPath);
        return false;
    }
    result = avformat_write_header(c->format, nullptr);
    if (result < 0) {
        errorString = QStringLiteral("cannot write %1: %2").arg(path, describe(result));
        avio_closep(&c->format->pb);
        QFile::remove(c->temporaryPath);
        return false;
    }
    c->headerWritten = true;
    codec = std::move(c);
    return true;
}

bool VideoEncoder::addFrame(const QImage& picture)
{
    if (!codec) {
        errorString = QStringLiteral("no video is open");
        return false;
    }
    Codec& c = *codec;
    if (picture.width() != c.context->width || picture.height() != c.context->height) {
        errorString = QStringLiteral("a picture of %1 x %2 in a video of %3 x %4")
                          .arg(picture.width())
                          .arg(picture.height())
                          .arg(c.context->width)
                          .arg(c.context->height);
        return false;
    }
    QElapsedTimer timer;
    timer.start();
    // RGB32 is B, G, R, A in memory on a little-endian machine, ARGB as a 32-bit word elsewhere.
    const QImage rgb = picture.format() == QImage::Format_RGB32 || picture.format() == QImage::Format_ARGB32
        ? picture
        : picture.convertToFormat(QImage::Format_RGB32);
    const std::uint8_t* source[1] = { rgb.constBits() };
    const int stride[1] = { int(rgb.bytesPerLine()) };
    if (av_frame_make_writable(c.frame) < 0) {
        errorString = QStringLiteral("out of memory");
        return false;
    }
    sws_scale(c.scaler, source, stride, 0, rgb.height(), c.frame->data, c.frame->linesize);
    c.conversion += double(timer.nsecsElapsed()) / 1e6;
    timer.restart();
    c.frame->pts = c.frames;
    const int result = c.encode(c.frame);
    c.encoding += double(timer.nsecsElapsed()) / 1e6;
    if (result < 0) {
        errorString = QStringLiteral("cannot write %1: %2").arg(c.path, describe(result));
        return false;
    }
    ++c.frames;
    return true;
}

bool VideoEncoder::finish()
{
    if (!codec) {
        errorString = QStringLiteral("no video is open");
        return false;
    }
    Codec& c = *codec;
    QElapsedTimer timer;
    timer.start();
    int result = c.encode(nullptr);
    if (result >= 0)
        result = av_write_trailer(c.format);
    if (result >= 0)
        result = avio_closep(&c.format->pb);
    c.encoding += double(timer.nsecsElapsed()) / 1e6;
    if (result < 0) {
        errorString = QStringLiteral("cannot write %1: %2").arg(c.path, describe(result));
        abandon();
        return false;
    }
    QFile::remove(c.path);
    if (!QFile::rename(c.temporaryPath, c.path)) {
        errorString = QStringLiteral("cannot name the video %1").arg(c.path);
        abandon();
        return false;
    }
    c.temporaryPath.clear();
    codec.reset();
    return true;
}

void VideoEncoder::abandon()
{
    if (!codec)
        return;
    const QString temporary = codec->temporaryPath;
    codec.reset();
    if (!temporary.isEmpty())
        QFile::remove(temporary);
}

QStringList VideoEncoder::getRemovedStaleFiles() const
{
    return removedStale;
}

QString VideoEncoder::getCodecName() const
{
    return codec && codec->context && codec->context->codec ? QString::fromLatin1(codec->context->codec->name)
                                                            : QString();
}

int VideoEncoder::getFrameCount() const
{
    return codec ? codec->frames : 0;
}

QString VideoEncoder::getErrorString() const
{
    return errorString;
}

double VideoEncoder::getConversionMilliseconds() const
{
    return codec ? codec->conversion : 0.0;
}

double VideoEncoder::getEncodingMilliseconds() const
{
    return codec ? codec->encoding : 0.0;
}

} // namespace Halcyra::Nereon::Export
