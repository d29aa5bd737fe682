"""Makes the pictures of the panel for the documents: screenshots.py FOLDER UNIT, with GATEWAY in the environment. The
unit's folder is seen in the pictures."""

import sys
import time
from pathlib import Path

from bench import MODEM_INFO, PROGRESS, STATISTICS, TEST_MODE_CFG, TEST_MODE_OP, FOUR_PORTS, Bench
from browser import Page, Panel
from station import RRQ, WRQ, Station, TftpError, ack, data, request

WIDTH, HEIGHT, SCALE = 1760, 960, 1.25
PACE = 0.15  # seconds between two transfers


def enter_tests(station):
    """The scene: a station tests the LEDs and the radio, and has put something into each part of the board."""
    for test in ("LED", "BCOM_WIRELESS"):
        station.write(TEST_MODE_OP, f"<ENTER_TEST><{test}/></ENTER_TEST>".encode())
    leds = "".join(f'<SINGLE_LED NUM="{number}" MODE="ON"></SINGLE_LED>' for number in (1, 3, 4, 6, 7, 8, 12, 14, 42))
    station.write(TEST_MODE_CFG, f"<TEST_CONFIG><LED>{leds}</LED></TEST_CONFIG>".encode())
    station.write(TEST_MODE_CFG, b"<TEST_CONFIG><VOIP><CUT_RELAY_1>Enable</CUT_RELAY_1></VOIP></TEST_CONFIG>")


def equip(bench):
    bench.gateway("usb", "plug", "--vendor", "Acme", "--model", "Stick 8 GB")
    bench.gateway("station", "join")
    bench.gateway("speed", "3", "1000")
    bench.gateway("port", "3", "up")
    bench.gateway("traffic", "on")


def work(station, serial):
    """What a station does with each unit."""
    for name in (MODEM_INFO, TEST_MODE_CFG, STATISTICS, FOUR_PORTS, PROGRESS):
        station.read(name)
        time.sleep(PACE)
    station.write(MODEM_INFO, f"<MODEM_INFO><SERIAL_NUM>{serial}</SERIAL_NUM></MODEM_INFO>".encode())
    time.sleep(PACE)
    station.write(TEST_MODE_CFG, b"<TEST_CONFIG><LED><WPS_LED>ON</WPS_LED></LED></TEST_CONFIG>")
    time.sleep(PACE)


def work_all_day(bench, station):
    """The first units are at a good wire, the others at a slow one."""
    for serial in range(4711, 4714):
        work(station, serial)
    bench.gateway("wire", "delay", "20", "--jitter", "15")
    for serial in range(4714, 4717):
        work(station, serial)
    bench.gateway("wire", "clear")
    for name in ("FTM_Statistics2.xml", "setup.txt"):
        try:
            station.read(name)
        except TftpError:
            pass


def fail(bench, station):
    bench.fault("commit")
    try:
        station.write(MODEM_INFO, b"<MODEM_INFO><SERIAL_NUM>0</SERIAL_NUM></MODEM_INFO>")
    except TftpError:
        pass


def slow_image(station):
    """A firmware image that is on its way."""
    station.send(request(WRQ, "release.upg"))
    station.expect_ack(0)
    for block in range(1, 10):
        station.send(data(block, bytes(512)))
        station.expect_ack(block)


def settle():
    time.sleep(1.5)  # for what moves to come to rest; nothing is compared


def take(page, path):
    settle()
    page.browser.save_screenshot(str(path))


def take_all(bench, folder):
    with Station() as station:
        equip(bench)
        enter_tests(station)
        work_all_day(bench, station)
        fail(bench, station)
        panel = Panel(bench.folder).start()
        page = Page()
        try:
            page.resize(WIDTH, HEIGHT, SCALE)
            page.prefer("light")
            page.open()
            take(page, folder / "panel.png")
            page.prefer("dark")
            bench.gateway("line", "train")
            bench.gateway("press", "reset")
            take(page, folder / "dark.png")
            page.prefer("light")
            page.tab("transfers")
            page.resize(1440, 1500, 1.5)
            slow_image(station)
            settle()
            page.find(".records").screenshot(str(folder / "transfers.png"))
        finally:
            page.close()
            panel.stop()


def main():
    folder = Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    bench = Bench(Path(sys.argv[2]))
    try:
        take_all(bench.start(), folder)
    finally:
        bench.stop()


main()
