"""The base of the enumerations of codes."""
from __future__ import annotations

from enum import IntEnum
from typing import Optional


class Code(IntEnum):
    """A code with names for the assigned numbers. Equipment may send others, which are kept and named
    ``Code_`` and the number."""

    @classmethod
    def _missing_(cls, value: object) -> Optional[Code]:
        if not isinstance(value, int):
            return None
        # Not entered among the members: what others send does not grow tables here.
        code = int.__new__(cls, value)
        code._name_ = f"Code_{value}"
        code._value_ = value
        return code
