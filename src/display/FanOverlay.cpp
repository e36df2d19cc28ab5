#include "FanOverlay.h"

namespace Halcyra::Nereon::Visualisation {

FanOverlay::~FanOverlay() = default;

} // namespace Halcyra::Nereon::Visualisation
