"""A private copy of the project in which one place of the service is broken at a time."""

import enum
import hashlib
import os
import shutil
import signal
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path

_SERVICE = "userapps/FTM/libftm_service.a"
_DECIDING = ("CMakeLists.txt", "platform/", "simulator/", "tests/system/", "tests/unit/", "userapps/")
# The tests of the service; the others are of the gateway that is simulated around it.
_OTHER_UNIT_TESTS = "gateway_"
_SYSTEM_TESTS = (
    *("everything", "flood", "hostile", "images", "interop", "persistence"),
    *("radio", "read", "session", "startup", "statistics", "timeouts", "write"),
)
_BUILD_LIMIT = 3600
_LEAST_LIMIT = 30
_MOST_WRITTEN = 1 << 28  # bytes of one file; a broken service may never stop printing
_MOST_MEMORY = 1 << 32
# Everything runs where the copy stands at one path whatever its number, so that copies can share what is built; sees no
# process but its own, of which none survives its end; and takes what it leaves in shared memory with it. The second
# shell is there so that no parent is process 1.
_PRIVATE = (
    *("setpriv", "--pdeathsig", "KILL"),
    *("unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"),
)
_IN_PRIVATE = """
mount --bind "$1" "$2" && mount -t tmpfs tmpfs /dev/shm && cd "$3" || exit
shift 3
sh -c '"$@"; exit $?' sh "$@"
exit $?
"""


class Broken(Exception):
    """The unchanged project does not build or does not pass a test."""


class End(enum.Enum):
    """How a command ended: by itself, or by force when its time was over."""

    GOOD = ""
    BAD = "fails"
    FORCED = "does not end"


class Effect(enum.Enum):
    """What a change makes of the service."""

    ANOTHER = "another service"
    SAME = "the same program"
    NONE = "does not compile"


@dataclass(frozen=True)
class Test:
    name: str
    target: str  # what is built for it
    program: str  # in the build tree; what it tests runs in it
    command: tuple
    folder: str


def project_files(root: Path):
    """The project's files by name: what is in version control and what is new."""
    listing = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        cwd=root, check=True, stdout=subprocess.PIPE, text=True,
    ).stdout  # fmt: skip
    return sorted(name for name in set(listing.split("\0")) if name and (root / name).is_file())


def fingerprint(root: Path):
    """Stands for all that decides what the tests say of a change."""
    state = hashlib.sha256()
    for name in project_files(root):
        if name.startswith(_DECIDING):
            state.update(f"{name}\0".encode() + (root / name).read_bytes())
    return state.hexdigest()


def tests_of(root: Path):
    """Programs of unit tests, and files of system tests."""
    units = sorted(path.stem for path in (root / "tests/unit").glob("*_test.cpp"))
    units = [name for name in units if not name.startswith(_OTHER_UNIT_TESTS)]
    files = [f"test_{name}.py" for name in _SYSTEM_TESTS]
    pytest = ("/usr/bin/python3", "-B", "-m", "pytest", "-p", "no:cacheprovider", "-q", "-x")
    return [Test(name, name, f"tests/unit/{name}", (f"./{name}",), "build/tests/unit") for name in units], [
        Test(file, "gateway", "userapps/FTM/FTM", (*pytest, file), "tests/system") for file in files
    ]


