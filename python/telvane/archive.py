"""The archive that `telvane archive` keeps: welds as a table, samples as arrays.

    with telvane.archive.open("welds.db") as archive:
        frame = archive.welds(program=3).to_pandas()
        samples = archive.samples(17)

Reading never changes the archive and does not disturb the program that writes it.
"""
from __future__ import annotations

import dataclasses
import io
import os
import urllib.parse
from array import array
from datetime import datetime, timedelta, timezone
from itertools import compress
from types import TracebackType
from typing import TYPE_CHECKING, Any, Dict, Iterable, List, Optional, Sequence, Tuple, Type, TypeVar

from ._archive_chunks import CHANNELS, Chunk, read_chunks
from ._archive_weld import Weld
from .data import need

if TYPE_CHECKING:
    import numpy
    import pandas

__all__ = ["Archive", "ArchiveError", "Samples", "Weld", "Welds", "open"]

#: Version of the tables that this reads. Newer ones only have more.
_VERSION = 2
# The field for the column "pass" has an underscore, because Python has a statement of that name.
_COLUMNS = {field.name: field.name.rstrip("_") for field in dataclasses.fields(Weld)}
_SELECT = f"SELECT {', '.join(_COLUMNS.values())} FROM weld"
_KINDS = {"int": "Int64", "float": "Float64", "str": "string"}
_PERIOD_OF_STAMPS = 2_000_000
_T = TypeVar("_T")


class ArchiveError(OSError):
    """An archive that cannot be read."""


class Welds(List[Weld]):
    """Welds of an archive: a list that can become a table."""

    def to_pandas(self) -> pandas.DataFrame:
        """A row for each weld, by its `id`, with the columns of `Weld`. What is unknown is missing, not 0. `start` and
        `end` are moments in UTC."""
        pd = need("pandas")
        columns: Dict[str, Any] = {}
        for field in dataclasses.fields(Weld):
            values = [getattr(weld, field.name) for weld in self]
            kind = "int" if field.name == "id" else str(field.type)[len("Optional["):-1]
            columns[_COLUMNS[field.name]] = pd.array(values, dtype=_KINDS[kind])
        index = pd.Index(columns.pop("id"), name="id", dtype="int64")
        moments = {name: pd.to_datetime(columns[name + "_ns"], utc=True) for name in ("start", "end")}
        frame: pandas.DataFrame = pd.DataFrame({**moments, **columns})
        frame.index = index
        return frame


class Samples:
    """The samples of one weld, as arrays of equal length."""

    def __init__(self, weld: Weld) -> None:
        #: The weld.
        self.weld = weld
        #: Time since the start of the weld, in nanoseconds.
        self.ns = array("q")
        #: Running number in the weld; a gap says that samples were missed.
        self.number = array("q")
        #: Publisher's number for the message.
        self.serial = array("q")
        #: Measured values, in the publisher's units: amps, volts, wfs, gas, power and motor.
        self.channels: Dict[str, array[float]] = {name: array("d") for name in CHANNELS}
        #: Stored pieces that could not be read; their samples are missing here.
        self.damaged = 0

    def __len__(self) -> int:
        return len(self.ns)

    def __getitem__(self, name: str) -> Sequence[float]:
        """One channel by its name."""
        return self.channels[name]

    def _add(self, chunk: Chunk, first_ns: Optional[int], end_ns: Optional[int]) -> None:
        start, period = self.weld.start_ns or 0, 1000 * (self.weld.sample_period_us or 0)
        # Stamps are whole milliseconds. Where samples are closer, their numbers give the moment.
        moments = [number * period for number in chunk.number] if 0 < period < _PERIOD_OF_STAMPS else \
            [time - start for time in chunk.time]
        # Moments need not be in order.
        inside = [(first_ns is None or moment >= first_ns) and (end_ns is None or moment < end_ns)
                  for moment in moments]
        whole = all(inside)

        def chosen(values: Sequence[_T]) -> Iterable[_T]:
            return values if whole else compress(values, inside)

        self.ns.extend(chosen(moments))
        self.number.extend(chosen(chunk.number))
        self.serial.extend(chosen(chunk.serial))
        for name, values in zip(CHANNELS, chunk.values):
            self.channels[name].extend(chosen(values))

    def to_numpy(self) -> Dict[str, numpy.ndarray[Any, Any]]:
        """Arrays by name: ``ns``, ``number``, ``serial`` and the channels."""
        np = need("numpy")
        whole = {"ns": self.ns, "number": self.number, "serial": self.serial}
        return {**{name: np.array(values, dtype=np.int64) for name, values in whole.items()},
                **{name: np.array(values, dtype=np.float64) for name, values in self.channels.items()}}

    def to_pandas(self) -> pandas.DataFrame:
        """A frame of the channels, indexed by the moment in UTC."""
        pd = need("pandas")
        arrays = self.to_numpy()
        moments = pd.DatetimeIndex(arrays.pop("ns") + (self.weld.start_ns or 0), tz="UTC", name="time")
        frame: pandas.DataFrame = pd.DataFrame(arrays, index=moments)
        return frame


