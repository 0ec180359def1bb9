#!/usr/bin/env python3
"""Prints each weld when it ends, and the highest current of its samples: watch_welds.py PATH"""
import sys

import telvane

with telvane.Bus(sys.argv[1]) as bus:
    samples = bus.listen(telvane.WeldTraceData)
    for end in bus.listen(telvane.WeldTriggerEnd):
        peak = max((samples.recv().data.amps for _ in range(samples.pending)), default=0.0)
        duration = end.metrics.ArcDuration.Value
        print(f"weld {end.tag}: {duration:.1f} s, at most {peak:.0f} A", flush=True)
