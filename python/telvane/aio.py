"""The bus for asyncio: the same names and rules as the blocking one, without a thread.

asyncio's Unix connections support only stream sockets, so the socket is read with `add_reader`.
"""
from __future__ import annotations

import asyncio
import inspect
import logging
import os
import random
import socket
import time
import warnings
from types import TracebackType
from typing import Any, AsyncIterator, Awaitable, Callable, List, Literal, Optional, Set, Type, TypeVar, \
    Union, overload

from ._bus import Connection, Core, Handle, ListenerHandle
from ._hub import ANSWER_TIMEOUT, DEFAULT_QUEUE, FIRST_PAUSE, LONGEST_PAUSE, Asked, Inbox, Item, \
    channel_and_class
from ._packets import MESSAGE_LIMIT, REQUEST_PREFIX, publication
from ._record import Record
from ._socket import BATCH, Gathering, checked_path, connect, reason_of, send
from .bus import Path, answer_packet, question_packet
from .errors import BusClosed, BusError, RequestTimeout, WrongContext
from .events import Delivery, Event, Reason, State, StateChange
from .records import RequestType

__all__ = ["Bus", "Listener", "Subscription"]

log = logging.getLogger("telvane")

R = TypeVar("R", bound=Record)
Q = TypeVar("Q", bound=Record)
T = TypeVar("T")

Answer = Union[R, Awaitable[R]]
ErrorHandler = Callable[[BaseException, Optional["Subscription"]], None]


def _finish(future: asyncio.Future[None]) -> None:
    if not future.done():
        future.set_result(None)


class _Signal:
    """Wakes all tasks that wait for a change. A waiter takes nothing from it, so cancelling one loses nothing."""

    def __init__(self) -> None:
        self._futures: Set[asyncio.Future[None]] = set()

    def set(self) -> None:
        for future in self._futures:
            _finish(future)

    async def wait(self, deadline: Optional[float]) -> None:
        """Returns at the next change, or at the deadline (of the loop's clock)."""
        loop = asyncio.get_running_loop()
        future: asyncio.Future[None] = loop.create_future()
        self._futures.add(future)
        timer = None if deadline is None else loop.call_at(deadline, _finish, future)
        try:
            await future
        finally:
            self._futures.discard(future)
            if timer is not None:
                timer.cancel()


