"""The echogram, the moving-target filter, marks on the fan and the measurement
log from Python: NumPy views of their results and what outlives what."""

import gc
import importlib
import math
import os
import weakref

import numpy as np
import pytest

from conftest import FLAVOUR, QtCore, QtGui, QtWidgets, settle
from test_bindings import ARIS, shown_display, uniform

import ternwick_nereon as tn

Kind = tn.FanAnnotations.Mark.Kind
sip = importlib.import_module(FLAVOUR + ".sip")


def pooled_maximum(intensities, bins):
    """The echogram column of a frame (range lines x beams): maximum over beams, max-pooled into bins."""
    strongest = intensities.max(axis=1)
    rows = len(strongest)
    if rows < bins:
        return strongest[np.arange(bins) * rows // bins]
    return np.maximum.reduceat(strongest, np.searchsorted(np.arange(rows) * bins // rows, np.arange(bins)))


@pytest.mark.parametrize("rows, bins", [(200, 64), (37, 16), (10, 32)])
def test_columns_are_the_pooled_maximum_over_beams(rows, bins):
    rng = np.random.default_rng(rows)
    frames = [rng.integers(0, 256, (rows, 24), dtype=np.uint8) for _ in range(3)]
    columns = tn.EchogramColumns(bins)
    for index, frame in enumerate(frames):
        assert columns.append(tn.NereonImage(frame, np.linspace(-10, 10, 24), 8.0), index, 1000 * index)
    # A new range starts a segment after a break column.
    assert columns.append(uniform(7, rows), 3, 3000)
    np.testing.assert_array_equal(columns.intensities()[:3], [pooled_maximum(f, bins) for f in frames])
    assert columns.intensities().shape == (5, bins) and not columns.intensities()[3].any()
    np.testing.assert_array_equal(columns.frameIndices(), [0, 1, 2, 3, 3])
    np.testing.assert_array_equal(columns.timestamps(), [0, 1000, 2000, 3000, 3000])
    np.testing.assert_array_equal(columns.ranges(), [8, 8, 8, 0, 30])
    assert columns.isBreak(3) and columns.getRange(4) == 30.0
    columns.keepLast(1)
    assert columns.frameIndices().tolist() == [3] and columns.getFirstColumn() == 4
    with pytest.raises(IndexError):
        columns.getTimestamp(0)


def test_recording_echogram_with_and_without_a_display(app):
    if not os.path.exists(ARIS):
        pytest.skip("no real ARIS recording at " + ARIS)
    frames = list(tn.open_recording(ARIS))
    built = tn.EchogramBuilder.build(ARIS, 128)
    np.testing.assert_array_equal(built.intensities(), [pooled_maximum(f.image.intensities(), 128) for f in frames])
    np.testing.assert_array_equal(built.timestamps(), [f.timestamp for f in frames])

    seen = []
    assert len(tn.EchogramBuilder.build(tn.open_recording(ARIS), progress=lambda done, count: seen.append(
        (done, count)) or done < 2)) == 2
    assert seen == [(1, 6), (2, 6)]

    def failing(done, count):
        raise KeyError("stop here")
    with pytest.raises(KeyError, match="stop here"):
        tn.EchogramBuilder.build(ARIS, progress=failing)
    with pytest.raises(OSError, match="missing.aris"):
        tn.EchogramBuilder.build(ARIS + "/missing.aris")

    echogram = tn.EchogramDisplay()
    echogram.setRangeBins(128)
    echogram.resize(300, 150)
    echogram.show()
    finished = []
    echogram.loadFinished.connect(finished.append)
    echogram.loadRecording(ARIS)
    timer = QtCore.QElapsedTimer()
    timer.start()
    while not finished and timer.elapsed() < 20000:
        settle(1)
        QtCore.QThread.msleep(10)
    assert finished == [True]
    np.testing.assert_array_equal(echogram.getColumns().intensities(), built.intensities())

    mark = tn.EchogramMark(tn.EchogramMark.Axis.Frame, QtGui.QColor("red"), "1 \u00b7 0.40 m")
    mark.addPoint(3, 2.5)
    mark.addPoint(4, math.nan)
    assert mark.getPoints()[0] == (3, 2.5) and mark.getLabel() == "1 \u00b7 0.40 m"
    ident = echogram.addMark(mark)
    assert echogram.updateMark(ident, mark) and echogram.getMarkCount() == 1
    settle(1)
    assert echogram.removeMark(ident) and not echogram.removeMark(ident)
    echogram.close()


def frames_with_blob(count, rng):
    """A still bed with speckle, and a bright blob crossing the beams two a frame."""
    bed = np.random.default_rng(0).integers(20, 60, (120, 64), dtype=np.uint8)
    for i in range(count):
        frame = bed + rng.integers(0, 4, bed.shape, dtype=np.uint8)
        beam = 2 * i % 56
        frame[50:60, beam:beam + 6] = 200
        yield tn.NereonImage(frame, np.linspace(-15, 15, 64), 10.0), beam


@pytest.mark.skipif(not hasattr(tn, "BackgroundSubtractor"), reason="built without the analysis library")
@pytest.mark.parametrize("learnt", [False, True])
def test_moving_blob_survives_while_the_still_scene_fades(learnt):
    subtractor = tn.BackgroundSubtractor()
    subtractor.setFrameRate(10.0)
    subtractor.setAdaptationSeconds(5.0)
    rng = np.random.default_rng(1)
    if learnt:
        subtractor.learn(frame for frame, _ in frames_with_blob(30, rng))
    for image, beam in frames_with_blob(5 if learnt else 60, rng):
        foreground = subtractor.apply(image).intensities()
    assert foreground.shape == (120, 64)
    still = foreground.copy()
    still[45:65, :] = 0
    assert np.count_nonzero(still) < still.size // 200
    assert np.count_nonzero(foreground[50:60, beam:beam + 6]) > 40

    with pytest.raises(ValueError):
        subtractor.apply(tn.NereonImage())
    with pytest.raises(TypeError):
        subtractor.learn([image, "not a frame"])
    subtractor.reset()
    assert not subtractor.hasModel()


def test_marks_are_drawn_hit_and_held_by_the_display(app):
    display = shown_display(app)
    display.newImageReceived(uniform(0))
    settle()
    marks = tn.FanAnnotations()
    marks.attach(display)
    gate = tn.FanAnnotations.Mark.countLine(0.0, QtGui.QColor(255, 0, 255), "gate")
    gate.width = 5  # wide enough to cover its middle pixel whole
    line = marks.add(gate)
    box = tn.FanAnnotations.Mark.box(20.0, 25.0, -20.0, -10.0, QtGui.QColor("yellow"))
    box_id = marks.add(box)
    trail = tn.FanAnnotations.Mark.polyline([(5.0, 10.0), QtCore.QPointF(8.0, 12.0)], QtGui.QColor("cyan"))
    assert trail.points == [(5.0, 10.0), (8.0, 12.0)] and trail.kind == Kind.Polyline
    display.update()
    settle()
    on_line = tn.FanDisplayExtensions.toPixels(display, 15.0, 0.0)
    shown = display.grabFramebuffer().pixelColor(on_line.toPoint())
    assert (shown.red(), shown.green(), shown.blue()) == (255, 0, 255)
    assert marks.markAt(on_line) == line
    assert marks.markAt(tn.FanDisplayExtensions.toPixels(display, 22.5, -15.0)) == box_id
    assert marks.markAt(tn.FanDisplayExtensions.toPixels(display, 10.0, 20.0)) == 0
    assert marks.find(box_id).kind == Kind.Box and marks.find(999) is None
    range_, bearing = tn.FanDisplayExtensions.fromPixels(display, on_line)
    assert range_ == pytest.approx(15.0, abs=0.1) and bearing == pytest.approx(0.0, abs=0.5)

    # The display keeps its marks alive; deleting the display lets them go.
    held = weakref.ref(marks)
    del marks
    gc.collect()
    assert held() is not None and held().getDisplay() is display
    display.close()
    del display
    gc.collect()
    assert held() is None


@pytest.mark.parametrize("order", ["display first", "attached first", "detached, then dropped"])
def test_attached_objects_survive_any_deletion_order(app, order):
    display = shown_display(app)
    display.newImageReceived(uniform(50))
    marks = tn.FanAnnotations()
    marks.add(tn.FanAnnotations.Mark.point(10.0, 0.0, QtGui.QColor("red")))
    log = tn.MeasurementLog()
    marks.attach(display)
    log.attach(display)
    settle()
    if order == "display first":
        display.deleteLater()  # as Qt deletes a widget with its window
        QtCore.QCoreApplication.sendPostedEvents(None, QtCore.QEvent.Type.DeferredDelete)
        assert marks.getDisplay() is None and marks.markAt(QtCore.QPointF(150, 150)) == 0
        log.detach()
        marks.attach(None)
        return
    if order == "attached first":
        sip.delete(marks)
        sip.delete(log)
        drag(display, QtCore.QPointF(150, 100), QtCore.QPointF(150, 200))  # no listener left to tell
    else:
        marks.detach()
        log.detach()
        held = weakref.ref(marks)
        del marks, log
        gc.collect()
        assert held() is None
    display.update()
    settle()
    display.grabFramebuffer()
    display.close()


def drag(widget, start, end):
    for kind, at, button, held in [
            (QtCore.QEvent.Type.MouseButtonPress, start, QtCore.Qt.MouseButton.LeftButton, QtCore.Qt.MouseButton.LeftButton),
            (QtCore.QEvent.Type.MouseMove, end, QtCore.Qt.MouseButton.NoButton, QtCore.Qt.MouseButton.LeftButton),
            (QtCore.QEvent.Type.MouseButtonRelease, end, QtCore.Qt.MouseButton.LeftButton, QtCore.Qt.MouseButton.NoButton)]:
        event = QtGui.QMouseEvent(kind, QtCore.QPointF(at), QtCore.QPointF(widget.mapToGlobal(at.toPoint())),
                                  button, held, QtCore.Qt.KeyboardModifier.NoModifier)
        QtCore.QCoreApplication.sendEvent(widget, event)


def test_measurement_log_records_shows_and_round_trips_csv(app, tmp_path):
    display = shown_display(app)
    display.newImageReceived(uniform(80))
    settle()
    log = tn.MeasurementLog()
    log.attach(display)
    logged = []
    log.measurementLogged.connect(logged.append)
    log.setCurrentFrame(41, 1_700_000_000_123_456)
    drag(display, tn.FanDisplayExtensions.toPixels(display, 10.0, 0.0),
         tn.FanDisplayExtensions.toPixels(display, 20.0, 0.0))
    assert logged == [0]
    first = log.getEntries()[0]
    assert (first.frame, first.timeMicroseconds, first.timeKnown) == (41, 1_700_000_000_123_456, True)
    assert first.measurement.value == pytest.approx(10.0, abs=0.3)

    measurement = tn.FanMeasurement()
    measurement.mode = tn.FanDisplayOptions.MeasurementMode.RectangleArea
    measurement.onMagnifier = True
    measurement.value = 2.5
    log.setCurrentFrame(42, -1)
    log.measurementFinished(measurement)

    view = QtWidgets.QTableView()
    view.setModel(log)
    model = view.model()
    column = {name: int(getattr(value, "value", value)) for name, value in (  # PyQt6's enums are not ints
        ("tool", tn.MeasurementLog.Column.ToolColumn), ("widget", tn.MeasurementLog.Column.WidgetColumn),
        ("count", tn.MeasurementLog.Column.ColumnCount))}
    assert (model.rowCount(), model.columnCount()) == (2, column["count"])
    assert model.data(model.index(1, column["tool"])) == "rectangle"
    assert model.data(model.index(1, column["widget"])) == "magnifier"

    path = str(tmp_path / "log.csv")
    log.exportCsv(path)
    again = tn.MeasurementLog()
    again.importCsv(path)
    back = again.getEntries()
    assert [(e.frame, e.timeMicroseconds) for e in back] == [(41, 1_700_000_000_123_456), (42, -1)]
    assert back[1].measurement.mode == measurement.mode and back[1].measurement.value == pytest.approx(2.5)
    assert math.isclose(back[0].measurement.value, first.measurement.value, abs_tol=1e-4)

    # A damaged file names itself and the place, and changes nothing.
    damaged = tmp_path / "damaged.csv"
    damaged.write_text(open(path).read().replace("rectangle", "hexagon"))
    with pytest.raises(OSError, match=r"damaged\.csv.*\d"):
        again.importCsv(str(damaged))
    assert again.rowCount() == 2
    with pytest.raises(OSError):
        log.exportCsv(str(tmp_path / "no such folder" / "log.csv"))
    view.setModel(None)
    display.close()
