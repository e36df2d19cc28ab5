#include "sources/SyntheticPassage.h"

#include "SyntheticPassagePrivate.h"
#include "SyntheticRandom.h"

#include <QFile>
#include <QSaveFile>
#include <QTextStream>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Halcyra::Nereon::Sources {

namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double degree = pi / 180.0;
constexpr int speckleBits = 12;
constexpr int speckleSize = 1 << speckleBits;
// Intensity steps per decibel: 0-255 stands for 0-80 dB.
constexpr double stepsPerDecibel = 255.0 / 80.0;
// Intensity a normal fish adds at its brightest, above the bed.
constexpr double fishEcho = 90.0;
// The receiver gain the frames carry, dB.
constexpr double frameGain = 20.0;

/// Smooth noise in -1 to 1 over the plane, with features about one unit apart.
double valueNoise(double x, double y, std::uint64_t seed)
{
    const double fx = std::floor(x), fy = std::floor(y);
    const auto corner = [seed](double cx, double cy) {
        const std::uint64_t h = SyntheticRandom::mix(seed
            ^ SyntheticRandom::mix(
                std::uint64_t(std::int64_t(cx)) * 0x9e3779b97f4a7c15ull + std::uint64_t(std::int64_t(cy))));
        return double(h >> 11) * (2.0 / 9007199254740992.0) - 1.0;
    };
    const double tx = x - fx, ty = y - fy;
    const double sx = tx * tx * (3.0 - 2.0 * tx), sy = ty * ty * (3.0 - 2.0 * ty);
    const double top = corner(fx, fy) + (corner(fx + 1, fy) - corner(fx, fy)) * sx;
    const double bottom = corner(fx, fy + 1) + (corner(fx + 1, fy + 1) - corner(fx, fy + 1)) * sx;
    return top + (bottom - top) * sy;
}

SyntheticPassageOptions sanitised(SyntheticPassageOptions options)
{
    options.beams = std::clamp(options.beams, 1, 4096);
    options.samples = std::clamp(options.samples, 1, 16384);
    if (!std::isfinite(options.windowStart) || options.windowStart < 0.0)
        options.windowStart = 0.0;
    if (!std::isfinite(options.windowLength) || options.windowLength <= 0.0)
        options.windowLength = 15.0;
    if (!std::isfinite(options.frameRate) || options.frameRate <= 0.0)
        options.frameRate = 10.0;
    options.frames = std::max(0, options.frames);
    options.fish = std::max(0, options.fish);
    options.rocks = std::max(0, options.rocks);
    options.speckle = std::isfinite(options.speckle) ? std::max(0.0, options.speckle) : 1.0;
    return options;
}

/// Indices into a speckle table, several from every random number.
class SyntheticSpeckleIndex
{
public:
    explicit SyntheticSpeckleIndex(SyntheticRandom& random)
        : random(random)
    {
    }
    std::size_t next()
    {
        if (left == 0) {
            bits = random.next();
            left = 64 / speckleBits;
        }
        --left;
        const std::size_t value = std::size_t(bits & (speckleSize - 1));
        bits >>= speckleBits;
        return value;
    }

private:
    SyntheticRandom& random;
    std::uint64_t bits = 0;
    int left = 0;
};

/// A rock on the bed and the shadow behind it.
struct Rock
{
    double range, bearing, radius, brightness, shadowLength, shadowDepth;
};

} // namespace

