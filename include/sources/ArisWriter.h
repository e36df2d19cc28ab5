#pragma once

#include "TernwickNereonSourcesExport.h"

#include <QFile>
#include <QString>

#include <cstdint>
#include <vector>

namespace Halcyra::Nereon::Sources {

struct SourceFrame;

/// What an ARIS recording written by ArisWriter holds: the sonar and its window.
struct TERNWICK_NEREON_SOURCES_EXPORT ArisWriterOptions
{
    /// Beams of a frame: 48, 64, 96 or 128, as the sonar's ping modes have them.
    int beams = 48;
    /// Samples along each beam (1 to 8192).
    int samplesPerBeam = 1000;
    /// Range of the first sample in metres.
    double windowStart = 2.0;
    /// From the first sample to the end of the last, in metres.
    double windowLength = 15.0;
    /// Frames per second, as the headers record it.
    double frameRate = 10.0;
    /// 0 ARIS 1800, 1 ARIS 3000, 2 ARIS 1200; -1 picks the one that has `beams`
    /// (48: ARIS 1200, 96: ARIS 1800, 64 and 128: ARIS 3000).
    int systemType = -1;
    /// The telephoto lens (narrower beams); the ARIS 3000 has no table for it.
    bool telephoto = false;
    std::uint32_t serialNumber = 0;
};

/**
 * Writes ARIS recordings (.aris) that ArisReader reads back frame for frame: a
 * 1024-byte file header, then for every frame a 1024-byte frame header and its
 * samples, sample-major, beam 0 (the right-most) first.
 *
 * A file stores its window in whole microseconds of sample period and start delay
 * together with a sound speed, so the window asked for is stored as the nearest one
 * those can express: the sound speed is chosen (within 1000-2000 m/s) so that the
 * window's length is kept to float precision, and the start moves by at most half a
 * microsecond of travel (under 0.4 mm). getWindow() says what is stored, and what a
 * reader will compute from it.
 */
class TERNWICK_NEREON_SOURCES_EXPORT ArisWriter
{
public:
    /// A window as the headers store it and as a reader computes it back.
    struct Window
    {
        std::uint32_t samplePeriod = 0; ///< microseconds between samples
        std::uint32_t sampleStartDelay = 0; ///< microseconds from transmit to the first sample
        float soundSpeed = 0.0f; ///< metres per second
        double start = 0.0; ///< range of the first sample in metres
        double spacing = 0.0; ///< metres between two samples
        int firstSampleRow = 0; ///< rows of padding a decoded frame has before its first sample
        int rows = 0; ///< rows of a decoded frame: padding and samples
    };

    ArisWriter();
    ~ArisWriter();
    ArisWriter(const ArisWriter&) = delete;
    ArisWriter& operator=(const ArisWriter&) = delete;

    /// The window that `options` is stored as; false, with `error` set, when it cannot be
    /// (no samples, a negative start, a spacing no sound speed can give, too many rows).
    static bool computeWindow(const ArisWriterOptions& options, Window& out, QString* error = nullptr);
    /// The system type written for `options` (resolving -1); -1 if no sonar has its beams.
    static int getSystemType(const ArisWriterOptions& options);
    /// The bearings a reader gives the beams, left to right, in hundredths of a degree
    /// positive to the right; empty when no beam-angle table fits `options`.
    static std::vector<std::int16_t> getBearings(const ArisWriterOptions& options);

    /// Creates or truncates `path` and writes the file header. False, with
    /// getErrorString() set, when the options do not make an ARIS recording or the
    /// file cannot be written.
    bool open(const QString& path, const ArisWriterOptions& options);
    /**
     * Appends `frame`, whose image must be getWindow().rows × beams (as SyntheticPassage
     * and ArisReader make them): its recorded rows, its timestamp (µs since 1970) and
     * its gain are written; its bearings are the table's. The padding rows are not stored.
     */
    bool write(const SourceFrame& frame);
    /**
     * Appends a frame of `samples`: samplesPerBeam rows of `beams` bytes, nearest row
     * first, each row from the left-most beam to the right-most (the image's order),
     * taken at `timestamp` µs since 1970 with receiver gain `gain` dB.
     */
    bool write(const std::uint8_t* samples, std::int64_t timestamp, int gain = 0);
    /// Puts the frame count into the file header and closes the file.
    bool close();

    bool isOpen() const { return file.isOpen(); }
    QString getErrorString() const { return errorString; }
    int getFramesWritten() const { return framesWritten; }
    /// The window being written (valid once open() succeeded).
    const Window& getWindow() const { return window; }

private:
    bool fail(const QString& why);

    QFile file;
    ArisWriterOptions options;
    Window window;
    std::uint32_t pingMode = 0;
    std::uint32_t systemType = 0;
    int framesWritten = 0;
    std::vector<std::uint8_t> buffer;
    QString errorString;
};

} // namespace Halcyra::Nereon::Sources
