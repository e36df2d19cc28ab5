#pragma once

#include "FanDisplayOptions.h"
#include "TernwickNereonVisualisationExport.h"
#include "gui/OpenGLWidget.h"
#include "nereon/NereonImage.h"

#include <QColor>
#include <QFont>

#include <cstdint>
#include <memory>

namespace Halcyra::DataProcessing::Units {
class AbstractUnit;
}

namespace Halcyra::Nereon::Visualisation {

class ZoomDisplay;

/**
 * Shows live multibeam sonar frames as a fan with range grid, range labels,
 * measuring tools, a magnifier and optional branding.
 *
 * Feed frames to newImageReceived() (directly or through a queued connection
 * from a sonar thread). Set a distance unit before the first paint, or the
 * range labels are left out; set an area unit before using an area tool.
 * Units are owned by the application and must outlive their use here.
 */
class TERNWICK_NEREON_VISUALISATION_EXPORT FanDisplay : public GUI::Widgets::Bases::OpenGLWidget
{
    Q_OBJECT

public:
    /// Creates the display and its magnifier; GL work waits until the widget is first shown.
    explicit FanDisplay(QWidget* parent = nullptr);
    /// Releases the GL resources with the display's context current.
    ~FanDisplay() override;

    /// The magnifier; the caller places it in a widget tree, which then owns it.
    /// One still without a parent widget is destroyed with this display.
    /// Null once the application has destroyed the magnifier.
    ZoomDisplay* getZoomDisplay();
    /// Reads out the look (palette, colours, overlays, mirror state and model transform), e.g. to save it.
    FanDisplayOptions::DisplaySettings getCurrentDisplaySettings() const;
    /// Applies a look read out with getCurrentDisplaySettings(), and repaints.
    void configureFromSettings(const FanDisplayOptions::DisplaySettings& settings);

    /// Colour of the range labels and measurement text, from the next paint; alpha is ignored.
    void setTextColour(const QColor& colour);
    /// Font of the range labels and measurement text, from the next paint.
    void setFont(const QFont& font);
    /**
     * Background colour, from the next paint; the magnifier takes a slightly darker shade. With
     * alpha below 255 the display is see-through: outside the fan it composites over whatever lies
     * behind it in the window (for example a camera picture below it in a stacked layout), at that
     * opacity. The display is then drawn on top of its sibling widgets, so nothing else should be
     * placed over it.
     */
    void setClearColour(const QColor& colour);
    /// Shows or hides the maker's and the product's logos, from the next paint.
    void setBranding(bool enabled);
    /// Colours of the logos: the maker logo's two colours, then the product logo's.
    void setBrandingColours(const QColor& ternwickPrimary, const QColor& ternwickSecondary,
                            const QColor& nereon);
    /// Replaces the rotation, degrees counter-clockwise.
    void setRotation(int degrees);
    /// Mirrors the fan left to right.
    void horizontalFlip();
    /// Turns the fan upside down (adds 180 degrees and mirrors).
    void verticalFlip();
    /// Switches one overlay (range labels, arcs or lines) on if it is off, off if it is on.
    void toggleOverlayFeature(FanDisplayOptions::OverlayFeature feature);
    /// Switches one overlay (range labels, arcs or lines) on or off.
    void setOverlayFeature(FanDisplayOptions::OverlayFeature feature, bool enabled);

    /**
     * Shows or hides the colour scale (hidden by default): a bar of the palette exactly as the fan
     * shows it now (palette, modifier and the current thresholds), intensity rising from 0 % at
     * its bottom to 100 % at its top, with tick labels in the overlay text font and colour. It
     * takes the corner of the widget that the fan, its range labels and the logos leave most
     * room in, and follows palette, modifier, threshold, rotation and size changes by itself.
     */
    void setColourScaleVisible(bool visible);
    /// Whether the colour scale is shown.
    bool isColourScaleVisible() const;
    /// Colour of the range lines and arcs; rgb(128, 128, 128) by default.
    void setRangeGridColour(const QColor& colour);
    /// The colour given to setRangeGridColour(), whether or not the automatic grid colour replaces it.
    QColor getRangeGridColour() const;
    /**
     * When on, the range lines and arcs are drawn in a grey chosen for the palette and thresholds
     * shown, one that stands out from the palette's middle tones (contrast ratio of at least 3.5
     * to 1 where any grey reaches it). The colour given to setRangeGridColour() returns when it
     * is switched off. Off by default.
     */
    void setAutomaticGridColour(bool enabled);
    /// Whether the range grid takes its colour from the palette shown.
    bool isAutomaticGridColourEnabled() const;

