#include "MagnifierRuler.h"

#include "ZoomDisplay.h"
#include "units/AbstractUnit.h"

#include <QEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

using Halcyra::Nereon::Visualisation::ZoomDisplay;

MagnifierRuler::MagnifierRuler(ZoomDisplay* zoomDisplay)
    : QWidget(zoomDisplay)
    , magnifier(zoomDisplay)
{
    setObjectName("magnifierRuler");
    setAttribute(Qt::WA_TranslucentBackground);
    setCursor(Qt::CrossCursor);
    setToolTip(tr("Drag to measure; right-click to clear"));
    setGeometry(magnifier->rect());
    // The magnifier repaints whenever its view changes (zoom, pan, a turn): the
    // ruler follows it then.
    magnifier->installEventFilter(this);
}

void MagnifierRuler::setDistanceUnit(const Halcyra::DataProcessing::Units::AbstractUnit* newUnit)
{
    unit = newUnit;
    update();
}

void MagnifierRuler::setRange(double metres)
{
    if (metres == range)
        return;
    range = metres;
    update();
}

void MagnifierRuler::setMeasurement(QPointF from, QPointF to)
{
    start = from;
    end = to;
    measured = true;
    update();
    emit measurementFinished(start, end);
}

void MagnifierRuler::clear()
{
    measured = false;
    dragging = false;
    update();
}

double MagnifierRuler::getDistance() const
{
    const QPointF d = end - start;
    return measured ? std::hypot(d.x(), d.y()) * range : 0.0;
}

QString MagnifierRuler::getLabel() const
{
    const double metres = getDistance();
    if (!unit)
        return QStringLiteral("%1 m").arg(metres, 0, 'f', 2);
    return QStringLiteral("%1 %2")
        .arg(unit->convertFromBase(metres), 0, 'f', 2)
        .arg(QString::fromStdString(unit->getSymbol()));
}

QPointF MagnifierRuler::fanPoint(QPointF pixel) const
{
    const QPointF clip(2.0 * pixel.x() / std::max(1, width()) - 1.0,
        1.0 - 2.0 * pixel.y() / std::max(1, height()));
    return magnifier->getCurrentProjection().inverted().map(clip);
}

QPointF MagnifierRuler::pixelOf(QPointF point) const
{
    const QPointF clip = magnifier->getCurrentProjection().map(point);
    return QPointF((clip.x() + 1.0) * 0.5 * width(), (1.0 - clip.y()) * 0.5 * height());
}

bool MagnifierRuler::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == magnifier) {
        if (event->type() == QEvent::Resize)
            setGeometry(magnifier->rect());
        // Only when the view has moved: repainting the layer may repaint the
        // magnifier beneath it.
        else if (event->type() == QEvent::Paint && measured
            && magnifier->getCurrentProjection() != paintedProjection)
            update();
    }
    return QWidget::eventFilter(watched, event);
}

void MagnifierRuler::paintEvent(QPaintEvent*)
{
    if (!measured)
        return;
    paintedProjection = magnifier->getCurrentProjection();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPointF a = pixelOf(start);
    const QPointF b = pixelOf(end);

    // A dark casing under the line keeps it visible on red and bright echoes alike.
    painter.setPen(QPen(QColor(0, 0, 0, 160), 5, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(a, b);
    painter.setPen(QPen(QColor(255, 40, 40), 2, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(a, b);
    for (const QPointF& p : { a, b })
        painter.drawEllipse(p, 3.0, 3.0);

    QFont font = this->font();
    font.setPointSizeF(std::max(11.0, font.pointSizeF() * 1.3));
    font.setBold(true);
    painter.setFont(font);
    const QString text = getLabel();
    const QFontMetricsF metrics(font);
    QRectF box = metrics.boundingRect(text).adjusted(-6, -3, 6, 3);
    // Beside the far end of the line, turned away from it, and kept inside the view.
    const QPointF direction = b - a;
    QPointF anchor = b + QPointF(direction.x() >= 0 ? 10 : -10 - box.width(), direction.y() >= 0 ? 10 : -10 - box.height());
    anchor.setX(std::clamp(anchor.x(), 2.0, std::max(2.0, width() - box.width() - 2.0)));
    anchor.setY(std::clamp(anchor.y(), 2.0, std::max(2.0, height() - box.height() - 2.0)));
    box.moveTopLeft(anchor);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 190));
    painter.drawRoundedRect(box, 4, 4);
    painter.setPen(Qt::white);
    painter.drawText(box, Qt::AlignCenter, text);
}

void MagnifierRuler::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::RightButton) {
        clear();
        return;
    }
    if (event->button() != Qt::LeftButton)
        return;
    start = end = fanPoint(QPointF(event->pos()));
    measured = true;
    dragging = true;
    update();
}

void MagnifierRuler::mouseMoveEvent(QMouseEvent* event)
{
    if (!dragging)
        return;
    end = fanPoint(QPointF(event->pos()));
    update();
}

void MagnifierRuler::mouseReleaseEvent(QMouseEvent* event)
{
    if (!dragging || event->button() != Qt::LeftButton)
        return;
    dragging = false;
    end = fanPoint(QPointF(event->pos()));
    // A click without a drag measures nothing.
    if (start == end)
        measured = false;
    update();
    if (measured)
        emit measurementFinished(start, end);
}
