"""Reads and prints JSON exactly as the C++ library does.

The two JSON readers differ in corners: the standard one takes ``NaN``, keeps the last of two equal keys, wants
numbers of the standard's grammar and refuses bytes after the value. So `parse` uses the standard reader, which is
fast, only for texts on which both agree, and reads all others with a reader of its own that follows the C++ side
byte for byte.
"""
from __future__ import annotations

import json
import re
from typing import Any, List, NoReturn, Tuple

#: Objects and arrays may be nested this deeply.
NESTING_LIMIT = 1000


class JsonObject(List[Tuple[str, Any]]):
    """The members of an object, in their order, including keys that occur twice."""

    __slots__ = ()


def _refuse_constant(name: str) -> NoReturn:
    raise ValueError(f"{name} is not JSON")


def _signed_integer(digits: str) -> Any:
    return -0.0 if digits == "-0" else int(digits)


_decode = json.JSONDecoder(
    object_pairs_hook=JsonObject, parse_constant=_refuse_constant, strict=False).raw_decode
_decode_signed_zeros = json.JSONDecoder(
    object_pairs_hook=JsonObject, parse_constant=_refuse_constant, parse_int=_signed_integer,
    strict=False).raw_decode

_space = re.compile(r"[ \t\r\n]*").match


def decode_text(data: bytes) -> str:
    """Bytes that are not UTF-8 become surrogates, as in file names, so that they are printed as they came."""
    return data.decode("utf-8", "surrogateescape")


def encode_text(text: str) -> bytes:
    return text.encode("utf-8", "surrogateescape")


def parse(data: bytes) -> Any:
    """Reads the first JSON value of a packet; raises ValueError if there is none.

    Numbers are int or float, objects are `JsonObject`.
    """
    end = data.find(b"\0")
    if end >= 0:
        data = data[:end]
    text = decode_text(data)
    if "\\u" not in text and text.count("{") + text.count("[") <= NESTING_LIMIT:
        decode = _decode_signed_zeros if "-0" in text else _decode
        space = _space(text)
        try:
            return decode(text, space.end() if space else 0)[0]
        except (ValueError, RecursionError):
            pass
    return _Reader(data).read()


_CONSTANTS = (("null", None), ("false", False), ("true", True))
_ESCAPES = {"b": "\b", "f": "\f", "n": "\n", "r": "\r", "t": "\t", '"': '"', "\\": "\\", "/": "/"}
_number = re.compile(r"-?(?:[0-9]+\.?[0-9]*|\.[0-9]+)(?:[eE][-+]?[0-9]+)?").match
_string_end = re.compile(r'[^"\\]*(?:\\.[^"\\]*)*"', re.DOTALL).match
_any_space = re.compile("[\x00- ]*").match
_hex4 = re.compile(r"[0-9a-fA-F]{4}").match


