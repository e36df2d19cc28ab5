#include "gui/TernwickLogo.h"

#include <QPainter>
#include <QString>

namespace Halcyra::GUI::Widgets::Displays {

namespace {

// %1: fill of the bird, %2: stroke of the wave, %3: fill of the wordmark.
const char* const drawingTemplate = R"(<?xml version="1.0" encoding="UTF-8"?>
<svg xmlns="http://www.w3.org/2000/svg" version="1.2" baseProfile="tiny" width="380" height="100" viewBox="0 0 380 100">
  <g %1 stroke="none">
    <path d="M8,46 C26,30 42,30 52,47 C60,27 78,20 98,24 C80,30 66,40 56,58 L50,60 C40,46 28,42 8,46 Z"/>
    <path d="M50,60 L44,70 L53,64 Z"/>
  </g>
  <path d="M6,84 C22,74 38,74 54,84 C70,94 86,94 102,84" fill="none" %2 stroke-width="6" stroke-linecap="round"/>
  <text x="114" y="69" font-family="DejaVu Sans, Liberation Sans, sans-serif" font-size="48" font-weight="bold" %3>Ternwick</text>
</svg>
)";

} // namespace

TernwickLogo::TernwickLogo(QWidget* parent)
    : QWidget(parent)
{
    rebuildDrawing();
}

TernwickLogo::~TernwickLogo() = default;

void TernwickLogo::setPrimaryColour(const QColor& colour)
{
    primaryColour = colour;
    rebuildDrawing();
}

void TernwickLogo::setSecondaryColour(const QColor& colour)
{
    secondaryColour = colour;
    rebuildDrawing();
}

QSize TernwickLogo::sizeHint() const
{
    return getSvgSize();
}

void TernwickLogo::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHints(
        QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);
    renderSvg(painter, QRectF(rect()));
}

void TernwickLogo::rebuildDrawing()
{
    const QString drawing = QString::fromUtf8(drawingTemplate)
                                .arg(paintAttributes(QStringLiteral("fill"), secondaryColour),
                                    paintAttributes(QStringLiteral("stroke"), secondaryColour),
                                    paintAttributes(QStringLiteral("fill"), primaryColour));
    setSvgData(drawing.toUtf8());
    update();
}

} // namespace Halcyra::GUI::Widgets::Displays
