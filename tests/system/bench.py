"""A simulated unit on the bench: `gateway up` of the build tree on a folder of its own."""

import ctypes
import os
import re
import shlex
import signal
import subprocess
import threading
import time
import xml.etree.ElementTree as xml
from pathlib import Path

from limits import COMMAND_TIME, PATIENCE

GATEWAY = os.environ["GATEWAY"]
SANITIZER = os.environ.get("SANITIZER", "")
SERVICE = os.environ.get("SERVICE")  # a program in the place of the service, which runs that in its way
SQLITE3 = shlex.split(os.environ.get("SQLITE3", "sqlite3"))  # for the processor that the unit is built for
READY = "ready"
MODEM_INFO = "FTM_ModemInfo.xml"
TEST_MODE_OP = "FTM_TestModeOp.xml"
TEST_MODE_CFG = "FTM_TestModeCfg.xml"
STATISTICS = "FTM_Statistics.xml"
STATISTICS_2 = "FTM_Statistics2.xml"
PROGRESS = "FTM_Progress.xml"
FOUR_PORTS = "FTM_Stats_4port.xml"

_REPORT = re.compile(r"ERROR: \w+Sanitizer|WARNING: ThreadSanitizer|runtime error:|LeakSanitizer|^==\d+== ")
_PR_SET_PDEATHSIG = 1
_libc = ctypes.CDLL(None)


def _end_with_the_test():
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGTERM)


def run(*arguments, check=True):
    """Runs the gateway program to its end."""
    return subprocess.run([GATEWAY, *arguments], check=check, capture_output=True, text=True, timeout=COMMAND_TIME)


def wait_until(condition, what, timeout=PATIENCE):
    """Polls for what no descriptor reports, such as the end of somebody else's child."""
    deadline = time.monotonic() + timeout
    while not condition():
        assert time.monotonic() < deadline, f"{what} did not come to pass"
        time.sleep(0.005)


def field(document, tag):
    """Text of an element of a read file; None when it isn't there."""
    found = re.search(rf"<{tag}>\s*(.*?)\s*</{tag}>", document.decode("latin-1"), re.DOTALL)
    return found and found[1]


class Document:
    """A read file. Elements are named by their paths from the top level, which may hold several."""

    def __init__(self, content):
        declaration, _, body = content.decode("latin-1").partition("?>")
        assert declaration.lstrip().startswith("<?xml"), declaration
        self.root = xml.fromstring(f"<file>{body}</file>")

    def text(self, path):
        """The text without the white space around it; empty when there is none."""
        return (self.root.find(path).text or "").strip()

    def texts(self, path):
        """Texts of the children that have no children themselves, by name."""
        return {child.tag: (child.text or "").strip() for child in self.root.find(path) if len(child) == 0}

    def attributes(self, path):
        return self.root.find(path).attrib

    def names(self, path):
        return [child.tag for child in self.root.find(path)]


class Bench:
    """One unit. Its processes are ended by their ids and nothing else."""

    def __init__(self, folder: Path):
        self.folder = folder
        self.process = None
        self.output = []
        self._changed = threading.Condition()

    # Life.

    def start(self, ready=True, panel=None):
        """Starts the unit and, unless told otherwise, waits until it answers. With the panel at an address, or none."""
        before = self.starts()
        self.process = subprocess.Popen(
            [
                *[GATEWAY, "up", "--unit", str(self.folder)],
                *(["--panel", panel] if panel else ["--no-panel"]),
                *(["--service", SERVICE] if SERVICE else []),
            ],
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
        status = self.process.wait(timeout=COMMAND_TIME)
        self._reader.join(timeout=PATIENCE)
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

    def _wait_for(self, condition, what, timeout=PATIENCE):
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
        """Process id of the running service, which the supervisor leaves in its lock file."""
        supervisor, service = (self.folder / "supervisor.lock").read_text().split()
        assert int(supervisor) == self.process.pid and int(service) > 0
        return int(service)

    def panel_pid(self):
        """Process id of the panel: the supervisor's other child."""
        children = Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children").read_text().split()
        others = {int(child) for child in children} - {self.service_pid()}
        assert len(others) == 1, others
        return others.pop()

    def kill_service(self):
        os.kill(self.service_pid(), signal.SIGKILL)

    def resident_kilobytes(self):
        status = Path(f"/proc/{self.service_pid()}/status").read_text()
        return int(re.search(r"^VmRSS:\s+(\d+) kB", status, re.MULTILINE)[1])

    def gateway(self, *words, check=True):
        """Runs a command of the gateway program on the unit."""
        return run(*words, "--unit", str(self.folder), check=check)

    def status(self):
        """What the status screen shows, by its labels."""
        return {line[:12].strip(): line[12:].strip() for line in self.gateway("status").stdout.splitlines()}

    def cells(self, table):
        """The rows of a table of the store, each by its columns."""
        rows = []
        for line in self.table(table).splitlines()[1:]:
            row, _, column, *value = line.split(maxsplit=3)
            if int(row) == len(rows):
                rows.append({})
            rows[-1][column] = value[0] if value else ""
        return rows

    def last_row(self):
        """Number of the journal's last row."""
        return int(self.journal()[-1].split()[0])

    def rows(self, kind, after=0):
        """Texts of the journal's rows of a kind."""
        lines = self.gateway("journal", "--kind", kind, "--after", str(after)).stdout.splitlines()
        return [line.split("  ", 3)[3].strip() for line in lines]

    def wait_rows(self, kind, text, after=0, count=1):
        """Waits until the journal has rows of a kind with a text in them."""
        found = lambda: sum(text in row for row in self.rows(kind, after)) >= count
        wait_until(found, f"{count} rows {kind} {text!r} in the journal")

    def sql(self, text, *options):
        """Runs SQL or a command of SQLite's shell on what the unit keeps, where no command of the unit does it. Processes
        share an index in memory with numbers as their processor has them, so Python's own SQLite may not take part."""
        command = [*SQLITE3, *options, "-bail", "-cmd", ".timeout 30000", str(self.folder / "unit.db"), text]
        return subprocess.run(command, check=True, capture_output=True, encoding="latin-1", timeout=COMMAND_TIME).stdout

    def state(self):
        """Everything that the unit keeps but its journal."""
        lines = self.sql(".dump", "-readonly").split("\n")
        return [line for line in lines if not line.startswith("INSERT INTO journal ")]

    def change(self, sql):
        """Changes what the unit keeps, where no command does it."""
        self.sql(sql)

    def let_line_train(self):
        """Puts the start of the line's training so far back that its time is over."""
        self.change("UPDATE line SET since_ms = since_ms - 20000")

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

    def set_row(self, table, row, column, value):
        self.gateway("set", table, column, value, "--row", str(row))

    def table(self, name):
        return run("table", "--unit", str(self.folder), name).stdout
