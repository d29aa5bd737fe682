"""The gateway's program at work, on a store and drivers in memory; by an emulator when it is for another processor."""

import os
import signal
import subprocess
from pathlib import Path

import pytest

from bench import MODEM_INFO, TEST_MODE_CFG, TEST_MODE_OP, Document, wait_until
from clients import CLIENTS
from station import Station

PROGRAM = os.environ["PROGRAM"]
EMULATOR = os.environ["EMULATOR"].split()
LIBRARIES = {"LD_LIBRARY_PATH": os.environ["LIBRARIES"], "LD_PRELOAD": os.environ["DRIVERS"]}
PORT_69 = ":0045 "


def start():
    """Starts the program with its libraries; an emulator hands them on to it and doesn't load them itself."""
    if not EMULATOR:
        return subprocess.Popen([PROGRAM], env=dict(os.environ, **LIBRARIES))
    variables = [word for name, value in LIBRARIES.items() for word in ("-E", f"{name}={value}")]
    return subprocess.Popen([*EMULATOR, *variables, PROGRAM])


def is_bound():
    return PORT_69 in Path("/proc/net/udp").read_text()


@pytest.fixture
def service():
    process = start()
    try:
        wait_until(lambda: is_bound() or process.poll() is not None, "port 69")
        assert process.poll() is None
        yield process
    finally:
        process.kill()
        process.wait(timeout=60)


@pytest.fixture
def station(service):
    with Station(timeout=60) as station:
        yield station


@pytest.mark.parametrize("client", ["curl", "tftp-hpa"])
def test_public_client_reads_the_modem_information(service, client, tmp_path):
    read = CLIENTS[client].read(MODEM_INFO, tmp_path / "read.xml")
    assert read.returncode == 0, read
    assert Document((tmp_path / "read.xml").read_bytes()).texts("MODEM_INFO") == {
        "MODEL_NUM": "M-DEVICE",
        "SERIAL_NUM": "S-DEVICE",
        "MAC_ADDR": "02:00:00:00:00:07",
        "PROD_DATE": "01022003",
        "PROD_REV": "B",
        "SOFTWARE_VER": "9.8.7",
        "SOFTWARE_DESC": "Device under test",
        "INI_FILENAME": "device.ini",
        "INI_VERSION": "7.7",
        "XCVR_VER": "T1.2",
        "XCVR_DESC": "Test transceiver",
        "SOFTWARE_LOAD": "L-DEVICE",
        "RELEASE_BUILD_VER": "9.8.7-b1",
        "FTM_SOFTWARE_VER": "DEVICE 3.4",
        "E_164": "5551234",
        "BOOT_DELAY": "5",
        "SEC": "N/A",
    }


def test_written_production_data_and_boot_delay_are_read_back(station):
    station.write(MODEM_INFO, b"<MODEM_INFO><SERIAL_NUM>4711</SERIAL_NUM><BOOT_DELAY>9</BOOT_DELAY></MODEM_INFO>")
    texts = Document(station.read(MODEM_INFO)).texts("MODEM_INFO")
    assert (texts["SERIAL_NUM"], texts["BOOT_DELAY"], texts["MODEL_NUM"]) == ("4711", "9", "M-DEVICE")


def test_entered_test_is_active_and_drives_the_leds(station):
    station.write(TEST_MODE_OP, b"<ENTER_TEST><LED/></ENTER_TEST>")
    assert Document(station.read(TEST_MODE_OP)).names("ACTIVE_TEST") == ["LED"]
    station.write(TEST_MODE_CFG, b"<TEST_CONFIG><LED><WPS_LED>ON</WPS_LED></LED></TEST_CONFIG>")
    leds = Document(station.read(TEST_MODE_CFG)).texts("TEST_CONFIG/LED")
    assert (leds["WPS_LED"], leds["USB_LED"]) == ("ON", "OFF")


def test_second_service_ends_with_status_255(service):
    assert start().wait(timeout=60) == 255


def test_sigterm_ends_it_at_once(service):
    service.send_signal(signal.SIGTERM)
    assert service.wait(timeout=60) == -signal.SIGTERM
    wait_until(lambda: not is_bound(), "a free port 69")
