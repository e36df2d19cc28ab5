#pragma once

#include "engine/FanGeometryEngine.h"
#include "palettes/AbstractDynamicPalette.h"

namespace Halcyra::Nereon::Visualisation {

/// Reaches the engine's state for tests, through the friend declaration.
class FanGeometryEngineProbe
{
public:
    explicit FanGeometryEngineProbe(FanGeometryEngine& engine)
        : e(engine)
    {
    }

    float& aperture() { return e.aperture; }
    std::int16_t& startAngle() { return e.startAngle; }
    std::vector<std::int16_t>& bearings() { return e.bearings; }
    // The thresholds as the frames stored so far left them, to read or replace.
    float& lowerThreshold()
    {
        e.settleThresholds();
        return e.lowerThreshold;
    }
    float& upperThreshold()
    {
        e.settleThresholds();
        return e.upperThreshold;
    }
    float chosenPalette() const { return e.chosenPalette; }
    bool& newGeometry() { return e.newGeometry; }
    bool& newImage() { return e.newImage; }
    bool flipped() const { return e.flipped; }
    const QPolygonF& fanPolygon() const { return e.fanPolygon; }
    const std::vector<float>& rangeLineVertices() const { return e.rangeLineVertices; }
    const std::vector<std::vector<float>>& rangeArcVertices() const { return e.rangeArcVertices; }

    Palettes::AbstractPalette* standardPalettes() const { return e.standardPalettes.get(); }
    Palettes::AbstractDynamicPalette* firePalette() const { return e.firePalette.get(); }
    Palettes::AbstractDynamicPalette* aquaPalette() const { return e.aquaPalette.get(); }
    QOpenGLTexture* intensities() const { return e.intensities.get(); }
    QOpenGLBuffer& fanVertexBuffer() { return e.fanVertexBuffer; }
    bool& filterRunsAllowed() { return e.filterRunsAllowed; }
    const TextureFilterRuns& filterRuns() const { return e.filterRuns; }

private:
    FanGeometryEngine& e;
};

} // namespace Halcyra::Nereon::Visualisation
