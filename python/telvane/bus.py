"""The blocking bus."""
from __future__ import annotations

import atexit
import copy
import logging
import os
import random
import select
import socket
import sys
import threading
import time
import warnings
import weakref
from collections import deque
from types import TracebackType
from typing import Any, Callable, Deque, Iterator, List, Literal, Optional, Type, TypeVar, Union, overload

from ._bus import Connection, Core, Handle, ListenerHandle
from ._hub import ANSWER_TIMEOUT, DEFAULT_QUEUE, FIRST_PAUSE, LONGEST_PAUSE, Asked, Inbox, Item, \
    channel_and_class
from ._packets import MESSAGE_LIMIT, REQUEST_PREFIX, publication
from ._record import Record
from ._socket import Gathering, Reader, checked_path, connect, reason_of, send, wait_for
from .errors import BusClosed, BusError, RequestTimeout, WrongContext
from .events import Delivery, Event, Reason, State, StateChange
from .records import RequestType

__all__ = ["Bus", "Listener", "Subscription"]

log = logging.getLogger("telvane")

R = TypeVar("R", bound=Record)
Q = TypeVar("Q", bound=Record)
T = TypeVar("T")

Path = Union[str, "os.PathLike[str]"]
ErrorHandler = Callable[[BaseException, Optional["Subscription"]], None]

#: Seconds that the threads and callbacks of a bus have to end.
_END_TIMEOUT = 5.0


