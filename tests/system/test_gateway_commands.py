"""The commands of the gateway program that handle the unit: what each changes shows on the status screen, in the store's
tables and in what a station reads; and what is refused changes nothing."""

import shlex

import pytest

from bench import FOUR_PORTS, MODEM_INFO, STATISTICS, TEST_MODE_CFG, Bench, Document, run
from station import Station, TftpError

SWITCH = "SwitchStat"


class Unit:
    """A running unit, somebody who handles it, and a station."""

    def __init__(self, bench, station):
        self.bench = bench
        self.station = station

    def do(self, line):
        result = self.bench.gateway(*shlex.split(line))
        assert (result.stdout, result.stderr) == ("", "")

    def shows(self, **expected):
        """Compares lines of the status screen; a "_" in a name is a blank of the label."""
        status = self.bench.status()
        assert {label: status[label.replace("_", " ")] for label in expected} == expected

    def port(self, number):
        """The line of a port without its counts."""
        return self.bench.status()[f"port {number}"].split("  ")[0]

    def cell(self, table, column, row=0):
        return self.bench.cells(table)[row][column]

    def read(self, name, path):
        return Document(self.station.read(name)).text(path)

    def config(self, path):
        return self.read(TEST_MODE_CFG, f"TEST_CONFIG/{path}")

    def statistics(self, path):
        return self.read(STATISTICS, f"FTM_STATS/{path}")

    def four_ports(self, path):
        return self.read(FOUR_PORTS, f"ETHERNET/{path}")


@pytest.fixture
def unit(bench, station):
    return Unit(bench, station)


# Buttons and LEDs.


def test_buttons(unit):
    for word, status, shown in (("press", "pressed", "CLOSED"), ("release", "released", "OPEN")):
        unit.do(f"{word} reset")
        assert unit.bench.status()["buttons"].startswith(f"reset {status}")
        assert unit.config("RESET_SWITCH/RESET_SW_STATUS") == shown
        unit.do(f"{word} wps")
        unit.shows(buttons=f"reset {status}, wps {status}")
        assert unit.config("WPS_SWITCH/WPS_SW_STATUS") == shown
    assert unit.bench.rows("button") == ["reset pressed", "wps pressed", "reset released", "wps released"]


def test_leds_are_listed_by_number_and_name(unit):
    def lit():
        lines = [line.split() for line in unit.bench.gateway("led").stdout.splitlines()]
        assert all(state in ("on", "off") for _, _, state in lines)
        return {(int(number), name) for number, name, state in lines if state == "on"}

    own = {(1, "ePowerGrnLed"), (3, "eDSLGrnLed"), (5, "eInternetGrnLed"), (7, "eWirelessGrnLed"), (12, "eEth0GrnLed")}
    assert lit() == own
    unit.shows(LEDs="driven by the unit", lit=", ".join(name for _, name in sorted(own)))
    unit.station.write(TEST_MODE_CFG, b"<TEST_CONFIG><LED><ALL_LEDS>OFF</ALL_LEDS></LED></TEST_CONFIG>")
    assert lit() == set()
    unit.shows(LEDs="held by the test station", lit="none")


# The line and its circuit.


def test_line(unit):
    def line():
        return (
            unit.bench.status()["DSL line"],
            unit.cell("Xcvr", "State"),
            unit.statistics("DSL/DSL_STATE"),
            unit.statistics("DSL/DSL_SPEED_DOWNSTREAM"),
            unit.config("LED/READY_GREEN_LED"),
            unit.config("LED/READY_RED_LED"),
        )

    up = ("up", "UP", "UP", "8128.000", "ON", "OFF")
    assert line() == up
    unit.do("line down")
    assert line() == ("down", "DOWN", "DOWN", "0.000", "OFF", "OFF")
    unit.do("line train")
    assert line() == ("training", "TRAIN", "TRAIN", "0.000", "OFF", "ON")
    unit.do("line up")
    assert line() == up
    unit.do("line train")
    unit.bench.let_line_train()
    assert line() == up
    assert unit.bench.rows("line") == ["down", "training", "up", "training"]


