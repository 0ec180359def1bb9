"""The welds of an archive in a real browser: list, one weld down to a sample, comparison, files."""
import csv
import io
import subprocess
import urllib.request

import pytest
from conftest import PATIENCE, TELVANE, Cell, Page
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

SAMPLES = 6000  # at 2 kHz: 3 s
SPIKE, SPIKE_AT = 777.25, 4321
MARKUP = '<img src=x onerror="window.pwned=1">'


def keep_welds(directory):
    """An archive with five welds, the last one with a sample far above the others. Returns its current."""
    database = directory / "welds.db"
    for number in range(5):
        amps = [150.0 + number + 10 * (i % 7) for i in range(SAMPLES)]
        if number == 4:
            amps[SPIKE_AT] = SPIKE
        with open(directory / "weld.csv", "w", newline="") as file:
            csv.writer(file).writerows([("amps", "volts"), *((value, 20 + i % 5) for i, value in enumerate(amps))])
        subprocess.run([TELVANE, "archive", "import", "--csv", directory / "weld.csv", "--database", database, "--amps", "amps", "--volts", "volts",
                        "--period-us", "500", "--program", "7", "--set", f"part_number={MARKUP if number == 2 else 'A-1'}"],
                       check=True, capture_output=True, timeout=PATIENCE)
    return database, amps


@pytest.fixture(scope="module")
def archive(tmp_path_factory):
    """One server for the tests of this file, which change nothing."""
    directory = tmp_path_factory.mktemp("archive")
    database, amps = keep_welds(directory)
    cell = Cell(directory, "--archive", database)
    cell.amps = amps
    yield cell
    cell.stop()


@pytest.fixture
def welds(chromium, archive):
    return Page(chromium, archive)


def rows(page):
    return page.js("return [...document.querySelectorAll('#welds-table tbody tr')].map((row) => row.dataset.id)")


def test_welds_are_listed_filtered_and_compared(welds, archive):
    welds.open("#welds")
    welds.wait(lambda: rows(welds) == ["5", "4", "3", "2", "1"])
    assert MARKUP in welds.text("welds-table")
    welds.browser.find_element(By.ID, "filter-part").send_keys("A-1", Keys.ENTER)
    welds.wait(lambda: rows(welds) == ["5", "4", "2", "1"])
    assert welds.js("return location.hash") == "#welds?part=A-1"
    welds.browser.back()
    welds.wait(lambda: len(rows(welds)) == 5)
    welds.browser.find_element(By.ID, "filter-where").send_keys("nonsense > 3", Keys.ENTER)
    welds.wait(lambda: "nonsense" in welds.text("welds-message"))
    welds.browser.back()
    welds.wait(lambda: len(rows(welds)) == 5 and welds.text("welds-message") == "")

    compare = welds.browser.find_element(By.ID, "compare")
    assert not compare.is_enabled()
    for number in ("5", "3"):
        welds.browser.find_element(By.CSS_SELECTOR, f"tr[data-id='{number}'] input").click()
    welds.wait(compare.is_enabled)
    compare.click()
    welds.wait(lambda: "Weld 3" in welds.text("weld-legend"))
    drawn = welds.js("const data = telvaneWeld.charts.amps.data; return [0, 1, 7].map((series) => Array.from(data[series]))")
    other = [value for value in drawn[2] if value is not None]
    assert min(drawn[1]) >= 154 and max(drawn[1]) < 777
    assert len(other) > 900 and min(other) >= 152 and max(other) <= 212
    assert welds.js("return window.pwned") is None
    # The band of the four welds before it, behind the curve.
    assert "former welds with this program: 4" in welds.text("weld-legend")
    low, high = welds.js("const data = telvaneWeld.charts.amps.data; return [data[5][500], data[6][500]]")
    assert 170 < low < high < 190
    assert [line for line in welds.console() if "400 (Bad Request)" not in line] == []