class _Core(Core):
    """The state of a bus, and what the loop calls."""

    def __init__(self, path: str, on_error: Optional[ErrorHandler],
                 on_state: Optional[Callable[[StateChange], None]]) -> None:
        super().__init__(path, on_error, on_state)
        self.loop: Optional[asyncio.AbstractEventLoop] = None
        self.changed = _Signal()
        self.writable = _Signal()
        self.requests: List[bytes] = []
        self.heard = False
        self.stands = False
        self.pause = FIRST_PAUSE
        self.timer: Optional[asyncio.TimerHandle] = None
        self.gathering = Gathering()
        self.reading: Optional[asyncio.TimerHandle] = None
        self.tasks: Set[asyncio.Task[None]] = set()

    def refuse_here(self) -> asyncio.AbstractEventLoop:
        self.refuse_after_fork()
        if self.closing:
            raise BusClosed("the bus is closed")
        if self.loop is None:
            raise BusError("enter the bus first: async with telvane.aio.Bus(path) as bus")
        try:
            running: Optional[asyncio.AbstractEventLoop] = asyncio.get_running_loop()
        except RuntimeError:
            running = None
        if running is not self.loop:
            raise WrongContext("this bus belongs to another event loop")
        return self.loop

    # The connection.

    def connect(self) -> None:
        assert self.loop is not None
        self.timer = None
        self.set_state(State.CONNECTING, self.reason, self.cause)
        try:
            self.sock = connect(self.path)
        except OSError as error:
            self.hub.counters.failed_attempts += 1
            self.set_state(State.WAITING, reason_of(error), error)
            self.try_later()
            return
        self.hub.connected()
        self.heard = self.stands = False
        self.requests = []
        self.gathering = Gathering()
        self.loop.add_reader(self.sock.fileno(), self.read)
        self.timer = self.loop.call_later(ANSWER_TIMEOUT, self.lost, Reason.SILENT, None)
        self.greet()

    def greet(self) -> None:
        """Subscribes. The connection is established with the server's last answer."""
        while self.sock is not None:
            if not self.requests:
                self.requests = self.hub.greeting()
            if not self.requests:
                break
            try:
                send(self.sock, self.requests[0])
            except BlockingIOError:
                self.await_room()
                return
            except OSError as error:
                self.lost(Reason.LOST if self.heard else Reason.REFUSED, error)
                return
            del self.requests[0]
        if self.sock is not None and not self.hub.answers:
            self.stands = True
            self.pause = FIRST_PAUSE
            if self.timer is not None:
                self.timer.cancel()
                self.timer = None
            self.hub.restored(time.monotonic())
            self.set_state(State.CONNECTED, Reason.NONE, None)

    def try_later(self) -> None:
        assert self.loop is not None
        self.timer = self.loop.call_later(self.pause * random.uniform(0.7, 1.3), self.connect)
        self.pause = min(2 * self.pause, LONGEST_PAUSE)

    def read(self) -> None:
        """Reads packets that have arrived, but only some of them, so that other tasks can run."""
        awaited = len(self.hub.answers)
        arrival = time.time()
        packets = 0
        for _ in range(BATCH):
            if self.sock is None:
                return
            try:
                packet = self.sock.recv(MESSAGE_LIMIT)
            except BlockingIOError:
                break
            except OSError as error:
                self.lost(Reason.LOST if self.heard else Reason.REFUSED, error)
                return
            if not packet:
                self.lost(Reason.LOST if self.heard else Reason.REFUSED, None)
                return
            self.heard = True
            packets += 1
            try:
                self.hub.feed(packet, arrival)
            except Exception as error:  # of this package; the loop would go on calling
                log.exception("%s: connecting again after an error of the receiver", self.path)
                self.lost(Reason.LOST, error)
                return
        self.gather(packets)
        if awaited:
            self.changed.set()
            if not self.stands:
                self.greet()

    def gather(self, packets: int) -> None:
        """Reads at intervals while packets arrive close together, otherwise when the socket is readable."""
        assert self.loop is not None and self.sock is not None
        pause = self.gathering.pause(packets)
        if pause and packets and not self.hub.urgent:
            if self.reading is None:
                self.loop.remove_reader(self.sock.fileno())
            self.reading = self.loop.call_later(pause if packets < BATCH else 0, self.read)
        elif self.reading is not None:
            self.reading = None
            self.loop.add_reader(self.sock.fileno(), self.read)

    def disconnect(self) -> None:
        if self.reading is not None:
            self.reading.cancel()
            self.reading = None
        if self.timer is not None:
            self.timer.cancel()
            self.timer = None
        if self.sock is not None:
            assert self.loop is not None
            self.loop.remove_reader(self.sock.fileno())
            self.loop.remove_writer(self.sock.fileno())
            try:
                self.sock.shutdown(socket.SHUT_RDWR)  # a child that was forked keeps a copy
            except OSError:
                pass
            self.sock.close()
            self.sock = None
        self.writable.set()

    def lost(self, reason: Reason, cause: Optional[BaseException]) -> None:
        self.disconnect()
        self.hub.lost(time.monotonic(), reason, self.not_connected(reason, cause), self.stands)
        if not self.stands:
            self.hub.counters.failed_attempts += 1
        self.set_state(State.WAITING, reason, cause)
        self.try_later()

    def set_state(self, state: State, reason: Reason, cause: Optional[BaseException]) -> None:
        told = self.change(state, reason, cause)
        self.changed.set()
        if told and self.on_state is not None:
            try:
                self.on_state(StateChange(state, reason, self.hub.epoch, cause))
            except Exception as error:
                self.report(error, None)

    # Sending.

    def await_room(self) -> None:
        assert self.loop is not None and self.sock is not None
        self.loop.add_writer(self.sock.fileno(), self.room)

    def room(self) -> None:
        if self.sock is not None:
            assert self.loop is not None
            self.loop.remove_writer(self.sock.fileno())
        self.writable.set()
        if self.requests:
            self.greet()

    async def until(self, condition: Callable[[], bool], deadline: float) -> bool:
        assert self.loop is not None
        while not condition():
            if self.loop.time() >= deadline:
                return False
            await self.changed.wait(deadline)
        return True

    async def await_connection(self, deadline: float) -> None:
        await self.until(lambda: self.state is not State.CONNECTING or self.closing, deadline)
        if self.closing:
            raise BusClosed("the bus is closed")
        if self.state is not State.CONNECTED:
            raise self.not_connected()

    async def send(self, data: bytes, deadline: float) -> None:
        assert self.loop is not None
        while True:
            await self.await_connection(deadline)
            assert self.sock is not None
            try:
                send(self.sock, data)
                self.hub.counters.published += 1
                return
            except BlockingIOError:
                if self.loop.time() >= deadline:
                    raise RequestTimeout("the server does not read: no room to send before the deadline") from None
            except OSError as error:
                raise self.not_connected(Reason.LOST, error) from error
            self.await_room()
            await self.writable.wait(deadline)

    async def subscribed(self, channel: str, deadline: float) -> None:
        """Waits until the server has accepted the subscription; also returns during an outage."""
        assert self.loop is not None
        while self.state in (State.CONNECTING, State.CONNECTED):
            if self.answered(channel, deadline - self.loop.time()):
                return
            if self.state is State.CONNECTED and channel not in self.hub.served:
                if not self.send_now(self.hub.ask_server(channel), channel):
                    self.await_room()
                    await self.writable.wait(deadline)
                    continue
            await self.changed.wait(deadline)

    async def close(self, timeout: float) -> None:
        if self.closing or os.getpid() != self.pid:
            return
        self.closing = True
        self.hub.end(BusClosed("the bus was closed"))
        if self.loop is None:
            return
        self.disconnect()
        self.set_state(State.CLOSED, Reason.CLOSED, None)
        tasks = [task for task in self.tasks if task is not asyncio.current_task()]
        for task in tasks:
            task.cancel()
        if tasks:
            _, running = await asyncio.wait(tasks, timeout=timeout)
            if running:
                log.warning("%s: %d callbacks have not ended within %g s", self.path, len(running), timeout)


