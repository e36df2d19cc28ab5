#include "gui/SvgWidget.h"

#include <QColor>
#include <QPainter>
#include <QString>
#include <QSvgRenderer>

#include <algorithm>

namespace Halcyra::GUI::Widgets::Bases {

SvgWidget::SvgWidget()
    : renderer(std::make_unique<QSvgRenderer>())
{
}

SvgWidget::~SvgWidget() = default;

QSize SvgWidget::getSvgSize() const
{
    return renderer->isValid() ? renderer->defaultSize() : QSize();
}

void SvgWidget::setSvgData(const QByteArray& data)
{
    svgData = data;
    renderer->load(svgData);
}

const QByteArray& SvgWidget::getSvgData() const
{
    return svgData;
}

void SvgWidget::renderSvg(QPainter& painter, const QRectF& bounds) const
{
    const QSize natural = getSvgSize();
    if (natural.isEmpty() || bounds.isEmpty())
        return;
    const qreal scale = std::min(bounds.width() / natural.width(), bounds.height() / natural.height());
    QRectF target(0.0, 0.0, natural.width() * scale, natural.height() * scale);
    target.moveCenter(bounds.center());
    renderer->render(&painter, target);
}

QString SvgWidget::paintAttributes(const QString& name, const QColor& colour)
{
    return QStringLiteral("%1=\"%2\" %1-opacity=\"%3\"")
        .arg(name, colour.name(QColor::HexRgb), QString::number(colour.alphaF(), 'g', 4));
}

} // namespace Halcyra::GUI::Widgets::Bases
