#pragma once

#include "TernwickNereonVisualisationExport.h"

namespace Halcyra::Nereon::Visualisation {

class FanOverlayContext;

/**
 * Something an application draws over the fan, by the FanDisplay and by its
 * magnifier, after the measuring tool. Attach it with
 * FanDisplayExtensions::attachOverlay() and detach it before it is destroyed.
 * Called on the GUI thread inside the widgets' paints; an overlay whose content
 * changes asks its display to repaint (FanDisplay::update()), which repaints a
 * visible magnifier too.
 */
class TERNWICK_NEREON_VISUALISATION_EXPORT FanOverlay
{
public:
    virtual ~FanOverlay();

    /// Draws through the context, which places fan points (metres, degrees) in the widget painted.
    virtual void paintOverlay(FanOverlayContext& context) = 0;
};

} // namespace Halcyra::Nereon::Visualisation