class _Core(Core):
    """The state and the threads of a bus."""

    def __init__(self, path: str, on_error: Optional[ErrorHandler],
                 on_state: Optional[Callable[[StateChange], None]]) -> None:
        super().__init__(path, on_error, on_state)
        self.lock = threading.RLock()
        self.changed = threading.Condition(self.lock)
        self.receiver = threading.Thread(target=self._receive, name=f"telvane {path}", daemon=True)
        self.caller: Optional[threading.Thread] = None
        self.ready: Deque[Union[Subscription, StateChange]] = deque()
        self.called = threading.Condition(self.lock)

    # The receiver thread.

    def _receive(self) -> None:
        pause = FIRST_PAUSE
        while not self.closing:
            try:
                sock = connect(self.path)
            except OSError as error:
                self._failed(reason_of(error), error)
            else:
                if self._converse(sock):
                    pause = FIRST_PAUSE
            with self.lock:
                if self.closing:
                    return
                # Clients that lost the same server do not all come back at the same moment.
                self.changed.wait_for(lambda: self.closing, pause * random.uniform(0.7, 1.3))
                pause = min(2 * pause, LONGEST_PAUSE)
                if not self.closing:
                    self._set_state(State.CONNECTING, self.reason, self.cause)

    def _failed(self, reason: Reason, cause: Optional[BaseException]) -> None:
        with self.lock:
            self.hub.counters.failed_attempts += 1
            if not self.closing:
                self._set_state(State.WAITING, reason, cause)

    def _set_state(self, state: State, reason: Reason, cause: Optional[BaseException]) -> None:
        """With the lock held."""
        told = self.change(state, reason, cause)
        self.changed.notify_all()
        if told and (not self.closing or state is State.CLOSED):
            self.ready.append(StateChange(state, reason, self.hub.epoch, cause))
            self._need_caller()

    def _converse(self, sock: socket.socket) -> bool:
        """Runs one connection until it is lost. Returns whether it was established."""
        stood = False
        reason = Reason.LOST
        cause: Optional[BaseException] = None
        reader = Reader()
        try:
            with self.lock:
                if self.closing:
                    return False
                self.sock = sock
                self.hub.connected()
            reason = self._greet(sock)
            if reason is not Reason.NONE:
                return False
            stood, reason = True, Reason.LOST
            sock.setblocking(True)
            gathering, pause = Gathering(), 0.0
            while True:
                packets = reader.gathered(sock) if pause else []
                if not packets:
                    packets = reader.read(sock)
                arrival = time.time()
                with self.lock:
                    if not self._feed(packets, arrival):
                        return True
                pause = gathering.pause(len(packets)) if not self.hub.urgent else 0.0
                if pause:
                    time.sleep(pause)
        except OSError as error:
            cause = error
            return stood
        except Exception as error:  # of this package; without this thread, waiting calls would never wake
            log.exception("%s: connecting again after an error of the receiver", self.path)
            cause = error
            return stood
        finally:
            with self.lock:
                self.sock = None
                sock.close()
                if not self.closing:
                    lost = self.not_connected(reason, cause)
                    self.hub.lost(time.monotonic(), reason, lost, stood)
                    if not stood:
                        self.hub.counters.failed_attempts += 1
                    self._set_state(State.WAITING, reason, cause)

    def _feed(self, packets: List[bytes], arrival: float) -> bool:
        """With the lock held. False at the end of the connection."""
        awaited = len(self.hub.answers)
        for packet in packets:
            if not packet:
                return False
            self.hub.feed(packet, arrival)
        if awaited:
            self.changed.notify_all()
        return True

    def _greet(self, sock: socket.socket) -> Reason:
        """Subscribes, and waits for the server's answers."""
        deadline = time.monotonic() + ANSWER_TIMEOUT
        requests: List[bytes] = []
        heard = False
        while True:
            if not requests:
                with self.lock:
                    requests = self.hub.greeting()
                    if not requests and not self.hub.answers:
                        self.hub.restored(time.monotonic())
                        self._set_state(State.CONNECTED, Reason.NONE, None)
                        return Reason.NONE
            try:
                while requests:
                    send(sock, requests[0])
                    del requests[0]
            except BlockingIOError:
                pass
            except ConnectionError:
                return Reason.LOST if heard else Reason.REFUSED
            wanted = select.POLLIN | (select.POLLOUT if requests else 0)
            if not wait_for(sock, wanted, deadline - time.monotonic()):
                return Reason.SILENT
            try:
                packet = sock.recv(MESSAGE_LIMIT)
            except BlockingIOError:
                continue
            except ConnectionError:
                packet = b""
            if not packet:
                return Reason.LOST if heard else Reason.REFUSED
            heard = True
            with self.lock:
                self.hub.feed(packet, time.time())
                self.changed.notify_all()

    # Sending.

    def refuse_here(self, blocking: bool = True) -> None:
        """Raises WrongContext unless the calling thread may wait for the bus."""
        self.refuse_after_fork()
        if blocking and threading.current_thread() is self.caller:
            raise WrongContext("a callback of this bus cannot wait for the bus: "
                               "the records that it waits for may have to pass this callback")
        asyncio = sys.modules.get("asyncio")
        if asyncio is not None:
            try:
                asyncio.get_running_loop()
            except RuntimeError:
                return
            raise WrongContext("this would block the running event loop; use telvane.aio.Bus")

    def send(self, data: bytes, deadline: float) -> None:
        """Sends, waiting for space in the socket and for a connection attempt in progress."""
        while True:
            with self.lock:
                self.await_connection(deadline)
                sock = self.sock
                if sock is None:
                    raise self.not_connected()
                try:
                    send(sock, data)
                    self.hub.counters.published += 1
                    return
                except BlockingIOError:
                    pass
                except OSError as error:
                    raise self.not_connected(Reason.LOST, error) from error
                copy = os.dup(sock.fileno())  # the receiver may close the socket meanwhile
            try:
                poll = select.poll()
                poll.register(copy, select.POLLOUT)
                remaining = deadline - time.monotonic()
                if remaining <= 0 or not poll.poll(min(remaining, 0.1) * 1000) and time.monotonic() >= deadline:
                    raise RequestTimeout("the server does not read: no room to send before the deadline")
            finally:
                os.close(copy)

    def await_connection(self, deadline: float) -> None:
        """With the lock held. Returns when connected; raises when that failed."""
        while self.state is State.CONNECTING and not self.closing:
            remaining = deadline - time.monotonic()
            if remaining <= 0 or not self.changed.wait(remaining):
                break
        if self.state is State.CLOSED or self.closing:
            raise BusClosed("the bus is closed")
        if self.state is not State.CONNECTED:
            raise self.not_connected()

    def subscribed(self, channel: str, sent: bool, deadline: float) -> None:
        """With the lock held. Waits until the server has accepted the subscription; also returns during an outage,
        because the next connection makes it."""
        while self.state in (State.CONNECTING, State.CONNECTED):
            if not sent:
                sent = self.send_now(self.hub.ask_server(channel), channel)
            remaining = deadline - time.monotonic()
            if self.answered(channel, remaining):
                return
            self.changed.wait(min(remaining, 0.005) if sent is False else remaining)

    # The thread of the callbacks.

    def _need_caller(self) -> None:
        """With the lock held."""
        if self.caller is None:
            self.caller = threading.Thread(target=self._call, name=f"telvane callbacks {self.path}", daemon=True)
            self.caller.start()
        self.called.notify()

    def schedule(self, subscription: Subscription) -> None:
        """With the lock held."""
        if not subscription._scheduled:
            subscription._scheduled = True
            self.ready.append(subscription)
            self._need_caller()

    def _call(self) -> None:
        while True:
            with self.lock:
                while not self.ready and not self.closing:
                    self.called.wait()
                if not self.ready:
                    return
                entry = self.ready.popleft()
                if isinstance(entry, StateChange):
                    self.lock.release()
                    try:
                        if self.on_state is not None:
                            self.on_state(entry)
                    except BaseException as error:
                        self.report(error, None)
                    finally:
                        self.lock.acquire()
                    continue
                if entry.closed:
                    continue
                entry._running = True
            try:
                item = entry._inbox.take()
                if item is not None:
                    entry._deliver(item)
            except BaseException as error:
                entry._inbox.counters.callback_errors += 1
                self.report(error, entry)
            finally:
                with self.lock:
                    entry._running = False
                    self.changed.notify_all()
                    if entry._inbox.items:
                        self.ready.append(entry)  # after the others: they take turns
                    else:
                        entry._scheduled = False

    # The end.

    def start(self) -> None:
        _cores.add(self)
        self.receiver.start()

    def close(self, timeout: float) -> None:
        if os.getpid() != self.pid:
            return
        with self.lock:
            if not self.closing:
                self.closing = True
                self.hub.end(BusClosed("the bus was closed"))
                if self.sock is not None:
                    try:
                        self.sock.shutdown(socket.SHUT_RDWR)  # wakes the receiver
                    except OSError:
                        pass
                self._set_state(State.CLOSED, Reason.CLOSED, None)
                self.called.notify_all()
        deadline = time.monotonic() + timeout
        for thread in (self.receiver, self.caller):
            if thread is not None and thread is not threading.current_thread():
                thread.join(max(0.0, deadline - time.monotonic()))
                if thread.is_alive():
                    log.warning("%s: a callback has not ended within %g s", self.path, timeout)
        _cores.discard(self)


