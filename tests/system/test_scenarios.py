"""Scenarios: every one that comes with the gateway is played, and what a recorded session did is done again by playing
it."""

import json
import re
import signal
import subprocess
from pathlib import Path

import pytest

from bench import GATEWAY, MODEM_INFO, wait_until
from station import Station

SCENARIOS = Path(__file__).parents[2] / "scenarios"


def play(bench, file, check=True):
    return subprocess.run(
        [GATEWAY, "play", "--unit", str(bench.folder), str(file)],
        check=check,
        capture_output=True,
        text=True,
        timeout=200,
    )


def steps(text):
    """Lines of a scenario that are steps."""
    return [line for line in text.splitlines() if line and not line.startswith("#")]


@pytest.mark.parametrize("file", sorted(SCENARIOS.glob("*.txt")), ids=lambda file: file.stem)
def test_scenario_of_the_gateway(bench, file):
    result = play(bench, file, check=False)
    assert (result.returncode, result.stderr) == (0, "")
    said = result.stdout.splitlines()
    assert all(re.match(r" +\d+\.\d{3} s  line \d+ +\S", line) for line in said)
    assert len(said) >= len(steps(file.read_text()))


def test_scenario_ends_at_a_failed_expectation(bench, tmp_path):
    file = tmp_path / "scenario.txt"
    file.write_text("for 1min press reset\nread FTM_ModemInfo.xml expect SERIAL_NUM=1\npress wps\n")
    result = play(bench, file, check=False)
    assert result.returncode == 1
    assert result.stderr == f'{file}: line 2: expected SERIAL_NUM=1, but it is "1234"\n'
    # What was done for a while is taken back, and nothing else is done.
    assert bench.rows("action") == ["press reset", "release reset"]


def test_bad_lines_are_all_reported_before_anything_is_done(bench, tmp_path):
    file = tmp_path / "scenario.txt"
    file.write_text("press reset\n\nsideways\nat 1 press wps\n# fine\nexpect led eNoLed on\n")
    before = bench.state(), bench.journal()
    result = play(bench, file, check=False)
    assert (result.returncode, result.stdout) == (1, "")
    reported = re.findall(r"^(.*):(\d+): .+$", result.stderr, re.MULTILINE)
    assert reported == [(str(file), number) for number in ("3", "4", "6")]
    assert (bench.state(), bench.journal()) == before


def test_scenario_needs_a_file_an_address_and_a_unit(stopped, tmp_path):
    file = tmp_path / "scenario.txt"
    file.write_text("press reset\n")
    for words, reason in (
        (["play", str(tmp_path / "none.txt")], "can't be read"),
        (["play", str(file), "--address", "here"], "no address"),
        (["play", str(file)], "no unit"),
        (["record", str(file)], "no unit"),
    ):
        result = stopped.gateway(*words, check=False)
        assert result.returncode == 1
        assert reason in result.stderr


def test_interrupted_scenario_takes_back_what_it_did_for_a_while(bench, tmp_path):
    file = tmp_path / "scenario.txt"
    file.write_text("for 10min fault on commit\nafter 10min press reset\n")
    process = subprocess.Popen(
        [GATEWAY, "play", "--unit", str(bench.folder), str(file)], stdout=subprocess.PIPE, stderr=subprocess.PIPE
    )
    wait_until(lambda: bench.rows("action") == ["fault on commit"], "the fault")
    process.send_signal(signal.SIGINT)
    _, errors = process.communicate(timeout=60)
    assert (process.returncode, errors.decode()) == (1, f"{file}: interrupted\n")
    assert bench.rows("action") == ["fault on commit", "fault off commit"]


class Recording:
    """`gateway record` in the background."""

    def __init__(self, bench, file):
        self.process = subprocess.Popen(
            [GATEWAY, "record", "--unit", str(bench.folder), str(file)], stdout=subprocess.PIPE, text=True
        )
        assert "Ctrl-C" in self.process.stdout.readline()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()

    def end(self):
        self.process.send_signal(signal.SIGINT)
        assert self.process.wait(timeout=60) == 0


def happened(bench, after):
    """Kinds and texts of what the journal has, in the order of their times: the service's rows come a moment later."""
    query = f"SELECT kind, text FROM journal WHERE id > {after} ORDER BY time_ms, id"
    rows = json.loads(bench.sql(query, "-readonly", "-json"))
    return [(row["kind"], re.sub(r"process \d+|to \d+", "", row["text"])) for row in rows]


