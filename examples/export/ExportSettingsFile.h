#pragma once

#include <QString>

namespace Halcyra::Nereon::Export {
struct ExportOptions;
}

/// The look of an export from the viewer's settings file (or an INI file with its
/// [display] and [viewer] groups).
namespace ExportSettingsFile {

/// Fills what `options` leaves open from the file `path`: the display's look, despeckle and
/// clamp levels, the colour scale, the automatic grid colour and feet for distances. What the
/// command line chose already (a level of 0 or more, a switch that is on) stays. False, with
/// `error`, when the file cannot be read.
bool apply(const QString& path, Halcyra::Nereon::Export::ExportOptions& options, QString& error);

} // namespace ExportSettingsFile
