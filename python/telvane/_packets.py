"""The messages of the bus as bytes."""
from __future__ import annotations

import re
from typing import Any, Callable, Dict, NamedTuple, Optional, Tuple, Type

from ._codecs import Codec, codec_of
from ._jsontext import JsonObject, encode_text, lower, parse, print_text
from ._record import Record
from .errors import RecordError, TooLarge

#: Bytes of a message that a receiver can take.
MESSAGE_LIMIT = 16384
#: A publication of this size is relayed whole; the number that the server adds takes up to 20 bytes.
PUBLICATION_LIMIT = 16363
#: Before the name of a channel: the channel of its requests.
REQUEST_PREFIX = "req_"

SUBSCRIBE = ".subscribe"
UNSUBSCRIBE = ".unsubscribe"


def publication(channel: str, record: Record) -> bytes:
    """The message that publishes the record. Raises RecordError or TooLarge."""
    payload = record.payload_text("\t")
    data = encode_text(f'{{\n\t"header":\t{print_text(channel)},\n\t"payload":\t{payload}\n}}')
    if len(data) > PUBLICATION_LIMIT:
        raise TooLarge(len(data), PUBLICATION_LIMIT)
    return data


def subscribe_request(channel: str) -> bytes:
    return encode_text(
        f'{{\n\t"header":\t"{SUBSCRIBE}",\n\t"payload":\t{{\n\t\t"channel":\t{print_text(channel)}\n\t}}\n}}')


def unsubscribe_request(channel: str) -> bytes:
    return encode_text(
        f'{{\n\t"payload":\t{{\n\t\t"channel":\t{print_text(channel)}\n\t}},\n\t"header":\t"{UNSUBSCRIBE}"\n}}')


class Response(NamedTuple):
    """What the server answers to a subscribe or unsubscribe request."""

    kind: str
    channel: str
    success: bool


_RELAY_BEGIN = b'{\n\t"header":\t"'
_RELAY_NEXT = b'",\n\t"sequence":\t'


def relay_channel(data: bytes) -> Optional[str]:
    """The channel of a relay that is printed as the server prints it; None for any other packet."""
    if not data.startswith(_RELAY_BEGIN):
        return None
    end = data.find(b'"', 14)
    if end < 0 or not data.startswith(_RELAY_NEXT, end):
        return None
    channel = data[14:end]
    if b"\\" in channel or b"\0" in channel:
        return None
    return channel.decode("utf-8", "surrogateescape")


def members_of(item: Any) -> Dict[str, Any]:
    """Members by key in small letters; the first of several counts."""
    members: Dict[str, Any] = {}
    if type(item) is JsonObject:
        for key, value in item:
            members.setdefault(lower(key), value)
    return members


def channel_or_response(data: bytes) -> Tuple[str, Optional[Response]]:
    """The channel of any packet, and what it says if it is a response. Raises ValueError if it is not JSON."""
    members = members_of(parse(data))
    header = members.get("header")
    if type(header) is not str:
        header = ""
    if header not in (SUBSCRIBE, UNSUBSCRIBE):
        return header, None
    channel = members.get("channel")
    if type(channel) is not str:
        raise ValueError("a response without a channel")
    return header, Response(header, channel, members.get("success") is True)


class NoPayload(ValueError):
    """The message carries no record."""


def payload_and_sequence(data: bytes) -> Tuple[Any, int]:
    """Raises NoPayload, or RecordError for anything that is not JSON."""
    try:
        members = members_of(parse(data))
    except ValueError as error:
        raise RecordError(str(error)) from None
    if "payload" not in members:
        raise NoPayload("a message without payload")
    sequence = members.get("sequence")
    return members["payload"], int(sequence) if isinstance(sequence, (int, float)) and 0 <= sequence < 65536 else 0


def plain(item: Any) -> Any:
    """A JSON value as dicts and lists."""
    if type(item) is JsonObject:
        result: Dict[str, Any] = {}
        for key, value in item:
            result.setdefault(key, plain(value))
        return result
    if type(item) is list:
        return [plain(value) for value in item]
    return item


class Decoded(NamedTuple):
    record: Any
    sequence: int


Decoder = Callable[[bytes], Decoded]


def _decode_plain(data: bytes) -> Decoded:
    payload, sequence = payload_and_sequence(data)
    return Decoded(plain(payload), sequence)


def decoder_of(cls: Optional[Type[Record]]) -> Decoder:
    """Makes records of the class from packets; plain dicts if there is no class.

    The decoder raises RecordError, or NoPayload.
    """
    if cls is None:
        return _decode_plain
    codec: Codec = codec_of(cls)
    fast = codec.fast(first=1)
    from_item = cls.from_item

    def decode_any(data: bytes) -> Decoded:
        payload, sequence = payload_and_sequence(data)
        return Decoded(from_item(payload), sequence)

    if fast is None:
        return decode_any
    match = re.compile(
        r'\{\n\t"header":\t"[^"\\\x00]*",\n\t"sequence":\t([0-9]{1,5}),\n\t"payload":\t' + fast.pattern + r"\n\}",
        re.ASCII).fullmatch
    build = fast.build

    def decode(data: bytes) -> Decoded:
        try:
            found = match(data.decode())
            if found is not None:
                groups = found.groups()
                return Decoded(build(groups), int(groups[0]))
        except ValueError:  # not UTF-8, or not a number
            pass
        return decode_any(data)

    return decode
