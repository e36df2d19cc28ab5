#pragma once

// The analysis library's classes under the short names the Python module gives them.

#include "analysis/BackgroundSubtractor.h"

#include "NereonNames.h"

using BackgroundSubtractor = Halcyra::Nereon::Analysis::BackgroundSubtractor;
