#pragma once

#include "CommandLineNumbers.h"

#include <QLineF>
#include <QPointF>
#include <QSize>
#include <QString>
#include <QStringList>

/// What the command line asks of the viewer; unset choices keep the saved or default look.
struct ViewerOptions
{
    QString screenshotPath; ///< save the window here after `frames` frames, then quit
    int frames = 30;
    int palette = -1; ///< 0 to 7, or -1 to keep
    int paletteModifier = -1; ///< 0 to 255, or -1 to keep
    int beamCount = 0; ///< 256 or 512, or 0 to keep
    int despeckleLevel = -1;
    double clampLevel = -1.0;
    double zoomLevel = 0.0; ///< 0 keeps the saved level
    bool feet = false;
    bool useSavedSettings = true;
    bool fanOnly = false; ///< the screenshot shows only the fan display
    bool colourScale = false; ///< show the colour scale
    bool automaticGridColour = false; ///< grid in a grey that stands out from the palette
    QSize windowSize;
    QString recordPath; ///< record the frames received to this file
    QString replayPath; ///< replay this recording instead of the simulated sonar
    QString sonar; ///< a live ARIS sonar: serial number, or address with an optional :port
    double replaySpeed = 1.0;
    int replayFrame = -1; ///< show this frame (zero-based) of the replay, paused; -1 plays from the start
    int magnifierSteps = 0; ///< zoom the magnifier in this many steps from 4x (0 to 9)
    bool magnifierCentred = false;
    QPointF magnifierCentre; ///< fan coordinates (the rim at radius 1) the magnifier centres on
    bool magnifierAtRangeBearing = false; ///< the centre is magnifierAt, placed once the fan's range is known
    CommandLineNumbers::RangeBearing magnifierAt;
    QLineF measurement; ///< a distance measured on the magnifier, in fan coordinates; null for none
    bool echogram = false; ///< show the echogram under the fan
    bool movingTargets = false; ///< show only what moves against the still background
    QString measurementsPath; ///< write the measurements taken to this CSV file at exit
    bool countFish = false; ///< count fish passing through the beams
    bool simulatedFish = false; ///< fish swim through the simulated sonar's scene
    QString error; ///< non-empty when the command line is unusable
    bool helpShown = false;

    /// Parses the arguments (the program name first). Screenshots start from the
    /// default look so that they do not depend on what a user saved.
    static ViewerOptions parse(const QStringList& arguments);
    /// The fan point (the rim at radius 1) at `point` on a fan of `range` metres.
    static QPointF fanPoint(const CommandLineNumbers::RangeBearing& point, double range);
    /// Whether `arguments` can hold options of Qt's own (single dash, as -platform), which
    /// only a GUI application takes out of the arguments.
    static bool mayHoldToolkitOptions(const QStringList& arguments);
};
