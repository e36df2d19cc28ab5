#pragma once

#include <QPointF>

#include <cstdint>
#include <string>

namespace Halcyra::GUI::Widgets::Bases {
class OpenGLWidgetPainter;
}
namespace Halcyra::DataProcessing::Units {
class AbstractUnit;
}

namespace Halcyra::Nereon::Visualisation {

class FanDisplay;

/**
 * A measuring tool driven by the fan display: press, drag and release in the
 * display's clip coordinates, a result in metres or square metres, and a shape
 * with a label drawn in screen coordinates.
 */
class MeasuringToolBase
{
public:
    enum State : std::int32_t
    {
        Idle = 0,
        Measuring = 1,
        Finished = 2,
    };

    virtual ~MeasuringToolBase();

    /// Clears the result, enters Measuring at point and shows a cross cursor.
    virtual void startMeasuring(FanDisplay& display, const QPointF& point);
    /// Moves the end point and recomputes. range in metres; the display's model scale.
    virtual void takeMeasurement(QPointF point, double range, float scaleX, float scaleY);
    /// Recomputes the result from the stored points.
    virtual void updateMeasurement(double range, float scaleX, float scaleY) = 0;
    /// Draws the label, then the shape.
    virtual void displayMeasurement(GUI::Widgets::Bases::OpenGLWidgetPainter& painter) = 0;
    /// Enters Finished and restores the arrow cursor.
    virtual void stopMeasuring(FanDisplay& display);
    /// Whether the result is not zero.
    virtual bool hasMeasurement() const = 0;
    /// Back to Idle; tools also clear their results. The points are kept.
    virtual void reset();

    State getState() const;
    /// The press point and the latest drag point, clip coordinates of the widget measured on.
    QPointF getStartPoint() const { return startPoint; }
    QPointF getEndPoint() const { return endPoint; }
    /// The unit of the label; not owned.
    void setUnit(const DataProcessing::Units::AbstractUnit* unit);

protected:
    /// prefix, the value converted through the unit with two decimals, the unit's
    /// symbol; without a unit the base value and baseSymbol.
    std::string formatLabel(const char* prefix, float value, const char* baseSymbol) const;

    State state = Idle;
    QPointF startPoint;
    QPointF endPoint;
    const DataProcessing::Units::AbstractUnit* unit = nullptr;
};

} // namespace Halcyra::Nereon::Visualisation
