#!/usr/bin/env python3
"""A small sonar viewer in Python: simulated frames from NumPy at 15 Hz, the
magnifier beside the fan, a palette box and the frame rate in the status bar.

    python3 examples/python/viewer.py [--pyqt6]
"""

import sys

import numpy as np

if "--pyqt6" in sys.argv:
    from PyQt6 import QtCore, QtWidgets
else:
    from PyQt5 import QtCore, QtWidgets

import ternwick_nereon as tn

BEAMS, ROWS, RANGE = 256, 800, 40.0


class SimulatedSonar:
    """A sea floor with a few bright targets, drifting slowly, with speckle."""

    def __init__(self):
        self.rng = np.random.default_rng(1)
        self.bearings = np.linspace(-65.0, 65.0, BEAMS)
        rows = np.linspace(0.0, 1.0, ROWS)[:, None]
        self.floor = 60.0 * np.exp(-((rows - 0.7) / 0.15) ** 2) * np.ones((1, BEAMS))
        self.ping = 0

    def frame(self):
        self.ping += 1
        picture = self.floor + self.rng.gamma(1.5, 12.0, (ROWS, BEAMS))
        for k in range(3):
            row = int(ROWS * (0.3 + 0.15 * k + 0.05 * np.sin(self.ping / 40.0 + k)))
            beam = int(BEAMS * (0.3 + 0.2 * k))
            picture[row - 6:row + 6, beam - 3:beam + 3] += 180.0
        return tn.NereonImage(np.clip(picture, 0, 255).astype(np.uint8), self.bearings, RANGE)


def main():
    app = QtWidgets.QApplication(sys.argv)
    window = QtWidgets.QMainWindow()
    window.setWindowTitle("Sonar from Python")
    centre = QtWidgets.QWidget()
    layout = QtWidgets.QHBoxLayout(centre)
    display = tn.FanDisplay()
    metres = tn.Metres()
    display.setDistanceUnit(metres)
    display.setAreaUnit(tn.SquareMetres())
    for feature in (tn.FanDisplayOptions.OverlayFeature.RangeLabels, tn.FanDisplayOptions.OverlayFeature.RangeArcs,
                    tn.FanDisplayOptions.OverlayFeature.RangeLines):
        display.setOverlayFeature(feature, True)
    layout.addWidget(display, 3)
    side = QtWidgets.QVBoxLayout()
    palettes = QtWidgets.QComboBox()
    palettes.addItems(["Greyscale", "Bronze", "Blue", "Green", "Red-yellow", "Multicolour", "Fire", "Aqua"])
    palettes.setCurrentIndex(5)
    names = ["Greyscale", "Bronze", "Blue", "Green", "RedYellow", "Multicolour", "Fire", "Aqua"]
    palettes.currentIndexChanged.connect(
        lambda index: display.setPalette(getattr(tn.FanDisplayOptions.Palette, names[index])))
    display.setPalette(tn.FanDisplayOptions.Palette.Multicolour)
    side.addWidget(palettes)
    side.addWidget(display.getZoomDisplay(), 1)
    layout.addLayout(side, 2)
    window.setCentralWidget(centre)
    rate = QtWidgets.QLabel("")
    window.statusBar().addPermanentWidget(rate)
    display.frameRateChanged.connect(lambda fps: rate.setText("{} frames/s".format(fps)))

    sonar = SimulatedSonar()
    timer = QtCore.QTimer()
    timer.timeout.connect(lambda: display.newImageReceived(sonar.frame()))
    timer.start(1000 // 15)
    window.resize(1100, 600)
    window.show()
    if "--quit-after" in sys.argv:  # for a check without a person at the screen
        QtCore.QTimer.singleShot(int(sys.argv[sys.argv.index("--quit-after") + 1]), app.quit)
    return app.exec()


if __name__ == "__main__":
    sys.exit(main())
