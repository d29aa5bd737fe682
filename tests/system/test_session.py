"""A station's whole session with a unit, with a real client: from the first read to the reboot into safe boot. What
each step makes the unit do is compared row by row with the journal."""

import subprocess

import pytest

from bench import MODEM_INFO, STATISTICS, TEST_MODE_CFG, TEST_MODE_OP, Document
from clients import CLIENTS, HOST

GPIO = "/dev/gpioctrl"
ADSL = "/dev/bcmadsl0"
FLASH = "/dev/flshmgmt"
READ, WRITE, ENTER, EXIT, ALL_OFF, ALL_ON = 4, 5, 6, 7, 11, 12
STOP, START = "0x4004d004", "0xc004d003"
PREPARE_SAFEBOOT, REBOOT, GET_VERSION = 31, 7, 40

# Elements of the configuration file that can be written, and their points.
LEDS = {"READY_GREEN_LED": 3, "READY_RED_LED": 4, "ETHER_LED": 12, "USB_LED": 8, "WPS_LED": 42}
MAC = "02:1a:2b:00:00:01"


def drive(point, data, request=WRITE):
    """The two requests of each setting: the driver enters test mode every time."""
    record = f"point={point} data={data}"
    return [f"{GPIO} {ENTER} {record}", f"{GPIO} {request} {record}" if request == WRITE else f"{GPIO} {request}"]


class Session:
    def __init__(self, bench, folder):
        self.bench = bench
        self.client = CLIENTS["tftp-hpa"]
        self.file = folder / "station.xml"

    def read(self, name):
        result = self.client.read(name, self.file)
        assert "Error" not in result.stdout, result
        return Document(self.file.read_bytes())

    def config(self):
        return self.read(TEST_MODE_CFG)

    def leds(self):
        leds = self.config().texts("TEST_CONFIG/LED")
        return {name: leds[name] for name in ("SESSION_LED", *LEDS)}

    def active_tests(self):
        return self.read(TEST_MODE_OP).names("ACTIVE_TEST")

    def write(self, name, text):
        """Writes a document that has to be accepted. Returns the driver requests that this made."""
        before = self.mark()
        self.file.write_text(text)
        result = self.client.write(name, self.file)
        assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
        return self.requests(before)

    def refused(self, name, text):
        """Writes a document that has to be refused. Returns the text of the ERROR packet."""
        self.file.write_text(text)
        result = self.client.write(name, self.file)
        head, separator, error = result.stdout.partition("Error code 0: ")
        assert separator and not head, result
        return error.strip()

    def mark(self):
        """Number of a row of the journal, behind those of all that has been done so far: the service writes its rows
        a little later, those of this read last."""
        before = self.bench.last_row()
        self.read(MODEM_INFO)
        self.bench.wait_rows("request", f"{FLASH} {GET_VERSION}", before)
        return self.bench.last_row()

    def requests(self, after):
        """The driver requests since a row of the journal, without those of the reads that mark it."""
        self.mark()
        return [row for row in self.bench.rows("request", after) if not row.startswith(FLASH)]

    def operate(self, text):
        return self.write(TEST_MODE_OP, text)

    def configure(self, text):
        return self.write(TEST_MODE_CFG, f"<TEST_CONFIG>{text}</TEST_CONFIG>")

    def refused_operation(self, text):
        return self.refused(TEST_MODE_OP, text)

    def refused_configuration(self, text):
        return self.refused(TEST_MODE_CFG, f"<TEST_CONFIG>{text}</TEST_CONFIG>")


@pytest.fixture
def session(bench, tmp_path):
    return Session(bench, tmp_path)


def led(name, text):
    return f"<LED><{name}>{text}</{name}></LED>"


