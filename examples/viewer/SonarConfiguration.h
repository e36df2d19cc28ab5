#pragma once

/// How the simulated sonar samples its scene.
struct SonarConfiguration
{
    int beamCount = 256; ///< beams per frame
    double apertureDegrees = 130; ///< full horizontal aperture
    double range = 40.0; ///< metres to the last range line
    int rangeLines = 500; ///< samples along each beam
    int frameRate = 15; ///< frames per second

    bool operator==(const SonarConfiguration& other) const
    {
        return beamCount == other.beamCount && apertureDegrees == other.apertureDegrees
            && range == other.range && rangeLines == other.rangeLines && frameRate == other.frameRate;
    }
    bool operator!=(const SonarConfiguration& other) const { return !(*this == other); }
};
