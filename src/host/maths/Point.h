#pragma once

namespace Halcyra::Maths::Geometry {

/// A point of the plane.
struct Point
{
    double x = 0.0;
    double y = 0.0;
};

} // namespace Halcyra::Maths::Geometry