def test_circuit(unit):
    def circuit():
        attributes = Document(unit.station.read(TEST_MODE_CFG)).attributes("TEST_CONFIG/THROUGHPUT")
        statistics = unit.statistics("ATM/VC_CHAN_NUM/VC_VPI"), unit.statistics("ATM/VC_CHAN_NUM/VC_VCI")
        assert (attributes["VPI"], attributes["VCI"]) == statistics
        assert statistics == (unit.cell("BcmAtm", "Vpi"), unit.cell("BcmAtm", "Vci"))
        return statistics, unit.bench.cells("VccStat")

    unit.do("circuit delete 1.0.35")
    assert circuit() == (("0", "0"), [])
    assert "eInternetGrnLed" not in unit.bench.status()["lit"]
    unit.do("circuit new 1.8.36 02:1a:2b:00:00:09")
    row = {"Interface": "nas0", "Vpi": "8", "Vci": "36", "MacAddr": "02:1a:2b:00:00:09"}
    assert circuit() == (("8", "36"), [row])
    assert "eInternetGrnLed" in unit.bench.status()["lit"]
    assert unit.bench.rows("circuit") == ["deleted 1.0.35", "new 1.8.36 02:1a:2b:00:00:09"]


# USB.


def test_usb(unit):
    def usb():
        return Document(unit.station.read(TEST_MODE_CFG)).texts("TEST_CONFIG/USB")

    unit.shows(USB="none")
    unit.do("usb plug --vendor Acme --model 'Stick 8 GB'")
    unit.shows(USB="Acme Stick 8 GB 1.00")
    shown = usb()
    assert (shown["VENDOR"], shown["MODEL"], shown["REV"], shown["TYPE"]) == ("Acme", "Stick 8 GB", "1.00", "Direct-Access")
    assert unit.config("LED/USB_LED") == "ON"
    # Only the first device is shown to the station.
    unit.do("usb plug --vendor Other --model Drive --rev 9 --type CD-ROM")
    assert usb() == shown
    unit.do("usb unplug")
    unit.shows(USB="none")
    assert set(usb().values()) == {"NA"}
    assert unit.config("LED/USB_LED") == "OFF"
    unit.do("usb plug --vendor Other --model Drive --rev 9 --type CD-ROM")
    assert (usb()["HOST"], usb()["REV"], usb()["TYPE"]) == ("scsi0", "9", "CD-ROM")
    rows = ["plugged Acme Stick 8 GB 1.00", "plugged Other Drive 9", "unplugged", "plugged Other Drive 9"]
    assert unit.bench.rows("usb") == rows


# The switch.


def test_ports(unit):
    for number, led in ((2, "eEth1GrnLed"), (3, "eEth2GrnLed"), (4, "eEth3GrnLed")):
        assert (unit.port(number), unit.four_ports(f"PORT_{number}/ETH_PORT_ACTIVE")) == ("down", "NO")
        unit.do(f"port {number} up")
        assert (unit.port(number), unit.four_ports(f"PORT_{number}/ETH_PORT_ACTIVE")) == ("up, 100 Mbit/s", "YES")
        assert unit.cell(SWITCH, "Link", number - 1) == "up"
        assert led in unit.bench.status()["lit"]
    unit.do("port 1 down")
    assert (unit.port(1), unit.four_ports("PORT_1/ETH_PORT_ACTIVE")) == ("down", "NO")
    assert unit.cell(SWITCH, "RxPackets") == unit.cell(SWITCH, "TxPackets") == unit.cell(SWITCH, "Speed") == "0"
    assert unit.config("LED/ETHER_LED") == "OFF"
    unit.do("port 1 up")
    assert unit.config("LED/ETHER_LED") == "ON"
    assert unit.bench.rows("switch") == [f"port {port} up" for port in (2, 3, 4)] + ["port 1 down", "port 1 up"]


