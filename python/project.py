"""Builds the Python module with PyQt-builder against an installed library.

pip install . (from the source tree) builds ternwick_nereon for PyQt5, or for
PyQt6 with NEREON_QT=6 in the environment. The library is found through
pkg-config: set PKG_CONFIG_PATH to <prefix>/lib/pkgconfig for a library
installed outside the system's folders.
"""

import os
import shlex
import shutil
import subprocess

from pyqtbuild import PyQtBindings, PyQtProject
from sipbuild import UserException

HERE = os.path.dirname(os.path.abspath(__file__))


def _pkg_config(*arguments):
    try:
        result = subprocess.run(["pkg-config", *arguments], check=True, capture_output=True, text=True)
    except FileNotFoundError:
        raise UserException("pkg-config is not installed")
    except subprocess.CalledProcessError as error:
        raise UserException("the Ternwick Nereon libraries were not found by pkg-config "
                            "(set PKG_CONFIG_PATH to <prefix>/lib/pkgconfig)", detail=error.stderr)
    return shlex.split(result.stdout)


class NereonProject(PyQtProject):
    """One flavour of the module, chosen by NEREON_QT (5 or 6; 5 when unset)."""

    def __init__(self):
        super().__init__()
        self.qt_major_version = int(os.environ.get("NEREON_QT", "5") or "5")
        if self.qt_major_version not in (5, 6):
            raise UserException("NEREON_QT is 5 or 6")
        self.bindings_factories = [NereonBindings]

    def apply_user_defaults(self, tool):
        pyqt = "PyQt{}".format(self.qt_major_version)
        self.sip_module = pyqt + ".sip"
        # The package's pure-Python modules besides __init__.py.
        self.wheel_includes = list(self.wheel_includes or []) + [("python/ternwick_nereon/counting.py", "ternwick_nereon")]
        if getattr(self.builder, "qmake", None) is None:
            self.builder.qmake = shutil.which("qmake6" if self.qt_major_version == 6 else "qmake")
        super().apply_user_defaults(tool)
        # PyQt's SIP files lie beside PyQt itself, wherever that was installed.
        import importlib
        bindings = os.path.join(os.path.dirname(importlib.import_module(pyqt).__file__), "bindings")
        self.sip_include_dirs.append(bindings)

    def get_package_dir(self):
        return "ternwick_nereon"

    def get_dunder_init(self):
        with open(os.path.join(HERE, "ternwick_nereon", "__init__.py"), encoding="utf-8") as init:
            return init.read()


class NereonBindings(PyQtBindings):
    def __init__(self, project):
        flavour = "qt{}".format(project.qt_major_version)
        super().__init__(project, flavour)
        self.sip_file = flavour + ".sip"
        self.internal = True  # no .sip files for others to import
        self.qmake_QT = ["widgets"] + (["openglwidgets"] if project.qt_major_version == 6 else [])

    def apply_user_defaults(self, tool):
        suffix = "-qt6" if self.project.qt_major_version == 6 else ""
        modules = ["ternwick-nereon-visualisation" + suffix, "ternwick-nereon-sources" + suffix]
        # Counting only where the analysis library was built (it needs OpenCV).
        if subprocess.run(["pkg-config", "--exists", "ternwick-nereon-analysis" + suffix]).returncode == 0:
            modules.append("ternwick-nereon-analysis" + suffix)
        else:
            self.disabled_features = list(self.disabled_features or []) + ["NEREON_ANALYSIS"]
        for flag in _pkg_config("--cflags", *modules):
            if flag.startswith("-I"):
                self.include_dirs.append(flag[2:])
        self.include_dirs.append(os.path.join(HERE, "sip"))
        for flag in _pkg_config("--libs", *modules):
            if flag.startswith("-L"):
                self.library_dirs.append(flag[2:])
                self.extra_link_args.append("-Wl,-rpath," + os.path.abspath(flag[2:]))
            elif flag.startswith("-l"):
                self.libraries.append(flag[2:])
        self.extra_compile_args.append("-std=c++17")
        super().apply_user_defaults(tool)
