#!/usr/bin/env python3
"""Compares how the Python package and the library read and print records.

    fuzz_records.py REFERENCE [--records N] [--seed N]

REFERENCE is the program record_reference. Records of all classes are made at random, many of them broken on purpose,
and both sides have to accept the same ones and print them alike. A difference is printed with what is needed to
repeat it; the exit code is 1 then.
"""
from __future__ import annotations

import argparse
import json
import pathlib
import random
import struct
import subprocess
import sys
import tempfile
import time
from typing import Any, Dict, Iterator, List, Optional, Tuple

from telvane._packets import decoder_of
from telvane.errors import RecordError
from telvane.records import CATALOGUE

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
REFUSED = 0xFFFFFFFF
BATCH = 20000

ODD_NUMBERS = (b"-0", b"0", b"-0.0", b"00", b"007", b"-", b"+1", b".5", b"-.5", b"1.", b"1.e3", b"1e", b"1e+", b"1e400",
               b"-1e400", b"1e-400", b"4.9e-324", b"2.2250738585072014e-308", b"1.7976931348623157e308",
               b"2147483647", b"2147483648", b"-2147483648", b"-2147483649", b"3.9", b"-3.9", b"1e12", b"0.1",
               b"9007199254740993", b"123456789012345678", b"0.30000000000000004", b"1E5", b"NaN", b"Infinity",
               b"-Infinity", b"0x10", b"1_000", b"1" * 62, b"1" * 63, b"1" * 64, b"0." + b"1" * 61, b"0." + b"3" * 62,
               b"1" + b"0" * 400, b"--1", b"1.2.3", b"1e5e5", b"5-3")
ODD_TEXTS = (b'"\\u0041"', b'"\\u00e9"', b'"\\u20AC"', b'"\\ud83d\\ude00"', b'"\\ud83d"', b'"\\ude00"',
             b'"\\ud83dx"', b'"\\ud83d\\u0041"', b'"\\u12"', b'"\\u00zz"', b'"a\\u0000b"', b'"\\x"', b'"\\/"',
             b'"\\b\\f\\n\\r\\t\\"\\\\"', b'"\x01\x1f\x7f"', b'"tab\there"', b'"line\nbreak"', b'"\xff"', b'"\xc3"',
             b'"\xed\xa0\x80"', b'"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"', b'"a\x00b"', b'"\\', b'"', b'""',
             b'"\\u123\\\\"', b'"\\u\\\\\\\\"', b'"\\ud83d\\ude0\\\\"',
             b'"\\u\xc3\xa9\xc3\xa9"', b'"\\u\xc3\xa9"', b"'a'", b'"a: b, c: {[]}"', b'"\xe2\x84\xaa"')
ODD_TIMES = (b'"/Date(0)/"', b'"/Date(-5000)/"', b'"/Date(1700000000123)/"', b'"17"', b'"/Date()/"', b'""',
             b'"/Date(9223372036854775807)/"', b'"/Date(9223372036854775808)/"', b'"/Date(253402300800000)/"',
             b'"/Date(253402300799999)/"', b'"a00000000000000000000000000012b34"', b'"\xd9\xa1"', b'"1 2"')
ODD_VALUES = (b"null", b"true", b"false", b"truex", b"nul", b"[]", b"{}", b"[1]", b'{"a":1}', b"[1,]", b"{,}", b"",
              b"[[[]]]", b'[{"Flag":true,"Status":false}]', b"{", b"}", b"undefined", b"\xef\xbb\xbf1", b"/**/1")
SPACES = (b"", b"", b"", b" ", b"\n", b"\t", b"\r\n", b"  \t", b"\x01", b"\x0b", b"\x00")