def test_port_speed(unit):
    for megabits in ("10", "1000", "100"):
        unit.do(f"speed 1 {megabits}")
        assert (unit.port(1), unit.cell(SWITCH, "Speed")) == (f"up, {megabits} Mbit/s", megabits)
    # A port that is down has its speed once it comes up.
    unit.do("speed 2 1000")
    assert (unit.port(2), unit.cell(SWITCH, "Speed", 1)) == ("down", "0")
    unit.do("port 2 up")
    assert (unit.port(2), unit.cell(SWITCH, "Speed", 1)) == ("up, 1000 Mbit/s", "1000")


def test_traffic(unit):
    def counts():
        return [
            int(text)
            for text in (
                unit.cell(SWITCH, "RxPackets"),
                unit.four_ports("PORT_1/ETH_IN"),
                unit.statistics("ETHERNET/ETH_IN"),
                unit.statistics("ATM/ATM_OUT"),
            )
        ]

    still = counts()
    assert counts() == still
    unit.do("traffic on")
    unit.shows(traffic="on")
    moving = counts()
    # Counters move with the time, and between two readings lies more than a step of it.
    unit.bench.change("UPDATE traffic SET moved_until_ms = moved_until_ms - 1000")
    assert all(later > now >= before for later, now, before in zip(counts(), moving, still))
    unit.do("traffic off")
    unit.shows(traffic="off")
    stopped = counts()
    assert counts() == stopped
    assert unit.bench.status()["port 1"].endswith(f"received {stopped[0]}, sent {unit.cell(SWITCH, 'TxPackets')}")
    assert unit.bench.rows("switch") == ["traffic on", "traffic off"]


# The radio.


def test_radio(unit):
    unit.shows(radio="on, channel 6, US, 0 stations", SSID="Quorvane")
    unit.do("radio down")
    unit.shows(radio="off, channel 6, US, 0 stations")
    unit.do("radio channel 14")
    unit.shows(radio="off, channel 14, US, 0 stations")
    assert unit.config("BCOM_WIRELESS/CHANNEL") == "14"
    unit.do("radio up")
    unit.do(f"radio ssid '{'s' * 32}'")
    unit.shows(radio="on, channel 14, US, 0 stations", SSID="s" * 32)
    assert unit.config("BCOM_WIRELESS/SSID") == "s" * 32
    assert unit.bench.rows("radio") == ["down", "channel 14", "up", "ssid " + "s" * 32]


def test_stations(unit):
    def stations():
        count = unit.cell("WlanStations", "Stations")
        assert unit.bench.status()["radio"].endswith(f", {count} stations")
        assert unit.statistics("BCOM_WIRELESS/WIRE_STATIONS") == count
        return int(count)

    assert stations() == 0
    unit.do("station join")
    unit.do("station join")
    assert stations() == 2
    unit.do("station leave")
    assert stations() == 1
    unit.do("radio down")
    assert stations() == 0
    assert unit.bench.rows("radio") == ["station joined", "station joined", "station left", "down"]


# The store and the faults.


def test_cells(unit):
    unit.do("set ProductionData SerialNum '47 11'")
    unit.shows(serial="47 11")
    assert unit.cell("ProductionData", "SerialNum") == "47 11"
    assert unit.read(MODEM_INFO, "MODEM_INFO/SERIAL_NUM") == "47 11"
    # A row behind the last one is added.
    unit.do("set WlanStations Stations 7 --row 1")
    assert [row["Stations"] for row in unit.bench.cells("WlanStations")] == ["0", "7"]
    assert unit.bench.rows("write") == ["ProductionData 0 SerialNum=47 11", "WlanStations 1 Stations=7"]
    names = unit.bench.gateway("table").stdout.split()
    assert {"ProductionData", "Xcvr", SWITCH} <= set(names)
    assert all(unit.bench.table(name).startswith("row  position  column") for name in names)


