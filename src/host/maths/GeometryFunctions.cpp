#include "maths/GeometryFunctions.h"

#include <cmath>

namespace Halcyra::Maths::Geometry {

namespace {
constexpr double Pi = 3.14159265358979323846;
}

double distanceBetween(Point a, Point b)
{
    return std::hypot(b.x - a.x, b.y - a.y);
}

double sineRuleForSide(double angle, double side, double oppositeAngle)
{
    return side * std::sin(angle) / std::sin(oppositeAngle);
}

double pythagorasForShortSide(double side, double hypotenuse)
{
    const double squared = hypotenuse * hypotenuse - side * side;
    // Rounding can make the difference a hair negative when side == hypotenuse.
    return squared > 0.0 ? std::sqrt(squared) : 0.0;
}

double degreesToRadians(double degrees)
{
    return degrees * Pi / 180.0;
}

double positiveAngleRelativeToXAxis(Point p)
{
    const double angle = std::atan2(p.y, p.x);
    return angle < 0.0 ? angle + 2.0 * Pi : angle;
}

double areaOfCirle(double radius)
{
    return Pi * radius * radius;
}

} // namespace Halcyra::Maths::Geometry
