#pragma once

#include "TernwickNereonVisualisationExport.h"

#include <QColor>
#include <QPointF>

#include <memory>

namespace Halcyra::Nereon::Visualisation {

class FanDisplay;
class FanMeasurementListener;
class FanOverlay;
class FanOverlayContext;

/**
 * Additions to a FanDisplay that leave it as it is until used: overlays drawn
 * on the fan and its magnifier, listeners told of finished measurements,
 * measuring on the magnifier, and three changes of the display's look. Every
 * option is off by default. A null display is ignored.
 */
class TERNWICK_NEREON_VISUALISATION_EXPORT FanDisplayExtensions
{
public:
    FanDisplayExtensions() = delete;

    /// Draws the overlay (borrowed) on the display and its magnifier from the next paint; once only.
    static void attachOverlay(FanDisplay* display, FanOverlay* overlay);
    /// Stops drawing the overlay from the next paint; an overlay not attached is ignored.
    static void detachOverlay(FanDisplay* display, FanOverlay* overlay);
    /// Tells the listener (borrowed) of every finished measurement; once only.
    static void addMeasurementListener(FanDisplay* display, FanMeasurementListener* listener);
    /// Stops telling the listener; call before the listener is destroyed. Unknown listeners are ignored.
    static void removeMeasurementListener(FanDisplay* display, FanMeasurementListener* listener);

    /**
     * Lets the user measure on the magnifier with the display's tool (the same mode and
     * units), by a left-button drag inside the fan; listeners hear of it as onMagnifier.
     */
    static void setMagnifierMeasuring(FanDisplay* display, bool enabled);
    /// Whether measuring on the magnifier is on; false for a null display.
    static bool isMagnifierMeasuring(FanDisplay* display);

    /**
     * Puts the range lines, arcs and labels, the fit into the widget and the hit test on the
     * outermost beams' true bearings rather than on a whole-degree start angle, which leaves
     * narrow fans off-centre with their grid beside the picture.
     */
    static void setTrueEdges(FanDisplay* display, bool enabled);
    /// Whether the grid and fit follow the outermost beams' true bearings; false for a null display.
    static bool hasTrueEdges(FanDisplay* display);
    /// Leaves the range grid and labels out until the first frame has come.
    static void setGridAwaitsFrame(FanDisplay* display, bool enabled);
    /// Whether the range grid waits for the first frame; false for a null display.
    static bool isGridAwaitingFrame(FanDisplay* display);
    /// Fits the fan smaller where needed so that the range labels stay inside the widget.
    static void setLabelMargin(FanDisplay* display, bool enabled);
    /// Whether the fan is fitted to keep its range labels inside the widget; false for a null display.
    static bool hasLabelMargin(FanDisplay* display);

    /// Colours the outline of the magnifier's region on the display (green by default,
    /// which is hard to see on the blue palettes). An invalid colour restores green.
    static void setMagnifierOutlineColour(FanDisplay* display, const QColor& colour);
    /// The colour of the magnifier's outline (green for a null display).
    static QColor getMagnifierOutlineColour(FanDisplay* display);

    /**
     * The display's conversions between the fan (metres, degrees) and its widget pixels as of
     * its last paint, e.g. for hit tests. Null for a null display.
     */
    static std::unique_ptr<FanOverlayContext> contextFor(FanDisplay* display);
};

} // namespace Halcyra::Nereon::Visualisation
