"""Records: what they print and read, and what they refuse."""
from __future__ import annotations

import enum
import math
import pathlib
from dataclasses import dataclass, field, fields
from datetime import datetime, timedelta, timezone
from typing import Any, Dict, List, Optional

import pytest

import telvane
from telvane.records import CATALOGUE

MOMENT = datetime(2026, 11, 22, 8, 30, 15, 123456, timezone.utc)


def test_there_is_a_golden_file_for_every_class(golden: pathlib.Path) -> None:
    assert CATALOGUE
    assert {path.name.split(".")[0] for path in golden.iterdir()} == set(CATALOGUE)


@pytest.mark.parametrize("name", CATALOGUE)
@pytest.mark.parametrize("kind", ["default", "filled"])
def test_a_golden_record_is_read_and_printed_to_the_byte(golden: pathlib.Path, name: str, kind: str) -> None:
    text = (golden / f"{name}.{kind}.json").read_text(encoding="utf-8")
    record = CATALOGUE[name].from_json(text)
    assert record.to_json() == text
    assert record == CATALOGUE[name].from_json(text.encode())
    if kind == "default":
        assert record == CATALOGUE[name]()
        assert CATALOGUE[name]().to_json() == text
        CATALOGUE[name]().check()


@pytest.mark.parametrize("name", CATALOGUE)
def test_every_class_and_field_has_a_docstring(name: str) -> None:
    assert CATALOGUE[name].__doc__ and not CATALOGUE[name].__doc__.startswith(f"{name}(")


@pytest.mark.parametrize("name", [name for name in CATALOGUE if fields(CATALOGUE[name]) and name != "DateTime"])
def test_a_missing_key_is_named(golden: pathlib.Path, name: str) -> None:
    key = fields(CATALOGUE[name])[-1].name
    text = (golden / f"{name}.default.json").read_text(encoding="utf-8")
    with pytest.raises(telvane.RecordError, match=rf"^{name}\.{key}: missing$"):
        CATALOGUE[name].from_json(text.replace(f'"{key}"', '"other"'))


def test_a_wrong_type_is_named_with_its_path() -> None:
    text = telvane.WeldTraceData().to_json().replace('"volts":\t0', '"volts":\t"24"')
    with pytest.raises(telvane.RecordError, match=r"^WeldTraceData\.data\.volts: a number exp.*, not a text$") as info:
        telvane.WeldTraceData.from_json(text)
    assert info.value.path == "WeldTraceData.data.volts"


@pytest.mark.parametrize("record, path, reason", [
    (telvane.LogData(log=5), "LogData.log", "a text expected, not 5"),  # type: ignore[arg-type]
    (telvane.LogData(log="a\0b"), "LogData.log", "zero"),
    (telvane.LogData(log="\ud800"), "LogData.log", "not Unicode"),
    (telvane.DataStatus(ttl=2**31), "DataStatus.ttl", "32 bits"),
    (telvane.DataStatus(ttl=True), "DataStatus.ttl", "a whole number expected"),
    (telvane.DataStatus(ttl=1.0), "DataStatus.ttl", "a whole number expected"),  # type: ignore[arg-type]
    (telvane.HALStatus(ready=1), "HALStatus.ready", "a flag expected"),  # type: ignore[arg-type]
    (telvane.TimeType(datetime(2026, 1, 1)), "TimeType.timestamp", "time zone"),
    (telvane.TimeType(5), "TimeType.timestamp", "a datetime expected"),  # type: ignore[arg-type]
    (telvane.PSFeedback(mPSValues=[1, 2]), "PSFeedback.mPSValues", "24 elements expected, not 2"),
    (telvane.PSCommand(mModes=[telvane.ValueLabelType(), telvane.ValueLabelType(Value=2**40)]),
     "PSCommand.mModes[1].Value", "32 bits"),
    (telvane.WeldTraceData(data=telvane.LogData()), "WeldTraceData.data",  # type: ignore[arg-type]
     "a WeldTraceDataPoint expected"),
])
def test_a_value_that_the_library_could_not_hold_is_named(record: telvane.Record, path: str, reason: str) -> None:
    for operation in (record.to_json, record.check):
        with pytest.raises(telvane.RecordError, match=reason) as info:
            operation()
        assert info.value.path == path