_cores: "weakref.WeakSet[_Core]" = weakref.WeakSet()


@atexit.register
def _close_all() -> None:
    """Ends the threads before the interpreter unloads their modules."""
    for core in list(_cores):
        core.close(1.0)


def _after_fork() -> None:
    """A child that keeps its copy of the socket would keep the connection of the parent open."""
    for core in list(_cores):
        if core.sock is not None:
            core.sock.close()
    _cores.clear()


os.register_at_fork(after_in_child=_after_fork)


class _Handle(Handle):
    """What listener and subscription have in common."""

    def __init__(self, core: _Core, inbox: Inbox) -> None:
        self._core = core
        self._inbox = inbox

    def _open(self, timeout: float) -> None:
        core, inbox = self._core, self._inbox
        deadline = time.monotonic() + timeout
        with core.lock:
            if core.closing:
                raise BusClosed("the bus is closed")
            request = core.hub.add(inbox)
            try:
                core.subscribed(inbox.channel, core.send_now(request, inbox.channel), deadline)
            except BusError:
                self._end()
                raise

    def _end(self) -> None:
        if os.getpid() != self._core.pid:
            return
        with self._core.lock:
            self._core.send_now(self._core.hub.remove(self._inbox), self._inbox.channel)


class _Waiter:
    """Wakes the threads that wait for a listener. The inbox refers to this and not to the listener, so that a
    listener out of use ends.

    Does what threading.Condition does, without a new lock for each wait: at thousands of waits a second, that is a
    tenth of the cost of a record."""

    def __init__(self, lock: Any) -> None:
        self._lock = lock
        self._sleepers: List[Any] = []
        self._spare: List[Any] = []

    def wake(self) -> None:
        """With the lock held."""
        while self._sleepers:
            self._sleepers.pop().release()

    def wait(self, timeout: Optional[float]) -> None:
        """With the lock held once; gives it up meanwhile."""
        sleeper = self._spare.pop() if self._spare else threading.Lock()
        sleeper.acquire()
        self._sleepers.append(sleeper)
        self._lock.release()
        try:
            woken = sleeper.acquire(True, -1 if timeout is None else max(0.0, timeout))
        except BaseException:
            self._lock.acquire()
            if sleeper in self._sleepers:
                self._sleepers.remove(sleeper)
            raise
        self._lock.acquire()
        if not woken and sleeper in self._sleepers:
            self._sleepers.remove(sleeper)
        elif not woken:
            sleeper.acquire()  # woken at the same moment
        sleeper.release()
        self._spare.append(sleeper)


