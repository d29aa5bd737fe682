"""Write requests, packet by packet."""

import pytest

from bench import MODEM_INFO, field
from station import BLOCK, RRQ, WRQ, TftpError, ack, blocks, data, error, request

LIMIT = 7648


def modem_info(serial, length=0):
    """A modem information file with this serial number, filled up with white space."""
    return f"<MODEM_INFO><SERIAL_NUM>{serial}</SERIAL_NUM></MODEM_INFO>".ljust(length).encode()


def serial_number(station):
    return field(station.read(MODEM_INFO), "SERIAL_NUM")


@pytest.mark.parametrize("length", [100, 511, 513, 1023, 1025, LIMIT - 1, LIMIT])
def test_file_is_applied_and_acknowledged(station, length):
    station.write(MODEM_INFO, modem_info("A1", length))
    assert serial_number(station) == "A1"


@pytest.mark.parametrize("length", [512, 1024, 14 * 512])
def test_file_of_exact_blocks_needs_an_empty_block(station, length):
    before = serial_number(station)
    content = modem_info("A2", length)
    station.start_write(MODEM_INFO)
    for block, payload in blocks(content)[:-1]:
        station.send(data(block, payload))
        station.expect_ack(block)
    last = length // BLOCK + 1
    station.send(data(last))
    station.expect_ack(last)
    assert before != "A2"
    assert serial_number(station) == "A2"


@pytest.mark.parametrize("length", [LIMIT + 1, 15 * BLOCK, 20 * BLOCK])
def test_file_over_the_limit_is_refused_at_its_fifteenth_block(station, length):
    before = station.read(MODEM_INFO)
    content = modem_info("A3", length)
    station.start_write(MODEM_INFO)
    for block, payload in blocks(content)[:14]:
        station.send(data(block, payload))
        station.expect_ack(block)
    station.send(data(15, content[14 * BLOCK : 15 * BLOCK]))
    station.expect_error(3, "file allocation size exceeded")
    assert station.read(MODEM_INFO) == before


@pytest.mark.parametrize("content", [b"", b"no element at all", b" \r\n"], ids=["empty", "text", "blanks"])
def test_file_without_any_element_is_refused_and_changes_nothing(station, content):
    before = station.read(MODEM_INFO)
    with pytest.raises(TftpError, match="Fail to Create Xml Data Obj"):
        station.write(MODEM_INFO, content)
    assert station.read(MODEM_INFO) == before


def test_block_of_more_than_512_bytes_is_cut(station):
    content = modem_info("A4", BLOCK)
    station.start_write(MODEM_INFO)
    station.send(data(1, content + b"<<<<garbage>>>>"))
    station.expect_ack(1)
    station.send(data(2))
    station.expect_ack(2)
    assert serial_number(station) == "A4"


@pytest.mark.parametrize("name", ["FTM_Statistics.xml", "FTM_Progress.xml", "unknown.xml", "a.b.ini", "IMAGE.UPG", ""])
def test_file_that_cannot_be_written_is_refused_after_its_last_block(station, name):
    station.start_write(name)
    station.send(data(1, b"x" * BLOCK))
    station.expect_ack(1)
    station.send(data(2, b"x"))
    station.expect_error(0, "File Not Supported")


def test_last_block_of_a_refused_write_is_acknowledged_when_repeated(station):
    with pytest.raises(TftpError):
        station.write("unknown.xml", b"x")
    station.send(data(1, b"x"))
    station.expect_ack(1)


def test_each_duplicate_block_is_acknowledged_again(station):
    content = modem_info("A5", 2 * BLOCK + 7)
    station.start_write(MODEM_INFO)
    for block, payload in blocks(content):
        station.send(data(block, payload))
        if len(payload) == BLOCK:
            station.expect_ack(block)
            for _ in range(3):
                station.send(data(block, payload))
                station.expect_ack(block)
    station.expect_ack(3)
    assert serial_number(station) == "A5"


def test_duplicate_of_the_request_is_acknowledged_as_block_zero(station):
    station.start_write(MODEM_INFO)
    station.send(data(0, b"x" * BLOCK))
    station.expect_ack(0)
    station.send(data(1, modem_info("A6")))
    station.expect_ack(1)
    assert serial_number(station) == "A6"


def test_block_two_behind_ends_the_write(station):
    station.start_write(MODEM_INFO)
    for block in (1, 2):
        station.send(data(block, b" " * BLOCK))
        station.expect_ack(block)
    station.send(data(1, b" " * BLOCK))
    station.expect_error(0, "expected block 3 - received block 1")


@pytest.mark.parametrize("block", [2, 3, 258, 65535])
def test_block_ahead_ends_the_write(station, block):
    before = station.read(MODEM_INFO)
    station.start_write(MODEM_INFO)
    station.send(data(block, modem_info("A7")))
    station.expect_error(0, f"expected block 1 - received block {block}")
    assert station.read(MODEM_INFO) == before


