"""Builds the Python module with PyQt-builder, for `pip install .` from the source tree.

The module is built for PyQt5, or for PyQt6 with NEREON_QT=6 in the environment.
It needs the C++ libraries, which come from one of two places, chosen by
NEREON_LIBRARIES:

- "system": an installed library found by pkg-config (set PKG_CONFIG_PATH to
  <prefix>/lib/pkgconfig for one outside the system's folders); the module
  links it where it is installed.
- "bundled": CMake builds the libraries the module needs from this source tree,
  and the wheel carries them in the package folder beside the module, which
  finds them through its run path ($ORIGIN).
- unset or "auto": "system" when pkg-config finds the library, else "bundled".
"""

import glob
import os
import re
import shlex
import shutil
import subprocess

from pyqtbuild import PyQtBindings, PyQtProject
from sipbuild import Installable, UserException

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE_DIR = os.path.dirname(HERE)
PACKAGE = "ternwick_nereon"


def _pkg_config(modules, *arguments, environment=None):
    """pkg-config's flags for `modules`, or None when it does not find them."""
    if shutil.which("pkg-config") is None:
        return None
    result = subprocess.run(["pkg-config", *arguments, *modules], capture_output=True, text=True,
                            env=environment)
    return shlex.split(result.stdout) if result.returncode == 0 else None


