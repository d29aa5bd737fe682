"""What the service takes of the machine while it is soaked: memory, descriptors, threads, and time."""

import collections
import os
import re
import shutil
import statistics
import subprocess
import tempfile
from pathlib import Path

from bench import SANITIZER

# The start of a run fills caches and the allocator's stores; it lasts until each thing has been done once, and a tenth
# of the transfers at least. After it memory may not grow by more than this.
WARM_UP_ROUNDS = 4
GROWTH_KILOBYTES = 256
# From so many transfers on there are enough runs of each client to compare their times.
TIMED_TRANSFERS = 100_000
SLOWER = 1.25
TENTH = 0.1


class Measurements:
    def __init__(self, bench, count):
        self.count = count
        self.service = bench.service_pid()
        self.supervisor = bench.process.pid
        self.samples = []
        self.times = collections.defaultdict(list)

    def took(self, client, made, seconds):
        """The mean time of a transfer in one run of a client, which began after so many transfers."""
        self.times[client].append((made, seconds))

    def sample(self, made):
        assert Path(f"/proc/{self.service}").exists(), f"the service has ended after {made} transfers"
        status = self._status(self.service)
        processor = sum(map(int, Path(f"/proc/{self.service}/stat").read_text().rsplit(")", 1)[1].split()[11:13]))
        self.samples.append(
            {
                "made": made,
                "resident": int(status["VmRSS"].split()[0]),
                "threads": int(status["Threads"]),
                "descriptors": len(os.listdir(f"/proc/{self.service}/fd")),
                "processor": processor / os.sysconf("SC_CLK_TCK"),
                "supervisor": int(self._status(self.supervisor)["VmRSS"].split()[0]),
            }
        )

    @staticmethod
    def _status(pid):
        return dict(re.findall(r"^(\w+):\s+(.*)$", Path(f"/proc/{pid}/status").read_text(), re.MULTILINE))

    # The beginning and the end of the run.

    def _ends(self, what):
        """Its least values in the tenth after the warm-up and in the last tenth. What is kept for good shows in them,
        and what a flood takes for a moment doesn't."""
        warm = [s[what] for s in self.samples[WARM_UP_ROUNDS:] if s["made"] >= TENTH * self.count]
        return min(self._first_tenth(warm)), min(self._last_tenth(warm))

    def _time_ends(self, client):
        """Median times in the first and in the last tenth, in seconds."""
        times = [seconds for _, seconds in self.times[client]]
        return statistics.median(self._first_tenth(times)), statistics.median(self._last_tenth(times))

    def _processor_ends(self):
        """Processor time of the service for each transfer in the first and in the last tenth, in seconds."""
        return self._processor_time(self._first_tenth(self.samples)), self._processor_time(self._last_tenth(self.samples))

    @staticmethod
    def _processor_time(samples):
        made = samples[-1]["made"] - samples[0]["made"]
        return (samples[-1]["processor"] - samples[0]["processor"]) / made

    @staticmethod
    def _first_tenth(values):
        return values[: max(2, round(TENTH * len(values)))]

    @staticmethod
    def _last_tenth(values):
        return values[-max(2, round(TENTH * len(values))) :]

    def report(self):
        for what, unit in (("resident", " KiB"), ("descriptors", ""), ("threads", ""), ("supervisor", " KiB")):
            first, last = self._ends(what)
            print(f"{what:<12} after the warm-up {first}{unit}, at the end {last}{unit}")
        for client in self.times:
            first, last = self._time_ends(client)
            print(f"{client:<12} first tenth {1e6 * first:.0f} us, last tenth {1e6 * last:.0f} us, ratio {last / first:.2f}")
        first, last = self._processor_ends()
        print(f"{'processor':<12} first tenth {1e6 * first:.0f} us, last tenth {1e6 * last:.0f} us of the service")

    def failures(self):
        """What is not as it was at the beginning, in words."""
        failures = []
        # A sanitizer holds on to freed memory on purpose.
        limits = {"descriptors": 0, "threads": 0}
        if not SANITIZER:
            limits |= {"resident": GROWTH_KILOBYTES, "supervisor": GROWTH_KILOBYTES}
        for what, limit in limits.items():
            first, last = self._ends(what)
            if last > first + limit:
                failures.append(f"{what} grew from {first} to {last}")
        for client in self.times if self.count >= TIMED_TRANSFERS else ():
            first, last = self._time_ends(client)
            if last > SLOWER * first:
                failures.append(f"{client} took {1e6 * first:.0f} us for a transfer at first and {1e6 * last:.0f} at last")
        return failures

    # The picture.

    def plot(self, picture):
        """Memory and times over the transfers, as a PNG file."""
        with tempfile.TemporaryDirectory() as folder:
            self._write_rows(Path(folder) / "resident", [(s["made"], s["resident"] / 1024) for s in self.samples])
            for client, times in self.times.items():
                self._write_rows(Path(folder) / client, [(made, 1e6 * seconds) for made, seconds in self._medians(times)])
            lines = ", ".join(f'"{client}" with lines linewidth 2 title "{client}"' for client in self.times)
            script = f"""
                set terminal pngcairo size 1000,700 font "Sans,11"
                set output "picture.png"
                set multiplot layout 2,1
                set grid
                set xrange [0:{self.count}]
                set format x "%'.0f"
                set yrange [0:*]
                set key outside right
                set ylabel "resident memory, MiB"
                plot "resident" with lines linewidth 2 title "service"
                set ylabel "time of a transfer, us"
                set xlabel "transfers"
                plot {lines}
            """
            subprocess.run(["gnuplot"], input=script, text=True, cwd=folder, check=True, timeout=60)
            shutil.move(Path(folder) / "picture.png", picture)

    @staticmethod
    def _write_rows(file, rows):
        file.write_text("".join(f"{x} {y:.3f}\n" for x, y in rows))

    def _medians(self, times, points=100):
        """The times as the medians of so many equal parts of the run."""
        parts = collections.defaultdict(list)
        for made, seconds in times:
            parts[made * points // self.count].append(seconds)
        return [(part * self.count / points, statistics.median(values)) for part, values in sorted(parts.items())]