class Listener(_Handle, ListenerHandle[T]):
    """Records of one channel, in the order of their arrival, from a queue of their own.

    Iterate over it, or call `recv`. It survives the loss of the connection, and ends when it or the bus is closed.
    """

    def __init__(self, core: _Core, inbox: Inbox, timeout: Optional[float]) -> None:
        super().__init__(core, inbox)
        self._timeout = timeout
        self._waiter = _Waiter(core.lock)
        inbox.wake = self._waiter.wake

    def _next(self, timeout: Optional[float]) -> Any:
        item = self._inbox.take()
        if item is None:
            item = self._wait(timeout)
        if isinstance(item, Item):
            self.delivery = item.delivery
            return item.record
        return item

    def _wait(self, timeout: Optional[float]) -> Union[Item, Event]:
        core, inbox = self._core, self._inbox
        core.refuse_here()
        deadline = None if timeout is None else time.monotonic() + timeout
        while True:
            item = inbox.take()
            if item is not None:
                return item
            with core.lock:
                if inbox.items:
                    continue
                inbox.refuse_end()
                remaining = None if deadline is None else deadline - time.monotonic()
                if remaining is not None and remaining <= 0:
                    raise core.nothing_arrived(inbox.channel, timeout)
                self._waiter.wait(remaining)

    def recv(self, timeout: Optional[float] = None) -> T:
        """The next record, or event.

        Raises RequestTimeout if none comes within `timeout` seconds, NotConnected if there is no connection then,
        BusClosed after the end.
        """
        result: T = self._next(timeout)
        return result

    def __iter__(self) -> Iterator[T]:
        self._core.refuse_here()
        return self

    def __next__(self) -> T:
        try:
            result: T = self._next(self._timeout)
        except (BusClosed, RequestTimeout):
            raise StopIteration from None
        return result

    def __enter__(self) -> Listener[T]:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


class Subscription(_Handle):
    """A callback for the records of one channel, or a responder. It lives as long as the bus, or until `close`."""

    def __init__(self, core: _Core, inbox: Inbox, callback: Callable[[Any, Any], None]) -> None:
        super().__init__(core, inbox)
        self._callback = callback
        self._scheduled = False
        self._running = False
        inbox.wake = self._wake

    def _wake(self) -> None:
        self._core.schedule(self)

    def _deliver(self, item: Union[Item, Event]) -> None:
        if isinstance(item, Item):
            self._callback(item.record, item.delivery)
        else:
            self._callback(item, None)

    def close(self) -> None:
        """Ends the subscription. When this returns, the callback does not run and will not run; a callback that
        closes its own subscription is the exception: it runs to its end."""
        self._end()
        core = self._core
        if os.getpid() != core.pid or threading.current_thread() is core.caller:
            return
        with core.lock:
            if not core.changed.wait_for(lambda: not self._running, _END_TIMEOUT):
                raise RequestTimeout(f"the callback on {self.channel} still runs after {_END_TIMEOUT:g} s")

    def __enter__(self) -> Subscription:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


