#pragma once

#include "maths/Point.h"

/// Plane geometry. Angles are radians unless a name says otherwise.
namespace Halcyra::Maths::Geometry {

/// Euclidean distance between two points.
double distanceBetween(Point a, Point b);

/// Sine rule: the side opposite `angle`, given `side` opposite `oppositeAngle`.
double sineRuleForSide(double angle, double side, double oppositeAngle);

/// The other short side of a right triangle; 0 when `side` exceeds `hypotenuse`.
double pythagorasForShortSide(double side, double hypotenuse);

double degreesToRadians(double degrees);

/// Angle from +x to the vector origin→p, counter-clockwise, in [0, 2π); 0 for the origin.
double positiveAngleRelativeToXAxis(Point p);

/// Area of a circle of the given radius.
double areaOfCirle(double radius);

} // namespace Halcyra::Maths::Geometry
