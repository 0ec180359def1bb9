"""The demonstration in a browser: one command that shows welds, and leaves nothing."""
import os
import pathlib
import signal
import subprocess
from types import SimpleNamespace

from conftest import PATIENCE, TELVANE, Page, Process

DEMO = pathlib.Path(__file__).resolve().parents[3] / "scripts/demo"


def test_the_demonstration_shows_its_weld_and_leaves_nothing(chromium, tmp_path):
    temporary = tmp_path / "temporary"
    temporary.mkdir()
    # A group of its own gets the signal, as from a terminal.
    demo = Process(tmp_path, "demo", r"open (http://[\d.:]+)/", "env", f"TMPDIR={temporary}", f"TELVANE={TELVANE}", "setsid", DEMO,
                   "--web", "--duration", "1.5", "--period-us", "2000")
    try:
        page = Page(chromium, SimpleNamespace(url=demo.ready[1])).open()
        page.wait_for_state("ended")
        page.wait(lambda: page.model("m.values?.samples ?? 0") > 100)
        page.js("location.hash = 'welds'")

        def is_listed():
            page.js("document.getElementById('weld-filter').requestSubmit()")
            return page.text("welds-table").count("complete") >= 1
        page.wait(is_listed)
    finally:
        os.killpg(demo.process.pid, signal.SIGINT)
        chromium.get("about:blank")
    assert demo.process.wait(PATIENCE) == 0, demo.log.read_text()
    assert list(temporary.iterdir()) == []
    assert subprocess.run(["pgrep", "-g", str(demo.process.pid)], capture_output=True, check=False).stdout == b""
