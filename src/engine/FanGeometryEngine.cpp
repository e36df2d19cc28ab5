#include "engine/FanGeometryEngine.h"

#include "engine/FrameIngestor.h"
#include "engine/GaussianSmoother.h"
#include "palettes/AquaPalette.h"
#include "palettes/FirePalette.h"
#include "palettes/StandardPalettes.h"
#include "units/AbstractUnit.h"

#include <QOpenGLContext>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <sstream>

namespace Halcyra::Nereon::Visualisation {

namespace {

// Single-precision π/180, used wherever degrees become radians.
constexpr float degreesToRadiansFactor = 0.017453292f;

// One twelfth: the offset of a band's centre in the six-band palette texture.
constexpr float paletteBandCentre = 0.083333336f;

constexpr char vertexShaderPath[] = ":/ternwick-nereon-visualisation/shaders/fan-image/VertexShader.glsl";
constexpr char fragmentShaderPath[] = ":/ternwick-nereon-visualisation/shaders/fan-image/FragmentShader.glsl";

using MultiDrawArrays = void(QOPENGLF_APIENTRYP)(GLenum, const GLint*, const GLsizei*, GLsizei);

/// What the fan's drawing needs to know of the current context's renderer, asked once per context.
struct RendererTraits
{
    /// Chooses between a texture's two filters as TextureFilterRuns expects: Mesa's llvmpipe.
    bool choosesFilterByLongestStep = false;
    /// Draws several ranges of vertices in one call; null where the context lacks it.
    MultiDrawArrays multiDrawArrays = nullptr;
};

const RendererTraits& currentRenderer(QOpenGLFunctions& gl)
{
    // The display's and the magnifier's contexts take turns; both are asked once.
    static const QOpenGLContext* askedContext = nullptr;
    static RendererTraits traits;
    QOpenGLContext* context = QOpenGLContext::currentContext();
    if (context != askedContext) {
        const auto* name = reinterpret_cast<const char*>(gl.glGetString(GL_RENDERER));
        traits.choosesFilterByLongestStep = name && std::strstr(name, "llvmpipe") != nullptr;
        // Core in desktop GL since 1.4; OpenGL ES has no such call, whatever a lookup returns.
        traits.multiDrawArrays = context && !context->isOpenGLES()
            ? reinterpret_cast<MultiDrawArrays>(context->getProcAddress("glMultiDrawArrays"))
            : nullptr;
        askedContext = context;
    }
    return traits;
}

float rowCoordinateOfPalette(FanDisplayOptions::Palette palette)
{
    if (static_cast<std::int32_t>(palette) <= 5)
        return 1.0f - (static_cast<float>(palette) / 6.0f + paletteBandCentre);
    return 0.5f;
}

// Numbers of the range labels: one decimal, punctuated as the application's
// global C++ locale writes numbers.
std::string formatDistance(double value)
{
    std::ostringstream stream;
    stream.setf(std::ios::fixed, std::ios::floatfield);
    stream.precision(1);
    stream << value;
    return stream.str();
}

} // namespace

FanGeometryEngine::FanGeometryEngine()
    : standardPalettes(std::make_unique<Palettes::StandardPalettes>())
    , firePalette(std::make_unique<Palettes::FirePalette>())
    , aquaPalette(std::make_unique<Palettes::AquaPalette>())
{
}

FanGeometryEngine::~FanGeometryEngine() = default;

void FanGeometryEngine::destroy()
{
    releaseGlObjects();
    standardPalettes.reset();
    firePalette.reset();
    aquaPalette.reset();
}

void FanGeometryEngine::releaseGlObjects()
{
    // The palette objects stay: they hold the modifiers, and their textures are
    // made again by initPalettes().
    for (QOpenGLTexture* palette : { static_cast<QOpenGLTexture*>(standardPalettes.get()),
             static_cast<QOpenGLTexture*>(firePalette.get()),
             static_cast<QOpenGLTexture*>(aquaPalette.get()) }) {
        if (palette)
            palette->destroy();
    }
    intensities.reset();
    fanVertexBuffer.destroy();
    fanImageProgram.reset();
    vertexShader.reset();
    fragmentShader.reset();
    ownerContext = nullptr;
    newGeometry = true;
    // The frame on hand is uploaded again at the next draw.
    newImage = !currentIntensities().empty();
}

// ---------------------------------------------------------------------------
// Frames and thresholds

void FanGeometryEngine::processNewImage(const NereonImage& image)
{
    range = image.getRange();

    if (image.getWidth() != width) {
        width = image.getWidth();
        newGeometry = true;
    }
    height = image.getHeight();

    const std::vector<std::int16_t>& imageBearings = image.getBearings();
    if (bearings[0] != imageBearings[0] || newGeometry) {
        bearings = imageBearings;
        newGeometry = true;
        aperture = static_cast<float>(bearings[width - 1] - bearings[0]) / 100.0f;
        const auto wholeAperture = static_cast<std::uint16_t>(static_cast<std::int32_t>(aperture));
        startAngle = static_cast<std::int16_t>((180 - wholeAperture) / 2);
    }

    if (backgroundProcessing) {
        if (!ingestor) {
            ingestor = std::make_unique<FrameIngestor>();
            ingestor->setReadyCallback(frameReadyCallback);
            ingestor->setRadius(GaussianSmoother::radiusForLevel(despeckleLevel));
        }
        // The clamp level counts as it is now, whenever the worker gets to the frame.
        intensityFrame = image;
        ingestor->submit(image, IntensityHistogram::thresholdTarget(image.getData().size(), clampLevel));
    } else {
        if (ingestor) {
            // Back on this thread: the frames on the worker count first.
            settleThresholds();
            ingestor.reset();
        }
        // A frame never changes once made, so keeping it is as good as a copy
        // of its bytes, without writing them all again.
        intensityFrame = image;
        const std::vector<std::uint8_t>& data = image.getData();
        const std::int64_t target = IntensityHistogram::thresholdTarget(data.size(), clampLevel);
        applyThresholds(IntensityHistogram::findBins(
            IntensityHistogram::count(data.data(), nullptr, data.size(), target), target));
    }

    newImage = true;
}

void FanGeometryEngine::setBackgroundProcessing(bool enabled)
{
    backgroundProcessing = enabled;
}

bool FanGeometryEngine::processesFrameInBackground() const
{
    return ingestor != nullptr;
}

void FanGeometryEngine::setFrameReadyCallback(std::function<void()> callback)
{
    frameReadyCallback = callback;
    if (ingestor)
        ingestor->setReadyCallback(std::move(callback));
}

const std::vector<std::uint8_t>& FanGeometryEngine::currentIntensities() const
{
    return intensityFrame.getData();
}

void FanGeometryEngine::calculateThresholds()
{
    // After the frames still being counted, as if each had been counted when it came.
    settleThresholds();
    const std::vector<std::uint8_t>& data = currentIntensities();
    const std::int64_t target = IntensityHistogram::thresholdTarget(data.size(), clampLevel);
    applyThresholds(IntensityHistogram::findBins(
        IntensityHistogram::count(data.data(), nullptr, data.size(), target), target));
}

void FanGeometryEngine::settleThresholds() const
{
    if (!ingestor)
        return;
    ingestor->takeCounts(collectedBins);
    for (const IntensityHistogram::Bins bins : collectedBins)
        applyThresholds(bins);
    collectedBins.clear();
}

void FanGeometryEngine::applyThresholds(IntensityHistogram::Bins bins) const
{
    if (bins.lower >= 0)
        lowerThreshold = static_cast<float>(bins.lower) / 255.0f * 0.2f + 0.8f * lowerThreshold;
    if (bins.upper >= 0)
        upperThreshold = static_cast<float>(bins.upper) / 255.0f * 0.2f + 0.8f * upperThreshold;
}

float FanGeometryEngine::getLowerThreshold() const
{
    settleThresholds();
    return lowerThreshold;
}

float FanGeometryEngine::getUpperThreshold() const
{
    settleThresholds();
    return upperThreshold;
}

void FanGeometryEngine::initIntensities(
    unsigned short width, unsigned short height, const std::vector<unsigned char>& data)
{
    uploadIntensityTexture(width, height, QOpenGLTexture::R8_UNorm, QOpenGLTexture::UInt8, data.data());
    textureRadius = 0;
}

void FanGeometryEngine::uploadIntensityTexture(int textureWidth, int textureHeight,
    QOpenGLTexture::TextureFormat format, QOpenGLTexture::PixelType type, const void* texels)
{
    initializeOpenGLFunctions();

    if (!intensities)
        intensities = std::make_unique<QOpenGLTexture>(QOpenGLTexture::Target2D);

    // Replaced whole, under a new GL name, at every upload.
    intensities->destroy();
    intensities->create();
    intensities->setSize(textureWidth, textureHeight, 1);
    intensities->setFormat(format);
    intensities->allocateStorage();

    // Rows are tightly packed, so beam counts that are not a multiple of 4
    // need byte alignment.
    GLint previousAlignment = 4;
    glGetIntegerv(GL_UNPACK_ALIGNMENT, &previousAlignment);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    intensities->setData(QOpenGLTexture::Red, type, texels);
    glPixelStorei(GL_UNPACK_ALIGNMENT, previousAlignment);

    intensities->setMinificationFilter(QOpenGLTexture::Nearest);
    intensities->setMagnificationFilter(QOpenGLTexture::Linear);
}

void FanGeometryEngine::refreshIntensityTexture(int radius)
{
    textureRadius = radius;
    // Before the first frame only the start picture exists; it stays as it is.
    const std::size_t texels
        = static_cast<std::size_t>(std::max(width, 0)) * static_cast<std::size_t>(std::max(height, 0));
    const std::vector<std::uint8_t>& data = currentIntensities();
    if (texels == 0 || data.size() < texels)
        return;
    if (radius == 0) {
        initIntensities(static_cast<unsigned short>(width), static_cast<unsigned short>(height), data);
        return;
    }
    // 16 bits a texel keep the smoothed values as exact as the kernel's floats.
    // The worker, when there is one, usually has them before the paint asks.
    if (ingestor)
        ingestor->takeSmoothed(radius, smoothedIntensities);
    else
        smoother.apply(data.data(), width, height, radius, smoothedIntensities);
    uploadIntensityTexture(
        width, height, QOpenGLTexture::R16_UNorm, QOpenGLTexture::UInt16, smoothedIntensities.data());
}

double FanGeometryEngine::getRange() const
{
    return range;
}

void FanGeometryEngine::setDespeckleLevel(int level)
{
    despeckleLevel = level;
    // The worker smooths the newest frame (and the next ones) ahead of the paint.
    if (ingestor)
        ingestor->setRadius(GaussianSmoother::radiusForLevel(level));
}

void FanGeometryEngine::setClampLevel(float level)
{
    clampLevel = level;
}

void FanGeometryEngine::setDistanceUnit(const DataProcessing::Units::AbstractUnit* unit)
{
    distanceUnit = unit;
}

void FanGeometryEngine::setTrueEdges(bool enabled)
{
    if (trueEdges == enabled)
        return;
    trueEdges = enabled;
    newGeometry = true;
    lastTransform = QMatrix4x4(); // the hit test's outline moves with the edges
    lastTransform.fill(0.0f);
}

float FanGeometryEngine::gridStartAngle() const
{
    // The data spans 90 - last bearing to 90 - first bearing; the default start
    // is a whole degree, which leaves narrow fans' grid off their edges.
    // Before the first frame the bearings are all zero and span nothing: the default grid stays.
    if (trueEdges && width > 1 && static_cast<std::size_t>(width) <= bearings.size()
        && bearings[static_cast<std::size_t>(width - 1)] != bearings[0])
        return 90.0f - static_cast<float>(bearings[static_cast<std::size_t>(width - 1)]) / 100.0f;
    return static_cast<float>(startAngle);
}

void FanGeometryEngine::horizontalFlip()
{
    flipped = !flipped;
    newGeometry = true;
}

FanDisplayOptions::DisplaySettings FanGeometryEngine::getCurrentDisplaySettings() const
{
    FanDisplayOptions::DisplaySettings settings;
    settings.palette = palette;
    if (palette == FanDisplayOptions::Fire && firePalette)
        settings.paletteModifier = firePalette->getModifier();
    else if (palette == FanDisplayOptions::Aqua && aquaPalette)
        settings.paletteModifier = aquaPalette->getModifier();
    settings.horizontalFlip = flipped;
    return settings;
}

void FanGeometryEngine::configureFromSettings(const FanDisplayOptions::DisplaySettings& settings)
{
    palette = settings.palette;
    chosenPalette = rowCoordinateOfPalette(palette);
    if (palette == FanDisplayOptions::Aqua && aquaPalette)
        aquaPalette->changeModifier(settings.paletteModifier);
    else if (palette == FanDisplayOptions::Fire && firePalette)
        firePalette->changeModifier(settings.paletteModifier);

    flipped = settings.horizontalFlip;
    newGeometry = true;
}

// ---------------------------------------------------------------------------
// Palettes

void FanGeometryEngine::initPalettes()
{
    standardPalettes->initialisePalette();
    firePalette->initialisePalette();
    aquaPalette->initialisePalette();
}

void FanGeometryEngine::setPalette(FanDisplayOptions::Palette newPalette)
{
    palette = newPalette;
    chosenPalette = rowCoordinateOfPalette(palette);
}

void FanGeometryEngine::setPaletteModifier(unsigned char modifier)
{
    if (palette == FanDisplayOptions::Fire && firePalette)
        firePalette->changeModifier(modifier);
    else if (palette == FanDisplayOptions::Aqua && aquaPalette)
        aquaPalette->changeModifier(modifier);
}

// ---------------------------------------------------------------------------
// Geometry

void FanGeometryEngine::calculateFanGeometry()
{
    if (!fanVertexBuffer.isCreated()) {
        fanVertexBuffer.create();
        fanVertexBuffer.setUsagePattern(QOpenGLBuffer::StaticDraw);
    }
    fanVertexBuffer.bind();

    const std::int32_t n = width;
    std::vector<float> vertices(static_cast<std::size_t>(12 * std::max(n, 0)), 0.0f);

    std::vector<float> cosines(static_cast<std::size_t>(std::max(n, 0)));
    std::vector<float> sines(cosines.size());
    for (std::int32_t i = 0; i < n; ++i) {
        const float theta = (90.0f - static_cast<float>(bearings[static_cast<std::size_t>(i)]) / 100.0f)
            * degreesToRadiansFactor;
        cosines[static_cast<std::size_t>(i)] = static_cast<float>(std::cos(static_cast<double>(theta)));
        sines[static_cast<std::size_t>(i)] = static_cast<float>(std::sin(static_cast<double>(theta)));
    }

    const auto across = [this, n](std::int32_t i) {
        const float u = static_cast<float>(i) / static_cast<float>(n - 1);
        return flipped ? 1.0f - u : u;
    };

    for (std::int32_t i = 0; i + 1 < n; ++i) {
        float* triangle = vertices.data() + 12 * i;
        const float s0 = across(i);
        const float s1 = across(i + 1);
        const auto first = static_cast<std::size_t>(i);
        const auto second = static_cast<std::size_t>(i + 1);
        // apex (its s is the first beam's, not a midpoint)
        triangle[0] = 0.0f;
        triangle[1] = 0.0f;
        triangle[2] = s0;
        triangle[3] = 0.0f;
        // rim at beam i
        triangle[4] = cosines[first];
        triangle[5] = sines[first];
        triangle[6] = s0;
        triangle[7] = 1.0f;
        // rim at beam i + 1
        triangle[8] = cosines[second];
        triangle[9] = sines[second];
        triangle[10] = s1;
        triangle[11] = 1.0f;
    }

    fanVertexBuffer.allocate(vertices.data(), static_cast<int>(vertices.size() * sizeof(float)));
    fanVertexBuffer.release();
    fanVertices = std::move(vertices);
}

void FanGeometryEngine::calculateStraightLineGeometry()
{
    const float quarterAperture = 0.25f * aperture;
    for (int i = 0; i < 5; ++i) {
        const float phi
            = (static_cast<float>(i) * quarterAperture + gridStartAngle()) * degreesToRadiansFactor;
        float* segment = rangeLineVertices.data() + 4 * i;
        segment[0] = 0.0f;
        segment[1] = 0.0f;
        segment[2] = static_cast<float>(std::cos(static_cast<double>(phi)));
        segment[3] = static_cast<float>(std::sin(static_cast<double>(phi)));
    }
}

void FanGeometryEngine::calculateArcGeometry()
{
    const float step = aperture / static_cast<float>(width - 1);
    for (int k = 1; k <= 5; ++k) {
        std::vector<float>& arc = rangeArcVertices[static_cast<std::size_t>(k - 1)];
        arc.clear();
        arc.resize(static_cast<std::size_t>(2 * std::max(width, 0)), 0.0f);
        for (std::int32_t j = 0; j < width; ++j) {
            const double phi = static_cast<double>(
                (static_cast<float>(j) * step + gridStartAngle()) * degreesToRadiansFactor);
            arc[static_cast<std::size_t>(2 * j)] = static_cast<float>(std::cos(phi) * k / 5.0);
            arc[static_cast<std::size_t>(2 * j + 1)] = static_cast<float>(std::sin(phi) * k / 5.0);
        }
    }
}

void FanGeometryEngine::checkForNewGeometry()
{
    if (!newGeometry)
        return;
    calculateFanGeometry();
    calculateStraightLineGeometry();
    calculateArcGeometry();
    newGeometry = false;
}

const std::vector<std::vector<float>>& FanGeometryEngine::getRangeArcVertices()
{
    checkForNewGeometry();
    return rangeArcVertices;
}

const std::vector<float>& FanGeometryEngine::getRangeLineVertices()
{
    checkForNewGeometry();
    return rangeLineVertices;
}

// ---------------------------------------------------------------------------
// Drawing

bool FanGeometryEngine::initFanImageShaders()
{
    ownerContext = QOpenGLContext::currentContext();
    fanImageProgram = std::make_unique<QOpenGLShaderProgram>();
    vertexShader = std::make_unique<QOpenGLShader>(QOpenGLShader::Vertex);
    fragmentShader = std::make_unique<QOpenGLShader>(QOpenGLShader::Fragment);

    if (!vertexShader->compileSourceFile(QString::fromLatin1(vertexShaderPath)))
        return false;
    if (!fragmentShader->compileSourceFile(QString::fromLatin1(fragmentShaderPath)))
        return false;

    fanImageProgram->addShader(vertexShader.get());
    fanImageProgram->addShader(fragmentShader.get());
    fanImageProgram->bindAttributeLocation("aPosition", 0);
    fanImageProgram->bindAttributeLocation("aTextureCoords", 1);
    return fanImageProgram->link();
}

void FanGeometryEngine::drawFanImage(const QMatrix4x4& projection)
{
    // Nothing to draw with before the owner's initialisation, or after its context went.
    if (!fanImageProgram || !intensities)
        return;
    // The engine draws in the display's and the magnifier's contexts.
    initializeOpenGLFunctions();

    settleThresholds();
    checkForNewGeometry();
    // The smoothing runs here, once per frame or kernel change, for the display
    // and the magnifier alike: both sample the same texture. It is made in the
    // owner's context only: a texture can be released only where its creating
    // context shares objects, and the magnifier's may be gone by then. The
    // magnifier draws the last texture until the owner's paint, which repaints it.
    const int radius = GaussianSmoother::radiusForLevel(despeckleLevel);
    const bool ownersContext = QOpenGLContext::currentContext() == ownerContext;
    if (ownersContext && (newImage || radius != textureRadius)) {
        refreshIntensityTexture(radius);
        newImage = false;
    }

    Palettes::AbstractPalette* chosen = standardPalettes.get();
    if (palette == FanDisplayOptions::Fire)
        chosen = firePalette.get();
    else if (palette == FanDisplayOptions::Aqua)
        chosen = aquaPalette.get();

    fanImageProgram->bind();

    chosen->bindPalette(0);
    fanImageProgram->setUniformValue("palettes", 0);

    intensities->bind(1);
    fanImageProgram->setUniformValue("intensities", 1);

    // The program is shared with the magnifier's context. Mesa skips a uniform
    // write that leaves the program's value as it is, and with it the upload to
    // the current context, whose constants then keep its own last draw's values
    // (the magnifier showed the palette before last). A different value first
    // makes each stage of every context take the values below.
    QMatrix4x4 unlikeAnyProjection;
    unlikeAnyProjection.fill(0.0f);
    fanImageProgram->setUniformValue("projection", unlikeAnyProjection);
    fanImageProgram->setUniformValue("chosenPalette", -1.0f);
    fanImageProgram->setUniformValue("chosenPalette", chosenPalette);
    fanImageProgram->setUniformValue("projection", projection);
    fanImageProgram->setUniformValue("UpperThreshold", upperThreshold);
    fanImageProgram->setUniformValue("LowerThreshold", lowerThreshold);

    fanVertexBuffer.bind();
    const int positionLocation = fanImageProgram->attributeLocation("aPosition");
    fanImageProgram->enableAttributeArray(positionLocation);
    fanImageProgram->setAttributeBuffer(positionLocation, GL_FLOAT, 0, 2, 4 * sizeof(float));
    const int textureLocation = fanImageProgram->attributeLocation("aTextureCoords");
    fanImageProgram->enableAttributeArray(textureLocation);
    fanImageProgram->setAttributeBuffer(textureLocation, GL_FLOAT, 2 * sizeof(float), 2, 4 * sizeof(float));

    drawFanTriangles(projection);

    fanVertexBuffer.release();
    intensities->release();
    chosen->release();
    fanImageProgram->release();
}

void FanGeometryEngine::drawFanTriangles(const QMatrix4x4& projection)
{
    const int triangles = std::max(width - 1, 0);
    const RendererTraits& renderer = currentRenderer(*this);
    if (!filterRunsAllowed || fanVertices.size() < 12 * static_cast<std::size_t>(triangles)
        || !renderer.choosesFilterByLongestStep) {
        glDrawArrays(GL_TRIANGLES, 0, 3 * triangles);
        return;
    }

    // A software renderer pays for choosing between the two filters, and for a
    // linear sample, in every pixel block; most triangles need only one filter.
    GLint viewport[4] = {};
    glGetIntegerv(GL_VIEWPORT, viewport);
    filterRuns.update(fanVertices, triangles, projection, QSize(viewport[2], viewport[3]),
        QSize(intensities->width(), intensities->height()));

    // The triangles do not overlap and nothing is blended, so the runs of one
    // filter are drawn together, in one call where the context has it. The
    // mixed ones go last: they leave the texture with its own filters.
    glActiveTexture(GL_TEXTURE1); // the intensities' unit
    using Filter = TextureFilterRuns::Filter;
    bool filtersChanged = false;
    for (const Filter filter : { Filter::Nearest, Filter::Linear, Filter::Mixed }) {
        drawFirsts.clear();
        drawCounts.clear();
        for (const TextureFilterRuns::Run& run : filterRuns.runs()) {
            if (run.filter == filter) {
                drawFirsts.push_back(3 * run.first);
                drawCounts.push_back(3 * run.count);
            }
        }
        if (drawFirsts.empty())
            continue;
        const GLint minification = filter == Filter::Linear ? GL_LINEAR : GL_NEAREST;
        const GLint magnification = filter == Filter::Nearest ? GL_NEAREST : GL_LINEAR;
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, minification);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, magnification);
        filtersChanged = filter != Filter::Mixed;
        if (renderer.multiDrawArrays) {
            renderer.multiDrawArrays(
                GL_TRIANGLES, drawFirsts.data(), drawCounts.data(), static_cast<GLsizei>(drawFirsts.size()));
        } else {
            for (std::size_t i = 0; i < drawFirsts.size(); ++i)
                glDrawArrays(GL_TRIANGLES, drawFirsts[i], drawCounts[i]);
        }
    }
    // The texture keeps its own filters for every other use.
    if (filtersChanged) {
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    }
}

