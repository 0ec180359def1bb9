"""Messages: the packets of the protocol document, and hostile ones."""
from __future__ import annotations

import json
import pathlib
import re

import pytest

import telvane
from telvane import _packets
from telvane._hub import Hub, Inbox, Item

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
DOCUMENT = (ROOT / "docs/protocol.md").read_text(encoding="utf-8")
PACKETS = re.findall(r"<!-- (\w+) (sends|receives) -->\n```json\n(.*?)\n```", DOCUMENT, re.DOTALL)
SENT = [text for _, what, text in PACKETS if what == "sends"]
RECEIVED = [text for _, what, text in PACKETS if what == "receives"]


def made(text: str) -> bytes:
    """The package's own packet for one of the document."""
    message = json.loads(text)
    header, payload = message["header"], message["payload"]
    if header == ".subscribe":
        return _packets.subscribe_request(payload["channel"])
    if header == ".unsubscribe":
        return _packets.unsubscribe_request(payload["channel"])
    record = telvane.LogData(**payload) if header == "LogData" else telvane.RequestType()
    return _packets.publication(header, record)


def test_the_document_has_packets() -> None:
    assert len(SENT) >= 8 and len(RECEIVED) >= 8


@pytest.mark.parametrize("text", SENT)
def test_a_packet_that_the_document_sends_is_made_to_the_byte(text: str) -> None:
    assert made(text).decode() == text


@pytest.mark.parametrize("text", RECEIVED)
def test_a_packet_that_the_document_receives_is_understood(text: str) -> None:
    message = json.loads(text)
    if "success" in message:
        header, response = _packets.channel_or_response(text.encode())
        assert response == (message["header"], message["channel"], message["success"])
        return
    assert _packets.relay_channel(text.encode()) == message["header"]
    decoded = _packets.decoder_of(telvane.LogData if message["payload"] else telvane.RequestType)(text.encode())
    assert decoded.sequence == message["sequence"]


HOSTILE = [
    b"", b"\0", b"{", b"}", b"null", b"17", b'"text"', b"[]", b"{}", b"\xff\xfe", b"{" * 5000, b"[" * 16383,
    b'{"header":5}', b'{"header":null,"payload":{}}', b'{"header":".subscribe"}',
    b'{"header":".subscribe","channel":5}',
    b'{"header":".subscribe","success":true,"channel":"Never"}', b'{"header":".unsubscribe","success":1,"channel":""}',
    b'{"payload":{"log":"x"}}', b'{"header":"LogData"}', b'{"header":"LogData","payload":null}',
    b'{"header":"LogData","payload":"text"}', b'{"header":"LogData","payload":{"log":5}}',
    b'{"header":"LogData","payload":{}}', b'{"header":"LogData","sequence":"x","payload":{"log":5}}',
    b'{\n\t"header":\t"LogData",\n\t"sequence":\t1', b'{\n\t"header":\t"LogData",\n\t"sequence":\t1,\n\t"payload":\t{',
    b'{\n\t"header":\t"LogData',  b'{\n\t"header":\t"Log\\u0044ata",\n\t"sequence":\t1,\n\t"payload":\t{}\n}',
    b'{\n\t"header":\t"LogData",\n\t"sequence":\t' + b"9" * 5000 + b',\n\t"payload":\t{}\n}', b"x" * 16384,
]


@pytest.mark.parametrize("packet", HOSTILE)
def test_a_hostile_packet_is_counted_and_the_next_record_arrives(packet: bytes) -> None:
    hub = Hub()
    inbox = Inbox(hub, "LogData", telvane.LogData, 10, "oldest", False)
    hub.add(inbox)
    hub.feed(packet, 0.0)
    hub.feed(b'{"header":"LogData","sequence":7,"payload":{"log":"after"}}', 0.0)
    item = inbox.take()
    assert isinstance(item, Item) and item.record == telvane.LogData(log="after") and item.delivery.number == 7
    assert inbox.take() is None
    counters = hub.counters
    assert counters.packets == 2
    assert counters.not_json + counters.too_large + counters.unexpected + counters.invalid == 1


@pytest.mark.parametrize("text, log", [(b'"\xff"', "\udcff"), (b'"a\\u0000b"', "a"), (b'"\x01"', "\x01"),
                                       (b'"\\u00411\\\\"', "A1\\"), (b'"\\u123\\\\"', "")])
def test_odd_texts_arrive_as_in_the_library(text: bytes, log: str) -> None:
    decode = _packets.decoder_of(telvane.LogData)
    packet = b'{\n\t"header":\t"LogData",\n\t"sequence":\t3,\n\t"payload":\t{\n\t\t"log":\t' + text + b"\n\t}\n}"
    assert decode(packet).record.log == log


def test_a_record_that_is_too_large_is_refused_with_its_size() -> None:
    empty = len(_packets.publication("LogData", telvane.LogData()))
    _packets.publication("LogData", telvane.LogData(log="x" * (16363 - empty)))
    with pytest.raises(telvane.TooLarge, match="16364 bytes; 16363 arrive everywhere") as info:
        _packets.publication("LogData", telvane.LogData(log="x" * (16364 - empty)))
    assert (info.value.size, info.value.limit) == (16364, 16363)


def test_a_full_queue_drops_the_oldest_or_the_newest_and_marks_the_place() -> None:
    def fed(drop: str, with_events: bool) -> "tuple[list[object], Inbox]":
        hub = Hub()
        inbox = Inbox(hub, "LogData", telvane.LogData, 2, drop, with_events)
        hub.add(inbox)
        for number in range(5):
            hub.feed(b'{"header":"LogData","sequence":%d,"payload":{"log":"%d"}}' % (number, number), 0.0)
        taken: "list[object]" = []
        while (item := inbox.take()) is not None:
            taken.append(item.record.log if isinstance(item, Item) else item)
        assert inbox.counters.received == 5 and inbox.counters.dropped == 3
        return taken, inbox

    assert fed("oldest", True)[0] == [telvane.RecordsDropped(3), "3", "4"]
    assert fed("newest", True)[0] == ["0", "1", telvane.RecordsDropped(3)]
    (gap, *_), _ = fed("oldest", True)
    assert isinstance(gap, telvane.RecordsDropped) and gap.channel == "LogData"
    assert fed("oldest", False)[0] == ["3", "4"]
    assert fed("newest", False)[0] == ["0", "1"]


def test_skipped_numbers_count_over_the_wrap_and_start_over_after_a_connection() -> None:
    hub = Hub()
    inbox = Inbox(hub, "LogData", telvane.LogData, 10, "oldest", False)
    hub.add(inbox)
    numbers = []
    for epoch, number in ((1, 65530), (1, 65535), (1, 0), (1, 3), (2, 9), (2, 11)):
        hub.epoch = epoch
        hub.feed(b'{"header":"LogData","sequence":%d,"payload":{"log":""}}' % number, 0.0)
        item = inbox.take()
        assert isinstance(item, Item)
        numbers.append(item.delivery.skipped_numbers)
    assert numbers == [0, 4, 0, 2, 0, 1]
