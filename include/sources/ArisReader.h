#pragma once

#include "TernwickNereonSourcesExport.h"

#include "sources/FrameReader.h"

#include <QByteArray>

#include <cstdint>
#include <vector>

namespace Halcyra::Nereon::Sources {

/**
 * Reads ARIS sonar recordings (.aris): a 1024-byte file header, then frames of a
 * 1024-byte frame header and beams × samples bytes each, all of one size.
 *
 * Frames are decoded with their true bearings (from the beam-angle table of the
 * sonar, its beam count and lens) and their true window: a window that starts
 * beyond the sonar gets rows of intensity 0 before its first sample (see
 * SourceFrame). Timestamps are the frames' recorded times, as recorded.
 *
 * The frame count comes from the file's size, not from its header. A trailing
 * partial frame, and a frame whose header has a wrong signature, ping mode or size,
 * are damage: reading stops before them, at their byte offset. Opening reads the
 * frame headers alone (1 KB a frame) and keeps their times; frames are read one at
 * a time, so memory does not grow with the recording.
 */
class TERNWICK_NEREON_SOURCES_EXPORT ArisReader : public FrameReader
{
public:
    ArisReader();
    ~ArisReader() override;

    /// Whether `firstBytes` begin with the ARIS file signature.
    static bool hasSignature(const QByteArray& firstBytes);

    int getFrameCount() const override { return frameCount; }
    std::int64_t getTimestamp(int frame) const override;
    SonarDescription getDescription() const override { return description; }

protected:
    bool openDevice(QIODevice& device) override;
    void closeDevice() override;
    bool decodeFrame(QIODevice& device, int frame, SourceFrame& out) override;

private:
    std::int64_t frameOffset(int frame) const;
    /// Reads and checks frame `frame`'s header into `header`; false, with `why`, if it is damaged.
    bool readHeader(QIODevice& device, int frame, struct ArisFrameHeader& header, QString& why);
    /// Cuts the frames at `frame`, which is damaged.
    void damaged(int frame, const QString& why);

    int frameCount = 0;
    std::uint32_t beams = 0;
    std::uint32_t samplesPerBeam = 0;
    std::int64_t frameSize = 0;
    /// Recorded time of every frame, microseconds since 1970.
    std::vector<std::int64_t> timestamps;
    std::vector<std::uint8_t> buffer;
    std::vector<std::uint8_t> reordered;
    SonarDescription description;
};

} // namespace Halcyra::Nereon::Sources
