#pragma once

#include "ZoomDisplay.h"
#include "gui/Vec3.h"

#include <QColor>
#include <QPointF>

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

    FanGeometryEngine& geometryEngine;
    FanDisplay& parentDisplay;
    QColor clearColour = QColor(QStringLiteral("white"));
    bool clearColourChanged = false;
    std::int32_t zoomLevelIndex = 0;
};

} // namespace Halcyra::Nereon::Visualisation
