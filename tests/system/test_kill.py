"""Sudden ends in the middle of a write: production data are the old or the new ones, never a mixture.

The service is let run in slices of some microseconds from a write's last block on, so that each kill finds it where it
was aimed: at a random moment, at the first page of the write's transaction in the write-ahead log of the unit's
database, or behind the acknowledgement.
"""

import contextlib
import os
import random
import select
import signal
import struct
import time
from collections import Counter

from bench import MODEM_INFO, Document
from station import Station, ack, data

KILLS = int(os.environ.get("KILLS", "12"))
SEED = int(os.environ.get("SEED", "9"))
FIELDS = ("MODEL_NUM", "SERIAL_NUM", "MAC_ADDR", "PROD_DATE", "PROD_REV", "E_164")
PATIENCE = 60.0
MOST_MORE = 100


def production_data(number):
    return {
        "MODEL_NUM": f"M-{number}",
        "SERIAL_NUM": f"S-{number}",
        "MAC_ADDR": f"02:00:00:00:{number // 256 % 256:02x}:{number % 256:02x}",
        "PROD_DATE": f"{number:08d}",
        "PROD_REV": f"R{number}",
        "E_164": f"49{number}",
    }


def document(fields):
    return "".join(["<MODEM_INFO>", *(f"<{tag}>{text}</{tag}>" for tag, text in fields.items()), "</MODEM_INFO>"]).encode()


def read_back():
    with Station(timeout=PATIENCE) as reader:
        texts = Document(reader.read(MODEM_INFO)).texts("MODEM_INFO")
    return {tag: texts[tag] for tag in FIELDS}


class WriteAheadLog:
    """The log of the unit's database, as its documented format has it: frames of one page each, and an index that says
    how many of them are committed, with numbers as the unit's processor has them."""

    HEADER, FRAME_HEADER, SALTS_IN_HEADER, SALTS_IN_FRAME = 32, 24, slice(16, 24), slice(8, 16)
    COMMITTED_IN_INDEX = 16

    def __init__(self, bench):
        self.log = os.open(bench.folder / "unit.db-wal", os.O_RDONLY)
        self.index = os.open(bench.folder / "unit.db-shm", os.O_RDONLY)
        header = os.pread(self.log, self.HEADER, 0)
        self.byte_order = "<>"[header[3] & 1]
        self.frame_size = self.FRAME_HEADER + struct.unpack(">I", header[8:12])[0]
        page = bench.sql("SELECT rootpage FROM sqlite_master WHERE name = 'ProductionData'", "-readonly")
        self.production_page = int(page)
        self.first = self.committed() + 1
        self.before = set(self.frames())

    def close(self):
        os.close(self.log)
        os.close(self.index)

    def committed(self):
        return struct.unpack(f"{self.byte_order}I", os.pread(self.index, 4, self.COMMITTED_IN_INDEX))[0]

    def frame(self, number):
        """Header of a frame; empty behind the end."""
        return os.pread(self.log, self.FRAME_HEADER, self.HEADER + (number - 1) * self.frame_size)

    def frames(self):
        """Headers of the frames behind the committed ones."""
        salts = os.pread(self.log, self.HEADER, 0)[self.SALTS_IN_HEADER]
        number = self.committed() + 1
        while (header := self.frame(number)) and header[self.SALTS_IN_FRAME] == salts:
            yield header
            number += 1

    def holds_production_page(self, header):
        return struct.unpack(">I", header[:4])[0] == self.production_page

    def watch(self):
        """Returns a function that says whether a frame of production data has come since the log was opened."""
        number = self.first

        def has_come():
            nonlocal number
            header = self.frame(number)
            if len(header) < self.FRAME_HEADER or header in self.before or header[8:16] == bytes(8):
                return False
            number += 1
            return self.holds_production_page(header)

        return has_come

    def was_interrupted(self):
        """Whether a transaction of production data stands in the log and isn't committed."""
        return any(self.holds_production_page(header) and header not in self.before for header in self.frames())


class Write:
    """A write of production data up to its last block."""

    def __init__(self, station, fields):
        self.station = station
        self.content = document(fields)
        assert len(self.content) < 512
        station.start_write(MODEM_INFO)
        station.socket.setblocking(False)
        self.answer = None

    def send(self):
        self.station.send(data(1, self.content))

    def is_answered(self):
        if self.answer is None:
            with contextlib.suppress(BlockingIOError):
                self.answer = self.station.socket.recv(2048)
        return self.answer is not None

    def is_acknowledged(self):
        return self.is_answered() and self.answer == ack(1)


