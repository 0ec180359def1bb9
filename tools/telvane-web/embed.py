#!/usr/bin/python3
"""Writes the files of the page as a C++ source, plain and compressed.

    embed.py OUTPUT [PATH=FILE ...] [--modules PATH=FILE ...]

PATH is the path under which the file is served, FILE where it is now. Files with the same PATH are joined. A script is
served with all modules that it imports, in one piece: a browser would ask for them one after the other. A JSON file is a
module that exports its contents under its name. The output depends on the contents only.
"""
import gzip
import hashlib
import pathlib
import re
import sys

TYPES = {".html": "text/html; charset=utf-8", ".css": "text/css; charset=utf-8", ".js": "text/javascript; charset=utf-8",
         ".json": "application/json", ".svg": "image/svg+xml", ".txt": "text/plain; charset=utf-8"}


IMPORT = re.compile(r'^import (\{[^}]*\}) from "(/[\w./]+)";$', re.MULTILINE)
EXPORT = re.compile(r"^export ((?:async function|function|class|const) ([\w$]+))", re.MULTILINE)


def bundle(path, text, modules, done):
    """Returns a module and those it imports, each as a function, so that their names stay apart. The importing ones come last."""
    if path in done:
        return ""
    done.add(path)
    if path.endswith(".json"):
        return f'modules["{path}"] = {{{pathlib.PurePosixPath(path).stem}: {text.strip()}}};\n'
    needed = "".join(bundle(other, modules[other], modules, done) for _, other in IMPORT.findall(text))
    names = ", ".join(name for _, name in EXPORT.findall(text))
    body = EXPORT.sub(r"\1", IMPORT.sub(r'const \1 = modules["\2"];', text))
    if wrong := re.search(r"^(import|export)\b.*", body, re.MULTILINE):
        sys.exit(f"{path}: embed.py does not understand {wrong[0]!r}")
    return f'{needed}modules["{path}"] = (() => {{\n{body}return {{{names}}};\n}})();\n'


def served(path, text, modules):
    if not IMPORT.search(text):
        return text
    return "const modules = {};\n" + bundle(path, text, modules, set()) + "export {modules};\n"


def read(items):
    """Returns the texts by their paths."""
    texts = {}
    for item in items:
        path, _, file = item.partition("=")
        texts[path] = texts.get(path, "") + pathlib.Path(file).read_text(encoding="utf-8")
    return texts


def array(name, data):
    lines = [",".join(str(byte) for byte in data[begin:begin + 40]) for begin in range(0, len(data), 40)]
    return f"const unsigned char {name}[] = {{\n" + ",\n".join(lines) + "};\n"


def view(name):
    return f"std::string_view(reinterpret_cast<const char*>({name}), sizeof {name})"


arrays, entries = [], []
split = sys.argv.index("--modules") if "--modules" in sys.argv else len(sys.argv)
all_modules = read(sys.argv[split + 1:])
for number, (path, text) in enumerate(read(sys.argv[2:split]).items()):
    plain = served(path, text, all_modules).encode()
    compressed = gzip.compress(plain, 9, mtime=0)
    arrays += [array(f"plain{number}", plain), array(f"compressed{number}", compressed)]
    etag = hashlib.sha256(plain).hexdigest()[:20]
    entries.append(f'        {{"{path}", "{TYPES[pathlib.PurePosixPath(path).suffix]}", "\\"{etag}\\"", {view(f"plain{number}")}, '
                   f'{view(f"compressed{number}")}}},\n')
pathlib.Path(sys.argv[1]).write_text(
    '// Written by embed.py.\n#include "telvane-web/WebPages.h"\n\nnamespace TelvaneTool\n{\n\nnamespace\n{\n\n'
    + "\n".join(arrays) + "\n} // namespace\n\nconst std::vector<StaticFile>& pageFiles()\n{\n"
    "    static const std::vector<StaticFile> files = {\n" + "".join(entries)
    + "    };\n    return files;\n}\n\n} // namespace TelvaneTool\n")
