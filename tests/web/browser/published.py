"""Welds that the tests publish and wait for."""
import csv
import itertools

SPIKE, SPIKE_AT = 777.0, 700
TAGS = itertools.count(1000)


def write_weld(path, samples=1200):
    """A weld with one sample far above the others. Returns current and voltage."""
    rows = [(150.0 + 10 * (number % 7), 20.0 + number % 5) for number in range(samples)]
    rows[SPIKE_AT] = (SPIKE, rows[SPIKE_AT][1])
    with open(path, "w", newline="") as file:
        csv.writer(file).writerows([("amps", "volts"), *rows])
    return rows


def publish_weld(cell, *options):
    """Publishes a weld. Returns its rows and its tag."""
    rows, tag = write_weld(cell.directory / "weld.csv"), next(TAGS)
    cell.weld("--csv", cell.directory / "weld.csv", "--amps", "amps", "--volts", "volts", "--period-us", "500", "--tag", str(tag), *options)
    return rows, tag


def wait_for_weld(page, tag, samples):
    """Waits until the page has the whole weld with this tag, and shows that it has ended."""
    page.wait(lambda: page.model("m.state.weld?.tag") == tag and page.state() == "ended"
              and page.model("m.count.slice(0, m.size).reduce((sum, count) => sum + count, 0)") == samples, f"the weld {tag}")


def show_weld(page, cell, *options):
    rows, tag = publish_weld(cell, *options)
    wait_for_weld(page, tag, len(rows))
    return rows
