#pragma once

#include "TernwickNereonViewsExport.h"

#include <QColor>
#include <QString>

#include <cstdint>
#include <vector>

namespace Halcyra::Nereon::Views {

/**
 * A track drawn over an echogram: points (frame number or time, range in metres)
 * joined in order by a line through the columns of those frames at those ranges,
 * in one colour, with an optional label (a fish's number and length) by its last point.
 */
class TERNWICK_NEREON_VIEWS_EXPORT EchogramMark
{
public:
    /// What a point's position is.
    enum class Axis
    {
        Frame, ///< a frame number, as the echogram's columns are numbered by their frames
        Time, ///< a time, µs since 1970 UTC
    };

    /// One point of the track.
    struct Point
    {
        std::int64_t position = 0; ///< frame number or µs, as the mark's axis says
        double rangeMetres = 0.0; ///< range from the sonar in metres
    };

    /// An empty mark placed by frame number, yellow, without a label.
    EchogramMark() = default;
    /// An empty mark placed along `axis`.
    explicit EchogramMark(
        Axis axis, const QColor& colour = QColor(255, 220, 0), const QString& label = QString());

    /// Whether points are placed by frame number or by time.
    Axis getAxis() const { return axis; }
    /// Places the points by frame number or by time.
    void setAxis(Axis newAxis) { axis = newAxis; }
    /// The colour of the line and its label.
    QColor getColour() const { return colour; }
    /// Sets the colour of the line and its label.
    void setColour(const QColor& newColour) { colour = newColour; }
    /// The text drawn beside the track's last point in view (empty: none).
    QString getLabel() const { return label; }
    /// Sets the text drawn beside the track's last point in view.
    void setLabel(const QString& text) { label = text; }

    /// Appends a point. Points whose range is not finite are kept but never drawn (the line breaks there).
    void addPoint(std::int64_t position, double rangeMetres);
    /// Forgets every point.
    void clearPoints() { points.clear(); }
    /// The points, in the order given.
    const std::vector<Point>& getPoints() const { return points; }

private:
    Axis axis = Axis::Frame;
    QColor colour = QColor(255, 220, 0);
    QString label;
    std::vector<Point> points;
};

} // namespace Halcyra::Nereon::Views
