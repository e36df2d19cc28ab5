#pragma once

#include "TernwickNereonVisualisationExport.h"
#include "gui/OpenGLWidget.h"

#include <QPointF>

#include <memory>

namespace Halcyra::Nereon::Visualisation {

class FanDisplay;
class FanGeometryEngine;

/**
 * The magnifier of a FanDisplay: redraws the display's current frame at one of
 * ten fixed zoom levels (4 to 10 times), turned with the display. Obtain it with
 * FanDisplay::getZoomDisplay() and place it in your widget tree, which then owns
 * it; it must not outlive its FanDisplay. Until the FanDisplay has set up its
 * GL objects, and whenever the two GL contexts do not share objects, the
 * magnifier shows only its background.
 *
 * It draws with GL objects created in the FanDisplay's context, so the two GL
 * contexts must share objects. Qt arranges that when both widgets are in the
 * same top-level window. To show the magnifier in another window (a floating
 * dock, a second top-level), set Qt::AA_ShareOpenGLContexts before creating the
 * QApplication:
 * @code
 * QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
 * QApplication app(argc, argv);
 * @endcode
 */
class TERNWICK_NEREON_VISUALISATION_EXPORT ZoomDisplay : public GUI::Widgets::Bases::OpenGLWidget
{
public:
    /// Created by FanDisplay; applications do not construct it.
    ZoomDisplay(FanGeometryEngine& geometryEngine, FanDisplay& parentDisplay);
    /// Destroys the magnifier; the GL objects it draws with belong to its display.
    ~ZoomDisplay() override;

    /// One step up the zoom table, keeping the view centre.
    void zoomIn();
    /// One step down the zoom table, keeping the view centre.
    void zoomOut();
    /// Back to level 0 with the apex at the bottom centre, for the current rotation.
    void reset();
    /// Moves the view by (x, y) clip units (absolute: replaces the translation).
    void pan(float x, float y, bool absolute);
    /// Turns the view to the given angle in degrees, keeping the magnified region.
    void setRotation(float degrees);
    /// Background colour, applied at the next paint.
    void setClearColour(const QColor& colour);
    /// The fan display whose frame this magnifier shows.
    FanDisplay& getParentDisplay() const;

protected:
    /// Sets the initial background colour once the GL context exists.
    void initialise() override;
    /// Keeps a fan unit the same size in pixels: a larger magnifier shows more.
    void resizeEvent(QResizeEvent* event) override;
    /// Clears and draws the display's frame through the magnifier's view.
    void paintGL() override;

private:
    friend class FanDisplay; // tells the magnifier when it is destroyed

    /// From then on the magnifier draws only its background and asks nothing of its display.
    void parentDisplayDestroyed();

    class ZoomDisplayPrivate;
    std::unique_ptr<ZoomDisplayPrivate> const d;
};

} // namespace Halcyra::Nereon::Visualisation
