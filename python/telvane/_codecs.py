"""Prints and reads the fields of records.

A class has one `RecordCodec`, made from its annotations when it is first needed. Where a record arrives printed as
the library prints it, which is nearly always, one regular expression made for the class takes all its values out
of the text at once. Any other text is read by `_jsontext.parse` and searched key by key.
"""
from __future__ import annotations

import enum
import math
import re
import sys
from dataclasses import MISSING, fields, is_dataclass
from datetime import datetime, timedelta, timezone
from typing import Any, Callable, Dict, List, NamedTuple, Optional, Sequence, Tuple, Union, get_args, get_origin, \
    get_type_hints

from ._jsontext import JsonObject, lower, print_number, print_text
from .errors import RecordError

EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)
INT_MIN, INT_MAX = -(2**31), 2**31 - 1
#: Whole numbers beyond this are not exact in JSON, whose numbers are doubles.
EXACT_INT_MAX = 2**53
_INT64_MAX = 2**63 - 1

_JSON_KINDS = {bool: "a flag", int: "a number", float: "a number", str: "a text", list: "an array",
               JsonObject: "an object", type(None): "null"}


class LaterMoment(datetime):
    """A moment after the year 9999, which `datetime` cannot hold: the last one that it can, with the milliseconds
    since 1970 that were received, so that it is printed as it came."""

    milliseconds: int


def moment(milliseconds: int) -> datetime:
    """The time that many milliseconds after 1970-01-01, in UTC."""
    seconds, rest = divmod(milliseconds, 1000)
    try:
        return EPOCH + timedelta(0, seconds, rest * 1000)
    except OverflowError:
        later = LaterMoment(9999, 12, 31, 23, 59, 59, 999999, timezone.utc)
        later.milliseconds = milliseconds
        return later


def milliseconds_of(time: datetime) -> int:
    if isinstance(time, LaterMoment):
        return time.milliseconds
    if time.tzinfo is None:
        raise RecordError("a time without a time zone; use for example datetime.now(timezone.utc)")
    return (time - EPOCH) // timedelta(milliseconds=1)


_digits = re.compile("[0-9]+").search


def read_moment(text: str) -> datetime:
    """The first run of digits counts, and a sign is ignored, as in the C++ library."""
    found = _digits(text)
    if not found or len(found.group().lstrip("0")) > 19 or int(found.group()) > _INT64_MAX:
        raise RecordError(f"no time: {text[:40]!r}")
    return moment(int(found.group()))


def whole(number: float) -> int:
    """A JSON number as the C++ library reads it as an integer."""
    if number >= INT_MAX:
        return INT_MAX
    if number <= INT_MIN:
        return INT_MIN
    return int(number)


def _expected(what: str, item: Any) -> RecordError:
    if item is MISSING:
        return RecordError("missing")
    return RecordError(f"{what} expected, not {_JSON_KINDS.get(type(item), 'that')}")


def _got(what: str, value: Any) -> RecordError:
    return RecordError(f"{what} expected, not {value!r:.60} ({type(value).__name__})")


class Codec:
    """One kind of field. `pattern` matches its printed form; None if it has no fixed form."""

    pattern: Optional[str] = None
    #: Expression that makes the value from group ``{}`` of a match.
    expression = ""
    #: In a table: "int", "float", "bool", "str" or "time".
    column_kind = ""

    def write(self, value: Any, tabs: str, strict: bool) -> str:
        raise NotImplementedError

    def read(self, item: Any) -> Any:
        raise NotImplementedError

    def fast(self, compact: bool = False, first: int = 0) -> Optional[FastReader]:
        """The reader of the printed form, if there is one: over lines with tabulators, or compact as in recordings.

        `first` is the index of its first group in the match.
        """
        return None


