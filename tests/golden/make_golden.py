#!/usr/bin/env python3
"""Writes records/<Class>.default.json and records/<Class>.filled.json from catalogue.json.

The golden files contain every record class as it prints, once with its defaults and once with no field at its default.
They are generated from the table alone, so tests can compare the library with them. The printer below prints the same
bytes as cJSON's formatted one.

Defaults in catalogue.json: numbers, flags and texts as they print; {} for a record or an element with the defaults of
its class; "text" for the one class whose JSON form is a string.
"""

import argparse
import json
import pathlib
import sys
import uuid

HERE = pathlib.Path(__file__).resolve().parent
RECORDS = HERE / "records"

INT_MAX = 2**31 - 1
INT_MIN = -(2**31)
DOUBLE_EPSILON = 2.0**-52

# Fractions that 15 digits hold and that they do not, both signs, both ends of the exponent.
NUMBERS = (0.1, 1e-7, 123456.789, -2.5, 3.141592653589793, 1e20, -0.30000000000000004, 1e-300,
           6.02214076e23, -98765432.109375)

# What the printer escapes, what it must not escape, and what is more than one byte long.
TEXTS = ('"{}" in quotes', "back\\slash and /slash {}", "tab\tnewline\n{}", "µ, Ω and – of {}",
         "control \x01\x1f\b\f\r {}", "🔥 {} 溶接", "{}: plain")


def print_number(value):
    if isinstance(value, int):
        return str(value)
    text = "%.15g" % value
    back = float(text)
    if abs(back - value) > max(abs(back), abs(value)) * DOUBLE_EPSILON:
        text = "%.17g" % value
    return text


def print_text(value):
    escapes = {'"': '\\"', "\\": "\\\\", "\b": "\\b", "\f": "\\f", "\n": "\\n", "\r": "\\r", "\t": "\\t"}
    return '"' + "".join(
        escapes.get(c, c if ord(c) >= 32 else "\\u%04x" % ord(c)) for c in value) + '"'


def print_value(value, depth=0):
    """Each member of an object gets its own line, indented by tabs. Arrays are on one line but count as a level."""
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, (int, float)):
        return print_number(value)
    if isinstance(value, str):
        return print_text(value)
    if isinstance(value, list):
        return "[" + ", ".join(print_value(item, depth + 1) for item in value) + "]"
    lines = ["\t" * (depth + 1) + print_text(key) + ":\t" + print_value(item, depth + 1)
             for key, item in value.items()]
    return "{\n" + "".join(",\n".join(lines) + "\n" if lines else "") + "\t" * depth + "}"


def default_record(catalogue, name):
    """The JSON value of a default record of the class."""
    entry = catalogue[name]
    if "text" in entry:
        return entry["text"]
    record = {}
    for field in entry["fields"]:
        value = field["default"]
        if field["kind"] == "Record":
            value = default_record(catalogue, field["class"])
        elif field["kind"] in ("RecordArray", "RecordVector"):
            value = [default_record(catalogue, field["class"]) for _ in value]
        record[field["key"]] = value
    return record


class Filler:
    """Fills one record: no two values of a kind alike, none at its default, the same on every run."""

    def __init__(self, catalogue, position):
        self.catalogue = catalogue
        self.position = position
        self.count = {}

    def next(self, what):
        index = self.count.get(what, 0)
        self.count[what] = index + 1
        return index

    def integer(self):
        index = self.next("integer")
        if index < 2:
            return INT_MAX if (self.position + index) % 2 == 0 else INT_MIN
        return (-1)**index * (1000 * (self.position + 1) + index)

    def number(self):
        return NUMBERS[(self.position + self.next("number")) % len(NUMBERS)]

    def text(self, key):
        index = self.next("text")
        return TEXTS[(self.position + index) % len(TEXTS)].format(f"{key} {index}")

    def value(self, field, path):
        kind = field["kind"]
        if kind == "Integer":
            return self.integer()
        if kind == "Number":
            return self.number()
        if kind == "Flag":
            return not field["default"]
        if kind == "Text":
            return self.text(field["key"])
        if kind == "Record":
            return self.record(field["class"], path)
        if kind == "FlagArray":
            return [index != 2 for index in range(field["limit"])]
        if kind == "IntegerArray":
            return [self.integer() for _ in range(field["limit"])]
        length = field["limit"] if kind == "RecordArray" else 3
        return [self.record(field["class"], f"{path}[{index}]") for index in range(length)]

    def record(self, name, path):
        entry = self.catalogue[name]
        if "text" in entry:
            return "/Date(%d)/" % (1700000000007 + 86400123 * self.position + self.next("time"))
        record = {field["key"]: self.value(field, f"{path}.{field['key']}") for field in entry["fields"]}
        record["_id"] = str(uuid.uuid5(uuid.NAMESPACE_OID, path))
        record["_sequence_tag"] = 100 * self.position + self.next("tag")
        return record


def golden_files():
    """The content of every golden file, by name."""
    classes = json.loads((HERE / "catalogue.json").read_text(encoding="utf-8"))
    catalogue = {entry["class"]: entry for entry in classes}
    files = {}
    for position, name in enumerate(catalogue):
        files[f"{name}.default.json"] = print_value(default_record(catalogue, name))
        files[f"{name}.filled.json"] = print_value(Filler(catalogue, position).record(name, name))
    return files


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("--check", action="store_true",
                           help="write nothing; fail if a file is missing, outdated or no longer in the table")
    check = arguments.parse_args().check
    files = golden_files()
    present = {path.name for path in RECORDS.glob("*")}
    stale = sorted(present - files.keys())
    for name, text in files.items():
        content = text.encode("utf-8")
        path = RECORDS / name
        if not check:
            RECORDS.mkdir(exist_ok=True)
            path.write_bytes(content)
        elif name not in present or path.read_bytes() != content:
            stale.append(name)
    if not check:
        for name in stale:
            (RECORDS / name).unlink()
    elif stale:
        sys.exit("golden files differ from catalogue.json, run make_golden.py: " + ", ".join(stale))


if __name__ == "__main__":
    main()
