#pragma once

// The library's classes under the short names the Python module gives them;
// the generated code names them so.

#include "FanDisplay.h"
#include "FanDisplayOptions.h"
#include "ZoomDisplay.h"
#include "ZoomableFanDisplay.h"
#include "nereon/NereonImage.h"
#include "sources/FrameReader.h"
#include "units/AbstractUnit.h"

using AbstractUnit = Halcyra::DataProcessing::Units::AbstractUnit;
using NereonImage = Halcyra::Nereon::NereonImage;
using FanDisplay = Halcyra::Nereon::Visualisation::FanDisplay;
using ZoomableFanDisplay = Halcyra::Nereon::Visualisation::ZoomableFanDisplay;
using ZoomDisplay = Halcyra::Nereon::Visualisation::ZoomDisplay;
namespace FanDisplayOptions = Halcyra::Nereon::Visualisation::FanDisplayOptions;
using Vec3f = Halcyra::Vec3<float>;
using FrameReader = Halcyra::Nereon::Sources::FrameReader;
using SourceFrame = Halcyra::Nereon::Sources::SourceFrame;
using SonarDescription = Halcyra::Nereon::Sources::SonarDescription;