def read_what_is_supported(session):
    document = session.read(TEST_MODE_OP)
    assert document.names("SUPPORTED_TESTS") == ["LED", "THROUGHPUT", "RESET_SWITCH", "BCOM_WIRELESS"]
    assert document.names("ACTIVE_TEST") == []
    assert session.config().text("TEST_CONFIG/AUTO_PAIR/AUTO_MODE") == "AUTO"
    # Outside the tests the unit drives its LEDs: power, the line that is up, and a cable in the first port.
    assert session.leds() == dict.fromkeys(LEDS, "OFF") | {
        "SESSION_LED": "ON",
        "READY_GREEN_LED": "ON",
        "ETHER_LED": "ON",
    }
    assert session.refused_operation("<ENTER_TEST><MULTI_HYBRID/></ENTER_TEST>") == "Test not supported"
    assert session.refused_operation("<ENTER_TEST><led/></ENTER_TEST>") == "Test not supported"
    assert session.refused_operation("<ENTER_TEST/>") == "No Command Found"
    assert session.refused_operation("<STATUS/>") == "No Command Found"
    assert session.refused_operation("no document") == "Fail to Create Xml Data Obj"
    assert session.refused(TEST_MODE_CFG, "<TEST/>") == "Xml File InValid"
    assert session.refused(STATISTICS, "<FTM_STATS/>") == "File Not Supported"
    assert session.active_tests() == []


def light_the_leds(session):
    assert session.operate("<ENTER_TEST><LED/></ENTER_TEST>") == drive(100, 0, ALL_OFF)
    assert session.active_tests() == ["LED"]
    dark = dict.fromkeys(("SESSION_LED", *LEDS), "OFF")
    assert session.leds() == dark
    for name, point in LEDS.items():
        assert session.configure(led(name, "ON")) == drive(point, 1)
        assert session.leds() == dark | {name: "ON"}
        assert session.configure(led(name, "OFF")) == drive(point, 0)
    assert session.configure(led("ALL_LEDS", "ON")) == drive(100, 1, ALL_ON)
    assert session.leds() == dict.fromkeys(dark, "ON")
    # What was written to all LEDs is not what a read shows of them.
    assert session.config().text("TEST_CONFIG/LED/ALL_LEDS") == "OFF"
    assert session.configure(led("ALL_LEDS", "OFF")) == drive(100, 0, ALL_OFF)
    assert session.leds() == dark
    assert session.configure('<LED><SINGLE_LED NUM="5" MODE="ON"/></LED>') == drive(5, 1)
    assert session.bench.status()["lit"] == "eInternetGrnLed"
    assert session.config().attributes("TEST_CONFIG/LED/SINGLE_LED") == {"NUM": "5", "MODE": "ON"}
    # Points above those of the board are taken whatever the mode says, and drive nothing.
    assert session.configure('<LED><SINGLE_LED NUM="80" MODE="BLINK"/></LED>') == []

    assert session.refused_configuration(led("SESSION_LED", "ON")) == "Write test config failed"
    assert session.refused_configuration(led("READY_GREEN_LED", "on")) == "Test not supported"
    assert session.refused_configuration(led("ALL_LEDS", "BLINK")) == "Test not supported"
    assert session.refused_configuration(led("POWER_LED", "ON")) == "Test not supported"
    assert session.refused_configuration('<LED><SINGLE_LED NUM="10" MODE="BLINK"/></LED>') == "Test not supported"
    assert session.refused_configuration('<LED><SINGLE_LED NUM="300" MODE="ON"/></LED>') == "Test not supported"
    assert session.bench.status()["lit"] == "eInternetGrnLed"

    session.bench.fault(f"open {GPIO}")
    assert session.refused_configuration(led("WPS_LED", "ON")) == "Write data failed"
    document = session.config()
    assert set(session.leds().values()) == {"ON"}
    assert document.text("TEST_CONFIG/RESET_SWITCH/RESET_SW_STATUS") == "CLOSED"
    session.bench.fault(f"open {GPIO}", on=False)


