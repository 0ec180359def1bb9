"""What the classes of the blocking and the asyncio bus share: the state of the connection, and their properties."""
from __future__ import annotations

import logging
import os
import socket
from typing import Any, Callable, Generic, Optional, TypeVar, Union

from ._hub import Hub, Inbox, Served
from ._socket import send
from .errors import NotConnected, RequestTimeout, SubscriptionRefused, WrongContext
from .events import Counters, Delivery, ListenerCounters, Reason, State, StateChange

log = logging.getLogger("telvane")

T = TypeVar("T")


class Core:
    """The state of a bus. Threads and callbacks of a loop refer to this and not to the bus, so that a bus which nobody
    refers to any more can be found and closed."""

    def __init__(self, path: str, on_error: Optional[Callable[[BaseException, Any], None]],
                 on_state: Optional[Callable[[StateChange], None]]) -> None:
        self.path = path
        self.pid = os.getpid()
        self.on_error = on_error
        self.on_state = on_state
        self.hub = Hub()
        self.state = State.CONNECTING
        self.reason = Reason.NONE
        self.cause: Optional[BaseException] = None
        self.closing = False
        self.sock: Optional[socket.socket] = None

    def refuse_after_fork(self) -> None:
        if os.getpid() != self.pid:
            raise WrongContext("this bus was made before the fork; make one in this process")

    def change(self, state: State, reason: Reason, cause: Optional[BaseException]) -> bool:
        """Sets the state. Returns whether on_state is to be called."""
        told = state is not State.CONNECTING and (state, reason) != (self.state, self.reason)
        self.state, self.reason, self.cause = state, reason, cause
        return told and self.on_state is not None

    def not_connected(self, reason: Optional[Reason] = None, cause: Optional[BaseException] = None) -> NotConnected:
        error = NotConnected(f"{self.path}: {(reason or self.reason).value}")
        error.__cause__ = cause if cause is not None else self.cause
        return error

    def nothing_arrived(self, channel: str, timeout: Optional[float]) -> Union[NotConnected, RequestTimeout]:
        if self.state is not State.CONNECTED:
            return self.not_connected()
        return RequestTimeout(f"nothing arrived on {channel} within {timeout:g} s")

    def send_now(self, request: Optional[bytes], channel: str) -> bool:
        """Sends requests in the order in which the hub created them; threads call it with the lock held. False if
        there is no room."""
        if request is None or self.sock is None:
            return True
        try:
            send(self.sock, request)
            return True
        except BlockingIOError:
            self.hub.not_sent(channel)
            return False
        except OSError:
            return True  # the receiver finds the loss, and the next connection makes the subscription

    def answered(self, channel: str, remaining: float) -> bool:
        """Whether the wait for the server's answer to a subscription has ended. Raises if the server has refused it,
        or is connected and did not answer in time."""
        served = self.hub.served.get(channel)
        if served is Served.REFUSED:
            raise SubscriptionRefused(channel)
        if served is Served.ACTIVE or remaining > 0:
            return served is Served.ACTIVE
        if self.state is State.CONNECTING:
            return True
        raise RequestTimeout(f"the server did not answer the subscription of {channel!r} in time")

    def report(self, error: BaseException, subscription: Optional[Handle]) -> None:
        """Counts, logs and passes on an exception of a callback."""
        self.hub.counters.callback_errors += 1
        where = f" on {subscription.channel}" if subscription is not None else ""
        log.error("exception in a callback%s", where, exc_info=error)
        if self.on_error is not None:
            try:
                self.on_error(error, subscription)
            except Exception:
                log.exception("exception in on_error")


class Handle:
    """The common base of listeners and subscriptions."""

    _inbox: Inbox

    @property
    def channel(self) -> str:
        """The channel."""
        return self._inbox.channel

    @property
    def counters(self) -> ListenerCounters:
        """Counters of the messages."""
        return self._inbox.counters

    @property
    def pending(self) -> int:
        """Number of records in the queue."""
        return len(self._inbox.items)

    @property
    def closed(self) -> bool:
        """Whether the listener or the bus has been closed."""
        return self._inbox.closed

    def _end(self) -> None:
        raise NotImplementedError


class ListenerHandle(Handle, Generic[T]):
    """The common base of listeners."""

    #: How the last record arrived.
    delivery: Optional[Delivery] = None

    def close(self) -> None:
        """Ends the listener. May be called more than once."""
        self._end()

    def __del__(self) -> None:
        try:
            if not self._inbox.closed:
                self._end()
        except Exception:  # the interpreter ends
            pass


class Connection:
    """The properties of a bus."""

    _core: Core

    @property
    def path(self) -> str:
        """The path of the server's socket."""
        return self._core.path

    @property
    def state(self) -> State:
        """State of the connection."""
        return self._core.state

    @property
    def reason(self) -> Reason:
        """Reason for the state."""
        return self._core.reason

    @property
    def cause(self) -> Optional[BaseException]:
        """The system's error that caused the state, if there is one."""
        return self._core.cause

    @property
    def connected(self) -> bool:
        """Whether the server has answered and accepted all subscriptions."""
        return self._core.state is State.CONNECTED

    @property
    def epoch(self) -> int:
        """Number of connections so far."""
        return self._core.hub.epoch

    @property
    def counters(self) -> Counters:
        """Counters of the bus."""
        return self._core.hub.counters