def _jobs():
    """Parallel compiler runs, as CMake would choose them."""
    return int(os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL") or os.cpu_count() or 1)


def _run(command, log):
    """Runs a build step with its output in `log`; a failure shows the end of it."""
    with open(log, "a", encoding="utf-8") as output:
        output.write("$ " + " ".join(shlex.quote(part) for part in command) + "\n")
        output.flush()
        status = subprocess.run(command, stdout=output, stderr=subprocess.STDOUT).returncode
    if status != 0:
        with open(log, encoding="utf-8", errors="replace") as output:
            tail = "".join(output.readlines()[-40:])
        raise UserException("building the C++ libraries failed ({}, exit status {})".format(command[1], status),
                            detail=tail)


class NereonProject(PyQtProject):
    """One flavour of the module, chosen by NEREON_QT (5 or 6; 5 when unset)."""

    def __init__(self):
        super().__init__()
        self.qt_major_version = int(os.environ.get("NEREON_QT", "5") or "5")
        if self.qt_major_version not in (5, 6):
            raise UserException("NEREON_QT is 5 or 6")
        self.libraries_mode = os.environ.get("NEREON_LIBRARIES", "auto") or "auto"
        if self.libraries_mode not in ("auto", "system", "bundled"):
            raise UserException("NEREON_LIBRARIES is auto, system or bundled, not " + self.libraries_mode)
        self.bindings_factories = [NereonBindings]

    def apply_user_defaults(self, tool):
        pyqt = "PyQt{}".format(self.qt_major_version)
        self.sip_module = pyqt + ".sip"
        # The package's pure-Python modules besides __init__.py.
        self.wheel_includes = list(self.wheel_includes or []) + [("python/ternwick_nereon/counting.py", "ternwick_nereon")]
        if getattr(self.builder, "qmake", None) is None:
            self.builder.qmake = shutil.which("qmake6" if self.qt_major_version == 6 else "qmake")
        if getattr(self.builder, "jobs", None) is None:
            self.builder.jobs = _jobs()
        super().apply_user_defaults(tool)
        # PyQt's SIP files lie beside PyQt itself, wherever that was installed.
        import importlib
        bindings = os.path.join(os.path.dirname(importlib.import_module(pyqt).__file__), "bindings")
        self.sip_include_dirs.append(bindings)

    def get_package_dir(self):
        return PACKAGE

    def get_dunder_init(self):
        with open(os.path.join(HERE, PACKAGE, "__init__.py"), encoding="utf-8") as init:
            return init.read()


class NereonBindings(PyQtBindings):
    def __init__(self, project):
        flavour = "qt{}".format(project.qt_major_version)
        super().__init__(project, flavour)
        self.sip_file = flavour + ".sip"
        self.internal = True  # no .sip files for others to import
        self.qmake_QT = ["widgets"] + (["openglwidgets"] if project.qt_major_version == 6 else [])

    def _modules(self):
        suffix = "-qt6" if self.project.qt_major_version == 6 else ""
        return ["ternwick-nereon-visualisation" + suffix, "ternwick-nereon-sources" + suffix,
                "ternwick-nereon-views" + suffix]

    def _analysis_module(self):
        return "ternwick-nereon-analysis" + ("-qt6" if self.project.qt_major_version == 6 else "")

    def generate(self):
        # Here rather than with the other defaults: only a wheel needs the libraries,
        # and the build folder exists by now.
        environment = None
        bundled = self.project.libraries_mode == "bundled"
        if self.project.libraries_mode == "auto":
            bundled = _pkg_config(self._modules(), "--exists") is None
        if bundled:
            environment = dict(os.environ, PKG_CONFIG_PATH=self._build_libraries())
        elif _pkg_config(self._modules(), "--exists") is None:
            raise UserException("pkg-config finds no installed Ternwick Nereon library "
                                "(set PKG_CONFIG_PATH to <prefix>/lib/pkgconfig, or leave NEREON_LIBRARIES "
                                "unset to build the libraries into the package)")
        self._use_libraries(environment, bundled)
        buildable = super().generate()
        launcher = os.environ.get("CMAKE_CXX_COMPILER_LAUNCHER")
        if launcher:
            # The module's own compile reuses earlier builds as CMake's does (ccache).
            buildable.builder_settings.append("QMAKE_CXX = {} $$QMAKE_CXX".format(launcher))
        if bundled:
            # Escaped for qmake and make: the linker receives $ORIGIN itself.
            buildable.builder_settings.append("QMAKE_LFLAGS += \"-Wl,-rpath,\\'\\$\\$ORIGIN\\'\"")
        return buildable

    def _use_libraries(self, environment, bundled):
        modules = self._modules()
        # Counting only where the analysis library was built (it needs OpenCV).
        if _pkg_config([self._analysis_module()], "--exists", environment=environment) is not None:
            modules.append(self._analysis_module())
        else:
            self.disabled_features = list(self.disabled_features or []) + ["NEREON_ANALYSIS"]
        self.include_dirs.append(os.path.join(HERE, "sip"))
        for flag in _pkg_config(modules, "--cflags", environment=environment) or []:
            if flag.startswith("-I"):
                self.include_dirs.append(flag[2:])
        for flag in _pkg_config(modules, "--libs", environment=environment) or []:
            if flag.startswith("-L"):
                self.library_dirs.append(flag[2:])
                if not bundled:
                    self.extra_link_args.append("-Wl,-rpath," + os.path.abspath(flag[2:]))
            elif flag.startswith("-l"):
                self.libraries.append(flag[2:])
        self.extra_compile_args.append("-std=c++17")

    def _build_libraries(self):
        """Builds and stages the libraries the module links, adds them to the wheel's
        package folder and returns the folder of their pkg-config files."""
        cmake = shutil.which("cmake")
        if cmake is None:
            raise UserException("cmake is needed to build the C++ libraries into the package "
                                "(apt-get install cmake), or install the libraries and set PKG_CONFIG_PATH")
        build_dir = os.path.abspath(self.project.build_dir)
        binary = os.path.join(build_dir, "libraries")
        stage = os.path.join(build_dir, "stage")
        log = os.path.join(build_dir, "libraries.log")
        jobs = str(_jobs())
        print("Building the C++ libraries with CMake for the package ({} jobs)".format(jobs), flush=True)
        _run([cmake, "-S", SOURCE_DIR, "-B", binary, "-DCMAKE_BUILD_TYPE=Release",
              "-DNEREON_QT_MAJOR_VERSION={}".format(self.project.qt_major_version),
              "-DNEREON_BUILD_TESTS=OFF", "-DNEREON_BUILD_BENCHMARKS=OFF", "-DNEREON_BUILD_EXAMPLES=OFF",
              "-DNEREON_BUILD_PYTHON=OFF", "-DCMAKE_INSTALL_PREFIX=" + stage, "-DCMAKE_INSTALL_LIBDIR=lib"],
             log)
        suffix = "-qt6" if self.project.qt_major_version == 6 else ""
        targets = ["ternwick-nereon-visualisation", "ternwick-nereon-sources", "ternwick-nereon-views"]
        # The analysis library (counting) exists where CMake found OpenCV.
        known = subprocess.run([cmake, "--build", binary, "--target", "help"], capture_output=True, text=True)
        if "ternwick-nereon-analysis" in known.stdout:
            targets.append("ternwick-nereon-analysis")
        _run([cmake, "--build", binary, "--parallel", jobs, "--target", *targets], log)
        # Only the folders of what was built: installing the whole tree would want
        # every other library and tool too.
        for folder in ("src/host", "src", "src/sources", "src/views", "src/analysis", "pkgconfig"):
            _run([cmake, "-P", os.path.join(binary, folder, "cmake_install.cmake")], log)

        # The loader looks for the files named by the libraries' SONAMEs: those
        # go into the wheel, as files rather than the links they are here.
        shipped = Installable("libraries", target_subdir=PACKAGE)
        copies = os.path.join(build_dir, "shipped")
        os.makedirs(copies, exist_ok=True)
        for path in sorted(glob.glob(os.path.join(stage, "lib", "lib*.so.*"))):
            name = os.path.basename(path)
            if re.fullmatch(r"lib.+\.so\.\d+", name):
                shutil.copyfile(os.path.realpath(path), os.path.join(copies, name))
                shipped.files.append(os.path.join(copies, name))
        if not any(suffix + ".so." in os.path.basename(path) for path in shipped.files):
            raise UserException("building the C++ libraries made no shared library", detail=stage)
        self.project.installables.append(shipped)
        return os.path.join(stage, "lib", "pkgconfig")
