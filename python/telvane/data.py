"""Recordings of `telvane record` as records, columns and tables.

The lines of one class are taken apart by one regular expression and go straight into columns: a table made from
records takes about ten times as long. Lines in another form are read one by one.
"""
from __future__ import annotations

import gzip
import importlib
import io
import json
import os
import re
import shutil
import subprocess
import warnings
from array import array
from bisect import bisect_left, bisect_right
from dataclasses import dataclass
from datetime import datetime, timedelta, timezone
from typing import IO, TYPE_CHECKING, Any, Callable, Dict, Iterator, List, NamedTuple, Optional, Sequence, Tuple, \
    Type, Union

from ._codecs import ArrayCodec, Codec, EnumCodec, RecordCodec, codec_of, milliseconds_of
from ._jsontext import decode_text, parse
from ._packets import members_of, plain
from ._record import DateTime, Record
from .errors import RecordError
from .records import CATALOGUE, WeldTraceData, WeldTriggerEnd, WeldTriggerStart

if TYPE_CHECKING:
    import numpy
    import pandas

__all__ = ["Columns", "Message", "Recording", "RecordingError", "RecordingWarning", "Weld", "read"]

#: The form of recordings that this reads.
_FORM = 1
_CHUNK = 1 << 20
_GZIP, _ZSTD = b"\x1f\x8b", b"\x28\xb5\x2f\xfd"
_LONGEST_LINE = 1 << 20

What = Union[str, Type[Record]]
Path = Union[str, "os.PathLike[str]"]


class RecordingError(ValueError):
    """A file that is not a recording, or that cannot be opened here."""


class RecordingWarning(UserWarning):
    """A recording is damaged or torn, or messages are missing in it. All its complete lines were read."""


class Message(NamedTuple):
    """One message of a recording."""

    record: Any
    """The record, of the class with the name of its channel; a dict if there is no such class."""
    channel: str
    number: int
    """The sequence number."""
    arrival: datetime
    """When it arrived at the recorder."""
    ns: int
    """The same, in nanoseconds since the start of the recording."""


class _Note(NamedTuple):
    """A line about messages that are not in the recording."""

    channel: Optional[str]
    missed: int
    outages: int


class Line(NamedTuple):
    ns: int
    channel: str
    number: int
    payload: Any


def _open(path: str) -> IO[bytes]:
    with open(path, "rb") as file:
        begin = file.read(4)
    if begin.startswith(_GZIP):
        return gzip.open(path, "rb")  # type: ignore[return-value]
    if begin == _ZSTD:
        return _open_zstd(path)
    return open(path, "rb")


def _open_zstd(path: str) -> IO[bytes]:
    for name in ("compression.zstd", "backports.zstd", "zstandard"):
        try:
            module = importlib.import_module(name)
        except ImportError:
            continue
        return io.BufferedReader(module.open(path, "rb"), _CHUNK)
    program = shutil.which("zstd")
    if program is None:
        raise RecordingError(f"{path} is compressed with zstd: install the Python package zstandard "
                             "(Debian: python3-zstandard) or the program zstd")
    return io.BufferedReader(_Pipe([program, "-dcq", path]), _CHUNK)


class _Pipe(io.RawIOBase):
    """The output of a program as a file."""

    def __init__(self, command: Sequence[str]) -> None:
        self._process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)

    def readable(self) -> bool:
        return True

    def readinto(self, buffer: Any) -> int:
        assert self._process.stdout is not None
        data = self._process.stdout.read(len(buffer))
        buffer[:len(data)] = data
        return len(data)

    def close(self) -> None:
        if not self.closed:
            assert self._process.stdout is not None
            self._process.stdout.close()
            self._process.wait()
        super().close()


_started = re.compile(r"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)(?:\.(\d{1,9}))?Z", re.ASCII).fullmatch


