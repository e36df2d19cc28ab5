#pragma once

#include "TernwickNereonSourcesExport.h"

#include "sources/FrameReader.h"

#include <QByteArray>

#include <cstdint>
#include <memory>
#include <vector>

namespace Halcyra::Nereon::Sources {

/**
 * Reads the viewer's own frame recordings (docs/recording-format.md): open()
 * checks the file header and indexes the records by their headers alone, stopping
 * at the first damage; reading a frame checks its payload as it decodes it.
 * Frames come back byte for byte as they were recorded.
 */
class TERNWICK_NEREON_SOURCES_EXPORT RecordingReader : public FrameReader
{
public:
    RecordingReader();
    ~RecordingReader() override;

    /// Whether `firstBytes` begin with the recording's magic.
    static bool hasSignature(const QByteArray& firstBytes);

    int getFrameCount() const override { return int(index.size()); }
    std::int64_t getTimestamp(int frame) const override;
    SonarDescription getDescription() const override;

    /// Wall-clock start of the recording in milliseconds since 1970 (UTC).
    std::int64_t getStartTime() const { return startTime; }

protected:
    bool openDevice(QIODevice& device) override;
    void closeDevice() override;
    bool decodeFrame(QIODevice& device, int frame, SourceFrame& out) override;

private:
    struct Entry
    {
        std::int64_t offset; ///< of the record header
        std::uint32_t payloadSize;
        std::uint32_t payloadChecksum;
        std::int64_t timestamp; ///< microseconds from the start of the recording
    };

    void buildIndex(QIODevice& device);

    struct ContextDeleter
    {
        void operator()(void* context) const;
    };

    std::unique_ptr<void, ContextDeleter> context;
    std::vector<Entry> index;
    std::vector<std::uint8_t> payload;
    std::int64_t startTime = 0;
    SonarDescription description;
};

} // namespace Halcyra::Nereon::Sources
