"""Bad input by the thousand. After each piece of it a good read gives the same bytes as before."""

import random
import struct

import pytest

from bench import MODEM_INFO
from station import ACK, BLOCK, DATA, ERROR, RRQ, WRQ, TftpError, ack, blocks, data, request

WRITABLE = [MODEM_INFO, "FTM_TestModeOp.xml", "FTM_TestModeCfg.xml", "config.ini"]
LIMIT = 7648


def good_read(station):
    """Reads the modem information. What came before may have left a write open, which the first packet of a read
    ends with an ERROR packet; answers to it are passed over."""
    for _ in range(4):
        station.send(request(RRQ, MODEM_INFO))
        while True:
            datagram = station.receive()
            opcode, number = struct.unpack(">HH", datagram[:4])
            if (opcode, number) == (DATA, 1):
                station.send(ack(1))
                return datagram[4:] + (station.finish_read(2) if len(datagram) == 4 + BLOCK else b"")
            if opcode == ERROR:
                break
            assert opcode == ACK
    raise AssertionError("no good read after this")


@pytest.fixture
def unharmed(bench, station):
    """Call it after each piece of bad input."""
    before = station.read(MODEM_INFO)
    pid = bench.service_pid()

    def check(what):
        assert good_read(station) == before, what
        assert bench.service_pid() == pid, what

    return check


def test_short_datagrams(station, unharmed):
    for opcode in range(8):
        for length in (1, 2, 3):
            datagram = struct.pack(">HH", opcode, 1)[:length]
            station.send(datagram)
            unharmed(datagram)


def test_short_datagrams_in_a_write(station, unharmed):
    for opcode in range(8):
        for length in (1, 2, 3):
            station.start_write(MODEM_INFO)
            datagram = struct.pack(">HH", opcode, 1)[:length]
            station.send(datagram)
            unharmed(datagram)


def test_short_datagrams_in_a_read(station, unharmed):
    for opcode in (0, 1, 2, 3, 5, 6):
        for length in (1, 2, 3):
            datagram = struct.pack(">HH", opcode, 1)[:length]
            station.send(request(RRQ, MODEM_INFO))
            station.expect_data(1)
            station.send(datagram)
            station.send(ack(1))
            station.finish_read(2)
            unharmed(datagram)


def test_every_opcode(station, unharmed):
    generator = random.Random(69)
    for opcode in [*range(300), *(generator.randrange(300, 65536) for _ in range(700)), 65535]:
        datagram = struct.pack(">H", opcode) + b"FTM_ModemInfo.xm\0octet\0"
        station.send(datagram)
        unharmed(datagram)


@pytest.mark.parametrize("opcode", [RRQ, WRQ])
def test_names_of_all_lengths_without_terminator(station, unharmed, opcode):
    for length in [*range(64), *range(64, 508, 37), *range(508, 520), 1000, 1400]:
        datagram = struct.pack(">H", opcode) + b"n" * length
        station.send(datagram)
        unharmed(datagram)


@pytest.mark.parametrize("opcode", [RRQ, WRQ])
def test_names_that_look_like_a_format_or_a_path(station, unharmed, opcode):
    for name in ("%s%s%s%n", "%n" * 200, "../../etc/passwd", "." * 500, ".ini", ".xml", "\x01\x7f", "a" * 480 + ".ini"):
        station.send(request(opcode, name))
        unharmed(name)


def test_random_datagrams(station, unharmed):
    generator = random.Random(516)
    for _ in range(1000):
        datagram = generator.randbytes(516)
        station.send(datagram)
        unharmed(datagram)


def test_random_datagrams_behind_each_opcode(station, unharmed):
    generator = random.Random(517)
    for _ in range(1000):
        datagram = struct.pack(">H", generator.randrange(7)) + generator.randbytes(generator.randrange(514))
        station.send(datagram)
        unharmed(datagram)


def put(station, name, content):
    try:
        station.write(name, content)
    except TftpError:
        pass


def elements(depth):
    return b"<a>" * depth + b"</a>" * depth