def fates_of_datagrams(bench, after=0):
    """Number of the last datagram, and what became of those to the unit and of those from it, up to the last one that
    the wire did something to: how many pass before and behind each other in the two directions is chance."""
    fates = {"to": [], "from": []}
    for line in bench.gateway("datagrams").stdout.splitlines():
        number, _, _, _, direction, _, fate = line.split()[:7]
        if int(number) > after:
            fates[direction].append(fate)
    for row in fates.values():
        while row and row[-1] == "passed":
            row.pop()
    return int(number), fates


SESSION = r"""
press reset
after 200ms write FTM_ModemInfo.xml text "<MODEM_INFO><SERIAL_NUM>47 \"11\"</SERIAL_NUM></MODEM_INFO>\n"
after 200ms for 300ms fault on commit
after 100ms write FTM_ModemInfo.xml text "<MODEM_INFO><SERIAL_NUM>1</SERIAL_NUM></MODEM_INFO>" expect error "Write data failed"
after 400ms radio ssid "The \"other\" one"
after 200ms wire seed 1
after 200ms wire loss 20
after 200ms wire duplicate 20
after 200ms read FTM_TestModeCfg.xml
after 200ms write FTM_TestModeCfg.xml text "<TEST_CONFIG><LED><ALL_LEDS>OFF</ALL_LEDS></LED></TEST_CONFIG>"
after 200ms wire clear
after 200ms reboot
wait ready within 60s
after 200ms read FTM_ModemInfo.xml
after 200ms release reset
"""


def test_recorded_session_is_played_to_the_same_journal(bench, tmp_path):
    session, recorded, saved = tmp_path / "session.txt", tmp_path / "recorded.txt", tmp_path / "saved"
    session.write_text(SESSION)
    bench.stop()
    bench.gateway("save", str(saved))
    before = bench.last_row()

    def run_with(action):
        bench.gateway("load", str(saved))
        bench.start()
        action()
        bench.stop()
        return happened(bench, before)

    def record():
        with Recording(bench, recorded) as recording:
            play(bench, session)
            recording.end()

    first = run_with(record)
    last, fates = fates_of_datagrams(bench)
    assert ("wire", "loss 20") in first
    assert {"passed", "lost", "duplicated"} == set(sum(fates.values(), []))
    assert ("write", 'ProductionData 0 SerialNum=47 "11"') in first
    second = run_with(lambda: play(bench, recorded))
    assert second == first
    # The same datagrams met the same fates, also where one more was sent again; the ring goes on from run to run.
    _, fates_again = fates_of_datagrams(bench, last)
    for direction, wanted in fates.items():
        common = min(len(wanted), len(fates_again[direction]))
        assert fates_again[direction][:common] == wanted[:common]
    assert {"passed", "lost", "duplicated"} == set(sum(fates_again.values(), []))
    transfers = [line.split(maxsplit=2)[2] for line in steps(recorded.read_text()) if "FTM_" in line]
    assert len(transfers) == 5


def test_transfers_of_any_station_are_recorded(bench, station, tmp_path):
    recorded = tmp_path / "recorded.txt"
    long = b"<MODEM_INFO><SERIAL_NUM>4711</SERIAL_NUM></MODEM_INFO>" + b" " * 3000
    with Recording(bench, recorded) as recording:
        station.read(MODEM_INFO)
        station.write(MODEM_INFO, long)
        with Station() as other:
            other.start_write(MODEM_INFO)  # and no more
        bench.gateway("press", "wps")
        recording.end()
    lines = [re.sub(r"^at \S+ ", "", line) for line in steps(recorded.read_text())]
    assert lines == [f"read {MODEM_INFO}", f"write {MODEM_INFO} file recorded.txt.1", "press wps"]
    assert (tmp_path / "recorded.txt.1").read_bytes() == long
    assert f"write {MODEM_INFO}" in "".join(line for line in recorded.read_text().splitlines() if line.startswith("#"))


def test_recording_ends_where_the_unit_does_not_run(bench, tmp_path):
    bench.stop()
    recorded = tmp_path / "recorded.txt"
    with Recording(bench, recorded) as recording:
        bench.gateway("press", "wps")
        wait_until(lambda: bench.rows("action") == ["press wps"], "the action")
        recording.end()
    assert [line.split(maxsplit=2)[2] for line in steps(recorded.read_text())] == ["press wps"]
