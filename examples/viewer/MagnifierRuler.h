#pragma once

#include <QMatrix4x4>
#include <QPointF>
#include <QWidget>

namespace Halcyra::DataProcessing::Units {
class AbstractUnit;
}

namespace Halcyra::Nereon::Visualisation {
class ZoomDisplay;
}

/**
 * Measures distances on the magnifier: a see-through layer over it on which the
 * user drags a line from one end of a fish to the other. The line's ends are kept
 * in fan coordinates, so the line stays on the echo while the magnifier zooms,
 * pans or turns, and its length is exact at any magnification. The label sits on
 * a dark plate in a large font, readable over the brightest echoes.
 */
class MagnifierRuler : public QWidget
{
    Q_OBJECT

public:
    explicit MagnifierRuler(Halcyra::Nereon::Visualisation::ZoomDisplay* magnifier);

    /// Unit of the label; lent by the viewer, which keeps it alive.
    void setDistanceUnit(const Halcyra::DataProcessing::Units::AbstractUnit* unit);
    /// The range of the frame shown, in metres: the fan's rim.
    void setRange(double metres);
    /// Measures from `start` to `end`, both in fan coordinates (the rim at radius 1).
    void setMeasurement(QPointF start, QPointF end);
    void clear();
    bool hasMeasurement() const { return measured; }
    /// Length of the line in metres.
    double getDistance() const;
    /// The text of the label, e.g. "0.53 m".
    QString getLabel() const;

    /// The range of the frame shown, in metres.
    double getRange() const { return range; }

    /// Fan coordinates of a pixel of the magnifier, through its current transform.
    QPointF fanPoint(QPointF pixel) const;
    /// Pixel of the magnifier at which a fan point is drawn.
    QPointF pixelOf(QPointF fanPoint) const;

signals:
    /// A line was measured (dragged, or set), from `start` to `end` in fan coordinates.
    void measurementFinished(QPointF start, QPointF end);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    Halcyra::Nereon::Visualisation::ZoomDisplay* magnifier;
    const Halcyra::DataProcessing::Units::AbstractUnit* unit = nullptr;
    double range = 0.0;
    QPointF start;
    QPointF end;
    bool measured = false;
    bool dragging = false;
    QMatrix4x4 paintedProjection;
};
