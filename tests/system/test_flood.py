"""A hundred thousand datagrams that mean nothing."""

from bench import MODEM_INFO, SANITIZER
from station import BLOCK, RRQ, Silence, Station, TftpError, data, request

BURST = 100_000
# Kilobytes that an allocator may keep for reuse. The whole burst takes some 70,000 in the queue.
KEPT = 7_000


def burst(station):
    junk = b"\0\x09" + b"j" * 514
    for _ in range(BURST):
        station.send(junk)


def answer_after_flood(station):
    """Asks for an unknown file until the unit answers: it can't before it has worked off what came before, and the
    request itself may have found the receive buffer full."""
    for _ in range(200):
        station.send(request(RRQ, "unknown.xml"))
        try:
            station.receive(timeout=0.5)
            return
        except Silence:
            pass
    raise AssertionError("no answer after the flood")


def good_read():
    """A read from a port of its own; an answer to a repeated request of the flood may still come in between."""
    for _ in range(20):
        with Station() as station:
            try:
                return station.read(MODEM_INFO)
            except TftpError:
                pass
    raise AssertionError("no good read after the flood")


def check_memory(bench, before):
    # A sanitizer holds on to freed memory on purpose, so that its figure says nothing about the service.
    if not SANITIZER:
        assert bench.resident_kilobytes() < before + KEPT


def test_burst_of_junk_is_survived_and_its_memory_given_back(bench, station):
    document = good_read()
    memory = bench.resident_kilobytes()
    burst(station)
    answer_after_flood(station)
    assert good_read() == document
    check_memory(bench, memory)


def test_burst_that_piles_up_is_survived_and_its_memory_given_back(bench, station):
    document = good_read()
    # The unit takes nothing from its queue for three seconds after a hex image.
    station.start_write("image.hex")
    station.send(data(1, b"x" * BLOCK))
    station.expect_ack(1)
    memory = bench.resident_kilobytes()
    station.send(data(2))
    station.expect_ack(2)
    burst(station)
    answer_after_flood(station)
    assert good_read() == document
    check_memory(bench, memory)