def press_the_reset_button(session):
    def button():
        return session.config().text("TEST_CONFIG/RESET_SWITCH/RESET_SW_STATUS")

    assert session.operate("<ENTER_TEST><RESET_SWITCH/></ENTER_TEST>") == [f"{GPIO} {ENTER} point=0 data=0"]
    assert button() == "OPEN"
    session.bench.gateway("press", "reset")
    assert button() == "CLOSED"
    assert session.config().text("TEST_CONFIG/WPS_SWITCH/WPS_SW_STATUS") == "OPEN"
    session.bench.gateway("release", "reset")
    assert button() == "OPEN"
    write = "<RESET_SWITCH><RESET_SW_STATUS>CLOSED</RESET_SW_STATUS></RESET_SWITCH>"
    assert session.refused_configuration(write) == "Test not supported"
    assert session.active_tests() == ["LED", "RESET_SWITCH"]


def move_the_circuit(session):
    def shown():
        document = session.config()
        return document.attributes("TEST_CONFIG/THROUGHPUT"), document.text("TEST_CONFIG/THROUGHPUT/READY_STATUS")

    def in_store():
        circuit, atm = session.bench.cells("VccStat"), session.bench.cells("BcmAtm")
        return [(row["Interface"], row["Vpi"], row["Vci"]) for row in circuit], (atm[0]["Vpi"], atm[0]["Vci"])

    assert shown() == ({"VPI": "0", "VCI": "35"}, "NOT_READY")
    assert in_store() == ([("nas0", "0", "35")], ("0", "35"))
    read_only = '<THROUGHPUT VPI="8" VCI="36"><READY_STATUS>READY</READY_STATUS></THROUGHPUT>'
    assert session.refused_configuration(read_only) == "Write test config failed"
    # The same in the operation file leaves the test entered, and the next commands are looked for.
    assert session.refused_operation(f"<ENTER_TEST>{read_only}</ENTER_TEST>") == "No Command Found"
    assert session.active_tests() == ["LED", "RESET_SWITCH", "THROUGH_PUT"]
    assert in_store() == ([("nas0", "0", "35")], ("0", "35"))

    before = session.bench.last_row()
    assert session.operate('<ENTER_TEST><THROUGHPUT VPI="8" VCI="36"/></ENTER_TEST>') == []
    assert session.bench.rows("command", before) == [
        "/etc/init.d/DelOrgVpiVci.sh 1.0.35",
        f"/etc/init.d/NewVpiVci.sh 1.8.36 {MAC}",
    ]
    assert session.bench.rows("circuit", before) == ["deleted 1.0.35", f"new 1.8.36 {MAC}"]
    assert session.bench.rows("action", before) == []  # the unit did it itself
    assert in_store() == ([("nas0", "8", "36")], ("8", "36"))
    assert shown() == ({"VPI": "8", "VCI": "36"}, "READY")
    statistics = session.read(STATISTICS)
    assert statistics.texts("FTM_STATS/ATM/VC_CHAN_NUM") == {"VC_VPI": "8", "VC_VCI": "36"}
    assert statistics.text("FTM_STATS/DSL/READY_STATUS") == "READY"

    session.bench.fault("session")
    move = '<ENTER_TEST><THROUGHPUT VPI="0" VCI="32"/></ENTER_TEST>'
    assert session.refused_operation(move) == "Write data failed"
    session.bench.fault("session", on=False)
    # A store that can't be read does not keep the circuit from being made.
    assert in_store() == ([("nas0", "0", "32")], ("0", "32"))
    session.configure('<THROUGHPUT VPI="8" VCI="36"/>')
    assert in_store() == ([("nas0", "8", "36")], ("8", "36"))


