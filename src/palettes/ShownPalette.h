#pragma once

#include "FanDisplayOptions.h"

#include <QColor>
#include <QRgb>

#include <array>

namespace Halcyra::Nereon::Visualisation::Palettes {

/**
 * The palette as the fan shows it, worked out on the CPU: the selected
 * palette's entries (Fire and Aqua with their modifier) and the two thresholds
 * between which intensities are clamped before the lookup. Overlays use it to
 * repeat the fan's colours without reading anything back from GL.
 */
class ShownPalette
{
public:
    ShownPalette(FanDisplayOptions::Palette palette, unsigned char modifier, float lowerThreshold,
        float upperThreshold);

    /// Whether this is the palette for the given selection and thresholds.
    bool isFor(FanDisplayOptions::Palette palette, unsigned char modifier, float lowerThreshold,
        float upperThreshold) const;

    /**
     * The colour the fan shows for an intensity in 0..1 (a byte v stands for
     * v / 255): clamped between the thresholds, then looked up with the linear
     * filtering the palette texture uses.
     */
    QColor colourAt(double intensity) const;

    /**
     * A grey for grid lines over the middle tones (40 % to 60 % of the shown
     * intensities): the one nearest mid-grey whose contrast ratio with each of
     * them is at least 3.5, or black or white, whichever stands out more, when
     * no grey reaches that.
     */
    QColor contrastingGridColour() const;

    /// Relative luminance (0 black to 1 white) of an sRGB colour, as web accessibility rules define it.
    static double relativeLuminance(const QColor& colour);
    /// Contrast ratio (1 to 21) of two colours: (lighter + 0.05) / (darker + 0.05).
    static double contrastRatio(const QColor& first, const QColor& second);

private:
    FanDisplayOptions::Palette palette;
    unsigned char modifier;
    float lowerThreshold;
    float upperThreshold;
    std::array<QRgb, 256> entries {};
};

} // namespace Halcyra::Nereon::Visualisation::Palettes
