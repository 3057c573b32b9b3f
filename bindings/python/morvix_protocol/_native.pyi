"""The extension module that cffi makes of the C interface."""

from typing import Any

ffi: Any
lib: Any
