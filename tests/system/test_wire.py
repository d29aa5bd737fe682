"""The unit's wire: what is recorded of it, and real clients against a bad one."""

import pytest

from bench import MODEM_INFO, STATISTICS, TEST_MODE_CFG, wait_until
from clients import CLIENTS
from station import RRQ, Silence, Station, ack, request

DELAY_CLIENTS = ["tftp-hpa", "atftp", "curl", "busybox"]
LED = b"<TEST_CONFIG><LED><READY_GREEN_LED>ON</READY_GREEN_LED></LED></TEST_CONFIG>"
LOSES_FIRST_ANSWER = ("30", "497")  # percent and seed


def datagrams(bench, after=0):
    """The recorded datagrams: direction, fate and packet of each."""
    lines = [line.split("  ") for line in bench.gateway("datagrams").stdout.splitlines()]
    fields = [[field.strip() for field in line if field.strip()] for line in lines]
    return [(direction, fate, packet) for number, _, _, direction, fate, packet in fields if int(number) > after]


def last_number(bench):
    lines = bench.gateway("datagrams").stdout.splitlines()
    return int(lines[-1].split()[0]) if lines else 0


def transfers(bench):
    return bench.gateway("transfers").stdout.splitlines()


def fates_of_forty(bench):
    """What becomes of forty datagrams that the unit answers with nothing."""
    before = last_number(bench)
    with Station() as station:
        for block in range(40):
            station.send(ack(block))
        wait_until(lambda: last_number(bench) == before + 40, "forty datagrams")
    return [fate for _, fate, _ in datagrams(bench, before)]


def test_every_datagram_is_recorded(bench, station):
    content = station.read(MODEM_INFO)
    station.write(TEST_MODE_CFG, LED)
    assert datagrams(bench) == [
        ("to unit", "passed", f"read {MODEM_INFO}"),
        ("from unit", "passed", "data 1, 512 bytes"),
        ("to unit", "passed", "acknowledgement 1"),
        ("from unit", "passed", f"data 2, {len(content) - 512} bytes"),
        ("to unit", "passed", "acknowledgement 2"),
        ("to unit", "passed", f"write {TEST_MODE_CFG}"),
        ("from unit", "passed", "acknowledgement 0"),
        ("to unit", "passed", f"data 1, {len(LED)} bytes"),
        ("from unit", "passed", "acknowledgement 1"),
    ]
    read, write = transfers(bench)
    assert f"read   {MODEM_INFO}  {len(content)} bytes, 2 blocks, 0 repeats" in read and read.endswith("done")
    assert f"write  {TEST_MODE_CFG}  {len(LED)} bytes, 1 blocks, 0 repeats" in write and write.endswith("done")


def test_numbers_go_on_after_the_service_was_killed(bench, station):
    station.read(MODEM_INFO)
    before = last_number(bench)
    bench.kill_service()
    bench.wait_ready(2)
    station.read(MODEM_INFO)
    assert last_number(bench) == before * 2


@pytest.mark.parametrize("name", DELAY_CLIENTS)
def test_client_gets_the_right_files_over_a_slow_wire(bench, station, tmp_path, name):
    expected = station.read(MODEM_INFO)
    bench.gateway("wire", "delay", "20", "--jitter", "10")
    got = tmp_path / "got.xml"
    answer = CLIENTS[name].read(MODEM_INFO, got)
    assert got.read_bytes() == expected, answer
    document = tmp_path / "led.xml"
    document.write_bytes(LED)
    CLIENTS[name].write(TEST_MODE_CFG, document)
    bench.wait_rows("request", "/dev/gpioctrl")
    assert {fate for _, fate, _ in datagrams(bench, 5)} == {"delayed"}


@pytest.mark.parametrize("name", ["curl", "busybox"])
def test_client_gets_the_right_file_over_a_wire_that_repeats(bench, station, tmp_path, name):
    expected = station.read(MODEM_INFO)
    bench.gateway("wire", "duplicate", "100")
    got = tmp_path / "got.xml"
    answer = CLIENTS[name].read(MODEM_INFO, got)
    assert got.read_bytes() == expected, answer
    assert {fate for _, fate, _ in datagrams(bench, 5)} == {"duplicated"}


@pytest.mark.parametrize("name", ["tftp-hpa", "curl"])
def test_client_gets_the_right_file_when_a_block_is_lost(bench, station, tmp_path, name):
    expected = station.read(MODEM_INFO)
    percent, seed = LOSES_FIRST_ANSWER
    bench.gateway("wire", "seed", seed)
    bench.gateway("wire", "loss", percent)
    got = tmp_path / "got.xml"
    answer = CLIENTS[name].read(MODEM_INFO, got)
    assert got.read_bytes() == expected, answer
    answers = [(fate, packet) for direction, fate, packet in datagrams(bench, 5) if direction == "from unit"]
    assert answers[:2] == [("lost", "data 1, 512 bytes"), ("passed", "data 1, 512 bytes")]
    wait_until(lambda: transfers(bench)[-1].endswith("done"), "the end of the transfer")
    assert " 0 repeats" not in transfers(bench)[-1]


def test_nothing_arrives_when_all_is_lost(bench, station):
    bench.gateway("wire", "loss", "100")
    for _ in range(2):
        station.send(request(RRQ, MODEM_INFO))
        with pytest.raises(Silence):
            station.receive(timeout=0.3)
    assert datagrams(bench) == [("to unit", "lost", f"read {MODEM_INFO}")] * 2
    assert bench.rows("log")[-1].startswith("info FTM Started")
    bench.gateway("wire", "clear")
    assert station.read(STATISTICS)
    lost, read = transfers(bench)
    assert "0 bytes, 0 blocks, 1 repeats" in lost and lost.endswith("abandoned: the unit didn't answer")
    assert read.endswith("done")


def test_the_same_seed_does_the_same(bench):
    bench.gateway("wire", "duplicate", "20")
    bench.gateway("wire", "loss", "40")
    bench.gateway("wire", "seed", "5")
    first = fates_of_forty(bench)
    assert {"passed", "lost", "duplicated"} == set(first)
    assert fates_of_forty(bench) != first
    bench.gateway("wire", "seed", "5")
    assert fates_of_forty(bench) == first
    bench.kill_service()
    bench.wait_ready(2)
    assert fates_of_forty(bench) == first
    bench.gateway("wire", "seed", "6")
    assert fates_of_forty(bench) != first


def test_a_delayed_datagram_keeps_no_other_one_waiting(bench, station, other):
    bench.gateway("wire", "delay", "3000")
    station.send(request(RRQ, MODEM_INFO))
    wait_until(lambda: last_number(bench) == 1, "the delayed request")
    bench.gateway("wire", "clear")
    content = other.read(MODEM_INFO)
    with pytest.raises(Silence):
        station.receive(timeout=0.1)
    assert station.finish_read() == content


def test_a_wire_that_cannot_be_is_refused(bench):
    for words in [("loss", "101"), ("loss", "-1"), ("duplicate", "x"), ("delay", "70000"), ("seed", "-1")]:
        assert bench.gateway("wire", *words, check=False).returncode != 0, words
    assert bench.status()["wire"] == "clean"
