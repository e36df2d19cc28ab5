// libFuzzer target: everything a sonar frame reaches before anything is drawn.
//
// One input is a short session with a fresh ZoomableFanDisplay that is never
// shown (no GL context): a few settings, then a stream of frames, each followed
// by the questions the display asks at a paint and at mouse input. Covered:
// frame validation, ingestion with any clamp level, thresholds, range-grid
// geometry, fan bounds and fitting, hit test, mouse positions and measuring,
// and the range labels for any bearing table, range and unit.
//
// Input layout (little endian, missing bytes read as zero):
//   session: flags u8, clamp level f32, rotation f32, unit factor f64, zoom level f32,
//            view width u16, view height u16
//   frames until the input ends: beams u16, range lines u16, range f64, bearing mode u8,
//            bearings (mode 0: first and last i16, spread evenly; mode 1: one i16 a beam),
//            intensity byte count u32 (capped by what is left), intensities.

#include "FanDisplay.h"
#include "ZoomableFanDisplay.h"
#include "display/FanDisplayPrivate.h"
#include "engine/FanGeometryEngine.h"
#include "nereon/NereonImage.h"
#include "units/AbstractUnit.h"

#include <QApplication>
#include <QMouseEvent>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace Halcyra::Nereon::Visualisation {

/// Reaches the display's private record and protected fit through the friend declaration.
class FanDisplayProbe
{
public:
    static FanGeometryEngine& engine(FanDisplay& display) { return display.d->geometryEngine; }
    static void fit(FanDisplay& display, int width, int height) { display.resizeGL(width, height); }
};

} // namespace Halcyra::Nereon::Visualisation

namespace {

using namespace Halcyra::Nereon::Visualisation;
using Halcyra::Nereon::NereonImage;

/// Reads fixed-size values from the input; past its end every byte is zero.
class Reader
{
public:
    Reader(const std::uint8_t* data, std::size_t size)
        : data(data)
        , size(size)
    {
    }

    template <typename T> T read()
    {
        T value {};
        const std::size_t available = std::min(sizeof(T), size - position);
        std::memcpy(&value, data + position, available);
        position += available;
        return value;
    }

    std::size_t remaining() const { return size - position; }
    bool atEnd() const { return position >= size; }

    std::vector<std::uint8_t> bytes(std::size_t count)
    {
        count = std::min(count, remaining());
        std::vector<std::uint8_t> result(data + position, data + position + count);
        position += count;
        return result;
    }

private:
    const std::uint8_t* data;
    std::size_t size;
    std::size_t position = 0;
};

/// A unit with any factor, NaN and infinities included.
class FuzzedUnit : public Halcyra::DataProcessing::Units::AbstractUnit
{
public:
    explicit FuzzedUnit(double factor)
        : factor(factor)
    {
    }
    double convertToBase(double value) const override { return value / factor; }
    double getFactorFromBase() const override { return factor; }
    double convertFromBase(double value) const override { return value * factor; }
    std::string getName() const override { return "fuzzed"; }
    bool isBaseUnit() const override { return factor == 1.0; }
    std::string getSymbol() const override { return "u"; }

private:
    double factor;
};

NereonImage readFrame(Reader& input)
{
    const auto beams = input.read<std::uint16_t>();
    const auto rangeLines = input.read<std::uint16_t>();
    const auto range = input.read<double>();
    const auto bearingMode = input.read<std::uint8_t>();

    std::vector<std::int16_t> bearings;
    if (bearingMode % 2 == 0) {
        const auto first = input.read<std::int16_t>();
        const auto last = input.read<std::int16_t>();
        bearings.resize(beams);
        for (int i = 0; i < beams; ++i) {
            const double t = beams > 1 ? double(i) / double(beams - 1) : 0.0;
            bearings[std::size_t(i)] = static_cast<std::int16_t>(first + t * (last - first));
        }
    } else {
        const std::size_t count = std::min<std::size_t>(beams, input.remaining() / 2);
        bearings.resize(count);
        for (std::int16_t& bearing : bearings)
            bearing = input.read<std::int16_t>();
    }

    const auto byteCount = input.read<std::uint32_t>();
    std::vector<std::uint8_t> intensities = input.bytes(byteCount);
    return NereonImage(beams, rangeLines, std::move(intensities), std::move(bearings), range, 1.0);
}

/// What a paint and the mouse ask after a frame, without drawing.
void askAsAPaintWould(ZoomableFanDisplay& display, float rotation, int viewWidth, int viewHeight)
{
    FanGeometryEngine& engine = FanDisplayProbe::engine(display);
    engine.calculateStraightLineGeometry();
    engine.calculateArcGeometry();
    (void)engine.getFanBounds(rotation);
    (void)engine.getRangeLabelParams(rotation);
    (void)engine.getRangeLabelParams(display.getCurrentRotation());
    FanDisplayProbe::fit(display, viewWidth, viewHeight);

    // A press, a drag and a release across the view, through the display's own handlers.
    const QPointF path[] = { { viewWidth * 0.5, viewHeight * 0.6 }, { viewWidth * 0.7, viewHeight * 0.3 },
        { viewWidth * 0.2, viewHeight * 0.9 } };
    QMouseEvent press(QEvent::MouseButtonPress, path[0], Qt::LeftButton, Qt::LeftButton, {});
    QCoreApplication::sendEvent(&display, &press);
    for (const QPointF& point : path) {
        QMouseEvent move(QEvent::MouseMove, point, Qt::NoButton, Qt::LeftButton, {});
        QCoreApplication::sendEvent(&display, &move);
    }
    QMouseEvent release(QEvent::MouseButtonRelease, path[2], Qt::LeftButton, Qt::NoButton, {});
    QCoreApplication::sendEvent(&display, &release);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    // Widgets without a screen: nothing here creates a GL context.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Kept for the whole run, never deleted.
    new QApplication(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Reader input(data, size);
    const auto flags = input.read<std::uint8_t>();
    const auto clampLevel = input.read<float>();
    const auto rotation = input.read<float>();
    const FuzzedUnit unit(input.read<double>());
    const auto zoomLevel = input.read<float>();
    // Sizes as the widget can have them, an empty one included.
    const int viewWidth = input.read<std::uint16_t>() % 5001;
    const int viewHeight = input.read<std::uint16_t>() % 5001;

    ZoomableFanDisplay display;
    display.resize(std::max(viewWidth, 1), std::max(viewHeight, 1));
    display.setDistanceUnit(&unit);
    display.setAreaUnit(&unit);
    display.setClampLevel(clampLevel);
    display.setRotation(static_cast<int>(flags >> 4) * 45 - 360);
    display.setMeasurementMode(static_cast<FanDisplayOptions::MeasurementMode>(flags & 3));
    if (flags & 4)
        display.horizontalFlip();
    display.setZoomLevel(zoomLevel, false);

    for (int frame = 0; frame < 8 && !input.atEnd(); ++frame) {
        display.newImageReceived(readFrame(input));
        if (flags & 8)
            display.verticalFlip();
        askAsAPaintWould(display, rotation, viewWidth, viewHeight);
    }
    FanDisplayProbe::engine(display).calculateThresholds();

    // The magnifier goes with the display here; it was never placed.
    return 0;
}
