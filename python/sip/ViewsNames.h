#pragma once

// The views' classes and the display's additions, under the
// short names the Python module gives them.

#include "FanDisplayExtensions.h"
#include "FanMeasurementListener.h"
#include "FanOverlayContext.h"
#include "views/EchogramBuilder.h"
#include "views/EchogramColumns.h"
#include "views/EchogramDisplay.h"
#include "views/FanAnnotations.h"
#include "views/MeasurementLog.h"

#include "NereonNames.h"

#include <cstring>
#include <limits>
#include <memory>

using EchogramBuilder = Halcyra::Nereon::Views::EchogramBuilder;
using EchogramColumns = Halcyra::Nereon::Views::EchogramColumns;
using EchogramDisplay = Halcyra::Nereon::Views::EchogramDisplay;
using EchogramReduction = Halcyra::Nereon::Views::EchogramReduction;
using FanAnnotations = Halcyra::Nereon::Views::FanAnnotations;
using MeasurementLog = Halcyra::Nereon::Views::MeasurementLog;
using FanDisplayExtensions = Halcyra::Nereon::Visualisation::FanDisplayExtensions;
using FanMeasurement = Halcyra::Nereon::Visualisation::FanMeasurement;
