#include "measuring/StraightLineMeasure.h"

#include "gui/OpenGLWidgetPainter.h"
#include "maths/GeometryFunctions.h"

#include <QColor>

namespace Halcyra::Nereon::Visualisation {

namespace Geometry = Maths::Geometry;

StraightLineMeasure::~StraightLineMeasure() = default;

void StraightLineMeasure::updateMeasurement(double range, float scaleX, float scaleY)
{
    // Horizontal clip units are stretched to vertical ones before measuring.
    const double aspect = static_cast<double>(scaleY / scaleX);
    const Geometry::Point start { startPoint.x() * aspect, startPoint.y() };
    const Geometry::Point end { endPoint.x() * aspect, endPoint.y() };
    const double length = Geometry::distanceBetween(start, end);
    distance = static_cast<float>((range / static_cast<double>(scaleY)) * length);
}

void StraightLineMeasure::displayMeasurement(GUI::Widgets::Bases::OpenGLWidgetPainter& painter)
{
    painter.drawText(
        static_cast<float>(endPoint.x()), static_cast<float>(endPoint.y()), 0, getLabel(), 0x24, true);
    const QColor red(QStringLiteral("red"));
    painter.drawLine(static_cast<float>(startPoint.x()), static_cast<float>(startPoint.y()),
        static_cast<float>(endPoint.x()), static_cast<float>(endPoint.y()), 2, red, true);
}

std::string StraightLineMeasure::getLabel() const
{
    return formatLabel("Distance: ", distance, "m");
}

bool StraightLineMeasure::hasMeasurement() const
{
    return static_cast<double>(distance) != 0.0;
}

void StraightLineMeasure::reset()
{
    MeasuringToolBase::reset();
    distance = 0.0f;
}

} // namespace Halcyra::Nereon::Visualisation
