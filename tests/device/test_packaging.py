"""What an image is given besides the program: init script, service unit and install rules."""

import contextlib
import ctypes
import os
import re
import shutil
import signal
import stat
import subprocess
import threading
import time
from pathlib import Path

import pytest

BUILD = Path(os.environ["BUILD"])
SOURCES = Path(__file__).parents[2]
INIT_SCRIPT = SOURCES / "packaging/ftm.init"
RUNS, DEAD_WITH_PIDFILE, STOPPED, NO_PROGRAM, USAGE = 0, 1, 3, 5, 2
_PR_SET_CHILD_SUBREAPER = 36

# Ends with a status so many times, then goes on until it is stopped. Notes its process id at each start.
PROGRAM = """#!{shell}
echo $$ >> {notes}
[ "$(wc -l < {notes})" -gt {ends} ] || exit {status}
exec sleep 1000
"""


def wait_until(condition, what):
    limit = time.monotonic() + 60
    while not condition():
        assert time.monotonic() < limit, f"{what} did not come to pass"
        time.sleep(0.005)


def lives(pid):
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


class Gateway:
    """The init script on a file system that has busybox and nothing else."""

    def __init__(self, folder):
        self.folder = folder
        self.tools = folder / "bin"
        self.tools.mkdir()
        busybox = shutil.which("busybox")
        subprocess.run([busybox, "--install", "-s", str(self.tools)], check=True, timeout=60)
        self.shell = f"{self.tools}/sh"
        self.script = folder / "ftm"
        self.script.write_text(INIT_SCRIPT.read_text().replace("#!/bin/sh", f"#!{self.shell}", 1))
        self.script.chmod(0o755)
        self.notes = folder / "notes"
        self.pidfile = folder / "ftm.pid"
        self.mark = folder / "test-mode"
        self.mark.touch()
        self.seen = set()  # process ids of whatever was started
        (folder / "config").write_text(
            f"DAEMON={folder}/FTM\nPIDFILE={self.pidfile}\nTEST_MODE_FILE={self.mark}\nRESTART_PAUSE=0\n"
        )
        self.install()

    def install(self, ends=0, status=0):
        """Puts a program there that ends with a status so many times before it goes on."""
        program = self.folder / "FTM"
        program.write_text(PROGRAM.format(shell=self.shell, notes=self.notes, ends=ends, status=status))
        program.chmod(0o755)

    def run(self, word):
        environment = {"PATH": str(self.tools), "FTM_CONFIG": str(self.folder / "config")}
        result = subprocess.run([str(self.script), word], env=environment, capture_output=True, text=True, timeout=120)
        self.seen |= self.pids()  # now: a supervisor that is stopped takes its file with it
        return result

    def status(self):
        return self.run("status").returncode

    def starts(self):
        """Process ids of the programs that have been started."""
        return self.notes.read_text().split() if self.notes.exists() else []

    def wait_starts(self, count):
        wait_until(lambda: len(self.starts()) >= count, f"start {count}")
        return self.starts()[-1]

    def pids(self):
        pidfile = self.pidfile.read_text().split() if self.pidfile.exists() else []
        return {int(pid) for pid in self.starts() + pidfile}


@pytest.fixture
def gateway(tmp_path):
    """What the script leaves behind is this process's to reap, as it is process 1's on a gateway."""
    ctypes.CDLL(None).prctl(_PR_SET_CHILD_SUBREAPER, 1)
    gateway = Gateway(tmp_path)
    ended = threading.Event()

    def reap():
        while not ended.wait(0.01):
            for pid in gateway.seen | gateway.pids():
                with contextlib.suppress(ChildProcessError):
                    os.waitpid(pid, os.WNOHANG)

    reaper = threading.Thread(target=reap)
    reaper.start()
    yield gateway
    for pid in gateway.pids():  # at once; a supervisor stops its program itself
        with contextlib.suppress(ProcessLookupError):
            os.kill(pid, signal.SIGTERM)
    wait_until(lambda: not any(map(lives, gateway.pids())), "the end of what was started")
    ended.set()
    reaper.join()


def test_start_runs_the_program_once(gateway):
    assert gateway.run("start").returncode == 0
    first = gateway.wait_starts(1)
    assert gateway.status() == RUNS
    assert "runs already" in gateway.run("start").stdout
    assert lives(first)
    assert gateway.starts() == [first]


def test_stop_ends_the_program(gateway):
    gateway.run("start")
    program = gateway.wait_starts(1)
    assert gateway.run("stop").returncode == 0
    assert not lives(program)
    assert gateway.status() == STOPPED
    assert gateway.run("stop").returncode == 0


