#include "ArisFramePartAssembler.h"

#include "ArisFrameDecoder.h"
#include "ArisFrameHeader.h"
#include "ArisSampleOrder.h"

#include "frame_stream.pb.h"

namespace Halcyra::Nereon::Sources {

const std::int64_t ArisFramePartAssembler::maximumFrameSize
    = std::int64_t(128) * ArisFrameHeader::maximumSamplesPerBeam;
const int ArisFramePartAssembler::maximumJump = 1000;

void ArisFramePartAssembler::reset()
{
    frameIndex = 0;
    lastFinished = 0;
    olderRun = 0;
    jumpCandidate = 0;
    totalSize = 0;
    header.clear();
    samples.clear();
    samples.shrink_to_fit();
    parts.clear();
    received = 0;
}

void ArisFramePartAssembler::countDroppedPart(const QString& reason)
{
    ++drops[reason];
    ++droppedParts;
}

ArisFramePartAssembler::Result ArisFramePartAssembler::dropPart(Result result, const QString& reason)
{
    result.outcome = Outcome::Dropped;
    result.reason = reason;
    ++drops[reason];
    ++droppedParts;
    return result;
}

ArisFramePartAssembler::Result ArisFramePartAssembler::dropFrame(Result result, const QString& reason)
{
    result.outcome = Outcome::Dropped;
    result.reason = reason;
    ++drops[reason];
    ++droppedFrames;
    lastFinished = std::max(lastFinished, frameIndex);
    frameIndex = 0;
    parts.clear();
    received = 0;
    header.clear();
    return result;
}

ArisFramePartAssembler::Result ArisFramePartAssembler::add(const QByteArray& datagram)
{
    Result result;
    frame_stream::FramePart part;
    if (datagram.isEmpty() || !part.ParseFromArray(datagram.constData(), datagram.size()))
        return dropPart(result, QStringLiteral("unreadable frame part"));
    result.frameIndex = part.frame_index();
    result.ackPort = part.ack_port();
    const int index = part.frame_index();
    if (index <= 0)
        return dropPart(result, QStringLiteral("frame part without a frame number"));
    if (part.total_data_size() <= 0 || part.total_data_size() > maximumFrameSize)
        return dropPart(result, QStringLiteral("frame part claims an impossible frame size (%1 bytes)")
                                    .arg(part.total_data_size()));
    if (index <= lastFinished || (frameIndex != 0 && index < frameIndex)) {
        // One older frame's parts are late arrivals; a second, later one with nothing newer
        // between them is the stream itself, and what set the assembler ahead was not.
        if (olderRun == 0 || index <= olderRun) {
            olderRun = std::max(olderRun, index);
            return dropPart(result, QStringLiteral("part of an older frame"));
        }
        if (frameIndex != 0)
            result.abandoned
                = dropFrame(result, QStringLiteral("frame far ahead of the stream dropped")).reason;
        lastFinished = index - 1;
        jumpCandidate = 0;
    }
    olderRun = 0;
    const int reference = std::max(frameIndex, lastFinished);
    if (reference > 0 && index - std::int64_t(reference) > maximumJump) {
        // Taken once a part of a later frame, within reach of it, confirms the jump.
        const bool confirmed = jumpCandidate != 0 && index > jumpCandidate
            && index - std::int64_t(jumpCandidate) <= maximumJump;
        if (!confirmed) {
            jumpCandidate = index;
            return dropPart(result, QStringLiteral("frame part far ahead of the stream"));
        }
    }
    jumpCandidate = 0;

    if (index > frameIndex) {
        // The sonar sends no lost part again: a newer frame means the older one is lost.
        if (frameIndex != 0)
            result.abandoned = dropFrame(result, QStringLiteral("frame incomplete when the next began (parts lost)")).reason;
        frameIndex = index;
        totalSize = part.total_data_size();
        samples.assign(std::size_t(totalSize), 0);
        parts.clear();
        received = 0;
        header.clear();
    } else if (part.total_data_size() != totalSize) {
        return dropFrame(result, QStringLiteral("frame parts disagree on the frame's size"));
    }

    const std::string& data = part.data();
    const std::int64_t offset = part.data_offset();
    if (offset < 0 || offset + std::int64_t(data.size()) > totalSize)
        return dropFrame(result, QStringLiteral("frame part beyond the frame's size"));
    if (!part.header().empty()) {
        if (offset != 0)
            return dropFrame(result, QStringLiteral("frame header in a part that is not the first"));
        header = QByteArray(part.header().data(), int(part.header().size()));
    }
    if (!data.empty()) {
        // A part seen before is harmless; one that overlaps another is not.
        auto next = parts.lower_bound(int(offset));
        if (next != parts.end() && next->first == offset && next->second == int(data.size())) {
            result.nextOffset = int(received);
            return dropPart(result, QStringLiteral("frame part received twice"));
        }
        if ((next != parts.end() && next->first < offset + std::int64_t(data.size()))
            || (next != parts.begin() && std::prev(next)->first + std::prev(next)->second > offset))
            return dropFrame(result, QStringLiteral("frame parts overlap"));
        parts.emplace(int(offset), int(data.size()));
        std::copy(data.begin(), data.end(), samples.begin() + offset);
        received += std::int64_t(data.size());
    }
    // The first byte not yet received, for the acknowledgement.
    std::int64_t expected = 0;
    for (const auto& [start, length] : parts) {
        if (start != expected)
            break;
        expected += length;
    }
    result.nextOffset = int(expected);
    if (received < totalSize || header.isEmpty())
        return result;
    return complete(result);
}

ArisFramePartAssembler::Result ArisFramePartAssembler::complete(Result result)
{
    ArisFrameHeader parsed;
    QString problem;
    if (!ArisFrameHeader::parse(reinterpret_cast<const std::uint8_t*>(header.constData()), std::size_t(header.size()),
            parsed, &problem))
        return dropFrame(result, QStringLiteral("frame header unusable: %1").arg(problem));
    if (std::int64_t(parsed.getSampleCount()) != totalSize)
        return dropFrame(result, QStringLiteral("frame header does not match the frame's size"));
    const std::uint8_t* ordered = samples.data();
    std::vector<std::uint8_t> reordered;
    if (!parsed.reorderedSamples) {
        reordered.resize(samples.size());
        ArisSampleOrder::toDisplayOrder(samples.data(), parsed.getBeamCount(), int(parsed.samplesPerBeam), reordered.data());
        ordered = reordered.data();
    }
    if (!ArisFrameDecoder::decode(parsed, ordered, samples.size(), result.frame, &problem))
        return dropFrame(result, QStringLiteral("frame unusable: %1").arg(problem));
    result.frame.index = frameIndex - 1;
    result.outcome = Outcome::Frame;
    result.nextOffset = totalSize;
    lastFinished = frameIndex;
    frameIndex = 0;
    parts.clear();
    received = 0;
    header.clear();
    return result;
}

} // namespace Halcyra::Nereon::Sources
