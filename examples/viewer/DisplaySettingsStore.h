#pragma once

#include "FanDisplayOptions.h"

class QSettings;

/// Keeps a display's look in QSettings under the current group.
namespace DisplaySettingsStore {

void write(
    QSettings& settings, const Halcyra::Nereon::Visualisation::FanDisplayOptions::DisplaySettings& look);

/// Reads a look back; keys that are missing or unusable keep the values of `fallback`.
Halcyra::Nereon::Visualisation::FanDisplayOptions::DisplaySettings read(const QSettings& settings,
    const Halcyra::Nereon::Visualisation::FanDisplayOptions::DisplaySettings& fallback);

} // namespace DisplaySettingsStore
