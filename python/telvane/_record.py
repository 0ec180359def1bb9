"""The base of all records, and the decorator for records of one's own."""
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
        """The record as the library prints it, to the byte.

        Numbers that are not finite are printed as ``null``, which no receiver accepts; `check` finds them.
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
        """Reads a record from a value that `telvane._jsontext.parse` has made."""
        try:
            record: R = codec_of(cls).read(item)
        except RecordError as error:
            raise error.inside(cls.__name__)
        return record

    def check(self) -> None:
        """Raises `RecordError`, which names the field, unless every receiver can read the record as it is."""
        self.payload_text("")

    def payload_text(self, tabs: str) -> str:
        """The checked record as it is printed inside a message, that many tabs deep."""
        try:
            text: str = codec_of(type(self)).write(self, tabs, True)
        except RecordError as error:
            raise error.inside(type(self).__name__)
        return text

    def generate_id(self) -> None:
        """Gives the record a random UUID as `_id`, unless it has one."""
        if not self._id:
            self._id = str(uuid.uuid4())

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Record) or type(other) is not type(self):
            return NotImplemented
        names = ["_id", "_sequence_tag", *getattr(type(self), "__dataclass_fields__")]
        return all(getattr(self, name) == getattr(other, name) for name in names)

    __hash__ = None  # type: ignore[assignment]


def record(cls: Type[R]) -> Type[R]:
    """Makes a dataclass a record, and says at once which of its fields cannot travel::

        @telvane.record
        @dataclass
        class OvenState(telvane.Record):
            temperature: float = 20.0
            door: Optional[str] = None

    Its channel is its name. Whole numbers may have up to 53 bits, what JSON carries exactly. A list of a fixed
    length has it in its metadata: ``field(default_factory=..., metadata={"size": 4})``; the greatest length of
    another one is ``"limit"``.
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
    """A point in time, of milliseconds. In JSON it is a text, ``/Date(milliseconds)/``, without `_id` and tag.

    Fields of other records that hold one are plain `datetime` objects, in UTC.
    """

    time: datetime = EPOCH
    """The moment."""

    @classmethod
    def now(cls) -> DateTime:
        """The present moment."""
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
