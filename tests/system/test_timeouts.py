"""The time-outs as they show on the wire, in real time. How they count is tested with the clock in hand elsewhere."""

import time

from bench import MODEM_INFO
from limits import LATENESS
from station import BLOCK, RRQ, Silence, data, request

import pytest


class Stopwatch:
    def __init__(self):
        self.start = time.monotonic()

    def lap(self):
        """Seconds since the last lap."""
        now = time.monotonic()
        seconds, self.start = now - self.start, now
        return seconds


def test_block_is_resent_once_when_no_acknowledgement_comes(station):
    station.send(request(RRQ, MODEM_INFO))
    first = station.expect_data(1)
    watch = Stopwatch()
    assert station.expect_data(1) == first
    assert 3.2 < watch.lap() < 3.2 + LATENESS
    # The second time-out ends the read without a word; the unit serves the next one.
    with pytest.raises(Silence):
        station.receive(timeout=2.7 + LATENESS)
    assert station.read(MODEM_INFO)


def test_acknowledgement_is_resent_three_times_when_no_data_come(station):
    station.start_write(MODEM_INFO)
    station.send(data(1, b" " * BLOCK))
    station.expect_ack(1)
    watch = Stopwatch()
    for _ in range(3):
        station.expect_ack(1)
        assert 2.9 < watch.lap() < 3.0 + LATENESS
    station.expect_error(0, "Timed out on data packet, expected block = 2")
    assert 2.9 < watch.lap() < 3.0 + LATENESS
    station.expect_error(0, "Bad data packet, expected block = 2")
    assert station.read(MODEM_INFO)


def test_last_block_repeated_too_late_is_dropped(station):
    station.write(MODEM_INFO, b"<MODEM_INFO/>")
    with pytest.raises(Silence):
        station.receive(timeout=2.5 + LATENESS)
    station.send(data(1, b"<MODEM_INFO/>"))
    assert station.read(MODEM_INFO)


def test_unit_is_busy_for_three_seconds_after_a_hex_image(station):
    station.start_write("image.hex")
    station.send(data(1, b"x" * BLOCK))
    station.expect_ack(1)
    station.send(data(2, b"end"))
    station.expect_ack(2)
    watch = Stopwatch()
    assert station.read(MODEM_INFO)
    assert 2.9 < watch.lap() < 3.0 + LATENESS