def _moment(text: str) -> Tuple[datetime, int]:
    """A time as the recorder writes it, and in nanoseconds since 1970; `fromisoformat` knows no Z before 3.11."""
    found = _started(text)
    if found is None:
        raise ValueError(f"no time: {text!r}")
    whole = datetime.fromisoformat(found.group(1)).replace(tzinfo=timezone.utc)
    digits = (found.group(2) or "").ljust(9, "0")
    seconds = (whole - datetime(1970, 1, 1, tzinfo=timezone.utc)) // timedelta(seconds=1)
    return whole + timedelta(microseconds=int(digits[:6])), seconds * 10**9 + int(digits)


class Recording:
    """One recording, in one or several files. Each operation reads the files again."""

    def __init__(self, paths: Sequence[Path]) -> None:
        if not paths:
            raise TypeError("read() wants the path of a recording")
        #: The files.
        self.paths = [os.fspath(path) for path in paths]
        #: Lines of the last reading that are no records.
        self.damaged = 0
        #: The first of them: file and line number.
        self.first_damaged: Optional[Tuple[str, int]] = None
        #: Messages that the recorder missed, as far as the last reading came upon notes of them.
        self.missed = 0
        #: Losses of the connection to the server in the last reading; what was published meanwhile is missing.
        self.outages = 0
        #: Whether the last line of a file was cut in the last reading; the recorder was killed, or power was lost.
        self.torn = False
        header = self._header(self.paths[0])
        #: What the first line says.
        self.header: Dict[str, Any] = header
        try:
            self.started, self._started_ns = _moment(str(header.get("started")))
        except ValueError:
            raise RecordingError(f"{self.paths[0]}: the first line does not say when the recording started") from None

    @staticmethod
    def _header(path: str) -> Dict[str, Any]:
        try:
            with _open(path) as file:
                header = json.loads(file.readline(_LONGEST_LINE))
        except (ValueError, EOFError, RecursionError) as error:
            if isinstance(error, RecordingError):
                raise
            raise RecordingError(f"{path} is no recording: its first line is not JSON") from None
        if not isinstance(header, dict) or "telvaneRecording" not in header:
            raise RecordingError(f"{path} is no recording: the first line has no key telvaneRecording")
        if header["telvaneRecording"] != _FORM:
            raise RecordingError(f"{path} has form {header['telvaneRecording']!r}; this package reads form {_FORM}")
        return header

    def _chunks(self) -> Iterator[Tuple[str, int, bytes]]:
        """File, number of the first line, and some whole lines without the last newline; first lines left out."""
        self.damaged, self.first_damaged, self.torn = 0, None, False
        self.missed, self.outages = 0, 0
        for path in self.paths:
            if path is not self.paths[0]:
                self._header(path)
            with _open(path) as file:
                file.readline(_LONGEST_LINE)
                number, rest = 2, b""
                while True:
                    try:
                        data = file.read(_CHUNK)
                    except (EOFError, OSError):  # the compressed file is cut
                        data, rest = b"", rest or b"\0"
                    if not data:
                        break
                    whole, newline, rest_of_data = data.rpartition(b"\n")
                    if not newline:
                        rest += data
                        continue
                    lines = rest + whole
                    rest = rest_of_data
                    yield path, number, lines
                    number += lines.count(b"\n") + 1
                if rest:
                    try:
                        _read_line(rest)
                    except ValueError:
                        self.torn = True
                    else:
                        yield path, number, rest

    def _no_record(self, path: str, number: int, data: bytes, channel: Optional[str] = None) -> None:
        """Counts a line that is no record, misses only of the channel, if one is given."""
        note = _note_of(data)
        if note is not None:
            self.outages += note.outages
            self.missed += note.missed if channel in (None, note.channel) else 0
            return
        self.damaged += 1
        if self.first_damaged is None:
            self.first_damaged = (path, number)

    def _report(self) -> None:
        if self.first_damaged is not None:
            path, number = self.first_damaged
            warnings.warn(f"{path}: {self.damaged} lines are no records, the first is line {number}",
                          RecordingWarning, stacklevel=3)
        if self.missed or self.outages:
            warnings.warn(f"{self.paths[0]}: {self.missed} messages are missing, and what was published during "
                          f"{self.outages} losses of the connection", RecordingWarning, stacklevel=3)
        if self.torn:
            warnings.warn(f"{self.paths[-1]}: the last line is torn; what followed is missing",
                          RecordingWarning, stacklevel=3)

    def __iter__(self) -> Iterator[Message]:
        """All messages in the order of arrival. Warns at the end if lines were damaged."""
        for path, first, lines in self._chunks():
            for number, data in enumerate(lines.split(b"\n"), first):
                try:
                    line = _read_line(data)
                    cls = CATALOGUE.get(line.channel)
                    record = plain(line.payload) if cls is None else cls.from_item(line.payload)
                except ValueError:
                    self._no_record(path, number, data)
                    continue
                yield Message(record, line.channel, line.number, self.started + timedelta(microseconds=line.ns // 1000),
                              line.ns)
        self._report()

    def channels(self) -> Dict[str, int]:
        """Number of messages of each channel."""
        counts: Dict[str, int] = {}
        for _, _, lines in self._chunks():
            for data in lines.split(b"\n"):
                channel = _channel_of(data)
                if channel is not None:
                    counts[channel] = counts.get(channel, 0) + 1
        return counts

    def columns(self, what: What = WeldTraceData, *, channel: Optional[str] = None) -> Columns:
        """The records of one class as columns, one for each of their numbers, flags, texts and times."""
        cls = CATALOGUE[what] if isinstance(what, str) else what
        columns = Columns(self, cls, channel if channel is not None else cls.__name__)
        for path, first, lines in self._chunks():
            columns.add(path, first, lines)
        self._report()
        return columns

    def to_pandas(self, what: What = WeldTraceData, *, channel: Optional[str] = None) -> pandas.DataFrame:
        """The records of one class as a pandas frame, indexed by their arrival in UTC."""
        return self.columns(what, channel=channel).to_pandas()

    def to_numpy(self, what: What = WeldTraceData, *,
                 channel: Optional[str] = None) -> Dict[str, numpy.ndarray[Any, Any]]:
        """The records of one class as numpy arrays by column."""
        return self.columns(what, channel=channel).to_numpy()

    def to_parquet(self, path: Path, what: What = WeldTraceData, *, channel: Optional[str] = None) -> None:
        """Writes the records of one class to a Parquet file, with pandas and pyarrow."""
        self.columns(what, channel=channel).to_parquet(path)

    def welds(self) -> List[Weld]:
        """The welds: from each WeldTriggerStart to the next WeldTriggerEnd. If the start or end of a weld is
        not in the recording, it is None."""
        samples = self.columns(WeldTraceData)
        events: List[Tuple[int, Union[WeldTriggerStart, WeldTriggerEnd]]] = []
        for _, _, lines in self._chunks():
            for data in lines.split(b"\n"):
                if b"WeldTrigger" not in data:
                    continue
                try:
                    line = _read_line(data)
                    if line.channel == "WeldTriggerStart":
                        events.append((line.ns, WeldTriggerStart.from_item(line.payload)))
                    elif line.channel == "WeldTriggerEnd":
                        events.append((line.ns, WeldTriggerEnd.from_item(line.payload)))
                except ValueError:
                    pass  # has been counted with the samples
        return _welds(samples, events)

    def weld_table(self) -> pandas.DataFrame:
        """One row for each weld: its tag, begin, duration, codes and metrics."""
        table: pandas.DataFrame = need("pandas").DataFrame([weld.summary() for weld in self.welds()])
        return table


@dataclass
class Weld:
    """One weld of a recording."""

    start: Optional[WeldTriggerStart]
    end: Optional[WeldTriggerEnd]
    begin_ns: int
    """When its first message arrived, in nanoseconds since the start of the recording."""
    end_ns: int
    """When its last one arrived."""
    samples: Columns
    """Its trace."""

    @property
    def tag(self) -> Optional[int]:
        """The tag, which start and end share."""
        event = self.start or self.end
        return event.tag if event is not None else None

    @property
    def duration(self) -> float:
        """From the first to the last message, in seconds."""
        return (self.end_ns - self.begin_ns) / 1e9

    def to_pandas(self) -> pandas.DataFrame:
        """The trace as a pandas frame."""
        return self.samples.to_pandas()

    def to_numpy(self) -> Dict[str, numpy.ndarray[Any, Any]]:
        """The trace as numpy arrays."""
        return self.samples.to_numpy()

    def summary(self) -> Dict[str, Any]:
        """The row of the weld in a table of welds."""
        row: Dict[str, Any] = {"tag": self.tag, "begin": self.samples.arrival(self.begin_ns), "duration": self.duration,
                               "samples": len(self.samples)}
        if self.start is not None:
            for code in ("process", "wireType", "wireSize", "alloy", "gas"):
                row[code] = getattr(self.start, code).name
            row["program"] = self.start.program
        if self.end is not None:
            for name in ("ArcDuration", "AverageVoltage", "AverageAmperage", "AverageWFS", "TotalEnergy"):
                row[name] = getattr(self.end.metrics, name).Value
        return row


def _welds(samples: Columns, events: List[Tuple[int, Union[WeldTriggerStart, WeldTriggerEnd]]]) -> List[Weld]:
    spans: List[List[Any]] = []  # [start, end, first, last]
    for ns, event in events:
        if isinstance(event, WeldTriggerStart):
            if spans and spans[-1][3] is None:
                spans[-1][3] = ns  # the end is not there
            spans.append([event, None, ns, None])
        elif spans and spans[-1][3] is None:
            spans[-1][1], spans[-1][3] = event, ns
        elif not spans:
            spans.append([None, event, samples.ns[0] if len(samples) else ns, ns])
    if spans and spans[-1][3] is None:
        spans[-1][3] = max(spans[-1][2], samples.ns[-1]) if len(samples) else spans[-1][2]
    return [Weld(start, end, first, last, samples.between(first, last)) for start, end, first, last in spans]


class Columns:
    """The records of one class, as columns.

    `ns` is the arrival in nanoseconds since the start of the recording, `number` the server's number. The others are
    named by the path of the field, ``data.amps`` or ``mPSValues[3]``; a list without a fixed length is one column.
    """

    def __init__(self, recording: Recording, cls: Type[Record], channel: str) -> None:
        self._recording = recording
        self._cls = cls
        self._channel = channel
        codec: Codec = codec_of(cls)
        self._leaves = _leaves(codec, "", lambda record: record) if cls is not DateTime else \
            [_Leaf("time", "time", lambda record: milliseconds_of(record.time))]
        self.ns = array("q")
        self.number = array("l")
        self._values: List[Any] = [_column(leaf.kind) for leaf in self._leaves]
        fast = codec.fast(compact=True, first=2)
        self._find: Optional[Callable[[str], List[Tuple[str, ...]]]] = None
        if fast is not None:
            self._find = re.compile(
                r'^(?:\{"ns":([0-9]{1,18}),"channel":"' + re.escape(channel) + r'","sequence":([0-9]{1,5}),"payload":'
                + fast.pattern + r"\}|(.*))$", re.ASCII | re.MULTILINE).findall

    @property
    def names(self) -> List[str]:
        """The paths of the fields."""
        return [leaf.path for leaf in self._leaves]

    def __len__(self) -> int:
        return len(self.ns)

    def __getitem__(self, name: str) -> Sequence[Any]:
        """One column: an array of numbers, or a list; times are in milliseconds since 1970."""
        for leaf, values in zip(self._leaves, self._values):
            if leaf.path == name:
                found: Sequence[Any] = values
                return found
        raise KeyError(f"{self._cls.__name__} has no {name}; it has {', '.join(self.names)}")

    def arrival(self, ns: int) -> datetime:
        """A time of the column `ns` as a moment."""
        return self._recording.started + timedelta(microseconds=ns // 1000)

    def add(self, path: str, first: int, lines: bytes) -> None:
        """Reads the records of the class from some lines."""
        if self._find is not None:
            try:
                self._add_matches(path, first, self._find(decode_text(lines)))
                return
            except ValueError:  # what looked like a number is none
                pass
        for number, data in enumerate(lines.split(b"\n"), first):
            self._add_line(path, number, data)

    def _add_matches(self, path: str, first: int, rows: List[Tuple[str, ...]]) -> None:
        others = [(number, row[-1]) for number, row in enumerate(rows, first) if not row[0]]
        # The order of arrival is kept: matches up to the next line in another form, then that line.
        converted, slow, begin = [], [], 0
        for number, text in others:
            data = text.encode("utf-8", "surrogateescape")
            if _channel_of(data) in (None, self._channel):
                converted.append(self._converted([row for row in rows[begin:number - first] if row[0]]))
                slow.append((number, data))
                begin = number - first + 1
        converted.append(self._converted([row for row in rows[begin:] if row[0]] if others else rows))
        for index, columns in enumerate(converted):
            for column, values in zip((self.ns, self.number, *self._values), columns):
                column.extend(values)
            if index < len(slow):
                self._add_line(path, *slow[index])

    def _converted(self, rows: List[Tuple[str, ...]]) -> List[Any]:
        """The values of some matches by column; raises ValueError."""
        made: List[Any] = []
        for kind, texts in zip(("int", "int", *(leaf.kind for leaf in self._leaves)), zip(*rows)):
            if kind == "float":
                made.append(list(map(float, texts)))
            elif kind in ("int", "time"):
                made.append(list(map(int, texts)))
            elif kind == "bool":
                made.append([text == "true" for text in texts])
            else:
                made.append(texts)
        return made

    def _add_line(self, path: str, number: int, data: bytes) -> None:
        try:
            line = _read_line(data)
            if line.channel != self._channel:
                return
            record = self._cls.from_item(line.payload)
            values = [leaf.value(record) for leaf in self._leaves]
        except ValueError:
            self._recording._no_record(path, number, data, self._channel)
            return
        self.ns.append(line.ns)
        self.number.append(line.number)
        for column, value in zip(self._values, values):
            column.append(value)

    def between(self, first: int, last: int) -> Columns:
        """The rows that arrived in a span of time, including both ends."""
        begin, end = bisect_left(self.ns, first), bisect_right(self.ns, last)
        part = Columns(self._recording, self._cls, self._channel)
        part.ns, part.number = self.ns[begin:end], self.number[begin:end]
        part._values = [values[begin:end] for values in self._values]
        return part

    def to_numpy(self) -> Dict[str, numpy.ndarray[Any, Any]]:
        """Arrays by column; ``arrival`` and times are of type datetime64, in UTC."""
        np = need("numpy")
        arrival = np.frombuffer(self.ns, dtype=np.int64) + self._recording._started_ns
        arrays = {"arrival": arrival.view("datetime64[ns]"),
                  "number": np.array(self.number, dtype=np.int32)}
        for leaf, values in zip(self._leaves, self._values):
            if leaf.kind == "float":
                made = np.array(values, dtype=np.float64)
            elif leaf.kind == "int":
                made = np.array(values, dtype=np.int64)
            elif leaf.kind == "bool":
                made = np.array(values, dtype=np.bool_)
            elif leaf.kind == "time":
                made = np.array(values, dtype=np.int64).view("datetime64[ms]")
            else:
                made = np.array(values, dtype=object)
            arrays[leaf.path] = made
        return arrays

    def to_pandas(self) -> pandas.DataFrame:
        """A frame indexed by the arrival in UTC. Texts, which rarely change, are categories."""
        pd = need("pandas")
        arrays = self.to_numpy()
        index = pd.DatetimeIndex(arrays.pop("arrival"), tz="UTC", name="arrival")
        columns: Dict[str, Any] = {"number": arrays.pop("number")}
        for leaf in self._leaves:
            values = arrays[leaf.path]
            if leaf.kind == "time":
                values = pd.to_datetime(values, utc=True, errors="coerce")
            elif leaf.kind == "str":
                values = pd.Categorical(values)
            columns[leaf.path] = values
        frame: pandas.DataFrame = pd.DataFrame(columns, index=index)
        return frame

    def to_parquet(self, path: Path) -> None:
        """Writes a Parquet file, with pandas and pyarrow."""
        need("pyarrow")
        self.to_pandas().to_parquet(path)


class _Leaf(NamedTuple):
    path: str
    kind: str
    value: Callable[[Any], Any]


def _column(kind: str) -> Any:
    if kind == "float":
        return array("d")
    return array("q") if kind in ("int", "time") else []


def _leaves(codec: Codec, path: str, get: Callable[[Any], Any]) -> List[_Leaf]:
    """The values of a record in the order of its fields."""
    if isinstance(codec, RecordCodec):
        leaves: List[_Leaf] = []
        for field in codec.fields:
            leaves += _leaves(field.codec, f"{path}.{field.key}" if path else field.key,
                              lambda record, key=field.key: getattr(get(record), key))  # type: ignore[misc]
        return leaves
    if isinstance(codec, ArrayCodec) and codec.size is not None:
        leaves = []
        for index in range(codec.size):
            leaves += _leaves(codec.element, f"{path}[{index}]",
                              lambda record, index=index: get(record)[index])  # type: ignore[misc]
        return leaves
    if isinstance(codec, EnumCodec) and codec.inner.column_kind == "int":
        return [_Leaf(path, "int", lambda record: int(get(record)))]
    if codec.column_kind == "time":
        return [_Leaf(path, "time", lambda record: milliseconds_of(get(record)))]
    if codec.column_kind:
        return [_Leaf(path, codec.column_kind, get)]
    return [_Leaf(path, "object", get)]


_canonical = re.compile(rb'\{"ns":[0-9]{1,18},"channel":"([^"\\\x00-\x1f]*)","sequence":').match


def _channel_of(data: bytes) -> Optional[str]:
    """The channel of a line as the recorder writes it."""
    found = _canonical(data)
    return decode_text(found.group(1)) if found else None


def _note_of(data: bytes) -> Optional[_Note]:
    if b'"missed"' not in data and b'"outage"' not in data:
        return None
    try:
        members = members_of(parse(data))
    except ValueError:
        return None
    channel, missed = members.get("channel"), members.get("missed")
    if members.get("outage") is True:
        return _Note(None, 0, 1)
    if isinstance(channel, str) and isinstance(missed, (int, float)) and 0 < missed < 2**63:
        return _Note(channel, int(missed), 0)
    return None


def _read_line(data: bytes) -> Line:
    """Raises ValueError if the line is not a record."""
    if b"\0" in data:
        raise ValueError("a zero byte in the line")
    members = members_of(parse(data))
    ns, channel, number = members.get("ns"), members.get("channel"), members.get("sequence")
    if not isinstance(ns, (int, float)) or not 0 <= ns < 2**63 or not isinstance(channel, str) \
            or not isinstance(number, (int, float)) or not 0 <= number < 65536 or "payload" not in members:
        raise RecordError("the line is no record")
    return Line(int(ns), channel, int(number), members["payload"])


def need(name: str) -> Any:
    try:
        return importlib.import_module(name)
    except ImportError:
        debian = "no Debian package; pip install pyarrow" if name == "pyarrow" else f"Debian: python3-{name}"
        raise RecordingError(f"this needs the Python package {name} ({debian})") from None


def read(*paths: Path) -> Recording:
    """Opens a recording of `telvane record`: one file, or those of one run in their order.

    gzip works everywhere; zstd where Python or the package zstandard has it, or the program zstd is installed.
    """
    return Recording(paths)
