"""What a bus reports about its connection and about each message."""
from __future__ import annotations

import enum
from dataclasses import dataclass, field
from datetime import datetime, timezone
from typing import NamedTuple, Optional

__all__ = ["ConnectionLost", "ConnectionRestored", "Counters", "Delivery", "Event", "ListenerCounters", "Reason",
           "RecordsDropped", "State", "StateChange"]


class State(enum.Enum):
    """State of the connection."""

    CONNECTING = "connecting"
    """An attempt to connect is in progress."""
    CONNECTED = "connected"
    """The server has answered and accepted all subscriptions."""
    WAITING = "waiting"
    """The last attempt failed, or the connection was lost; the next attempt follows after a pause."""
    CLOSED = "closed"
    """The bus has been closed."""


class Reason(enum.Enum):
    """Why the bus is in its state."""

    NONE = "no reason"
    """The bus is connected, or has not tried yet."""
    NO_SERVER = "no server listens on the path"
    NOT_PERMITTED = "the permissions of the socket do not allow the connection"
    BUSY = "the server does not accept connections"
    SILENT = "the server does not answer"
    REFUSED = "the server closed the connection at once: it does not allow this user, or has too many clients"
    LOST = "the connection was lost"
    CLOSED = "the bus was closed"


@dataclass(frozen=True)
class StateChange:
    """A change of the connection."""

    state: State
    reason: Reason
    epoch: int
    """Number of connections so far."""
    cause: Optional[BaseException] = None
    """The system's error, if there is one."""


class Delivery(NamedTuple):
    """The circumstances in which a record arrived. Later versions may add fields."""

    channel: str
    number: int
    """Sequence number, 0 to 65535; all channels share one counter."""
    epoch: int
    """Number of the connection, which increases with each one."""
    skipped_numbers: int
    """Sequence numbers since this listener's last record, possibly of other channels; 0 after a new connection."""
    arrival: float
    """When the record arrived, in seconds since 1970."""

    @property
    def arrived(self) -> datetime:
        """When the record arrived."""
        return datetime.fromtimestamp(self.arrival, timezone.utc)


class Event:
    """An event in the stream of a listener with ``with_events=True``."""


@dataclass(frozen=True)
class ConnectionLost(Event):
    """Records are missing from here to the next `ConnectionRestored`."""

    reason: Reason
    cause: Optional[BaseException] = None


@dataclass(frozen=True)
class ConnectionRestored(Event):
    """The subscription is active again. Records published in between are missing."""

    epoch: int
    outage: float
    """Time without a connection, in seconds."""


@dataclass(frozen=True)
class RecordsDropped(Event):
    """The queue of the listener was full, and this many records were dropped here."""

    count: int
    with_marks: bool = False
    """Events of lost or restored connections were also dropped."""
    channel: str = field(default="", compare=False)
    """The channel of the listener."""


@dataclass
class ListenerCounters:
    """What became of the messages of one listener."""

    received: int = 0
    """Messages that arrived on the channel."""
    dropped: int = 0
    """Of those, dropped because the queue was full."""
    invalid: int = 0
    """Of those, without a payload or with one that the record class cannot read."""
    callback_errors: int = 0
    """Exceptions that left the callback."""


@dataclass
class Counters:
    """Counters of a bus since it was created."""

    packets: int = 0
    """Packets that arrived."""
    not_json: int = 0
    """Of those, not JSON."""
    too_large: int = 0
    """Of those, 16384 bytes or more, which arrive truncated."""
    unexpected: int = 0
    """Of those, for a channel without a listener. A few are normal after the end of a subscription."""
    dropped: int = 0
    """Records that full queues dropped, of all listeners."""
    invalid: int = 0
    """Records that could not be read, of all listeners."""
    callback_errors: int = 0
    """Exceptions that left callbacks and responders."""
    published: int = 0
    """Messages sent."""
    connections: int = 0
    """Connections made, including the first one."""
    failed_attempts: int = field(default=0)
    """Attempts to connect that failed."""
