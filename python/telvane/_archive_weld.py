"""A row of the archive's table of welds."""
from __future__ import annotations

from dataclasses import dataclass
from datetime import datetime, timedelta, timezone
from typing import Optional

_EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)


@dataclass
class Weld:
    """A weld in the archive. What is unknown is None. The metrics are defined in docs/archive.md."""

    id: int
    """Number in its database."""
    uid: Optional[str] = None
    """Identity of the weld in all archives."""
    module: Optional[str] = None
    """Name of the module."""
    source: Optional[str] = None
    """Bus, recording or csv."""
    source_name: Optional[str] = None
    """Path of the bus or the file."""
    boot: Optional[str] = None
    """Boot of the machine that kept the weld."""
    monotonic_ns: Optional[int] = None
    """Monotonic clock at the start, within the boot (ns)."""
    clock_set: Optional[int] = None
    """1 if the clock was synchronised at the start."""
    start_ns: Optional[int] = None
    """Start, since 1970 in UTC (ns)."""
    end_ns: Optional[int] = None
    """End, since 1970 in UTC (ns)."""
    utc_offset_s: Optional[int] = None
    """Local time minus UTC at the start (s)."""
    ending: Optional[str] = None
    """Running, complete, bus, no_end, stopped, killed or power."""
    samples: Optional[int] = None
    """Samples kept."""
    missed: Optional[int] = None
    """Samples missed, by the gaps in their numbers."""
    unstored: Optional[int] = None
    """Samples that arrived and could not be stored."""
    bytes_stored: Optional[int] = None
    """Size of the samples on the disk (B)."""
    label: Optional[str] = None
    """Name of the weld in an imported file."""
    tag: Optional[int] = None
    """Tag on the bus."""
    program: Optional[int] = None
    """Number of the weld program."""
    process: Optional[int] = None
    """Code of the weld process."""
    wire_type: Optional[int] = None
    """Code of the wire type."""
    wire_size: Optional[int] = None
    """Code of the wire size."""
    alloy: Optional[int] = None
    """Code of the alloy."""
    gas_code: Optional[int] = None
    """Code of the shielding gas."""
    feeder_side: Optional[str] = None
    """Side of a dual feeder."""
    sample_period_us: Optional[int] = None
    """Time between samples (us)."""
    set_volts: Optional[float] = None
    """Set voltage (V)."""
    set_amps: Optional[float] = None
    """Set current (A)."""
    set_wfs: Optional[float] = None
    """Set wire-feed speed (in/min)."""
    set_arc_control: Optional[float] = None
    """Set arc control."""
    machine_type: Optional[str] = None
    """Type of the machine."""
    machine_serial: Optional[str] = None
    """Serial number of the machine."""
    pub_arc_time: Optional[float] = None
    """Arc time (s)."""
    pub_volts: Optional[float] = None
    """Mean voltage (V)."""
    pub_amps: Optional[float] = None
    """Mean current (A)."""
    pub_wfs: Optional[float] = None
    """Mean wire-feed speed (in/min)."""
    pub_gas: Optional[float] = None
    """Mean gas flow (l/min)."""
    pub_motor: Optional[float] = None
    """Mean motor load (A)."""
    pub_energy: Optional[float] = None
    """Arc energy (J)."""
    pub_deposition: Optional[float] = None
    """Metal deposited (lb)."""
    lifetime_arc_hours: Optional[float] = None
    """Arc time of the machine (h)."""
    arc_time: Optional[float] = None
    """Time with an arc (s)."""
    mean_amps: Optional[float] = None
    """Mean current (A)."""
    min_amps: Optional[float] = None
    """Smallest current (A)."""
    max_amps: Optional[float] = None
    """Largest current (A)."""
    sd_amps: Optional[float] = None
    """Standard deviation of the current (A)."""
    mean_volts: Optional[float] = None
    """Mean voltage (V)."""
    min_volts: Optional[float] = None
    """Smallest voltage (V)."""
    max_volts: Optional[float] = None
    """Largest voltage (V)."""
    sd_volts: Optional[float] = None
    """Standard deviation of the voltage (V)."""
    mean_wfs: Optional[float] = None
    """Mean wire-feed speed (in/min)."""
    sd_wfs: Optional[float] = None
    """Standard deviation of the wire-feed speed (in/min)."""
    mean_gas: Optional[float] = None
    """Mean gas flow (l/min)."""
    sd_gas: Optional[float] = None
    """Standard deviation of the gas flow (l/min)."""
    mean_motor: Optional[float] = None
    """Mean motor load (A)."""
    sd_motor: Optional[float] = None
    """Standard deviation of the motor load (A)."""
    energy: Optional[float] = None
    """Arc energy, sum of u*i*dt (J)."""
    energy_method: Optional[str] = None
    """How the energy was computed."""
    energy_of_means: Optional[float] = None
    """Mean voltage * mean current * arc time (J)."""
    short_rate: Optional[float] = None
    """Short circuits per second of arc (1/s)."""
    short_time: Optional[float] = None
    """Mean time of a short circuit (ms)."""
    sd_short_time: Optional[float] = None
    """Standard deviation of that time (ms)."""
    short_period: Optional[float] = None
    """Mean time between starts of short circuits (ms)."""
    sd_short_period: Optional[float] = None
    """Standard deviation of that time (ms)."""
    arc_stability: Optional[float] = None
    """Sd_short_period / short_period; 0 is most regular."""
    short_method: Optional[str] = None
    """Thresholds of the short circuits and the sampling."""
    interruptions: Optional[int] = None
    """Times the arc went out within the weld."""
    wire_length: Optional[float] = None
    """Wire fed, by the feed speed (in)."""
    deposition: Optional[float] = None
    """Wire fed, by the table of wire weights (g)."""
    travel_speed: Optional[float] = None
    """Travel speed, if it is known (mm/s)."""
    efficiency: Optional[float] = None
    """Thermal efficiency k that was used."""
    heat_input: Optional[float] = None
    """K * energy / (travel speed * arc time) (kJ/mm)."""
    part_number: Optional[str] = None
    """Part number."""
    part_serial: Optional[str] = None
    """Serial number of the part."""
    seam: Optional[str] = None
    """Seam."""
    pass_: Optional[str] = None
    """Pass."""
    wps: Optional[str] = None
    """Welding procedure (WPS)."""
    operator: Optional[str] = None
    """Welder or operator."""
    wire_batch: Optional[str] = None
    """Batch of the wire."""
    gas_batch: Optional[str] = None
    """Batch of the gas."""
    calibration: Optional[str] = None
    """Calibration of the meters."""
    measured_at: Optional[str] = None
    """Where the voltage is measured."""
    program_name: Optional[str] = None
    """Name of the weld program."""
    start_record: Optional[str] = None
    """Record of the start, as published."""
    end_record: Optional[str] = None
    """Record of the end, as published."""
    verdict: Optional[str] = None
    """Ok, warning or not_ok; empty if not judged."""

    @property
    def start(self) -> Optional[datetime]:
        """When it started, in UTC."""
        return _moment(self.start_ns)

    @property
    def end(self) -> Optional[datetime]:
        """When it ended, in UTC."""
        return _moment(self.end_ns)


def _moment(ns: Optional[int]) -> Optional[datetime]:
    return None if ns is None else _EPOCH + timedelta(microseconds=ns // 1000)
