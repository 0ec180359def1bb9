"""The pieces in which the archive stores samples.

A piece is a header of 40 bytes (``TVC1``, size, checksum, weld, number, samples, size of the columns, reserved) and the
columns of its samples, compressed together by zstd: number, serial, time, then the channels. Whole numbers are stored
as the differences of their differences. A channel is stored as whole numbers with up to six decimals, or as the bytes
of its doubles, those of equal rank together.
"""
from __future__ import annotations

import importlib
import shutil
import struct
import subprocess
import sys
import zlib
from array import array
from itertools import accumulate
from typing import Any, Callable, Iterator, List, NamedTuple, Optional, Sequence, Tuple

from .data import RecordingError

CHANNELS = ("amps", "volts", "wfs", "gas", "power", "motor")

_MAGIC = b"TVC1"
_HEADER = struct.Struct("<4sIIqIII8x")
_CHECKED_FROM = 12
_MOST_SAMPLES = 4096
_MOST_BYTES = _MOST_SAMPLES * (3 * 10 + len(CHANNELS) * 10) + 64
_MOST_DECIMALS, _DOUBLES = 6, 16
#: Pieces that are decompressed together: enough to start the program zstd rarely.
_TOGETHER = 64
# What a stored step of one byte stands for: 0, -1, 1, -2, 2 ...
_STEPS = [(step >> 1) ^ -(step & 1) for step in range(128)]


class Chunk(NamedTuple):
    """The samples of one piece by column."""

    number: List[int]
    serial: List[int]
    time: List[int]
    """Nanoseconds since 1970."""
    values: List[Sequence[float]]
    """By channel."""


class _Packed(NamedTuple):
    samples: int
    size: int
    data: bytes


def read_chunks(pieces: Sequence[bytes]) -> Iterator[Optional[Chunk]]:
    """The chunk of each piece in turn, None for a damaged one."""
    for begin in range(0, len(pieces), _TOGETHER):
        packed = [_unwrapped(piece) for piece in pieces[begin:begin + _TOGETHER]]
        sound = iter(_decompressed([piece for piece in packed if piece is not None]))
        for piece in packed:
            raw = next(sound) if piece is not None else None
            yield _decoded(raw, piece.samples) if raw is not None and piece is not None else None


def _unwrapped(piece: bytes) -> Optional[_Packed]:
    """What a piece holds, if nothing is missing and its checksum is right."""
    if len(piece) < _HEADER.size:
        return None
    magic, size, checksum, _, _, samples, columns = _HEADER.unpack_from(piece)
    if magic != _MAGIC or not _HEADER.size < size <= len(piece) or not 0 < samples <= _MOST_SAMPLES \
            or columns > _MOST_BYTES or zlib.crc32(piece[_CHECKED_FROM:size]) != checksum:
        return None
    return _Packed(samples, columns, piece[_HEADER.size:size])


def _decompressed(pieces: List[_Packed]) -> List[Optional[bytes]]:
    if not pieces:
        return []
    decompress = _zstd()
    made: List[Optional[bytes]] = []
    if decompress is not None:
        for piece in pieces:
            try:
                raw = decompress(piece.data, piece.size)
            except Exception:  # each module has an exception of its own
                raw = b""
            made.append(raw if len(raw) == piece.size else None)
        return made
    program = shutil.which("zstd")
    if program is None:
        raise RecordingError("the samples are compressed with zstd: install the Python package zstandard "
                             "(Debian: python3-zstandard) or the program zstd")
    # Frames one after the other become their contents one after the other.
    done = subprocess.run([program, "-dcq"], input=b"".join(piece.data for piece in pieces), capture_output=True)
    if len(done.stdout) != sum(piece.size for piece in pieces):
        if len(pieces) == 1:
            return [None]
        middle = len(pieces) // 2
        return _decompressed(pieces[:middle]) + _decompressed(pieces[middle:])
    begin = 0
    for piece in pieces:
        made.append(done.stdout[begin:begin + piece.size])
        begin += piece.size
    return made


def _zstd() -> Optional[Callable[[bytes, int], bytes]]:
    for name in ("compression.zstd", "backports.zstd", "zstandard"):
        try:
            module: Any = importlib.import_module(name)
        except ImportError:
            continue
        if name == "zstandard":
            decompressor = module.ZstdDecompressor()
            return lambda data, size: bytes(decompressor.decompress(data, max_output_size=size))
        return lambda data, size: bytes(module.ZstdDecompressor().decompress(data, size + 1))
    return None


def _decoded(raw: bytes, count: int) -> Optional[Chunk]:
    try:
        numbers, position = _wholes(raw, 0, count)
        serials, position = _wholes(raw, position, count)
        times, position = _wholes(raw, position, count)
        values = []
        for _ in CHANNELS:
            column, position = _channel(raw, position, count)
            values.append(column)
    except IndexError:
        return None
    return Chunk(numbers, serials, times, values) if position == len(raw) else None


def _channel(raw: bytes, position: int, count: int) -> Tuple[Sequence[float], int]:
    form = raw[position]
    position += 1
    if form <= _MOST_DECIMALS:
        wholes, position = _wholes(raw, position, count)
        power = 10.0**form
        return [whole / power for whole in wholes], position
    end = position + 8 * count
    if form != _DOUBLES or end > len(raw):
        raise IndexError("a column of another form")
    ordered = bytearray(8 * count)
    for rank in range(8):
        ordered[rank::8] = raw[position + rank * count:position + (rank + 1) * count]
    doubles = array("d", bytes(ordered))
    if sys.byteorder == "big":
        doubles.byteswap()
    return doubles, end


def _wholes(raw: bytes, position: int, count: int) -> Tuple[List[int], int]:
    """A column of whole numbers, and where it ends. Raises IndexError."""
    part = raw[position:position + count]
    if len(part) == count and part.isascii():
        steps = [_STEPS[step] for step in part]
        position += count
    else:
        steps = []
        while len(steps) < count:
            step = raw[position]
            position += 1
            if step >= 0x80:
                step &= 0x7F
                for shift in range(7, 64, 7):
                    more = raw[position]
                    position += 1
                    step |= (more & 0x7F) << shift
                    if more < 0x80:
                        break
                else:
                    raise IndexError("a number without an end")
                step &= 0xFFFFFFFFFFFFFFFF
            steps.append((step >> 1) ^ -(step & 1))
    values = list(accumulate(accumulate(steps)))
    if max(values) >= 2**63 or min(values) < -2**63:  # differences wrap around
        values = [(value + 2**63) % 2**64 - 2**63 for value in values]
    return values, position
