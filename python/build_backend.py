"""pip's way into the build: checks that this Python can build the module, then
hands over to sipbuild.

sipbuild and PyQt's SIP files come from Debian's packages, so the build needs
Debian's Python (/usr/bin/python3) or a virtual environment made from it with
--system-site-packages. Anything else would otherwise end in a long traceback
about sipbuild, or in an error without text; here it ends in one sentence that
says what is missing and what to use instead.
"""

import importlib
import importlib.util
import os
import shutil
import subprocess
import sys

SYSTEM_PACKAGES = "/usr/lib/python3/dist-packages"
VENV_ADVICE = ("make the environment with Debian's Python: "
               "/usr/bin/python3 -m venv --system-site-packages ENV")


def _has_module(name):
    try:
        return importlib.util.find_spec(name) is not None
    except (ImportError, ValueError):
        return False


def _debian_python():
    return os.path.realpath(sys.base_prefix) == "/usr"


def _environment_sees_system_packages():
    """True for Debian's Python itself and for environments made from it with
    --system-site-packages."""
    if sys.prefix == sys.base_prefix:
        return True
    try:
        with open(os.path.join(sys.prefix, "pyvenv.cfg"), encoding="utf-8") as config:
            for line in config:
                key, _, value = line.partition("=")
                if key.strip() == "include-system-site-packages":
                    return value.strip().lower() == "true"
    except OSError:
        pass
    return False


def _see_system_packages():
    """pip's build isolation hides the system's site-packages, where Debian's sip
    and PyQt live; they are the only ones that fit each other, so an environment
    that will see them at run time sees them for the build too (nothing is
    downloaded or installed)."""
    if _has_module("sipbuild") or not os.path.isdir(os.path.join(SYSTEM_PACKAGES, "sipbuild")):
        return
    if not _debian_python() or not _environment_sees_system_packages():
        return
    sys.path.append(SYSTEM_PACKAGES)
    importlib.invalidate_caches()
    # The isolation works through PYTHONPATH, which would hide them again from
    # sipbuild's own tools that the build runs.
    os.environ.pop("PYTHONPATH", None)


def missing():
    """One sentence on what keeps this Python from building the module, or None."""
    flavour = os.environ.get("NEREON_QT", "5") or "5"
    if flavour not in ("5", "6"):
        return "NEREON_QT is 5 (PyQt5, the default) or 6 (PyQt6), not {!r}.".format(flavour)
    pyqt = "PyQt" + flavour
    python = sys.executable or "this Python"
    needs = [
        ("sipbuild", "sip", "python3-sipbuild"),
        ("pyqtbuild", "PyQt-builder", "python3-pyqtbuild"),
        (pyqt, pyqt, "python3-pyqt" + flavour),
    ]
    for module, name, package in needs:
        if not _has_module(module):
            if not _debian_python():
                return "{} has no {}: {}, and install with that environment's pip.".format(
                    python, name, VENV_ADVICE)
            if not _environment_sees_system_packages():
                return "{} has no {}: its environment was made without --system-site-packages; {}.".format(
                    python, name, VENV_ADVICE)
            return "{} has no {}: apt-get install {}.".format(python, name, package)
    bindings = os.path.join(os.path.dirname(importlib.import_module(pyqt).__file__), "bindings", "QtWidgets")
    if not os.path.isdir(bindings):
        return "{} has no SIP files for {}: apt-get install pyqt{}-dev.".format(python, pyqt, flavour)
    qmake = "qmake6" if flavour == "6" else "qmake"
    if shutil.which(qmake) is None:
        package = "qmake6" if flavour == "6" else "qt5-qmake"
        return "{} builds with Qt {}'s {}, which is not on PATH: apt-get install {}.".format(
            pyqt, flavour, qmake, package)
    query = subprocess.run([qmake, "-query", "QT_INSTALL_HEADERS"], capture_output=True, text=True)
    if query.returncode != 0 or not os.path.isfile(os.path.join(query.stdout.strip(), "QtWidgets", "QWidget")):
        package = "qt6-base-dev" if flavour == "6" else "qtbase5-dev"
        return "{} builds against Qt {}'s development files, which are missing: apt-get install {}.".format(
            pyqt, flavour, package)
    return None


def _checked():
    _see_system_packages()
    problem = missing()
    if problem:
        # pip shows this process's output as it is: one line, no traceback.
        print("ternwick-nereon: " + problem, file=sys.stderr)
        sys.exit(1)
    return importlib.import_module("sipbuild.api")


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    return _checked().build_wheel(wheel_directory, config_settings, metadata_directory)


def build_sdist(sdist_directory, config_settings=None):
    return _checked().build_sdist(sdist_directory, config_settings)
