#!/usr/bin/python3
"""Writes the files of the page as a C++ source, plain and compressed.

    embed.py OUTPUT [PATH=FILE ...]

PATH is the path under which the file is served, FILE where it is now. The output depends on the contents only.
"""
import gzip
import hashlib
import pathlib
import sys

TYPES = {".html": "text/html; charset=utf-8", ".css": "text/css; charset=utf-8", ".js": "text/javascript; charset=utf-8",
         ".json": "application/json", ".svg": "image/svg+xml", ".txt": "text/plain; charset=utf-8"}


def array(name, data):
    lines = [",".join(str(byte) for byte in data[begin:begin + 40]) for begin in range(0, len(data), 40)]
    return f"const unsigned char {name}[] = {{\n" + ",\n".join(lines) + "};\n"


def view(name):
    return f"std::string_view(reinterpret_cast<const char*>({name}), sizeof {name})"


arrays, entries = [], []
for number, item in enumerate(sys.argv[2:]):
    path, _, file = item.partition("=")
    plain = pathlib.Path(file).read_bytes()
    compressed = gzip.compress(plain, 9, mtime=0)
    arrays += [array(f"plain{number}", plain), array(f"compressed{number}", compressed)]
    etag = hashlib.sha256(plain).hexdigest()[:20]
    entries.append(f'        {{"{path}", "{TYPES[pathlib.Path(path).suffix]}", "\\"{etag}\\"", {view(f"plain{number}")}, '
                   f'{view(f"compressed{number}")}}},\n')
pathlib.Path(sys.argv[1]).write_text(
    '// Written by embed.py.\n#include "telvane-web/WebPages.h"\n\nnamespace TelvaneTool\n{\n\nnamespace\n{\n\n'
    + "\n".join(arrays) + "\n} // namespace\n\nconst std::vector<StaticFile>& pageFiles()\n{\n"
    "    static const std::vector<StaticFile> files = {\n" + "".join(entries)
    + "    };\n    return files;\n}\n\n} // namespace TelvaneTool\n")
