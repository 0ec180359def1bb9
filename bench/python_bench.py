#!/usr/bin/env python3
"""Measures the Python package: processor time of a dense weld, losses at 20,000 samples a second, and `to_pandas`.

    python_bench.py [--runs N] [--seconds S] [weld|dense|pandas ...]

Needs the program telvane, as the fixtures of the package do. Figures are medians over the runs; nothing passes or
fails.
"""
from __future__ import annotations

import argparse
import asyncio
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time
from typing import Callable, Dict, List, NamedTuple

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "python"))

import telvane  # noqa: E402
from telvane import aio  # noqa: E402
from telvane.testing import PowerSource, Server, find_program  # noqa: E402

ROWS = 260_000


class Weld(NamedTuple):
    """What one weld has cost its receiver."""

    samples: int
    missing: int
    core: float
    """Processor time per time on the clock."""
    cost: float
    """Microseconds of processor time per sample."""
    longest: float
    """Longest time without a sample, in seconds: the machine was busy with something else."""


class Meter:
    """Counts the samples of a weld between its begin and its end."""

    def __init__(self) -> None:
        self.samples = self.missing = 0
        self.next = -1
        self.longest = 0.0

    def take(self, record: telvane.WeldTraceData, arrival: float) -> None:
        if self.next < 0:
            self.next = 0
            self.wall, self.cpu = time.monotonic(), time.process_time()
            self.last = arrival
        self.missing += record.sequence - self.next
        self.next = record.sequence + 1
        self.samples += 1
        if arrival - self.last > self.longest:
            self.longest = arrival - self.last
        self.last = arrival

    def result(self) -> Weld:
        cpu, wall = time.process_time() - self.cpu, time.monotonic() - self.wall
        return Weld(self.samples, self.missing, cpu / wall, 1e6 * cpu / self.samples, self.longest)


def weld_blocking(server: Server, options: List[str]) -> Weld:
    """One weld received by `telvane.Bus`."""
    meter = Meter()
    with telvane.Bus(server.path) as bus:
        samples = bus.listen(telvane.WeldTraceData, timeout=2, queue=1_000_000)
        with bus.listen(telvane.WeldTriggerEnd) as end, PowerSource(server.path, options):
            for record in samples:
                assert samples.delivery is not None
                meter.take(record, samples.delivery.arrival)
                if end.pending and not samples.pending:
                    break
    return meter.result()


def weld_asyncio(server: Server, options: List[str]) -> Weld:
    """One weld received by `telvane.aio.Bus`."""
    meter = Meter()

    async def main() -> None:
        async with aio.Bus(server.path) as bus:
            async with bus.listen(telvane.WeldTraceData, timeout=2, queue=1_000_000) as samples, \
                    bus.listen(telvane.WeldTriggerEnd) as end:
                with PowerSource(server.path, options):
                    async for record in samples:
                        assert samples.delivery is not None
                        meter.take(record, samples.delivery.arrival)
                        if end.pending and not samples.pending:
                            break

    asyncio.run(main())
    return meter.result()


def welds(runs: int, seconds: float, period: int) -> None:
    ways: Dict[str, Callable[[Server, List[str]], Weld]] = {"blocking": weld_blocking, "asyncio": weld_asyncio}
    options = ["--duration", str(seconds), "--period-us", str(period), "--wait", "5"]
    print(f"a weld of {1_000_000 // period} samples a second:")
    with Server() as server:
        for name, way in ways.items():
            results = [way(server, options) for _ in range(runs)]
            core = statistics.median(result.core for result in results)
            cost = statistics.median(result.cost for result in results)
            missing = " ".join(f"{result.missing}/{result.samples + result.missing}" for result in results)
            gaps = " ".join(f"{1000 * result.longest:.0f}" for result in results)
            print(f"  {name:8}  {100 * core:5.1f} % of a core, {cost:5.1f} µs a sample; missing {missing}; "
                  f"longest gap {gaps} ms", flush=True)


def pandas(runs: int) -> None:
    """A recording as the tool writes it, into a frame."""
    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "weld.jsonl")
        subprocess.run([find_program(), "weld", "-o", path, "--duration", str(ROWS * 0.0005), "--period-us", "500"],
                       check=True)
        telvane.read(path).to_pandas()  # imports pandas
        walls, cpus = [], []
        for _ in range(runs):
            wall, cpu = time.monotonic(), time.process_time()
            frame = telvane.read(path).to_pandas()
            walls.append(time.monotonic() - wall)
            cpus.append(time.process_time() - cpu)
        print(f"to_pandas of {len(frame):,} samples, {os.path.getsize(path) / 1e6:.0f} MB: "
              f"{statistics.median(walls):.2f} s on the clock, {statistics.median(cpus):.2f} s of processor time",
              flush=True)


def main() -> int:
    arguments = argparse.ArgumentParser(description="Measure the Python package; figures are medians.")
    arguments.add_argument("what", nargs="*", metavar="weld|dense|pandas",
                           help="what to measure (default: everything)")
    arguments.add_argument("--runs", type=int, default=5)
    arguments.add_argument("--seconds", type=float, default=5.0, help="duration of each weld (default: 5)")
    options = arguments.parse_args()
    chosen = options.what or ["weld", "dense", "pandas"]
    unknown = set(chosen) - {"weld", "dense", "pandas"}
    if unknown:
        arguments.error(f"unknown: {', '.join(sorted(unknown))}")
    print(f"Python {sys.version.split()[0]}, {os.cpu_count()} processors, load {os.getloadavg()[0]:.1f}")
    if "weld" in chosen:
        welds(options.runs, options.seconds, 500)
    if "dense" in chosen:
        welds(options.runs, options.seconds, 50)
    if "pandas" in chosen:
        pandas(options.runs)
    return 0


if __name__ == "__main__":
    sys.exit(main())