def test_a_weld_is_shown_down_to_a_sample(welds, archive):
    welds.open("#weld/5")
    welds.wait(lambda: welds.js("return telvaneWeld.charts.amps.plot?.data[0].length") == 1000)
    assert welds.js("return Math.max(...telvaneWeld.charts.amps.data[3])") == SPIKE, "no sample is left out"
    moment = SPIKE_AT * 0.0005
    # As the mouse does: a range is dragged over the chart.
    plot = welds.browser.find_element(By.CSS_SELECTOR, "#weld-amps .u-over")
    left, right = welds.js(f"const plot = telvaneWeld.charts.amps.plot; return [{moment - 0.1}, {moment + 0.1}].map((x) => plot.valToPos(x, 'x'))")
    middle = plot.size["width"] / 2
    ActionChains(welds.browser).move_to_element_with_offset(plot, left - middle, 0).click_and_hold().move_to_element_with_offset(plot, right - middle, 0).release().perform()
    welds.wait(lambda: welds.js("return telvaneWeld.single"), "single samples")
    shown = welds.js("return telvaneWeld.curves[0].samples.map((sample) => [sample[1], sample[2]])")
    assert 300 < len(shown) < 500
    assert all(archive.amps[number] == value for number, value in shown), "every sample, exactly"
    index = next(i for i, (number, _) in enumerate(shown) if number == SPIKE_AT)
    assert welds.js(f"return telvaneWeld.sample('amps', {index})") == "777.25"
    # The same with the keyboard.
    welds.browser.find_element(By.ID, "zoom-all").click()
    welds.wait(lambda: not welds.js("return telvaneWeld.single"))
    for _ in range(3):
        welds.browser.find_element(By.ID, "zoom-in").send_keys(Keys.ENTER)
    welds.wait(lambda: welds.js("return telvaneWeld.single"))
    chart = welds.browser.find_element(By.CSS_SELECTOR, "#weld-amps .plot")
    chart.send_keys(Keys.HOME)
    welds.wait(lambda: "sample at" in welds.js("return document.querySelector('#weld-amps .readout').textContent"))
    assert "mean current" in welds.text("columns-table")
    assert welds.console() == []


def test_the_views_of_the_archive_are_accessible(welds, axe):
    welds.open("#welds")
    welds.wait(lambda: len(rows(welds)) == 5)
    welds.js(axe + "; window.axe = axe")
    for view, waited in (("welds", "welds-count"), ("weld/5,4", "columns-table")):
        welds.js("location.hash = arguments[0]", view)
        welds.wait(lambda: welds.text(waited))
        found = welds.browser.execute_async_script(
            "axe.run({runOnly: ['wcag2a', 'wcag2aa', 'wcag21a', 'wcag21aa', 'wcag22aa', 'best-practice'], resultTypes: ['violations']})"
            ".then((result) => arguments[0](result.violations.map((v) => [v.id, v.nodes.map((n) => n.html + n.failureSummary)])))")
        assert found == [], view


def test_files_hold_what_the_archive_holds(welds, archive):
    welds.open("#weld/5")
    welds.wait(lambda: welds.js("return document.getElementById('weld-csv').href"))
    address = welds.browser.find_element(By.ID, "weld-csv").get_attribute("href")
    with urllib.request.urlopen(address, timeout=PATIENCE) as answer:
        assert answer.headers["Content-Disposition"] == 'attachment; filename="weld-5.csv"'
        found = list(csv.DictReader(io.TextIOWrapper(answer)))
    assert [float(row["amps"]) for row in found] == archive.amps


def test_the_live_view_shows_the_band_of_former_welds(welds, archive):
    welds.open()
    archive.publish("WeldTriggerStart", "--as", "WeldTriggerStart", "--set", "tag=1", "--set", "program=7", "--set", "samplePeriodus=500")
    welds.wait(lambda: welds.js("return telvaneView.band?.welds") == 5)
