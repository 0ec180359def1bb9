"""Types and style of the package, its tests and its examples."""
from __future__ import annotations

import pathlib
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
EXAMPLES = sorted(str(path) for path in (ROOT / "examples").rglob("*.py"))
BENCHMARK = "../bench/python_bench.py"


def run(program: str, *arguments: str) -> None:
    found = shutil.which(program, path="/usr/bin:/usr/local/bin") or shutil.which(program)
    if found is None:
        pytest.fail(f"{program} is not installed: apt-get install {program}", pytrace=False)
    done = subprocess.run([found, *arguments], cwd=ROOT / "python", capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr


def test_types_are_complete() -> None:
    run("mypy", "--strict", "telvane", "pytest_telvane.py", BENCHMARK, *EXAMPLES)


def test_style_is_clean() -> None:
    run("flake8", ".", "../tests/python", "../scripts/update-python", BENCHMARK, *EXAMPLES)