class Stepper:
    """Lets the service run for slices of some microseconds, so that it stands still wherever it is found to be.

    A machine that is busy elsewhere makes slices longer or empty, but never moves the moment at which the kill comes."""

    LONGEST_SLICES = (0.0, 10e-6, 60e-6)  # one of them for each write: how fast the service is, nobody knows

    def __init__(self, generator):
        self.generator = generator
        self.usual = 20.0  # slices that a write takes
        self.longest = 0.0

    def slice(self, service):
        end = time.perf_counter() + self.generator.uniform(0, self.longest)
        os.kill(service, signal.SIGCONT)
        while time.perf_counter() < end:
            pass
        os.kill(service, signal.SIGSTOP)

    def run(self, service, write, has_come):
        """Runs the service until it has come to that after some slices, or the write is over. Leaves it stopped."""
        limit = time.monotonic() + PATIENCE
        self.longest = self.generator.choice(self.LONGEST_SLICES)
        slices = 0
        while not has_come(slices) and not write.is_answered():
            assert time.monotonic() < limit, "the write went nowhere"
            self.slice(service)
            slices += 1
        if write.is_answered():
            self.usual = (self.usual + slices) / 2

    def some(self):
        """A number of slices, mostly fewer than a write takes."""
        return self.generator.uniform(0, 1.2 * self.usual)


def kill_unit(bench, generator):
    """The supervisor and, in either order, the service."""
    service = bench.service_pid()
    pids = generator.sample([service, bench.process.pid], k=2)
    service_end = os.pidfd_open(service)

    def kill():
        for pid in pids:
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)

    def revive():
        # Which may come later than the supervisor's, and gives the port back.
        assert select.select([service_end], [], [], PATIENCE)[0], "the killed service goes on"
        os.close(service_end)
        bench.wait_end()
        bench.start()

    return kill, revive


def kill_service(bench, _):
    service, starts = bench.service_pid(), bench.starts()
    return lambda: os.kill(service, signal.SIGKILL), lambda: bench.wait_ready(starts + 1)


def kill_in_a_write(bench, number, stepper):
    """Kills once in a write. Returns what was found, by its names, and the fields that were written."""
    aim = stepper.generator.choice(["moment", "transaction", "transaction", "acknowledgement"])
    is_service = number % 6 == 0  # the supervisor waits a second before it starts that again
    service = bench.service_pid()
    kill, revive = (kill_service if is_service else kill_unit)(bench, stepper.generator)
    fields = production_data(number)
    with Station(timeout=PATIENCE) as station:
        write = Write(station, fields)
        log = WriteAheadLog(bench)
        moment, has_frame = stepper.some(), log.watch()
        has_come = {
            "moment": lambda slices: slices >= moment,
            "transaction": lambda slices: has_frame(),
            "acknowledgement": lambda slices: False,
        }[aim]
        os.kill(service, signal.SIGSTOP)
        write.send()
        stepper.run(service, write, has_come)
        kill()
        if not is_service:
            bench.process.wait(timeout=PATIENCE)
        acknowledged = write.is_acknowledged()
    found = ["kills", "kills of the service" if is_service else "kills of the unit", f"aimed at the {aim}"]
    if not is_service and log.was_interrupted():
        found.append("mid-transaction")
    log.close()
    revive()
    return found + (["acknowledged"] if acknowledged else []), fields


def kill_many(bench, count, generator):
    """Kills in so many writes, and in up to MOST_MORE others until some came before a commit and some behind one."""
    figures = Counter()
    stepper = Stepper(generator)
    with Station(timeout=PATIENCE) as station:
        station.write(MODEM_INFO, document(production_data(0)))
    before = production_data(0)
    number = 0
    while number < count or (min(figures["old"], figures["new"]) == 0 and number < count + MOST_MORE):
        number += 1
        found, after = kill_in_a_write(bench, number, stepper)
        now = read_back()
        assert now in (before, after), f"a mixture of {before} and {after}"
        assert now == after or "acknowledged" not in found, "an acknowledged write was lost"
        figures.update(found)
        figures["new" if now == after else "old"] += 1
        before = now
    return figures


def test_production_data_are_the_old_or_the_new_ones_after_a_kill(bench):
    figures = kill_many(bench, KILLS, random.Random(SEED))
    print("\n" + "\n".join(f"{count:6d} {name}" for name, count in sorted(figures.items(), key=lambda item: -item[1])))
    assert figures["old"] and figures["new"], "the kills came all too early or all too late to mean anything"
