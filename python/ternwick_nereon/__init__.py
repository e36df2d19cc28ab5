"""Live fan display widgets for multibeam imaging sonar, for PyQt5 and PyQt6.

The flavour follows the PyQt that the application uses: import PyQt5 or PyQt6
before this package (or import ternwick_nereon.qt5 / ternwick_nereon.qt6
directly). With neither imported yet, the installed flavour is taken, PyQt5 first.
"""

import importlib
import sys


def _flavour():
    if "PyQt6" in sys.modules and "PyQt5" not in sys.modules:
        return importlib.import_module(".qt6", __name__)
    if "PyQt5" in sys.modules:
        return importlib.import_module(".qt5", __name__)
    try:
        return importlib.import_module(".qt5", __name__)
    except ImportError:
        return importlib.import_module(".qt6", __name__)


_module = _flavour()

AbstractUnit = _module.AbstractUnit
FanDisplay = _module.FanDisplay
FanDisplayOptions = _module.FanDisplayOptions
FrameReader = _module.FrameReader
NereonImage = _module.NereonImage
SonarDescription = _module.SonarDescription
SourceFrame = _module.SourceFrame
ZoomDisplay = _module.ZoomDisplay
ZoomableFanDisplay = _module.ZoomableFanDisplay
EchogramBuilder = _module.EchogramBuilder
EchogramColumns = _module.EchogramColumns
EchogramDisplay = _module.EchogramDisplay
EchogramMark = _module.EchogramMark
EchogramReduction = _module.EchogramReduction
FanAnnotations = _module.FanAnnotations
FanDisplayExtensions = _module.FanDisplayExtensions
FanMeasurement = _module.FanMeasurement
MeasurementLog = _module.MeasurementLog
# Only in a build with the analysis library.
if hasattr(_module, "BackgroundSubtractor"):
    BackgroundSubtractor = _module.BackgroundSubtractor


def open_recording(path):
    """A FrameReader for the recording at `path`; raises OSError when it cannot be read."""
    return FrameReader.create(str(path))


class Metres(AbstractUnit):
    """Distances in metres."""

    def convertToBase(self, value):
        return value

    def getFactorFromBase(self):
        return 1.0

    def convertFromBase(self, value):
        return value

    def getName(self):
        return "metres"

    def isBaseUnit(self):
        return True

    def getSymbol(self):
        return "m"


class SquareMetres(Metres):
    """Areas in square metres."""

    def getName(self):
        return "square metres"

    def getSymbol(self):
        return "m\u00b2"


# Counting needs the analysis library, which a build without OpenCV leaves out.
if hasattr(_module, "_countRecording"):
    from .counting import Count, CountTable, count, count_recordings  # noqa: E402

__all__ = [
    "AbstractUnit", "FanDisplay", "FanDisplayOptions", "FrameReader", "Metres", "NereonImage",
    "SonarDescription", "SourceFrame", "SquareMetres", "ZoomDisplay", "ZoomableFanDisplay",
    "open_recording",
    "EchogramBuilder", "EchogramColumns", "EchogramDisplay", "EchogramMark", "EchogramReduction",
    "FanAnnotations",
    "FanDisplayExtensions", "FanMeasurement", "MeasurementLog",
] + (["BackgroundSubtractor", "Count", "CountTable", "count", "count_recordings"]
      if hasattr(_module, "_countRecording") else [])
