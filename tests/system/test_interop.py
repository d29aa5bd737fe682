"""Real clients against the real service."""

import pytest

from bench import MODEM_INFO, field
from clients import CLIENTS
from station import RRQ, WRQ, ack, data, request

OPTIONS = (b"blksize", b"1428", b"tsize", b"0", b"timeout", b"3", b"windowsize", b"16")


@pytest.fixture(params=CLIENTS.values(), ids=CLIENTS.keys())
def client(request):
    return request.param


def test_client_reads_what_the_packets_carry(client, station, tmp_path):
    local = tmp_path / "read.xml"
    result = client.read(MODEM_INFO, local)
    assert result.returncode == 0, result
    assert local.read_bytes() == station.read(MODEM_INFO)
    assert len(local.read_bytes()) > 512


def test_client_writes_production_data(client, bench, station, tmp_path):
    local = tmp_path / "write.xml"
    local.write_text("<MODEM_INFO><SERIAL_NUM>SN-4711</SERIAL_NUM><PROD_REV>C</PROD_REV></MODEM_INFO>\n")
    result = client.write(MODEM_INFO, local)
    assert result.returncode == 0, result
    document = station.read(MODEM_INFO)
    assert (field(document, "SERIAL_NUM"), field(document, "PROD_REV")) == ("SN-4711", "C")
    assert "SN-4711" in bench.table("ProductionData")


def test_client_writes_a_file_of_many_blocks(client, station, tmp_path):
    local = tmp_path / "write.xml"
    local.write_text("<MODEM_INFO><SERIAL_NUM>SN-1</SERIAL_NUM></MODEM_INFO>".ljust(3 * 512))
    result = client.write(MODEM_INFO, local)
    assert result.returncode == 0, result
    assert field(station.read(MODEM_INFO), "SERIAL_NUM") == "SN-1"


def test_client_is_told_of_an_unknown_file(client, bench, tmp_path):
    result = client.read("unknown.xml", tmp_path / "read.xml")
    told = result.stdout + result.stderr
    # Some show the unit's text and some only fail.
    assert result.returncode != 0 or "File Not Supported" in told, result


def test_read_request_with_options_is_served_without_them(station):
    station.send(request(RRQ, MODEM_INFO, options=OPTIONS))
    assert station.finish_read() == station.read(MODEM_INFO)


def test_write_request_with_options_is_served_without_them(station):
    station.send(request(WRQ, MODEM_INFO, options=OPTIONS))
    station.expect(ack(0))
    station.send(data(1, b"<MODEM_INFO><SERIAL_NUM>7</SERIAL_NUM></MODEM_INFO>"))
    station.expect(ack(1))
    assert field(station.read(MODEM_INFO), "SERIAL_NUM") == "7"


@pytest.mark.parametrize("mode", [b"octet", b"netascii", b"mail", b"", b"OCTET", b"nonsense"])
def test_mode_is_never_looked_at(station, mode):
    station.send(request(RRQ, MODEM_INFO, mode))
    assert station.finish_read() == station.read(MODEM_INFO)
