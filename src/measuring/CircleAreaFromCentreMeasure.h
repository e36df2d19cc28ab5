#pragma once

#include "measuring/MeasuringToolBase.h"

#include <string>

namespace Halcyra::Nereon::Visualisation {

/// Measures the area of the circle about the press point through the current point.
class CircleAreaFromCentreMeasure : public MeasuringToolBase
{
public:
    ~CircleAreaFromCentreMeasure() override;

    void updateMeasurement(double range, float scaleX, float scaleY) override;
    /// "Area: " label at the centre, then the circle in red.
    void displayMeasurement(GUI::Widgets::Bases::OpenGLWidgetPainter& painter) override;
    bool hasMeasurement() const override;
    void reset() override;

private:
    friend class MeasuringToolProbe; // test access to the results

    std::string getLabel() const;

    float area = 0.0f; ///< square metres
    float radius = 0.0f; ///< vertical clip units
};

} // namespace Halcyra::Nereon::Visualisation