class Maker:
    """Makes the text of one record after the other."""

    def __init__(self, seed: int) -> None:
        self.random = random.Random(seed)
        entries = json.loads((ROOT / "tests/golden/catalogue.json").read_text(encoding="utf-8"))
        self.catalogue: Dict[str, Any] = {entry["class"]: entry for entry in entries}
        self.names = list(self.catalogue)
        self.oddity = 0.0
        self.spaced = False

    def next(self) -> Tuple[str, bytes]:
        choose = self.random
        name = choose.choice(self.names)
        self.oddity = choose.choice((0.0, 0.0, 0.01, 0.05, 0.3))
        self.spaced = choose.random() < 0.3
        text = self.record(name)
        if choose.random() < 0.15:
            text = self.broken(text)
        if choose.random() < 0.05:
            text = choose.choice((b"\xef\xbb\xbf", b" ", b"\n\t", b"\x02", b"[")) + text
        if choose.random() < 0.05:
            text += choose.choice((b" ", b"\x00", b"\x00{", b"garbage", b"}", b"\xff"))
        if choose.random() < 0.0005:
            depth = choose.choice((990, 998, 999, 1000, 1001, 3000))
            opening, closing = choose.choice(((b"[", b"]"), (b'{"a":', b"}")))
            text = b'{"x":' + opening * depth + b"1" + closing * depth + b"," + text[1:]
        return name, text

    def odd(self) -> bool:
        return self.random.random() < self.oddity

    def space(self) -> bytes:
        if not self.spaced:
            return b""
        return self.random.choice(SPACES if self.odd() else SPACES[:8])

    def number(self) -> bytes:
        choose = self.random
        if self.odd():
            return choose.choice(ODD_NUMBERS)
        kind = choose.randrange(6)
        if kind == 0:
            return b"%d" % choose.randrange(-1000, 1000)
        if kind == 1:
            return b"%d" % choose.randrange(-2**33, 2**33)
        if kind == 2:
            return repr(choose.uniform(-500, 500)).encode()
        if kind == 3:
            return repr(round(choose.uniform(0, 500), choose.randrange(6))).encode()
        if kind == 4:
            return repr(struct.unpack("<d", choose.randbytes(8))[0]).replace("nan", "1").replace("inf", "2").encode()
        return b"%.*e" % (choose.randrange(20), choose.uniform(-1, 1) * 10.0**choose.randrange(-300, 300))

    def text(self) -> bytes:
        choose = self.random
        if self.odd():
            return choose.choice(ODD_TEXTS)
        if choose.random() < 0.5:
            length = choose.randrange(12)
            return b'"' + "".join(choose.choice("abcXYZ 0189:,.-_{}[]") for _ in range(length)).encode() + b'"'
        made = "".join(chr(choose.choice((choose.randrange(32, 127), choose.randrange(0xA0, 0xD800),
                                          choose.randrange(0x10000, 0x110000)))) for _ in range(choose.randrange(6)))
        return json.dumps(made, ensure_ascii=choose.random() < 0.3).encode()

    def time(self) -> bytes:
        if self.odd():
            return self.random.choice(ODD_TIMES)
        return b'"/Date(%d)/"' % self.random.randrange(10**self.random.randrange(1, 15))

    def array(self, items: List[bytes]) -> bytes:
        return b"[" + b",".join(self.space() + item + self.space() for item in items) + self.space() + b"]"

    def value(self, field: Dict[str, Any]) -> bytes:
        choose = self.random
        if self.odd():
            return choose.choice((choose.choice(ODD_VALUES), choose.choice(ODD_NUMBERS), choose.choice(ODD_TEXTS)))
        kind = field["kind"]
        if kind in ("Integer", "Number"):
            return self.number()
        if kind == "Flag":
            return choose.choice((b"true", b"false"))
        if kind == "Text":
            return self.text()
        if kind == "Record":
            return self.record(field["class"])
        limit = field["limit"]
        length = choose.randrange(limit + 2) if self.odd() else \
            choose.randrange(3) if kind == "RecordVector" else limit
        if kind == "FlagArray":
            return self.array([choose.choice((b"true", b"false")) for _ in range(length)])
        if kind == "IntegerArray":
            return self.array([self.number() for _ in range(length)])
        return self.array([self.record(field["class"]) for _ in range(length)])

    def key(self, key: str) -> bytes:
        if self.odd():
            key = self.random.choice((key.upper(), key.lower(), key.swapcase(), key + "x", key[:-1],
                                      key.replace("k", "\u212a").replace("s", "\u017f")))
        return b'"' + key.encode() + b'"'

    def record(self, name: str) -> bytes:
        entry = self.catalogue[name]
        if "text" in entry:
            return self.time()
        choose = self.random
        members = [(self.key(field["key"]), self.value(field)) for field in entry["fields"]]
        if choose.random() < 0.1 or self.odd():
            members.append((self.key("_id"), choose.choice((self.text(), self.text(), b"17"))))
        if choose.random() < 0.1 or self.odd():
            members.append((self.key("_sequence_tag"), choose.choice((self.number(), b"3", b'"3"'))))
        if self.odd():
            choose.shuffle(members)
        if members and self.odd():
            members.append(choose.choice(members))
        if members and self.odd():
            del members[choose.randrange(len(members))]
        if self.odd():
            members.insert(choose.randrange(len(members) + 1), (b'"other"', choose.choice(ODD_VALUES)))
        body = b",".join(self.space() + key + self.space() + b":" + self.space() + value + self.space()
                         for key, value in members)
        return b"{" + body + self.space() + b"}"

    def broken(self, text: bytes) -> bytes:
        changed = bytearray(text)
        for _ in range(self.random.choice((1, 1, 2, 5))):
            at = self.random.randrange(len(changed) + 1)
            what = self.random.randrange(4)
            if what == 0:
                del changed[at:]
            elif what == 1:
                del changed[at:at + self.random.choice((1, 1, 4))]
            elif what == 2:
                changed[at:at] = self.random.choice((b'"', b"\\", b",", b":", b"{", b"}", b"[", b"]", b"0", b"\x00",
                                                     bytes([self.random.randrange(256)])))
            elif at < len(changed):
                changed[at] = self.random.randrange(256)
        return bytes(changed)