class IntCodec(Codec):
    # Nine digits fit into 32 bits; longer numbers may have to be cut to the range.
    pattern = r"(-?\d{1,9})"
    expression = "int(g[{}])"
    column_kind = "int"

    def write(self, value: Any, tabs: str, strict: bool) -> str:
        if not isinstance(value, int) or isinstance(value, bool):
            raise _got("a whole number", value)
        if not INT_MIN <= value <= INT_MAX:
            raise RecordError(f"{value} does not fit into 32 bits")
        return int.__repr__(value)

    def read(self, item: Any) -> int:
        if type(item) is not int and type(item) is not float:
            raise _expected("a number", item)
        return whole(item)


class WideIntCodec(IntCodec):
    """A whole number of an own record: exact as far as JSON is."""

    pattern = r"(-?\d{1,15})"

    def write(self, value: Any, tabs: str, strict: bool) -> str:
        if not isinstance(value, int) or isinstance(value, bool):
            raise _got("a whole number", value)
        if not -EXACT_INT_MAX <= value <= EXACT_INT_MAX:
            raise RecordError(f"{value} is beyond 2**53 and would not arrive exactly")
        return print_number(float(value))

    def read(self, item: Any) -> int:
        if type(item) is not int and type(item) is not float:
            raise _expected("a number", item)
        if not -EXACT_INT_MAX <= item <= EXACT_INT_MAX or item != int(item):
            raise RecordError(f"a whole number expected, not {item!r}")
        return int(item)


class EnumCodec(Codec):
    def __init__(self, cls: Any, inner: Codec) -> None:
        self.cls = cls
        self.inner = inner

    def write(self, value: Any, tabs: str, strict: bool) -> str:
        return self.inner.write(value.value if isinstance(value, enum.Enum) else value, tabs, strict)

    def read(self, item: Any) -> Any:
        value = self.inner.read(item)
        try:
            return self.cls(value)
        except ValueError:
            raise RecordError(f"{value!r} is not a value of {self.cls.__name__}") from None


class FloatCodec(Codec):
    # Any characters of numbers: an exact pattern takes half as long again, and float() refuses the rest.
    pattern = r"(-?[0-9][-+.0-9e]{0,37})"
    expression = "float(g[{}])"
    column_kind = "float"

    def write(self, value: Any, tabs: str, strict: bool) -> str:
        if not isinstance(value, (int, float)) or isinstance(value, bool):
            raise _got("a number", value)
        try:
            number = float(value)
        except OverflowError:
            raise RecordError(f"{value:.3e} is too large" if value < 10**400 else "too large") from None
        if strict and number - number != 0:
            raise RecordError(f"{number} cannot be read as a number by the receiver")
        return print_number(number)

    def read(self, item: Any) -> float:
        if type(item) is float:
            return item
        if type(item) is not int:
            raise _expected("a number", item)
        try:
            return float(item)
        except OverflowError:
            return math.inf if item > 0 else -math.inf


class BoolCodec(Codec):
    pattern = "(true|false)"
    expression = "g[{}] == 'true'"
    column_kind = "bool"

    def write(self, value: Any, tabs: str, strict: bool) -> str:
        if value is True:
            return "true"
        if value is False:
            return "false"
        raise _got("a flag", value)

    def read(self, item: Any) -> bool:
        if item is True or item is False:
            return bool(item)
        raise _expected("a flag", item)


def checked_text(value: Any) -> str:
    if not isinstance(value, str):
        raise _got("a text", value)
    if "\0" in value:
        raise RecordError("a text cannot hold a zero character")
    if not value.isascii():
        try:
            value.encode("utf-8", "surrogateescape")
        except UnicodeEncodeError as error:
            raise RecordError(f"not Unicode at character {error.start}") from None
    return value


class TextCodec(Codec):
    pattern = r'"([^"\\\x00-\x1f]*)"'
    expression = "g[{}]"
    column_kind = "str"

    def write(self, value: Any, tabs: str, strict: bool) -> str:
        return print_text(checked_text(value))

    def read(self, item: Any) -> str:
        if type(item) is not str:
            raise _expected("a text", item)
        return item


