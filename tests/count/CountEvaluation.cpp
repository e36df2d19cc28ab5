#include "CountEvaluation.h"

#include <algorithm>
#include <cmath>
#include <map>

using namespace Halcyra::Nereon::Analysis;
using namespace Halcyra::Nereon::Sources;

namespace {

struct Point
{
    double x, y;
};

Point place(double rangeM, double bearingDeg)
{
    const double b = bearingDeg * M_PI / 180.0;
    return { rangeM * std::sin(b), rangeM * std::cos(b) };
}

} // namespace

double CountScore::medianLengthError() const
{
    if (lengthErrors.empty())
        return 0.0;
    std::vector<double> sorted = lengthErrors;
    std::sort(sorted.begin(), sorted.end());
    const std::size_t n = sorted.size();
    return n % 2 ? sorted[n / 2] : 0.5 * (sorted[n / 2 - 1] + sorted[n / 2]);
}

void CountScore::add(const CountScore& o)
{
    truth += o.truth;
    truthBrief += o.truthBrief;
    counted += o.counted;
    truthUp += o.truthUp;
    countedUp += o.countedUp;
    found += o.found;
    foundSteady += o.foundSteady;
    split += o.split;
    directionAgrees += o.directionAgrees;
    lengthErrors.insert(lengthErrors.end(), o.lengthErrors.begin(), o.lengthErrors.end());
}

QString CountScore::header()
{
    return QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8 %9 %10")
        .arg(QStringLiteral("recording"), -14)
        .arg(QStringLiteral("fish up/down"), 13)
        .arg(QStringLiteral("counted"), 10)
        .arg(QStringLiteral("error"), 7)
        .arg(QStringLiteral("recall"), 7)
        .arg(QStringLiteral("steady"), 7)
        .arg(QStringLiteral("precision"), 9)
        .arg(QStringLiteral("split"), 6)
        .arg(QStringLiteral("length err"), 11)
        .arg(QStringLiteral("direction"), 9);
}

QString CountScore::row() const
{
    return QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8 %9 %10")
        .arg(name, -14)
        .arg(QStringLiteral("%1/%2").arg(truthUp).arg(truth - truthUp), 13)
        .arg(QStringLiteral("%1/%2").arg(countedUp).arg(counted - countedUp), 10)
        .arg(QStringLiteral("%1%").arg(100.0 * countError(), 0, 'f', 0), 7)
        .arg(recall(), 7, 'f', 2)
        .arg(steadyRecall(), 7, 'f', 2)
        .arg(precision(), 9, 'f', 2)
        .arg(split, 6)
        .arg(QStringLiteral("%1 m").arg(medianLengthError(), 0, 'f', 2), 11)
        .arg(directionAgreement(), 9, 'f', 2);
}

CountScore scoreCount(const QString& name, const std::vector<SyntheticFish>& truth,
    const std::vector<SyntheticFishPosition>& positions, const std::vector<FishRecord>& fish,
    const std::vector<TrackPoint>& points, double toleranceM, int minFrames)
{
    CountScore score;
    score.name = name;
    score.truth = int(truth.size());
    for (const SyntheticFish& t : truth) {
        score.truthBrief += t.brief ? 1 : 0;
        score.truthUp += t.up ? 1 : 0;
    }
    score.counted = int(fish.size());
    for (const FishRecord& f : fish)
        score.countedUp += f.direction == Direction::Up ? 1 : 0;

    std::multimap<int, const SyntheticFishPosition*> byFrame;
    for (const SyntheticFishPosition& p : positions)
        if (p.visible)
            byFrame.emplace(p.frame, &p);
    // Frames in which each counted fish lay near each drawn fish.
    std::map<std::pair<int, int>, int> overlap;
    for (const TrackPoint& p : points) {
        const Point a = place(p.rangeM, p.bearingDeg);
        const auto [first, last] = byFrame.equal_range(p.frame);
        for (auto it = first; it != last; ++it) {
            const Point b = place(it->second->rangeM, it->second->bearingDeg);
            if (std::hypot(a.x - b.x, a.y - b.y) <= toleranceM)
                ++overlap[{ p.fishId, it->second->id }];
        }
    }
    // Each counted fish follows the drawn fish it overlapped most; the first of those
    // (by overlap) to a drawn fish is its match, any further one a split.
    std::map<int, std::pair<int, int>> followed; // counted id -> (drawn id, frames)
    for (const auto& [ids, frames] : overlap) {
        auto& best = followed[ids.first];
        if (frames >= minFrames && frames > best.second)
            best = { ids.second, frames };
    }
    std::map<int, std::pair<int, int>> bestFollower; // drawn id -> (counted id, frames)
    std::map<int, int> followers;
    for (const auto& [countedId, match] : followed) {
        if (match.second < minFrames)
            continue;
        ++followers[match.first];
        auto& best = bestFollower[match.first];
        if (match.second > best.second)
            best = { countedId, match.second };
    }
    for (const auto& [drawnId, match] : bestFollower) {
        const auto t = std::find_if(
            truth.begin(), truth.end(), [id = drawnId](const SyntheticFish& s) { return s.id == id; });
        const auto f = std::find_if(
            fish.begin(), fish.end(), [id = match.first](const FishRecord& r) { return r.id == id; });
        if (t == truth.end() || f == fish.end())
            continue;
        ++score.found;
        score.foundSteady += t->brief ? 0 : 1;
        score.split += followers[drawnId] > 1 ? 1 : 0;
        score.directionAgrees += (f->direction == Direction::Up) == t->up ? 1 : 0;
        score.lengthErrors.push_back(std::abs(f->lengthM - t->lengthM));
    }
    return score;
}
