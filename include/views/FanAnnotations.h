#pragma once

#include "FanOverlay.h"
#include "TernwickNereonViewsExport.h"

#include <QColor>
#include <QPointF>
#include <QString>
#include <QVector>

#include <memory>

namespace Halcyra::Nereon::Visualisation {
class FanDisplay;
}

namespace Halcyra::Nereon::Views {

/**
 * Marks drawn on a FanDisplay and its magnifier: points, boxes, ellipses, polylines (a
 * track's trail) and count lines, each with a colour and an optional label, placed in
 * range (metres) and bearing (degrees, positive to starboard), so they stay on the same
 * echoes whatever the display's rotation, mirroring or zoom. Marks with a NaN or infinite
 * coordinate are kept but not drawn. Used on the GUI thread.
 *
 * @code
 * Views::FanAnnotations marks;
 * marks.attach(fanDisplay);
 * const int fish = marks.add(Views::FanAnnotations::Mark::point(12.5, -3.0, Qt::yellow, "fish 7"));
 * marks.add(Views::FanAnnotations::Mark::countLine(0.0, Qt::cyan, "gate"));
 * @endcode
 */
class TERNWICK_NEREON_VIEWS_EXPORT FanAnnotations : public Visualisation::FanOverlay
{
public:
    /// One mark. Points are QPointF(range in metres, bearing in degrees).
    struct Mark
    {
        /// The shape of a mark, which says how its points are read.
        enum Kind
        {
            Point, ///< points[0], a small circle
            Box, ///< points[0] to points[1]: a range span times a bearing span (a sector of a ring)
            Ellipse, ///< centred at points[0], semi-axes across and along in metres
            Polyline, ///< through every point in order
            CountLine, ///< points[0] to points[1]; one point: its bearing from the apex to the maximum range
        };

        Kind kind = Point; ///< The shape, which says how many points it uses
        QVector<QPointF> points; ///< QPointF(range in metres, bearing in degrees) each
        double acrossRadius = 0.0; ///< Ellipse: semi-axis across (starboard), metres
        double alongRadius = 0.0; ///< Ellipse: semi-axis along (ahead), metres
        QColor colour = QColor(255, 255, 0); ///< Colour of the outline and the label
        QString label; ///< Text beside the mark; empty for none
        int width = 2; ///< line width, logical pixels

        /// A point at `range` metres and `bearing` degrees.
        static Mark point(double range, double bearing, const QColor& colour, const QString& label = {});
        /// A sector of a ring from `rangeFrom` to `rangeTo` metres and from `bearingFrom` to
        /// `bearingTo` degrees.
        static Mark box(double rangeFrom, double rangeTo, double bearingFrom, double bearingTo,
            const QColor& colour, const QString& label = {});
        /// An ellipse centred at `range` metres and `bearing` degrees, with semi-axes of
        /// `acrossRadius` metres across (starboard) and `alongRadius` metres along (ahead).
        static Mark ellipse(double range, double bearing, double acrossRadius, double alongRadius,
            const QColor& colour, const QString& label = {});
        /// A line through every QPointF(range in metres, bearing in degrees) in order.
        static Mark polyline(
            const QVector<QPointF>& rangeBearing, const QColor& colour, const QString& label = {});
        /// From the apex out to the maximum range on a bearing.
        static Mark countLine(double bearing, const QColor& colour, const QString& label = {});
        /// Between two points (range, bearing).
        static Mark countLine(
            const QPointF& from, const QPointF& to, const QColor& colour, const QString& label = {});
    };

    FanAnnotations();
    /// Detaches from the display.
    ~FanAnnotations() override;
    FanAnnotations(const FanAnnotations&) = delete;
    FanAnnotations& operator=(const FanAnnotations&) = delete;

    /// Draws the marks on the display (and its magnifier), leaving any display before; null detaches.
    void attach(Visualisation::FanDisplay* display);
    /// Stops drawing on the attached display, if any.
    void detach();
    /// The display attached, or null (also once that display is destroyed).
    Visualisation::FanDisplay* getDisplay() const;

    /// Adds a mark on top of the others; returns its id (above 0).
    int add(const Mark& mark);
    /// Replaces the mark with this id, keeping its place; false for an unknown id.
    bool update(int id, const Mark& mark);
    /// False for an unknown id.
    bool remove(int id);
    /// Removes every mark; ids are not reused.
    void clear();
    /// The mark with this id, or null.
    const Mark* find(int id) const;
    /// How many marks there are.
    int getCount() const;

    /**
     * The topmost mark under a point of the attached display's widget (logical pixels), as
     * of its last paint: inside a box or ellipse, or within tolerance pixels of a line or
     * point. 0 when none is, or nothing is attached.
     */
    int markAt(const QPointF& widgetPoint, double tolerance = 4.0) const;

    void paintOverlay(Visualisation::FanOverlayContext& context) override;

private:
    class Private;
    std::unique_ptr<Private> const d;
};

} // namespace Halcyra::Nereon::Views
