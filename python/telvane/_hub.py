"""What the blocking and the asyncio bus share: the listeners of each channel, and the dispatch of packets.

Nothing here does input or output, waits, or locks; the bus that owns a hub calls it from one thread at a time.
"""
from __future__ import annotations

import enum
import logging
import uuid
from collections import deque
from typing import Any, Callable, Deque, Dict, List, NamedTuple, Optional, Tuple, Type, Union

from ._packets import MESSAGE_LIMIT, REQUEST_PREFIX, SUBSCRIBE, UNSUBSCRIBE, Decoder, NoPayload, Response, \
    channel_or_response, decoder_of, relay_channel, subscribe_request, unsubscribe_request
from ._record import Record
from .errors import BusClosed, RecordError, RequestTimeout, SubscriptionRefused
from .events import ConnectionLost, ConnectionRestored, Counters, Delivery, Event, ListenerCounters, Reason, \
    RecordsDropped
from .records import CATALOGUE

log = logging.getLogger("telvane")

#: Of a listener, in records.
DEFAULT_QUEUE = 10_000
#: Seconds that the server has for an answer to a new connection.
ANSWER_TIMEOUT = 1.0
FIRST_PAUSE, LONGEST_PAUSE = 0.1, 5.0
# Nobody subscribes to it: the server's answer proves that it accepts this client.
_HELLO = "TelvaneHello"
# Identifiers of requests begin like this, here and in C++, so that an answer to somebody else differs from a record
# with an `_id` of its own.
_ASK = "request:"

What = Union[str, Type[Record]]


def channel_and_class(what: What, channel: Optional[str]) -> Tuple[str, Optional[Type[Record]]]:
    """A class stands for the channel of its name; the name of a class of the catalogue for that class; any other
    name for plain dicts."""
    if isinstance(what, str):
        return channel or what, CATALOGUE.get(what)
    if not (isinstance(what, type) and issubclass(what, Record)):
        raise TypeError(f"a record class or the name of a channel expected, not {what!r}")
    return channel if channel is not None else what.__name__, what


class Arrived(NamedTuple):
    """A message in a queue, which is decoded when it is taken out."""

    data: bytes
    arrival: float
    epoch: int


class Item(NamedTuple):
    """A record taken out of a queue."""

    record: Any
    delivery: Delivery


class Inbox:
    """The bounded queue of one listener.

    One thread puts, another one takes; that needs no lock, because each only works on its end of the deque.
    """

    def __init__(self, hub: Hub, channel: str, cls: Optional[Type[Record]], limit: int, drop: str,
                 with_events: bool) -> None:
        if limit < 1:
            raise ValueError("a queue holds at least one record")
        if drop not in ("oldest", "newest"):
            raise ValueError(f'drop is "oldest" or "newest", not {drop!r}')
        self.hub = hub
        self.channel = channel
        self.decode: Decoder = decoder_of(cls)
        self.limit = limit
        self.drop_oldest = drop == "oldest"
        self.with_events = with_events
        self.items: Deque[Union[Arrived, Event]] = deque()
        self.counters = ListenerCounters()
        self.closed = False
        self.error: Optional[BaseException] = None
        self.wake: Callable[[], None] = lambda: None
        self._gap = 0
        self._gap_with_marks = False
        self._last: Tuple[int, int] = (0, -1)

    def put(self, item: Arrived) -> None:
        self.counters.received += 1
        items = self.items
        if len(items) >= self.limit:
            self.counters.dropped += 1
            self.hub.counters.dropped += 1
            self._gap += 1
            if not self.drop_oldest:
                return
            try:
                if isinstance(items.popleft(), Event):
                    self._gap_with_marks = True
            except IndexError:
                pass
        elif self._gap and not self.drop_oldest:
            self._mark_gap()
        items.append(item)
        self.wake()

    def put_event(self, event: Event) -> None:
        if self.with_events:
            if self._gap and not self.drop_oldest:
                self._mark_gap()
            self.items.append(event)
            self.wake()

    def _mark_gap(self) -> None:
        gap, self._gap = self._gap, 0
        if self.with_events:
            self.items.append(RecordsDropped(gap, channel=self.channel))

    def take(self) -> Union[Item, Event, None]:
        """The next readable record or event; None if there is none."""
        if self._gap and self.with_events and (self.drop_oldest or not self.items):
            gap, self._gap = self._gap, 0
            with_marks, self._gap_with_marks = self._gap_with_marks, False
            return RecordsDropped(gap, with_marks, self.channel)
        items, decode = self.items, self.decode
        while items:
            try:
                item = items.popleft()
            except IndexError:
                return None
            if not isinstance(item, Arrived):
                return item
            data, arrival, epoch = item
            try:
                record, number = decode(data)
            except (RecordError, NoPayload) as error:
                self.counters.invalid += 1
                self.hub.counters.invalid += 1
                log.debug("%s: %s", self.channel, error)
                continue
            last_epoch, last = self._last
            self._last = (epoch, number)
            skipped = (number - last - 1) & 0xFFFF if epoch == last_epoch and last >= 0 else 0
            return Item(record, Delivery(self.channel, number, epoch, skipped, arrival))
        return None

    def refuse_end(self) -> None:
        """Raises if the stream has ended."""
        if self.error is not None:
            raise self.error
        if self.closed:
            raise BusClosed("the listener is closed")

    def fail(self, error: BaseException) -> None:
        """Ends the stream with an error."""
        self.error = error
        self.wake()