@pytest.mark.parametrize("record, path, printed", [
    (telvane.UnitValueDoublePair(Value=math.nan), "UnitValueDoublePair.Value", "null"),
    (telvane.UnitValueDoublePair(Value=math.inf), "UnitValueDoublePair.Value", "null"),
    (telvane.TimeType(MOMENT - timedelta(days=36500)), "TimeType.timestamp", '"/Date(-'),
    (telvane.PSMemorySlot(mPrograms=[telvane.ProgramType() for _ in range(101)]), "PSMemorySlot.mPrograms", "PROC"),
])
def test_check_finds_what_prints_and_no_receiver_reads(record: telvane.Record, path: str, printed: str) -> None:
    assert printed in record.to_json()
    with pytest.raises(telvane.RecordError) as info:
        record.check()
    assert info.value.path == path


def test_times_are_datetimes_in_utc_of_milliseconds() -> None:
    record = telvane.TimeType(MOMENT.astimezone(timezone(timedelta(hours=5))))
    assert record.to_json() == '{\n\t"timestamp":\t"/Date(1795336215123)/"\n}'
    back = telvane.TimeType.from_json(record.to_json())
    assert back.timestamp == MOMENT.replace(microsecond=123000)
    assert back.timestamp.tzinfo is timezone.utc


def test_the_sign_of_a_time_is_ignored_as_by_the_library() -> None:
    record = telvane.TimeType.from_json('{"timestamp":"/Date(-5000)/"}')
    assert record.timestamp == datetime(1970, 1, 1, 0, 0, 5, tzinfo=timezone.utc)


def test_a_time_after_the_year_9999_is_printed_as_it_came() -> None:
    text = '{\n\t"timestamp":\t"/Date(9223372036854775807)/"\n}'
    record = telvane.TimeType.from_json(text)
    assert record.timestamp.year == 9999
    assert record.to_json() == text


def test_codes_are_enumerations_and_unknown_ones_are_kept() -> None:
    record = telvane.WeldTriggerStart(process=telvane.ProcessID.MIGPulse, gas=telvane.GasID(99))
    back = telvane.WeldTriggerStart.from_json(record.to_json())
    assert back.process is telvane.ProcessID.MIGPulse
    assert isinstance(back.gas, telvane.GasID) and back.gas == 99 and back.gas.name == "Code_99"
    assert back == record


def test_keys_match_in_any_letter_case_and_the_first_of_two_counts() -> None:
    assert telvane.DataStatus.from_json('{"x":1,"TTL":3,"ttl":4}') == telvane.DataStatus(ttl=3)
    with pytest.raises(telvane.RecordError):
        telvane.SystemHealth.from_json('{"code":1,"proce\u017fsName":""}')


@pytest.mark.parametrize("text, value", [("3.9", 3), ("-3.9", -3), ("1e12", 2**31 - 1), ("-1e400", -2**31)])
def test_integers_are_cut_to_32_bits(text: str, value: int) -> None:
    assert telvane.DataStatus.from_json(f'{{"ttl":{text}}}').ttl == value


def test_an_array_shorter_than_its_place_fills_the_first_elements() -> None:
    text = telvane.PSFeedback(mWeldFlags=[True] * 4).to_json().replace("[true, true, true, true]", "[true, true]")
    assert telvane.PSFeedback.from_json(text).mWeldFlags == [True, True, False, False]


@pytest.mark.parametrize("text", ["", "{", "nonsense", "[1,", '{"ttl":NaN}', '{"ttl":', "\0", '{"ttl":1' + "[" * 5000])
def test_what_is_not_json_is_refused(text: str) -> None:
    with pytest.raises(telvane.RecordError):
        telvane.DataStatus.from_json(text)