def switch_the_pair(session):
    for text, data, outputs in (("OUTER", 1, "eDSLPair"), ("INNER", 0, "none"), ("OUTER", 1, "eDSLPair")):
        assert session.configure(f"<AUTO_PAIR><AUTO_MODE>{text}</AUTO_MODE></AUTO_PAIR>") == drive(41, data)
        assert session.bench.status()["outputs"] == outputs
        assert session.config().text("TEST_CONFIG/AUTO_PAIR/AUTO_MODE") == text
    for text in ("AUTO", "outer"):
        refused = f"<AUTO_PAIR><AUTO_MODE>{text}</AUTO_MODE></AUTO_PAIR>"
        assert session.refused_configuration(refused) == "Test not supported"
    speed = "<ETHER_PORT><ETHER_PORT_SPD>100</ETHER_PORT_SPD></ETHER_PORT>"
    assert session.refused_configuration(speed) == "Write test config failed"
    assert session.bench.status()["outputs"] == "eDSLPair"


def drive_the_relays(session):
    def voip(*children):
        return "<VOIP>" + "".join(f"<{name}>{text}</{name}>" for name, text in children) + "</VOIP>"

    assert session.operate(f"<ENTER_TEST>{voip(('CUT_RELAY_1', 'Enable'))}</ENTER_TEST>") == drive(22, 1)
    assert session.bench.status()["relays"] == "eVoiceRly1"
    both = voip(("CUT_RELAY_1", "Disable"), ("CUT_RELAY_2", "Enable"))
    assert session.configure(both) == drive(22, 0) + drive(23, 1)
    assert session.bench.status()["relays"] == "eVoiceRly2"
    assert session.configure(voip(("CUT_RELAY_2", "Disable"))) == drive(23, 0)
    assert session.bench.status()["relays"] == "none"
    assert session.refused_configuration(voip(("CUT_RELAY_1", "enable"))) == "Test not supported"
    assert session.refused_configuration(voip(("HOOK_1", "on"))) == "Test not supported"
    assert session.refused_configuration(voip(("RING_VOLTAGE_1", "60v"))) == "Test not supported"
    # Without a line driver ring voltages fail; what the record holds from before is the text.
    assert session.refused_configuration(voip(("RING_VOLTAGE_1", "50v"))) == "Test not supported"
    # The last child's result wins.
    assert session.configure(voip(("RING_VOLTAGE_1", "50v"), ("CUT_RELAY_1", "Disable"))) == drive(22, 0)


def read_the_usb_stick(session):
    usb = "TEST_CONFIG/USB"
    assert set(session.config().texts(usb).values()) == {"NA"}
    session.bench.gateway("usb", "plug", "--vendor", "Acme", "--model", "Stick 8 GB", "--rev", "2.10")
    assert session.config().texts(usb) == {
        "HOST": "scsi0",
        "CHANNEL": "00",
        "ID": "00",
        "LUN": "00",
        "VENDOR": "Acme",
        "MODEL": "Stick 8 GB",
        "REV": "2.10",
        "TYPE": "Direct-Access",
        "ANSI_SCSI_REV": "02",
    }
    assert session.refused_configuration("<USB><VENDOR>Other</VENDOR></USB>") == "Test not supported"
    session.bench.gateway("usb", "unplug")
    assert set(session.config().texts(usb).values()) == {"NA"}


def leave_all_tests(session):
    assert session.active_tests() == ["LED", "RESET_SWITCH", "THROUGH_PUT", "AUTO_PAIR", "VOIP"]
    assert session.operate("<EXIT_TEST/>") == [f"{GPIO} {EXIT} point=100 data=99"]
    assert session.active_tests() == []
    assert session.bench.status()["LEDs"] == "driven by the unit"
    document = session.config()
    assert document.text("TEST_CONFIG/AUTO_PAIR/AUTO_MODE") == "AUTO"
    assert document.text("TEST_CONFIG/THROUGHPUT/READY_STATUS") == "NOT_READY"
    assert session.leds()["READY_GREEN_LED"] == "ON"


