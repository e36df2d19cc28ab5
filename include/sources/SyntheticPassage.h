#pragma once

#include "TernwickNereonSourcesExport.h"

#include "sources/ArisWriter.h"
#include "sources/SourceFrame.h"

#include <QString>

#include <cstdint>
#include <memory>
#include <vector>

namespace Halcyra::Nereon::Sources {

/// How a synthetic passage looks: the sonar, the recording and the fish in it.
struct TERNWICK_NEREON_SOURCES_EXPORT SyntheticPassageOptions
{
    /// Beams of a frame. 48, 64, 96 and 128 get the ARIS beam-angle table of the
    /// sonar (systemType, telephoto) and can be written with ArisWriter; other counts
    /// are spread evenly over the 128-beam sonar's fan.
    int beams = 48;
    /// Samples along each beam.
    int samples = 1000;
    /// Range of the first sample and length of the window, metres.
    double windowStart = 2.0;
    double windowLength = 15.0;
    /// Frames per second, and how many frames the passage has.
    double frameRate = 10.0;
    int frames = 600;
    /// Fish that pass, and the seed everything random is drawn from: the same options
    /// give the same frames and the same truth, byte for byte (random numbers are drawn
    /// without the standard distributions, so only the maths library can differ).
    int fish = 8;
    std::uint64_t seed = 1;
    /// Shares of the fish that are faint (about a third of the echo), that cross
    /// another fish going the other way (in pairs, meeting in mid-fan), and that are
    /// seen only briefly, for 0.6 to 2 s (they swim into and out of the beams' height
    /// in mid-fan). Other fish cross the whole fan, within the recording where it is
    /// long enough.
    double faintFraction = 0.2;
    double crossingFraction = 0.2;
    double briefFraction = 0.1;
    /// Time of frame 0, microseconds since 1970-01-01 UTC (2026-06-01 05:00 UTC).
    std::int64_t startTime = 1780290000000000;
    /// The sonar: see ArisWriterOptions (-1 picks the sonar with this many beams).
    int systemType = -1;
    bool telephoto = false;
    /// Where fish swim (range in metres, within the window) and how (metres, m/s).
    double minimumFishRange = 3.0;
    double maximumFishRange = 15.0;
    double minimumFishLength = 0.3;
    double maximumFishLength = 1.2;
    double minimumFishSpeed = 0.3;
    double maximumFishSpeed = 1.5;
    /// Rocks on the bed, each with its acoustic shadow, and whether a log lies across it.
    int rocks = 6;
    bool structure = true;
    /// Strength of the speckle every frame gets: 1 is what a sonar shows, 0 none.
    double speckle = 1.0;
};

/// One fish of a passage, as it is drawn.
struct TERNWICK_NEREON_SOURCES_EXPORT SyntheticFish
{
    int id = 0;
    /// First and last frame in which the fish is visible (inside the fan and the window).
    int firstFrame = 0;
    int lastFrame = 0;
    /// True: the fish swims towards increasing bearings (from the left of the fan to
    /// the right, seen from the sonar); false: from right to left.
    bool up = true;
    double lengthM = 0.0;
    double speedMS = 0.0;
    bool faint = false;
    bool brief = false;
};

/// Where a fish's centre is in one frame, in the sonar's true geometry.
struct TERNWICK_NEREON_SOURCES_EXPORT SyntheticFishPosition
{
    int id = 0;
    int frame = 0;
    double rangeM = 0.0;
    /// Degrees, positive to the right of the sonar's axis, as the frames' bearings.
    double bearingDeg = 0.0;
    /// Whether the fish is drawn in that frame.
    bool visible = false;
};

/**
 * A deterministic scene of fish passing a sonar, with its ground truth: a static
 * bed with rocks, a log and their shadows, echoes that fall off with range,
 * speckle in every frame, and fish as elongated textured echoes, brightest at mid
 * body, oriented along their motion, crossing the fan both ways.
 *
 * Frames are SourceFrames as ArisReader makes them (padding rows before the
 * window, true bearings), so the frames written by ArisWriter with
 * getWriterOptions() read back identical. Everything is drawn in metres and
 * degrees: a fish is as many beams wide as its size at its range makes it.
 *
 * Options out of range are brought into it (beams 1-4096, samples 1-16384, a
 * positive window and frame rate); a window too far out for the frame's 65535 rows
 * is moved nearer. getOptions() gives what is used.
 */
class TERNWICK_NEREON_SOURCES_EXPORT SyntheticPassage
{
public:
    explicit SyntheticPassage(const SyntheticPassageOptions& options);
    ~SyntheticPassage();
    SyntheticPassage(const SyntheticPassage&) = delete;
    SyntheticPassage& operator=(const SyntheticPassage&) = delete;

    /// The next frame, from frame 0, with timestamps from startTime at the frame rate;
    /// false after the last.
    bool nextFrame(SourceFrame& out);
    /// Frame `index` (0 to frames − 1), independent of nextFrame(); false out of range.
    bool renderFrame(int index, SourceFrame& out) const;
    /// Back to frame 0.
    void rewind();

    const SyntheticPassageOptions& getOptions() const;
    /// The fish, by id (0 to fish − 1).
    const std::vector<SyntheticFish>& getFish() const;
    /// Every fish in every frame, frame by frame and by id within a frame.
    const std::vector<SyntheticFishPosition>& getPositions() const;
    /// Options for ArisWriter that store these frames; its window matches the frames'.
    ArisWriterOptions getWriterOptions() const;
    /// Bearings of the frames' beams, left to right, hundredths of a degree.
    const std::vector<std::int16_t>& getBearings() const;

    /**
     * Writes the truth as two CSV files: `fishCsv` with
     * fish_id,first_frame,last_frame,direction,length_m,speed_m_s,faint,brief
     * (direction "up" or "down", flags 0 or 1) and `positionsCsv` with
     * fish_id,frame,range_m,bearing_deg,visible. False, with `error` naming the file.
     */
    static bool writeTruth(const QString& fishCsv, const QString& positionsCsv,
        const std::vector<SyntheticFish>& fish, const std::vector<SyntheticFishPosition>& positions,
        QString* error = nullptr);
    /// writeTruth() of this passage.
    bool writeTruth(const QString& fishCsv, const QString& positionsCsv, QString* error = nullptr) const;

private:
    class SyntheticPassagePrivate;
    std::unique_ptr<SyntheticPassagePrivate> const d;
};

} // namespace Halcyra::Nereon::Sources
