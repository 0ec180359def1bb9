"""The base of all records, and the decorator for your own records."""
from __future__ import annotations

import uuid
from dataclasses import dataclass
from datetime import datetime, timezone
from typing import Any, Type, TypeVar, Union

from ._codecs import EPOCH, TimeCodec, codec_of
from ._jsontext import encode_text, parse
from .errors import RecordError

__all__ = ["DateTime", "Record", "record"]

R = TypeVar("R", bound="Record")


class Record:
    """What every record has: an identifier, a sequence tag, and its JSON text.

    Records compare equal if they are of one class and all their values are equal.
    """

    #: Identifier of the record; empty when it has none.
    _id: str = ""
    #: Sequence number given by the producer; negative when there is none.
    _sequence_tag: int = -1

    def to_json(self) -> str:
        """The record as text, with the same bytes as the library prints.

        Infinite numbers and NaN are printed as ``null``, which no receiver accepts; `check` finds them.
        Raises `RecordError`, which names the field, for a value that the library could not hold.
        """
        try:
            text: str = codec_of(type(self)).write(self, "", False)
        except RecordError as error:
            raise error.inside(type(self).__name__)
        return text

    @classmethod
    def from_json(cls: Type[R], text: Union[str, bytes]) -> R:
        """Reads a record as the library does: keys in any letter case and order, every key required, other keys
        ignored, integers cut to 32 bits.

        Raises `RecordError`, which names the field, if that fails.
        """
        try:
            data = encode_text(text) if isinstance(text, str) else bytes(text)
            item = parse(data)
        except ValueError as error:
            raise RecordError(str(error), cls.__name__) from None
        return cls.from_item(item)

    @classmethod
    def from_item(cls: Type[R], item: Any) -> R:
        """Reads a record from a value that `telvane._jsontext.parse` returned."""
        try:
            record: R = codec_of(cls).read(item)
        except RecordError as error:
            raise error.inside(cls.__name__)
        return record

    def check(self) -> None:
        """Raises `RecordError`, which names the field, unless every receiver can read the record as it is."""
        self.payload_text("")

    def payload_text(self, tabs: str) -> str:
        """The checked record as it is printed in a message, indented by that many tabs."""
        try:
            text: str = codec_of(type(self)).write(self, tabs, True)
        except RecordError as error:
            raise error.inside(type(self).__name__)
        return text

    def generate_id(self) -> None:
        """Sets `_id` to a random UUID, unless it is set."""
        if not self._id:
            self._id = str(uuid.uuid4())

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Record) or type(other) is not type(self):
            return NotImplemented
        names = ["_id", "_sequence_tag", *getattr(type(self), "__dataclass_fields__")]
        return all(getattr(self, name) == getattr(other, name) for name in names)

    __hash__ = None  # type: ignore[assignment]


def record(cls: Type[R]) -> Type[R]:
    """Turns a dataclass into a record. Raises an error for a field that cannot be sent::

        @telvane.record
        @dataclass
        class OvenState(telvane.Record):
            temperature: float = 20.0
            door: Optional[str] = None

    Its channel is its name. Integers may have up to 53 bits, which JSON transports exactly. For a list
    of fixed length, give the length in the metadata: ``field(default_factory=..., metadata={"size": 4})``. ``"limit"``
    is the maximum length of any other list.
    """
    if not issubclass(cls, Record):
        raise TypeError(f"{cls.__name__}: derive it from telvane.Record")
    if "__dataclass_fields__" not in cls.__dict__:
        raise TypeError(f"{cls.__name__}: put @dataclass below @telvane.record")
    codec_of(cls)
    setattr(cls, "__eq__", Record.__eq__)  # what @dataclass made does not compare _id
    return cls


@dataclass(eq=False)
class DateTime(Record):
    """A point in time, in milliseconds. In JSON it is a string, ``/Date(milliseconds)/``, without `_id` and tag.

    Fields of other records that hold one are plain `datetime` objects, in UTC.
    """

    time: datetime = EPOCH
    """The moment."""

    @classmethod
    def now(cls) -> DateTime:
        """The current time."""
        return cls(datetime.now(timezone.utc))


class _DateTimeCodec(TimeCodec):
    def write(self, value: Any, tabs: str, strict: bool) -> str:
        if not isinstance(value, DateTime):
            raise RecordError(f"a DateTime expected, not {value!r:.60}")
        try:
            return super().write(value.time, tabs, strict)
        except RecordError as error:
            raise error.inside("time")

    def read(self, item: Any) -> Any:
        return DateTime(super().read(item))


DateTime._codec = _DateTimeCodec()  # type: ignore[attr-defined]