class TimeCodec(Codec):
    # Fourteen digits end in the year 5138.
    pattern = r'"/Date\((\d{1,14})\)/"'
    expression = "moment(int(g[{}]))"
    column_kind = "time"

    def write(self, value: Any, tabs: str, strict: bool) -> str:
        if not isinstance(value, datetime):
            raise _got("a datetime", value)
        milliseconds = milliseconds_of(value)
        if strict and milliseconds < 0:
            raise RecordError(f"{value} is before 1970; receivers ignore the sign")
        return f'"/Date({milliseconds})/"'

    def read(self, item: Any) -> datetime:
        if type(item) is not str:
            raise _expected("a time", item)
        return read_moment(item)


class ArrayCodec(Codec):
    """A list: of a fixed number of elements (`size`), or of up to `limit`."""

    def __init__(self, element: Codec, size: Optional[int], limit: Optional[int], default: Any) -> None:
        self.element = element
        self.size = size
        self.limit = limit
        self.default = default
        self.of_records = isinstance(element, RecordCodec)

    def write(self, value: Any, tabs: str, strict: bool) -> str:
        if not isinstance(value, (list, tuple)):
            raise _got("a list", value)
        if self.size is not None and len(value) != self.size:
            raise RecordError(f"{self.size} elements expected, not {len(value)}")
        if strict and self.limit is not None and len(value) > self.limit:
            raise RecordError(f"at most {self.limit} elements expected, not {len(value)}")
        write, inner = self.element.write, tabs + "\t"
        items: List[str] = []
        for index, item in enumerate(value):
            try:
                items.append(write(item, inner, strict))
            except RecordError as error:
                raise error.inside(f"[{index}]")
        return f"[{', '.join(items)}]"

    def read(self, item: Any) -> Any:
        if type(item) is not list:
            raise _expected("an array", item)
        if self.size is not None and not 1 <= len(item) <= self.size:
            raise RecordError(f"1 to {self.size} elements expected, not {len(item)}")
        if self.limit is not None and len(item) > self.limit:
            raise RecordError(f"at most {self.limit} elements expected, not {len(item)}")
        values = []
        for index, element in enumerate(item):
            try:
                if self.of_records and type(element) is not JsonObject:
                    raise _expected("an object", element)
                values.append(self.element.read(element))
            except RecordError as error:
                raise error.inside(f"[{index}]")
        if self.size is not None and len(values) < self.size:
            values += self.default()[len(values):]  # a shorter array fills the first places only
        return values


class MapCodec(Codec):
    """A dict by text, in own records."""

    def __init__(self, element: Codec) -> None:
        self.element = element

    def write(self, value: Any, tabs: str, strict: bool) -> str:
        if not isinstance(value, dict):
            raise _got("a dict", value)
        inner = tabs + "\t"
        members = []
        for key, item in value.items():
            try:
                members.append(f"{inner}{print_text(checked_text(key))}:\t{self.element.write(item, inner, strict)}")
            except RecordError as error:
                raise error.inside(f"[{key!r}]")
        body = ",\n".join(members)
        return f"{{\n{body}\n{tabs}}}" if members else f"{{\n{tabs}}}"

    def read(self, item: Any) -> Any:
        if type(item) is not JsonObject:
            raise _expected("an object", item)
        values: Dict[str, Any] = {}
        for key, element in item:
            if key not in values:
                try:
                    values[key] = self.element.read(element)
                except RecordError as error:
                    raise error.inside(f"[{key!r}]")
        return values


class OptionalCodec(Codec):
    """A field of an own record that may be left out: None is not printed, and null is read as None."""

    def __init__(self, inner: Codec) -> None:
        self.inner = inner

    def write(self, value: Any, tabs: str, strict: bool) -> str:
        return self.inner.write(value, tabs, strict)

    def read(self, item: Any) -> Any:
        return None if item is None or item is MISSING else self.inner.read(item)


class FieldCodec(NamedTuple):
    key: str
    codec: Codec
    printed_key: str


