"""Recordings: what is read, what is missing, and what the tables hold."""
from __future__ import annotations

import gzip
import json
import pathlib
import shutil
import subprocess
import sys
import time
import warnings
from datetime import datetime, timedelta, timezone
from typing import Any, List

import pytest

import telvane
from telvane import data
from telvane.testing import find_program

HEADER = ('{"telvaneRecording":1,"started":"2026-11-21T15:17:56.342864Z","server":"/run/bus","channels":[],"part":1}')
START = datetime(2026, 11, 21, 15, 17, 56, 342864, timezone.utc)


def compact(record: telvane.Record) -> str:
    return json.dumps(json.loads(record.to_json()), separators=(",", ":"), ensure_ascii=False)


def line(ns: int, record: telvane.Record, number: int = 0, channel: str = "") -> str:
    return (f'{{"ns":{ns},"channel":"{channel or type(record).__name__}","sequence":{number},'
            f'"payload":{compact(record)}}}')


def sample(number: int) -> telvane.WeldTraceData:
    return telvane.WeldTraceData(number, datetime(2026, 1, 1, tzinfo=timezone.utc) + timedelta(milliseconds=number),
                                 telvane.WeldTraceDataPoint(200.5 + number, 24.25, 5e-05, 16, -4.5, 0), number)


def weld(tag: int, begin: int, samples: int = 3) -> List[str]:
    start = telvane.WeldTriggerStart(tag=tag, process=telvane.ProcessID.MIGPulse)
    lines = [line(begin, start)] + [line(begin + 1 + n, sample(n), n) for n in range(samples)]
    return lines + [line(begin + samples + 1, telvane.WeldTriggerEnd(tag=tag))]


@pytest.fixture
def recording(tmp_path: pathlib.Path) -> pathlib.Path:
    path = tmp_path / "weld.jsonl"
    lines = [HEADER, line(5, telvane.LogData(log="µ on")), *weld(1, 1000), *weld(2, 2000), line(9000, sample(9), 65535),
             '{"ns":9001,"channel":"Oven","sequence":3,"payload":{"x":[1,{"y":2}]}}']
    path.write_text("\n".join(lines) + "\n", encoding="utf-8")
    return path


def test_messages_come_in_their_order_with_their_arrival(recording: pathlib.Path) -> None:
    read = telvane.read(recording)
    messages = list(read)
    assert read.started == START and len(messages) == 13
    assert messages[0].record == telvane.LogData(log="µ on")
    assert messages[1].record == telvane.WeldTriggerStart(tag=1, process=telvane.ProcessID.MIGPulse)
    assert messages[2].record == sample(0)
    assert messages[-1].record == {"x": [1, {"y": 2}]} and messages[-1].channel == "Oven"
    assert messages[1].arrival == START + timedelta(microseconds=1) and messages[1].ns == 1000
    assert read.channels() == {"LogData": 1, "WeldTriggerStart": 2, "WeldTraceData": 7, "WeldTriggerEnd": 2, "Oven": 1}


def test_columns_hold_the_values_of_the_records(recording: pathlib.Path) -> None:
    columns = telvane.read(recording).columns()
    assert columns.names == ["sequence", "timestamp", "data.amps", "data.volts", "data.wfs", "data.gas", "data.power",
                             "data.motor", "messageSerial"]
    assert list(columns["data.amps"]) == [200.5, 201.5, 202.5] * 2 + [209.5]
    assert list(columns["data.wfs"]) == [5e-05] * 7
    assert columns.number[-1] == 65535 and columns.ns[0] == 1001
    with pytest.raises(KeyError, match="it has sequence, timestamp"):
        columns["amps"]


