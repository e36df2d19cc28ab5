#pragma once

#include "analysis/FishCounter.h"
#include "sources/SyntheticPassage.h"

#include <QString>

#include <vector>

/// How well a count of one recording (or of many, added up) agrees with the fish
/// that were drawn into it.
struct CountScore
{
    QString name;
    int truth = 0; ///< fish drawn
    int truthBrief = 0; ///< of them, seen only briefly (cut by the recording's ends or the beams)
    int counted = 0;
    int truthUp = 0, countedUp = 0;
    int found = 0; ///< fish drawn that some counted fish follows
    int foundSteady = 0; ///< of the fish not brief
    int split = 0; ///< fish drawn followed by more than one counted fish
    int directionAgrees = 0; ///< of the found, counted going the way they went
    std::vector<double> lengthErrors; ///< |counted − drawn| length of each found fish, metres

    double countError() const { return truth ? double(counted - truth) / truth : 0.0; }
    double recall() const { return truth ? double(found) / truth : 1.0; }
    double steadyRecall() const
    {
        return truth > truthBrief ? double(foundSteady) / (truth - truthBrief) : 1.0;
    }
    double precision() const { return counted ? double(found) / counted : 1.0; }
    double directionAgreement() const { return found ? double(directionAgrees) / found : 1.0; }
    double medianLengthError() const;

    void add(const CountScore& other);
    /// The header and one row of the table CountScore::row() makes.
    static QString header();
    QString row() const;
};

/**
 * Matches counted fish to drawn ones by where they were, frame by frame: a counted
 * fish follows the drawn fish whose centre its track points lie within
 * `toleranceM` of in the most frames (at least `minFrames` of them).
 */
CountScore scoreCount(const QString& name, const std::vector<Halcyra::Nereon::Sources::SyntheticFish>& truth,
    const std::vector<Halcyra::Nereon::Sources::SyntheticFishPosition>& positions,
    const std::vector<Halcyra::Nereon::Analysis::FishRecord>& fish,
    const std::vector<Halcyra::Nereon::Analysis::TrackPoint>& points, double toleranceM = 1.0,
    int minFrames = 3);
