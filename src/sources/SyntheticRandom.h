#pragma once

#include <cmath>
#include <cstdint>

namespace Halcyra::Nereon::Sources {

/**
 * The random numbers of the synthetic scenes: splitmix64, written out so that a
 * seed gives the same scene with every compiler and standard library (the
 * standard distributions are not specified bit for bit).
 */
class SyntheticRandom
{
public:
    explicit SyntheticRandom(std::uint64_t seed)
        : state(seed)
    {
    }
    /// A generator for stream `stream` of `seed`, independent of the other streams.
    SyntheticRandom(std::uint64_t seed, std::uint64_t stream)
        : state(mix(seed ^ mix(stream + 0x632be59bd9b4e019ull)))
    {
    }

    std::uint64_t next()
    {
        state += 0x9e3779b97f4a7c15ull;
        return mix(state);
    }
    /// Uniform in [0, 1).
    double uniform() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
    /// Uniform in [low, high).
    double uniform(double low, double high) { return low + (high - low) * uniform(); }
    /// Uniform in 0 to count − 1.
    int below(int count) { return count <= 0 ? 0 : int(next() % std::uint64_t(count)); }
    bool chance(double probability) { return uniform() < probability; }

    static std::uint64_t mix(std::uint64_t z)
    {
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }

private:
    std::uint64_t state;
};

} // namespace Halcyra::Nereon::Sources
