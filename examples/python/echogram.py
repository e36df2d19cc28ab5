#!/usr/bin/env python3
"""Browses a recording (.nrec or .aris) by its echogram: click the echogram to
show that frame on the fan, tick "Moving targets" to see only what moves, and
measure on the fan into the table below (saved as CSV with the button).

    python3 echogram.py RECORDING [--png OUT.png] [--pyqt6] [--quit-after MS]

With --png, only writes the recording's echogram (time to the right, range up)
as a greyscale picture and exits.
"""

import argparse
import sys

import numpy as np

if "--pyqt6" in sys.argv:
    from PyQt6 import QtCore, QtGui, QtWidgets
else:
    from PyQt5 import QtCore, QtGui, QtWidgets

import ternwick_nereon as tn


def save_png(path, output):
    columns = tn.EchogramBuilder.build(path)
    # Nearest range at the bottom, as the echogram widget shows it.
    picture = np.ascontiguousarray(columns.intensities().T[::-1])
    pixels = picture.tobytes()  # held until the picture is saved
    height, width = picture.shape
    image = QtGui.QImage(pixels, width, height, width, QtGui.QImage.Format.Format_Grayscale8)
    if not image.save(output):
        sys.exit("echogram: cannot write " + output)
    print("{}: {} columns of {} range bins to {}".format(path, width, height, output))


class Browser(QtWidgets.QWidget):
    def __init__(self, path):
        super().__init__()
        self.reader = tn.open_recording(path)
        self.fan = tn.FanDisplay()
        self.metres = tn.Metres()
        self.fan.setDistanceUnit(self.metres)
        self.fan.setAreaUnit(tn.SquareMetres())
        self.fan.setOverlayFeature(tn.FanDisplayOptions.OverlayFeature.RangeArcs, True)
        self.echogram = tn.EchogramDisplay()
        self.echogram.setDistanceUnit(self.metres)
        self.echogram.frameRequested.connect(lambda frame, _time: self.show_frame(frame))
        self.echogram.loadRecording(path)

        self.log = tn.MeasurementLog(self)
        self.log.attach(self.fan)
        table = QtWidgets.QTableView()
        table.setModel(self.log)
        self.moving = QtWidgets.QCheckBox("Moving targets")
        self.moving.toggled.connect(lambda: self.show_frame(self.echogram.getCursorFrame()))
        self.subtractor = None
        save = QtWidgets.QPushButton("Save measurements...")
        save.clicked.connect(self.save_log)

        layout = QtWidgets.QGridLayout(self)
        layout.addWidget(self.fan, 0, 0, 1, 2)
        layout.addWidget(self.echogram, 1, 0, 1, 2)
        layout.addWidget(table, 2, 0, 1, 2)
        layout.addWidget(self.moving, 3, 0)
        layout.addWidget(save, 3, 1)
        layout.setRowStretch(0, 3)
        layout.setRowStretch(1, 1)
        layout.setRowStretch(2, 1)
        self.show_frame(0)

    def show_frame(self, index):
        index = max(0, min(index, len(self.reader) - 1))
        frame = self.reader.readFrame(index)
        image = frame.image
        if self.moving.isChecked():
            if self.subtractor is None:
                # A model of the still scene learnt at once from frames spread over the file.
                self.subtractor = tn.BackgroundSubtractor()
                step = max(1, len(self.reader) // 40)
                self.subtractor.learn(self.reader.readFrame(i) for i in range(0, len(self.reader), step))
            image = self.subtractor.apply(frame)
        self.fan.newImageReceived(image)
        self.echogram.setCursorFrame(index)
        self.log.setCurrentFrame(frame)

    def save_log(self):
        path, _ = QtWidgets.QFileDialog.getSaveFileName(self, "Save measurements", "measurements.csv", "CSV (*.csv)")
        if path:
            try:
                self.log.exportCsv(path)
            except OSError as error:
                QtWidgets.QMessageBox.warning(self, "Save measurements", str(error))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("recording")
    parser.add_argument("--png")
    parser.add_argument("--pyqt6", action="store_true")
    parser.add_argument("--quit-after", type=int, default=0, help="milliseconds, for tests")
    args = parser.parse_args()
    app = QtWidgets.QApplication(sys.argv[:1])
    try:
        if args.png:
            save_png(args.recording, args.png)
            return 0
        browser = Browser(args.recording)
    except OSError as error:
        sys.exit("echogram: {}".format(error))
    if not hasattr(tn, "BackgroundSubtractor"):
        browser.moving.setEnabled(False)
    browser.resize(900, 1000)
    browser.show()
    if args.quit_after:
        QtCore.QTimer.singleShot(args.quit_after // 2, lambda: browser.moving.setChecked(True))
        QtCore.QTimer.singleShot(args.quit_after, app.quit)
    return app.exec()


if __name__ == "__main__":
    sys.exit(main())