def test_faults(unit):
    unit.shows(faults="none")
    unit.do("fault on table SwitchStat")
    unit.do("fault on commit")
    unit.do("fault on commit")
    assert unit.bench.gateway("fault", "list").stdout.splitlines() == ["commit", "table SwitchStat"]
    assert "faults" not in unit.bench.status()
    with pytest.raises(TftpError, match="Fail to Create Xml File"):
        unit.station.read(FOUR_PORTS)
    with pytest.raises(TftpError, match="Write data failed"):
        unit.station.write(MODEM_INFO, b"<MODEM_INFO><SERIAL_NUM>1</SERIAL_NUM></MODEM_INFO>")
    for name in ("commit", "table SwitchStat", "table SwitchStat"):
        unit.do(f"fault off {name}")
    unit.shows(faults="none")
    assert unit.four_ports("PORT_1/ETH_PORT_ACTIVE") == "YES"


def test_every_fault_of_the_list_can_be_switched_on(unit):
    chosen = {"PATH": "/dev/gpioctrl", "NUMBER": "5", "NAME": "Xcvr", "COLUMN": "SerialNum"}
    forms = [line.split("  ")[0] for line in run("fault", "names").stdout.splitlines()]
    assert len(forms) > 10
    for form in forms:
        words = [chosen.get(word, word) for word in form.split()]
        if words[0] == "refuse":
            words = ["refuse", "/dev/bcmadsl0", "0xc004d003"]
        elif words[0] == "file":
            words[1] = "/proc/scsi/scsi"
        unit.do(f"fault on {' '.join(words)}")
        assert " ".join(words) in unit.bench.gateway("fault", "list").stdout.splitlines()
        unit.do(f"fault off {' '.join(words)}")


# The service and the power.


def test_kill(unit):
    unit.bench.gateway("press", "reset")
    before = unit.bench.last_row()
    unit.do("kill")
    unit.bench.wait_ready(2)
    assert unit.bench.rows("action", before) == ["kill"]
    assert unit.bench.rows("boot", before) == ["normal"]
    assert unit.bench.rows("reboot", before) == []
    unit.bench.wait_output("The service was ended by signal 9 and is started again")
    unit.shows(buttons="reset pressed, wps released")
    assert unit.station.read(MODEM_INFO)


@pytest.mark.parametrize("words, kind", [("reboot", "normal"), ("reboot --safe", "safe boot")])
def test_reboot(unit, words, kind):
    unit.station.write(TEST_MODE_CFG, b"<TEST_CONFIG><LED><ALL_LEDS>OFF</ALL_LEDS></LED></TEST_CONFIG>")
    before = unit.bench.last_row()
    unit.do(words)
    unit.bench.wait_ready(2)
    assert unit.bench.rows("action", before) == [words]
    assert unit.bench.rows("reboot", before) == unit.bench.rows("boot", before) == [kind]
    unit.bench.wait_output("The unit reboots")
    unit.shows(LEDs="driven by the unit")
    assert unit.station.read(MODEM_INFO)
    # The boot after that is a normal one again.
    unit.do("reboot")
    unit.bench.wait_ready(3)
    assert unit.bench.rows("boot", before) == [kind, "normal"]


def test_actions_are_journalled_before_what_they_do(unit):
    before = unit.bench.last_row()
    run("radio", "ssid", "--unit", str(unit.bench.folder), "--", "-a b")
    unit.do("set ProductionData SerialNum 4711 --row 0")
    rows = [line.split(maxsplit=4)[3:] for line in unit.bench.journal() if int(line.split()[0]) > before]
    assert rows == [
        ["action", 'radio ssid -- "-a b"'],
        ["radio", "ssid -a b"],
        ["action", "set ProductionData SerialNum 4711 --row 0"],
        ["write", "ProductionData 0 SerialNum=4711"],
    ]


# What is refused.