SyntheticPassage::SyntheticPassage(const SyntheticPassageOptions& requested)
    : d(std::make_unique<SyntheticPassagePrivate>())
{
    SyntheticPassageOptions& o = d->options;
    o = sanitised(requested);

    // The window an ARIS file would store, so that written frames read back the same.
    const ArisWriterOptions writerOptions = getWriterOptions();
    if (!ArisWriter::computeWindow(writerOptions, d->window)) {
        ArisWriter::Window& w = d->window;
        w.spacing = o.windowLength / double(o.samples);
        w.start = std::min(
            o.windowStart, double(std::numeric_limits<std::uint16_t>::max() - o.samples - 1) * w.spacing);
        w.firstSampleRow = int(std::max(0.0, std::round(w.start / w.spacing - 0.5)));
        w.rows = w.firstSampleRow + o.samples;
        o.windowStart = w.start;
    }
    d->bearings = ArisWriter::getBearings(writerOptions);
    if (d->bearings.empty()) {
        // No sonar has this many beams: spread them over the widest fan.
        ArisWriterOptions widest;
        widest.beams = 128;
        const std::vector<std::int16_t> outer = ArisWriter::getBearings(widest);
        const double left = outer.front(), right = outer.back();
        for (int beam = 0; beam < o.beams; ++beam)
            d->bearings.push_back(std::int16_t(std::lround(
                o.beams == 1 ? 0.0 : left + (right - left) * double(beam) / double(o.beams - 1))));
    }
    std::vector<double> bearingsDeg;
    for (std::int16_t bearing : d->bearings)
        bearingsDeg.push_back(bearing / 100.0);
    const ArisWriter::Window& w = d->window;
    const double windowEnd = w.start + w.spacing * double(o.samples);
    d->model = std::make_unique<SyntheticFishModel>(o, bearingsDeg, w.start, windowEnd);

    d->positions.reserve(std::size_t(o.frames) * std::size_t(o.fish));
    for (int frame = 0; frame < o.frames; ++frame)
        for (int id = 0; id < o.fish; ++id) {
            SyntheticFishPosition position = d->model->getPosition(id, double(frame) / o.frameRate);
            position.frame = frame;
            d->positions.push_back(position);
        }

    // Speckle tables: a Rayleigh amplitude at evenly spaced quantiles, as intensity
    // steps about the mean (for the bed) and as a factor of mean 1 (for fish).
    d->bedSpeckle.resize(speckleSize);
    d->fishSpeckle.resize(speckleSize);
    const double meanDecibels = -2.5068; // of a Rayleigh amplitude of unit power
    const double meanAmplitude = std::sqrt(pi) / 2.0;
    for (int i = 0; i < speckleSize; ++i) {
        const double amplitude = std::sqrt(-std::log(1.0 - (i + 0.5) / speckleSize));
        d->bedSpeckle[std::size_t(i)]
            = float(o.speckle * 0.7 * stepsPerDecibel * (20.0 * std::log10(amplitude) - meanDecibels));
        d->fishSpeckle[std::size_t(i)] = float(1.0 + o.speckle * 0.45 * (amplitude / meanAmplitude - 1.0));
    }

    // The bed: echoes falling off with range, a texture, rocks with their shadows and
    // a log lying across part of the fan with its own.
    SyntheticRandom random(o.seed, 2);
    const double left = bearingsDeg.front(), right = bearingsDeg.back();
    std::vector<Rock> rocks;
    for (int i = 0; i < o.rocks; ++i) {
        Rock rock;
        rock.range = w.start + random.uniform(0.1, 0.85) * (windowEnd - w.start);
        rock.bearing = random.uniform(left, right) * degree;
        rock.radius = random.uniform(0.15, 0.6);
        rock.brightness = random.uniform(45.0, 70.0);
        rock.shadowLength = random.uniform(1.0, 4.0);
        rock.shadowDepth = random.uniform(0.65, 0.85);
        rocks.push_back(rock);
    }
    const double logRange = w.start + random.uniform(0.55, 0.8) * (windowEnd - w.start);
    const double logFrom = left + random.uniform(0.05, 0.3) * (right - left);
    const double logTo = logFrom + random.uniform(0.25, 0.5) * (right - left);
    const double logTilt = random.uniform(-0.1, 0.1);
    const std::uint64_t textureSeed = random.next();

    const int beams = o.beams;
    d->bed.resize(std::size_t(o.samples) * std::size_t(beams));
    for (int k = 0; k < o.samples; ++k) {
        const double r = w.start + double(k) * w.spacing;
        // As recordings of river beds fall off: about 150 at 2 m, 70 at 17 m.
        const double level = 175.0 - 85.0 * std::log10(std::max(r, 0.5));
        for (int beam = 0; beam < beams; ++beam) {
            const double theta = bearingsDeg[std::size_t(beam)] * degree;
            const double x = r * std::sin(theta), y = r * std::cos(theta);
            const double fine = valueNoise(x / 0.6, y / 0.6, textureSeed);
            double value = level + 8.0 * fine + 10.0 * valueNoise(x / 2.5, y / 2.5, textureSeed + 1);
            double shade = 1.0;
            for (const Rock& rock : rocks) {
                const double angle = std::asin(std::min(1.0, rock.radius / rock.range));
                const double dx = x - rock.range * std::sin(rock.bearing),
                             dy = y - rock.range * std::cos(rock.bearing);
                const double distance = std::hypot(dx, dy);
                if (distance < rock.radius)
                    value += rock.brightness
                        * std::sqrt(1.0 - (distance / rock.radius) * (distance / rock.radius))
                        * (0.8 + 0.4 * valueNoise(x / 0.15, y / 0.15, textureSeed + 2)) * (1.0 + 0.25 * fine);
                else if (std::abs(theta - rock.bearing) < 0.9 * angle && r > rock.range
                    && r < rock.range + rock.shadowLength)
                    // The shadow lightens towards its end, where the bed rises into view.
                    shade = std::min(shade,
                        1.0
                            - rock.shadowDepth
                                * std::min(
                                    1.0, 3.0 * (rock.range + rock.shadowLength - r) / rock.shadowLength));
            }
            if (o.structure && theta >= logFrom * degree && theta <= logTo * degree) {
                // The log's range on this beam, slightly askew across the fan.
                const double logAt
                    = logRange * (1.0 + logTilt * (theta / degree - logFrom) / (logTo - logFrom));
                const double off = r - logAt;
                value += 55.0 * std::exp(-off * off / (2.0 * 0.08 * 0.08));
                if (off > 0.15 && off < 1.6)
                    shade = std::min(shade, 0.25);
            }
            d->bed[std::size_t(k) * std::size_t(beams) + std::size_t(beam)] = float(value * shade);
        }
    }
}

