"""What goes wrong on a line: floods, stray packets, and datagrams that are lost, come twice or late."""

import selectors
import socket
import struct
import threading

from bench import PROGRESS
from station import ACK, BLOCK, DATA, ERROR, RRQ, SERVER, Silence, Station, TftpError, ack, blocks, data, error, request

FLOOD = 2000
STRAYS = 50
STRAY_PORTS = 5
LONGEST = 516
ASKS = 400
ASK_SECONDS = 0.5
LAST_ASKS = 4
LAST_ASK_SECONDS = 15
PROXY_POLL_SECONDS = 0.05


def opcode_of(datagram):
    return struct.unpack(">H", datagram[:2])[0]


def wait_until_idle():
    """Waits until the unit has worked off all that came before, so that it answers nobody but who asks next."""
    for _ in range(LAST_ASKS):
        with Station(timeout=LAST_ASK_SECONDS) as station:
            _wait_for_answer(station)
            try:
                _ask_behind_the_others(station)
                return
            except Silence:
                pass  # a request that came late was served first: while the unit waits for its station it hears no other
    raise AssertionError("the unit doesn't answer any more")


def _ask_behind_the_others(station):
    """What comes first are the answers to what was asked before."""
    station.send(request(RRQ, PROGRESS))
    while opcode_of(station.receive()) == ERROR:
        pass
    station.send(ack(1))


def _wait_for_answer(station):
    """Asks for an unknown file until the unit answers. It may be in a transfer that nobody goes on with, and a request
    may find the receive buffer full."""
    for _ in range(ASKS):
        station.send(request(RRQ, "unknown.xml"))
        try:
            station.receive(timeout=ASK_SECONDS)
            return
        except Silence:
            pass
    raise AssertionError("the unit doesn't answer any more")


def flood():
    """More datagrams than the unit can take from its socket at once, none of which means anything."""
    with Station() as station:
        junk = b"\0\x09" + b"j" * (LONGEST - 2)
        for _ in range(FLOOD):
            station.send(junk)
    wait_until_idle()


def send_strays(generator):
    """Datagrams of several stations that belong to no transfer. None of them starts a write, which would go on."""
    stations = [Station() for _ in range(STRAY_PORTS)]
    try:
        for _ in range(STRAYS):
            opcode = generator.choice((0, RRQ, DATA, ACK, ERROR, *range(6, 256)))
            generator.choice(stations).send(struct.pack(">H", opcode) + generator.randbytes(generator.randrange(LONGEST - 1)))
        generator.choice(stations).send(b"\0")
    finally:
        for station in stations:
            station.socket.close()


class DisturbedStation:
    """A station that makes one transfer packet by packet while much of what it sends comes twice, or another sends."""

    def __init__(self, generator):
        self.generator = generator

    def make(self, transfer):
        """The text that refused the transfer, or None; and what was read."""
        with Station() as station, Station() as other:
            try:
                if transfer.is_read:
                    return None, self._read(station, other, transfer.name)
                self._write(station, transfer)
                return None, None
            except TftpError as refusal:
                return refusal.text, None

    def _read(self, station, other, name):
        station.send(request(RRQ, name))
        content = b""
        for block in range(1, 0x10000):
            payload = station.expect_data(block)
            self._disturb_read(station, other)
            if block > 1 and self.generator.random() < 0.3:
                # As when the block was lost: it is asked for again.
                station.send(ack(block - 1))
                assert station.expect_data(block) == payload
            station.send(ack(block))
            content += payload
            if len(payload) < BLOCK:
                return content

    def _disturb_read(self, station, other):
        """While the unit waits for an acknowledgement it passes everything else over."""
        for _ in range(self.generator.randrange(4)):
            sender = self.generator.choice((station, other))
            sender.send(self.generator.choice((error(0, "stray"), request(RRQ, "unknown.xml"), data(7, b"x"), b"\0\x09x")))

    def _write(self, station, transfer):
        station.start_write(transfer.name)
        for block, payload in blocks(transfer.content):
            if block > 1 and self.generator.random() < 0.3:
                # As when the acknowledgement was lost: the block before comes again.
                station.send(data(block - 1, b"y" * BLOCK))
                station.expect_ack(block - 1)
            station.send(data(block, payload))
            station.expect_ack(block)


class Proxy:
    """Stands between real clients and the unit. It sends some datagrams twice, again after the one that follows, or not
    at all, and lets another port send in the middle of a transfer."""

    def __init__(self, generator, repeated=0.1, late=0.05, strays=0.1):
        self.generator = generator
        self.repeated = repeated
        self.late = late
        self.strays = strays
        self.losses = 0
        self.counts = {"repeated": 0, "late": 0, "strays": 0, "lost": 0}
        self._ways = {}
        self._late = {}
        self._stray = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._front = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._front.bind(("127.0.0.1", 0))
        self.port = self._front.getsockname()[1]

    def __enter__(self):
        self._selector = selectors.DefaultSelector()
        self._selector.register(self._front, selectors.EVENT_READ)
        self._is_ending = threading.Event()
        self._thread = threading.Thread(target=self._pass_on, daemon=True)
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._is_ending.set()
        self._thread.join()
        for key in list(self._selector.get_map().values()):
            key.fileobj.close()
        self._stray.close()
        self._selector.close()

    def _pass_on(self):
        while not self._is_ending.is_set():
            for key, _ in self._selector.select(PROXY_POLL_SECONDS):
                self._take(key.fileobj, key.data)

    def _take(self, receiver, station):
        datagram, sender = receiver.recvfrom(LONGEST)
        if receiver is self._front:
            way = self._way(sender)
            self._disturb(datagram, way, lambda passed: way.sendto(passed, SERVER))
        else:
            self._disturb(datagram, station, lambda passed: self._front.sendto(passed, station))

    def _way(self, station):
        """The port that stands for a station."""
        if station not in self._ways:
            way = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            self._ways[station] = way
            self._selector.register(way, selectors.EVENT_READ, station)
        return self._ways[station]

    def _disturb(self, datagram, direction, send):
        if self.losses > 0 and self.generator.random() < 0.3:
            self.losses -= 1
            self.counts["lost"] += 1
            return
        if self._chance("strays", self.strays):
            self._stray.sendto(b"\0\x09stray", SERVER)
        send(datagram)
        if direction in self._late:
            send(self._late.pop(direction))
        if opcode_of(datagram) not in (DATA, ACK):
            return
        if self._chance("repeated", self.repeated):
            send(datagram)
        if self._chance("late", self.late):
            self._late[direction] = datagram

    def _chance(self, kind, probability):
        happens = self.generator.random() < probability
        self.counts[kind] += happens
        return happens
