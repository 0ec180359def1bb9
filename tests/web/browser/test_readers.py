"""The page for all readers: with a keyboard or a screen reader, in both languages, on a phone, on paper."""
from published import show_weld
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select


def test_the_page_is_accessible(page, cell, axe):
    page.open()
    show_weld(page, cell, "--speed", "20")
    cell.publish("TelvaneError", "--as", "TelvaneError", "--set", "Message=gas is low")
    page.js("location.hash = 'bus'")
    page.wait(lambda: page.js("return document.querySelector('button.channel') !== null"))
    page.browser.find_element(By.CSS_SELECTOR, "button.channel").click()
    # A few classes of the catalogue are like all others.
    page.browser.find_element(By.ID, "catalogue-filter").send_keys("metrics")
    page.js("document.getElementById('numbers').open = true")
    # The checker is not part of the page, whose policy lets nothing be added: the driver runs it.
    page.js(axe + "; window.axe = axe")
    everything = ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "wcag22aa", "best-practice"]
    # The colours are all that differs between the themes.
    for theme, rules in (("light", everything), ("dark", ["color-contrast"])):
        page.js("document.documentElement.dataset.theme = arguments[0]", theme)
        for view, waited in (("live", "metrics"), ("bus", "channels"), ("errors", "errors-list")):
            page.js("location.hash = arguments[0]", view)
            page.wait(lambda: page.text(waited))
            found = page.browser.execute_async_script(
                f"axe.run({{runOnly: {rules}, resultTypes: ['violations']}})"
                ".then((result) => arguments[0](result.violations.map((v) => [v.id, v.nodes.map((n) => n.html + n.failureSummary)])))")
            assert found == [], (view, theme)
        page.js("location.hash = 'live'")
        page.wait(lambda: not page.js("return document.getElementById('view-live').hidden"))
        assert page.browser.execute_async_script("""
            const copies = ['none', 'arc', 'silent', 'ended', 'lost', 'noBus'].map((state) => {
              const copy = document.getElementById('state').cloneNode(true);
              copy.dataset.state = state;
              return copy;
            });
            const place = document.createElement('div');
            place.append(...copies);
            document.getElementById('view-live').append(place);
            axe.run(place, {runOnly: ['color-contrast']}).then((result) => {
              place.remove();
              arguments[0]([result.violations.length, result.passes.length]);
            });""") == [0, 1], theme


def test_the_chart_is_read_with_the_keyboard(page, cell):
    page.open()
    show_weld(page, cell, "--speed", "20")
    page.wait(lambda: page.js("return telvaneView.charts.amps.plot?.data[0].length") == page.model("m.size"))
    plot = page.browser.find_element(By.CSS_SELECTOR, "#chart-amps .plot")
    page.wait(lambda: "777" in plot.get_attribute("aria-label"))
    plot.send_keys(Keys.HOME)
    for _ in range(3):
        plot.send_keys(Keys.ARROW_RIGHT)
    shown = page.js("return document.querySelector('#chart-amps .readout').textContent")
    time, low, high = page.model("[3 * 2 ** m.level * m.period, m.min[0][3], m.max[0][3]]")
    assert shown.startswith(f"at {time:.3f} s") and f"({low:.0f} to {high:.0f})" in shown


def test_both_languages_are_whole(page, cell):
    page.open()
    show_weld(page, cell, "--speed", "20")
    choose = Select(page.browser.find_element(By.ID, "language"))
    choose.select_by_value("de")
    page.wait(lambda: page.text("state-word") == "Schweißung beendet")
    assert page.js("return document.documentElement.lang") == "de"
    assert "Strom" in page.text("tiles")
    page.browser.refresh()
    page.wait(lambda: page.text("state-word") == "Schweißung beendet")
    # Numbers follow the language, and no text is missing in either.
    assert page.js("return import('/app.js').then((page) => page.modules['/language.js'].number(1234.5, 1))") == "1.234,5"
    for language, another in (("en", "de"), ("de", "en")):
        texts, other = page.js("return import('/app.js').then(({modules}) => arguments[0].map((name) => modules[`/language/${name}.json`][name]))",
                               [language, another])
        assert texts.keys() == other.keys()
        assert all(texts.values())
        assert {key for key in texts if texts[key].count("{") != other[key].count("{")} == set()
    Select(page.browser.find_element(By.ID, "language")).select_by_value("en")
    page.wait(lambda: page.text("state-word") == "Weld ended")


def test_the_page_fits_a_phone_a_zoomed_window_and_paper(page, cell):
    page.open()
    show_weld(page, cell, "--speed", "20")
    for width in (360, 700, 2560):
        page.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": width, "height": 800, "deviceScaleFactor": 2, "mobile": width < 500})
        for view in ("live", "bus", "errors"):
            page.js("location.hash = arguments[0]", view)
            page.wait(lambda: not page.js(f"return document.getElementById('view-{view}').hidden"))
            page.wait(lambda: page.js("return document.documentElement.scrollWidth <= innerWidth"), f"{view} in {width} pixels")
    page.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
    page.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "print"})
    assert page.js("return getComputedStyle(document.querySelector('header')).display") == "none"
