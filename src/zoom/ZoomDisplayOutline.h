#pragma once

#include <QMatrix4x4>
#include <QPointF>
#include <QColor>
#include <QPointer>

namespace Halcyra::GUI::Widgets::Bases {
class OpenGLWidgetPainter;
}

namespace Halcyra::Nereon::Visualisation {

class ZoomDisplay;

/**
 * Marks the magnifier's region on the fan display as a rectangle and lets the
 * user drag it. Holds no geometry of its own: everything is derived from the
 * magnifier's current transform.
 *
 * The application owns the magnifier once it has placed it and may destroy it
 * at any time; the outline then has nothing to mark: it is not drawn, is never
 * hit, and a drag in progress ends.
 */
class ZoomDisplayOutline
{
public:
    explicit ZoomDisplayOutline(ZoomDisplay* zoomDisplay);

    /// Whether point (the display's clip coordinates) lies on the border band.
    bool pointIsWithinBounds(const QPointF& point, const QMatrix4x4& projection) const;
    /// point: clip coordinates divided by the display's scale.
    void beginDrag(const QPointF& point);
    void updateDrag(const QPointF& point);
    void endDrag();
    /// A drag is in progress and its magnifier still exists.
    bool isBeingDragged() const;
    /// The magnifier's transform without its rotation: translation × scale
    /// (the identity once the magnifier is gone).
    QMatrix4x4 getRotationlessProjection() const;
    void draw(GUI::Widgets::Bases::OpenGLWidgetPainter& painter);
    /// The outline's colour: green unless an application chose another.
    void setColour(const QColor& newColour) { colour = newColour; }
    QColor getColour() const { return colour; }

private:
    QColor colour = QColor(0, 128, 0);
    QPointer<ZoomDisplay> zoomDisplay;
    bool beingDragged = false;
    QPointF dragStart;
};

} // namespace Halcyra::Nereon::Visualisation
