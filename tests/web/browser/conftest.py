"""A bus, its web server and a browser, each started on a free address and ended by its process ID."""
import contextlib
import os
import pathlib
import re
import signal
import socket
import subprocess
import tempfile
import time

import pytest
from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException, WebDriverException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.ui import WebDriverWait
from urllib3.exceptions import HTTPError

TELVANE = os.environ["TELVANE"]
TELVANE_WEB = os.environ["TELVANE_WEB"]
PATIENCE = 240  # a machine that is busy with other tests can take a minute to load a page; nothing waits so long otherwise
# Chromium looks for its makers' servers otherwise, and needs root's permission to run without its own sandbox.
OPTIONS = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-dev-shm-usage",
           "--disable-background-networking", "--disable-component-update", "--disable-sync", "--disable-extensions",
           "--force-color-profile=srgb", "--hide-scrollbars", "--lang=en", "--enable-precise-memory-info"]
WATCHED = ("WeldTriggerStart", "WeldTraceData", "WeldTriggerEnd", "TelvaneError", "ErrorLogType")
# A view as it is on a page that was just loaded, without loading it.
SHOW = """
    const choose = (id, value, event) => {
      const field = document.getElementById(id);
      if (field.value !== value) {
        field.value = value;
        field.dispatchEvent(new Event(event));
      }
    };
    choose('language', 'en', 'change');
    choose('channel-filter', '', 'input');
    choose('catalogue-filter', '', 'input');
    document.querySelectorAll('#welds-table input:checked').forEach((box) => box.click());
    document.getElementById('numbers').open = false;
    delete document.documentElement.dataset.theme;
    location.hash = arguments[0];
    scrollTo(0, 0);"""


def reserve_port():
    """A socket that is bound and does not listen: no other program gets its port, and a server with SO_REUSEADDR can listen there."""
    reserved = socket.socket()
    reserved.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    reserved.bind(("127.0.0.1", 0))
    return reserved


class Process:
    """A program that prints a line to standard error when it is ready."""

    def __init__(self, directory, name, ready, *command):
        self.log = directory / f"{name}.log"
        self.log.write_text("")
        with open(self.log, "a") as log:
            self.process = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.ready = self.wait_for(ready)

    def wait_for(self, pattern):
        return self.wait(lambda: re.search(pattern, self.log.read_text()), pattern)

    def wait(self, condition, what):
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            if found := condition():
                return found
            assert self.process.poll() is None, self.log.read_text()
            time.sleep(0.02)
        raise AssertionError(f"no {what!r}: {self.log.read_text()!r}")

    def stop(self, number=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(number)
        return self.process.wait(PATIENCE)


class Cell:
    """A bus with a web server."""

    # A machine that is busy with other tests may stop the web server for longer than the usual buffer lasts.
    server_options = ("--subscriber-buffer", "8388608")

    def __init__(self, directory, *options):
        self.directory = directory
        self.bus = directory / "bus"
        self.reserved = reserve_port()
        self.address = f"127.0.0.1:{self.reserved.getsockname()[1]}"  # the same after a restart
        self.options = options  # of the web server
        self.start_server()
        self.start_web()

    def start_server(self):
        self.server = Process(self.directory, "server", "serving", TELVANE, "serve", self.bus, "--verbose", *self.server_options)

    def subscriptions(self):
        log = self.server.log.read_text()
        return [log.count(f"requested to subscribe to {channel}\n") for channel in WATCHED]

    def start_web(self):
        before = self.subscriptions()
        self.web = Process(self.directory, "web", r"open (https?://[\d.:]+)/", TELVANE_WEB, self.bus, "--listen", self.address, *self.options)
        self.url = self.web.ready[1]
        # It serves pages before it has subscribed to all channels, and would miss what is published until then.
        self.web.wait(lambda: all(now > then for now, then in zip(self.subscriptions(), before)), "the subscriptions")

    def lives(self):
        return self.web.process.poll() is None and self.server.process.poll() is None

    def publish(self, channel, *options):
        subprocess.run([TELVANE, "publish", self.bus, channel, *options], check=True, capture_output=True, timeout=PATIENCE)

    def weld(self, *options):
        subprocess.run([TELVANE, "weld", self.bus, *options], check=True, capture_output=True, timeout=PATIENCE)

    def stop(self):
        self.web.stop()
        self.server.stop()
        self.reserved.close()


@pytest.fixture(scope="session")
def cells():
    made = []
    yield made
    for each in made:
        each.stop()


@pytest.fixture
def cell(cells, tmp_path_factory):
    """One for all tests that do not stop it. The next test gets a new one if it has died."""
    if not cells or not cells[-1].lives():
        cells.append(Cell(tmp_path_factory.mktemp("cell")))
    return cells[-1]


@pytest.fixture
def new_cell(tmp_path):
    made = Cell(tmp_path)
    yield made
    made.stop()


def launch(profile):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for option in [*OPTIONS, f"--user-data-dir={profile}", "--window-size=1400,1000"]:
        options.add_argument(option)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    browser = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
    browser.set_script_timeout(PATIENCE)
    browser.set_page_load_timeout(PATIENCE)
    return browser


class Chromium:
    """One browser for all tests. When it has died, the next test gets a new one."""

    def __init__(self):
        self.browser = None
        self.profiles = []

    def living(self):
        try:
            if self.browser and self.browser.window_handles:
                return self.browser
        except (WebDriverException, HTTPError, OSError):
            self.quit()
        self.profiles.append(tempfile.TemporaryDirectory(ignore_cleanup_errors=True))
        self.browser = launch(self.profiles[-1].name)
        return self.browser

    def quit(self):
        with contextlib.suppress(WebDriverException, HTTPError, OSError):
            if self.browser:
                self.browser.quit()
        self.browser = None
        for profile in self.profiles:
            profile.cleanup()


@pytest.fixture(scope="session")
def browsers():
    made = Chromium()
    yield made
    made.quit()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item):
    outcome = yield
    item.failed = getattr(item, "failed", False) or outcome.get_result().failed


