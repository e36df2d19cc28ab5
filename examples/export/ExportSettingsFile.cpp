#include "ExportSettingsFile.h"

#include "DisplaySettingsStore.h"
#include "FanDisplay.h"
#include "export/ExportOptions.h"

#include <QFileInfo>
#include <QSettings>

namespace ExportSettingsFile {

bool apply(const QString& path, Halcyra::Nereon::Export::ExportOptions& options, QString& error)
{
    if (!QFileInfo(path).isReadable()) {
        error = QStringLiteral("cannot read %1").arg(path);
        return false;
    }
    QSettings settings(path, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError) {
        error = QStringLiteral("%1 is not a settings file").arg(path);
        return false;
    }
    const Halcyra::Nereon::Visualisation::FanDisplay defaults;
    settings.beginGroup("display");
    options.look = DisplaySettingsStore::read(settings, defaults.getCurrentDisplaySettings());
    settings.endGroup();

    settings.beginGroup("viewer");
    // -1 marks what the file does not hold, so that the display's own defaults stay.
    DisplaySettingsStore::ViewerChoices unset;
    unset.despeckleLevel = -1;
    unset.clampLevel = -1.0;
    const DisplaySettingsStore::ViewerChoices choices = DisplaySettingsStore::readChoices(settings, unset);
    settings.endGroup();
    if (options.despeckleLevel < 0)
        options.despeckleLevel = choices.despeckleLevel;
    if (options.clampLevel < 0.0)
        options.clampLevel = choices.clampLevel;
    options.feet = options.feet || choices.feet;
    options.colourScale = options.colourScale || choices.colourScale;
    options.automaticGridColour = options.automaticGridColour || choices.automaticGridColour;
    return true;
}

} // namespace ExportSettingsFile
