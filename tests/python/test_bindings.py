"""The Python module: frames from NumPy, the displays as PyQt widgets, units
written in Python, recordings as iterators, and object lifetimes."""

import gc
import math
import os
import re

import numpy as np
import pytest

from conftest import FLAVOUR, QtCore, QtGui, QtWidgets, settle

import ternwick_nereon as tn

BEARINGS = np.linspace(-30.0, 30.0, 64)
SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
ARIS = os.path.join(SOURCE, "..", "shared", "real-data", "aris", "sample.aris")


def uniform(value, rows=50, beams=64):
    return tn.NereonImage(np.full((rows, beams), value, np.uint8), np.linspace(-30.0, 30.0, beams), 30.0)


def shown_display(app, cls=None):
    display = (cls or tn.FanDisplay)()
    display.resize(301, 301)
    display.show()
    settle()
    return display


def test_flavour_follows_pyqt():
    assert tn.FanDisplay.__module__.endswith("qt6" if FLAVOUR == "PyQt6" else "qt5")
    assert issubclass(tn.FanDisplay, QtWidgets.QWidget)


def test_frame_round_trip_copies_once_and_views_read_only():
    rows = np.arange(50 * 64, dtype=np.uint32).reshape(50, 64).astype(np.uint8)
    image = tn.NereonImage(rows, BEARINGS, 25.5, gain=3.0)
    assert (image.getWidth(), image.getHeight(), image.getRange(), image.getGain()) == (64, 50, 25.5, 3.0)
    assert image.getBearings()[0] == -3000 and image.getBearings()[-1] == 3000
    assert image.getBearingsInDegrees()[-1] == pytest.approx(30.0)
    view = image.intensities()
    np.testing.assert_array_equal(view, rows)
    rows[0, 0] = 99  # the frame took its own copy
    assert view[0, 0] == 0
    with pytest.raises(ValueError):
        view[0, 0] = 1
    del image
    gc.collect()
    assert view[49, 63] == rows[49, 63]  # the view keeps the frame alive
    hundredths = tn.NereonImage(np.zeros((2, 3), np.uint8), [-100, 0, 100], 5.0, hundredths=True)
    assert hundredths.getBearings() == [-100, 0, 100]


@pytest.mark.parametrize("array, bearings, range_, error, words", [
    (np.zeros((50, 64), np.float32), BEARINGS, 30.0, TypeError, "float32"),
    (np.zeros((50, 64), np.int8), BEARINGS, 30.0, TypeError, "int8"),
    ([[1, 2], [3, 4]], [0, 1], 30.0, TypeError, "list"),
    (np.zeros(64, np.uint8), BEARINGS, 30.0, ValueError, "1 dimension"),
    (np.zeros((2, 50, 64), np.uint8), BEARINGS, 30.0, ValueError, "3 dimensions"),
    (np.zeros((64, 50), np.uint8).T, BEARINGS[:50], 30.0, ValueError, "C-contiguous"),
    (np.zeros((50, 64), np.uint8)[:, ::2], BEARINGS[:32], 30.0, ValueError, "C-contiguous"),
    (np.zeros((0, 64), np.uint8), BEARINGS, 30.0, ValueError, "0 x 64"),
    (np.zeros((50, 64), np.uint8), BEARINGS[:63], 30.0, ValueError, "63 given for 64 beams"),
    (np.zeros((50, 64), np.uint8), BEARINGS[::-1], 30.0, ValueError, "ascend"),
    (np.zeros((50, 64), np.uint8), np.full(64, np.nan), 30.0, ValueError, "bearings[0]"),
    (np.zeros((50, 64), np.uint8), BEARINGS * 100, 30.0, ValueError, "-327.68 to 327.67"),
    (np.zeros((50, 64), np.uint8), ["a"] * 64, 30.0, TypeError, "not a number"),
    (np.zeros((50, 64), np.uint8), BEARINGS, float("nan"), ValueError, "nan"),
    (np.zeros((50, 64), np.uint8), BEARINGS, -1.0, ValueError, "metres"),
])
def test_bad_arrays_raise_what_was_expected(array, bearings, range_, error, words):
    with pytest.raises(error, match=re.escape(words)):
        tn.NereonImage(array, bearings, range_)