class _Reader:
    """Reads bytes, seen as characters, without recursion."""

    def __init__(self, data: bytes) -> None:
        if data.startswith(b"\xef\xbb\xbf") and len(data) >= 4:
            data = data[3:]
        self.text = data.decode("latin-1")
        self.at = 0

    def fail(self) -> NoReturn:
        raise ValueError(f"not JSON at byte {self.at}")

    def skip(self) -> str:
        """Skips blanks; returns the next character, or nothing at the end."""
        found = _any_space(self.text, self.at)
        self.at = found.end() if found else self.at
        return self.text[self.at:self.at + 1]

    def read(self) -> Any:
        """A stack of open containers takes the place of recursion, which Python would end before 1000 levels."""
        stack: List[Any] = []
        keys: List[str] = []
        while True:
            first = self.skip()
            value: Any
            if first in ("{", "["):
                if len(stack) >= NESTING_LIMIT:
                    self.fail()
                value = JsonObject() if first == "{" else []
                self.at += 1
                if self.skip() != ("}" if first == "{" else "]"):
                    stack.append(value)
                    if first == "{":
                        keys.append(self.key())
                    continue
                self.at += 1
            else:
                value = self.scalar(first)
            while stack:  # closes what ends here
                container = stack[-1]
                is_object = type(container) is JsonObject
                container.append((keys.pop(), value) if is_object else value)
                follows = self.skip()
                if follows == ",":
                    self.at += 1
                    if is_object:
                        self.skip()
                        keys.append(self.key())
                    break
                if follows != ("}" if is_object else "]"):
                    self.fail()
                self.at += 1
                value = stack.pop()
            if not stack:
                return value

    def key(self) -> str:
        if self.text[self.at:self.at + 1] != '"':
            self.fail()
        key = self.string()
        if self.skip() != ":":
            self.fail()
        self.at += 1
        return key

    def scalar(self, first: str) -> Any:
        if first == '"':
            return self.string()
        if first == "-" or "0" <= first <= "9":
            return self.number()
        for word, value in _CONSTANTS:
            if self.text.startswith(word, self.at):
                self.at += len(word)
                return value
        self.fail()

    def number(self) -> float:
        found = _number(self.text, self.at)
        if not found:
            self.fail()
        self.at = found.end()
        return float(found.group())

    def string(self) -> str:
        found = _string_end(self.text, self.at + 1)
        if not found:
            self.fail()
        begin, end = self.at + 1, found.end() - 1
        raw = self.text[begin:end]
        self.at = found.end()
        if "\\" in raw:
            raw = self.unescape(raw)
        # The C++ side holds texts that end at the first zero.
        return decode_text(raw.split("\0", 1)[0].encode("latin-1"))

    def unescape(self, raw: str) -> str:
        out: List[str] = []
        at = 0
        while True:
            escape = raw.find("\\", at)
            if escape < 0:
                out.append(raw[at:])
                return "".join(out)
            out.append(raw[at:escape])
            # After a "\\u" without digits that has swallowed a backslash, the closing quote can be what is escaped.
            letter = raw[escape + 1:escape + 2] or '"'
            if letter != "u":
                if letter not in _ESCAPES:
                    self.fail()
                out.append(_ESCAPES[letter])
                at = escape + 2
                continue
            if len(raw) - escape < 6:
                self.fail()
            code = self.hex(raw, escape)
            at = escape + 6
            if 0xDC00 <= code <= 0xDFFF:
                self.fail()
            if 0xD800 <= code <= 0xDBFF:
                second = self.hex(raw, at) if len(raw) - at >= 6 and raw.startswith("\\u", at) else 0
                if not 0xDC00 <= second <= 0xDFFF:
                    self.fail()
                code = 0x10000 + ((code & 0x3FF) << 10 | second & 0x3FF)
                at += 6
            out.append(chr(code).encode("utf-8").decode("latin-1"))

    @staticmethod
    def hex(raw: str, escape: int) -> int:
        """Anything but four hexadecimal digits counts as 0, as in the C++ library."""
        digits = _hex4(raw, escape + 2)
        return int(digits.group(), 16) if digits else 0


_escaped = re.compile('["\\\\\x00-\x1f]')
_PRINTED = {chr(code): f"\\u{code:04x}" for code in range(32)}
_PRINTED.update({"\b": "\\b", "\f": "\\f", "\n": "\\n", "\r": "\\r", "\t": "\\t", '"': '\\"', "\\": "\\\\"})


def print_text(text: str) -> str:
    if _escaped.search(text):
        text = _escaped.sub(lambda found: _PRINTED[found.group()], text)
    return f'"{text}"'


def print_number(value: float) -> str:
    """15 digits where they come within one part in 2**52, else 17; ``null`` for what is not finite."""
    text = "%.15g" % value
    back = float(text)
    if back == value:
        return text if back - back == 0 else "null"
    if back != back:
        return "null"
    return "%.17g" % value if abs(back - value) > max(abs(back), abs(value)) * 2.0**-52 else text


def lower(key: str) -> str:
    """Keys match in any case of the letters a to z, and of no others."""
    return key.lower() if key.isascii() else "".join(c.lower() if c.isascii() else c for c in key)