class Asked:
    """A request that waits for its answer."""

    def __init__(self, channel: str, cls: Optional[Type[Record]]) -> None:
        self.channel = channel
        self.decode = decoder_of(cls)
        self.id = _ASK + str(uuid.uuid4())
        self.answer: Any = None
        self.error: Optional[BaseException] = None
        self.done = False
        self.wake: Callable[[], None] = lambda: None

    def finish(self, answer: Any, error: Optional[BaseException]) -> None:
        if not self.done:
            self.answer, self.error, self.done = answer, error, True
            self.wake()

    def result(self, timeout: float) -> Any:
        """The answer. Raises what ended the request without one."""
        if self.error is not None:
            raise self.error
        if not self.done:
            raise RequestTimeout(f"no answer on {self.channel} within {timeout:g} s")
        return self.answer

    def offer(self, data: bytes) -> bool:
        """Takes the message if it is the answer: its `_id` is that of this request, or of no request at all."""
        try:
            record = self.decode(data).record
        except (RecordError, NoPayload):
            return False
        identifier = record._id if isinstance(record, Record) else record.get("_id") if isinstance(record, dict) else ""
        if isinstance(identifier, str) and identifier.startswith(_ASK):
            if identifier != self.id:
                return False
            if isinstance(record, Record):
                record._id = ""
            else:
                del record["_id"]
        self.finish(record, None)
        return True


class Served(enum.Enum):
    """State of a subscription at the server, on this connection."""

    ASKED = 1
    ACTIVE = 2
    REFUSED = 3


