"""SSID and channel: written over TFTP, applied by the wireless task with the radio's own program, read back through
its driver. The task looks for a request every two seconds, so these tests wait for rows of the journal."""

import pytest

from bench import TEST_MODE_CFG, Document
from clients import CLIENTS
from station import TftpError

FACTORY = {"SSID": "Quorvane", "CHANNEL": "6", "MAC_ADDR": "02:1a:2b:00:00:02", "DOMAIN": "US"}
MISSING = "warning w1 driver adapter not found"
OTHER_VERSION = "notice Version mimatch, please upgrade"


def wireless(**settings):
    children = "".join(f"<{name}>{text}</{name}>" for name, text in settings.items())
    return f"<TEST_CONFIG><BCOM_WIRELESS>{children}</BCOM_WIRELESS></TEST_CONFIG>".encode()


def commands(ssid, channel):
    return ["wlctl down", f"wlctl channel {channel}", "wlctl up", f"wlctl ssid {ssid}"]


class Radio:
    def __init__(self, bench, station):
        self.bench = bench
        self.station = station

    def write(self, **settings):
        self.station.write(TEST_MODE_CFG, wireless(**settings))

    def shown(self):
        """What a station reads."""
        return Document(self.station.read(TEST_MODE_CFG)).texts("TEST_CONFIG/BCOM_WIRELESS")

    def is_tuned(self, ssid, channel):
        """Whether the radio itself has these settings, and a station reads them."""
        status = self.bench.status()
        assert (status["SSID"], status["radio"]) == (ssid, f"on, channel {channel}, US, 0 stations")
        return self.shown() == FACTORY | {"SSID": ssid, "CHANNEL": channel}

    def wait_printed(self, ssid, channel):
        """Waits for the end of a round of the task that took a request: it prints the request then."""
        self.bench.wait_output(f"stWlFtm.cSSIDinFtm ={ssid}")
        self.bench.wait_output(f"stWlFtm.cChannelFtm ={channel}")

    def applied(self, ssid, channel, after=0):
        """Waits until the task has set both, and returns the commands that it ran for that."""
        self.bench.wait_rows("radio", f"ssid {ssid}", after)
        self.wait_printed(ssid, channel)
        return self.bench.rows("command", after)


@pytest.fixture
def radio(bench, station):
    return Radio(bench, station)


REFUSED = [{"CHANNEL": "0"}, {"CHANNEL": "12"}, {"CHANNEL": "x"}, {"SSID": "s" * 32}, {"SSID": "a", "CHANNEL": "99"}]


def test_radio_as_it_left_the_factory(radio):
    assert radio.is_tuned("Quorvane", "6")


@pytest.mark.parametrize("client", ["tftp-hpa", "curl"])
def test_ssid_and_channel_written_by_a_client(radio, client, tmp_path):
    document = tmp_path / "radio.xml"
    document.write_bytes(wireless(CHANNEL="11", SSID="Line4"))
    result = CLIENTS[client].write(TEST_MODE_CFG, document)
    assert result.returncode == 0, result
    assert radio.applied("Line4", "11") == commands("Line4", "11")
    assert radio.bench.rows("radio") == ["down", "channel 11", "up", "ssid Line4"]
    assert radio.is_tuned("Line4", "11")


def test_channel_alone_keeps_the_ssid(radio):
    radio.write(CHANNEL="1")
    assert radio.applied("Quorvane", "1") == commands("Quorvane", "1")
    assert radio.is_tuned("Quorvane", "1")


def test_ssid_alone_keeps_the_channel(radio):
    radio.bench.gateway("radio", "down")
    radio.bench.gateway("radio", "channel", "9")
    radio.bench.gateway("radio", "up")
    radio.write(SSID="Line5")
    assert radio.applied("Line5", "9") == commands("Line5", "9")
    assert radio.is_tuned("Line5", "9")


def test_longest_ssid(radio):
    ssid = "s" * 31
    radio.write(SSID=ssid)
    assert radio.applied(ssid, "6") == commands(ssid, "6")
    assert radio.is_tuned(ssid, "6")


def test_second_request_takes_the_place_of_the_first(radio):
    radio.write(SSID="awake", CHANNEL="2")
    radio.applied("awake", "2")
    # The task sleeps for two seconds now, and both requests come before its next round.
    before = radio.bench.last_row()
    radio.write(SSID="first", CHANNEL="3")
    radio.write(CHANNEL="4")
    # Nothing of the first request is left: the SSID is the radio's own.
    assert radio.applied("awake", "4", before) == commands("awake", "4")
    assert radio.is_tuned("awake", "4")
    assert "first" not in "".join(radio.bench.rows("command"))