class _Handle(Handle):
    """What listener and subscription have in common."""

    def __init__(self, core: _Core, inbox: Inbox) -> None:
        self._core = core
        self._inbox = inbox
        self._signal = _Signal()
        inbox.wake = self._signal.set
        core.send_now(core.hub.add(inbox), inbox.channel)

    async def ready(self, timeout: float = 1.0) -> None:
        """Returns when the server has accepted the subscription, or at once during an outage."""
        core = self._core
        await core.subscribed(self.channel, core.refuse_here().time() + timeout)

    async def _take(self, timeout: Optional[float]) -> Union[Item, Event]:
        core, inbox = self._core, self._inbox
        item = inbox.take()
        if item is not None:
            return item
        loop = asyncio.get_running_loop()
        deadline = None if timeout is None else loop.time() + timeout
        while True:
            inbox.refuse_end()
            if deadline is not None and loop.time() >= deadline:
                raise core.nothing_arrived(inbox.channel, timeout)
            await self._signal.wait(deadline)
            item = inbox.take()
            if item is not None:
                return item

    def _end(self) -> None:
        if os.getpid() == self._core.pid and not self._inbox.closed:
            self._core.send_now(self._core.hub.remove(self._inbox), self._inbox.channel)


class Listener(_Handle, ListenerHandle[T]):
    """Records of one channel, in the order of their arrival, from a queue of their own.

    Iterate over it with ``async for``, or await `recv`. It survives the loss of the connection, and ends when it or
    the bus is closed.
    """

    def __init__(self, core: _Core, inbox: Inbox, timeout: Optional[float]) -> None:
        super().__init__(core, inbox)
        self._timeout = timeout
        self._taken = 0

    async def _next(self, timeout: Optional[float]) -> Any:
        self._taken += 1
        if self._taken % BATCH == 0:
            await asyncio.sleep(0)  # a full queue does not keep other tasks from running
        item = await self._take(timeout)
        if isinstance(item, Item):
            self.delivery = item.delivery
            return item.record
        return item

    async def recv(self, timeout: Optional[float] = None) -> T:
        """The next record, or event.

        Raises RequestTimeout if none comes within `timeout` seconds, NotConnected if there is no connection then,
        BusClosed after the end. When it is cancelled, no record is lost.
        """
        result: T = await self._next(timeout)
        return result

    def __aiter__(self) -> AsyncIterator[T]:
        return self

    async def __anext__(self) -> T:
        try:
            result: T = await self._next(self._timeout)
        except (BusClosed, RequestTimeout):
            raise StopAsyncIteration from None
        return result

    async def __aenter__(self) -> Listener[T]:
        try:
            await self.ready()
        except BaseException:
            self.close()
            raise
        return self

    async def __aexit__(self, *_: object) -> None:
        self.close()


