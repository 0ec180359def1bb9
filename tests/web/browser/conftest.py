"""A bus, its web server and a browser, each started on a free address and ended by its process ID."""
import os
import pathlib
import re
import subprocess
import tempfile
import time

import pytest
from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.ui import WebDriverWait

TELVANE = os.environ["TELVANE"]
TELVANE_WEB = os.environ["TELVANE_WEB"]
PATIENCE = 240  # a machine that is busy with other tests can take a minute to load a page; nothing waits so long otherwise
# Chromium looks for its makers' servers otherwise, and needs root's permission to run without its own sandbox.
OPTIONS = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-dev-shm-usage",
           "--disable-background-networking", "--disable-component-update", "--disable-sync", "--disable-extensions",
           "--force-color-profile=srgb", "--hide-scrollbars", "--lang=en", "--enable-precise-memory-info"]


class Process:
    """A program that prints a line to standard error when it is ready."""

    def __init__(self, directory, name, ready, *command):
        self.log = directory / f"{name}.log"
        self.log.write_text("")
        with open(self.log, "a") as log:
            self.process = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.ready = self.wait_for(ready)

    def wait_for(self, pattern):
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            if found := re.search(pattern, self.log.read_text()):
                return found
            assert self.process.poll() is None, self.log.read_text()
            time.sleep(0.02)
        raise AssertionError(f"no {pattern!r} in {self.log.read_text()!r}")

    def stop(self, signal=None):
        if self.process.poll() is None:
            self.process.terminate() if signal is None else self.process.send_signal(signal)
        return self.process.wait(PATIENCE)


class Cell:
    """A bus with a web server."""

    def __init__(self, directory, *options):
        self.directory = directory
        self.bus = directory / "bus"
        self.address = "127.0.0.1:0"
        self.options = options  # of the web server
        self.start_server()
        self.start_web()

    def start_server(self):
        self.server = Process(self.directory, "server", "serving", TELVANE, "serve", self.bus, "--verbose")

    def start_web(self):
        self.web = Process(self.directory, "web", r"open (https?://([\d.:]+))/", TELVANE_WEB, self.bus, "--listen", self.address,
                           *self.options)
        self.url, self.address = self.web.ready.groups()  # the same address after a restart

    def publish(self, channel, *options):
        subprocess.run([TELVANE, "publish", self.bus, channel, *options], check=True, capture_output=True, timeout=PATIENCE)

    def weld(self, *options):
        subprocess.run([TELVANE, "weld", self.bus, *options], check=True, capture_output=True, timeout=PATIENCE)

    def stop(self):
        self.web.stop()
        self.server.stop()


@pytest.fixture
def cell(tmp_path):
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


@pytest.fixture(scope="session")
def chromium():
    """One browser for all tests; each test gets a new window of it, without anything kept."""
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        browser = launch(profile)
        yield browser
        browser.quit()


class Page:
    """What a reader sees, and waits for."""

    def __init__(self, browser, cell):
        self.browser = browser
        self.cell = cell

    def open(self, view="", width=1400, height=1000):
        self.browser.set_window_size(width, height)
        self.browser.get(self.cell.url + view)
        self.wait(lambda: self.js("return Boolean(window.telvaneModel?.state)"), "the first state")
        return self

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
    chromium.get_log("browser")
    made = Page(chromium, cell)
    yield made
    chromium.get("about:blank")


@pytest.fixture(scope="session")
def axe():
    return (pathlib.Path(os.environ["TELVANE_NODE_MODULES"]) / "axe-core/axe.min.js").read_text()