REFUSED = [
    "",
    "sideways",
    "press",
    "press power",
    "press reset wps",
    "release power",
    "led 3",
    "line",
    "line sideways",
    "circuit new 1.8 02:1a:2b:00:00:01",
    "circuit new 2.8.36 02:1a:2b:00:00:01",
    "circuit new 1.256.36 02:1a:2b:00:00:01",
    "circuit new 1.8.65536 02:1a:2b:00:00:01",
    "circuit new 1.8.36",
    "circuit delete 1.9.9",
    "circuit delete x",
    "usb",
    "usb plug --vendor A",
    "usb plug --model B",
    "usb unplug A",
    "port 0 up",
    "port 6 up",
    "port -1 up",
    "port one up",
    "port 2 sideways",
    "port 2",
    "speed 1 50",
    "speed 1 -10",
    "speed 6 100",
    "speed 1",
    "traffic",
    "traffic maybe",
    "radio",
    "radio channel 3",  # it is on
    "radio channel x",
    f"radio ssid {'s' * 33}",
    "station leave",  # there is none
    "set Nothing SerialNum 1",
    "set ProductionData Nothing 1",
    "set ProductionData SerialNum 1 --row -1",
    "set ProductionData SerialNum 1 --row 10000",
    "set ProductionData SerialNum",
    "table Nothing",
    "fault on",
    "fault on nothing",
    "fault on table",
    "fault on table Nothing",
    "fault on open /dev/nothing",
    "fault on request /dev/gpioctrl five",
    "fault on refuse /dev/gpioctrl 5",
    "fault on file /etc/passwd",
    "fault on field Nothing",
    "fault off nothing",
    "kill",  # no service runs
    "reboot",
    "reboot --safe",
    "journal --after x",
    "wait row",
]


@pytest.fixture(scope="module")
def untouched(tmp_path_factory):
    """A unit that doesn't run, and that all refusals share: none of them changes it."""
    bench = Bench(tmp_path_factory.mktemp("unit") / "unit")
    bench.start().stop()
    return bench


def refuse(bench, line):
    """Runs a command that has to be refused with a message, and change nothing."""
    before = bench.state()
    result = bench.gateway(*shlex.split(line), check=False)
    assert result.returncode != 0
    assert result.stdout + result.stderr
    assert bench.state() == before


@pytest.mark.parametrize("line", REFUSED)
def test_refused_command_says_so_and_changes_nothing(untouched, line):
    refuse(untouched, line)


@pytest.mark.parametrize("line", ["radio channel 0", "radio channel 15", "radio channel -1", "radio ssid name", "station join"])
def test_refused_command_of_a_radio_that_is_off_says_so_and_changes_nothing(untouched, line):
    untouched.gateway("radio", "down")
    refuse(untouched, line)
    untouched.gateway("radio", "up")


@pytest.mark.parametrize("line", ["status", "led", "press reset", "line up", "traffic on", "journal", "output", "fault list"])
def test_command_needs_a_unit_and_makes_none(stopped, line):
    result = stopped.gateway(*line.split(), check=False)
    assert result.returncode != 0
    assert "no unit" in result.stderr
    assert not stopped.folder.exists()


def test_what_the_service_prints_is_shown(bench):
    printed = bench.gateway("output").stdout.splitlines()
    assert "ready" in printed
    assert printed == (bench.folder / "output.log").read_text().splitlines()[: len(printed)]


def test_status_shows_boot_mode_image_and_active_tests(unit):
    unit.shows(boot="normal, ready", boot_mode="0xffff, FTM mode 0xffff", image="FTM 01.05.06", tests="none")
    unit.station.write(TEST_MODE_CFG, b"<TEST_CONFIG><LED><ALL_LEDS>OFF</ALL_LEDS></LED></TEST_CONFIG>")
    unit.shows(tests="LED")
    unit.bench.change("UPDATE flash SET next_boot = 'safe boot'")
    unit.shows(next_boot="safe boot")
    unit.bench.stop()
    unit.shows(tests="none")


def test_texts_of_the_unit_stay_on_their_line_of_the_status_screen(bench):
    bench.set("ProductionData", "SerialNum", "\x1b[31m\nboot")
    assert bench.status()["serial"] == r"\x1b[31m\nboot"


def test_second_supervisor_leaves_the_unit_alone(bench):
    result = bench.gateway("up", check=False)
    assert (result.returncode, result.stdout) == (1, f"The unit in {bench.folder} runs already\n")
    with Station() as station:
        assert station.read(MODEM_INFO)