class RecordCodec(Codec):
    """All fields of a class, in their order."""

    def __init__(self, cls: Any, fields_: Sequence[FieldCodec]) -> None:
        self.cls = cls
        self.fields = fields_
        self.has_optional = any(isinstance(field.codec, OptionalCodec) for field in fields_)
        self._fast: Dict[Tuple[bool, int], Optional[FastReader]] = {}

    def write(self, value: Any, tabs: str, strict: bool) -> str:
        if type(value) is not self.cls and not isinstance(value, self.cls):
            raise _got(f"a {self.cls.__name__}", value)
        inner = tabs + "\t"
        members = []
        for key, codec, printed in self.fields:
            item = getattr(value, key)
            if self.has_optional and item is None and isinstance(codec, OptionalCodec):
                continue
            try:
                members.append(inner + printed + codec.write(item, inner, strict))
            except RecordError as error:
                raise error.inside(key)
        identifier, tag = value._id, value._sequence_tag
        if identifier:
            try:
                members.append(f'{inner}"_id":\t{print_text(checked_text(identifier))}')
            except RecordError as error:
                raise error.inside("_id")
        if tag != -1:
            try:
                printed = _INT.write(tag, inner, strict)
            except RecordError as error:
                raise error.inside("_sequence_tag")
            if tag >= 0:
                members.append(f'{inner}"_sequence_tag":\t{printed}')
        body = ",\n".join(members)
        return f"{{\n{body}\n{tabs}}}" if members else f"{{\n{tabs}}}"

    def read(self, item: Any) -> Any:
        # What is not an object has no members; a record without fields can be read from it.
        members: Dict[str, Any] = {}
        if type(item) is JsonObject:
            for key, value in item:
                members.setdefault(lower(key), value)
        elif item is MISSING:
            raise _expected("an object", item)
        values = []
        for key, codec, _ in self.fields:
            try:
                values.append(codec.read(members.get(key.lower(), MISSING)))
            except RecordError as error:
                raise error.inside(key)
        record = self.cls(*values)
        identifier = members.get("_id")
        if type(identifier) is str and identifier:
            record._id = identifier
        tag = members.get("_sequence_tag")
        if type(tag) is int or type(tag) is float:
            record._sequence_tag = whole(tag)
        return record

    def fast(self, compact: bool = False, first: int = 0) -> Optional[FastReader]:
        made = self._fast.get((compact, first), MISSING)
        if made is MISSING:
            made = self._fast[compact, first] = FastReader.make(self, compact, first)
        return made


class FastReader:
    """Reads a record from its printed form with one regular expression."""

    def __init__(self, compact: bool, first: int) -> None:
        self.compact = compact
        #: The index of the next group in the match.
        self.next = first
        self.pattern = ""
        self.names: Dict[str, Any] = {"moment": moment}
        #: Makes the record from the groups of a match; raises ValueError if one is not a number after all.
        self.build: Callable[[Sequence[str]], Any] = len

    @classmethod
    def make(cls, codec: RecordCodec, compact: bool, first: int) -> Optional[FastReader]:
        reader = cls(compact, first)
        made = reader.record(codec, "\t")
        if made is None:
            return None
        reader.pattern, expression = made
        # One expression for the whole record costs a third of calls field by field.
        reader.build = eval(f"lambda g: {expression}", reader.names)  # noqa: S307
        return reader

    def from_group(self, codec: Codec) -> str:
        self.next += 1
        return codec.expression.format(self.next - 1)

    def name(self, cls: Any) -> str:
        name = f"C{len(self.names)}"
        self.names[name] = cls
        return name

    def record(self, codec: RecordCodec, tabs: str) -> Optional[Tuple[str, str]]:
        inner = tabs + "\t"
        members, arguments = [], []
        for field in codec.fields:
            made = self.value(field.codec, inner)
            if made is None:
                return None
            key = re.escape(field.printed_key[:-1] if self.compact else inner + field.printed_key)
            members.append(key + made[0])
            arguments.append(made[1])
        body = ",".join(members) if self.compact else "\n" + ",\n".join(members) + ("\n" if members else "") + tabs
        return rf"\{{{body}\}}", f"{self.name(codec.cls)}({', '.join(arguments)})"

    def value(self, codec: Codec, tabs: str) -> Optional[Tuple[str, str]]:
        if isinstance(codec, RecordCodec):
            return self.record(codec, tabs)
        if isinstance(codec, ArrayCodec) and codec.size is not None and not codec.of_records:
            made = [self.value(codec.element, tabs) for _ in range(codec.size)]
            parts = [part for part in made if part is not None]
            if len(parts) != codec.size:
                return None
            separator = "," if self.compact else ", "
            return rf"\[{separator.join(p for p, _ in parts)}\]", f"[{', '.join(e for _, e in parts)}]"
        if isinstance(codec, EnumCodec) and isinstance(codec.inner, IntCodec):
            return str(codec.inner.pattern), f"{self.name(codec.cls)}({self.from_group(codec.inner)})"
        if codec.pattern is None:
            return None
        return codec.pattern, self.from_group(codec)


