"""One QApplication for every test, of the PyQt flavour the build chose."""

import os
import sys

import pytest

FLAVOUR = os.environ.get("NEREON_PYQT", "PyQt5")
QtCore = pytest.importorskip(FLAVOUR + ".QtCore")
QtGui = pytest.importorskip(FLAVOUR + ".QtGui")
QtWidgets = pytest.importorskip(FLAVOUR + ".QtWidgets")


@pytest.fixture(scope="session")
def app():
    application = QtWidgets.QApplication.instance() or QtWidgets.QApplication(sys.argv[:1])
    yield application


def settle(frames=5):
    """Lets queued events and paints run."""
    for _ in range(frames):
        QtCore.QCoreApplication.processEvents()
