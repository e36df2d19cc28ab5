#include "DesignerIcons.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QRadialGradient>

#include <algorithm>

namespace {

void paintFan(QPainter& painter, const QRectF& box)
{
    // The sonar at the bottom centre, a 130° sector opening upwards; as wide as
    // the box allows, since the sector is wider than it is tall.
    const double radius = std::min(box.width() * 0.54, box.height() * 0.9);
    const QPointF apex(box.center().x(), box.bottom() - (box.height() - radius) / 2.0);
    const QRectF circle(apex.x() - radius, apex.y() - radius, 2 * radius, 2 * radius);
    QPainterPath fan(apex);
    fan.arcTo(circle, 25.0, 130.0);
    fan.closeSubpath();

    // Echoes strengthening with range, in the default palette's colours.
    QRadialGradient colours(apex, radius);
    colours.setColorAt(0.0, QColor(10, 20, 110));
    colours.setColorAt(0.45, QColor(0, 150, 210));
    colours.setColorAt(0.75, QColor(240, 220, 40));
    colours.setColorAt(1.0, QColor(220, 50, 30));
    painter.setPen(Qt::NoPen);
    painter.setBrush(colours);
    painter.drawPath(fan);

    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(QColor(235, 235, 235), std::max(1.0, box.height() / 32.0)));
    for (const double fraction : { 0.45, 0.75 }) {
        const double r = radius * fraction;
        painter.drawArc(QRectF(apex.x() - r, apex.y() - r, 2 * r, 2 * r), 25 * 16, 130 * 16);
    }
    painter.setPen(QPen(QColor(60, 60, 60), std::max(1.0, box.height() / 24.0)));
    painter.drawPath(fan);
}

QIcon drawnIcon(bool withMagnifier)
{
    QIcon icon;
    for (const int size : { 16, 22, 32, 48, 64 }) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        paintFan(painter, QRectF(0, 0, size, size));
        if (withMagnifier) {
            const double r = size * 0.2;
            const QPointF centre(size * 0.7, size * 0.62);
            painter.setPen(QPen(QColor(30, 30, 30), std::max(1.5, size / 12.0), Qt::SolidLine, Qt::RoundCap));
            painter.drawLine(centre + QPointF(r * 0.7, r * 0.7), centre + QPointF(r * 1.7, r * 1.7));
            painter.setBrush(QColor(255, 255, 255, 110));
            painter.setPen(QPen(QColor(30, 30, 30), std::max(1.0, size / 16.0)));
            painter.drawEllipse(centre, r, r);
        }
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

} // namespace

namespace DesignerIcons {

QIcon fanDisplay()
{
    return drawnIcon(false);
}

QIcon zoomableFanDisplay()
{
    return drawnIcon(true);
}

} // namespace DesignerIcons