_INT, _WIDE_INT, _FLOAT, _BOOL, _TEXT, _TIME = \
    IntCodec(), WideIntCodec(), FloatCodec(), BoolCodec(), TextCodec(), TimeCodec()
_NONE = type(None)
_SUPPORTED = ("int, float, bool, str, datetime, an Enum, a Record, Optional of these, list of these, "
              "and dict by str of these")


def _codec_of(hint: Any, catalogued: bool, metadata: Any, default: Any) -> Codec:
    simple: Dict[Any, Codec] = {int: _INT if catalogued else _WIDE_INT, float: _FLOAT, bool: _BOOL, str: _TEXT,
                                datetime: _TIME}
    if isinstance(hint, type) and hint in simple:
        return simple[hint]
    origin, arguments = get_origin(hint), get_args(hint)
    if origin is list:
        element = _codec_of(arguments[0], catalogued, {}, None)
        return ArrayCodec(element, metadata.get("size"), metadata.get("limit"), default)
    if origin is dict and arguments[0] is str and not catalogued:
        return MapCodec(_codec_of(arguments[1], catalogued, {}, None))
    if _is_union(origin) and not catalogued:
        others = [argument for argument in arguments if argument is not _NONE]
        if len(others) == 1 and len(arguments) == 2:
            return OptionalCodec(_codec_of(others[0], catalogued, metadata, default))
    if isinstance(hint, type):
        if issubclass(hint, enum.Enum):
            values = {type(member.value) for member in hint}
            if values <= {int}:
                return EnumCodec(hint, _INT if catalogued else _WIDE_INT)
            if values == {str}:
                return EnumCodec(hint, _TEXT)
        if is_dataclass(hint) and hasattr(hint, "_sequence_tag"):
            nested: Codec = codec_of(hint)
            return nested
    raise TypeError(f"{getattr(hint, '__name__', hint)} cannot travel; a field can be {_SUPPORTED}")


def _is_union(origin: Any) -> bool:
    if origin is Union:
        return True
    return sys.version_info >= (3, 10) and getattr(origin, "__name__", "") == "UnionType"


def codec_of(cls: Any) -> Any:
    """The codec of a record class, created by the first call."""
    codec = cls.__dict__.get("_codec")
    if codec is not None:
        return codec
    catalogued = cls.__module__ == "telvane.records"
    hints = get_type_hints(cls)
    made = []
    seen: Dict[str, str] = {"_id": "_id", "_sequence_tag": "_sequence_tag"}
    for field in fields(cls):
        if not field.init:
            continue
        other = seen.setdefault(lower(field.name), field.name)
        if field.name in ("_id", "_sequence_tag") or other != field.name:
            raise TypeError(f"{cls.__name__}.{field.name}: every record has {other}"
                            if other.startswith("_") else
                            f"{cls.__name__}.{field.name}: keys match in any letter case, and there is {other}")
        default: Any = field.default_factory if field.default_factory is not MISSING else None
        try:
            codec = _codec_of(hints[field.name], catalogued, field.metadata, default)
        except TypeError as error:
            raise TypeError(f"{cls.__name__}.{field.name}: {error}") from None
        made.append(FieldCodec(field.name, codec, print_text(field.name) + ":\t"))
    cls._codec = RecordCodec(cls, made)
    return cls._codec
