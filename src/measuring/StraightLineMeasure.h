#pragma once

#include "measuring/MeasuringToolBase.h"

#include <string>

namespace Halcyra::Nereon::Visualisation {

/// Measures the distance between the press point and the current point.
class StraightLineMeasure : public MeasuringToolBase
{
public:
    ~StraightLineMeasure() override;

    void updateMeasurement(double range, float scaleX, float scaleY) override;
    /// "Distance: " label below the end point, then the segment in red.
    void displayMeasurement(GUI::Widgets::Bases::OpenGLWidgetPainter& painter) override;
    bool hasMeasurement() const override;
    void reset() override;

private:
    friend class MeasuringToolProbe; // test access to the result

    std::string getLabel() const;

    float distance = 0.0f; ///< metres
};

} // namespace Halcyra::Nereon::Visualisation
