#pragma once

#include <QString>

#include <cstddef>
#include <cstdint>

namespace Halcyra::Nereon::Sources {

/**
 * The fields of an ARIS frame header that a picture needs, as recorded in .aris
 * files (1024 bytes before every frame's samples) and sent by a sonar in the first
 * part of every live frame (only the bytes in use). Little-endian throughout.
 */
struct ArisFrameHeader
{
    /// "DDF" and 0x05: the signature of both the file and the frame headers.
    static constexpr std::uint32_t signature = 0x05464444u;
    /// Size of a frame header in a file.
    static constexpr std::size_t size = 1024;
    /// The header's bytes up to the last field read here; a live header may stop after them.
    static constexpr std::size_t minimumSize = 520;
    /// Bounds on what a frame may hold; beyond them a header is taken as damaged.
    static constexpr std::uint32_t maximumSamplesPerBeam = 8192;

    std::uint32_t frameIndex = 0;
    std::uint64_t frameTime = 0; ///< microseconds since 1970-01-01 UTC, when recorded
    std::uint32_t version = 0;
    std::uint32_t receiverGain = 0; ///< dB
    std::uint32_t pingMode = 0;
    std::uint32_t frequencyHigh = 0; ///< 1: high frequency, 0: low
    std::uint32_t samplePeriod = 0; ///< microseconds
    float frameRate = 0.0f; ///< frames per second
    float soundSpeed = 0.0f; ///< metres per second
    std::uint32_t samplesPerBeam = 0;
    std::uint32_t sampleStartDelay = 0; ///< microseconds
    std::uint32_t largeLens = 0; ///< non-zero: the telephoto lens
    std::uint32_t systemType = 0; ///< 0 ARIS 1800, 1 ARIS 3000, 2 ARIS 1200
    std::uint32_t serialNumber = 0;
    std::uint32_t reorderedSamples = 0; ///< non-zero: samples are in display order

    /// The frame's time in microseconds since 1970; a time past any clock (2^62 µs, beyond
    /// the year 100 000) reads as 0, so that times can be subtracted without overflowing.
    std::int64_t getTimestamp() const
    {
        return frameTime > (std::uint64_t(1) << 62) ? 0 : std::int64_t(frameTime);
    }
    /// Beams of a frame of this ping mode; 0 for a ping mode that does not exist.
    int getBeamCount() const;
    /// Samples of the frame: beams × samples per beam.
    std::uint64_t getSampleCount() const { return std::uint64_t(getBeamCount()) * samplesPerBeam; }
    /// Range of the first sample in metres.
    double getWindowStart() const;
    /// Distance between two samples along a beam in metres.
    double getSampleSpacing() const;
    /// "ARIS 1200" and so on; empty for an unknown system type.
    QString getModel() const { return modelOf(systemType); }
    /// The model of a system type as headers and beacons number them; empty if unknown.
    static QString modelOf(std::uint32_t systemType);
    /// Centre frequency of the transmit in hertz; NaN for an unknown system type.
    double getFrequency() const;

    /**
     * Reads a header from the first `byteCount` bytes at `bytes`: at least minimumSize,
     * bytes beyond byteCount read as zero. False, with `problem` set, when it is too
     * short or a field that the picture depends on is impossible: signature, ping mode,
     * samples per beam, sample period, sound speed.
     */
    static bool parse(const std::uint8_t* bytes, std::size_t byteCount, ArisFrameHeader& out, QString* problem);
};

} // namespace Halcyra::Nereon::Sources
