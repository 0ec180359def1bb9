"""The page in a real browser: what is drawn, what is said, and what happens when something breaks."""
import json
import signal
import statistics
import urllib.request

import pytest
from conftest import PATIENCE, Page
from published import SPIKE_AT, publish_weld, show_weld, wait_for_weld
from selenium.webdriver.common.by import By

MARKUP = '<img src=x onerror="window.pwned=1"><script>window.pwned=1</script>'


def test_a_weld_is_drawn_sample_for_sample(page, cell):
    page.open()
    rows = show_weld(page, cell)
    assert page.model("m.values.samples") == len(rows)

    level, size, period = page.model("[m.level, m.size, m.period]")
    assert period == 0.0005
    width = 2 ** level
    assert size == -(-len(rows) // width)
    columns = page.model("[0, 1].map((q) => [m.count, m.min[q], m.mean[q], m.max[q]].map((a) => Array.from(a.slice(0, m.size))))")
    for quantity in (0, 1):
        for index in range(size):
            values = [row[quantity] for row in rows[index * width:(index + 1) * width]]
            count, low, mean, high = (column[index] for column in columns[quantity])
            assert (count, low, high) == (len(values), min(values), max(values)), index
            assert mean == pytest.approx(statistics.fmean(values), rel=1e-6), index

    energy = sum(amps * volts for amps, volts in rows) * period
    assert page.model("m.values.energy") == pytest.approx(energy, rel=1e-5)
    assert page.js("return document.querySelector('#tile-energy .figure').textContent") == f"{energy / 1000:.1f}"
    assert "Mean current" in page.text("metrics")

    # The pixels: the area reaches the one high sample, and nothing is drawn beside it.
    page.wait(lambda: page.js("return telvaneView.charts.amps.plot?.data[0].length") == size)
    coloured = """
        const plot = telvaneView.charts.amps.plot, context = plot.ctx;
        const x = Math.round(plot.valToPos(plot.data[0][arguments[0]], 'x', true));
        const y = Math.round(plot.valToPos(arguments[1], 'y', true));
        const pixel = [...context.getImageData(x - 1, y, 3, 1).data];
        const orange = (i) => pixel[4 * i + 3] > 0 && pixel[4 * i] > pixel[4 * i + 2] + 40;
        return orange(0) || orange(1) || orange(2)"""
    spike = SPIKE_AT // width
    assert page.js(coloured, spike, 500.0)
    assert not page.js(coloured, spike + 10, 500.0)
    assert page.js(coloured, spike + 10, 180.0)
    assert page.console() == []


def test_set_points_and_units_come_from_the_weld(page, cell):
    page.open()
    cell.publish("WeldTriggerStart", "--as", "WeldTriggerStart", "--set", "tag=12", "--set", "settings.CommandVoltage.Unit=V",
                 "--set", "settings.CommandVoltage.Value=24.5", "--set", "data.amps=A", "--set", "data.volts=V", "--set", "data.wfs=m/min")

    def arc_is_shown():
        # Without samples for two seconds, which a busy machine can take to look, the weld would not be shown as running.
        cell.publish("WeldTraceData", "--as", "WeldTraceData", "--set", "data.amps=100")
        return page.state() == "arc" and "Weld 12" in page.text("state-detail")
    page.wait(arc_is_shown)
    page.wait(lambda: "24.50 V" in page.text("tile-volts"))
    assert "m/min" in page.text("tile-wfs")
    assert page.js("return document.getElementById('tile-gas').hidden"), "gas is not measured"
    page.wait_for_state("silent")  # no samples arrive
    assert page.text("state-word") == "No samples"


def test_texts_of_the_bus_are_only_ever_text(page, cell):
    page.open("#errors")
    before = page.text("errors-list").count(MARKUP)
    cell.publish("TelvaneError", "--as", "TelvaneError", "--set", f"Message={MARKUP}")
    cell.publish("ErrorLogType", "--as", "ErrorLogType", "--set", f"message={MARKUP}", "--set", f"code={MARKUP}")
    cell.publish("WeldTriggerStart", "--as", "WeldTriggerStart", "--set", f"FeederSide={MARKUP}", "--set", f"data.amps={MARKUP}",
                 "--set", f"settings.CommandVoltage.Unit={MARKUP}", "--set", "settings.CommandVoltage.Value=1")
    page.wait(lambda: page.text("errors-list").count(MARKUP) == before + 3)
    page.js("location.hash = 'live'")
    cut = MARKUP[:40]  # the server sends no longer units
    page.wait(lambda: cut in page.text("tile-amps") and cut in page.text("tile-volts"))
    cell.publish("WeldTriggerEnd", "--as", "WeldTriggerEnd", "--set", f"metrics.AverageVoltage.Unit={MARKUP}")
    page.wait(lambda: MARKUP in page.text("state-detail") and cut in page.text("metrics"))
    page.js("location.hash = 'bus'")
    page.wait(lambda: "TelvaneError" in page.text("channels"))
    page.js("[...document.querySelectorAll('button.channel')].find((b) => b.textContent === 'TelvaneError').click()")
    page.wait(lambda: "no record since" in page.text("record-head"))

    def record_is_shown():
        cell.publish("TelvaneError", "--as", "TelvaneError", "--set", f"Message={MARKUP}")
        return MARKUP in page.text("record")
    page.wait(record_is_shown)
    page.browser.find_element(By.ID, "catalogue-filter").send_keys(MARKUP)
    page.wait(lambda: page.text("catalogue-count").startswith("0 of"))
    assert page.js("return window.pwned") is None
    assert page.js("return document.querySelectorAll('main img, main script, main iframe').length") == 0
    assert page.console() == []


def test_a_lost_connection_is_shown_and_found_again(chromium, new_cell):
    cell = new_cell
    page = Page(chromium, cell).open()
    page.wait_for_state("none")
    assert page.text("state-word") == "No weld"
    show_weld(page, cell, "--speed", "20")
    cell.web.stop(signal.SIGKILL)
    page.wait_for_state("lost")
    assert page.text("state-word") == "No connection"
    assert "since" in page.text("state-detail")
    assert page.js("return document.body.classList.contains('old')"), "old values never look live"
    cell.start_web()
    page.wait_for_state("none")  # a new server has seen no weld
    _, tag = publish_weld(cell, "--speed", "20")
    wait_for_weld(page, tag, 1200)

    # A server that hangs says nothing; only the watchdog notices.
    cell.web.process.send_signal(signal.SIGSTOP)
    page.wait_for_state("lost")
    cell.web.process.send_signal(signal.SIGCONT)
    wait_for_weld(page, tag, 1200)
    assert page.model("m.values.samples") == 1200

    cell.server.stop()
    page.wait_for_state("noBus")
    assert page.js("return document.body.classList.contains('old')")
    cell.start_server()
    page.wait_for_state("ended")


def test_the_first_state_is_shown_before_the_stream_and_not_kept_without_it(new_page, new_cell):
    page = Page(new_page.browser, new_cell)
    # A shared worker that never answers, and long times that pass when the test says so.
    page.browser.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": """
        window.SharedWorker = class { port = {postMessage() {}, start() {}}; };
        window.late = [];
        const later = setTimeout;
        window.setTimeout = (call, time) => time >= 5000 ? late.push(call) : later(call, time);"""})
    page.browser.get(f"{new_cell.url}/")
    page.wait_for_state("none")
    assert page.model("m.link.link") == "wait"
    assert page.text("state-word") == "No weld"
    page.js("late.forEach((call) => call())")
    page.wait_for_state("lost")
    assert page.text("state-word") == "Connecting"


def run_in_worker(page, code):
    """Runs code in the shared worker, and waits until it has run."""
    worker = next(target["targetId"] for target in page.browser.execute_cdp_cmd("Target.getTargets", {})["targetInfos"]
                  if target["url"] == f"{page.cell.url}/worker.js")
    session = page.browser.execute_cdp_cmd("Target.attachToTarget", {"targetId": worker})["sessionId"]
    page.js("window.hasRun = false; new BroadcastChannel('test').onmessage = () => { window.hasRun = true; }")
    page.browser.execute_cdp_cmd("Target.sendMessageToTarget", {"sessionId": session, "message": json.dumps(
        {"id": 1, "method": "Runtime.evaluate", "params": {"expression": f"{code}; new BroadcastChannel('test').postMessage(0);"}})})
    page.wait(lambda: page.js("return hasRun"))


def set_visible(page, visible):
    page.js("Object.defineProperty(document, 'hidden', {configurable: true, get: () => !arguments[0]});"
            "document.dispatchEvent(new Event('visibilitychange'))", visible)


def test_tabs_show_nothing_old_after_all_were_hidden(new_page, new_cell):
    page = Page(new_page.browser, new_cell)
    page.load()
    show_weld(page, new_cell, "--speed", "20")
    first = page.browser.current_window_handle
    # The minute after which the stream is closed ends at once, and no later stream is answered until the test says so.
    run_in_worker(page, """
        later = setTimeout;
        setTimeout = (call, time) => later(call, time === 60000 ? 0 : time);
        Stream = EventSource;
        EventSource = class { addEventListener() {} close() {} };
        const clock = performance.now.bind(performance);
        performance.now = () => EventSource === Stream ? clock() : 0;""")
    set_visible(page, False)
    page.wait_for_state("lost")
    assert page.text("state-word") == "Connecting"
    assert page.js("return document.body.classList.contains('old')")
    new_cell.web.stop()
    new_cell.start_web()  # has seen no weld

    page.browser.switch_to.new_window("tab")
    page.browser.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": """
        const later = setTimeout;
        window.setTimeout = (call, time) => time >= 5000 ? 0 : later(call, time);
        Object.defineProperty(document, 'hidden', {get: () => false});"""})
    page.browser.get(f"{new_cell.url}/")
    page.wait(lambda: page.js("return Boolean(window.telvaneModel?.hello)"), "what the worker has")
    page.wait_for_state("none")  # as the server says
    assert page.model("[m.link.link, m.size, m.values]") == ["wait", 0, None]
    assert page.text("tile-amps").startswith("Current–")

    second = page.browser.current_window_handle
    page.browser.switch_to.window(first)
    assert page.state() == "lost"
    page.browser.switch_to.window(second)
    run_in_worker(page, "setTimeout = later; EventSource = Stream")  # the stream that was not answered is given up
    _, tag = publish_weld(new_cell, "--speed", "20")
    for handle in (first, second):
        page.browser.switch_to.window(handle)
        page.wait_for_stream()
        wait_for_weld(page, tag, 1200)


def test_the_page_draws_once_per_frame_and_no_more_columns_than_there_are_pixels(page, cell):
    page.open()
    page.js("""
        window.frames_ = 0;
        window.before_ = telvaneMeter.draws;
        const count = () => { ++frames_; window.counting = requestAnimationFrame(count); };
        count();""")
    show_weld(page, cell)
    # More updates than frames.
    page.js("for (let i = 0; i < 500; ++i) { window.dispatchEvent(new HashChangeEvent('hashchange')); }")
    page.browser.execute_async_script("const done = arguments[0]; requestAnimationFrame(() => requestAnimationFrame(done));")
    draws, frames = page.js("cancelAnimationFrame(counting); return [telvaneMeter.draws - before_, frames_]")
    assert 0 < draws <= frames + 1  # one may have waited for its frame before the first was counted
    sizes = page.js("return Object.values(telvaneView.charts).map((chart) => chart.data[0].length)")
    assert 0 < max(sizes) <= page.js("return 2 * Math.max(screen.width, screen.height, 512)")


def test_seven_tabs_share_one_stream(page, cell):
    page.open()
    page.js("for (let i = 0; i < 6; ++i) { window.open('/'); }")  # they load at the same time
    page.wait(lambda: len(page.browser.window_handles) == 7)
    rows, tag = publish_weld(cell, "--speed", "20")
    for handle in page.browser.window_handles:
        page.browser.switch_to.window(handle)
        page.wait_for_stream()
        wait_for_weld(page, tag, len(rows))

    def one_stream_is_open():
        with urllib.request.urlopen(f"{cell.url}/metrics", timeout=PATIENCE) as answer:
            return "\ntelvane_web_pages 1\n" in answer.read().decode()
    page.wait(one_stream_is_open)  # of the test before, one may end at this moment


def test_the_bus_is_shown_as_telvane_top_shows_it(page, cell):
    page.open("#bus")
    page.wait(lambda: "WeldTriggerEnd" in page.text("channels"))
    page.js("[...document.querySelectorAll('button.channel')].find((b) => b.textContent === 'WeldTriggerEnd').click()")
    page.wait(lambda: "WeldTriggerEnd: no record" in page.text("record-head"))

    def record_is_shown():
        publish_weld(cell, "--speed", "20")
        return "AverageVoltage" in page.text("record")
    page.wait(record_is_shown)
    page.wait(lambda: " V" in page.js("return [...document.querySelectorAll('#record tr')].find((r) => r.textContent.startsWith('AverageVoltage')).textContent"))
    page.wait(lambda: "telvane serve" in page.text("clients"))
    page.browser.find_element(By.ID, "channel-filter").send_keys("trace")
    page.wait(lambda: page.js("return document.querySelectorAll('#channels tbody tr').length") == 1)
    page.browser.find_element(By.ID, "catalogue-filter").send_keys("weldmetrics totalenergy")
    page.wait(lambda: page.text("catalogue-count").startswith("1 of "))
    assert "UnitValuePair" in page.text("catalogue")


def test_a_day_of_welds_takes_no_more_memory(new_page):
    page = new_page.open()
    # As many updates as a day of short welds brings, as fast as the page can take and draw them.
    run = """
        const done = arguments[arguments.length - 1], m = telvaneModel;
        const column = [16, ...Array(5).fill([100, 150, 200]).flat()];
        const state = structuredClone(m.state);
        let weld = arguments[0];
        const values = () => ({weld, time: 1, amps: 150, volts: 20, wfs: 1, gas: 1, power: 1, energy: 1, samples: 1, missed: 0});
        for (const end = weld + 600; weld < end; ++weld) {
          m.apply('state', {...state, state: 'arc', weld: {number: weld, tag: weld, period: 0.0005}});
          for (let from = 0; from < 1024; from += 128) {
            m.apply('columns', {weld, level: 4, from, columns: Array(128).fill(column), values: values()});
          }
          m.apply('fault', {id: 1000 + weld, time: 0, channel: 'x', code: '', text: 'x'.repeat(500)});
          if (weld % 20 === 0) { telvaneView.draw(); }
        }
        setTimeout(done, 0);"""
    page.browser.execute_async_script(run, 1000)
    page.browser.execute_cdp_cmd("HeapProfiler.collectGarbage", {})
    before = page.js("return performance.memory.usedJSHeapSize")
    page.browser.execute_async_script(run, 2000)
    page.browser.execute_cdp_cmd("HeapProfiler.collectGarbage", {})
    after = page.js("return performance.memory.usedJSHeapSize")
    assert after - before < 1_000_000


def test_the_page_asks_only_its_own_server(page, cell):
    page.open()
    names = page.js("return performance.getEntriesByType('resource').map((entry) => entry.name)")
    assert {f"{cell.url}{path}" for path in ("/app.js", "/style.css", "/uplot.js", "/api/session")} <= set(names)
    assert [name for name in names if not name.startswith(cell.url + "/")] == []
    # Nothing can be added to the page, not even by a script of its own.
    page.js("window.refused = 0; try { document.body.innerHTML = '<p>x</p>'; } catch { window.refused = 1; }")
    assert page.js("return window.refused") == 1
