#pragma once

#include "gui/Vec3.h"

#include <QColor>

#include <cstdint>

namespace Halcyra::Nereon::Visualisation::FanDisplayOptions {

/// Colour table through which intensities are shown. The numbers are stable.
enum Palette : std::int32_t
{
    Greyscale = 0,
    Bronze = 1,
    Blue = 2,
    Green = 3,
    RedYellow = 4,
    Multicolour = 5,
    Fire = 6, ///< computed; takes a modifier
    Aqua = 7, ///< computed; takes a modifier
};

/// Overlays drawn over the fan image, each switchable.
enum OverlayFeature : std::int32_t
{
    RangeLabels = 0,
    RangeArcs = 1,
    RangeLines = 2,
};

/// What a left-button drag inside the fan measures.
enum MeasurementMode : std::int32_t
{
    StraightLine = 0,
    RectangleArea = 1,
    CircleAreaFromCentre = 2,
};

/**
 * The look of one display, read out as a whole with getCurrentDisplaySettings()
 * and applied again with configureFromSettings(), for example to persist it.
 * Not included: despeckle and clamp levels, units, measurement mode, branding, font.
 */
struct DisplaySettings
{
    /// Colour table.
    Palette palette = Greyscale;
    /// Modifier of the Fire or Aqua palette.
    std::uint8_t paletteModifier = 0;
    /// Fan mirrored left to right.
    bool horizontalFlip = false;
    /// Background colour.
    QColor clearColour;
    /// Colour of the overlay text.
    QColor textColour;
    /// Overlay RangeLabels shown.
    bool showRangeLabels = false;
    /// Overlay RangeArcs shown.
    bool showRangeArcs = false;
    /// Overlay RangeLines shown.
    bool showRangeLines = false;
    Vec3<float> scale;       ///< model scale
    Vec3<float> translation; ///< model translation, clip units
    float rotation = 0.0f;   ///< degrees
};

} // namespace Halcyra::Nereon::Visualisation::FanDisplayOptions
