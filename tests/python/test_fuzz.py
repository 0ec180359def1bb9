"""The package and the library read and print random records alike; the long run is fuzz_records.py by hand."""
from __future__ import annotations

import os
import pathlib
import subprocess
import sys

import pytest

HERE = pathlib.Path(__file__).resolve().parent


@pytest.mark.parametrize("seed", [1, 2])
def test_random_records_are_read_and_printed_as_by_the_library(seed: int) -> None:
    reference = os.environ.get("TELVANE_RECORD_REFERENCE")
    if reference is None:
        pytest.skip("TELVANE_RECORD_REFERENCE does not name the program of record_reference.cpp")
    command = [sys.executable, HERE / "fuzz_records.py", reference, "--records", "10000", "--seed", str(seed)]
    done = subprocess.run(command, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr
    assert "10000 records" in done.stdout
