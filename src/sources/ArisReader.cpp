#include "sources/ArisReader.h"

#include "ArisFrameDecoder.h"
#include "ArisFrameHeader.h"
#include "ArisSampleOrder.h"

#include <QIODevice>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace Halcyra::Nereon::Sources {

namespace {

constexpr std::int64_t fileHeaderSize = 1024;
constexpr std::int64_t frameHeaderSize = std::int64_t(ArisFrameHeader::size);

std::uint32_t read32(const char* bytes)
{
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = value << 8 | std::uint8_t(bytes[i]);
    return value;
}

} // namespace

ArisReader::ArisReader() = default;

ArisReader::~ArisReader()
{
    close();
}

bool ArisReader::hasSignature(const QByteArray& firstBytes)
{
    return firstBytes.size() >= 4 && read32(firstBytes.constData()) == ArisFrameHeader::signature;
}

std::int64_t ArisReader::getTimestamp(int frame) const
{
    return timestamps[std::size_t(frame)];
}

std::int64_t ArisReader::frameOffset(int frame) const
{
    return fileHeaderSize + std::int64_t(frame) * frameSize;
}

bool ArisReader::readHeader(QIODevice& device, int frame, ArisFrameHeader& header, QString& why)
{
    std::uint8_t bytes[ArisFrameHeader::size];
    if (!device.seek(frameOffset(frame))
        || device.read(reinterpret_cast<char*>(bytes), sizeof bytes) != qint64(sizeof bytes)) {
        why = QStringLiteral("frame header unreadable: %1").arg(device.errorString());
        return false;
    }
    if (!ArisFrameHeader::parse(bytes, sizeof bytes, header, &why))
        return false;
    if (std::uint32_t(header.getBeamCount()) != beams || header.samplesPerBeam != samplesPerBeam) {
        why = QStringLiteral("frame of %1 beams × %2 samples in a recording of %3 × %4")
                  .arg(header.getBeamCount())
                  .arg(header.samplesPerBeam)
                  .arg(beams)
                  .arg(samplesPerBeam);
        return false;
    }
    return true;
}

void ArisReader::damaged(int frame, const QString& why)
{
    frameCount = std::min(frameCount, frame);
    timestamps.resize(std::size_t(frameCount));
    markDamage(frameOffset(frame), why);
}

bool ArisReader::openDevice(QIODevice& device)
{
    const std::int64_t fileSize = device.size();
    char fileHeader[8] = {};
    if (fileSize < fileHeaderSize || device.read(fileHeader, sizeof fileHeader) != qint64(sizeof fileHeader)) {
        markDamage(0, QStringLiteral("too short for an ARIS recording (%1 bytes)").arg(fileSize));
        return false;
    }
    if (read32(fileHeader) != ArisFrameHeader::signature) {
        markDamage(0, QStringLiteral("not an ARIS recording of version 5"));
        return false;
    }
    if (fileSize < fileHeaderSize + frameHeaderSize) {
        markDamage(fileHeaderSize, QStringLiteral("no frame after the file header"));
        return false;
    }

    // Every frame has the size of the first.
    std::uint8_t bytes[ArisFrameHeader::size];
    ArisFrameHeader first;
    QString why;
    if (!device.seek(fileHeaderSize) || device.read(reinterpret_cast<char*>(bytes), sizeof bytes) != qint64(sizeof bytes)
        || !ArisFrameHeader::parse(bytes, sizeof bytes, first, &why)) {
        markDamage(fileHeaderSize, why.isEmpty() ? device.errorString() : why);
        return false;
    }
    beams = std::uint32_t(first.getBeamCount());
    samplesPerBeam = first.samplesPerBeam;
    frameSize = frameHeaderSize + std::int64_t(first.getSampleCount());

    const std::int64_t whole = (fileSize - fileHeaderSize) / frameSize;
    frameCount = int(std::min<std::int64_t>(whole, std::numeric_limits<int>::max()));
    if (fileHeaderSize + whole * frameSize != fileSize) {
        markDamage(fileHeaderSize + whole * frameSize,
            QStringLiteral("last frame cut short (%1 of %2 bytes)")
                .arg(fileSize - fileHeaderSize - whole * frameSize)
                .arg(frameSize));
    }

    // The headers alone: the frames' times, and damage found before any frame is shown.
    timestamps.reserve(std::size_t(frameCount));
    for (int frame = 0; frame < frameCount; ++frame) {
        ArisFrameHeader header;
        if (!readHeader(device, frame, header, why)) {
            damaged(frame, why);
            break;
        }
        timestamps.push_back(header.getTimestamp());
    }
    if (frameCount == 0)
        return false;

    description = SonarDescription();
    description.format = QStringLiteral("ARIS recording");
    description.model = first.getModel();
    if (!description.model.isEmpty() && first.largeLens)
        description.model += QStringLiteral(" (telephoto lens)");
    description.serialNumber = QString::number(first.serialNumber);
    description.frequency = first.getFrequency();
    description.beamCount = int(beams);
    description.samplesPerBeam = int(samplesPerBeam);
    description.windowStart = first.getWindowStart();
    description.windowLength = first.getSampleSpacing() * double(samplesPerBeam);
    description.soundSpeed = double(first.soundSpeed);
    description.startTime = timestamps.front();
    description.duration = timestamps.back() - timestamps.front();
    if (std::isfinite(first.frameRate) && first.frameRate > 0.0f)
        description.frameRate = double(first.frameRate);
    else if (frameCount > 1 && description.duration > 0)
        description.frameRate = double(frameCount - 1) * 1e6 / double(description.duration);
    SourceFrame frame;
    if (!decodeFrame(device, 0, frame))
        return false;
    const auto& bearings = frame.image.getBearings();
    description.leftmostBearing = bearings.front() / 100.0;
    description.rightmostBearing = bearings.back() / 100.0;
    return true;
}

void ArisReader::closeDevice()
{
    frameCount = 0;
    beams = 0;
    samplesPerBeam = 0;
    frameSize = 0;
    timestamps.clear();
    buffer.clear();
    reordered.clear();
    description = SonarDescription();
}

bool ArisReader::decodeFrame(QIODevice& device, int frame, SourceFrame& out)
{
    ArisFrameHeader header;
    QString why;
    if (!readHeader(device, frame, header, why)) {
        damaged(frame, why);
        return false;
    }
    buffer.resize(std::size_t(frameSize - frameHeaderSize));
    if (device.read(reinterpret_cast<char*>(buffer.data()), qint64(buffer.size())) != qint64(buffer.size())) {
        damaged(frame, QStringLiteral("frame unreadable: %1").arg(device.errorString()));
        return false;
    }
    // Recordings hold samples in display order; a frame kept as the sonar sent it is
    // put in order first.
    const std::uint8_t* samples = buffer.data();
    if (!header.reorderedSamples) {
        reordered.resize(buffer.size());
        ArisSampleOrder::toDisplayOrder(buffer.data(), int(beams), int(samplesPerBeam), reordered.data());
        samples = reordered.data();
    }
    if (!ArisFrameDecoder::decode(header, samples, buffer.size(), out, &why)) {
        damaged(frame, why);
        return false;
    }
    return true;
}

} // namespace Halcyra::Nereon::Sources
