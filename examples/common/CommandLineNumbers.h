#pragma once

#include <QSize>
#include <QString>

/// Numbers on the command lines of the viewer and the export tool, read the same way in both:
/// whole text only, finite, within the range given (ends included).
namespace CommandLineNumbers {

/// A whole number from `low` to `high`.
bool toInteger(const QString& text, int low, int high, int& value);
/// A number from `low` to `high`.
bool toNumber(const QString& text, double low, double high, double& value);
/// "a,b,..." as exactly `count` numbers.
bool toNumbers(const QString& text, int count, double* values);
/// "WIDTHxHEIGHT" in whole pixels, each side within `low` to `high`.
bool toSize(const QString& text, int low, int high, QSize& size);

/// A point of the fan given by its slant range and bearing.
struct RangeBearing
{
    double range = 0.0; ///< metres
    double bearing = 0.0; ///< degrees, positive to starboard
};
/// "RANGE,BEARING" with units: the range in m or ft, the bearing in deg (or °), e.g. "5m,-3deg".
bool toRangeBearing(const QString& text, RangeBearing& point);

/// What the viewer and the export tool say when a recording has fewer frames than asked
/// for (`frame` counts from 1).
QString missingFrame(const QString& fileName, int frameCount, int frame);

} // namespace CommandLineNumbers