SyntheticPassage::~SyntheticPassage() = default;

bool SyntheticPassage::nextFrame(SourceFrame& out)
{
    if (!renderFrame(d->nextIndex, out))
        return false;
    ++d->nextIndex;
    return true;
}

void SyntheticPassage::rewind()
{
    d->nextIndex = 0;
}

bool SyntheticPassage::renderFrame(int index, SourceFrame& out) const
{
    const SyntheticPassageOptions& o = d->options;
    if (index < 0 || index >= o.frames)
        return false;
    const ArisWriter::Window& w = d->window;
    const std::size_t beams = std::size_t(o.beams);
    const std::size_t samples = std::size_t(o.samples);
    const double seconds = double(index) / o.frameRate;

    std::vector<float> fish(samples * beams, 0.0f);
    d->model->addEchoes(seconds, fish.data(), o.samples, w.start, w.spacing);

    // Speckle of its own in every frame, from a stream of its own so that any frame
    // can be drawn alone.
    // The fish draw from a stream apart from the bed's, so that the bed's speckle is
    // the same with and without fish.
    SyntheticRandom random(o.seed, 1000 + 2 * std::uint64_t(index));
    SyntheticRandom fishRandom(o.seed, 1001 + 2 * std::uint64_t(index));
    std::vector<std::uint8_t> intensities(std::size_t(w.rows) * beams, 0);
    std::uint8_t* target = intensities.data() + std::size_t(w.firstSampleRow) * beams;
    const float* bed = d->bed.data();
    const float* bedSpeckle = d->bedSpeckle.data();
    const float* fishSpeckle = d->fishSpeckle.data();
    const std::size_t count = samples * beams;
    SyntheticSpeckleIndex bedIndex(random);
    SyntheticSpeckleIndex fishIndex(fishRandom);
    for (std::size_t i = 0; i < count; ++i) {
        float value = bed[i] + bedSpeckle[bedIndex.next()];
        if (fish[i] > 0.0f)
            value += float(fishEcho) * fish[i] * fishSpeckle[fishIndex.next()];
        target[i] = std::uint8_t(std::clamp(value, 0.0f, 255.0f) + 0.5f);
    }

    out.image = NereonImage(std::uint16_t(beams), std::uint16_t(w.rows), std::move(intensities), d->bearings,
        double(w.rows) * w.spacing, frameGain);
    out.index = index;
    out.timestamp = o.startTime + std::llround(double(index) * 1e6 / o.frameRate);
    out.windowStart = w.start;
    out.firstSampleRow = w.firstSampleRow;
    return true;
}

