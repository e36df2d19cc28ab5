#pragma once

#include "measuring/MeasuringToolBase.h"

#include <string>

namespace Halcyra::Nereon::Visualisation {

/// Measures the area of the widget-aligned rectangle between the press point and the current point.
class RectangleAreaMeasure : public MeasuringToolBase
{
public:
    ~RectangleAreaMeasure() override;

    void updateMeasurement(double range, float scaleX, float scaleY) override;
    /// "Area: " label at the centre, then the outline in red.
    void displayMeasurement(GUI::Widgets::Bases::OpenGLWidgetPainter& painter) override;
    bool hasMeasurement() const override;
    void reset() override;

private:
    friend class MeasuringToolProbe; // test access to the result

    std::string getLabel() const;

    float area = 0.0f; ///< square metres
};

} // namespace Halcyra::Nereon::Visualisation
