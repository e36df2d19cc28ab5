#include "views/EchogramMark.h"

namespace Halcyra::Nereon::Views {

EchogramMark::EchogramMark(Axis markAxis, const QColor& markColour, const QString& markLabel)
    : axis(markAxis)
    , colour(markColour)
    , label(markLabel)
{
}

void EchogramMark::addPoint(std::int64_t position, double rangeMetres)
{
    points.push_back({ position, rangeMetres });
}

} // namespace Halcyra::Nereon::Views