const SyntheticPassageOptions& SyntheticPassage::getOptions() const
{
    return d->options;
}

const std::vector<SyntheticFish>& SyntheticPassage::getFish() const
{
    return d->model->getFish();
}

const std::vector<SyntheticFishPosition>& SyntheticPassage::getPositions() const
{
    return d->positions;
}

const std::vector<std::int16_t>& SyntheticPassage::getBearings() const
{
    return d->bearings;
}

ArisWriterOptions SyntheticPassage::getWriterOptions() const
{
    const SyntheticPassageOptions& o = d->options;
    ArisWriterOptions options;
    options.beams = o.beams;
    options.samplesPerBeam = o.samples;
    options.windowStart = o.windowStart;
    options.windowLength = o.windowLength;
    options.frameRate = o.frameRate;
    options.systemType = o.systemType;
    options.telephoto = o.telephoto;
    return options;
}

bool SyntheticPassage::writeTruth(const QString& fishCsv, const QString& positionsCsv, QString* error) const
{
    return writeTruth(fishCsv, positionsCsv, getFish(), getPositions(), error);
}

bool SyntheticPassage::writeTruth(const QString& fishCsv, const QString& positionsCsv,
    const std::vector<SyntheticFish>& fish, const std::vector<SyntheticFishPosition>& positions,
    QString* error)
{
    const auto save = [error](const QString& path, const QByteArray& text) {
        QSaveFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit()) {
            if (error)
                *error = QStringLiteral("%1: %2").arg(path, file.errorString());
            return false;
        }
        return true;
    };
    QByteArray text = "fish_id,first_frame,last_frame,direction,length_m,speed_m_s,faint,brief\n";
    for (const SyntheticFish& f : fish)
        text += QStringLiteral("%1,%2,%3,%4,%5,%6,%7,%8\n")
                    .arg(f.id)
                    .arg(f.firstFrame)
                    .arg(f.lastFrame)
                    .arg(f.up ? QStringLiteral("up") : QStringLiteral("down"))
                    .arg(f.lengthM, 0, 'f', 3)
                    .arg(f.speedMS, 0, 'f', 3)
                    .arg(f.faint ? 1 : 0)
                    .arg(f.brief ? 1 : 0)
                    .toLatin1();
    if (!save(fishCsv, text))
        return false;
    text = "fish_id,frame,range_m,bearing_deg,visible\n";
    text.reserve(int(positions.size()) * 32);
    for (const SyntheticFishPosition& p : positions)
        text += QStringLiteral("%1,%2,%3,%4,%5\n")
                    .arg(p.id)
                    .arg(p.frame)
                    .arg(p.rangeM, 0, 'f', 4)
                    .arg(p.bearingDeg, 0, 'f', 4)
                    .arg(p.visible ? 1 : 0)
                    .toLatin1();
    return save(positionsCsv, text);
}

} // namespace Halcyra::Nereon::Sources