class Archive:
    """An open archive. One thread at a time may use it."""

    def __init__(self, location: str) -> None:
        self.location = location
        self._postgres = location.startswith(("postgresql://", "postgres://"))
        # Such a location may hold a password.
        self._name = "the database" if self._postgres else location
        self._errors: Tuple[Type[Exception], ...] = ()
        self._connection: Any = None
        self._connection = self._connect()
        try:
            self._check()
        except BaseException:
            self.close()
            raise

    def _connect(self) -> Any:
        if self._postgres:
            psycopg2 = need("psycopg2")
            try:
                connection = psycopg2.connect(self.location)
                connection.set_session(readonly=True, autocommit=True)
            except psycopg2.Error as error:
                raise ArchiveError(f"{self._name} cannot be opened: {error}") from error
            self._errors = (psycopg2.Error,)
            return connection
        import sqlite3

        self._errors = (sqlite3.Error,)
        if not os.path.exists(self.location):
            raise FileNotFoundError(2, "there is no archive", self.location)
        try:
            return sqlite3.connect(f"file:{urllib.parse.quote(self.location)}?mode=ro", uri=True)
        except sqlite3.Error as error:
            raise ArchiveError(f"{self._name}: {error}") from error

    def _check(self) -> None:
        try:
            rows = self._run("SELECT value FROM archive_info WHERE name = 'schema_version'")
        except ArchiveError as error:
            raise ArchiveError(f"{self._name} is not an archive of welds, or it cannot be read: "
                               f"{error}") from error.__cause__
        version = rows[0][0] if rows else 0
        if version < _VERSION:
            raise ArchiveError(f"{self._name} has version {version} of the tables; "
                               "telvane archive brings it up to date")

    def _run(self, statement: str, values: Sequence[Any] = ()) -> List[Tuple[Any, ...]]:
        if self._connection is None:
            raise ArchiveError("the archive is closed")
        cursor = self._connection.cursor()
        try:
            cursor.execute(statement.replace("?", "%s") if self._postgres else statement, tuple(values))
            rows: List[Tuple[Any, ...]] = cursor.fetchall()
            return rows
        except self._errors as error:
            raise ArchiveError(str(error)) from error
        finally:
            cursor.close()

    def welds(self, *, since: Optional[datetime] = None, until: Optional[datetime] = None,
              limit: Optional[int] = None, **equal: Any) -> Welds:
        """The welds in the order of their start; with `limit`, the latest ones.

        `since` and `until` limit the start; a time without a zone is local time. All columns of `Weld` can be given,
        for example ``program=3`` or ``part_number="A-17"``; None finds welds where the column is unknown.
        """
        conditions, values = [], []
        for moment, comparison in ((since, ">="), (until, "<")):
            if moment is not None:
                conditions.append(f"start_ns {comparison} ?")
                values.append(_nanoseconds(moment))
        for name, value in equal.items():
            if name not in _COLUMNS:  # so that no text from outside is part of the statement
                raise TypeError(f"a weld has no {name}; it has {', '.join(_COLUMNS)}")
            conditions.append(f"{_COLUMNS[name]} IS NULL" if value is None else f"{_COLUMNS[name]} = ?")
            if value is not None:
                values.append(value)
        statement = _SELECT
        if conditions:
            statement += " WHERE " + " AND ".join(conditions)
        statement += " ORDER BY start_ns DESC, id DESC"
        if limit is not None:
            statement += " LIMIT ?"
            values.append(limit)
        return Welds(Weld(*row) for row in reversed(self._run(statement, values)))

    def weld(self, id: int) -> Weld:
        """One weld by its `id`. Raises KeyError if there is none."""
        rows = self._run(_SELECT + " WHERE id = ?", (id,))
        if not rows:
            raise KeyError(f"the archive has no weld {id}")
        return Weld(*rows[0])

    def samples(self, id: int, *, begin: Optional[float] = None, end: Optional[float] = None) -> Samples:
        """The samples of a weld, also of one that is under way, as they arrived.

        `begin` and `end` are seconds since its start, for a part of it.

        What is damaged is left out and counted. Needs zstd, as `telvane.read` does for compressed recordings."""
        weld = self.weld(id)
        samples = Samples(weld)
        start = weld.start_ns or 0
        first_ns, end_ns = (None if seconds is None else round(seconds * 1e9) for seconds in (begin, end))
        statement = "SELECT file, place, size, data FROM chunk WHERE weld_id = ?"
        values = [id]
        if first_ns is not None:
            statement += " AND last_ns >= ?"
            values.append(start + first_ns)
        if end_ns is not None:
            statement += " AND first_ns < ?"
            values.append(start + end_ns)
        rows = self._run(statement + " ORDER BY number", values)
        for chunk in read_chunks([self._bytes(row) for row in rows]):
            if chunk is None:
                samples.damaged += 1
            else:
                samples._add(chunk, first_ns, end_ns)
        return samples

    def _bytes(self, row: Tuple[Any, ...]) -> bytes:
        """A stored piece; empty if it is not there."""
        file, place, size, data = row
        if data is not None:
            return bytes(data)
        try:
            path = os.path.join(self.location + ".samples", os.path.basename(file))
            with io.open(path, "rb") as samples:
                samples.seek(place)
                return samples.read(size)
        except (OSError, TypeError, ValueError):
            return b""

    def close(self) -> None:
        """Closes it. Any number of times."""
        if self._connection is not None:
            self._connection.close()
            self._connection = None

    def __enter__(self) -> Archive:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        self.close()


def _nanoseconds(moment: datetime) -> int:
    microseconds = (moment.astimezone(timezone.utc) - datetime(1970, 1, 1, tzinfo=timezone.utc)) \
        // timedelta(microseconds=1)
    return 1000 * microseconds


def open(location: "str | os.PathLike[str]") -> Archive:
    """Opens an archive for reading: the path of an SQLite file, or ``postgresql://user@host/name``, which needs the
    Python package psycopg2."""
    return Archive(os.fspath(location))
