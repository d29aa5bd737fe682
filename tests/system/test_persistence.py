"""What the unit keeps over restarts, reboots and sudden ends."""

import random
import threading
import time

from bench import MODEM_INFO, field
from station import Station, data


def production_data(serial, model):
    return f"<MODEM_INFO><SERIAL_NUM>{serial}</SERIAL_NUM><MODEL_NUM>{model}</MODEL_NUM></MODEM_INFO>".encode()


def identity(station):
    document = station.read(MODEM_INFO)
    return field(document, "SERIAL_NUM"), field(document, "MODEL_NUM")


def test_production_data_survive_a_restart(bench, station):
    station.write(MODEM_INFO, production_data("S1", "M1"))
    bench.restart()
    assert identity(station) == ("S1", "M1")


def test_boot_delay_survives_a_restart(bench, station):
    station.write(MODEM_INFO, b"<MODEM_INFO><BOOT_DELAY>9</BOOT_DELAY></MODEM_INFO>")
    bench.restart()
    assert field(station.read(MODEM_INFO), "BOOT_DELAY") == "9"


def test_production_data_survive_a_reboot_by_ini_file(bench, station):
    station.write(MODEM_INFO, production_data("S2", "M2"))
    service = bench.service_pid()
    starts = bench.starts()
    station.write("config.ini", b"[ProductInfo]\nIniVersion=8.1\n[control]\nreboot=1\n")
    bench.wait_ready(starts + 1)
    assert bench.service_pid() != service
    with Station() as again:
        assert identity(again) == ("S2", "M2")
        # What an INI file sets is part of the factory configuration that it then resets to.
        assert field(again.read(MODEM_INFO), "INI_VERSION") == "8.1"
    bench.wait_journal("reboot")


def test_factory_reset_by_ini_file_keeps_production_data(bench, station):
    station.write(MODEM_INFO, production_data("S3", "M3"))
    bench.set("ProductType", "Description", "changed")
    assert field(station.read(MODEM_INFO), "SOFTWARE_DESC") == "changed"
    station.write("config.ini", b"[ProductInfo]\nIniVersion=8.2\n")
    document = station.read(MODEM_INFO)
    assert field(document, "SOFTWARE_DESC") != "changed"
    assert (field(document, "SERIAL_NUM"), field(document, "INI_VERSION")) == ("S3", "8.2")


def test_ini_file_that_clears_the_reset_keeps_the_configuration(bench, station):
    bench.set("ProductType", "Description", "kept")
    station.write("config.ini", b"[ProductInfo]\nIniVersion=8.3\n[control]\nreset=0\n")
    document = station.read(MODEM_INFO)
    assert (field(document, "SOFTWARE_DESC"), field(document, "INI_VERSION")) == ("kept", "8.3")


def seconds_of_a_write(station):
    start = time.monotonic()
    station.write(MODEM_INFO, production_data("S-", "M-"))
    return time.monotonic() - start


def test_killed_service_leaves_all_or_nothing_of_a_write(bench, station):
    generator = random.Random(9)
    delay = seconds_of_a_write(station)
    before = identity(station)
    seen = set()
    count = 0
    # A dozen kills, and more on a machine that is busy elsewhere, until some came before a commit and some after one.
    while count < 12 or (len(seen) < 2 and count < 100):
        count += 1
        after = (f"S-{count}", f"M-{count}")
        starts = bench.starts()
        with Station() as writer:
            writer.start_write(MODEM_INFO)
            killer = threading.Timer(generator.uniform(0, 2 * delay), bench.kill_service)
            killer.start()
            writer.send(data(1, production_data(*after)))
            killer.join()
        bench.wait_ready(starts + 1)
        with Station() as reader:
            now = identity(reader)
        assert now in (before, after)
        came_late = now == after
        seen.add(came_late)
        delay *= 0.7 if came_late else 1.4  # how long a write takes depends on what else the machine does
        before = now
    assert seen == {True, False}, "the kills came all too early or all too late to mean anything"
