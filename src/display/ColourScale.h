#pragma once

#include "palettes/ShownPalette.h"

#include <QColor>
#include <QFont>
#include <QImage>
#include <QMatrix4x4>
#include <QRect>
#include <QRectF>
#include <QSize>
#include <QString>

#include <optional>
#include <vector>

namespace Halcyra::GUI::Widgets::Bases {
class OpenGLWidgetPainter;
}

namespace Halcyra::Nereon::Visualisation {

class FanGeometryEngine;

/**
 * The fan display's colour scale: a vertical bar of the palette exactly as the
 * fan shows it (palette, modifier and thresholds), intensity rising linearly
 * from 0 % at its bottom row to 100 % at its top row, with tick labels in
 * percent. It sits in the corner of the widget that the fan, its range labels
 * and the logos leave most room in, and sizes itself to that room.
 *
 * Everything is drawn through the widget's overlay painter, inside paintGL,
 * after the fan image. The layout is worked out again only when what it
 * depends on changes; the bar picture only when the palette or its size does.
 */
class ColourScale
{
public:
    /// What one paint knows about the widget, in logical pixels.
    struct Scene
    {
        QSize size;
        qreal devicePixelRatio = 1.0;
        QMatrix4x4 projection;
        float rotation = 0.0f;
        bool rangeLabelsShown = false;
        QFont font;
        QColor textColour;
        /// The display's background, for the plate under a scale that has to sit over the fan.
        QColor backgroundColour;
        /// Areas to keep clear besides the fan and its labels (the logos).
        std::vector<QRectF> reserved;
    };

    /// Draws the scale; engine is the one that has just drawn the fan (its geometry is current).
    void draw(
        GUI::Widgets::Bases::OpenGLWidgetPainter& painter, FanGeometryEngine& engine, const Scene& scene);

    /// Where the bar was drawn at the last paint (logical pixels); empty when it was not drawn.
    QRect getBarRectangle() const;

private:
    struct Layout
    {
        QRect bar;
        /// Bar, ticks and labels, when they could not be kept off the fan; empty otherwise.
        QRect plate;
        bool labelsOnLeft = false;
        std::vector<int> tickPercents;
    };

    /// Everything the layout depends on, to tell when it must be worked out again.
    struct LayoutKey
    {
        QSize size;
        QMatrix4x4 projection;
        QFont font;
        std::vector<float> fanOutline;
        QString labels;
        std::vector<QRectF> reserved;

        bool operator==(const LayoutKey& other) const;
    };

    Layout computeLayout(FanGeometryEngine& engine, const Scene& scene) const;

    std::optional<LayoutKey> layoutKey;
    Layout layout;
    std::optional<Palettes::ShownPalette> barPalette;
    QImage barImage;
    QImage plateImage;
};

} // namespace Halcyra::Nereon::Visualisation
