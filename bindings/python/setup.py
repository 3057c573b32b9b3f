"""Builds the extension module: the C interface with the protocol module and its host services inside.

The sources are those of the repository, or, in an sdist, a copy of them beside this file. Nothing is written into the
source folder: what is built meanwhile goes to a temporary one.
"""

from __future__ import annotations

import atexit
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

from cffi import FFI
from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext
from setuptools.command.sdist import sdist

HERE = pathlib.Path(__file__).resolve().parent
COPY = HERE / "native"
NATIVE = COPY if COPY.exists() else HERE.parent.parent
HEADER = "bindings/c/morvix_protocol.h"
MODULE_HEADER = "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
SOURCES = [
    "bindings/c/morvix_protocol.cpp",
    "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp",
    "host/Base64.cpp",
    "host/Logging.cpp",
    "host/TavelConfig.cpp",
    "host/Text.cpp",
]
HEADERS = [
    HEADER,
    MODULE_HEADER,
    "Protocol/AllVersions/v4/ProtocolInspection_v4.0.h",
    "host/Base64.h",
    "host/Logging.h",
    "host/TavelConfig.h",
    "host/Text.h",
]


def copy_sources(target: pathlib.Path) -> None:
    for name in SOURCES + HEADERS:
        (target / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(NATIVE / name, target / name)


class SourceDistribution(sdist):  # type: ignore[misc]
    """An sdist that carries the module's sources."""

    def make_release_tree(self, base_dir: str, files: list[str]) -> None:
        super().make_release_tree(base_dir, files)
        copy_sources(pathlib.Path(base_dir) / "native")


def declarations() -> str:
    """The declarations of the C header, as cffi reads them."""
    text = re.sub(r"/\*.*?\*/", "", (NATIVE / HEADER).read_text(encoding="utf-8"), flags=re.DOTALL)
    text = re.sub(r"^\s*#.*$", "", text, flags=re.MULTILINE)
    text = text.replace("MORVIX_API", "").replace('extern "C" {', "")
    return text[: text.rindex("}")] if text.rstrip().endswith("}") else text


def json_flags(option: str) -> list[str]:
    return subprocess.run(
        ["pkg-config", option, "jsoncpp"], check=True, stdout=subprocess.PIPE, universal_newlines=True
    ).stdout.split()


def make_extension() -> Extension:
    """The extension without its sources, which `BuildExtension` provides."""
    return Extension(
        "morvix_protocol._native",
        sources=[],
        include_dirs=["native"],
        extra_compile_args=json_flags("--cflags")
        + ["-std=c++17", "-O2", "-g0", "-pthread", "-fvisibility=hidden", "-fvisibility-inlines-hidden"],
        extra_link_args=json_flags("--libs") + ["-pthread"],
        define_macros=[("Py_LIMITED_API", "0x03090000")],
        py_limited_api=True,
        language="c++",
    )


class BuildExtension(build_ext):  # type: ignore[misc]
    """Builds in a temporary folder, with copies of the sources, which the wheel carries as well."""

    def run(self) -> None:
        ffi = FFI()
        ffi.cdef(declarations())
        ffi.set_source("morvix_protocol._native", f'#include "{HEADER}"', source_extension=".cpp")
        here = os.getcwd()
        with tempfile.TemporaryDirectory(prefix="morvix-protocol-") as work:
            copy_sources(pathlib.Path(work) / "native")
            ffi.emit_c_code(os.path.join(work, "_native.cpp"))
            os.chdir(work)
            try:
                self.extensions[0].sources = ["_native.cpp"] + [f"native/{name}" for name in SOURCES]
                super().run()
                copy_sources(pathlib.Path(self.build_lib) / "morvix_protocol" / "native")
            finally:
                os.chdir(here)
                self.extensions[0].sources = []


def version() -> str:
    text = (NATIVE / MODULE_HEADER).read_text(encoding="utf-8")
    match = re.search(r'^#define MORVIX_PROTOCOL_VERSION "([0-9.]+)"$', text, flags=re.MULTILINE)
    if match is None:
        raise RuntimeError(f"no version in {MODULE_HEADER}")
    return match[1]


def main() -> None:
    work = tempfile.mkdtemp(prefix="morvix-protocol-")
    atexit.register(shutil.rmtree, work, ignore_errors=True)
    setup(
        version=version(),
        ext_modules=[make_extension()],
        cmdclass={"build_ext": BuildExtension, "sdist": SourceDistribution},
        options={
            "bdist_wheel": {"py_limited_api": "cp39"},
            "build": {"build_base": os.path.join(work, "build")},
            "egg_info": {"egg_base": work},
        },
    )


main()