@pytest.mark.parametrize(
    "unwanted",
    [error(0, "stop"), ack(0), request(RRQ, MODEM_INFO), request(WRQ, MODEM_INFO), b"\0\x09"],
    ids=["ERROR", "ACK", "RRQ", "WRQ", "opcode 9"],
)
def test_packet_other_than_data_ends_the_write_at_once(station, unwanted):
    before = station.read(MODEM_INFO)
    station.start_write(MODEM_INFO)
    station.send(data(1, b" " * BLOCK))
    station.expect_ack(1)
    station.send(unwanted)
    station.expect_error(0, "Bad data packet, expected block = 2")
    assert station.read(MODEM_INFO) == before


def test_last_block_repeated_is_acknowledged_once_more(station):
    station.write(MODEM_INFO, modem_info("A8", BLOCK + 5))
    station.send(data(2, b"     "))
    station.expect_ack(2)
    station.send(data(2, b"     "))
    # A second repetition stays unanswered: the next packet is the answer to this read.
    assert serial_number(station) == "A8"


def test_block_after_a_failed_write_is_answered_with_an_error(station):
    station.start_write(MODEM_INFO)
    station.send(error(0, "stop"))
    station.expect_error(0, "Bad data packet, expected block = 1")
    station.send(data(1, b"x"))
    station.expect_error(0, "receive block error")
    station.send(data(1, b"x"))
    assert station.read(MODEM_INFO)


@pytest.mark.parametrize("stray", [ack(2), error(0, "x"), b"\0\x09"], ids=["ACK", "ERROR", "opcode 9"])
def test_packet_other_than_data_after_a_write_is_dropped(station, stray):
    station.write(MODEM_INFO, modem_info("C1", BLOCK + 5))
    station.send(stray)
    station.send(data(2, b"     "))
    # The one answer is that to the repeated block.
    station.expect_ack(2)
    assert serial_number(station) == "C1"


def test_read_closes_the_window_for_repeated_blocks(station):
    station.write(MODEM_INFO, modem_info("A9"))
    document = station.read(MODEM_INFO)
    station.send(data(1, modem_info("A9")))
    assert station.read(MODEM_INFO) == document


def test_second_sender_takes_over_the_acknowledgements(station, other):
    station.start_write(MODEM_INFO)
    other.send(data(1, modem_info("B1")))
    other.expect_ack(1)
    assert serial_number(other) == "B1"


def test_both_blanks_and_text_around_the_document_are_accepted(station):
    station.write(MODEM_INFO, b"\xef\xbb\xbf\r\n <?xml version=1.0 encoding=UTF-8?>\r\n" + modem_info("B2") + b"\r\n")
    assert serial_number(station) == "B2"


def test_what_was_read_can_be_written_back(station):
    before = station.read(MODEM_INFO)
    station.write(MODEM_INFO, before)
    assert station.read(MODEM_INFO) == before


def test_file_without_the_document_element_removes_the_left_over_files(bench, station):
    for name in ("current.cfg", "current.bak"):
        bench.gateway_file(f"/NVRM/{name}").write_text("old")
    station.write(MODEM_INFO, b"<OTHER><SERIAL_NUM>1</SERIAL_NUM></OTHER>")
    assert not bench.gateway_file("/NVRM/current.cfg").exists()
    assert not bench.gateway_file("/NVRM/current.bak").exists()
    assert serial_number(station) != "1"


@pytest.mark.parametrize("delay, reads", [("0", "0"), ("3", "3"), ("5", "5"), ("255", "5")])
def test_boot_delay_goes_to_the_flash(station, delay, reads):
    station.write(MODEM_INFO, f"<MODEM_INFO><BOOT_DELAY>{delay}</BOOT_DELAY></MODEM_INFO>".encode())
    assert field(station.read(MODEM_INFO), "BOOT_DELAY") == reads


def test_value_that_the_store_refuses_changes_nothing(bench, station):
    bench.fault("field MacAddr")
    before = station.read(MODEM_INFO)
    with pytest.raises(TftpError, match="Write data failed"):
        station.write(MODEM_INFO, b"<MODEM_INFO><SERIAL_NUM>1</SERIAL_NUM><MAC_ADDR>2</MAC_ADDR></MODEM_INFO>")
    assert station.read(MODEM_INFO) == before


def test_store_that_cannot_commit_changes_nothing(bench, station):
    bench.fault("commit")
    before = station.read(MODEM_INFO)
    with pytest.raises(TftpError, match="Write data failed"):
        station.write(MODEM_INFO, modem_info("1"))
    assert station.read(MODEM_INFO) == before
    bench.fault("commit", on=False)
    station.write(MODEM_INFO, modem_info("1"))
    assert serial_number(station) == "1"