def test_refused_request_takes_the_one_before_with_it(radio):
    radio.write(SSID="awake", CHANNEL="2")
    radio.applied("awake", "2")
    before = radio.bench.last_row()
    radio.write(SSID="first", CHANNEL="3")
    with pytest.raises(TftpError, match="ERROR 0: Test not supported"):
        radio.write(SSID="second", CHANNEL="12")
    radio.write(CHANNEL="5")
    assert radio.applied("awake", "5", before) == commands("awake", "5")
    assert radio.is_tuned("awake", "5")


def test_refused_values_change_nothing(radio):
    for settings in REFUSED:
        with pytest.raises(TftpError, match="ERROR 0: Test not supported"):
            radio.write(**settings)
    radio.write(CHANNEL="7")
    assert radio.applied("Quorvane", "7") == commands("Quorvane", "7")
    assert radio.is_tuned("Quorvane", "7")


@pytest.mark.parametrize("fault", ["radio", "radio-magic", "radio-version", "radio-request 0", "radio-request 1"])
def test_radio_that_is_missing_foreign_or_of_another_version_is_left_alone(radio, fault):
    before = radio.shown()
    radio.bench.fault(fault)
    radio.write(SSID="Line6", CHANNEL="3")
    radio.wait_printed("Line6", "3")
    radio.bench.wait_rows("log", MISSING)
    assert radio.bench.rows("command") == radio.bench.rows("radio") == []
    assert any(OTHER_VERSION in row for row in radio.bench.rows("log")) == (fault == "radio-version")
    # A station reads what the radio last said.
    assert radio.shown() == before
    radio.bench.fault(fault, on=False)
    assert radio.is_tuned("Quorvane", "6")


@pytest.mark.parametrize(
    "command, settings, applied",
    [
        ("25", {"CHANNEL": "3"}, ("Quorvane", "3")),
        ("29", {"SSID": "Line7"}, ("Line7", "6")),
    ],
    ids=["SSID", "channel"],
)
def test_setting_that_the_driver_does_not_tell_is_the_one_last_read(radio, command, settings, applied):
    assert radio.is_tuned("Quorvane", "6")
    radio.bench.fault(f"radio-request {command}")
    radio.write(**settings)
    assert radio.applied(*applied) == commands(*applied)
    radio.bench.wait_rows("log", f"err wl0:ioctl call failed,cmd={command} errno = 5")
    radio.bench.fault(f"radio-request {command}", on=False)
    assert radio.is_tuned(*applied)


def test_channel_that_the_radio_refuses_shows_when_it_is_read_back(radio):
    radio.write(SSID="Line7", CHANNEL="11a")
    assert radio.applied("Line7", "11a") == commands("Line7", "11a")
    assert radio.is_tuned("Line7", "6")


def test_interface_that_has_no_name_is_no_radio(radio):
    radio.bench.set_row("ProductInterfaces", 2, "NickName", "Other")
    radio.write(SSID="Line8", CHANNEL="3")
    radio.wait_printed("Line8", "3")
    radio.bench.wait_rows("log", MISSING)
    assert radio.bench.rows("command") == []


def test_unreadable_wireless_configuration_skips_the_setup_without_a_word(radio):
    radio.bench.fault("table WlanConfig")
    radio.write(SSID="Line9", CHANNEL="3")
    radio.wait_printed("Line9", "3")
    assert radio.is_tuned("Quorvane", "6")
    assert radio.bench.rows("command") == []


def test_commands_that_can_not_be_run_change_nothing_and_are_reported_to_nobody(radio):
    radio.bench.fault("spawn")
    radio.write(SSID="Line10", CHANNEL="3")
    radio.wait_printed("Line10", "3")
    radio.bench.wait_rows("command", "wlctl ssid Line10")
    assert radio.bench.rows("command") == commands("Line10", "3")
    assert radio.is_tuned("Quorvane", "6")


def test_store_without_sessions_ends_the_service(radio):
    starts = radio.bench.starts()
    radio.bench.fault("session")
    radio.write(CHANNEL="3")
    radio.bench.wait_output("status 255")
    radio.bench.fault("session", on=False)
    radio.bench.wait_ready(starts + 1)
    radio.bench.wait_rows("log", "crit FATAL: failed to start session")


def test_shell_characters_reach_the_shell_as_written(radio):
    radio.write(SSID="a;gateway press wps")
    radio.bench.wait_rows("button", "wps pressed")
    assert radio.bench.rows("command")[-1] == "wlctl ssid a;gateway press wps"
    assert radio.bench.status()["SSID"] == "a"


def test_shell_characters_of_the_radios_own_ssid_reach_the_shell_too(radio):
    radio.bench.gateway("radio", "ssid", "$(gateway press wps)")
    radio.write(CHANNEL="3")
    radio.bench.wait_rows("button", "wps pressed")
    assert radio.bench.rows("command")[-1] == "wlctl ssid $(gateway press wps)"
