"""The archive of welds, as the program telvane-archive writes it."""
from __future__ import annotations

import json
import os
import pathlib
import random
import shutil
import sqlite3
import subprocess
import sys
import time
import zlib
from dataclasses import fields
from datetime import datetime, timedelta, timezone
from typing import Any, Dict, Iterator, List

import pytest

import telvane
from telvane import _archive_chunks as chunks
from telvane import archive, data
from telvane.testing import PowerSource, Server, find_program, short_directory

PROGRAM = os.environ.get("TELVANE_ARCHIVE_PROGRAM") or shutil.which("telvane-archive")
pytestmark = pytest.mark.skipif(PROGRAM is None, reason="the program telvane-archive has not been built")
CHANNELS = ("amps", "volts", "wfs", "gas", "power", "motor")


def import_welds(recording: pathlib.Path, database: pathlib.Path, *options: str) -> None:
    subprocess.run([str(PROGRAM), "import", str(recording), "--database", str(database), *options], check=True,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


@pytest.fixture(scope="module")
def kept(tmp_path_factory: pytest.TempPathFactory) -> Dict[str, pathlib.Path]:
    """Two welds of 2,000 samples a second: the recording, and the archive that has imported it."""
    directory = tmp_path_factory.mktemp("kept")
    recording, database = directory / "welds.jsonl", directory / "welds.db"
    subprocess.run([find_program(), "weld", "-o", recording, "--welds", "2", "--duration", "4", "--period-us", "500",
                    "--program", "3", "--tag", "7"], check=True, stderr=subprocess.DEVNULL)
    import_welds(recording, database, "--set", "operator=Kim", "--module", "left")
    return {"recording": recording, "database": database}


@pytest.fixture
def database(kept: Dict[str, pathlib.Path], tmp_path: pathlib.Path) -> pathlib.Path:
    """A copy of the archive that a test may damage."""
    shutil.copytree(kept["database"].parent, tmp_path / "copy")
    return tmp_path / "copy" / "welds.db"


def test_welds_and_samples_are_those_of_the_recording(kept: Dict[str, pathlib.Path]) -> None:
    recorded = telvane.read(kept["recording"]).welds()
    with archive.open(kept["database"]) as opened:
        welds = opened.welds()
        assert [weld.tag for weld in welds] == [weld.tag for weld in recorded] == [7, 8]
        for weld, record in zip(welds, recorded):
            assert (weld.ending, weld.program, weld.operator, weld.module) == ("complete", 3, "Kim", "left")
            assert weld.samples == len(record.samples) and weld.missed == 0
            assert record.end is not None and weld.pub_amps == record.end.metrics.AverageAmperage.Value
            assert weld.start is not None and weld.end is not None
            assert (weld.end - weld.start).total_seconds() == pytest.approx(4, abs=0.6)
            samples = opened.samples(weld.id)
            assert samples.damaged == 0 and len(samples) == weld.samples
            for name in CHANNELS:
                assert list(samples[name]) == list(record.samples["data." + name])
            assert list(samples.number) == list(record.samples["sequence"])
            assert list(samples.serial) == list(record.samples["messageSerial"])
            assert samples.ns[1] - samples.ns[0] == 500_000


def test_the_columns_are_those_of_the_program(kept: Dict[str, pathlib.Path]) -> None:
    with sqlite3.connect(kept["database"]) as connection:
        table = {row[1]: row[2] for row in connection.execute("PRAGMA table_info(weld)")}
    connection.close()
    types = {"INTEGER": "int", "BIGINT": "Optional[int]", "DOUBLE PRECISION": "Optional[float]",
             "TEXT": "Optional[str]"}
    assert {field.name.rstrip("_"): field.type for field in fields(archive.Weld)} == \
        {name: types[kind] for name, kind in table.items()}


def test_welds_are_chosen_by_time_and_columns(kept: Dict[str, pathlib.Path]) -> None:
    with archive.open(str(kept["database"])) as opened:
        first, second = opened.welds()
        assert second.start is not None
        assert opened.welds(since=second.start) == [second] and opened.welds(until=second.start) == [first]
        assert opened.welds(since=second.start + timedelta(hours=1)) == []
        assert opened.welds(limit=1) == [second]
        assert opened.welds(tag=7, operator="Kim", travel_speed=None) == [first]
        assert opened.welds(operator="Kim' OR '1'='1") == []
        assert opened.welds(pass_=None) == [first, second]
        assert opened.weld(second.id) == second
        with pytest.raises(TypeError, match="a weld has no tag = 7 --"):
            opened.welds(**{"tag = 7 --": 1})
        with pytest.raises(KeyError, match="no weld 99"):
            opened.samples(99)


def test_a_part_of_the_samples_is_read(kept: Dict[str, pathlib.Path]) -> None:
    with archive.open(kept["database"]) as opened:
        weld = opened.welds()[0]
        whole, part = opened.samples(weld.id), opened.samples(weld.id, begin=1.0, end=3.5)
        chosen = [index for index, ns in enumerate(whole.ns) if 1_000_000_000 <= ns < 3_500_000_000]
        assert len(part) == len(chosen) == 5000
        assert list(part["amps"]) == [whole["amps"][index] for index in chosen]
        assert len(opened.samples(weld.id, begin=60)) == 0


def test_the_tables_have_moments_in_utc_and_say_what_is_unknown(kept: Dict[str, pathlib.Path]) -> None:
    pd = pytest.importorskip("pandas")
    with archive.open(kept["database"]) as opened:
        welds = opened.welds()
        table, trace = welds.to_pandas(), opened.samples(welds[0].id).to_pandas()
        arrays = opened.samples(welds[0].id).to_numpy()
    assert list(table.index) == [weld.id for weld in welds] and table["tag"].dtype == "Int64"
    assert table["start"].iloc[0] == pd.Timestamp(welds[0].start_ns, tz="UTC") == trace.index[0]
    assert table["travel_speed"].isna().all() and table["pass"].isna().all()
    assert table["mean_amps"].iloc[1] == welds[1].mean_amps
    assert list(arrays["volts"]) == list(trace["volts"]) and arrays["number"].dtype == "int64"
    empty = archive.Welds().to_pandas()
    assert len(empty) == 0 and list(empty.columns) == list(table.columns)


def test_every_number_comes_back_bit_for_bit(tmp_path: pathlib.Path) -> None:
    choose = random.Random(1)
    values = [1 / 3, -0.0, 0.0, 1e300, 5e-324, -1e-7, 123456.5, 1e22, 0.1 + 0.2]
    rows: List[Dict[str, Any]] = []
    for number in range(200):
        point = {name: choose.choice(values) if name != "gas" else number / 8 for name in CHANNELS}
        rows.append({"sequence": number * 3, "timestamp": f"/Date({1700000000000 + number * 20})/", "data": point,
                     "messageSerial": 2 + number * number})
    start = telvane.WeldTriggerStart(tag=1, timestamp=datetime(2023, 11, 14, 22, 13, 20, tzinfo=timezone.utc))
    lines = ['{"telvaneRecording":1,"started":"2023-11-14T22:13:20.000000Z","server":"","channels":[],"part":1}']
    sent = [("WeldTriggerStart", json.loads(start.to_json())), *(("WeldTraceData", row) for row in rows),
            ("WeldTriggerEnd", json.loads(telvane.WeldTriggerEnd(tag=1).to_json()))]
    for number, (channel, payload) in enumerate(sent):
        lines.append(json.dumps({"ns": number * 20_000_000, "channel": channel, "sequence": number,
                                 "payload": payload}, separators=(",", ":")))
    recording, database = tmp_path / "w.jsonl", tmp_path / "w.db"
    recording.write_text("\n".join(lines) + "\n")
    import_welds(recording, database)
    with archive.open(database) as opened:
        samples = opened.samples(opened.welds()[0].id)
    for name in CHANNELS:
        assert [value.hex() for value in samples[name]] == [float(row["data"][name]).hex() for row in rows]
    assert list(samples.number) == [row["sequence"] for row in rows]
    assert list(samples.serial) == [row["messageSerial"] for row in rows]


def test_samples_come_as_they_arrived_whatever_their_stamps(tmp_path: pathlib.Path) -> None:
    begin = datetime(2023, 11, 14, 22, 13, 20, tzinfo=timezone.utc)
    # Ten share a stamp, stamps go back, and the first ones are before the start of the weld.
    stamps = [20 * ((number // 10 * 7) % 30 - 2) for number in range(300)]
    start = telvane.WeldTriggerStart(tag=1, timestamp=begin, messageSerial=1)
    sent = [("WeldTriggerStart", json.loads(start.to_json()))]
    for number, stamp in enumerate(stamps):
        sample = telvane.WeldTraceData(sequence=number, timestamp=begin + timedelta(milliseconds=stamp),
                                       data=telvane.WeldTraceDataPoint(amps=100.0 + number), messageSerial=2 + number)
        sent.append(("WeldTraceData", json.loads(sample.to_json())))
    sent.append(("WeldTriggerEnd", json.loads(telvane.WeldTriggerEnd(tag=1, messageSerial=302).to_json())))
    lines = ['{"telvaneRecording":1,"started":"2023-11-14T22:13:20.000000Z","server":"","channels":[],"part":1}']
    for number, (channel, payload) in enumerate(sent):
        lines.append(json.dumps({"ns": number * 20_000_000, "channel": channel, "sequence": number,
                                 "payload": payload}, separators=(",", ":")))
    (tmp_path / "w.jsonl").write_text("\n".join(lines) + "\n")
    import_welds(tmp_path / "w.jsonl", tmp_path / "w.db")
    with archive.open(tmp_path / "w.db") as opened:
        weld = opened.welds()[0]
        whole, part = opened.samples(weld.id), opened.samples(weld.id, begin=0.1, end=0.2)
    assert list(whole.number) == list(range(300)) and [ns // 1_000_000 for ns in whole.ns] == stamps
    assert list(part.number) == [number for number, stamp in enumerate(stamps) if 100 <= stamp < 200]
    assert list(part["amps"]) == [100.0 + number for number in part.number]


def test_what_is_damaged_costs_its_own_samples_only(database: pathlib.Path) -> None:
    file, = database.with_name("welds.db.samples").iterdir()
    with archive.open(database) as opened:
        weld = opened.welds()[0]
        whole = opened.samples(weld.id)
        with sqlite3.connect(database) as connection:
            (place, size, lost), *_ = connection.execute(
                "SELECT place, size, samples FROM chunk WHERE weld_id = ? ORDER BY number", (weld.id,))
        connection.close()
        content = bytearray(file.read_bytes())
        content[place + size // 2] ^= 1
        file.write_bytes(content)
        rest = opened.samples(weld.id)
        assert rest.damaged == 1 and list(rest.number) == list(whole.number)[lost:]
        file.write_bytes(content[:place + size + 3])
        assert len(opened.samples(weld.id)) == 0
        file.unlink()
        gone = opened.samples(weld.id)
        assert len(gone) == 0 and gone.damaged >= 2


def test_without_zstd_the_error_names_the_package(kept: Dict[str, pathlib.Path],
                                                  monkeypatch: pytest.MonkeyPatch) -> None:
    for name in ("compression.zstd", "backports.zstd", "zstandard"):
        monkeypatch.setitem(sys.modules, name, None)  # type: ignore[arg-type]
    with archive.open(kept["database"]) as opened:
        assert len(opened.samples(opened.welds()[0].id)) > 0
        monkeypatch.setattr(shutil, "which", lambda name: None)
        with pytest.raises(data.RecordingError, match="python3-zstandard"):
            opened.samples(opened.welds()[0].id)


def test_what_is_no_archive_is_refused_by_name(tmp_path: pathlib.Path, database: pathlib.Path) -> None:
    with pytest.raises(FileNotFoundError, match="nothing.db"):
        archive.open(tmp_path / "nothing.db")
    (tmp_path / "text.db").write_text("no database " * 100)
    with pytest.raises(archive.ArchiveError, match="text.db is not an archive of welds"):
        archive.open(tmp_path / "text.db")
    with sqlite3.connect(tmp_path / "other.db") as connection:
        connection.execute("CREATE TABLE weld (id)")
    connection.close()
    with pytest.raises(archive.ArchiveError, match="other.db is not an archive of welds"):
        archive.open(tmp_path / "other.db")
    with sqlite3.connect(database) as connection:
        connection.execute("UPDATE archive_info SET value = 1")
    connection.close()
    with pytest.raises(archive.ArchiveError, match="version 1 of the tables; telvane archive brings it up to date"):
        archive.open(database)


def test_reading_changes_nothing_and_ends_with_close(database: pathlib.Path) -> None:
    before = database.read_bytes()
    opened = archive.open(database)
    opened.samples(opened.welds()[0].id)
    with pytest.raises(archive.ArchiveError, match="readonly"):
        opened._run("DELETE FROM weld")
    opened.close()
    opened.close()
    assert database.read_bytes() == before
    with pytest.raises(archive.ArchiveError, match="the archive is closed"):
        opened.welds()


def test_a_weld_is_read_while_the_archive_is_written(telvane_server: Server, tmp_path: pathlib.Path) -> None:
    database = tmp_path / "live.db"
    writer = subprocess.Popen([str(PROGRAM), telvane_server.path, "--database", str(database)],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        with telvane.Bus(telvane_server.path) as bus:
            deadline = time.monotonic() + 20
            while not any(entry["channel"] == "WeldTriggerEnd" and entry["subscribers"]
                          for entry in bus.request("TelvaneChannels", timeout=5)["channels"]):
                assert time.monotonic() < deadline
            with PowerSource(telvane_server.path, ["--duration", "1.5", "--period-us", "2000"]), \
                    archive.open(database) as opened:
                while not [weld for weld in opened.welds() if weld.ending == "complete"]:
                    assert time.monotonic() < deadline
                    time.sleep(0.02)
                weld, = opened.welds()
                assert len(opened.samples(weld.id)) == weld.samples > 700
    finally:
        writer.terminate()
        writer.wait(20)


@pytest.fixture
def postgres(kept: Dict[str, pathlib.Path]) -> Iterator[str]:
    """The archive in PostgreSQL, with the samples in the table; the location has a password, which is not needed."""
    psycopg2 = pytest.importorskip("psycopg2")
    programs = sorted(pathlib.Path("/usr/lib/postgresql").glob("*/bin"))
    if not programs:
        pytest.skip("PostgreSQL is not installed")
    directory = short_directory()
    # PostgreSQL refuses to run as root.
    become = ["setpriv", "--reuid=postgres", "--regid=postgres", "--clear-groups"] if os.getuid() == 0 else []
    if become:
        shutil.chown(directory, "postgres")

    def run(program: str, *arguments: str) -> None:
        subprocess.run([*become, str(programs[-1] / program), "-D", f"{directory}/data", *arguments], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL, cwd=directory)

    try:
        run("initdb", "-A", "trust", "-U", "postgres", "--no-sync")
        run("pg_ctl", "-w", "-l", f"{directory}/log", "-o", f"-k {directory} -c listen_addresses='' -c fsync=off",
            "start")
        try:
            location = f"postgresql://postgres:secret@/postgres?host={directory}"
            connection = psycopg2.connect(location)
            copy_archive(kept["database"], connection)
            connection.close()
            yield location
        finally:
            run("pg_ctl", "-w", "-m", "immediate", "stop")
    finally:
        shutil.rmtree(directory, ignore_errors=True)


def copy_archive(database: pathlib.Path, connection: Any) -> None:
    source, target = sqlite3.connect(database), connection.cursor()
    for table in ("archive_info", "weld", "chunk"):
        columns = [(row[1], row[2].replace("BLOB", "BYTEA")) for row in source.execute(f"PRAGMA table_info({table})")]
        target.execute(f"CREATE TABLE {table} ({', '.join(' '.join(column) for column in columns)})")
        names = [name for name, _ in columns]
        for row in source.execute(f"SELECT {', '.join(names)} FROM {table}").fetchall():
            values = dict(zip(names, row))
            if table == "chunk":
                with open(f"{database}.samples/{values['file']}", "rb") as file:
                    file.seek(values["place"])
                    values.update(data=file.read(values["size"]), file=None, place=None)
            target.execute(f"INSERT INTO {table} VALUES ({', '.join(['%s'] * len(names))})", list(values.values()))
    connection.commit()
    source.close()


def test_an_archive_in_postgresql_is_read_alike(kept: Dict[str, pathlib.Path], postgres: str) -> None:
    with archive.open(postgres) as there, archive.open(kept["database"]) as here:
        first, second = here.welds()
        assert there.welds() == [first, second]
        assert there.welds(since=second.start, program=3, travel_speed=None, limit=5) == [second]
        assert there.welds(operator="Kim' OR '1'='1") == []
        one, other = there.samples(first.id, begin=1, end=3), here.samples(first.id, begin=1, end=3)
        assert one.channels == other.channels and one.ns == other.ns and len(one) == 4000
        with pytest.raises(archive.ArchiveError, match="read-only"):
            there._run("DELETE FROM weld")
        assert there.welds() == [first, second]
    with pytest.raises(archive.ArchiveError, match="the database is not an archive of welds") as info:
        archive.open(postgres.replace("/postgres?", "/template1?"))
    assert "secret" not in str(info.value)


def whole_column(values: List[int]) -> bytes:
    """Whole numbers as the archive stores them."""
    stored, previous, difference = bytearray(), 0, 0
    for value in values:
        step = (value - previous - difference) % 2**64
        previous, difference = value, (value - previous) % 2**64
        step = (step << 1) % 2**64 if step < 2**63 else (~step << 1 | 1) % 2**64
        while step >= 0x80:
            stored.append(step & 0x7F | 0x80)
            step >>= 7
        stored.append(step)
    return bytes(stored)


def test_whole_numbers_wrap_around() -> None:
    choose = random.Random(2)
    for values in ([0], [-2**63, 2**63 - 1, -2**63, 0, 2**63 - 1], [choose.randrange(-2**63, 2**63) for _ in range(99)],
                   list(range(0, 4000, 7)), [choose.randrange(200) for _ in range(500)]):
        stored = whole_column(values)
        assert chunks._wholes(stored + b"\x07", 0, len(values)) == (values, len(stored))


def test_hostile_pieces_are_refused(kept: Dict[str, pathlib.Path]) -> None:
    choose = random.Random(3)
    content = next(kept["database"].with_name("welds.db.samples").iterdir()).read_bytes()
    piece = content[content.index(b"TVC1"):][:int.from_bytes(content[content.index(b"TVC1") + 4:][:4], "little")]
    sound, = chunks.read_chunks([piece])
    assert sound is not None
    pieces = [b"", b"TVC1", piece[:-1], choose.randbytes(200)]
    for number in range(300):
        changed = bytearray(piece)
        changed[choose.randrange(len(changed))] ^= 1 << choose.randrange(8)
        pieces.append(bytes(changed))
        # A right checksum over wrong content: as long as the form is right, numbers come out, and nothing is raised.
        end = choose.randrange(41, len(piece))
        changed = bytearray(piece[:end] + choose.randbytes(choose.randrange(20)))
        changed[24:28] = choose.choice((1, 5, 4096, 4097, 2**32 - 1)).to_bytes(4, "little")
        changed[4:8] = len(changed).to_bytes(4, "little")
        changed[8:12] = zlib.crc32(changed[12:]).to_bytes(4, "little")
        if number < 10:
            pieces.append(bytes(changed))
    read = list(chunks.read_chunks(pieces))
    assert len(read) == len(pieces) and read[:4] == [None] * 4 and read[4:].count(None) == len(read) - 4