class Workshop:
    """The copy number `number` of the project at `root`, kept under `folder`."""

    def __init__(self, root: Path, folder: Path, number: int):
        self._root = root
        self._tree = folder / f"tree-{number}"
        self._place = folder / "tree"  # where it stands for all that runs in it
        self._build = self._tree / "build"
        self._unchanged = ""  # text of the file that is changed
        self._programs = {}  # hashes of the unchanged ones, by name
        self._seconds = {}  # that a test takes, by its name

    def prepare(self, tests, jobs):
        """Copies and builds the unchanged project, and runs each test to find the time that it may take."""
        self._place.mkdir(parents=True, exist_ok=True)
        self._copy()
        configure = ("cmake", "-S", ".", "-B", "build", "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug")
        self._must((*configure, "-DCMAKE_CXX_FLAGS=-O0", "-DCMAKE_CXX_FLAGS_DEBUG="), "is not configured")
        targets = {_SERVICE, *(test.target for test in tests)}
        self._must(("ninja", "-C", "build", "-j", str(jobs), *targets), "does not build")
        self._programs = {name: self._hash(name) for name in {_SERVICE, *(test.program for test in tests)}}
        self._seconds = {test.name: self._time(test) for test in tests}

    def prepare_like(self, other):
        """Becomes a copy of another one that is prepared."""
        shutil.rmtree(self._tree, ignore_errors=True)
        subprocess.run(["cp", "-a", other._tree, self._tree], check=True)
        self._programs, self._seconds = other._programs, other._seconds

    def change(self, change):
        """Makes a change. Returns its effect."""
        path = self._tree / change.file
        self._unchanged = path.read_text()
        path.write_text(change.apply(self._unchanged))
        if not self._make(_SERVICE):
            return Effect.NONE
        return Effect.ANOTHER if self._is_changed(_SERVICE) else Effect.SAME

    def restore(self, change):
        (self._tree / change.file).write_text(self._unchanged)

    def by_relevance(self, tests, file):
        """Those named most like the file first, of equals the quicker one."""
        module = Path(file).stem

        def order(test):
            return -len(os.path.commonprefix([module, test.name])), self._seconds[test.name]

        return sorted(tests, key=order)

    def ends(self, test):
        """How a test ends with the change, in the better one of two runs: the machine may have spoilt the other.

        A test that doesn't build says nothing of the service, nor does one that the change isn't part of.
        """
        if not self._make(test.target) or not self._is_changed(test.program):
            return End.GOOD
        limit = max(_LEAST_LIMIT, 5 * self._seconds[test.name])
        first = self._test(test, limit)
        return first if first is End.GOOD else self._test(test, limit)

    def _copy(self):
        """Touches only files that differ, so that only what is made of them is built again."""
        names = set(project_files(self._root))
        for path in [path for path in self._tree.rglob("*") if path.is_file()]:
            name = path.relative_to(self._tree)
            if name.parts[0] != self._build.name and str(name) not in names:
                path.unlink()
        for name in names:
            source, copy = self._root / name, self._tree / name
            if not copy.exists() or copy.read_bytes() != source.read_bytes():
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, copy)

    def _must(self, command, what):
        log = self._tree / "log"
        with log.open("wb") as output:
            if self._run(command, ".", {}, _BUILD_LIMIT, output) is not End.GOOD:
                raise Broken(f"The unchanged project {what}:\n{log.read_text(errors='replace')[-4000:]}")

    def _make(self, target):
        # What is as it was before is taken from the compiler's cache, which no mutant may fill.
        command = ("ninja", "-C", "build", "-j", "1", target)
        return self._run(command, ".", {"CCACHE_READONLY": "1"}, _BUILD_LIMIT) is End.GOOD

    def _hash(self, program):
        return hashlib.sha256((self._build / program).read_bytes()).digest()

    def _is_changed(self, program):
        return self._hash(program) != self._programs[program]

    def _time(self, test):
        begin = time.monotonic()
        if self._test(test, _BUILD_LIMIT) is not End.GOOD:
            raise Broken(f"The unchanged project does not pass {test.name}")
        return time.monotonic() - begin

    def _test(self, test, limit):
        shutil.rmtree(self._tree / "scratch", ignore_errors=True)
        (self._tree / "scratch").mkdir()
        own = {"GATEWAY": str(self._place / "build/simulator/gateway"), "TMPDIR": str(self._place / "scratch")}
        bounds = ("prlimit", f"--fsize={_MOST_WRITTEN}", f"--as={_MOST_MEMORY}", "--core=0")
        network = (str(self._place / "tests/system/in_own_network"),)
        return self._run((*bounds, *network, *test.command), test.folder, own, limit)

    def _run(self, command, folder, variables, limit, output=subprocess.DEVNULL):
        """How a command ends that may take that many seconds."""
        user = () if os.geteuid() == 0 else ("-r",)
        private = (*_PRIVATE, *user, "sh", "-c", _IN_PRIVATE, "sh", self._tree, self._place, self._place / folder)
        process = subprocess.Popen(
            (*private, *command), env={**os.environ, **variables}, stdin=subprocess.DEVNULL, stdout=output,
            stderr=output, start_new_session=True,
        )  # fmt: skip
        try:
            return End.GOOD if process.wait(limit) == 0 else End.BAD
        except subprocess.TimeoutExpired:
            return End.FORCED
        finally:
            if process.poll() is None:
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
