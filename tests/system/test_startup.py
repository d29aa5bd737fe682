"""Start-up and end of the service under its supervisor."""

import os
import re
import signal
import socket
from pathlib import Path

import pytest

from bench import MODEM_INFO
from station import SERVER, Station

LEFT_OVER = ["/NVRM/current.cfg", "/NVRM/current.bak", "/NVRM/PTM_MODE"]


def leave_files(bench):
    for path in LEFT_OVER:
        bench.gateway_file(path).write_text("old")


def left_over(bench):
    return [path for path in LEFT_OVER if bench.gateway_file(path).exists()]


def test_taken_port_ends_the_service_with_status_255(stopped):
    stopped.start().stop()
    leave_files(stopped)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
        taken.bind(("0.0.0.0", SERVER[1]))
        stopped.start(ready=False)
        assert stopped.wait_end() != 0
    stopped.wait_output("status 255")
    assert "bind() failed" in stopped.rows("log")[-1]
    assert stopped.rows("end")[-1] == "status 255"
    # The left-over files go only once the port is bound.
    assert left_over(stopped) == LEFT_OVER
    stopped.start()
    assert left_over(stopped) == []
    with Station() as station:
        assert station.read(MODEM_INFO)


def test_start_without_left_over_files_is_no_error(bench, station):
    assert left_over(bench) == []
    assert station.read(MODEM_INFO)


def test_start_is_logged(bench):
    bench.wait_journal("FTM Started")


def test_datagram_of_no_bytes_ends_the_service_and_the_supervisor_starts_it_again(bench, station):
    before = station.read(MODEM_INFO)
    starts = bench.starts()
    station.send(b"")
    bench.wait_output("status 255")
    bench.wait_ready(starts + 1)
    bench.wait_journal("recvfrom() failed", 2)
    assert station.read(MODEM_INFO) == before


def test_killed_service_is_started_again(bench, station):
    before = station.read(MODEM_INFO)
    starts = bench.starts()
    bench.kill_service()
    bench.wait_ready(starts + 1)
    assert station.read(MODEM_INFO) == before


@pytest.mark.parametrize("end", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_supervisor_takes_the_service_with_it(bench, end):
    service = Path(f"/proc/{bench.service_pid()}")
    assert service.exists()
    assert bench.stop(end) == 0
    assert not service.exists()


def test_socket_is_kept_from_the_commands_that_the_service_runs(bench):
    service = Path(f"/proc/{bench.service_pid()}")
    (port,) = [entry.name for entry in (service / "fd").iterdir() if os.readlink(entry).startswith("socket:")]
    flags = re.search(r"^flags:\s+([0-7]+)$", (service / "fdinfo" / port).read_text(), re.MULTILINE)[1]
    assert int(flags, 8) & os.O_CLOEXEC


def test_reads_leave_no_descriptor_open(bench, station):
    station.read(MODEM_INFO)
    descriptors = Path(f"/proc/{bench.service_pid()}/fd")
    before = len(list(descriptors.iterdir()))
    for _ in range(50):
        station.read(MODEM_INFO)
    station.write(MODEM_INFO, b"<MODEM_INFO><SERIAL_NUM>1</SERIAL_NUM></MODEM_INFO>")
    station.read(MODEM_INFO)
    assert len(list(descriptors.iterdir())) == before
