#include "DisplaySettingsStore.h"

#include <QSettings>

using Halcyra::Vec3;
using Halcyra::Nereon::Visualisation::FanDisplayOptions::DisplaySettings;
using Halcyra::Nereon::Visualisation::FanDisplayOptions::Palette;

namespace {

QVariantList toList(const Vec3<float>& v)
{
    return { v.x, v.y, v.z };
}

Vec3<float> toVec3(const QVariant& value, const Vec3<float>& fallback)
{
    const QVariantList list = value.toList();
    if (list.size() != 3)
        return fallback;
    Vec3<float> v = fallback;
    bool ok[3] = {};
    v.x = list[0].toFloat(&ok[0]);
    v.y = list[1].toFloat(&ok[1]);
    v.z = list[2].toFloat(&ok[2]);
    return ok[0] && ok[1] && ok[2] ? v : fallback;
}

template <typename T> T readNumber(const QSettings& settings, const QString& key, T fallback, T low, T high)
{
    bool ok = false;
    const double value = settings.value(key).toDouble(&ok);
    if (!ok || value < low || value > high)
        return fallback;
    return static_cast<T>(value);
}

QColor readColour(const QSettings& settings, const QString& key, const QColor& fallback)
{
    const QColor colour(settings.value(key).toString());
    return colour.isValid() ? colour : fallback;
}

} // namespace

namespace DisplaySettingsStore {

void write(QSettings& settings, const DisplaySettings& look)
{
    settings.setValue("palette", static_cast<int>(look.palette));
    settings.setValue("paletteModifier", static_cast<int>(look.paletteModifier));
    settings.setValue("horizontalFlip", look.horizontalFlip);
    // Names with alpha keep the file readable and survive every QSettings format.
    settings.setValue("clearColour", look.clearColour.name(QColor::HexArgb));
    settings.setValue("textColour", look.textColour.name(QColor::HexArgb));
    settings.setValue("showRangeLabels", look.showRangeLabels);
    settings.setValue("showRangeArcs", look.showRangeArcs);
    settings.setValue("showRangeLines", look.showRangeLines);
    settings.setValue("scale", toList(look.scale));
    settings.setValue("translation", toList(look.translation));
    settings.setValue("rotation", look.rotation);
}

DisplaySettings read(const QSettings& settings, const DisplaySettings& fallback)
{
    DisplaySettings look = fallback;
    look.palette = static_cast<Palette>(readNumber<int>(settings, "palette", fallback.palette, 0, 7));
    look.paletteModifier = static_cast<std::uint8_t>(
        readNumber<int>(settings, "paletteModifier", fallback.paletteModifier, 0, 255));
    look.horizontalFlip = settings.value("horizontalFlip", fallback.horizontalFlip).toBool();
    look.clearColour = readColour(settings, "clearColour", fallback.clearColour);
    look.textColour = readColour(settings, "textColour", fallback.textColour);
    look.showRangeLabels = settings.value("showRangeLabels", fallback.showRangeLabels).toBool();
    look.showRangeArcs = settings.value("showRangeArcs", fallback.showRangeArcs).toBool();
    look.showRangeLines = settings.value("showRangeLines", fallback.showRangeLines).toBool();
    look.scale = toVec3(settings.value("scale"), fallback.scale);
    look.translation = toVec3(settings.value("translation"), fallback.translation);
    look.rotation = readNumber<float>(settings, "rotation", fallback.rotation, -36000.0f, 36000.0f);
    return look;
}

void writeChoices(QSettings& settings, const ViewerChoices& choices)
{
    settings.setValue("despeckleLevel", choices.despeckleLevel);
    settings.setValue("clampLevel", choices.clampLevel);
    settings.setValue("colourScale", choices.colourScale);
    settings.setValue("automaticGridColour", choices.automaticGridColour);
    // Indices of the viewer's unit lists: 0 metres (square metres), 1 feet (square feet).
    settings.setValue("distanceUnit", choices.feet ? 1 : 0);
    settings.setValue("areaUnit", choices.squareFeet ? 1 : 0);
}

ViewerChoices readChoices(const QSettings& settings, const ViewerChoices& fallback)
{
    ViewerChoices choices;
    choices.despeckleLevel = readNumber<int>(settings, "despeckleLevel", fallback.despeckleLevel, 0, 9);
    choices.clampLevel = readNumber<double>(settings, "clampLevel", fallback.clampLevel, 0.0, 0.5);
    choices.colourScale = settings.value("colourScale", fallback.colourScale).toBool();
    choices.automaticGridColour
        = settings.value("automaticGridColour", fallback.automaticGridColour).toBool();
    choices.feet = readNumber<int>(settings, "distanceUnit", fallback.feet ? 1 : 0, 0, 1) == 1;
    choices.squareFeet = readNumber<int>(settings, "areaUnit", fallback.squareFeet ? 1 : 0, 0, 1) == 1;
    return choices;
}

} // namespace DisplaySettingsStore
