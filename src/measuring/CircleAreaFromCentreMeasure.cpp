#include "measuring/CircleAreaFromCentreMeasure.h"

#include "gui/OpenGLWidgetPainter.h"
#include "maths/GeometryFunctions.h"

#include <QColor>

namespace Halcyra::Nereon::Visualisation {

namespace Geometry = Maths::Geometry;

CircleAreaFromCentreMeasure::~CircleAreaFromCentreMeasure() = default;

void CircleAreaFromCentreMeasure::updateMeasurement(double range, float scaleX, float scaleY)
{
    const double aspect = static_cast<double>(scaleY / scaleX);
    const double length = Geometry::distanceBetween(
        { startPoint.x() * aspect, startPoint.y() }, { endPoint.x() * aspect, endPoint.y() });
    radius = static_cast<float>(length);
    // The stored (float) radius is converted, so area and drawn circle agree.
    const double radiusMetres = (range / static_cast<double>(scaleY)) * static_cast<double>(radius);
    area = static_cast<float>(Geometry::areaOfCirle(radiusMetres));
}

void CircleAreaFromCentreMeasure::displayMeasurement(GUI::Widgets::Bases::OpenGLWidgetPainter& painter)
{
    painter.drawText(
        static_cast<float>(startPoint.x()), static_cast<float>(startPoint.y()), 0, getLabel(), 0x14, true);
    const QColor red(QStringLiteral("red"));
    painter.drawCircle(startPoint, radius, 2, red);
}

std::string CircleAreaFromCentreMeasure::getLabel() const
{
    return formatLabel("Area: ", area, "m\u00b2");
}

bool CircleAreaFromCentreMeasure::hasMeasurement() const
{
    return static_cast<double>(area) != 0.0;
}

void CircleAreaFromCentreMeasure::reset()
{
    MeasuringToolBase::reset();
    area = 0.0f;
    radius = 0.0f;
}

} // namespace Halcyra::Nereon::Visualisation
