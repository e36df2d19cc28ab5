#include "FanMeasurementListener.h"

namespace Halcyra::Nereon::Visualisation {

FanMeasurementListener::~FanMeasurementListener() = default;

} // namespace Halcyra::Nereon::Visualisation
