#pragma once

#include "ZoomDisplay.h"
#include "gui/Vec3.h"

#include <QColor>
#include <QPointF>
#include <QSize>

#include <array>
#include <cstdint>

namespace Halcyra::Nereon::Visualisation {

class FanDisplay;
class FanGeometryEngine;

class ZoomDisplay::ZoomDisplayPrivate
{
public:
    /// Magnification of each zoom step, fan units to clip units.
    static constexpr std::array<float, 10> ZoomLevels { 4.0f, 4.5f, 5.0f, 5.5f, 6.0f, 6.5f, 7.0f, 8.0f, 9.0f,
        10.0f };

    ZoomDisplayPrivate(FanGeometryEngine& geometryEngine, FanDisplay& parentDisplay);

    /// Applies the factor at zoomLevelIndex, keeping the fan point at the view centre.
    void applyZoom(ZoomDisplay& display);
    /// Translation that puts the apex at the bottom centre for a rotation in degrees.
    Vec3<float> getDefaultTranslation(float rotation) const;
    /// translation turned by angle degrees about the origin.
    Vec3<float> calculateTranslation(const Vec3<float>& translation, float angle) const;
    QPointF pixelsToGL(const QPointF& pixel, const ZoomDisplay& display) const;
    /// Whether the fan display's engine has its GL objects and they can be used
    /// from the magnifier's context: the display is initialised and the two
    /// contexts share objects.
    bool engineIsReady(const ZoomDisplay& display) const;
    /// Asks the fan display to repaint, or only the magnifier once the display is gone.
    void requestUpdate(ZoomDisplay& display);

    FanGeometryEngine& geometryEngine;
    FanDisplay& parentDisplay;
    QColor clearColour = QColor(QStringLiteral("white"));
    bool clearColourChanged = false;
    /// Whether the application chose a clear colour, kept over a change of context.
    bool clearColourChosen = false;
    std::int32_t zoomLevelIndex = 0;

    // The last width and height above zero. A resize scales against these, so
    // that passing through an empty size neither divides by zero nor loses the
    // picture's size in pixels.
    QSize lastVisibleSize = QSize(0, 0);
    // Set by the fan display's destructor: the references above are dangling then.
    bool parentDisplayDestroyed = false;
};

} // namespace Halcyra::Nereon::Visualisation
