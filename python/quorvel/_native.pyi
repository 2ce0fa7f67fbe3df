"""The module that cffi makes."""

from typing import Any

ffi: Any
lib: Any