class Subscription(_Handle):
    """A callback for the records of one channel, or a responder, in a task of its own. It lives as long as the bus,
    or until `close`."""

    def __init__(self, core: _Core, inbox: Inbox, callback: Callable[[Any, Any], Any]) -> None:
        super().__init__(core, inbox)
        self._callback = callback
        assert core.loop is not None
        self._task = core.loop.create_task(self._run())
        core.tasks.add(self._task)
        self._task.add_done_callback(core.tasks.discard)

    async def _run(self) -> None:
        taken = 0
        while True:
            try:
                item = await self._take(None)
            except BusClosed:
                return
            except BusError as error:
                self._core.report(error, self)
                return
            taken += 1
            if taken % BATCH == 0:
                await asyncio.sleep(0)
            if not isinstance(item, Item):
                continue
            try:
                result = self._callback(item.record, item.delivery)
                if inspect.isawaitable(result):
                    await result
            except (Exception, SystemExit) as error:
                self._inbox.counters.callback_errors += 1
                self._core.report(error, self)

    async def close(self) -> None:
        """Ends the subscription; a callback that runs is cancelled and awaited. In its own callback it takes effect
        when that returns."""
        self._end()
        if self._task is not asyncio.current_task():
            self._task.cancel()
            await asyncio.wait([self._task])

    async def __aenter__(self) -> Subscription:
        try:
            await self.ready()
        except BaseException:
            await self.close()
            raise
        return self

    async def __aexit__(self, *_: object) -> None:
        await self.close()


