#pragma once

#include "TernwickNereonExportExport.h"

#include <QImage>
#include <QString>
#include <QStringList>

#include <memory>

namespace Halcyra::Nereon::Export {

/**
 * Writes pictures as a video at a constant frame rate through FFmpeg's libraries:
 * H.264 (libx264) in MP4 by default, MPEG-4 Part 2 (libavcodec's own encoder, which
 * every build has) where H.264 is missing. The container follows the file name:
 * .mp4, .mov, .mkv or .avi.
 *
 * The video is written under a temporary name beside the output and renamed to it
 * by finish(); a video that is abandoned, fails or is destroyed unfinished leaves
 * nothing under the output name. The temporary file is named
 * ".NAME.PID-N.part"; open() removes such files in the output's folder that
 * belong to this user and to a process that no longer runs (an export that was killed).
 */
class TERNWICK_NEREON_EXPORT_EXPORT VideoEncoder
{
public:
    VideoEncoder();
    ~VideoEncoder();
    VideoEncoder(const VideoEncoder&) = delete;
    VideoEncoder& operator=(const VideoEncoder&) = delete;

    /// Whether `path`'s extension names a container this encoder writes.
    static bool isVideoFile(const QString& path);

    /// Starts a video of `width` × `height` pixels (even numbers) at `framesPerSecond`.
    /// False, with getErrorString(), when the file or the encoder cannot be made.
    bool open(const QString& path, int width, int height, double framesPerSecond);
    /// Appends `picture` (of the video's size) as the next frame.
    bool addFrame(const QImage& picture);
    /// Writes what the encoder holds, closes the file and gives it its name.
    bool finish();
    /// Drops the video: the temporary file is removed, nothing is left under the output name.
    void abandon();

    /// The temporary files of killed exports that the last open() removed (names in the output's folder).
    QStringList getRemovedStaleFiles() const;
    /// The codec in use, e.g. "libx264".
    QString getCodecName() const;
    /// Frames added so far.
    int getFrameCount() const;
    /// Why the last call failed.
    QString getErrorString() const;
    /// Milliseconds spent converting colours (RGB to YUV) so far.
    double getConversionMilliseconds() const;
    /// Milliseconds spent encoding and writing so far.
    double getEncodingMilliseconds() const;

private:
    struct Codec;
    std::unique_ptr<Codec> codec;
    QString errorString;
    QStringList removedStale;
};

} // namespace Halcyra::Nereon::Export