class Hub:
    """The tables of one bus."""

    def __init__(self) -> None:
        self.counters = Counters()
        # Tuples, so that a listener may end while its channel is served.
        self.inboxes: Dict[str, Tuple[Inbox, ...]] = {}
        self.asked: Dict[str, List[Asked]] = {}
        self.wanted: Dict[str, int] = {}
        self.served: Dict[str, Served] = {}
        #: Requests to the server without an answer yet, in the order in which they were sent.
        self.answers: Deque[Tuple[str, str]] = deque()
        self.online = False
        self.epoch = 0
        self.lost_at = 0.0
        self.responders = 0

    @property
    def urgent(self) -> bool:
        """Whether messages must not be delayed: a request waits here, or a responder here may get requests."""
        return bool(self.asked or self.answers or self.responders)

    # Subscriptions. Each of these returns what has to be sent.

    def acquire(self, channel: str) -> Optional[bytes]:
        """Adds a listener of the channel."""
        self.wanted[channel] = self.wanted.get(channel, 0) + 1
        return self.ask_server(channel)

    def ask_server(self, channel: str) -> Optional[bytes]:
        if not self.online or channel in self.served:
            return None
        self.served[channel] = Served.ASKED
        self.answers.append((SUBSCRIBE, channel))
        return subscribe_request(channel)

    def release(self, channel: str) -> Optional[bytes]:
        """Removes a listener of the channel."""
        self.wanted[channel] -= 1
        if self.wanted[channel]:
            return None
        del self.wanted[channel]
        served = self.served.pop(channel, None)
        if not self.online or served is None or served is Served.REFUSED:
            return None
        self.answers.append((UNSUBSCRIBE, channel))
        return unsubscribe_request(channel)

    def not_sent(self, channel: str) -> None:
        """Takes back the last request, which could not be sent."""
        kind, _ = self.answers.pop()
        if kind == SUBSCRIBE:
            self.served.pop(channel, None)
        else:
            self.served[channel] = Served.ACTIVE  # the server goes on sending, which does no harm

    def add(self, inbox: Inbox) -> Optional[bytes]:
        self.inboxes[inbox.channel] = (*self.inboxes.get(inbox.channel, ()), inbox)
        self.responders += inbox.channel.startswith(REQUEST_PREFIX)
        if self.served.get(inbox.channel) is Served.REFUSED:
            inbox.fail(SubscriptionRefused(inbox.channel))
        return self.acquire(inbox.channel)

    def remove(self, inbox: Inbox) -> Optional[bytes]:
        listeners = self.inboxes.get(inbox.channel, ())
        if inbox not in listeners:
            return None
        self.responders -= inbox.channel.startswith(REQUEST_PREFIX)
        self.inboxes[inbox.channel] = tuple(other for other in listeners if other is not inbox)
        if not self.inboxes[inbox.channel]:
            del self.inboxes[inbox.channel]
        inbox.closed = True
        inbox.wake()
        return self.release(inbox.channel)

    def add_asked(self, asked: Asked) -> Optional[bytes]:
        self.asked.setdefault(asked.channel, []).append(asked)
        return self.acquire(asked.channel)

    def remove_asked(self, asked: Asked) -> Optional[bytes]:
        waiting = self.asked[asked.channel]
        waiting.remove(asked)
        if not waiting:
            del self.asked[asked.channel]
        return self.release(asked.channel)

    # The connection.

    def connected(self) -> None:
        """Starts a new connection. Send what `greeting` returns."""
        self.online = False
        self.epoch += 1
        self.counters.connections += 1
        self.served.clear()
        self.answers.clear()

    def greeting(self) -> List[bytes]:
        """Requests to send on a new connection. Call it again after sending them, until there are none.

        Then listeners may ask the server themselves; earlier, their requests would overtake these. The connection
        stands when `answers` is empty."""
        if self.online:
            return []
        requests = []
        for channel in list(self.wanted):
            if channel not in self.served:
                self.served[channel] = Served.ASKED
                self.answers.append((SUBSCRIBE, channel))
                requests.append(subscribe_request(channel))
        if not requests:
            self.online = True
            self.answers.append((UNSUBSCRIBE, _HELLO))
            requests.append(unsubscribe_request(_HELLO))
        return requests

    def restored(self, now: float) -> None:
        """Marks the connection as established."""
        if self.epoch > 1:
            self.mark(ConnectionRestored(self.epoch, now - self.lost_at if self.lost_at else 0.0))

    def lost(self, now: float, reason: Reason, error: BaseException, was_standing: bool) -> None:
        self.online = False
        self.served.clear()
        self.answers.clear()
        for waiting in list(self.asked.values()):
            for asked in list(waiting):
                asked.finish(None, error)
        if was_standing:
            self.lost_at = now
            self.mark(ConnectionLost(reason, error.__cause__))

    def mark(self, event: Event) -> None:
        for listeners in list(self.inboxes.values()):
            for inbox in listeners:
                inbox.put_event(event)

    def end(self, error: BaseException) -> None:
        """Ends all waits."""
        self.online = False
        for waiting in list(self.asked.values()):
            for asked in list(waiting):
                asked.finish(None, error)
        for listeners in list(self.inboxes.values()):
            for inbox in listeners:
                inbox.closed = True
                inbox.wake()

    # Packets.

    def feed(self, data: bytes, arrival: float) -> None:
        """Passes one packet to its listeners. Never raises, whatever the packet contains."""
        self.counters.packets += 1
        if len(data) >= MESSAGE_LIMIT:
            self.counters.too_large += 1
            return
        channel = relay_channel(data)
        if channel is None:
            try:
                channel, response = channel_or_response(data)
            except ValueError:
                self.counters.not_json += 1
                return
            if response is not None:
                self._answered(response)
                return
        elif self.answers and self.served.get(channel) is Served.ASKED:
            self.served[channel] = Served.ACTIVE  # the server's answer may have found no room
        listeners = self.inboxes.get(channel)
        if listeners is not None:
            item = Arrived(data, arrival, self.epoch)
            for inbox in listeners:
                inbox.put(item)
        if channel in self.asked:
            for asked in list(self.asked[channel]):
                asked.offer(data)
        elif listeners is None:
            self.counters.unexpected += 1

    def _answered(self, response: Response) -> None:
        answer = (response.kind, response.channel)
        if answer not in self.answers:
            self.counters.unexpected += 1
            return
        while self.answers.popleft() != answer:
            pass  # the server answers in order: the answers to these got lost
        if response.kind != SUBSCRIBE or response.channel not in self.served:
            return
        if response.success:
            self.served[response.channel] = Served.ACTIVE
            return
        self.served[response.channel] = Served.REFUSED
        for inbox in self.inboxes.get(response.channel, []):
            inbox.fail(SubscriptionRefused(response.channel))
        for asked in list(self.asked.get(response.channel, [])):
            asked.finish(None, SubscriptionRefused(response.channel))
