#pragma once

#include "TernwickNereonVisualisationExport.h"

#include <QPointF>
#include <QPolygonF>
#include <QSize>
#include <QTransform>

class QColor;
class QString;

namespace Halcyra::GUI::Widgets::Bases {
class OpenGLWidget;
class OpenGLWidgetPainter;
} // namespace Halcyra::GUI::Widgets::Bases

namespace Halcyra::Nereon::Visualisation {

class FanDisplay;
class FanDisplayHooks;
class FanGeometryEngine;

/**
 * What a FanOverlay draws with during one paint of a FanDisplay or its magnifier:
 * where a point of the fan lies in the widget's pixels, and a few drawing calls
 * in those pixels. Positions follow the widget's fit, rotation, mirroring and
 * zoom (the magnifier's own view when it paints). Bearings are the frame's:
 * degrees, positive to starboard, as a mirrored fan shows them too.
 *
 * Also made outside a paint by FanDisplayExtensions::contextFor(), for the
 * conversions only; its drawing calls then do nothing.
 */
class TERNWICK_NEREON_VISUALISATION_EXPORT FanOverlayContext
{
public:
    FanOverlayContext(const FanOverlayContext&) = delete;
    FanOverlayContext& operator=(const FanOverlayContext&) = delete;
    ~FanOverlayContext();

    /**
     * Widget pixels (logical, origin top-left) of the point at rangeMetres from the apex
     * on bearingDegrees. A point of NaNs when it cannot be placed: no frame yet, or a
     * coordinate that is NaN or infinite.
     */
    QPointF toPixels(double rangeMetres, double bearingDegrees) const;
    /// Widget pixels of a point given across (starboard) and along (ahead) in metres.
    QPointF metresToPixels(double acrossMetres, double alongMetres) const;
    /// Range (metres) and bearing (degrees) under a widget pixel; false without a frame.
    bool fromPixels(const QPointF& pixel, double& rangeMetres, double& bearingDegrees) const;
    /// Widget pixels per metre, the same along both axes; 0 without a frame.
    double getPixelsPerMetre() const;
    /// The newest frame's range, metres; 0 before the first frame.
    double getRange() const;
    /// Size of the widget painted, logical pixels.
    QSize getSize() const;
    /// Whether the magnifier is painting (otherwise the display).
    bool isMagnifier() const;
    /// The display the overlay is attached to.
    FanDisplay& getDisplay() const;

    /// A polyline (closed: polygon outline) through widget pixels; width in logical pixels.
    void drawPolyline(const QPolygonF& pixels, const QColor& colour, int width = 2, bool closed = false);
    /// A circle outline of radius in logical pixels.
    void drawCircle(const QPointF& centre, double radius, const QColor& colour, int width = 2);
    /// Text in the display's font, its top-left corner at the pixel.
    void drawText(const QPointF& topLeft, const QString& text, const QColor& colour);

private:
    friend class FanDisplayHooks;

    FanOverlayContext(FanDisplay& display, FanDisplayHooks& hooks, const FanGeometryEngine& engine,
        GUI::Widgets::Bases::OpenGLWidget& widget, GUI::Widgets::Bases::OpenGLWidgetPainter* painter,
        bool magnifier);
    /// The bearing at which the fan shows the frame's bearing (they differ when mirrored).
    double shownBearing(double bearingDegrees) const;
    QPointF toClip(const QPointF& pixel) const;

    FanDisplay& display;
    FanDisplayHooks& hooks;
    GUI::Widgets::Bases::OpenGLWidget& widget;
    GUI::Widgets::Bases::OpenGLWidgetPainter* painter;
    const FanGeometryEngine& engine;
    bool magnifier;
    double range;
    QSize size;
    QTransform fanToPixels; // fan units (apex at the origin, rim at 1) to widget pixels
};

} // namespace Halcyra::Nereon::Visualisation