def by_python(name: str, text: bytes) -> Optional[bytes]:
    try:
        return CATALOGUE[name].from_json(text).to_json().encode("utf-8", "surrogateescape")
    except RecordError:
        return None


def by_reference(reference: str, records: List[Tuple[str, bytes]]) -> Iterator[Optional[bytes]]:
    with tempfile.TemporaryFile() as questions, tempfile.TemporaryFile() as answers:
        for name, text in records:
            questions.write(struct.pack("<I", len(name)) + name.encode() + struct.pack("<I", len(text)) + text)
        questions.seek(0)
        subprocess.run([reference], stdin=questions, stdout=answers, check=True)
        answers.seek(0)
        for _ in records:
            length, = struct.unpack("<I", answers.read(4))
            yield None if length == REFUSED else answers.read(length)


def by_packet(name: str, printed: bytes) -> Optional[bytes]:
    """What a listener makes of a record that the library has printed."""
    payload = printed.replace(b"\n", b"\n\t")
    packet = b'{\n\t"header":\t"X",\n\t"sequence":\t17,\n\t"payload":\t' + payload + b"\n}"
    try:
        text: str = DECODERS[name](packet).record.to_json()
        return text.encode("utf-8", "surrogateescape")
    except RecordError:
        return None


DECODERS = {name: decoder_of(cls) for name, cls in CATALOGUE.items()}


def main() -> int:
    arguments = argparse.ArgumentParser(description="Compare the Python package with the library.")
    arguments.add_argument("reference")
    arguments.add_argument("--records", type=int, default=20000)
    arguments.add_argument("--seed", type=int, default=1)
    options = arguments.parse_args()

    maker = Maker(options.seed)
    begin, done, accepted, differences = time.monotonic(), 0, 0, 0
    while done < options.records:
        records = [maker.next() for _ in range(min(BATCH, options.records - done))]
        for (name, text), expected in zip(records, by_reference(options.reference, records)):
            got = by_python(name, text)
            accepted += expected is not None
            differs = got != expected
            if not differs and expected is not None:
                expected, got = by_python(name, expected), by_packet(name, expected)
                differs = got != expected
            if differs:
                differences += 1
                if differences <= 20:
                    print(f"{name}: {text!r}\n  library: {expected!r}\n  Python:  {got!r}")
        done += len(records)
    print(f"{done} records, {accepted} accepted, {differences} differences, seed {options.seed}, "
          f"{time.monotonic() - begin:.0f} s")
    return 1 if differences else 0


if __name__ == "__main__":
    sys.exit(main())