def test_numpy_frame_shows_its_palette_colour(app):
    # The palettes' own picture: a band of 10 rows for each, intensity along x.
    bands = QtGui.QImage(os.path.join(SOURCE, "resources", "texture-images", "palettes.bmp"))
    assert not bands.isNull()
    display = shown_display(app)
    in_fan = QtCore.QPoint(165, 150)  # beside the centre range line, mid-range
    for palette in (tn.FanDisplayOptions.Palette.Greyscale, tn.FanDisplayOptions.Palette.Multicolour):
        display.setPalette(palette)
        for value in (0, 150, 255):
            display.newImageReceived(uniform(value))
            settle()
            shown = display.grabFramebuffer().pixelColor(in_fan)
            expected = bands.pixelColor(value, 10 * int(getattr(palette, "value", palette)) + 5)
            assert max(abs(shown.red() - expected.red()), abs(shown.green() - expected.green()),
                       abs(shown.blue() - expected.blue())) <= 2, (palette, value, shown.name(), expected.name())
    display.close()


class Fathoms(tn.AbstractUnit):
    asked = 0

    def convertToBase(self, value):
        return value * 1.8288

    def getFactorFromBase(self):
        return 1 / 1.8288

    def convertFromBase(self, value):
        return value / 1.8288

    def getName(self):
        return "fathoms"

    def isBaseUnit(self):
        return False

    def getSymbol(self):
        type(self).asked += 1
        return "ftm"


class Broken(Fathoms):
    def getSymbol(self):
        raise RuntimeError("a unit that fails")


def test_python_unit_labels_the_range(app, capfd):
    display = shown_display(app)
    unit = Fathoms()
    display.setDistanceUnit(unit)
    display.setOverlayFeature(tn.FanDisplayOptions.OverlayFeature.RangeLabels, True)
    del unit  # the display keeps it
    gc.collect()
    display.newImageReceived(uniform(0))
    settle()
    labelled = display.grabFramebuffer()
    assert Fathoms.asked > 0  # the labels ask the unit for its symbol
    display.setOverlayFeature(tn.FanDisplayOptions.OverlayFeature.RangeLabels, False)
    settle()
    assert labelled != display.grabFramebuffer()
    # A failing unit prints its exception; the display goes on.
    display.setDistanceUnit(Broken())
    display.setOverlayFeature(tn.FanDisplayOptions.OverlayFeature.RangeLabels, True)
    display.update()
    settle()
    display.grabFramebuffer()
    assert "a unit that fails" in capfd.readouterr().err
    display.close()


def test_signals_arrive_in_python(app):
    display = shown_display(app)
    positions = []
    display.newMousePosition.connect(lambda x, y, r, theta: positions.append((x, y, r, theta)))
    rates = []
    display.frameRateChanged.connect(rates.append)
    display.newImageReceived(uniform(100))
    settle()
    event = QtGui.QMouseEvent(QtCore.QEvent.Type.MouseMove, QtCore.QPointF(160, 120),
                              QtCore.QPointF(display.mapToGlobal(QtCore.QPoint(160, 120))),
                              QtCore.Qt.MouseButton.NoButton, QtCore.Qt.MouseButton.NoButton,
                              QtCore.Qt.KeyboardModifier.NoModifier)
    QtCore.QCoreApplication.sendEvent(display, event)
    assert positions and math.isfinite(positions[-1][2])
    timer = QtCore.QElapsedTimer()
    timer.start()
    while not any(rate > 0 for rate in rates) and timer.elapsed() < 5000:
        display.newImageReceived(uniform(100))
        settle(2)
        QtCore.QThread.msleep(20)
    assert any(rate > 0 for rate in rates)
    display.close()