// ---------------------------------------------------------------------------
// Bounds, hit test, labels

QRectF FanGeometryEngine::getFanBounds(float rotation) const
{
    const float start = (gridStartAngle() + rotation) * degreesToRadiansFactor;
    const float end = start + aperture * degreesToRadiansFactor;

    std::vector<float> xs { 0.0f };
    std::vector<float> ys { 0.0f };
    const auto addPointAt = [&xs, &ys](float angle) {
        xs.push_back(static_cast<float>(std::cos(static_cast<double>(angle))));
        ys.push_back(static_cast<float>(std::sin(static_cast<double>(angle))));
    };
    addPointAt(start);
    addPointAt(end);

    // Axis crossings inside the span hold the circle's extreme points; 360 and
    // 450 catch spans that a rotation pushed past a full turn.
    static constexpr float axisAngles[] = { 0.0f, 90.0f, 180.0f, 270.0f, 360.0f, 450.0f };
    for (const float axis : axisAngles) {
        const float angle = axis * degreesToRadiansFactor;
        if (angle <= start)
            continue;
        if (angle >= end)
            break;
        addPointAt(angle);
    }

    const auto [minX, maxX] = std::minmax_element(xs.begin(), xs.end());
    const auto [minY, maxY] = std::minmax_element(ys.begin(), ys.end());
    return QRectF(static_cast<double>(*minX), static_cast<double>(*maxY), static_cast<double>(*maxX - *minX),
        static_cast<double>(*minY - *maxY));
}

