# SPDX-License-Identifier: MIT
"""An alarm: the exporter of Debian makes the temperatures of devices a metric, Prometheus compares them
with a limit, and its Alertmanager has the alarm."""
import json
import urllib.error
import urllib.request

from processes import Failure, free_ports, listens, wait_until

PATIENCE = 120
NAME = "DeviceTooHot"
LIMIT = 80


class Alarm:
    def __init__(self, processes, broker_port):
        self.directory = processes.directory / "alarm"
        self.directory.mkdir()
        exporter, prometheus, self.manager = free_ports(3)
        self._write("exporter.yaml", f"""
mqtt:
  server: tcp://127.0.0.1:{broker_port}
  topic_path: iomap/+/r/cpu_temperature
  device_id_regex: "iomap/(?P<deviceid>[^/]+)/r/.*"
  qos: 0
cache:
  timeout: 24h
metrics:
  - prom_name: cpu_temperature_celsius
    mqtt_name: value
    help: temperature of the processor of a device
    type: gauge
""")
        self._write("prometheus.yaml", f"""
global: {{scrape_interval: 1s, evaluation_interval: 1s}}
rule_files: [rules.yaml]
scrape_configs:
  - job_name: devices
    static_configs: [{{targets: ["127.0.0.1:{exporter}"]}}]
alerting:
  alertmanagers:
    - static_configs: [{{targets: ["127.0.0.1:{self.manager}"]}}]
""")
        self._write("rules.yaml", f"""
groups:
  - name: devices
    rules:
      - alert: {NAME}
        expr: cpu_temperature_celsius > {LIMIT}
""")
        self._write("alertmanager.yaml", "{route: {receiver: none}, receivers: [{name: none}]}")
        self._start(processes, "prometheus-mqtt-exporter", exporter, "-config", "exporter.yaml",
                    "-listen-address", "127.0.0.1", "-listen-port", str(exporter))
        self._start(processes, "prometheus-alertmanager", self.manager, "--config.file=alertmanager.yaml",
                    "--storage.path=manager", "--cluster.listen-address=",
                    f"--web.listen-address=127.0.0.1:{self.manager}")
        self._start(processes, "prometheus", prometheus, "--config.file=prometheus.yaml",
                    "--storage.tsdb.path=series", f"--web.listen-address=127.0.0.1:{prometheus}")

    def _write(self, name, text):
        (self.directory / name).write_text(text)

    def _start(self, processes, program, port, *arguments):
        process = processes.start(["env", "-C", self.directory, program, *arguments], f"{program}.log")
        wait_until(lambda: process.poll() is not None or listens(port), PATIENCE, program)
        if process.poll() is not None:
            raise Failure(f"{program}: {processes.log(f'{program}.log')[-500:]}")

    def devices(self):
        """The devices that the alarm fires for."""
        try:
            with urllib.request.urlopen(f"http://127.0.0.1:{self.manager}/api/v2/alerts?active=true",
                                        timeout=5) as answer:
                alerts = json.load(answer)
        except (urllib.error.URLError, TimeoutError):
            return []
        return [alert["labels"]["sensor"] for alert in alerts if alert["labels"]["alertname"] == NAME]

    def wait(self, device):
        wait_until(lambda: device in self.devices(), PATIENCE, f"the alarm {NAME} of {device}")
