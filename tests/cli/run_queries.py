#!/usr/bin/python3
"""Runs the queries of a document on the archive welds.db in this folder: SQL as it is, Python as a program.

    run_queries.py DOCUMENT
"""
import pathlib
import re
import sqlite3
import subprocess
import sys

document = pathlib.Path(sys.argv[1]).read_text(encoding="utf-8")
section = document.partition("\n### Ten queries\n")[2].partition("\n### ")[0]
blocks = re.findall(r"^```(sql|python)\n(.*?)^```$", section, re.MULTILINE | re.DOTALL)
if len(blocks) != 10:
    sys.exit(f"{sys.argv[1]} has {len(blocks)} queries")
archive = sqlite3.connect("file:welds.db?mode=ro", uri=True)
for language, text in blocks:
    if language == "sql":
        print(len(archive.execute(text).fetchall()), "rows", flush=True)
    else:
        subprocess.run([sys.executable, "-c", text], check=True)
