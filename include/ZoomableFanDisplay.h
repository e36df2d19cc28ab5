#pragma once

#include "FanDisplay.h"

#include <memory>

namespace Halcyra::Nereon::Visualisation {

/**
 * A FanDisplay whose own view zooms about its centre: 1.0 is the fitted fan,
 * 2.0 twice as large. Overlays, tools and the magnifier outline follow the zoom.
 */
class TERNWICK_NEREON_VISUALISATION_EXPORT ZoomableFanDisplay : public FanDisplay
{
    Q_OBJECT

public:
    /// Creates the display at zoom level 1.0.
    explicit ZoomableFanDisplay(QWidget* parent = nullptr);
    /// Destroys the widget; a running zoom animation ends with it.
    ~ZoomableFanDisplay() override;

    /// Requests a zoom level; animate: in ten steps over 300 ms, otherwise at once.
    /// A level that is not a finite number (NaN, infinity) is ignored. Levels of 0
    /// and below are taken: 0 shrinks the fan to a point at the centre of the view, a negative level
    /// turns the view through 180 degrees about its centre.
    void setZoomLevel(float level, bool animate);
    /// The requested level, also while an animation is still running.
    float getZoomLevel() const;

protected:
    /// Fits the fan into the widget, then applies the zoom level shown about the view's centre.
    void resizeGL(int width, int height) override;

private:
    class ZoomableFanDisplayPrivate;
    std::unique_ptr<ZoomableFanDisplayPrivate> const d;
};

} // namespace Halcyra::Nereon::Visualisation