DOCUMENTS = [
    b"<",
    b">",
    b"<>",
    b"</>",
    b"</MODEM_INFO>",
    b"<MODEM_INFO",
    b"<MODEM_INFO>",
    b"<MODEM_INFO/",
    b"<?xml",
    b"<?xml?>",
    b"<?xml version",
    b"<!",
    b"<!--",
    b"<!>",
    b"<![CDATA[<MODEM_INFO>]]>",
    b"<!DOCTYPE a [<!ENTITY b SYSTEM 'file:///etc/passwd'>]><a>&b;</a>",
    b"<MODEM_INFO><" + b"x" * 7000 + b"/></MODEM_INFO>",
    b"<MODEM_INFO>" + b"<a/>" * 1900 + b"</MODEM_INFO>",
    b"<MODEM_INFO " + b"a=1 " * 1800 + b"/>",
    b"<MODEM_INFO " + b'a="' * 2400,
    b"<MODEM_INFO " + b"=" * 7000 + b">",
    b"<a>" * 2500,
    elements(1090),
    b"<a/>" * 1900,
    b"<" * LIMIT,
    b">" * LIMIT,
    b"<!" * (LIMIT // 2),
    b"</a>" * 1900,
    b"<a b=" * 1500,
    b"<a>" + b"&amp;" * 1500 + b"</a>",
    b"<a>" + b"&amp;lt;" * 900 + b"</a>",
    b"<a>" + b"~~" * 3700 + b"</a>",
    b"<a>" + b"\n" * 7600 + b"x</a>",
    b"<a>\0</a>",
    b"\0" * LIMIT,
    b"\xff" * LIMIT,
    b"\x80<\xfe>\xff</\xfe>",
    b"%s%n%x" * 1200,
    b"[" * LIMIT,
    b"[x]\n" + b"=\n" * 3000,
    b"[x]\n" + b"k" * 7000 + b"=1\n",
    b"[" + b"x" * 7000 + b"]\n",
    b"[ProductInfo]\n" + b"IniVersion" * 700,
    b"[control]\nreboot=maybe\n",
]


@pytest.mark.parametrize("name", WRITABLE)
def test_hostile_documents(station, unharmed, name):
    for document in DOCUMENTS:
        assert len(document) <= LIMIT
        put(station, name, document)
        unharmed(document[:80])


TOKENS = [b"<", b">", b"/", b"</", b"/>", b"<!", b"<?xml", b"?>", b"=", b'"', b" ", b"\n", b"&amp;", b"~~", b"a", b"SEC", b"\0"]


@pytest.mark.parametrize("name", WRITABLE)
def test_random_documents(station, unharmed, name):
    generator = random.Random(name)
    for _ in range(150):
        document = b"".join(generator.choices(TOKENS, k=generator.randrange(1, 600)))[:LIMIT]
        put(station, name, document)
        unharmed(document)


@pytest.mark.parametrize("name", WRITABLE[:3])
def test_documents_cut_at_any_byte(station, unharmed, name):
    whole = station.read(MODEM_INFO)
    try:
        document = station.read(name)
    except TftpError:
        document = whole
    for length in range(0, len(document), 7):
        put(station, name, document[:length])
        # A cut modem information document may well write a cut value.
        station.write(MODEM_INFO, whole)
        unharmed(document[:length])


@pytest.mark.parametrize(
    "tag", ["MODEL_NUM", "SERIAL_NUM", "MAC_ADDR", "PROD_DATE", "PROD_REV", "E_164", "BOOT_DELAY", "SEC"]
)
def test_values_as_long_as_a_file_allows(station, unharmed, tag):
    whole = station.read(MODEM_INFO)
    for length in (6, 31, 52, 79, 80, 81, 127, 128, 1000, 7000):
        put(station, MODEM_INFO, f"<MODEM_INFO><{tag}>{'9' * length}</{tag}></MODEM_INFO>".encode())
        good_read(station)
        station.write(MODEM_INFO, whole)
        unharmed((tag, length))


def test_document_behind_a_wrong_block_number_is_never_applied(station, unharmed):
    document = b"<MODEM_INFO><SERIAL_NUM>evil</SERIAL_NUM></MODEM_INFO>"
    for block in (2, 3, 256, 65535):
        station.start_write(MODEM_INFO)
        station.send(data(block, document))
        unharmed(block)


def test_write_that_stops_in_the_middle_is_never_applied(station, unharmed):
    document = b"<MODEM_INFO><SERIAL_NUM>evil</SERIAL_NUM></MODEM_INFO>".ljust(3 * BLOCK)
    for stop_after in (0, 1, 2, 3):
        station.start_write(MODEM_INFO)
        for block, payload in blocks(document)[:stop_after]:
            station.send(data(block, payload))
            station.expect_ack(block)
        unharmed(stop_after)
