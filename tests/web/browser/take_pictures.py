#!/usr/bin/python3
"""Takes the pictures of the page in docs/pictures, with simulated welds in headless Chromium.

    TELVANE=PATH TELVANE_WEB=PATH take_pictures.py
"""
import pathlib
import subprocess
import tempfile

from conftest import TELVANE, Cell, Page, launch

PICTURES = pathlib.Path(__file__).resolve().parents[3] / "docs/pictures"


def save(page, name, width, height, scale=1):
    page.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                 {"width": width, "height": height, "deviceScaleFactor": scale, "mobile": width < 500})
    # Two frames later the new size is drawn.
    page.browser.execute_async_script("requestAnimationFrame(() => requestAnimationFrame(() => setTimeout(arguments[0], 300)))")
    page.browser.save_screenshot(str(PICTURES / f"{name}.png"))


def main():
    with tempfile.TemporaryDirectory() as directory, tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        cell = Cell(pathlib.Path(directory))
        browser = launch(profile)
        try:
            page = Page(browser, cell).open(width=1280, height=900)
            listener = subprocess.Popen([TELVANE, "listen", cell.bus, "WeldTriggerEnd"], stdout=subprocess.DEVNULL)
            weld = subprocess.Popen([TELVANE, "weld", cell.bus, "--duration", "12", "--seed", "4"], stderr=subprocess.DEVNULL)
            page.wait(lambda: page.model("m.values && m.values.time > 5"))
            save(page, "web-live", 1280, 860)
            page.js("document.documentElement.dataset.theme = 'dark'; document.getElementById('theme').click();"
                    "document.getElementById('theme').click(); document.getElementById('language').value = 'de';"
                    "document.getElementById('language').dispatchEvent(new Event('change'))")
            page.wait(lambda: page.text("state-word") == "Lichtbogen an")
            save(page, "web-phone", 390, 844)
            page.js("document.documentElement.dataset.theme = 'light'; document.getElementById('language').value = 'en';"
                    "document.getElementById('language').dispatchEvent(new Event('change')); location.hash = 'bus'")
            page.wait(lambda: "WeldTraceData" in page.text("channels"))
            page.js("[...document.querySelectorAll('button.channel')].find((b) => b.textContent === 'WeldTraceData').click()")
            page.wait(lambda: "volts" in page.text("record"))
            page.js("const c = document.getElementById('catalogue-filter'); c.value = 'weldmetrics'; c.dispatchEvent(new Event('input'))")
            page.wait(lambda: page.js("return document.querySelector('#channels tbody').textContent").count("0") > 4)
            save(page, "web-bus", 1280, 860)
            weld.wait()
            listener.terminate()
            listener.wait()
        finally:
            browser.quit()
            cell.stop()


main()