@pytest.mark.parametrize("name", list(telvane.CATALOGUE))
def test_every_class_goes_into_columns_as_when_read_one_by_one(tmp_path: pathlib.Path, golden: pathlib.Path,
                                                               name: str) -> None:
    filled = json.loads((golden / f"{name}.filled.json").read_text(encoding="utf-8"))
    if isinstance(filled, dict):
        filled.pop("_id"), filled.pop("_sequence_tag")
    payload = json.dumps(filled, separators=(",", ":"), ensure_ascii=False)
    usual = f'{{"ns":1,"channel":"{name}","sequence":7,"payload":{payload}}}'
    other = f'{{"sequence": 7, "payload": {payload}, "channel": "{name}", "ns": 1}}'
    path = tmp_path / "x.jsonl"
    path.write_text("\n".join([HEADER, usual, other, usual]) + "\n", encoding="utf-8")
    columns = telvane.read(path).columns(name)
    assert len(columns) == 3 and (columns.names or name == "RequestType")
    for column in columns.names:
        first, second, third = columns[column]
        assert first == second == third, column


def test_welds_are_divided_and_the_ends_may_be_missing(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "w.jsonl"
    cut_begin, cut_end = weld(1, 1000)[2:], weld(3, 3000)[:-1]
    path.write_text("\n".join([HEADER, *cut_begin, *weld(2, 2000), *cut_end]) + "\n")
    first, second, third = telvane.read(path).welds()
    assert first.start is None and first.end is not None and first.tag == 1 and len(first.samples) == 2
    assert second.start is not None and second.end is not None and len(second.samples) == 3
    assert second.duration == pytest.approx(4e-9)
    assert third.end is None and third.tag == 3 and len(third.samples) == 3
    assert second.summary()["process"] == "MIGPulse"


def test_a_frame_is_indexed_by_the_arrival_in_utc(recording: pathlib.Path) -> None:
    pandas = pytest.importorskip("pandas")
    frame = telvane.read(recording).to_pandas()
    assert frame.index[0] == pandas.Timestamp(START) + pandas.Timedelta(1001, "ns")
    assert str(frame.index.tz) == "UTC"
    assert list(frame["data.amps"][:3]) == [200.5, 201.5, 202.5]
    assert frame["timestamp"][1] == pandas.Timestamp("2026-01-01T00:00:00.001Z")
    assert frame["sequence"].dtype == "int64"
    logs = telvane.read(recording).to_pandas(telvane.LogData)
    assert logs["log"].dtype == "category" and list(logs["log"]) == ["µ on"]
    table = telvane.read(recording).weld_table()
    assert list(table["tag"]) == [1, 2] and list(table["samples"]) == [3, 3]
    assert len(telvane.read(recording).welds()[0].to_pandas()) == 3
    assert telvane.read(recording).to_numpy()["data.volts"].sum() == 7 * 24.25


def test_parquet_is_written_or_the_package_is_named(recording: pathlib.Path, tmp_path: pathlib.Path) -> None:
    try:
        import pyarrow  # type: ignore[import]  # noqa: F401
    except ImportError:
        with pytest.raises(data.RecordingError, match="needs the Python package pyarrow"):
            telvane.read(recording).to_parquet(tmp_path / "x.parquet")
    else:
        pandas = pytest.importorskip("pandas")
        telvane.read(recording).to_parquet(tmp_path / "x.parquet")
        assert len(pandas.read_parquet(tmp_path / "x.parquet")) == 7


def test_gzip_is_read(recording: pathlib.Path) -> None:
    packed = recording.with_suffix(".jsonl.gz")
    packed.write_bytes(gzip.compress(recording.read_bytes()))
    assert list(telvane.read(packed)) == list(telvane.read(recording))
    cut = recording.with_suffix(".cut.gz")
    cut.write_bytes(packed.read_bytes()[:-20])
    read = telvane.read(cut)
    with pytest.warns(data.RecordingWarning, match="torn"):
        list(read)
    assert read.torn


@pytest.mark.parametrize("way", ["module", "program", "none"])
def test_zstd_is_read_where_it_can_be_or_the_package_is_named(recording: pathlib.Path, way: str,
                                                              monkeypatch: pytest.MonkeyPatch) -> None:
    program = shutil.which("zstd")
    if program is None:
        pytest.skip("there is no program zstd to make the file with")
    packed = recording.with_suffix(".jsonl.zst")
    subprocess.run([program, "-q", recording, "-o", packed], check=True)
    if way == "module":
        if not any(map(_importable, ("compression.zstd", "backports.zstd", "zstandard"))):
            pytest.skip("there is no module for zstd")
        monkeypatch.setenv("PATH", "")
    else:
        for name in ("compression.zstd", "backports.zstd", "zstandard"):
            monkeypatch.setitem(sys.modules, name, None)
    if way == "none":
        monkeypatch.setenv("PATH", "")
        with pytest.raises(data.RecordingError, match="zstandard"):
            telvane.read(packed)
        return
    assert list(telvane.read(packed)) == list(telvane.read(recording))
    assert len(telvane.read(packed).columns()) == 7


def _importable(name: str) -> bool:
    try:
        __import__(name)
    except ImportError:
        return False
    return True


@pytest.mark.parametrize("torn", ['{"ns":1', '{"ns":9100,"channel":"LogData","sequence":1,"payload":{"log":"'])
def test_a_torn_recording_gives_its_whole_lines_and_says_so(recording: pathlib.Path, torn: str) -> None:
    with open(recording, "a", encoding="utf-8") as file:
        file.write(torn)
    read = telvane.read(recording)
    with pytest.warns(data.RecordingWarning, match="torn"):
        assert len(list(read)) == 13
    with pytest.warns(data.RecordingWarning, match="torn"):
        assert len(read.columns()) == 7
    assert read.torn and not read.damaged


def test_a_last_line_without_newline_is_read_if_it_is_whole(recording: pathlib.Path) -> None:
    recording.write_bytes(recording.read_bytes()[:-1])
    assert len(list(telvane.read(recording))) == 13


@pytest.mark.parametrize("wrong", [
    "rubbish", "[]", "{}", "", "\x00", '{"ns":-1,"channel":"WeldTraceData","sequence":1,"payload":{}}',
    '{"ns":1,"channel":"WeldTraceData","sequence":1,"payload":{}}', '{"ns":1,"channel":5,"sequence":1,"payload":{}}',
    '{"ns":1e400,"channel":"WeldTraceData","sequence":1,"payload":{}}', '{"ns":1,"channel":"WeldTraceData"}',
    '{"ns":1,"channel":"WeldTraceData","sequence":1,"payload":null}', "[" * 5000])
def test_a_damaged_line_is_counted_and_passed_over(recording: pathlib.Path, wrong: str) -> None:
    lines = recording.read_text(encoding="utf-8").split("\n")
    lines.insert(4, wrong)
    recording.write_text("\n".join(lines), encoding="utf-8")
    read = telvane.read(recording)
    with pytest.warns(data.RecordingWarning, match="1 lines are no records, the first is line 5"):
        assert len(list(read)) == 13
    assert read.damaged == 1 and read.first_damaged == (str(recording), 5)
    with pytest.warns(data.RecordingWarning, match="the first is line 5"):
        assert len(read.columns()) == 7


def test_notes_of_missing_messages_are_no_damage(recording: pathlib.Path) -> None:
    lines = recording.read_text(encoding="utf-8").split("\n")
    lines[4:4] = ['{"ns":58000312,"channel":"WeldTraceData","missed":2,"from":57945102,"to":57981777}',
                  '{"ns":58000313,"channel":"LogData","missed":3,"from":57945102,"to":57981777}',
                  '{"ns":61250310,"outage":true,"from":58914200,"to":61250310}']
    recording.write_text("\n".join(lines), encoding="utf-8")
    read = telvane.read(recording)
    with pytest.warns(data.RecordingWarning, match="5 messages are missing, and .* during 1 losses"):
        assert len(list(read)) == 13
    assert (read.damaged, read.missed, read.outages) == (0, 5, 1)
    with pytest.warns(data.RecordingWarning, match="2 messages are missing"):
        assert len(read.columns()) == 7
    assert (read.damaged, read.missed, read.outages) == (0, 2, 1)
    assert sum(read.channels().values()) == 13


@pytest.mark.parametrize("number, value", [("1.2.3", None), ("1e5", 1e5), ("+1", None), ("--1", None), ("-.5", -0.5),
                                           ("1-", None), ("007", 7.0), ("1e", None), ("1" * 60, 1.1111111111111112e59)])
def test_odd_numbers_are_read_as_by_the_library(recording: pathlib.Path, number: str, value: Any) -> None:
    recording.write_text(recording.read_text(encoding="utf-8").replace("201.5", number), encoding="utf-8")
    read = telvane.read(recording)
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        amps = list(read.columns()["data.amps"])
    assert amps == ([200.5, value, 202.5] * 2 if value is not None else [200.5, 202.5] * 2) + [209.5]
    assert read.damaged == (2 if value is None else 0)


@pytest.mark.parametrize("text, reason", [
    ("", "not JSON"), ("x\n", "not JSON"), ("{}\n", "no key telvaneRecording"), ('{"telvaneRecording":2}\n', "form 2"),
    ('{"telvaneRecording":1,"started":"yesterday"}\n', "does not say when"), ("[" * 5000 + "\n", "not JSON")])
def test_what_is_no_recording_is_refused(tmp_path: pathlib.Path, text: str, reason: str) -> None:
    path = tmp_path / "x.jsonl"
    path.write_text(text)
    with pytest.raises(data.RecordingError, match=reason):
        telvane.read(path)


def test_several_files_of_one_run_are_one_recording(tmp_path: pathlib.Path) -> None:
    paths = []
    for part in range(3):
        path = tmp_path / f"w-{part}.jsonl"
        path.write_text("\n".join([HEADER, *weld(part, 1000 * (part + 1))]) + "\n")
        paths.append(path)
    read = telvane.read(*paths)
    assert [one.tag for one in read.welds()] == [0, 1, 2]
    assert len(list(read)) == 15


def test_records_across_chunks_are_all_there(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    path = tmp_path / "w.jsonl"
    path.write_text("\n".join([HEADER, *(line(n, sample(n), n) for n in range(300))]) + "\n")
    for size in (1, 7, 100, 1000):
        monkeypatch.setattr(data, "_CHUNK", size)
        assert list(telvane.read(path).columns()["sequence"]) == list(range(300))


def test_a_recording_of_the_tool_is_read(telvane_path: str, telvane_weld: Any, telvane_bus: telvane.Bus,
                                         tmp_path: pathlib.Path) -> None:
    path = tmp_path / "weld.jsonl"
    end = telvane_bus.listen(telvane.WeldTriggerEnd)
    received = telvane_bus.listen(telvane.WeldTraceData)
    recorder = subprocess.Popen([find_program(), "record", "-o", path, telvane_path, "WeldTriggerStart",
                                 "WeldTraceData", "WeldTriggerEnd"], stderr=subprocess.DEVNULL)
    try:
        deadline = time.monotonic() + 10
        wanted = {"WeldTriggerStart": 1, "WeldTraceData": 2, "WeldTriggerEnd": 2}
        while True:
            channels = telvane_bus.request("TelvaneChannels", timeout=5)["channels"]
            found = {entry["channel"]: entry["subscribers"] for entry in channels}
            if all(found.get(name, 0) >= number for name, number in wanted.items()):
                break
            assert time.monotonic() < deadline
        telvane_weld("--duration", "1.5", "--period-us", "2000").wait()
        end.recv(5)
        deadline = time.monotonic() + 10
        while b'"channel":"WeldTriggerEnd"' not in path.read_bytes():
            assert time.monotonic() < deadline
            time.sleep(0.01)
    finally:
        recorder.terminate()
        recorder.wait(10)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        one, = telvane.read(path).welds()
    telvane_bus.close()
    assert one.start is not None and one.end is not None
    assert list(one.samples["sequence"]) == [record.sequence for record in received]
