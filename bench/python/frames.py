#!/usr/bin/env python3
"""Frames from Python: microseconds to make a 512 x 4000 frame from a NumPy
array and to hand it to a display, and the painted rate of a 40 Hz stream fed
from Python. Run under Xvfb with the module on PYTHONPATH:

    PYTHONPATH=build/python xvfb-run -a -s "-screen 0 1280x1024x24" python3 bench/python/frames.py
"""

import statistics
import sys
import time

import numpy as np

if "--pyqt6" in sys.argv:
    from PyQt6 import QtCore, QtWidgets
else:
    from PyQt5 import QtCore, QtWidgets

import ternwick_nereon as tn

BEAMS, ROWS = 512, 4000


def median_us(function, repeats=200):
    times = []
    for _ in range(repeats):
        start = time.perf_counter()
        function()
        times.append(time.perf_counter() - start)
    return 1e6 * statistics.median(times)


def main():
    app = QtWidgets.QApplication(sys.argv[:1])
    rng = np.random.default_rng(1)
    arrays = [rng.integers(0, 256, (ROWS, BEAMS), dtype=np.uint8) for _ in range(4)]
    bearings = np.linspace(-65.0, 65.0, BEAMS)
    display = tn.FanDisplay()
    display.resize(1280, 720)  # as the C++ stream benchmark (bench_paint BM_Stream)
    display.show()
    app.processEvents()
    made = tn.NereonImage(arrays[0], bearings, 40.0)

    copy = median_us(lambda: arrays[0].copy())
    make = median_us(lambda: tn.NereonImage(arrays[1], bearings, 40.0))
    hand = median_us(lambda: display.newImageReceived(made))
    both = median_us(lambda: display.newImageReceived(tn.NereonImage(arrays[2], bearings, 40.0)))
    print("512 x 4000 frame, median of 200:")
    print("  numpy copy of the array (memcpy)      {:8.0f} us".format(copy))
    print("  NereonImage from the array            {:8.0f} us".format(make))
    print("  newImageReceived (the display's C++)  {:8.0f} us".format(hand))
    print("  both, as a Python source does         {:8.0f} us".format(both))

    rates = []
    display.frameRateChanged.connect(rates.append)
    frames = [0]

    def deliver():
        display.newImageReceived(tn.NereonImage(arrays[frames[0] % 4], bearings, 40.0))
        frames[0] += 1

    timer = QtCore.QTimer()
    timer.setTimerType(QtCore.Qt.TimerType.PreciseTimer)
    timer.timeout.connect(deliver)
    timer.start(25)
    QtCore.QTimer.singleShot(12000, app.quit)
    app.exec()
    settled = rates[2:] or rates
    print("40 Hz stream from Python for 12 s: {} frames delivered, painted {} frames/s (median of the "
          "display's per-second counts)".format(frames[0], statistics.median(settled) if settled else 0))


if __name__ == "__main__":
    main()
