"""Firmware images and INI files, packet by packet."""

import pytest

from bench import MODEM_INFO, field
from station import BLOCK, TftpError, data, error

IMAGE = bytes(range(256)) * 2


def send_blocks(station, count):
    for block in range(1, count + 1):
        station.send(data(block, IMAGE))
        station.expect_ack(block)


@pytest.mark.parametrize("name", ["image.upg", "a.b.upg", ".upg"])
def test_image_of_many_blocks_is_accepted(station, name):
    station.start_write(name)
    send_blocks(station, 100)
    station.send(data(101, b"end"))
    station.expect_ack(101)
    assert station.read(MODEM_INFO)


def test_image_may_end_with_an_empty_block(station):
    station.start_write("image.upg")
    send_blocks(station, 2)
    station.send(data(3))
    station.expect_ack(3)


@pytest.mark.parametrize("name", ["image.upg", "image.hex"])
@pytest.mark.parametrize("payload", [b"", b"short", IMAGE[:-1]], ids=["empty", "short", "511 bytes"])
def test_image_of_one_block_gets_no_last_acknowledgement(station, name, payload):
    station.start_write(name)
    station.send(data(1, payload))
    # The answer to the next request comes first.
    assert station.read(MODEM_INFO)


def test_last_block_of_an_image_of_one_block_is_acknowledged_when_repeated(station):
    station.start_write("image.upg")
    station.send(data(1, b"short"))
    station.send(data(1, b"short"))
    station.expect_ack(1)


def test_last_block_of_an_image_is_acknowledged_once_more_when_repeated(station):
    station.start_write("image.upg")
    send_blocks(station, 1)
    station.send(data(2, b"end"))
    station.expect_ack(2)
    station.send(data(2, b"end"))
    station.expect_ack(2)
    station.send(data(2, b"end"))
    assert station.read(MODEM_INFO)


def test_duplicate_block_of_an_image_is_acknowledged_again(station):
    station.start_write("image.upg")
    send_blocks(station, 2)
    station.send(data(2, IMAGE))
    station.expect_ack(2)
    station.send(data(3, b"end"))
    station.expect_ack(3)


def test_block_out_of_order_ends_an_image(station):
    station.start_write("image.upg")
    send_blocks(station, 1)
    station.send(data(3, IMAGE))
    station.expect_error(0, "expected block 2 - received block 3")


def test_error_packet_ends_an_image(station):
    station.start_write("image.hex")
    send_blocks(station, 1)
    station.send(error(0, "stop"))
    station.expect_error(0, "Bad data packet, expected block = 2")


@pytest.mark.parametrize("name", ["image.UPG", "image.upg.xml", "image.Hex"])
def test_name_that_does_not_end_like_an_image_is_refused(station, name):
    with pytest.raises(TftpError, match="File Not Supported"):
        station.write(name, b"x")


def test_settings_of_an_ini_file_are_applied(bench, station):
    station.write("config.ini", b"[ProductInfo]\nIniVersion=7.7\n")
    assert field(station.read(MODEM_INFO), "INI_VERSION") == "7.7"


@pytest.mark.parametrize(
    "text",
    [b"[NoSuchTable]\nA=1\n", b"[ProductInfo]\nNoSuchColumn=1\n", b"no ini at all\n"],
    ids=["table", "column", "line"],
)
def test_ini_file_that_does_not_fit_is_refused_and_changes_nothing(station, text):
    before = station.read(MODEM_INFO)
    with pytest.raises(TftpError, match="Write data failed"):
        station.write("config.ini", b"[ProductInfo]\nIniVersion=7.8\n" + text)
    assert station.read(MODEM_INFO) == before


def test_ini_file_with_another_dot_in_its_name_is_refused(station):
    with pytest.raises(TftpError, match="File Not Supported"):
        station.write("a.b.ini", b"[ProductInfo]\nIniVersion=7.9\n")
    assert field(station.read(MODEM_INFO), "INI_VERSION") != "7.9"
