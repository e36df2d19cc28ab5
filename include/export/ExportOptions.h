#pragma once

#include "FanDisplayOptions.h"

#include <QSize>

#include <optional>

namespace Halcyra::Nereon::Export {

/// What an export draws and writes.
struct ExportOptions
{
    /// Size of the pictures in pixels; a video needs even numbers.
    QSize size = QSize(1280, 720);
    /// Video frames per second, whatever the recording's own rate.
    double framesPerSecond = 25.0;
    /// Start of the part to export, in seconds from the recording's first frame.
    double from = 0.0;
    /// End of the part to export, in seconds from the first frame; negative: to the end.
    double to = -1.0;
    /// The display's look; unset: the display's defaults.
    std::optional<Visualisation::FanDisplayOptions::DisplaySettings> look;
    /// Palette, or -1 to keep the look's.
    int palette = -1;
    /// Modifier of the Fire and Aqua palettes, or -1 to keep the look's.
    int paletteModifier = -1;
    /// Despeckle level, or -1 for none.
    int despeckleLevel = -1;
    /// Clamp level, or a negative number for the display's default.
    double clampLevel = -1.0;
    /// Labels in feet instead of metres.
    bool feet = false;
    /// Shows the palette's colour scale beside the fan.
    bool colourScale = false;
    /// Draws the range grid in a grey that stands out from the palette.
    bool automaticGridColour = false;
    /// Writes the recorded time (UTC) into the bottom-left corner of every picture.
    bool timestampOverlay = false;
    /// For pictures (PNG): the one frame to save (zero-based), or -1 for every `every`-th frame.
    int stillFrame = -1;
    /// For pictures: every how many frames one is saved.
    int every = 1;
};

} // namespace Halcyra::Nereon::Export
