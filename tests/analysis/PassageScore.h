#pragma once

#include "analysis/FishCounter.h"
#include "sources/SyntheticPassage.h"

#include <QString>

#include <vector>

/// How a count compares with a synthetic passage's truth. Brief fish (glimpsed in
/// mid-fan or cut by the recording's ends) may be counted or not.
struct PassageScore
{
    int truthFish = 0;      ///< fish that cross the fan
    int found = 0;          ///< of those, counted at least once
    int split = 0;          ///< of those, counted more than once
    int rightDirection = 0; ///< of those found, counted the right way
    int counted = 0;        ///< counts, brief fish not included
    int falseFish = 0;      ///< counts matching no fish
    std::vector<double> lengthErrors; ///< metres, absolute, one per fish found

    /// Adds another passage's score.
    void add(const PassageScore& other);
    double getMedianLengthError() const;

    static PassageScore score(const Halcyra::Nereon::Sources::SyntheticPassage& passage,
                              const Halcyra::Nereon::Analysis::FishCounter& counter);
    QString describe() const;
};
