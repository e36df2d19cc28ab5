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

signals:
    /// Frames received in the last second that had any; emitted at the first frame of a new second.
    void frameRateChanged(int frameRate);
    /// Position under the mouse: across-track x, along-track y, slant range r (metres), bearing theta (degrees).
    void newMousePosition(double x, double y, double r, double theta);

public slots:
    void newImageReceived(const NereonImage& image);
    void sonarDisconnected();
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
