"""The password, TLS, and what the server says about a network without them."""
import base64
import re
import shutil
import ssl
import subprocess
import urllib.error
import urllib.request

import pytest
from conftest import PATIENCE, TELVANE_WEB, Cell, Page, Process
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

PASSWORD = "Lichtbögen & Ähnliches"


@pytest.fixture(scope="module")
def password_file(tmp_path_factory):
    path = tmp_path_factory.mktemp("password") / "password"
    subprocess.run([TELVANE_WEB, "--new-password", path], input=f"{PASSWORD}\n", text=True, check=True, timeout=PATIENCE)
    assert path.stat().st_mode & 0o777 == 0o600
    assert path.read_text().startswith("$argon2id$")
    return path


@pytest.fixture(scope="module")
def certificate(tmp_path_factory):
    directory = tmp_path_factory.mktemp("certificate")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj", "/CN=localhost",
                    "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", directory / "key.pem", "-out", directory / "certificate.pem"],
                   check=True, capture_output=True, timeout=PATIENCE)
    return directory / "certificate.pem", directory / "key.pem"


def test_the_page_asks_for_the_password(chromium, tmp_path, password_file, axe):
    cell = Cell(tmp_path, "--password-file", password_file)
    try:
        page = Page(chromium, cell)
        chromium.get(cell.url)
        page.wait(lambda: chromium.find_element(By.ID, "password").is_displayed())
        assert not page.js("return Boolean(window.telvaneModel)"), "nothing of the bus is there yet"
        page.js(axe + "; window.axe = axe")
        assert chromium.execute_async_script("axe.run().then((result) => arguments[0](result.violations.map((v) => v.id)))") == []
        chromium.find_element(By.ID, "password").send_keys("wrong", Keys.ENTER)
        page.wait(lambda: page.text("login-message") == "The password is wrong.")
        chromium.find_element(By.ID, "password").clear()
        chromium.find_element(By.ID, "password").send_keys(PASSWORD, Keys.ENTER)
        page.wait_for_state("none")
        assert page.js("return document.cookie") == "", "scripts cannot read the cookie"
        cell.publish("TelvaneError", "--as", "TelvaneError", "--set", "Message=gas is low")
        page.wait(lambda: page.text("error-count") == "1")
        chromium.find_element(By.ID, "logout").click()
        page.wait(lambda: chromium.find_element(By.ID, "password").is_displayed())
    finally:
        chromium.get("about:blank")
        cell.stop()


def test_a_connection_can_be_encrypted(tmp_path, password_file, certificate):
    cell = Cell(tmp_path, "--password-file", password_file, "--certificate", certificate[0], "--key", certificate[1])
    try:
        assert cell.url.startswith("https://")
        context = ssl.create_default_context(cafile=certificate[0])
        with urllib.request.urlopen(cell.url + "/", timeout=PATIENCE, context=context) as answer:
            assert "<title>Telvane</title>" in answer.read().decode()
        with pytest.raises(urllib.error.HTTPError, match="401"):
            urllib.request.urlopen(cell.url + "/api/bus", timeout=PATIENCE, context=context)
        # Prometheus and curl send the password with each request. The live stream goes through the same connection.
        secret = base64.b64encode(f"telvane:{PASSWORD}".encode()).decode()
        for path, wanted in (("/metrics", b"telvane_web_sessions"), ("/api/login", b"welcome"), ("/api/events", b"event: hello")):
            request = urllib.request.Request(cell.url + path, headers={"Authorization": f"Basic {secret}"})
            with urllib.request.urlopen(request, timeout=PATIENCE, context=context) as answer:
                text = b""
                while wanted not in text:
                    part = answer.read1()
                    assert part, text
                    text += part
                if path == "/api/login":
                    assert answer.headers["Set-Cookie"].startswith("__Host-telvane-") and "; Secure" in answer.headers["Set-Cookie"]
        old = subprocess.run(["openssl", "s_client", "-connect", cell.address, "-tls1_1", "-cipher", "ALL:@SECLEVEL=0"], stdin=subprocess.DEVNULL,
                             capture_output=True, check=False, timeout=PATIENCE)
        assert old.returncode != 0
        # Plain HTTP to the same port gets no page.
        with pytest.raises((urllib.error.URLError, ConnectionError)):
            urllib.request.urlopen(cell.url.replace("https", "http") + "/", timeout=PATIENCE)
    finally:
        cell.stop()


def test_the_server_warns_of_a_network_without_password_and_encryption(tmp_path, password_file, certificate):
    warnings = {
        (): {"can read the welds and the bus", "the connection is not encrypted"},
        ("--password-file", password_file): {"neither is the password on its way"},
        ("--password-file", password_file, "--certificate", certificate[0], "--key", certificate[1]): set(),
    }
    for options, wanted in warnings.items():
        server = Process(tmp_path, "web", r"open https?://", TELVANE_WEB, tmp_path / "bus", "--listen", "0.0.0.0:0", *options)
        assert server.stop() == 0
        log = server.log.read_text()
        assert len(re.findall("warning", log)) == len(wanted), log
        assert all(text in log for text in wanted), log
    quiet = Process(tmp_path, "web", r"open http://", TELVANE_WEB, tmp_path / "bus", "--listen", "127.0.0.1:0")
    quiet.stop()
    assert "warning" not in quiet.log.read_text()


@pytest.mark.parametrize(("options", "message"), [
    (("--password-file", "missing"), "cannot use missing: No such file"),
    (("--password-file", "/dev/null"), "cannot use /dev/null"),
    (("--certificate", "missing", "--key", "missing"), "cannot read missing: No such file"),
    (("--certificate", "missing"), "--key"),
])
def test_the_server_does_not_start_without_what_was_asked_for(tmp_path, options, message):
    ended = subprocess.run([TELVANE_WEB, tmp_path / "bus", "--listen", "127.0.0.1:0", *options], cwd=tmp_path, capture_output=True, text=True, timeout=PATIENCE)
    assert ended.returncode != 0
    assert message in ended.stderr


def test_an_archive_in_postgresql_needs_the_module_for_it(tmp_path):
    alone = shutil.copy(TELVANE_WEB, tmp_path)
    ended = subprocess.run([alone, tmp_path / "bus", "--listen", "127.0.0.1:0", "--archive", "postgresql://plant/welds"],
                           capture_output=True, text=True, timeout=PATIENCE)
    assert ended.returncode != 0
    assert "PostgreSQL needs the package telvane-archive of the same version" in ended.stderr
    assert str(tmp_path.parent / "lib/telvane/libtelvane-archive-postgresql-") in ended.stderr