bool FanGeometryEngine::pointIsWithinFan(const QPointF& point, const QMatrix4x4& transform)
{
    if (!(transform == lastTransform)) {
        lastTransform = transform;
        fanPolygon.clear();
        fanPolygon.reserve(width + 1);
        fanPolygon.append(transform.map(QPointF(0.0, 0.0)));
        // Evenly spread beams: the polygon is an outline, not the drawn triangles.
        const float lastBeam = static_cast<float>(width - 1);
        for (std::int32_t i = 0; i < width; ++i) {
            const float angle
                = (static_cast<float>(i) * aperture / lastBeam + gridStartAngle()) * degreesToRadiansFactor;
            const float x = static_cast<float>(std::cos(static_cast<double>(angle)));
            const float y = static_cast<float>(std::sin(static_cast<double>(angle)));
            fanPolygon.append(transform.map(QPointF(static_cast<double>(x), static_cast<double>(y))));
        }
    }
    return fanPolygon.containsPoint(point, Qt::OddEvenFill);
}

std::vector<RangeLabelParams> FanGeometryEngine::getRangeLabelParams(float rotation)
{
    // Without a unit there is nothing to name the distances in.
    if (!distanceUnit)
        return {};

    constexpr double radiansPerDegree = 3.14159265358979323846 / 180.0;
    const float half = 0.5f * aperture;
    // With true edges the labels stand on the outermost beams, which need not be symmetric.
    const float rightDegrees = trueEdges ? gridStartAngle() : 90.0f - half;
    const float leftDegrees = trueEdges ? rightDegrees + aperture : 90.0f + half;
    const auto rightEdge = static_cast<float>(static_cast<double>(rightDegrees) * radiansPerDegree);
    const auto leftEdge = static_cast<float>(static_cast<double>(leftDegrees) * radiansPerDegree);
    const std::int32_t start
        = trueEdges ? static_cast<std::int32_t>(std::lround(gridStartAngle())) : std::int32_t { startAngle };

    const std::int32_t rightAngle = start - 90;
    const float rightTurned = static_cast<float>(rightAngle) + rotation;
    const bool flipRight = rightTurned > 90.0f && rightTurned < 270.0f;

    const auto leftAngle = static_cast<std::int32_t>(aperture + static_cast<float>(rightAngle));
    const float leftTurned = static_cast<float>(leftAngle) + rotation;
    const bool flipLeft = leftTurned > 90.0f && leftTurned < 270.0f;

    const std::string symbol = distanceUnit->getSymbol();

    std::vector<RangeLabelParams> labels;
    labels.reserve(10);
    for (int j = 1; j <= 5; ++j) {
        const auto metres = static_cast<float>(j * (range / 5.0));
        const std::string label
            = formatDistance(distanceUnit->convertFromBase(static_cast<double>(metres))) + symbol;

        RangeLabelParams right;
        right.x = static_cast<float>(std::cos(static_cast<double>(rightEdge)) / 5.0 * j);
        right.y = static_cast<float>(std::sin(static_cast<double>(rightEdge)) / 5.0 * j);
        if (flipRight) {
            right.angle = start - 270;
            right.text = label + ' ';
            right.anchor = 18;
        } else {
            right.angle = rightAngle;
            right.text = ' ' + label;
            right.anchor = 16;
        }

        RangeLabelParams left;
        left.x = static_cast<float>(std::cos(static_cast<double>(leftEdge)) / 5.0 * j);
        left.y = static_cast<float>(std::sin(static_cast<double>(leftEdge)) / 5.0 * j);
        if (flipLeft) {
            left.angle = leftAngle - 180;
            left.text = ' ' + label;
            left.anchor = 16;
        } else {
            left.angle = leftAngle;
            left.text = label + ' ';
            left.anchor = 18;
        }

        labels.push_back(std::move(right));
        labels.push_back(std::move(left));
    }
    return labels;
}

} // namespace Halcyra::Nereon::Visualisation
