#pragma once

#include "ZoomableFanDisplay.h"

#include <QTimer>

namespace Halcyra::Nereon::Visualisation {

class ZoomableFanDisplay::ZoomableFanDisplayPrivate
{
public:
    /// One tick of the animation: moves currentZoomLevel a step towards zoomLevel.
    void stepAnimation(ZoomableFanDisplay& display);
    /// Rescales the view from previous to currentZoomLevel about its centre.
    void changeLevel(ZoomableFanDisplay& display, float previous);

    float zoomLevel = 1.0f; ///< requested level
    float currentZoomLevel = 1.0f; ///< level on screen; differs only while animating
    QTimer zoomTimer;
    float zoomStep = 0.0f; ///< subtracted from currentZoomLevel at each tick
};

} // namespace Halcyra::Nereon::Visualisation