    /**
     * When on, frames are counted for the display thresholds and despeckled on a worker thread of
     * the display's own instead of on the GUI thread, from the next frame on; off by default. The
     * picture, the thresholds and which frames are painted stay exactly the same: a paint (or a
     * grab) waits for work still under way, and the repaint for a new frame is requested when
     * its work is done. The GUI thread then only uploads the newest frame and paints, which
     * matters for large frames at high rates and for high despeckle levels. The frame's bytes
     * are shared with the NereonImage, not copied.
     */
    void setBackgroundFrameProcessing(bool enabled);
    /// Whether frames are processed on the display's worker thread.
    bool isBackgroundFrameProcessingEnabled() const;

signals:
    /// Frames received in the last second that had any; emitted at the first frame of a new second.
    void frameRateChanged(int frameRate);
    /// Position under the mouse: across-track x, along-track y, slant range r (metres), bearing theta (degrees).
    void newMousePosition(double x, double y, double r, double theta);

public slots:
    /**
     * Shows a new sonar frame at the next paint. Connect the sonar source here;
     * from another thread through a queued connection. A frame the display
     * cannot draw is ignored and the last good picture stays.
     */
    void newImageReceived(const NereonImage& image);
    /// Tells the display that the sonar has gone; the last frame stays on screen.
    void sonarDisconnected();
    /// Chooses what a left-button drag inside the fan measures; discards the current measurement.
    void setMeasurementMode(FanDisplayOptions::MeasurementMode mode);
    /**
     * Despeckle kernel size: a Gaussian (sigma 5 texels) over a square of
     * size x size texels, rounded down to odd; 0, 1 and 2 (and negative sizes)
     * are off. The frame is smoothed once when it arrives or the size changes,
     * not per drawn pixel. The size is stored as given, but the work is bounded:
     * sizes above 41 smooth as 41 does, which draws the same picture (the taps
     * further out weigh less than 1/10000 of the kernel together).
     */
    void setDespeckleLevel(int level);
    /// Fraction of pixels ignored at each end of the histogram, e.g. 0.01.
    void setClampLevel(float level);
    /// Unit of the range labels and of distance measurements; borrowed, must outlive its use here.
    void setDistanceUnit(const DataProcessing::Units::AbstractUnit* unit);
    /// Unit of area measurements; borrowed, must outlive its use here.
    void setAreaUnit(const DataProcessing::Units::AbstractUnit* unit);
    /// Colour table through which intensities are shown.
    void setPalette(FanDisplayOptions::Palette palette);
    /// Modifier of the Fire or Aqua palette while one of them is selected.
    void setPaletteModifier(uint8_t modifier);

protected:
    /// Starts a measurement inside the fan, or a drag of the magnifier's outline.
    void mousePressEvent(QMouseEvent* event) override;
    /// Ends a measurement or an outline drag.
    void mouseReleaseEvent(QMouseEvent* event) override;
    /// Reports the position under the mouse and follows a measurement or an outline drag.
    void mouseMoveEvent(QMouseEvent* event) override;
    /// Cancels a measurement under way and clears the last one: it no longer fits the picture.
    void resizeEvent(QResizeEvent* event) override;
    /// Fits the turned fan into the widget.
    void resizeGL(int width, int height) override;
    /// Paints the fan, range grid and labels, measurement, magnifier outline and logos, in that order.
    void paintGL() override;
    /// Builds the shader program and the palettes once the GL context exists.
    void initialise() override;
    /// Releases the engine's GL objects when Qt replaces the context; initialise() makes them again.
    void releaseGlResources() override;

private:
    friend class FanDisplayProbe; // test access to the private record
    friend class FanDisplayHooks; // what applications attach, kept in the private record

    class FanDisplayPrivate;
    std::unique_ptr<FanDisplayPrivate> const d;
};

} // namespace Halcyra::Nereon::Visualisation
