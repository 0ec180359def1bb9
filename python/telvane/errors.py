"""The exceptions of this package."""
from __future__ import annotations

from typing import Optional

__all__ = [
    "BusClosed", "BusError", "NotConnected", "RecordError", "RequestTimeout", "SubscriptionRefused",
    "TooLarge", "WrongContext",
]


class RecordError(ValueError):
    """A record that cannot be printed or read. The message begins with the path of the field."""

    def __init__(self, reason: str, path: str = "") -> None:
        super().__init__(reason, path)
        self.reason = reason
        #: Path of the field, for example ``WeldTraceData.data.amps`` or ``PSCommand.mModes[3].Label``.
        self.path = path

    def __str__(self) -> str:
        return f"{self.path}: {self.reason}" if self.path else self.reason

    def inside(self, name: str) -> RecordError:
        """Adds the name of the enclosing field or class to the path."""
        joined = f"{name}{self.path}" if self.path.startswith("[") else f"{name}.{self.path}"
        self.path = joined if self.path else name
        self.args = (self.reason, self.path)
        return self


class BusError(OSError):
    """Base of the errors that a bus raises."""


class NotConnected(BusError):
    """There is no connection to the server. ``__cause__`` is the error that ended it or kept it from starting."""


class BusClosed(BusError):
    """The bus or the listener has been closed."""


class RequestTimeout(BusError, TimeoutError):
    """The deadline passed without an answer, without a message, or without space to send."""


class TooLarge(BusError):
    """The message is too large for some receivers."""

    def __init__(self, size: int, limit: int) -> None:
        super().__init__(f"the message has {size} bytes; {limit} arrive everywhere")
        #: Size of the message, in bytes.
        self.size = size
        #: Largest size that arrives at every subscriber, in bytes.
        self.limit = limit


class SubscriptionRefused(BusError):
    """The server refused a subscription: its channel's name is not made of letters and underscores."""

    def __init__(self, channel: str, reason: Optional[str] = None) -> None:
        super().__init__(f"the server refuses the channel {channel!r}" + (f": {reason}" if reason else ""))
        self.channel = channel


class WrongContext(BusError):
    """A blocking call in a callback of the same bus, in a running event loop, or after a fork."""
