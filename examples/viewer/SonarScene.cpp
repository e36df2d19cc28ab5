#include "SonarScene.h"

#include "sources/SyntheticFishModel.h"

#include <QtMath>

#include <algorithm>
#include <cmath>

namespace {

constexpr double seabedAltitude = 0.12; // first seabed return, fraction of the range
constexpr float waterColumnLevel = 0.02f;
constexpr float shadowLevel = 0.08f;
constexpr int speckleTableBits = 16;
// Echo strength that reaches full scale after compression.
constexpr float fullScaleEcho = 1.1f;
constexpr int compressionTableSize = 4096;

std::uint32_t hash(std::int32_t x, std::int32_t y)
{
    std::uint32_t h
        = static_cast<std::uint32_t>(x) * 0x8da6b343u ^ static_cast<std::uint32_t>(y) * 0xd8163841u;
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    return h ^ (h >> 15);
}

// Smooth value noise in [0, 1], used for sediment texture.
double valueNoise(double x, double y)
{
    const double fx = std::floor(x);
    const double fy = std::floor(y);
    const auto ix = static_cast<std::int32_t>(fx);
    const auto iy = static_cast<std::int32_t>(fy);
    const double tx = x - fx;
    const double ty = y - fy;
    const double sx = tx * tx * (3.0 - 2.0 * tx);
    const double sy = ty * ty * (3.0 - 2.0 * ty);
    auto corner = [](std::int32_t cx, std::int32_t cy) { return (hash(cx, cy) & 0xffffu) / 65535.0; };
    const double top = corner(ix, iy) + sx * (corner(ix + 1, iy) - corner(ix, iy));
    const double bottom = corner(ix, iy + 1) + sx * (corner(ix + 1, iy + 1) - corner(ix, iy + 1));
    return top + sy * (bottom - top);
}

double fractalNoise(double x, double y)
{
    return 0.55 * valueNoise(x, y) + 0.3 * valueNoise(2.1 * x + 17.0, 2.1 * y - 5.0)
        + 0.15 * valueNoise(4.3 * x - 9.0, 4.3 * y + 23.0);
}

} // namespace

SonarScene::SonarScene(const SonarConfiguration& configuration, std::uint32_t seed)
    : configuration(configuration)
    , randomState(seed != 0 ? seed : 1u)
{
    this->configuration.beamCount = std::max(2, configuration.beamCount);
    this->configuration.rangeLines = std::max(1, configuration.rangeLines);

    // Rayleigh-distributed amplitudes with mean 1: fully developed speckle.
    speckle.resize(std::size_t(1) << speckleTableBits);
    const double meanCorrection = 2.0 / std::sqrt(M_PI);
    for (std::size_t i = 0; i < speckle.size(); ++i) {
        const double u = (static_cast<double>(i) + 0.5) / static_cast<double>(speckle.size());
        speckle[i] = static_cast<float>(std::sqrt(-std::log(u)) * meanCorrection);
    }

    // Sonars compress their dynamic range before digitising; a power of 0.7
    // keeps shadows dark while weak seabed echoes stay visible.
    compression.resize(compressionTableSize);
    for (int i = 0; i < compressionTableSize; ++i)
        compression[i] = static_cast<std::uint8_t>(
            std::lround(255.0 * std::pow(static_cast<double>(i) / (compressionTableSize - 1), 0.7)));

    buildBearings();
    buildBackground();
}

SonarScene::~SonarScene() = default;

void SonarScene::setFish(bool on)
{
    if (!on) {
        fishModel.reset();
        fishEchoes.clear();
        return;
    }
    if (fishModel)
        return;
    using namespace Halcyra::Nereon::Sources;
    SyntheticPassageOptions options;
    options.frameRate = std::max(1, configuration.frameRate);
    options.frames = int(fishCycleSeconds * options.frameRate);
    options.fish = 14;
    // Clear of the water column before the first seabed return.
    options.minimumFishRange = std::max(3.0, 1.5 * seabedAltitude * configuration.range);
    options.maximumFishRange = std::min(15.0, 0.8 * configuration.range);
    std::vector<double> degrees;
    for (std::int16_t bearing : bearings)
        degrees.push_back(bearing / 100.0);
    fishModel = std::make_unique<SyntheticFishModel>(options, degrees, 0.0, configuration.range);
}

