#pragma once

#include "FanDisplayOptions.h"
#include "engine/GaussianSmoother.h"
#include "engine/IntensityHistogram.h"
#include "engine/TextureFilterRuns.h"
#include "nereon/NereonImage.h"

#include <QMatrix4x4>
#include <QOpenGLBuffer>
#include <QOpenGLFunctions>
#include <QOpenGLShader>
#include <QOpenGLShaderProgram>
#include <QOpenGLTexture>
#include <QPolygonF>
#include <QRectF>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Halcyra::DataProcessing::Units {
class AbstractUnit;
}

namespace Halcyra::Nereon::Visualisation {

namespace Palettes {
class AbstractPalette;
class AbstractDynamicPalette;
} // namespace Palettes

class FrameIngestor;

/// One range label: text and placement in fan coordinates.
struct RangeLabelParams
{
    std::string text;
    float x = 0.0f;
    float y = 0.0f;
    std::int32_t angle = 0; ///< degrees, counter-clockwise
    std::uint8_t anchor = 0; ///< 16: text begins at the point; 18: text ends at it
    bool screenCoordinates = false; ///< always false: (x, y) are fan coordinates
};

/**
 * The non-widget core of the fan display: keeps the latest frame, the display
 * thresholds, the palettes, the fan geometry and the GL objects that draw the
 * fan image. Fan coordinates: apex at the origin, +y straight ahead, rim at 1.
 *
 * Not copyable or movable. GL work needs the owner's context current; the
 * engine can be drawn from any context that shares objects with it.
 *
 * Frames are counted and smoothed on the caller's thread, or, when asked for
 * (setBackgroundProcessing), on a worker thread of the engine's own.
 */
class FanGeometryEngine : protected QOpenGLFunctions
{
public:
    FanGeometryEngine();
    ~FanGeometryEngine();

    FanGeometryEngine(const FanGeometryEngine&) = delete;
    FanGeometryEngine& operator=(const FanGeometryEngine&) = delete;

    /// Releases the GL objects; the owner's context must be current.
    void destroy();
    /**
     * Releases the GL objects of a context that is about to go (the widget moved
     * to another window, say), keeping everything else: after the owner's
     * initialisation in its new context the engine draws the last frame again.
     */
    void releaseGlObjects();

    // Frames and thresholds
    /**
     * Stores a frame, sharing its immutable bytes rather than copying them.
     * Counted here, or, with background processing, counted and smoothed on
     * the worker thread.
     */
    void processNewImage(const NereonImage& image);
    /**
     * Whether the frames stored from now on are counted and smoothed on a
     * worker thread of the engine's own (FrameIngestor) rather than on the
     * caller's; off by default. Everything that shows the results (drawing,
     * the threshold getters) first waits for what it needs, so the engine
     * answers alike either way. The worker goes when a frame is stored with
     * this off.
     */
    void setBackgroundProcessing(bool enabled);
    bool isBackgroundProcessing() const { return backgroundProcessing; }
    /// Whether the newest frame went to the worker, which then announces its results.
    bool processesFrameInBackground() const;
    /**
     * Called on the worker thread when the newest frame's results are ready,
     * so that the owner can repaint without the paint waiting for them. It
     * must only post to the owner's thread; an empty one stops the calls.
     */
    void setFrameReadyCallback(std::function<void()> callback);
    void calculateThresholds();
    void initIntensities(unsigned short width, unsigned short height, const std::vector<unsigned char>& data);
    double getRange() const;
    /**
     * Despeckle kernel size, stored as given. Smoothing is done once per frame
     * in texture space; sizes below 3 do not smooth, and sizes above 41 smooth
     * as 41 does, which draws the same picture (see GaussianSmoother).
     */
    void setDespeckleLevel(int level);
    void setClampLevel(float level);
    void setDistanceUnit(const DataProcessing::Units::AbstractUnit* unit);
    void horizontalFlip();
    FanDisplayOptions::DisplaySettings getCurrentDisplaySettings() const;
    void configureFromSettings(const FanDisplayOptions::DisplaySettings& settings);

    // Palettes
    void initPalettes();
    void setPalette(FanDisplayOptions::Palette palette);
    void setPaletteModifier(unsigned char modifier);
    /// The selected palette and, for Fire or Aqua, its modifier (0 for the fixed palettes).
    FanDisplayOptions::Palette getPalette() const { return palette; }
    unsigned char getPaletteModifier() const { return getCurrentDisplaySettings().paletteModifier; }
    /// The smoothed intensity bounds (0..1) between which intensities are clamped before colouring.
    float getLowerThreshold() const;
    float getUpperThreshold() const;

    // Geometry
    void calculateFanGeometry();
    void calculateStraightLineGeometry();
    void calculateArcGeometry();
    void checkForNewGeometry();
    const std::vector<std::vector<float>>& getRangeArcVertices();
    const std::vector<float>& getRangeLineVertices();

