"""A test of a power source with the fixtures of the package: pytest test_power_source.py

The source is simulated. On a test bench, --telvane-bus=PATH uses the bus of the machine.
"""
from typing import Callable

import telvane
from telvane.testing import PowerSource, expect, expect_none


def test_a_weld_is_reported_with_metrics(telvane_bus: telvane.Bus, telvane_weld: Callable[..., PowerSource]) -> None:
    with expect(telvane_bus, telvane.WeldTriggerEnd, where=lambda end: end.tag == 1, within=10) as seen:
        telvane_weld("--duration", 1.5)
    assert 1 < seen.record.metrics.ArcDuration.Value < 2


def test_nothing_is_reported_without_an_arc(telvane_bus: telvane.Bus) -> None:
    with expect_none(telvane_bus, telvane.WeldTriggerStart, within=0.2):
        telvane_bus.publish(telvane.LogData(log="the trigger is not pulled"))
