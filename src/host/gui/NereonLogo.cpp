#include "gui/NereonLogo.h"

#include <QPainter>
#include <QString>

namespace Halcyra::GUI::Widgets::Displays {

namespace {

// A sonar fan opening upward from its apex, with beam dividers, a range arc
// and one echo, and the wordmark. %1: stroke of the fan, %2: fill of the
// apex, the echo and the wordmark.
const char* const drawingTemplate = R"(<?xml version="1.0" encoding="UTF-8"?>
<svg xmlns="http://www.w3.org/2000/svg" version="1.2" baseProfile="tiny" width="362" height="100" viewBox="0 0 362 100">
  <g fill="none" %1 stroke-linecap="round" stroke-linejoin="round">
    <path d="M72,92 L4.45,53 A78,78 0 0 1 139.55,53 Z" stroke-width="6"/>
    <path d="M72,92 L45.32,18.7 M72,92 L98.68,18.7" stroke-width="3"/>
    <path d="M32.16,69 A46,46 0 0 1 111.84,69" stroke-width="3"/>
  </g>
  <circle cx="72" cy="92" r="6" %2/>
  <circle cx="80.6" cy="30.6" r="5" %2/>
  <text x="156" y="69" font-family="DejaVu Sans, Liberation Sans, sans-serif" font-size="48" font-weight="bold" %2>Nereon</text>
</svg>
)";

} // namespace

NereonLogo::NereonLogo(QWidget* parent)
    : QWidget(parent)
{
    rebuildDrawing();
}

NereonLogo::~NereonLogo() = default;

void NereonLogo::setColour(const QColor& newColour)
{
    colour = newColour;
    rebuildDrawing();
}

QSize NereonLogo::sizeHint() const
{
    return getSvgSize();
}

void NereonLogo::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHints(
        QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);
    renderSvg(painter, QRectF(rect()));
}

void NereonLogo::rebuildDrawing()
{
    const QString drawing = QString::fromUtf8(drawingTemplate)
                                .arg(paintAttributes(QStringLiteral("stroke"), colour),
                                    paintAttributes(QStringLiteral("fill"), colour));
    setSvgData(drawing.toUtf8());
    update();
}

} // namespace Halcyra::GUI::Widgets::Displays
