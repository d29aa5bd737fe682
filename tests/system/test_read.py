"""Read requests, packet by packet."""

import pytest

from bench import MODEM_INFO, field
from station import BLOCK, RRQ, WRQ, Station, TftpError, ack, data, error, request


def pad_to(bench, station, length):
    """Gives the unit a serial number with which the modem information has this length."""
    bench.set("ProductionData", "SerialNum", "s")
    missing = length - len(station.read(MODEM_INFO))
    assert missing >= 0
    bench.set("ProductionData", "SerialNum", "s" * (1 + missing))


def test_unknown_name_is_refused(station):
    station.send(request(RRQ, "unknown.xml"))
    station.expect_error(0, "File Not Supported")


@pytest.mark.parametrize("name", ["ftm_modeminfo.xml", "FTM_ModemInfo.xm", "FTM_ModemInfo.xml2", "/FTM_ModemInfo.xml", ""])
def test_name_is_compared_exactly(station, name):
    with pytest.raises(TftpError, match="File Not Supported"):
        station.read(name)


@pytest.mark.parametrize("name", ["config.ini", "image.upg", "image.hex"])
def test_files_that_are_only_written_are_refused(station, name):
    with pytest.raises(TftpError, match="File Not Supported"):
        station.read(name)


def test_modem_information_comes_from_the_store(bench, station):
    bench.set("ProductionData", "MacAddr", "02:00:5e:10:20:30")
    bench.set("ProductionData", "E164", "4930123456")
    document = station.read(MODEM_INFO)
    assert field(document, "MAC_ADDR") == "02:00:5e:10:20:30"
    assert field(document, "E_164") == "4930123456"
    assert field(document, "SEC") == "N/A"


def test_unreachable_store_leaves_the_defaults(bench, station):
    bench.set("ProductionData", "SerialNum", "from the store")
    bench.fault("session")
    assert field(station.read(MODEM_INFO), "SERIAL_NUM") == "1234"
    bench.fault("session", on=False)
    assert field(station.read(MODEM_INFO), "SERIAL_NUM") == "from the store"


def test_unreadable_table_leaves_the_defaults_of_its_elements(bench, station):
    bench.set("ProductionData", "SerialNum", "from the store")
    bench.set("ProductInfo", "IniVersion", "2.5")
    bench.fault("table ProductionData")
    document = station.read(MODEM_INFO)
    assert (field(document, "SERIAL_NUM"), field(document, "INI_VERSION")) == ("1234", "2.5")


def test_empty_cell_gives_an_empty_element(bench, station):
    bench.set("ProductionData", "ModelNum", "")
    assert b"<MODEL_NUM></MODEL_NUM>" in station.read(MODEM_INFO).replace(b"\r", b"").replace(b"\n", b"").replace(b" ", b"")


def test_two_reads_give_the_same_bytes(station):
    assert station.read(MODEM_INFO) == station.read(MODEM_INFO)


def test_text_of_exact_blocks_ends_with_an_empty_block(bench, station):
    pad_to(bench, station, 3 * BLOCK)
    station.send(request(RRQ, MODEM_INFO))
    for block in (1, 2, 3):
        assert len(station.expect_data(block)) == BLOCK
        station.send(ack(block))
    assert station.expect_data(4) == b""
    station.send(ack(4))


@pytest.mark.parametrize("beyond", [-1, 1])
def test_text_next_to_exact_blocks_has_no_empty_block(bench, station, beyond):
    pad_to(bench, station, 3 * BLOCK + beyond)
    document = station.read(MODEM_INFO)
    assert len(document) == 3 * BLOCK + beyond


def test_terminating_nul_is_not_sent(station):
    assert b"\0" not in station.read(MODEM_INFO)


def test_duplicate_acknowledgement_resends_the_block_once(station):
    station.send(request(RRQ, MODEM_INFO))
    first = station.expect_data(1)
    station.send(ack(0))
    assert station.expect_data(1) == first
    station.send(ack(0))
    station.expect_error(0, "expected ACK for block 1 - got block 0\n")


def test_each_block_may_be_resent(station):
    expected = station.read(MODEM_INFO)
    station.send(request(RRQ, MODEM_INFO))
    content = b""
    block = 1
    while len(content) % BLOCK == 0:
        payload = station.expect_data(block)
        station.send(ack(block - 1))
        assert station.expect_data(block) == payload
        station.send(ack(block))
        content += payload
        block += 1
    assert content == expected


@pytest.mark.parametrize("got", [2, 3, 77, 65535])
def test_acknowledgement_of_another_block_ends_the_read(station, got):
    station.send(request(RRQ, MODEM_INFO))
    station.expect_data(1)
    station.send(ack(got))
    station.expect_error(0, f"expected ACK for block 1 - got block {got}\n")
    assert station.read(MODEM_INFO)


def test_acknowledgement_two_behind_ends_the_read(station):
    station.send(request(RRQ, MODEM_INFO))
    station.expect_data(1)
    station.send(ack(1))
    station.expect_data(2)
    station.send(ack(0))
    station.expect_error(0, "expected ACK for block 2 - got block 0\n")


def test_error_packet_does_not_end_a_read(station):
    expected = station.read(MODEM_INFO)
    station.send(request(RRQ, MODEM_INFO))
    first = station.expect_data(1)
    station.send(error(0, "no more, please"))
    station.send(ack(1))
    assert first + station.finish_read(2) == expected


@pytest.mark.parametrize(
    "unwanted",
    [request(RRQ, MODEM_INFO), request(WRQ, MODEM_INFO), data(1, b"x"), b"\0\x09", b"\xff\xff\0\0"],
    ids=["RRQ", "WRQ", "DATA", "opcode 9", "opcode 65535"],
)
def test_unwanted_packet_is_passed_over_while_an_acknowledgement_is_awaited(station, unwanted):
    expected = station.read(MODEM_INFO)
    station.send(request(RRQ, MODEM_INFO))
    first = station.expect_data(1)
    station.send(unwanted)
    station.send(ack(1))
    assert first + station.finish_read(2) == expected
    assert station.read(MODEM_INFO) == expected


def test_data_after_a_read_is_dropped(station):
    document = station.read(MODEM_INFO)
    station.send(data(1, b"x"))
    assert station.read(MODEM_INFO) == document


@pytest.mark.parametrize("opcode", [0, 4, 5, 6, 7, 255, 256, 512, 65535])
def test_datagram_that_is_no_request_is_dropped(station, opcode):
    document = station.read(MODEM_INFO)
    station.send(opcode.to_bytes(2, "big") + b"FTM_ModemInfo.xml\0octet\0")
    assert station.read(MODEM_INFO) == document


def test_second_sender_takes_over_the_replies(station, other):
    expected = station.read(MODEM_INFO)
    station.send(request(RRQ, MODEM_INFO))
    first = station.expect_data(1)
    other.send(error(0, "here"))
    other.send(ack(1))
    assert first + other.finish_read(2) == expected


def test_more_senders_than_slots_are_all_answered(bench, station):
    expected = station.read(MODEM_INFO)
    for _ in range(130):
        with Station() as sender:
            assert sender.read(MODEM_INFO) == expected
    # The service's standard output is written out when it ends.
    station.send(b"")
    bench.wait_output("Close Old Connection ")