class Bus(Connection):
    """A connection to a server. After each loss, it reconnects and resubscribes.

    It connects in the background, and the constructor does not wait for it. All methods may be called from any
    thread. Those that wait are refused with WrongContext in callbacks of the same bus, on a thread with a running
    event loop, and after a fork.

    `on_error` is called with each exception of a callback and its subscription, which is None for `on_state`; such
    exceptions are also logged and counted, and the bus goes on. `on_state` is called with each StateChange.
    """

    _core: _Core

    def __init__(self, path: Path, *, on_error: Optional[ErrorHandler] = None,
                 on_state: Optional[Callable[[StateChange], None]] = None, publish_timeout: float = 1.0) -> None:
        core = _Core(checked_path(path), on_error, on_state)
        #: Seconds that `publish` has by default.
        self.publish_timeout = publish_timeout
        core.start()
        self._core = core

    def _checked(self, blocking: bool = True) -> _Core:
        self._core.refuse_here(blocking)
        return self._core

    def wait_connected(self, timeout: float = 5.0) -> None:
        """Returns when the bus is connected; raises NotConnected if it is not within `timeout` seconds."""
        core = self._checked()
        with core.lock:
            core.changed.wait_for(lambda: core.state is State.CONNECTED or core.closing, timeout)
            if core.closing:
                raise BusClosed("the bus is closed")
            if core.state is not State.CONNECTED:
                raise core.not_connected()

    def publish(self, record: Record, channel: Optional[str] = None, *, timeout: Optional[float] = None) -> None:
        """Publishes a record, by default on the channel with the name of its class.

        Returns when the message is sent. Raises RecordError for a record that no receiver could read, TooLarge,
        NotConnected at once during an outage (but waits for a first attempt that is under way), RequestTimeout
        when the server does not read within the deadline. May be called in callbacks.
        """
        core = self._checked(blocking=False)
        data = publication(channel if channel is not None else type(record).__name__, record)
        core.send(data, time.monotonic() + (self.publish_timeout if timeout is None else timeout))

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
        """Listens to the records of a class, or to a channel by name. If no class has that name, records are dicts.

        The queue starts to fill now. A loop over the listener ends `timeout` seconds after the last record; without
        a connection at that moment it raises NotConnected. A full queue drops the `oldest` or the `newest` records
        and counts them. With `with_events=True` the stream has marks: ConnectionLost, ConnectionRestored and
        RecordsDropped.
        """
        core = self._checked(blocking=False)
        name, cls = channel_and_class(what, channel)
        listener: Listener[Any] = Listener(core, Inbox(core.hub, name, cls, queue, drop, with_events), timeout)
        listener._open(self.publish_timeout)
        return listener

    def subscribe(self, what: Union[str, Type[R]], callback: Callable[[R, Delivery], None], *,
                  channel: Optional[str] = None, queue: int = DEFAULT_QUEUE,
                  drop: Literal["oldest", "newest"] = "oldest") -> Subscription:
        """Calls `callback(record, delivery)` for each record, on one thread for all callbacks of the bus.

        A callback may publish, subscribe and close; what waits for records is refused there.
        """
        core = self._checked(blocking=False)
        name, cls = channel_and_class(what, channel)
        subscription = Subscription(core, Inbox(core.hub, name, cls, queue, drop, False), callback)
        subscription._open(self.publish_timeout)
        return subscription

    @overload
    def request(self, what: Type[R], question: Optional[Record] = ..., *, channel: Optional[str] = ...,
                timeout: float = ...) -> R: ...

    @overload
    def request(self, what: str, question: Optional[Record] = ..., *, channel: Optional[str] = ...,
                timeout: float = ...) -> Any: ...

    def request(self, what: Union[str, Type[Record]], question: Optional[Record] = None, *,
                channel: Optional[str] = None, timeout: float = 1.0) -> Any:
        """Requests a record and returns the answer.

        The question, an empty record unless one is given, is published on the channel ``req_`` and the name. The
        answer is the record with the question's `_id`, which responders of this package and of the C++ class Bus
        repeat, or the next one without such an `_id`. The bus cannot tell whether there is a
        responder: without one, RequestTimeout is raised. If the connection is lost, NotConnected is raised.
        """
        core = self._checked()
        deadline = time.monotonic() + timeout
        name, cls = channel_and_class(what, channel)
        asked = Asked(name, cls)
        data = question_packet(name, question, asked)
        with core.lock:
            core.await_connection(deadline)
            asked.wake = core.changed.notify_all
            request = core.hub.add_asked(asked)
            try:
                core.subscribed(name, core.send_now(request, name), deadline)
                if asked.error is None:
                    self._ask(core, data, deadline)
                core.changed.wait_for(lambda: asked.done, max(0.0, deadline - time.monotonic()))
            finally:
                core.send_now(core.hub.remove_asked(asked), name)
        return asked.result(timeout)

    @staticmethod
    def _ask(core: _Core, data: bytes, deadline: float) -> None:
        """With the lock held, which is released while there is no space in the socket."""
        while core.sock is not None:
            try:
                send(core.sock, data)
                core.hub.counters.published += 1
                return
            except BlockingIOError:
                remaining = deadline - time.monotonic()
                if remaining <= 0:
                    raise RequestTimeout("the server does not read: no room to send before the deadline") from None
                core.changed.wait(min(0.005, remaining))
            except OSError as error:
                raise core.not_connected(Reason.LOST, error) from error
        raise core.not_connected()

    @overload
    def respond(self, what: Type[R], function: Callable[[], R], *, channel: Optional[str] = ...) -> Subscription: ...

    @overload
    def respond(self, what: Type[R], function: Callable[[Q], R], *, question: Type[Q],
                channel: Optional[str] = ...) -> Subscription: ...

    def respond(self, what: Type[R], function: Callable[..., R], *, question: Optional[Type[Record]] = None,
                channel: Optional[str] = None) -> Subscription:
        """Answers requests for a class with what `function` returns, until the handle is closed.

        With `question=Class` the question is read as that class and handed to the function.
        """
        core = self._checked(blocking=False)
        name, _ = channel_and_class(what, channel)
        timeout = self.publish_timeout

        def answer(asked: Any, _: Any) -> None:
            record = function(asked) if question is not None else function()
            core.send(answer_packet(name, record, asked), time.monotonic() + timeout)

        inbox = Inbox(core.hub, REQUEST_PREFIX + name, question or RequestType, DEFAULT_QUEUE, "oldest", False)
        subscription = Subscription(core, inbox, answer)
        subscription._open(timeout)
        return subscription

    def close(self, timeout: float = _END_TIMEOUT) -> None:
        """Ends all listeners, callbacks and threads, within `timeout`. May be called more than once."""
        self._core.close(timeout)

    def __enter__(self) -> Bus:
        if self._core.closing:
            raise BusClosed("the bus is closed; make another one")
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        self.close()

    def __del__(self) -> None:
        core = getattr(self, "_core", None)
        if core is not None and not core.closing and os.getpid() == core.pid:
            warnings.warn(f"unclosed {self!r}", ResourceWarning, source=self)
            core.close(1.0)

    def __repr__(self) -> str:
        return f"<telvane.Bus {self.path} {self.state.value}>"


def question_packet(name: str, question: Optional[Record], asked: Asked) -> bytes:
    """The request, with the identifier that its answer repeats."""
    record = RequestType() if question is None else copy.copy(question)
    record._id = asked.id
    return publication(REQUEST_PREFIX + name, record)


def answer_packet(name: str, record: Record, asked: Any) -> bytes:
    """The answer, with the identifier of the request."""
    identifier = getattr(asked, "_id", "")
    if identifier:
        record = copy.copy(record)
        record._id = identifier
    return publication(name, record)
