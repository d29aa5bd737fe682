"""A production line: units that run at once, each with an address of its own."""

import os
import re
import signal
import subprocess
import threading
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

from bench import GATEWAY, MODEM_INFO, _end_with_the_test, field, run, wait_until

UNITS = 8


class Line:
    def __init__(self, folder: Path):
        self.folder = folder
        self.process = None

    def start(self, units=UNITS, *options):
        self.process = subprocess.Popen(
            [GATEWAY, "line", str(units), "--folder", str(self.folder), *options],
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            preexec_fn=_end_with_the_test,
        )
        return self

    def wait_ready(self):
        """Addresses of the units by their names."""
        addresses = {}
        watchdog = threading.Timer(120, self.process.kill)
        watchdog.start()
        try:
            for line in self.process.stdout:
                if line == "ready\n":
                    return addresses
                found = re.fullmatch(r"(unit\d+)  ([\d.]+)  serial (\d+)  ready\n", line)
                assert found, line
                addresses[found[1]] = found[2]
        finally:
            watchdog.cancel()
        raise AssertionError("the line has ended")

    def end(self, sign=signal.SIGINT):
        self.process.send_signal(sign)
        output, _ = self.process.communicate(timeout=60)
        return self.process.returncode, output

    def status(self):
        """Address, phase and serial number of each unit."""
        lines = run("line", "status", "--folder", str(self.folder)).stdout.splitlines()
        return {line.split()[0]: line.split()[1:] for line in lines}

    def processes(self):
        """Ids of the processes that work on the line's units."""
        mark = str(self.folder).encode()
        found = []
        for process in Path("/proc").glob("[0-9]*"):
            try:
                text = (process / "environ").read_bytes() + (process / "cmdline").read_bytes()
            except OSError:
                continue
            if mark in text:
                found.append(int(process.name))
        return found


def interfaces():
    return set(os.listdir("/proc/sys/net/ipv4/conf")) - {"all", "default"}


def read(address):
    answer = subprocess.run(
        ["curl", "-sS", "-m", "60", f"tftp://{address}/{MODEM_INFO}"], capture_output=True, timeout=90, check=True
    )
    return field(answer.stdout, "SERIAL_NUM"), field(answer.stdout, "MAC_ADDR")


@pytest.fixture
def line(tmp_path):
    line = Line(tmp_path / "line")
    try:
        yield line
    finally:
        if line.process and line.process.poll() is None:
            line.end()
        if line.process:
            line.process.stdout.close()


def test_units_answer_at_once_each_with_its_own_identity(line):
    before = interfaces()
    addresses = line.start().wait_ready()
    assert list(sorted(addresses)) == [f"unit{number}" for number in range(1, UNITS + 1)]
    with ThreadPoolExecutor(UNITS) as pool:
        identities = list(pool.map(read, [addresses[f"unit{number}"] for number in range(1, UNITS + 1)]))
    assert [serial for serial, _ in identities] == [str(1000 + number) for number in range(1, UNITS + 1)]
    assert len({mac for _, mac in identities}) == UNITS
    expected = {f"unit{n}": [addresses[f"unit{n}"], "up", str(1000 + n)] for n in range(1, UNITS + 1)}
    assert line.status() == expected
    assert len(interfaces() - before) == 1
    assert line.processes()
    assert line.end() == (0, "")
    assert line.processes() == []
    assert interfaces() == before
    assert line.status()["unit1"] == ["-", "off", "1001"]


def test_second_line_is_refused_in_the_folder_and_welcome_in_another(line, tmp_path):
    addresses = line.start(1).wait_ready()
    again = run("line", "1", "--folder", str(line.folder), check=False)
    assert again.returncode == 1
    assert "runs already" in again.stderr
    assert line.status()["unit1"][1] == "up"
    other = Line(tmp_path / "other").start(1, "--from", "21")
    others = other.wait_ready()
    assert read(addresses["unit1"])[0] == "1001"
    assert read(others["unit21"])[0] == "1021"
    assert other.end()[0] == 0
    other.process.stdout.close()
    assert read(addresses["unit1"])[0] == "1001"


def test_killed_line_leaves_nothing_that_blocks_the_next_one(line):
    before = interfaces()
    first = line.start(2).wait_ready()
    line.end(signal.SIGKILL)
    line.process.stdout.close()
    second = line.start(2).wait_ready()
    assert second.keys() == first.keys()
    assert read(second["unit2"])[0] == "1002"
    assert line.end()[0] == 0
    assert interfaces() == before
    wait_until(lambda: line.processes() == [], "the end of all processes")


def test_unit_that_cannot_start_ends_the_line(line):
    before = interfaces()
    line.start(2, "--service", "/no/such/service")
    output, _ = line.process.communicate(timeout=60)
    assert line.process.returncode == 1
    assert "has ended" in output
    assert "can't be run" in (line.folder / "unit1" / "output.log").read_text()
    assert interfaces() == before
    assert line.processes() == []


def test_folder_that_cannot_be_locked_is_no_running_line(line):
    (line.folder / "line.lock").mkdir(parents=True)
    result = run("line", "1", "--folder", str(line.folder), check=False)
    assert result.returncode == 1
    assert "can't be written" in result.stderr


def test_words_that_are_no_line_are_refused(line):
    for words in [(), ("0",), ("1000",), ("sideways",), ("status", "--folder", str(line.folder))]:
        assert run("line", *words, check=False).returncode != 0, words