def resynchronise(session):
    def line():
        dsl = session.read(STATISTICS).texts("FTM_STATS/DSL")
        leds = session.leds()
        return (
            dsl["DSL_STATE"],
            dsl["DSL_SPEED_DOWNSTREAM"],
            dsl["DSL_SPEED_UPSTREAM"],
            leds["READY_GREEN_LED"],
            leds["READY_RED_LED"],
            session.bench.status()["DSL line"],
            session.bench.cells("Xcvr")[0]["State"],
        )

    up = ("UP", "8128.000", "896.000", "ON", "OFF", "up", "UP")
    assert line() == up
    session.bench.fault(f"open {ADSL}")
    assert session.refused_operation("<RESYNC/>") == "Write data failed"
    session.bench.fault(f"open {ADSL}", on=False)
    session.bench.fault(f"refuse {ADSL} {STOP}")
    assert session.refused_operation("<RESYNC/>") == "Write data failed"
    session.bench.fault(f"refuse {ADSL} {STOP}", on=False)
    assert line() == up

    assert session.operate("<RESYNC/>") == [f"{ADSL} {STOP} status=0", f"{ADSL} {START} status=0"]
    assert line() == ("TRAIN", "0.000", "0.000", "OFF", "ON", "training", "TRAIN")
    session.bench.let_line_train()
    assert line() == up


def reboot_into_safe_boot(session):
    session.operate("<ENTER_TEST><LED/></ENTER_TEST>")
    before, starts = session.mark(), session.bench.starts()
    session.file.write_text("<REBOOT_TO_SAFEBOOT/>")
    # The write is never acknowledged: the unit is gone before.
    command = ["tftp", "-4", "-m", "binary", HOST, "-c", "put", str(session.file), TEST_MODE_OP]
    with subprocess.Popen(command, stdout=subprocess.PIPE) as client:
        session.bench.wait_ready(starts + 1)
        client.terminate()
    assert session.bench.rows("request", before) == [f"{FLASH} {PREPARE_SAFEBOOT}", f"{FLASH} {REBOOT}"]
    assert session.bench.rows("reboot", before) == ["safe boot"]
    assert session.bench.rows("boot", before) == ["safe boot"]
    assert session.bench.status()["boot"] == "safe boot, ready"
    assert session.active_tests() == []
    assert session.bench.status()["LEDs"] == "driven by the unit"
    assert session.config().attributes("TEST_CONFIG/THROUGHPUT") == {"VPI": "8", "VCI": "36"}


def test_whole_session(session):
    read_what_is_supported(session)
    light_the_leds(session)
    press_the_reset_button(session)
    move_the_circuit(session)
    switch_the_pair(session)
    drive_the_relays(session)
    read_the_usb_stick(session)
    leave_all_tests(session)
    resynchronise(session)
    reboot_into_safe_boot(session)


@pytest.mark.parametrize("attributes", ['VPI="{}" VCI="1"', 'VPI="1" VCI="{}"'], ids=["VPI", "VCI"])
def test_shell_characters_of_a_circuit_reach_the_shell_as_written(session, attributes):
    written = "1;gateway press wps;: $(gateway release wps) "
    before = session.bench.last_row()
    session.configure(f"<THROUGHPUT {attributes.format(written)}/>")
    assert written in session.bench.rows("command", before)[-1]
    assert session.bench.rows("button", before) == ["wps pressed", "wps released"]


def test_shell_characters_of_the_mac_address_reach_the_shell_as_stored(session):
    session.write(MODEM_INFO, "<MODEM_INFO><MAC_ADDR>;gateway radio up and more</MAC_ADDR></MODEM_INFO>")
    before = session.bench.last_row()
    session.configure('<THROUGHPUT VPI="8" VCI="36"/>')
    # Cut to the length of a MAC address.
    assert session.bench.rows("command", before)[-1] == "/etc/init.d/NewVpiVci.sh 1.8.36 ;gateway radio up"
    assert session.bench.rows("radio", before) == ["up"]
