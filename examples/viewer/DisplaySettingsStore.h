#pragma once

#include "FanDisplayOptions.h"

class QSettings;

/// Keeps a display's look in QSettings under the current group, and the viewer's choices
/// that change the picture beside it. The viewer writes the look under [display] and the
/// choices under [viewer]; the export tool reads both back from the same file.
namespace DisplaySettingsStore {

/// The viewer's choices beside the display's look that change what a picture shows.
struct ViewerChoices
{
    int despeckleLevel = 0; ///< 0 (off) to 9
    double clampLevel = 0.01; ///< 0 to 0.5
    bool colourScale = false;
    bool automaticGridColour = false;
    bool feet = false; ///< distances in feet
    bool squareFeet = false; ///< areas in square feet
};

void write(
    QSettings& settings, const Halcyra::Nereon::Visualisation::FanDisplayOptions::DisplaySettings& look);

/// Reads a look back; keys that are missing or unusable keep the values of `fallback`.
Halcyra::Nereon::Visualisation::FanDisplayOptions::DisplaySettings read(const QSettings& settings,
    const Halcyra::Nereon::Visualisation::FanDisplayOptions::DisplaySettings& fallback);

void writeChoices(QSettings& settings, const ViewerChoices& choices);

/// Reads the choices back; keys that are missing or unusable keep the values of `fallback`.
ViewerChoices readChoices(const QSettings& settings, const ViewerChoices& fallback);

} // namespace DisplaySettingsStore