def test_deep_nesting_is_read_to_the_library_s_limit() -> None:
    def nested(depth: int) -> str:
        return '{"ttl":7,"other":' + "[" * (depth - 1) + "]" * (depth - 1) + "}"

    assert telvane.DataStatus.from_json(nested(1000)).ttl == 7
    with pytest.raises(telvane.RecordError):
        telvane.DataStatus.from_json(nested(1001))


def test_bytes_that_are_not_utf_8_are_printed_as_they_came() -> None:
    data = b'{\n\t"log":\t"\xff\xc3 \xed\xa0\x80"\n}'
    record = telvane.LogData.from_json(data)
    assert record.to_json().encode("utf-8", "surrogateescape") == data
    record.check()


def test_the_base_members_are_read_and_printed_but_tags_below_zero_are_not() -> None:
    record = telvane.LogData(log="x")
    record.generate_id()
    identifier = record._id
    record.generate_id()
    assert record._id == identifier and len(identifier) == 36
    record._sequence_tag = 0
    assert record.to_json().endswith(f'"_id":\t"{identifier}",\n\t"_sequence_tag":\t0\n}}')
    assert telvane.LogData.from_json(record.to_json()) == record
    record._sequence_tag = -2
    assert "_sequence_tag" not in record.to_json()
    assert telvane.LogData(log="x") != record


class Door(enum.Enum):
    OPEN = "open"
    SHUT = "shut"


@telvane.record
@dataclass
class OvenState(telvane.Record):
    """A record of one's own, with everything that one can hold."""

    temperature: float = 20.0
    heats: int = 2**40
    door: Door = Door.SHUT
    note: Optional[str] = None
    opened: Optional[datetime] = None
    zones: List[float] = field(default_factory=list)
    limits: List[int] = field(default_factory=lambda: [0, 0], metadata={"size": 2})
    last: telvane.WeldTraceDataPoint = field(default_factory=telvane.WeldTraceDataPoint)
    alarms: Dict[str, bool] = field(default_factory=dict)


def test_an_own_record_keeps_all_its_values() -> None:
    record = OvenState(21.5, -5, Door.OPEN, "x", MOMENT.replace(microsecond=0), [1.5, 2.0], [3, 4],
                       telvane.WeldTraceDataPoint(amps=5.0), {"hot": True})
    assert OvenState.from_json(record.to_json()) == record
    assert OvenState.from_json(OvenState().to_json()) == OvenState()
    assert "note" not in OvenState().to_json()
    record._id = "x"
    assert OvenState.from_json(record.to_json())._id == "x"


def test_an_own_record_names_the_wrong_field() -> None:
    with pytest.raises(telvane.RecordError, match=r"OvenState\.heats: .*2\*\*53"):
        OvenState(heats=2**60).to_json()
    with pytest.raises(telvane.RecordError, match=r"OvenState\.door: 'ajar' is not a value of Door"):
        OvenState.from_json(OvenState().to_json().replace("shut", "ajar"))
    with pytest.raises(telvane.RecordError, match=r"OvenState\.alarms\['hot'\]: a flag expected"):
        OvenState(alarms={"hot": 1}).check()  # type: ignore[dict-item]


def test_a_field_that_cannot_travel_is_found_when_the_class_is_made() -> None:
    @dataclass
    class Bad(telvane.Record):
        data: bytes = b""

    with pytest.raises(TypeError, match=r"Bad\.data: bytes cannot travel; a field can be int, float"):
        telvane.record(Bad)

    @dataclass
    class Same(telvane.Record):
        level: int = 0
        Level: int = 0

    with pytest.raises(TypeError, match=r"Same\.Level: keys match in any letter case"):
        telvane.record(Same)

    class NoDataclass(telvane.Record):
        pass

    with pytest.raises(TypeError, match="put @dataclass below"):
        telvane.record(NoDataclass)


def test_what_is_no_record_cannot_be_made_one() -> None:
    wrong: Any = int
    with pytest.raises(TypeError, match="derive it from telvane.Record"):
        telvane.record(wrong)