    // Drawing
    bool initFanImageShaders();
    void drawFanImage(const QMatrix4x4& projection);

    // Bounds, hit test, labels
    QRectF getFanBounds(float rotation) const;
    bool pointIsWithinFan(const QPointF& point, const QMatrix4x4& transform);
    std::vector<RangeLabelParams> getRangeLabelParams(float rotation);

    /**
     * Puts the range lines, arcs, labels, the fit and the hit test on the outermost
     * beams' bearings instead of a whole-degree start angle; off by default.
     */
    void setTrueEdges(bool enabled);
    bool hasTrueEdges() const { return trueEdges; }
    /// The newest frame's bearings (hundredths of a degree, ascending) and whether it is mirrored.
    const std::vector<std::int16_t>& getBearings() const { return bearings; }
    std::int32_t getBeamCount() const { return width; }
    bool isFlipped() const { return flipped; }

private:
    friend class FanGeometryEngineProbe; // test access to the members below

    /// Moves both thresholds toward the bins where a frame's histogram reached the target.
    void applyThresholds(IntensityHistogram::Bins bins) const;
    /// Waits for the counts of every frame stored so far and applies them, oldest first.
    void settleThresholds() const;
    /// The newest frame's intensities, wherever they are kept.
    const std::vector<std::uint8_t>& currentIntensities() const;
    /// Replaces the intensity texture by one of the given format, under a new GL name.
    void uploadIntensityTexture(int textureWidth, int textureHeight, QOpenGLTexture::TextureFormat format,
        QOpenGLTexture::PixelType type, const void* texels);
    /// Uploads the stored frame, smoothed with the kernel of this radius (0: as it is).
    void refreshIntensityTexture(int radius);
    /// Angle of the grid's first line from the +x axis, degrees.
    float gridStartAngle() const;
    /// Draws the fan triangles, in runs of one intensity filter where the renderer's choice is known.
    void drawFanTriangles(const QMatrix4x4& projection);

    std::unique_ptr<QOpenGLShaderProgram> fanImageProgram;
    std::unique_ptr<QOpenGLShader> vertexShader;
    std::unique_ptr<QOpenGLShader> fragmentShader;
    std::int32_t despeckleLevel = 0;
    float clampLevel = 0.0f;
    // Settled from the worker's counts by the getters too, hence mutable.
    mutable float upperThreshold = 1.0f;
    mutable float lowerThreshold = 0.0f;
    std::unique_ptr<Palettes::AbstractPalette> standardPalettes;
    std::unique_ptr<Palettes::AbstractDynamicPalette> firePalette;
    std::unique_ptr<Palettes::AbstractDynamicPalette> aquaPalette;
    float chosenPalette = 0.083333336f;
    FanDisplayOptions::Palette palette = FanDisplayOptions::Multicolour;
    std::unique_ptr<QOpenGLTexture> intensities;
    bool newImage = false;
    QOpenGLBuffer fanVertexBuffer { QOpenGLBuffer::VertexBuffer };
    /// What the vertex buffer holds, for choosing the filter of each triangle.
    std::vector<float> fanVertices;
    TextureFilterRuns filterRuns;
    /// The vertex ranges of one filter's runs, kept to reuse the allocations.
    std::vector<GLint> drawFirsts;
    std::vector<GLsizei> drawCounts;
    /// Whether triangles may be drawn with one filter each where that draws the same picture.
    bool filterRunsAllowed = true;
    std::vector<float> rangeLineVertices = std::vector<float>(20, 0.0f);
    std::vector<std::vector<float>> rangeArcVertices = std::vector<std::vector<float>>(5);
    std::int32_t width = 256;
    std::int32_t height = 0;
    float aperture = 130.0f;
    std::int16_t startAngle = 25;
    std::vector<std::int16_t> bearings = std::vector<std::int16_t>(256, 0);
    /// The latest frame: its bytes, shared with the sender (frames are immutable), are the intensities.
    NereonImage intensityFrame;
    bool flipped = false;
    bool trueEdges = false;
    double range = 0.0;
    bool newGeometry = true;
    QMatrix4x4 lastTransform;
    QPolygonF fanPolygon;
    const DataProcessing::Units::AbstractUnit* distanceUnit = nullptr;

    bool backgroundProcessing = false;
    std::function<void()> frameReadyCallback;
    /// Only while frames go to the worker.
    std::unique_ptr<FrameIngestor> ingestor;
    GaussianSmoother smoother;
    /// Counts collected from the worker, kept to reuse the allocation.
    mutable std::vector<IntensityHistogram::Bins> collectedBins;
    std::vector<std::uint16_t> smoothedIntensities;
    /// Kernel radius with which the intensity texture was made.
    int textureRadius = 0;
    /// The owner's context, where the shaders were built; textures are made only there.
    QOpenGLContext* ownerContext = nullptr;
};

} // namespace Halcyra::Nereon::Visualisation
