#pragma once

namespace Halcyra {

/// Three components x, y, z.
template <typename T> struct Vec3
{
    T x {};
    T y {};
    T z {};
};

} // namespace Halcyra
