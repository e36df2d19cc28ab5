#pragma once

#include <QIcon>

/// Widget-box icons of the display widgets, drawn at run time so that they stay
/// sharp at every size Designer asks for.
namespace DesignerIcons {

/// A fan in the default palette's colours with its range arcs.
QIcon fanDisplay();

/// The fan with a magnifying glass over it.
QIcon zoomableFanDisplay();

} // namespace DesignerIcons