class Bus(Connection):
    """A connection to a server. After each loss, it reconnects and resubscribes.

    It can be created anywhere. It starts with ``async with`` and belongs to that event loop. Callbacks may be functions
    or coroutine functions. `on_error` is called with each exception of a callback and its subscription, which is
    None for `on_state`; such exceptions are also logged and counted, and the bus goes on. `on_state` is called with
    each StateChange.
    """

    _core: _Core

    def __init__(self, path: Path, *, on_error: Optional[ErrorHandler] = None,
                 on_state: Optional[Callable[[StateChange], None]] = None, publish_timeout: float = 1.0) -> None:
        #: Seconds that `publish` has by default.
        self.publish_timeout = publish_timeout
        self._core = _Core(checked_path(path), on_error, on_state)

    async def wait_connected(self, timeout: float = 5.0) -> None:
        """Returns when the bus is connected; raises NotConnected if it is not within `timeout` seconds."""
        core = self._core
        deadline = core.refuse_here().time() + timeout
        await core.until(lambda: core.state is State.CONNECTED or core.closing, deadline)
        if core.closing:
            raise BusClosed("the bus is closed")
        if core.state is not State.CONNECTED:
            raise core.not_connected()

    async def publish(self, record: Record, channel: Optional[str] = None, *, timeout: Optional[float] = None) -> None:
        """Publishes a record, as `telvane.Bus.publish` does."""
        core = self._core
        deadline = core.refuse_here().time() + (self.publish_timeout if timeout is None else timeout)
        await core.send(publication(channel if channel is not None else type(record).__name__, record), deadline)

    @overload
    def listen(self, what: Type[R], *, channel: Optional[str] = ..., timeout: Optional[float] = ..., queue: int = ...,
               drop: Literal["oldest", "newest"] = ...) -> Listener[R]: ...

    @overload
    def listen(self, what: Type[R], *, with_events: Literal[True], channel: Optional[str] = ...,
               timeout: Optional[float] = ..., queue: int = ...,
               drop: Literal["oldest", "newest"] = ...) -> Listener[Union[R, Event]]: ...

    @overload
    def listen(self, what: str, *, channel: Optional[str] = ..., timeout: Optional[float] = ..., queue: int = ...,
               drop: Literal["oldest", "newest"] = ..., with_events: bool = ...) -> Listener[Any]: ...

    def listen(self, what: Union[str, Type[R]], *, channel: Optional[str] = None, timeout: Optional[float] = None,
               queue: int = DEFAULT_QUEUE, drop: str = "oldest", with_events: bool = False) -> Listener[Any]:
        """Listens, as `telvane.Bus.listen` does. The request is sent now; ``async with`` waits for the answer."""
        core = self._core
        core.refuse_here()
        name, cls = channel_and_class(what, channel)
        return Listener(core, Inbox(core.hub, name, cls, queue, drop, with_events), timeout)

    def subscribe(self, what: Union[str, Type[R]], callback: Callable[[R, Delivery], Any], *,
                  channel: Optional[str] = None, queue: int = DEFAULT_QUEUE,
                  drop: Literal["oldest", "newest"] = "oldest") -> Subscription:
        """Calls `callback(record, delivery)` for each record and awaits what it returns."""
        core = self._core
        core.refuse_here()
        name, cls = channel_and_class(what, channel)
        return Subscription(core, Inbox(core.hub, name, cls, queue, drop, False), callback)

    @overload
    async def request(self, what: Type[R], question: Optional[Record] = ..., *, channel: Optional[str] = ...,
                      timeout: float = ...) -> R: ...

    @overload
    async def request(self, what: str, question: Optional[Record] = ..., *, channel: Optional[str] = ...,
                      timeout: float = ...) -> Any: ...

    async def request(self, what: Union[str, Type[Record]], question: Optional[Record] = None, *,
                      channel: Optional[str] = None, timeout: float = 1.0) -> Any:
        """Requests a record and returns the answer, as `telvane.Bus.request` does."""
        core = self._core
        deadline = core.refuse_here().time() + timeout
        name, cls = channel_and_class(what, channel)
        asked = Asked(name, cls)
        data = question_packet(name, question, asked)
        await core.await_connection(deadline)
        asked.wake = core.changed.set
        core.send_now(core.hub.add_asked(asked), name)
        try:
            await core.subscribed(name, deadline)
            if asked.error is None:
                await core.send(data, deadline)
            await core.until(lambda: asked.done, deadline)
        finally:
            core.send_now(core.hub.remove_asked(asked), name)
        return asked.result(timeout)

    @overload
    def respond(self, what: Type[R], function: Callable[[], Answer[R]], *,
                channel: Optional[str] = ...) -> Subscription: ...

    @overload
    def respond(self, what: Type[R], function: Callable[[Q], Answer[R]], *, question: Type[Q],
                channel: Optional[str] = ...) -> Subscription: ...

    def respond(self, what: Type[R], function: Callable[..., Answer[R]], *, question: Optional[Type[Record]] = None,
                channel: Optional[str] = None) -> Subscription:
        """Answers requests for a class with what `function` returns, until the handle is closed."""
        core = self._core
        core.refuse_here()
        name, _ = channel_and_class(what, channel)
        timeout = self.publish_timeout

        async def answer(asked: Any, _: Any) -> None:
            result = function(asked) if question is not None else function()
            record = await result if inspect.isawaitable(result) else result
            assert core.loop is not None
            await core.send(answer_packet(name, record, asked), core.loop.time() + timeout)

        inbox = Inbox(core.hub, REQUEST_PREFIX + name, question or RequestType, DEFAULT_QUEUE, "oldest", False)
        return Subscription(core, inbox, answer)

    async def close(self, timeout: float = 5.0) -> None:
        """Ends all listeners, callbacks and tasks. May be called more than once."""
        await self._core.close(timeout)

    async def __aenter__(self) -> Bus:
        core = self._core
        if core.closing:
            raise BusClosed("the bus is closed; make another one")
        if core.loop is not None:
            raise BusError("the bus has been entered already")
        core.loop = asyncio.get_running_loop()
        core.connect()
        return self

    async def __aexit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                        traceback: Optional[TracebackType]) -> None:
        await self.close()

    def __del__(self) -> None:
        core = getattr(self, "_core", None)
        if core is not None and core.loop is not None and not core.closing and os.getpid() == core.pid:
            warnings.warn(f"unclosed {self!r}", ResourceWarning, source=self)
            if core.sock is not None:
                if not core.loop.is_closed():
                    core.disconnect()
                else:
                    core.sock.close()
            core.closing = True

    def __repr__(self) -> str:
        return f"<telvane.aio.Bus {self.path} {self.state.value}>"