def test_settings_round_trip_and_zoom(app):
    display = shown_display(app, tn.ZoomableFanDisplay)
    settings = display.getCurrentDisplaySettings()
    settings.palette = tn.FanDisplayOptions.Palette.Fire
    settings.paletteModifier = 90
    settings.showRangeArcs = True
    settings.rotation = 15.0
    display.configureFromSettings(settings)
    back = display.getCurrentDisplaySettings()
    assert (back.palette, back.paletteModifier, back.showRangeArcs, back.rotation) == (
        tn.FanDisplayOptions.Palette.Fire, 90, True, 15.0)
    assert len(back.scale) == 3
    display.setZoomLevel(2.0, False)
    assert display.getZoomLevel() == 2.0
    display.close()


def window_with_magnifier():
    window = QtWidgets.QWidget()
    layout = QtWidgets.QHBoxLayout(window)
    display = tn.FanDisplay()
    layout.addWidget(display)
    return window, layout, display


@pytest.mark.parametrize("order", ["display first", "magnifier first", "window", "magnifier in layout, display first"])
def test_deletion_orders_survive(app, order):
    if order == "window":
        window, layout, display = window_with_magnifier()
        zoom = display.getZoomDisplay()
        layout.addWidget(zoom)
        window.show()
        display.newImageReceived(uniform(90))
        settle()
        window.deleteLater()  # Qt deletes the display and the magnifier
        del window, layout
        settle()
        QtCore.QCoreApplication.sendPostedEvents(None, QtCore.QEvent.Type.DeferredDelete)
        with pytest.raises(RuntimeError):
            zoom.zoomIn()
        with pytest.raises(RuntimeError):
            display.setPalette(tn.FanDisplayOptions.Palette.Blue)
        return
    display = tn.FanDisplay()
    zoom = display.getZoomDisplay()
    holder = None
    if order.startswith("magnifier in layout"):
        holder = QtWidgets.QWidget()
        QtWidgets.QVBoxLayout(holder).addWidget(zoom)
    display.newImageReceived(uniform(90))
    if order.endswith("display first"):
        del display
        gc.collect()
        zoom.zoomIn()  # the magnifier holds its display
        del zoom
    else:
        del zoom
        gc.collect()
        assert display.getZoomDisplay() is not None
        del display
    gc.collect()
    if holder is not None:
        del holder
        gc.collect()
    settle()


def test_magnifier_deleted_with_unplaced_display(app):
    window, layout, display = window_with_magnifier()
    zoom = display.getZoomDisplay()
    display.setParent(None)  # Python owns the display again; the magnifier goes with it
    display.deleteLater()
    del display
    QtCore.QCoreApplication.sendPostedEvents(None, QtCore.QEvent.Type.DeferredDelete)
    with pytest.raises(RuntimeError):
        zoom.zoomIn()


def test_recording_is_an_iterator(app):
    if not os.path.exists(ARIS):
        pytest.skip("no real ARIS recording at " + ARIS)
    reader = tn.open_recording(ARIS)
    description = reader.getDescription()
    assert (description.beamCount, description.samplesPerBeam) == (48, 2000)
    frames = list(reader)
    assert [f.index for f in frames] == list(range(6)) == list(range(len(reader)))
    assert all(b.timestamp > a.timestamp for a, b in zip(frames, frames[1:]))
    assert frames[0].image.intensities().shape[1] == 48
    assert reader.readFrame(5).timestamp == frames[5].timestamp
    with pytest.raises(IndexError):
        reader.readFrame(6)
    display = shown_display(app)
    display.newImageReceived(frames[0].image)
    settle()
    display.close()


def test_bad_recordings_raise_with_the_place(tmp_path):
    with pytest.raises(OSError, match="missing.aris"):
        tn.open_recording(tmp_path / "missing.aris")
    if not os.path.exists(ARIS):
        pytest.skip("no real ARIS recording at " + ARIS)
    cut = tmp_path / "cut.aris"
    cut.write_bytes(open(ARIS, "rb").read()[:300000])
    reader = tn.open_recording(cut)
    frames = list(reader)
    assert 0 < len(frames) < 6 and reader.hasDamage()
    assert "cut.aris" in reader.describeDamage() and str(reader.getDamageOffset()) in reader.describeDamage()