const SonarConfiguration& SonarScene::getConfiguration() const
{
    return configuration;
}

const std::vector<std::int16_t>& SonarScene::getBearings() const
{
    return bearings;
}

void SonarScene::buildBearings()
{
    const int count = configuration.beamCount;
    const double halfAperture = configuration.apertureDegrees / 2.0;
    bearings.resize(count);
    beamSines.resize(count);
    beamCosines.resize(count);
    for (int i = 0; i < count; ++i) {
        const double degrees = -halfAperture + configuration.apertureDegrees * i / (count - 1);
        bearings[i] = static_cast<std::int16_t>(std::lround(degrees * 100.0));
        beamSines[i] = static_cast<float>(std::sin(qDegreesToRadians(degrees)));
        beamCosines[i] = static_cast<float>(std::cos(qDegreesToRadians(degrees)));
    }
}

float SonarScene::attenuation(int rangeLine) const
{
    // Absorption and incompletely compensated spreading: the far field is dimmer.
    const double fraction = (rangeLine + 1.0) / configuration.rangeLines;
    return static_cast<float>(std::exp(-1.2 * fraction));
}

void SonarScene::buildBackground()
{
    const int width = configuration.beamCount;
    const int height = configuration.rangeLines;
    background.assign(std::size_t(width) * height, 0.0f);

    for (int row = 0; row < height; ++row) {
        const double r = (row + 1.0) / height;
        float* line = background.data() + std::size_t(row) * width;
        if (r < seabedAltitude) {
            std::fill(line, line + width, waterColumnLevel);
            continue;
        }
        // The first return comes from near-normal incidence and is the brightest.
        const double firstReturn = 1.0 + 1.4 * std::exp(-(r - seabedAltitude) / 0.015);
        for (int beam = 0; beam < width; ++beam) {
            const double x = r * beamSines[beam];
            const double y = r * beamCosines[beam];
            double texture = 0.5 + 0.5 * fractalNoise(x * 9.0, y * 9.0);
            const double ripples
                = 1.0 + 0.2 * std::sin((0.8 * x + 0.6 * y) * 140.0 + 6.0 * valueNoise(x * 5.0, y * 5.0));
            // A patch of rough, strongly scattering ground.
            const double patch = std::hypot((x - 0.33) / 0.14, (y - 0.72) / 0.09);
            if (patch < 1.0)
                texture *= 1.0 + (1.0 - patch) * (0.6 + 1.4 * valueNoise(x * 60.0, y * 60.0));
            line[beam] = static_cast<float>(0.5 * texture * ripples * firstReturn);
        }
    }

    const std::vector<Target>& targets = getFixedTargets();
    for (const Target& target : targets)
        addTarget(background, target, true);

    // Strong echoes leak into the sidelobes: a faint arc across the aperture.
    for (const Target& target : targets) {
        const double distance = std::hypot(target.x, target.y);
        const int row = static_cast<int>(distance * height) - 1;
        for (int r = std::max(0, row - 1); r <= std::min(height - 1, row + 1); ++r) {
            float* line = background.data() + std::size_t(r) * width;
            for (int beam = 0; beam < width; ++beam)
                line[beam] += 0.05f * target.strength;
        }
    }

    for (int row = 0; row < height; ++row) {
        const float gain = attenuation(row);
        float* line = background.data() + std::size_t(row) * width;
        for (int beam = 0; beam < width; ++beam)
            line[beam] *= gain;
    }
}

