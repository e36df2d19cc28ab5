#pragma once

#include "sources/SourceFrame.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <map>
#include <vector>

namespace Halcyra::Nereon::Sources {

/**
 * Puts the parts of the live frame stream together into frames: each datagram a
 * FramePart holding the frame's one-based index, its size, the raw frame header (in
 * the first part only) and some samples at an offset.
 *
 * Parts may come in any order, and twice; a frame is handed out only when its parts
 * cover its size exactly, with its header, and its header agrees with the size.
 * Anything else is dropped and counted by reason: a part of a newer frame abandons
 * an unfinished one (the sonar does not send lost parts again), parts of older
 * frames are ignored, and sizes beyond the largest frame a sonar makes are refused
 * before anything is allocated: memory stays within one frame.
 *
 * No single part can put the assembler out of step with the stream: a part far
 * ahead of the frames seen is taken only once a part of a later frame confirms the
 * jump, and when parts of older frames keep coming, from one frame to the next with
 * nothing newer between them, the assembler follows them (the part that set it
 * ahead was not the sonar's).
 */
class ArisFramePartAssembler
{
public:
    /// The most samples a frame can hold: 128 beams of the most samples a header allows.
    static const std::int64_t maximumFrameSize;
    /// The most frames a part may run ahead of the stream unconfirmed: more than a sonar
    /// sends before a silent link is declared lost.
    static const int maximumJump;

    enum class Outcome
    {
        Pending, ///< the part was taken; the frame is not whole yet
        Frame, ///< the part completed a frame
        Dropped, ///< the part, or the frame it belonged to, was dropped
    };

    struct Result
    {
        Outcome outcome = Outcome::Pending;
        QString reason; ///< why, when dropped
        QString abandoned; ///< why the frame before was dropped, when this part began a new one
        SourceFrame frame; ///< when a frame was completed
        int frameIndex = 0; ///< of the part
        int nextOffset = 0; ///< for an acknowledgement: the first byte of the frame not yet received
        int ackPort = 0; ///< where the sonar takes acknowledgements, 0 if it did not say
    };

    /// Takes one datagram of the frame stream.
    Result add(const QByteArray& datagram);
    /// Forgets the frame in progress and which frames were seen (after a reconnection).
    void reset();
    /// Counts a part refused before it reached the assembler (from a stranger, say).
    void countDroppedPart(const QString& reason);

    /// Frames begun and not completed, and parts not used, by reason.
    const std::map<QString, std::int64_t>& getDrops() const { return drops; }
    std::int64_t getDroppedFrames() const { return droppedFrames; }
    std::int64_t getDroppedParts() const { return droppedParts; }

private:
    Result dropPart(Result result, const QString& reason);
    Result dropFrame(Result result, const QString& reason);
    Result complete(Result result);

    int frameIndex = 0; ///< of the frame in progress; 0 for none
    int lastFinished = 0; ///< the newest frame completed or dropped
    int olderRun = 0; ///< the frame of the last part in a run of parts judged older; 0 for none
    int jumpCandidate = 0; ///< a frame far ahead, waiting for confirmation; 0 for none
    int totalSize = 0;
    QByteArray header;
    std::vector<std::uint8_t> samples;
    std::map<int, int> parts; ///< offset -> length of the parts received
    std::int64_t received = 0;
    std::map<QString, std::int64_t> drops;
    std::int64_t droppedFrames = 0;
    std::int64_t droppedParts = 0;
};

} // namespace Halcyra::Nereon::Sources
