#pragma once

#include "FanDisplay.h"
#include "ZoomDisplay.h"
#include "display/ColourScale.h"
#include "display/FanDisplayHooks.h"
#include "engine/FanGeometryEngine.h"
#include "measuring/MeasuringToolBase.h"
#include "measuring/StraightLineMeasure.h"
#include "zoom/ZoomDisplayOutline.h"

#include <QColor>
#include <QFont>
#include <QImage>
#include <QPointF>
#include <QPointer>

#include <cstdint>
#include <memory>
#include <optional>

namespace Halcyra::Nereon::Visualisation {

class FanDisplay::FanDisplayPrivate
{
public:
    explicit FanDisplayPrivate(FanDisplay& display);

    /// Widget pixels to clip coordinates (x right, y up, both -1 to 1).
    QPointF pixelsToGL(const QPointF& pixel, const FanDisplay& display) const;

    /// The magnifier while it exists; the application may have destroyed it.
    ZoomDisplay* liveZoomDisplay() const { return zoomDisplayGuard.data(); }
    bool zoomDisplayIsVisible() const;

    /// Computes the position under the mouse at g (clip coordinates), stores it
    /// and emits newMousePosition.
    void emitMousePosition(FanDisplay& display, const QPointF& g);
    /// Renders both logos at one twelfth of the widget's height.
    void renderLogoImages(int widgetHeight);
    /// Shrinks the fit (clip units per fan unit) so that the range labels stay inside the widget.
    void fitRangeLabelsInside(FanDisplay& display, QSize size, const QRectF& bounds, float& sx, float& sy);
    /// The colour of the range lines and arcs for this paint.
    QColor gridColourForPaint();
    /// Draws the colour scale over what has been painted so far.
    void drawColourScale(FanDisplay& display);

    // Construction follows this order: the magnifier only keeps references to
    // the engine and the display, so it may be created before the engine.
    ZoomDisplay* zoomDisplay;
    ZoomDisplayOutline zoomDisplayOutline;
    FanGeometryEngine geometryEngine;
    bool showRangeLabels = true;
    bool showRangeArcs = true;
    bool showRangeLines = true;
    QColor clearColour = QColor(76, 76, 76);
    bool clearColourChanged = false;
    QFont font = QFont(QStringLiteral("Verdana"), 14);
    QColor textColour = QColor(128, 128, 128);
    bool textChanged = true;
    bool brandingEnabled = false;
    QColor ternwickLogoPrimaryColour = QColor(255, 255, 255);
    QColor ternwickLogoSecondaryColour = QColor(30, 144, 255);
    QColor nereonLogoColour = QColor(255, 255, 255);
    bool brandingColoursChanged = true;
    QImage ternwickLogoImage;
    QImage nereonLogoImage;
    std::unique_ptr<MeasuringToolBase> tool = std::make_unique<StraightLineMeasure>();
    FanDisplayOptions::MeasurementMode measurementMode = FanDisplayOptions::StraightLine;
    float mouseX = 0.0f;
    float mouseY = 0.0f;
    float mouseRange = 0.0f;
    float mouseBearing = 0.0f;
    std::int64_t lastFrameSecond = 0;
    std::int32_t framesThisSecond = 0;
    const DataProcessing::Units::AbstractUnit* distanceUnit = nullptr;
    const DataProcessing::Units::AbstractUnit* areaUnit = nullptr;

    // Watches the magnifier, which the application owns once it is placed.
    QPointer<ZoomDisplay> zoomDisplayGuard;
    // Largest texture side the GL implementation takes; a safe floor until the
    // context exists.
    int maxTextureSize = 2048;
    bool glInitialised = false;

    // Optional extras, all off by default.
    bool colourScaleVisible = false;
    ColourScale colourScale;
    QColor rangeGridColour = QColor(128, 128, 128);
    bool automaticGridColour = false;
    std::optional<Palettes::ShownPalette> gridPalette; // what the automatic grid colour was chosen for
    QColor chosenGridColour;
    // Whether this display set Qt::WA_AlwaysStackOnTop itself, for a see-through clear colour.
    bool stacksOnTopForTranslucency = false;
    // Overlays, measurement listeners and the opt-ins applications attach.
    FanDisplayHooks hooks;
};

} // namespace Halcyra::Nereon::Visualisation
