#include "analysis/FishDetector.h"

#include "FishDetectorPrivate.h"

#include <algorithm>
#include <cmath>

namespace Halcyra::Nereon::Analysis {

FishDetector::FishDetector()
    : d(std::make_unique<FishDetectorPrivate>())
{
}

FishDetector::~FishDetector() = default;

std::vector<Detection> FishDetector::detect(const NereonImage&)
{
    return {};
}

void FishDetector::setMinimumLengthM(double metres)
{
    if (std::isfinite(metres) && metres >= 0.0)
        d->minimumLengthM = metres;
}

double FishDetector::getMinimumLengthM() const
{
    return d->minimumLengthM;
}

void FishDetector::setJoinGapM(double metres)
{
    if (std::isfinite(metres) && metres >= 0.0)
        d->joinGapM = metres;
}

double FishDetector::getJoinGapM() const
{
    return d->joinGapM;
}

void FishDetector::setJoinAlongAxisM(double metres)
{
    if (std::isfinite(metres) && metres >= 0.0)
        d->joinAlongAxisM = metres;
}

double FishDetector::getJoinAlongAxisM() const
{
    return d->joinAlongAxisM;
}

void FishDetector::setSearchCellM(double metres)
{
    if (std::isfinite(metres) && metres > 0.0)
        d->searchCellM = metres;
}

double FishDetector::getSearchCellM() const
{
    return d->searchCellM;
}

void FishDetector::setMinimumSamples(int samples)
{
    d->minimumSamples = std::max(1, samples);
}

int FishDetector::getMinimumSamples() const
{
    return d->minimumSamples;
}

} // namespace Halcyra::Nereon::Analysis