def leave(browser, failed):
    """What the next test finds: one tab, which shows a page that can be used again. After a failure it is a new one."""
    first, *others = browser.window_handles
    if failed:
        browser.switch_to.new_window("tab")
        first, others = browser.current_window_handle, [first, *others]
    for handle in others:
        browser.switch_to.window(handle)
        browser.close()
    browser.switch_to.window(first)
    browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
    browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": ""})


@pytest.fixture
def chromium(browsers, request):
    browser = browsers.living()
    browser.get_log("browser")
    yield browser
    try:
        leave(browser, request.node.failed)
    except (WebDriverException, HTTPError, OSError):
        browsers.quit()
        if not request.node.failed:
            raise  # else the test has reported it


class Page:
    """What a reader sees, and waits for."""

    def __init__(self, browser, cell):
        self.browser = browser
        self.cell = cell

    def open(self, view="#live", width=1400, height=1000):
        """Shows a view, on the page of the test before if it was of the same server."""
        self.browser.set_window_size(width, height)
        if self.js("return location.origin") == self.cell.url and self.js("return Boolean(window.telvaneModel)"):
            self.js(SHOW, view)
            self.wait(lambda: self.js("return document.documentElement.lang") == "en", "the language")
        else:
            self.load(view)
        self.wait_for_stream()
        return self

    def load(self, view="#live"):
        self.browser.get("about:blank")  # else only the part after # would change
        self.browser.get(f"{self.cell.url}/{view}")
        self.wait_for_stream()

    def wait_for_stream(self):
        self.wait(lambda: self.js("return Boolean(window.telvaneModel?.state) && telvaneModel.link.link === 'live'"), "the first state")

    def js(self, code, *arguments):
        return self.browser.execute_script(code, *arguments)

    def wait(self, condition, what="the condition"):
        # While a page is loaded, an element that was just found can be gone.
        return WebDriverWait(self.browser, PATIENCE, 0.05, [StaleElementReferenceException]).until(lambda _: condition(), what)

    def state(self):
        return self.js("return document.getElementById('state')?.dataset.state")

    def wait_for_state(self, state):
        self.wait(lambda: self.state() == state, f"the state {state}, not {self.state()}")

    def text(self, name):
        return self.js("return document.getElementById(arguments[0])?.textContent", name)

    def model(self, expression):
        """Something of the model that the page draws."""
        return self.js(f"const m = window.telvaneModel; return {expression}")

    def console(self):
        """Errors and refusals that the browser reports, without those of connections that the tests cut."""
        return [entry["message"] for entry in self.browser.get_log("browser")
                if entry["source"] != "rendering" and "net::ERR" not in entry["message"]]


@pytest.fixture
def page(chromium, cell):
    return Page(chromium, cell)


@pytest.fixture
def new_page(chromium, cell):
    """For a test after which the page is not as it was."""
    chromium.switch_to.new_window("tab")
    return Page(chromium, cell)


@pytest.fixture(scope="session")
def axe():
    return (pathlib.Path(os.environ["TELVANE_NODE_MODULES"]) / "axe-core/axe.min.js").read_text()
