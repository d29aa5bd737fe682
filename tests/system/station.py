"""A test station that speaks TFTP packet by packet, so that a test says exactly what goes over the wire."""

import socket
import struct

from limits import ANSWER_TIME

SERVER = ("127.0.0.1", 69)
RRQ, WRQ, DATA, ACK, ERROR = 1, 2, 3, 4, 5
BLOCK = 512


class TftpError(Exception):
    """The unit answered with an ERROR packet."""

    def __init__(self, code, text):
        super().__init__(f"ERROR {code}: {text}")
        self.code = code
        self.text = text


class Silence(Exception):
    """The unit sent nothing in time."""


def request(opcode, name, mode=b"octet", options=()):
    """Bytes of a read or write request; `options` are alternating names and values."""
    return b"".join([struct.pack(">H", opcode), name.encode(), b"\0", mode, b"\0", *(o + b"\0" for o in options)])


def data(block, payload=b""):
    return struct.pack(">HH", DATA, block) + payload


def ack(block):
    return struct.pack(">HH", ACK, block)


def error(code, text):
    return struct.pack(">HH", ERROR, code) + text.encode() + b"\0"


def blocks(content):
    """The blocks of a transfer, numbered from 1; the last one is shorter than 512 bytes."""
    return list(enumerate((content[i : i + BLOCK] for i in range(0, len(content) + 1, BLOCK)), 1))


class Station:
    """One UDP port of a test station."""

    def __init__(self, timeout=ANSWER_TIME):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind(("127.0.0.1", 0))
        self.socket.settimeout(timeout)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, datagram):
        self.socket.sendto(datagram, SERVER)

    def receive(self, timeout=None):
        """The next datagram. Every one has to come from port 69."""
        before = self.socket.gettimeout()
        if timeout is not None:
            self.socket.settimeout(timeout)
        try:
            datagram, sender = self.socket.recvfrom(2048)
        except socket.timeout:
            raise Silence() from None
        finally:
            self.socket.settimeout(before)
        assert sender == SERVER
        return datagram

    def expect(self, datagram):
        assert self.receive() == datagram

    def answer(self):
        """The next datagram; raises TftpError when it is an ERROR packet."""
        datagram = self.receive()
        opcode, number = struct.unpack(">HH", datagram[:4])
        if opcode == ERROR:
            raise TftpError(number, datagram[4:-1].decode("latin-1"))
        return datagram

    def expect_data(self, block):
        """The payload of a DATA packet, which has to carry this block number."""
        datagram = self.answer()
        assert datagram[:4] == data(block)
        assert len(datagram) <= 4 + BLOCK
        return datagram[4:]

    def expect_ack(self, block):
        assert self.answer() == ack(block)

    def expect_error(self, code, text):
        self.expect(error(code, text))

    def finish_read(self, block=1):
        """Takes and acknowledges the rest of a read from this block on."""
        content = b""
        while True:
            payload = self.expect_data(block)
            self.send(ack(block))
            content += payload
            if len(payload) < BLOCK:
                return content
            block += 1

    def read(self, name):
        """A whole file. Nothing may come before its first block, so what was sent before stayed unanswered."""
        self.send(request(RRQ, name))
        return self.finish_read()

    def start_write(self, name):
        self.send(request(WRQ, name))
        self.expect_ack(0)

    def write(self, name, content):
        """Writes a whole file; raises TftpError when it is refused."""
        self.start_write(name)
        for block, payload in blocks(content):
            self.send(data(block, payload))
            self.expect_ack(block)
