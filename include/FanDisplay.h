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
    explicit FanDisplay(QWidget* parent = nullptr);
    ~FanDisplay() override;

    /// The magnifier; the caller places it in a widget tree, which then owns it.
    /// One still without a parent widget is destroyed with this display.
    ZoomDisplay* getZoomDisplay();
    FanDisplayOptions::DisplaySettings getCurrentDisplaySettings() const;
    void configureFromSettings(const FanDisplayOptions::DisplaySettings& settings);

    void setTextColour(const QColor& colour);
    void setFont(const QFont& font);
    /**
     * Background colour. With alpha below 255 the display is see-through: outside the fan it
     * composites over whatever lies behind it in the window (for example a camera picture below it
     * in a stacked layout), at that opacity. The display is then drawn on top of its sibling
     * widgets, so nothing else should be placed over it.
     */
    void setClearColour(const QColor& colour);
    void setBranding(bool enabled);
    void setBrandingColours(const QColor& ternwickPrimary, const QColor& ternwickSecondary,
                            const QColor& nereon);
    /// Replaces the rotation, degrees counter-clockwise.
    void setRotation(int degrees);
    /// Mirrors the fan left to right.
    void horizontalFlip();
    /// Turns the fan upside down (adds 180 degrees and mirrors).
    void verticalFlip();
    void toggleOverlayFeature(FanDisplayOptions::OverlayFeature feature);
    void setOverlayFeature(FanDisplayOptions::OverlayFeature feature, bool enabled);

    /**
     * Shows or hides the colour scale (hidden by default): a bar of the palette exactly as the fan
     * shows it now (palette, modifier and the current thresholds), intensity rising from 0 % at
     * its bottom to 100 % at its top, with tick labels in the overlay text font and colour. It
     * takes the corner of the widget that the fan, its range labels and the logos leave most
     * room in, and follows palette, modifier, threshold, rotation and size changes by itself.
     */
    void setColourScaleVisible(bool visible);
    bool isColourScaleVisible() const;
    /// Colour of the range lines and arcs; rgb(128, 128, 128) by default.
    void setRangeGridColour(const QColor& colour);
    QColor getRangeGridColour() const;
    /**
     * When on, the range lines and arcs are drawn in a grey chosen for the palette and thresholds
     * shown, one that stands out from the palette's middle tones (contrast ratio of at least 3.5
     * to 1 where any grey reaches it). The colour given to setRangeGridColour() returns when it
     * is switched off. Off by default.
     */
    void setAutomaticGridColour(bool enabled);
    bool isAutomaticGridColourEnabled() const;

signals:
    /// Frames received in the last second that had any; emitted at the first frame of a new second.
    void frameRateChanged(int frameRate);
    /// Position under the mouse: across-track x, along-track y, slant range r (metres), bearing theta (degrees).
    void newMousePosition(double x, double y, double r, double theta);

public slots:
    void newImageReceived(const NereonImage& image);
    void sonarDisconnected();
    void setMeasurementMode(FanDisplayOptions::MeasurementMode mode);
    /// Despeckle kernel size; 0 is off.
    void setDespeckleLevel(int level);
    /// Fraction of pixels ignored at each end of the histogram, e.g. 0.01.
    void setClampLevel(float level);
    void setDistanceUnit(const DataProcessing::Units::AbstractUnit* unit);
    void setAreaUnit(const DataProcessing::Units::AbstractUnit* unit);
    void setPalette(FanDisplayOptions::Palette palette);
    /// Modifier of the Fire or Aqua palette while one of them is selected.
    void setPaletteModifier(uint8_t modifier);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void resizeGL(int width, int height) override;
    void paintGL() override;
    void initialise() override;

private:
    friend class FanDisplayProbe; // test access to the private record

    class FanDisplayPrivate;
    std::unique_ptr<FanDisplayPrivate> const d;
};

} // namespace Halcyra::Nereon::Visualisation
