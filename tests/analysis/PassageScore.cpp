#include "PassageScore.h"

#include <algorithm>
#include <cmath>
#include <map>

using namespace Halcyra::Nereon;

PassageScore PassageScore::score(const Sources::SyntheticPassage& passage, const Analysis::FishCounter& counter)
{
    // Each counted fish is the true fish nearest most of its detected points.
    std::map<std::pair<int, int>, const Sources::SyntheticFishPosition*> truthAt;
    for (const auto& p : passage.getPositions()) {
        if (p.visible)
            truthAt[{p.frame, p.id}] = &p;
    }
    std::map<int, std::map<int, int>> votes; // counted id -> truth id -> points
    for (const auto& point : counter.getTrackPoints()) {
        if (!point.detected)
            continue;
        const double x = point.rangeM * std::sin(point.bearingDeg * M_PI / 180.0);
        const double y = point.rangeM * std::cos(point.bearingDeg * M_PI / 180.0);
        int best = -1;
        double bestDistance = 0.75;
        for (auto it = truthAt.lower_bound({point.frame, -1}); it != truthAt.end() && it->first.first == point.frame; ++it) {
            const auto& t = *it->second;
            const double distance = std::hypot(x - t.rangeM * std::sin(t.bearingDeg * M_PI / 180.0),
                                               y - t.rangeM * std::cos(t.bearingDeg * M_PI / 180.0));
            if (distance < bestDistance) {
                bestDistance = distance;
                best = t.id;
            }
        }
        if (best >= 0)
            ++votes[point.fishId][best];
    }

    PassageScore s;
    const auto& truth = passage.getFish();
    std::vector<int> timesCounted(truth.size(), 0);
    for (const auto& fish : counter.getFish()) {
        const auto& v = votes[fish.id];
        const auto match = std::max_element(v.begin(), v.end(), [](auto a, auto b) { return a.second < b.second; });
        if (match == v.end() || match->second * 2 < fish.detections) {
            ++s.falseFish;
            ++s.counted;
            continue;
        }
        const auto& t = truth[std::size_t(match->first)];
        if (t.brief)
            continue;
        ++s.counted;
        if (timesCounted[std::size_t(t.id)]++ == 0) {
            s.rightDirection += (fish.direction == Analysis::Direction::Up) == t.up;
            s.lengthErrors.push_back(std::abs(fish.lengthM - t.lengthM));
        }
    }
    for (const auto& t : truth) {
        if (t.brief || t.firstFrame < 0)
            continue;
        ++s.truthFish;
        s.found += timesCounted[std::size_t(t.id)] > 0;
        s.split += timesCounted[std::size_t(t.id)] > 1;
    }
    return s;
}

void PassageScore::add(const PassageScore& other)
{
    truthFish += other.truthFish;
    found += other.found;
    split += other.split;
    rightDirection += other.rightDirection;
    counted += other.counted;
    falseFish += other.falseFish;
    lengthErrors.insert(lengthErrors.end(), other.lengthErrors.begin(), other.lengthErrors.end());
}

double PassageScore::getMedianLengthError() const
{
    if (lengthErrors.empty())
        return 0.0;
    std::vector<double> sorted = lengthErrors;
    std::nth_element(sorted.begin(), sorted.begin() + sorted.size() / 2, sorted.end());
    return sorted[sorted.size() / 2];
}

QString PassageScore::describe() const
{
    return QStringLiteral("%1 fish: %2 found, %3 split, %4 the right way; %5 counted, %6 false; length error %7 m")
        .arg(truthFish)
        .arg(found)
        .arg(split)
        .arg(rightDirection)
        .arg(counted)
        .arg(falseFish)
        .arg(getMedianLengthError(), 0, 'f', 3);
}
