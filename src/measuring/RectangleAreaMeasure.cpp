#include "measuring/RectangleAreaMeasure.h"

#include "gui/OpenGLWidgetPainter.h"
#include "maths/GeometryFunctions.h"

#include <QColor>

#include <vector>

namespace Halcyra::Nereon::Visualisation {

namespace Geometry = Maths::Geometry;

RectangleAreaMeasure::~RectangleAreaMeasure() = default;

void RectangleAreaMeasure::updateMeasurement(double range, float scaleX, float scaleY)
{
    const double aspect = static_cast<double>(scaleY / scaleX);
    const double startX = startPoint.x() * aspect;
    const double endX = endPoint.x() * aspect;
    const double height = Geometry::distanceBetween({ startX, startPoint.y() }, { startX, endPoint.y() });
    const double width = Geometry::distanceBetween({ startX, endPoint.y() }, { endX, endPoint.y() });
    const double metresPerUnit = range / static_cast<double>(scaleY);
    // Sides in metres are narrowed first; the product is taken in single precision.
    area = static_cast<float>(metresPerUnit * height) * static_cast<float>(metresPerUnit * width);
}

void RectangleAreaMeasure::displayMeasurement(GUI::Widgets::Bases::OpenGLWidgetPainter& painter)
{
    const double centreX = (startPoint.x() + endPoint.x()) * 0.5;
    const double centreY = (startPoint.y() + endPoint.y()) * 0.5;
    painter.drawText(static_cast<float>(centreX), static_cast<float>(centreY), 0, getLabel(), 0x14, true);

    const float x0 = static_cast<float>(startPoint.x());
    const float y0 = static_cast<float>(startPoint.y());
    const float x1 = static_cast<float>(endPoint.x());
    const float y1 = static_cast<float>(endPoint.y());
    // One open strip from the press corner, vertical side first, back to the press corner.
    const std::vector<float> vertices { x0, y0, x0, y1, x1, y1, x1, y0, x0, y0 };
    const QColor red(QStringLiteral("red"));
    painter.drawLines(vertices, 2, red, true, true, false);
}

std::string RectangleAreaMeasure::getLabel() const
{
    return formatLabel("Area: ", area, "m\u00b2");
}

bool RectangleAreaMeasure::hasMeasurement() const
{
    return static_cast<double>(area) != 0.0;
}

void RectangleAreaMeasure::reset()
{
    MeasuringToolBase::reset();
    area = 0.0f;
}

} // namespace Halcyra::Nereon::Visualisation
