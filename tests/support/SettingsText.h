#pragma once

#include "FanDisplayOptions.h"

#include <QString>

namespace TestSupport {

/// Every field of the settings in one line, so that a failed comparison shows what differs.
inline QString describeSettings(const Halcyra::Nereon::Visualisation::FanDisplayOptions::DisplaySettings& s)
{
    return QString::asprintf(
        "palette %d modifier %d, flip %d, clear %s, text %s, labels %d arcs %d lines %d, "
        "scale (%g, %g, %g), translation (%g, %g, %g), rotation %g",
        int(s.palette), int(s.paletteModifier), int(s.horizontalFlip),
        qPrintable(s.clearColour.name(QColor::HexArgb)), qPrintable(s.textColour.name(QColor::HexArgb)),
        int(s.showRangeLabels), int(s.showRangeArcs), int(s.showRangeLines), double(s.scale.x),
        double(s.scale.y), double(s.scale.z), double(s.translation.x), double(s.translation.y),
        double(s.translation.z), double(s.rotation));
}

} // namespace TestSupport
