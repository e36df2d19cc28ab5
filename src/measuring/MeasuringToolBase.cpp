#include "measuring/MeasuringToolBase.h"

#include "FanDisplay.h"
#include "units/AbstractUnit.h"

#include <sstream>

namespace Halcyra::Nereon::Visualisation {

MeasuringToolBase::~MeasuringToolBase() = default;

void MeasuringToolBase::startMeasuring(FanDisplay& display, const QPointF& point)
{
    // Through the virtual table, so that the tool's own results are cleared too.
    reset();
    state = Measuring;
    display.setCursor(Qt::CrossCursor);
    startPoint = point;
    endPoint = point;
}

void MeasuringToolBase::takeMeasurement(QPointF point, double range, float scaleX, float scaleY)
{
    endPoint = point;
    updateMeasurement(range, scaleX, scaleY);
}

void MeasuringToolBase::stopMeasuring(FanDisplay& display)
{
    state = Finished;
    display.setCursor(Qt::ArrowCursor);
}

void MeasuringToolBase::reset()
{
    state = Idle;
}

MeasuringToolBase::State MeasuringToolBase::getState() const
{
    return state;
}

void MeasuringToolBase::setUnit(const DataProcessing::Units::AbstractUnit* newUnit)
{
    unit = newUnit;
}

std::string MeasuringToolBase::formatLabel(const char* prefix, float value, const char* baseSymbol) const
{
    // Punctuated as the application's global C++ locale writes numbers.
    std::ostringstream stream;
    stream.setf(std::ios::fixed, std::ios::floatfield);
    stream.precision(2);
    stream << prefix;
    if (unit) {
        stream << unit->convertFromBase(static_cast<double>(value)) << unit->getSymbol();
    } else {
        // Before the application has chosen a unit, show the stored base value.
        stream << static_cast<double>(value) << baseSymbol;
    }
    return stream.str();
}

} // namespace Halcyra::Nereon::Visualisation
