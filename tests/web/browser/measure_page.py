#!/usr/bin/python3
"""Measures the page and its server with simulated welds in headless Chromium, for docs/web.md.

    TELVANE=PATH TELVANE_WEB=PATH measure_page.py
"""
import os
import pathlib
import re
import selectors
import socket
import subprocess
import tempfile
import time
import urllib.request

from conftest import TELVANE, Cell, Page, launch

FRAMES = """
    const done = arguments[1], begin = performance.now(), updates = telvaneModel.values?.samples ?? 0;
    let frames = 0, last = begin, longest = 0, drawn = telvaneMeter.draws;
    const draws = [];
    const tick = (now) => {
      longest = Math.max(longest, now - last);
      last = now;
      ++frames;
      if (telvaneMeter.draws !== drawn) { // the one before this frame
        drawn = telvaneMeter.draws;
        draws.push(telvaneMeter.draw);
      }
      now - begin < arguments[0] * 1000 ? requestAnimationFrame(tick)
        : done({fps: frames / (now - begin) * 1000, longest, draw: draws.sort((a, b) => a - b)[draws.length >> 1],
                slow: draws[Math.floor(draws.length * 0.95)], draws: draws.length / (now - begin) * 1000,
                samples: ((telvaneModel.values?.samples ?? 0) - updates) / (now - begin) * 1000, columns: telvaneModel.size,
                missed: telvaneModel.values?.missed});
    };
    requestAnimationFrame(tick);"""

# The frame in which the state is there has been drawn.
SHOWN = """
    const see = new MutationObserver(() => {
      const state = document.getElementById('state');
      if (state && state.dataset.state !== 'lost' && document.getElementById('state-word')?.textContent) {
        see.disconnect();
        requestAnimationFrame(() => setTimeout(() => { window.shownAt = performance.now(); }));
      }
    });
    see.observe(document, {subtree: true, childList: true, attributes: true, characterData: true});"""


def cpu_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def resident_megabytes(pid):
    return int(pathlib.Path(f"/proc/{pid}/statm").read_text().split()[1]) * os.sysconf("SC_PAGE_SIZE") / 1e6


def relays_of(cell, counter):
    """What the bus has sent to telvane-web on the channel of the samples, or what telvane-web has missed there."""
    with urllib.request.urlopen(f"{cell.url}/metrics", timeout=30) as answer:
        metrics = answer.read().decode()
    found = re.findall(rf'^telvane_subscription_relays_{counter}_total\{{[^}}]*channel="WeldTraceData"[^}}]*\}} (\S+)', metrics, re.MULTILINE)
    assert found, f"no counter of relays {counter} in {metrics}"
    return sum(map(float, found))


def measure_crowd(cell, pages=50):
    """Many live streams, the first of which is never read."""
    selector = selectors.DefaultSelector()
    clients = []
    for number in range(pages):
        host, port = cell.address.split(":")
        client = socket.create_connection((host, int(port)))
        client.sendall(b"GET /api/events?columns=1024 HTTP/1.1\r\nHost: localhost\r\n\r\n")
        clients.append(client)
        if number > 0:
            client.setblocking(False)
            selector.register(client, selectors.EVENT_READ)
    weld = subprocess.Popen([TELVANE, "weld", cell.bus, "--duration", "12"], stderr=subprocess.DEVNULL)
    before, received = cpu_seconds(cell.web.process.pid), 0
    while weld.poll() is None:
        for key, _ in selector.select(0.2):
            received += len(key.fileobj.recv(1 << 20))
    used = (cpu_seconds(cell.web.process.pid) - before) / 12 * 100
    resident = resident_megabytes(cell.web.process.pid)
    for client in clients:
        client.close()
    time.sleep(6)  # the server asks for the counters of the bus every 5 s
    sent, missed = relays_of(cell, "sent"), relays_of(cell, "missed")
    print(f"{pages} pages, one stopped: {sent:.0f} samples sent to the server and {missed:.0f} missed, {received / 1e6 / 12:.1f} MB/s to the pages; "
          f"server {used:.1f} % of a core, {resident:.1f} MB")


def measure_page(cell):
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        browser = launch(profile)
        try:
            page = Page(browser, cell)
            browser.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": SHOWN})
            for turn in ("first", "cached"):
                page.load()
                shown = page.wait(lambda: page.js("return window.shownAt"), "the state")
                timing = page.js("const n = performance.getEntriesByType('navigation')[0]; return [n.domContentLoadedEventEnd, n.loadEventEnd, "
                                 "performance.getEntriesByType('resource').reduce((sum, r) => sum + r.transferSize, n.transferSize)]")
                print(f"{turn} load: scripts run after {timing[0]:.0f} ms, loaded after {timing[1]:.0f} ms, state shown after {shown:.0f} ms, {timing[2] / 1000:.0f} kB")
            for period in (500, 20):
                weld = subprocess.Popen([TELVANE, "weld", cell.bus, "--duration", "12", "--period-us", str(period)], stderr=subprocess.DEVNULL)
                page.wait(lambda: page.model("m.state.state === 'arc' && m.values?.time > 2"))
                before = cpu_seconds(cell.web.process.pid)
                found = browser.execute_async_script(FRAMES, 8)
                used = (cpu_seconds(cell.web.process.pid) - before) / 8 * 100
                print(f"{1e6 / period:.0f} Hz: {found['fps']:.1f} frames/s, longest pause {found['longest']:.0f} ms, {found['draws']:.1f} draws/s, script of one: "
                      f"median {found['draw']:.1f} ms, 95 % below {found['slow']:.1f} ms; "
                      f"{found['samples']:.0f} samples/s drawn, {found['columns']} columns, {found['missed']} missed; "
                      f"server {used:.1f} % of a core, {resident_megabytes(cell.web.process.pid):.1f} MB")
                weld.wait()
                page.wait_for_state("ended")
        finally:
            browser.quit()


def main():
    with tempfile.TemporaryDirectory() as directory:
        Cell.server_options = ()  # the usual ones
        cell = Cell(pathlib.Path(directory))
        try:
            measure_page(cell)
            measure_crowd(cell)
        finally:
            cell.stop()


main()
