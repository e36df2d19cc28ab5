#include "DesignerIcons.h"

#include <QConicalGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

#include <algorithm>

namespace {

void paintFan(QPainter& painter, const QRectF& box)
{
    // The sonar at the bottom centre, a 130° sector opening upwards.
    const QPointF apex(box.center().x(), box.bottom() - box.height() * 0.06);
    const double radius = box.height() * 0.9;
    const QRectF circle(apex.x() - radius, apex.y() - radius, 2 * radius, 2 * radius);
    QPainterPath fan(apex);
    fan.arcTo(circle, 25.0, 130.0);
    fan.closeSubpath();

    QConicalGradient colours(apex, 25.0);
    colours.setColorAt(0.0, QColor(20, 40, 160));
    colours.setColorAt(0.12, QColor(0, 170, 200));
    colours.setColorAt(0.22, QColor(240, 220, 40));
    colours.setColorAt(0.3, QColor(220, 40, 30));
    colours.setColorAt(0.37, QColor(20, 40, 160));
    colours.setColorAt(1.0, QColor(20, 40, 160));
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
