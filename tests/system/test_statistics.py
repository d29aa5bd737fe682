"""The readings of the unit: statistics, four-port and progress files."""

import re

import pytest

from bench import field, run, wait_until
from station import TftpError

STATISTICS = "FTM_Statistics.xml"
STATISTICS2 = "FTM_Statistics2.xml"
FOUR_PORT = "FTM_Stats_4port.xml"
PROGRESS = "FTM_Progress.xml"


def handle(bench, command, *words):
    """Somebody handles the unit."""
    run(command, *words, "--unit", str(bench.folder))


def section(document, tag):
    return re.search(rb"<%s>.*</%s>" % (tag, tag), document, re.DOTALL)[0]


def port(station, number):
    """Activity, received and sent packets of a port."""
    ports = section(station.read(FOUR_PORT), b"PORT_%d" % number)
    return field(ports, "ETH_PORT_ACTIVE"), int(field(ports, "ETH_IN")), int(field(ports, "ETH_OUT"))


def counts(station):
    """Packets of the Ethernet interface and bytes of the radio."""
    document = station.read(STATISTICS)
    return int(field(document, "ETH_IN")), int(field(document, "WIRE_RXBYTES"))


def test_statistics_of_a_unit_in_factory_state(station):
    document = station.read(STATISTICS)
    assert field(document, "ETH_IN") == "4410"
    assert field(document, "ETH_DISCARD_OUT") == "1"
    assert field(document, "VC_VCI") == "35"
    assert field(document, "READY_STATUS") == "NOT_READY"
    assert field(document, "WIRE_TXDROPS") == "5"
    assert field(document, "WIRE_STATIONS") == "0"
    assert field(document, "FILE_CRC_ERROR") == "NO"


def test_counters_move_while_traffic_runs(bench, station):
    first = counts(station)
    assert counts(station) == first
    handle(bench, "station", "join")
    handle(bench, "traffic", "on")
    wait_until(lambda: all(now > before for now, before in zip(counts(station), first)), "traffic")
    handle(bench, "traffic", "off")
    assert counts(station) == counts(station)


def test_stations_are_counted(bench, station):
    handle(bench, "station", "join")
    handle(bench, "station", "join")
    assert field(station.read(STATISTICS), "WIRE_STATIONS") == "2"
    handle(bench, "station", "leave")
    assert field(station.read(STATISTICS), "WIRE_STATIONS") == "1"


def test_four_port_totals_survive_a_link_that_drops(bench, station):
    handle(bench, "port", "2", "up")
    handle(bench, "traffic", "on")
    wait_until(lambda: port(station, 2)[1] > 0, "traffic on port 2")
    handle(bench, "traffic", "off")
    before = port(station, 2)
    assert before[0] == "YES"
    handle(bench, "port", "2", "down")
    assert port(station, 2) == ("NO", *before[1:])
    handle(bench, "port", "2", "up")
    assert port(station, 2) == before
    handle(bench, "traffic", "on")
    wait_until(lambda: port(station, 2)[1] > before[1], "traffic on port 2")


def test_model_moves_the_ports_by_one_row(bench, station):
    assert port(station, 4)[0] == "NO"
    bench.set("ProductionData", "ModelNum", "GW-6204")
    assert port(station, 4)[0] == "YES"


def test_second_statistics_file_answers_with_whatever_the_error_record_holds(station):
    with pytest.raises(TftpError) as first:
        station.read(STATISTICS2)
    assert (first.value.code, first.value.text) == (0, "")
    with pytest.raises(TftpError):
        station.read("unknown.xml")
    with pytest.raises(TftpError, match="File Not Supported"):
        station.read(STATISTICS2)


def test_unreadable_stations_say_so_in_a_file_that_is_served(bench, station):
    bench.fault("table WlanStations")
    assert field(station.read(STATISTICS), "WIRE_STATIONS") == "Read Fail"


def test_unreadable_switch_refuses_the_four_port_file(bench, station):
    bench.fault("table SwitchStat")
    with pytest.raises(TftpError, match="Fail to Create Xml File"):
        station.read(FOUR_PORT)
    bench.fault("table SwitchStat", on=False)
    assert port(station, 1)[0] == "YES"


def test_progress_is_done_when_no_download_runs(station):
    assert field(station.read(PROGRESS), "DOWNLOAD_STATUS") == "DONE"


@pytest.mark.parametrize("name", [STATISTICS, STATISTICS2, FOUR_PORT, PROGRESS])
def test_readings_cannot_be_written(station, name):
    with pytest.raises(TftpError, match="File Not Supported"):
        station.write(name, b"<FTM_STATS></FTM_STATS>")
