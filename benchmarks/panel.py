"""What the front panel costs and how soon it shows a change.

Called by "script/benchmark --panel" with the folder of the release build. Every figure printed is measured here and
now, on a unit of its own that is in factory state and otherwise idle.
"""

import contextlib
import http.client
import json
import os
import pathlib
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import threading
import time

CHANGES = 200
IDLE_SECONDS = 30
ROWS = 10_000
CALLS = 50
TICKS = os.sysconf("SC_CLK_TCK")


class Panel:
    """A unit with its panel."""

    def __init__(self, gateway, folder, stack):
        self.process = subprocess.Popen(
            [gateway, "up", "--unit", folder, "--panel", "127.0.0.1:0"], stdout=subprocess.PIPE, text=True
        )
        stack.callback(self._end)
        self.port = None
        is_ready = False
        while not (self.port and is_ready):
            line = self.process.stdout.readline()
            if not line:
                sys.exit("benchmark: the unit has ended")
            is_ready = is_ready or line == "ready\n"
            if "The panel is at" in line:
                self.port = int(line.rpartition(":")[2].rstrip("/\n"))
        service = int((pathlib.Path(folder) / "supervisor.lock").read_text().split()[1])
        children = pathlib.Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children").read_text().split()
        (self.pid,) = {int(child) for child in children} - {service}

    def _end(self):
        self.process.terminate()
        self.process.wait()

    def connect(self):
        return http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)

    def call(self, method, path, body=None):
        with contextlib.closing(self.connect()) as connection:
            connection.request(method, path, body, {"Content-Type": "application/json"})
            answer = connection.getresponse()
            text = answer.read()
            if answer.status != 200:
                sys.exit(f"benchmark: {path}: {text.decode()}")
            return json.loads(text)

    def processor_seconds(self):
        fields = pathlib.Path(f"/proc/{self.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / TICKS


class Page(threading.Thread):
    """A connected page that notes when the serial number has become which."""

    def __init__(self, panel):
        super().__init__(daemon=True)
        self.connection = panel.connect()
        self.connection.request("GET", "/api/events")
        self.answer = self.connection.getresponse()
        self.seen = {}
        self.changed = threading.Condition()

    def run(self):
        with contextlib.suppress(OSError, ValueError, AttributeError):
            while line := self.answer.readline():
                if line.startswith(b"data: {"):
                    self.take(json.loads(line[6:]), time.perf_counter())

    def take(self, data, now):
        with self.changed:
            if "unit" in data:
                self.seen.setdefault(data["unit"]["serial"], now)
            self.changed.notify_all()

    def wait(self, serial):
        with self.changed:
            if not self.changed.wait_for(lambda: serial in self.seen, 30):
                sys.exit(f"benchmark: no event of {serial}")
            return self.seen[serial]


def processor_percent(panel):
    before = panel.processor_seconds()
    time.sleep(IDLE_SECONDS)
    return (panel.processor_seconds() - before) / IDLE_SECONDS * 100


def event_delays(panel, page):
    """Milliseconds from when a page asks for a change to when its event is there."""
    delays = []
    for number in range(CHANGES):
        serial = f"S{number}"
        body = json.dumps({"words": ["set", "ProductionData", "SerialNum", serial]})
        asked = time.perf_counter()
        panel.call("POST", "/api/action", body)
        delays.append((page.wait(serial) - asked) * 1000)
    return delays


def journal_times(panel, unit):
    with contextlib.closing(sqlite3.connect(unit / "unit.db", timeout=30)) as database:
        database.executemany("INSERT INTO journal (time_ms, kind, text) VALUES (0, 'log', ?)",
                             [(f"debug line {row}",) for row in range(ROWS)])  # fmt: skip
        database.commit()
    for path in ["/api/journal", "/api/journal?limit=1000", "/api/journal?text=line+17"]:
        times = []
        for _ in range(CALLS):
            start = time.perf_counter()
            panel.call("GET", path)
            times.append((time.perf_counter() - start) * 1000)
        print(f"{path:<40} median {statistics.median(times):6.2f} ms  max {max(times):6.2f} ms", flush=True)


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    with contextlib.ExitStack() as stack:
        unit = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory())) / "unit"
        panel = Panel(build / "simulator/gateway", unit, stack)
        print(f"{'panel without a page, 30 s idle':<40} {processor_percent(panel):.2f} % of a processor", flush=True)
        page = Page(panel)
        page.start()
        page.wait("1234")
        print(f"{'panel with a page, 30 s idle':<40} {processor_percent(panel):.2f} % of a processor", flush=True)
        delays = event_delays(panel, page)
        print(f"{f'{CHANGES} changes, action to event':<40} median {statistics.median(delays):6.2f} ms  "
              f"max {max(delays):6.2f} ms", flush=True)  # fmt: skip
        print(f"journal of {ROWS} rows more:")
        journal_times(panel, unit)


if __name__ == "__main__":
    main()