void SonarScene::addTarget(std::vector<float>& echoes, const Target& target, bool onSeabed) const
{
    const int width = configuration.beamCount;
    const int height = configuration.rangeLines;
    const double distance = std::hypot(target.x, target.y);
    if (distance <= target.radius)
        return;
    const double bearing = std::atan2(target.x, target.y);
    const double halfWidth = std::asin(target.radius / distance);
    const double firstBearing = qDegreesToRadians(-configuration.apertureDegrees / 2.0);
    const double step = qDegreesToRadians(configuration.apertureDegrees) / (width - 1);
    const int firstBeam
        = std::max(0, static_cast<int>(std::floor((bearing - halfWidth - firstBearing) / step)));
    const int lastBeam
        = std::min(width - 1, static_cast<int>(std::ceil((bearing + halfWidth - firstBearing) / step)));
    if (firstBeam > lastBeam)
        return;

    // Objects in mid-water cast their shadow further out than their own range.
    const double shadowStart = distance + target.radius + (onSeabed ? 0.0 : 0.12);
    const double shadowEnd = shadowStart + target.shadowLength * distance;
    const int firstRow = std::max(0, static_cast<int>((distance - target.radius) * height) - 1);
    const int lastRow = std::min(height - 1, static_cast<int>(shadowEnd * height));
    const double radiusSquared = target.radius * target.radius;

    for (int beam = firstBeam; beam <= lastBeam; ++beam) {
        const double offBearing = std::abs(firstBearing + beam * step - bearing);
        const bool inShadow = offBearing < halfWidth;
        for (int row = firstRow; row <= lastRow; ++row) {
            const double r = (row + 1.0) / height;
            float& echo = echoes[std::size_t(row) * width + beam];
            if (r >= shadowStart) {
                if (inShadow) {
                    // The shadow fills in towards its end as the seabed rises into view.
                    const double along = (r - shadowStart) / (shadowEnd - shadowStart);
                    echo *= static_cast<float>(shadowLevel + (1.0 - shadowLevel) * std::pow(along, 4.0));
                }
                continue;
            }
            const double dx = r * beamSines[beam] - target.x;
            const double dy = r * beamCosines[beam] - target.y;
            const double dSquared = dx * dx + dy * dy;
            if (dSquared >= radiusSquared)
                continue;
            // The face towards the sonar returns most; the far side is partly hidden.
            const double facing = r < distance ? 1.0 : 0.55;
            float value = static_cast<float>(
                target.strength * facing * (0.6 + 0.4 * (1.0 - dSquared / radiusSquared)));
            if (!onSeabed)
                value *= attenuation(row);
            echo = std::max(echo, value);
        }
    }
}

const std::vector<SonarScene::Target>& SonarScene::getFixedTargets()
{
    static const std::vector<Target> targets = {
        { -0.26, 0.55, 0.035, 3.2f, 0.45 }, // boulder
        { 0.17, 0.40, 0.018, 4.0f, 0.35 }, // tyre
        { 0.04, 0.78, 0.014, 3.0f, 0.30 }, // debris
        { -0.45, 0.80, 0.025, 2.6f, 0.40 }, // wreckage
    };
    return targets;
}

SonarScene::Target SonarScene::getMovingTarget(double seconds)
{
    // A slow figure of eight through the middle of the fan.
    return { 0.3 * std::sin(0.21 * seconds), 0.5 + 0.14 * std::sin(0.42 * seconds), 0.012, 3.5f, 0.25 };
}

std::uint32_t SonarScene::nextRandom()
{
    std::uint32_t x = randomState;
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    randomState = x;
    return x;
}

Halcyra::Nereon::NereonImage SonarScene::renderFrame(double seconds)
{
    working = background;

    addTarget(working, getMovingTarget(seconds), false);
    if (fishModel) {
        // Echo strength of a fish at its brightest: brighter than the seabed, short of full scale.
        constexpr float fishEcho = 1.0f;
        fishEchoes.assign(working.size(), 0.0f);
        const double spacing = configuration.range / configuration.rangeLines;
        fishModel->addEchoes(std::fmod(seconds, fishCycleSeconds), fishEchoes.data(), configuration.rangeLines,
            0.5 * spacing, spacing);
        for (std::size_t i = 0; i < working.size(); ++i)
            working[i] += fishEcho * fishEchoes[i];
    }

    std::vector<std::uint8_t> intensities(working.size());
    constexpr int shift = 32 - speckleTableBits;
    constexpr float toIndex = (compressionTableSize - 1) / fullScaleEcho;
    constexpr float lastIndex = compressionTableSize - 1;
    for (std::size_t i = 0; i < working.size(); ++i) {
        const float index = std::min(working[i] * speckle[nextRandom() >> shift] * toIndex, lastIndex);
        intensities[i] = compression[static_cast<std::size_t>(index)];
    }

    return Halcyra::Nereon::NereonImage(static_cast<std::uint16_t>(configuration.beamCount),
        static_cast<std::uint16_t>(configuration.rangeLines), std::move(intensities), bearings,
        configuration.range, 1.0);
}
