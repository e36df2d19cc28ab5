#include "nereon/NereonImage.h"

namespace Halcyra::Nereon {

struct NereonImage::Data
{
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    std::vector<std::uint8_t> intensities;
    std::vector<std::int16_t> bearings;
    double range = 0.0;
    double gain = 0.0;
};

namespace {
// Registered when the library is loaded, so that queued connections carrying
// frames work without the application registering the type itself.
const int nereonImageMetaTypeId = [] {
    qRegisterMetaType<NereonImage>("NereonImage");
    return qRegisterMetaType<NereonImage>();
}();
} // namespace

const std::shared_ptr<const NereonImage::Data>& NereonImage::emptyData()
{
    static const std::shared_ptr<const Data> empty = std::make_shared<const Data>();
    return empty;
}

NereonImage::NereonImage() : d(emptyData()) {}

NereonImage::NereonImage(std::uint16_t width, std::uint16_t height,
                         std::vector<std::uint8_t> intensities,
                         std::vector<std::int16_t> bearings, double range, double gain)
    : d(std::make_shared<const Data>(
          Data{width, height, std::move(intensities), std::move(bearings), range, gain}))
{
}

std::uint16_t NereonImage::getWidth() const { return d->width; }
std::uint16_t NereonImage::getHeight() const { return d->height; }
const std::vector<std::uint8_t>& NereonImage::getData() const { return d->intensities; }
const std::vector<std::int16_t>& NereonImage::getBearings() const { return d->bearings; }
double NereonImage::getRange() const { return d->range; }
double NereonImage::getGain() const { return d->gain; }

} // namespace Halcyra::Nereon
