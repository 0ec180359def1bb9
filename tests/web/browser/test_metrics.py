"""The metrics as a real Prometheus takes them."""
import json
import subprocess
import time
import urllib.error
import urllib.parse
import urllib.request

from conftest import PATIENCE, reserve_port

CONFIGURATION = """
global: {{scrape_interval: 250ms, scrape_timeout: 250ms}}
scrape_configs:
  - job_name: telvane
    static_configs: [{{targets: ["{target}"]}}]
"""


def query(address, expression):
    """The results of a query; none while Prometheus starts."""
    try:
        with urllib.request.urlopen(f"http://{address}/api/v1/query?" + urllib.parse.urlencode({"query": expression}), timeout=5) as answer:
            return json.load(answer)["data"]["result"]
    except (urllib.error.URLError, ConnectionError, TimeoutError):
        return []


def test_prometheus_scrapes_the_metrics(cell, tmp_path):
    (tmp_path / "prometheus.yml").write_text(CONFIGURATION.format(target=cell.address))
    reserved = reserve_port()
    address = f"127.0.0.1:{reserved.getsockname()[1]}"
    with open(tmp_path / "prometheus.log", "w") as log:
        prometheus = subprocess.Popen(
            ["prometheus", f"--config.file={tmp_path}/prometheus.yml", f"--storage.tsdb.path={tmp_path}/data",
             f"--web.listen-address={address}"], stdout=log, stderr=log)
    try:
        cell.weld("--duration", "1.5")
        wanted = {"telvane_web_weld_samples_total": 1000, 'telvane_channel_publications_total{channel="WeldTraceData"}': 1000,
                  'up{job="telvane"}': 1, "telvane_web_bus_connected": 1}
        end = time.monotonic() + PATIENCE
        while wanted and time.monotonic() < end:
            # While a page looks at the bus, the server asks for its counters each second.
            urllib.request.urlopen(f"{cell.url}/api/bus", timeout=PATIENCE).close()
            for expression, value in list(wanted.items()):
                if any(float(result["value"][1]) >= value for result in query(address, expression)):
                    del wanted[expression]
            time.sleep(0.1)
        assert wanted == {}, (tmp_path / "prometheus.log").read_text()
    finally:
        prometheus.terminate()
        prometheus.wait(PATIENCE)
        reserved.close()
