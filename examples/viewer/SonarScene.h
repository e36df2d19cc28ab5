#pragma once

#include "SonarConfiguration.h"

#include "nereon/NereonImage.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace Halcyra::Nereon::Sources {
class SyntheticFishModel;
}

/**
 * A synthetic seabed as a forward-looking multibeam sonar sees it: a dark water
 * column, the first seabed return, textured sediment fading with range, a few
 * bright targets casting acoustic shadows, a moving object, and speckle.
 *
 * Positions are fractions of the range, so the scene fills the fan at any range.
 * Everything that does not move is computed once per configuration; a frame
 * only copies it, adds the moving object and applies speckle.
 */
class SonarScene
{
public:
    explicit SonarScene(const SonarConfiguration& configuration, std::uint32_t seed = 0x2545f491u);
    ~SonarScene();

    const SonarConfiguration& getConfiguration() const;
    /// Bearings of the beams in hundredths of a degree, ascending, symmetric about 0.
    const std::vector<std::int16_t>& getBearings() const;

    /// Fish swimming across the fan, as in the synthetic ARIS passages (off by default).
    /// Their passage repeats every fishCycleSeconds.
    void setFish(bool on);
    bool hasFish() const { return fishModel != nullptr; }
    static constexpr double fishCycleSeconds = 120.0;

    /// The frame seen at the given time in seconds; the speckle differs per call.
    Halcyra::Nereon::NereonImage renderFrame(double seconds);

    /// A round echo source; positions and sizes are fractions of the range.
    struct Target
    {
        double x; ///< across, positive to starboard
        double y; ///< along, ahead of the sonar
        double radius;
        float strength; ///< echo relative to the seabed
        double shadowLength; ///< fraction of the target's own distance
    };

    /// The targets lying on the seabed.
    static const std::vector<Target>& getFixedTargets();
    /// The object swimming through the fan, where it is at a time in seconds.
    static Target getMovingTarget(double seconds);

private:
    void buildBearings();
    void buildBackground();
    void addTarget(std::vector<float>& echoes, const Target& target, bool onSeabed) const;
    float attenuation(int rangeLine) const;
    std::uint32_t nextRandom();

    SonarConfiguration configuration;
    std::vector<std::int16_t> bearings;
    std::vector<float> beamSines;
    std::vector<float> beamCosines;
    std::vector<float> background; ///< echo strength per sample, attenuation included
    std::vector<float> working;
    std::vector<float> speckle; ///< unit-mean amplitude multipliers
    std::vector<std::uint8_t> compression; ///< echo strength to intensity
    std::uint32_t randomState;
    std::unique_ptr<Halcyra::Nereon::Sources::SyntheticFishModel> fishModel;
    std::vector<float> fishEchoes;
};
