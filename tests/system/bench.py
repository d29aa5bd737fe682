"""A simulated unit on the bench: `gateway up` of the build tree on a folder of its own."""

import ctypes
import os
import re
import signal
import subprocess
import threading
import time
from pathlib import Path

GATEWAY = os.environ["GATEWAY"]
SANITIZER = os.environ.get("SANITIZER", "")
READY = "ready"
MODEM_INFO = "FTM_ModemInfo.xml"

_REPORT = re.compile(r"ERROR: \w+Sanitizer|WARNING: ThreadSanitizer|runtime error:|LeakSanitizer")
_PR_SET_PDEATHSIG = 1
_libc = ctypes.CDLL(None)


def _end_with_the_test():
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGTERM)


def run(*arguments, check=True):
    """Runs the gateway program to its end."""
    return subprocess.run([GATEWAY, *arguments], check=check, capture_output=True, text=True, timeout=60)


def wait_until(condition, what, timeout=30.0):
    """Polls for what no descriptor reports, such as the end of somebody else's child."""
    deadline = time.monotonic() + timeout
    while not condition():
        assert time.monotonic() < deadline, f"{what} did not come to pass"
        time.sleep(0.005)


def field(document, tag):
    """Text of an element of a read file; None when it isn't there."""
    found = re.search(rf"<{tag}>\s*(.*?)\s*</{tag}>", document.decode("latin-1"), re.DOTALL)
    return found and found[1]


class Bench:
    """One unit. Its processes are ended by their ids and nothing else."""

    def __init__(self, folder: Path):
        self.folder = folder
        self.process = None
        self.output = []
        self._changed = threading.Condition()

    # Life.

    def start(self, ready=True):
        """Starts the unit and, unless told otherwise, waits until it answers."""
        before = self.starts()
        self.process = subprocess.Popen(
            [GATEWAY, "up", "--unit", str(self.folder)],
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            errors="replace",
            preexec_fn=_end_with_the_test,
        )
        self._reader = threading.Thread(target=self._collect, args=(self.process.stdout,), daemon=True)
        self._reader.start()
        if ready:
            self.wait_ready(before + 1)
        return self

    def stop(self, end=signal.SIGINT):
        """Ends the unit as Ctrl-C does. Returns the supervisor's status."""
        if self.process is None:
            return 0
        self.process.send_signal(end)
        return self.wait_end()

    def wait_end(self):
        """Waits for the supervisor's end and returns its status."""
        status = self.process.wait(timeout=60)
        self._reader.join(timeout=30)
        self.process = None
        return status

    def restart(self):
        self.stop()
        return self.start()

    def _collect(self, stream):
        for line in stream:
            with self._changed:
                self.output.append(line.rstrip("\n"))
                self._changed.notify_all()

    # What it prints.

    def _wait_for(self, condition, what, timeout=60.0):
        with self._changed:
            came = self._changed.wait_for(condition, timeout)
            assert came, f"no {what!r} in\n" + "\n".join(self.output)

    def wait_output(self, text):
        """Waits until the text stands in a line of what the unit has printed."""
        self._wait_for(lambda: any(text in line for line in self.output), text)

    def starts(self):
        """How often the service has become ready."""
        return self.output.count(READY)

    def wait_ready(self, starts):
        self._wait_for(lambda: self.starts() >= starts, READY)

    def sanitizer_reports(self):
        return [line for line in self.output if _REPORT.search(line)]

    # Its processes and state.

    def service_pid(self):
        """Process id of the running service, which is the supervisor's child."""
        children = Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children").read_text().split()
        assert len(children) == 1, children
        return int(children[0])

    def kill_service(self):
        os.kill(self.service_pid(), signal.SIGKILL)

    def resident_kilobytes(self):
        status = Path(f"/proc/{self.service_pid()}/status").read_text()
        return int(re.search(r"^VmRSS:\s+(\d+) kB", status, re.MULTILINE)[1])

    def journal(self):
        """The unit's journal as the gateway program prints it, a line per row."""
        return run("journal", "--unit", str(self.folder)).stdout.splitlines()

    def wait_journal(self, text, count=1):
        wait_until(lambda: sum(text in line for line in self.journal()) >= count, f"{text!r} in the journal")

    def gateway_file(self, path):
        """The file that stands for an absolute path of the gateway's file system."""
        return self.folder / "root" / path.lstrip("/")

    def fault(self, name, on=True):
        run("fault", "on" if on else "off", "--unit", str(self.folder), *name.split())

    def set(self, table, column, value):
        run("set", "--unit", str(self.folder), table, column, value)

    def table(self, name):
        return run("table", "--unit", str(self.folder), name).stdout
