"""The real clients, each of which makes many transfers in one run: a process is worth many transfers' time."""

import os
import re
import subprocess
import tempfile
from dataclasses import dataclass

HOST = "127.0.0.1"
PORT = 69
RUN_SECONDS = 300
# What a client is taken to have said when it failed without showing the unit's text.
UNTOLD = ""


@dataclass
class Run:
    """What came of a run: for each transfer the text that refused it, or None, and the content read, or None."""

    refusals: list
    contents: list


class Client:
    """Makes transfers by a process that is told all of them at once."""

    name = ""
    shows_texts = True

    def __init__(self, folder):
        self.folder = folder
        self.repeats = 0  # transfers made again

    def run(self, transfers, port=PORT):
        for number, transfer in enumerate(transfers):
            if not transfer.is_read:
                (self.folder / f"put{number}").write_bytes(transfer.content)
        process = self._start(transfers, port)
        refusals = self._refusals(transfers, process)
        assert len(refusals) == len(transfers), (self.name, process)
        return Run(refusals, [self._take(number, transfer) for number, transfer in enumerate(transfers)])

    def _take(self, number, transfer):
        """The content of a file read, which is removed so that no later transfer finds it."""
        file = self.folder / (f"get{number}" if transfer.is_read else f"put{number}")
        content = file.read_bytes() if transfer.is_read and file.exists() else None
        file.unlink(missing_ok=True)
        return content

    def _process(self, command, text):
        # What a client keeps between its processes goes into a home of their own, and is gone with it.
        with tempfile.TemporaryDirectory() as home:
            return subprocess.run(
                command,
                input=text,
                capture_output=True,
                encoding="latin-1",
                cwd=self.folder,
                env={**os.environ, "HOME": home},
                timeout=RUN_SECONDS,
            )

    def _start(self, transfers, port):
        raise NotImplementedError

    def _refusals(self, transfers, process):
        raise NotImplementedError


class Curl(Client):
    """One process reads a configuration with all transfers, and tells the status of each."""

    name = "curl"
    shows_texts = False

    def _start(self, transfers, port):
        options = []
        for number, transfer in enumerate(transfers):
            local = f"output = get{number}" if transfer.is_read else f"upload-file = put{number}"
            url = f"url = tftp://{HOST}:{port}/{transfer.name}"
            options.append(f'silent\n{url}\n{local}\nwrite-out = "%{{exitcode}}\\n"\n')
        return self._process(["curl", "-q", "-K", "-"], "next\n".join(options))

    def _refusals(self, transfers, process):
        return [None if status == "0" else UNTOLD for status in process.stdout.split()]


class TftpHpa(Client):
    """One process reads commands, and writes a prompt before each."""

    name = "tftp-hpa"

    def _start(self, transfers, port):
        commands = []
        for number, transfer in enumerate(transfers):
            commands.append(f"get {transfer.name} get{number}" if transfer.is_read else f"put put{number} {transfer.name}")
        return self._process(["tftp", "-4", "-m", "binary", HOST, str(port)], "\n".join([*commands, "quit\n"]))

    def _refusals(self, transfers, process):
        answers = process.stdout.split("tftp> ")[1:-1]
        return [self._refusal(answer.strip()) for answer in answers]

    @staticmethod
    def _refusal(answer):
        found = re.fullmatch(r"Error code \d+: (.*)", answer, re.DOTALL)
        return found[1] if found else answer or None


class Atftp(Client):
    """One process reads commands. It tells of errors apart from its prompts, in their order. It keeps its commands as a
    history and reads all of them at its start, which would take longer with every process."""

    name = "atftp"

    def _start(self, transfers, port):
        commands = ["mode octet"]
        for number, transfer in enumerate(transfers):
            commands.append(f"get {transfer.name} get{number}" if transfer.is_read else f"put put{number} {transfer.name}")
        return self._process(["atftp", HOST, str(port)], "\n".join([*commands, "quit\n"]))

    def _refusals(self, transfers, process):
        told = re.findall(r"^tftp: (?:error received from server <(.*?)>|(?!aborting)(.+))\n", process.stderr, re.MULTILINE)
        texts = [server or own for server, own in told]
        expected = [transfer.refusal is not None for transfer in transfers]
        if len(texts) != sum(expected):
            return self._unassigned(transfers, texts)
        remaining = iter(texts)
        return [next(remaining) if refused else None for refused in expected]

    def _unassigned(self, transfers, texts):
        """More or fewer errors than there should be: they go to the first transfers, none of which is then right."""
        return [*texts, *[None] * len(transfers)][: len(transfers)]


class Busybox(Client):
    """Makes one transfer in a process, so that its own shell starts them. It repeats a packet after 50 milliseconds,
    which ends a transfer with a unit that isn't given a processor for so long; it is then started again. All that is
    written here can be written twice."""

    name = "busybox"
    shows_texts = False
    # Its status is 0 when a file that it has sent is refused at the end.
    _SCRIPT = """
        transfer() {
          wanted=$1
          shift
          for attempt in 1 2 3 4 5; do
            if told=$("$@" 2>&1); then
              case $told in *"server error"*) result=refused ;; *) result=done ;; esac
            else
              result=refused
            fi
            [ $result = $wanted ] && break
          done
          echo $result $attempt
        }
    """

    def _start(self, transfers, port):
        commands = [self._SCRIPT]
        for number, transfer in enumerate(transfers):
            local = f"-g -l get{number}" if transfer.is_read else f"-p -l put{number}"
            wanted = "refused" if transfer.refusal else "done"
            commands.append(f"transfer {wanted} busybox tftp {local} -r {transfer.name} {HOST} {port}\n")
        return self._process(["busybox", "sh"], "".join(commands))

    def _refusals(self, transfers, process):
        results = [line.split() for line in process.stdout.splitlines()]
        self.repeats += sum(int(attempts) - 1 for _, attempts in results)
        return [UNTOLD if result == "refused" else None for result, _ in results]


CLIENTS = (Curl, TftpHpa, Atftp, Busybox)