def test_restart_replaces_the_program(gateway):
    gateway.run("start")
    first = gateway.wait_starts(1)
    assert gateway.run("restart").returncode == 0
    second = gateway.wait_starts(2)
    assert lives(second) and not lives(first)


def test_program_that_ends_with_status_255_is_started_again(gateway):
    gateway.install(ends=3, status=255)
    gateway.run("start")
    last = gateway.wait_starts(4)
    assert gateway.status() == RUNS
    assert lives(last)
    gateway.run("stop")
    assert not lives(last)


def test_killed_program_is_started_again(gateway):
    gateway.run("start")
    first = gateway.wait_starts(1)
    os.kill(int(first), signal.SIGKILL)
    second = gateway.wait_starts(2)
    assert second != first and lives(second)


def test_nothing_starts_outside_of_test_mode(gateway):
    gateway.mark.unlink()
    started = gateway.run("start")
    assert (started.returncode, "isn't in test mode" in started.stdout) == (0, True)
    assert gateway.status() == STOPPED
    assert gateway.starts() == []


def test_missing_program_is_an_error(gateway):
    (gateway.folder / "FTM").unlink()
    started = gateway.run("start")
    assert started.returncode == NO_PROGRAM
    assert "there is no program" in started.stderr
    assert gateway.status() == STOPPED


def test_program_that_cannot_be_run_is_given_up(gateway):
    (gateway.folder / "FTM").write_text("#!/no/such/interpreter\n")
    gateway.run("start")
    wait_until(lambda: gateway.status() == STOPPED, "the end of the attempts")


def test_left_over_process_id_is_no_running_program(gateway):
    gateway.run("start")
    gateway.wait_starts(1)
    gateway.run("stop")
    gateway.pidfile.write_text("4194999\n")  # above the highest that a process can have
    assert gateway.status() == DEAD_WITH_PIDFILE
    gateway.run("start")
    gateway.wait_starts(2)
    assert gateway.status() == RUNS


@pytest.mark.parametrize("word", ["", "begin"])
def test_other_words_are_refused(gateway, word):
    refused = gateway.run(word)
    assert refused.returncode == USAGE
    assert "start|stop|restart" in refused.stderr


def test_init_script_has_what_lsb_asks_for():
    header = re.search(r"^### BEGIN INIT INFO\n(.*)^### END INIT INFO$", INIT_SCRIPT.read_text(), re.MULTILINE | re.DOTALL)
    fields = re.findall(r"^# ([A-Z][\w-]+):", header[1], re.MULTILINE)
    assert {"Provides", "Required-Start", "Required-Stop", "Default-Start", "Default-Stop"} <= set(fields)


def test_shellcheck_has_nothing_to_say():
    checked = subprocess.run(["shellcheck", str(INIT_SCRIPT)], capture_output=True, text=True, timeout=120)
    assert (checked.returncode, checked.stdout) == (0, "")


@pytest.fixture(scope="module")
def image(tmp_path_factory):
    """The file system of an image that the project was installed into."""
    folder = tmp_path_factory.mktemp("image")
    environment = dict(os.environ, DESTDIR=str(folder))
    subprocess.run(["cmake", "--install", str(BUILD)], env=environment, check=True, capture_output=True, timeout=120)
    return folder


def test_install_puts_the_files_where_an_image_has_them(image):
    installed = {str(path.relative_to(image)) for path in image.rglob("*") if path.is_file()}
    assert installed == {"etc/init.d/ftm", "usr/lib/systemd/system/ftm.service", "usr/sbin/FTM", "usr/share/doc/ftm/device.md"}
    for program in ["etc/init.d/ftm", "usr/sbin/FTM"]:
        assert (image / program).stat().st_mode & stat.S_IXUSR
    assert (image / "etc/init.d/ftm").read_text() == INIT_SCRIPT.read_text()


def test_service_unit_names_installed_files(image):
    unit = (image / "usr/lib/systemd/system/ftm.service").read_text()
    for path in re.findall(r"^(?:ExecStart=|Documentation=file:)(\S+)$", unit, re.MULTILINE):
        assert (image / path.lstrip("/")).exists(), path


def test_service_unit_is_one_that_systemd_takes(image, tmp_path):
    # The program is for another machine, perhaps; what else the unit says is not.
    unit = (image / "usr/lib/systemd/system/ftm.service").read_text()
    (tmp_path / "ftm.service").write_text(re.sub(r"^ExecStart=.*$", "ExecStart=/bin/true", unit, flags=re.MULTILINE))
    command = ["systemd-analyze", "verify", "--man=no", str(tmp_path / "ftm.service")]
    verified = subprocess.run(command, capture_output=True, text=True, timeout=120)
    said = [line for line in verified.stderr.splitlines() if "ftm.service" in line]
    assert (verified.returncode, said) == (0, [])
