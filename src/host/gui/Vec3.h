#pragma once

namespace Halcyra {

/// Three components x, y, z.
template <typename T>
struct Vec3
{
    T x {}; ///< first component
    T y {}; ///< second component
    T z {}; ///< third component
};

} // namespace Halcyra
