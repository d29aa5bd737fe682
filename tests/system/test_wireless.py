"""The wireless test from the station to the radio and back."""

import re

import pytest

from bench import field, run
from station import TftpError

CONFIGURATION = "FTM_TestModeCfg.xml"


def wireless(ssid=None, channel=None):
    settings = f"<SSID>{ssid}</SSID>" if ssid else ""
    settings += f"<CHANNEL>{channel}</CHANNEL>" if channel else ""
    return f"<TEST_CONFIG><BCOM_WIRELESS>{settings}</BCOM_WIRELESS></TEST_CONFIG>".encode()


def shown(station):
    """What the unit shows of its radio: SSID, channel, country and MAC address."""
    section = re.search(rb"<BCOM_WIRELESS>.*</BCOM_WIRELESS>", station.read(CONFIGURATION), re.DOTALL)[0]
    return tuple(field(section, tag) for tag in ("SSID", "CHANNEL", "DOMAIN", "MAC_ADDR"))


def rows(bench, kind):
    """Texts of the journal's rows of a kind."""
    lines = run("journal", "--unit", str(bench.folder), "--kind", kind).stdout.splitlines()
    return [line.split(kind, 1)[1].strip() for line in lines]


def commands(ssid, channel):
    return ["wlctl down", f"wlctl channel {channel}", "wlctl up", f"wlctl ssid {ssid}"]


def wait_set_up(bench, ssid):
    bench.wait_journal(f"command  wlctl ssid {ssid}")
    bench.wait_journal(f"radio    ssid {ssid}")


def test_radio_is_shown_as_it_is(station):
    assert shown(station) == ("Quorvane", "6", "US", "02:1a:2b:00:00:02")


def test_ssid_and_channel_are_set_and_read_back(bench, station):
    station.write(CONFIGURATION, wireless("bench", 11))
    wait_set_up(bench, "bench")
    assert rows(bench, "command") == commands("bench", 11)
    assert rows(bench, "radio") == ["down", "channel 11", "up", "ssid bench"]
    assert shown(station)[:2] == ("bench", "11")


def test_ssid_alone_keeps_the_channel(bench, station):
    station.write(CONFIGURATION, wireless(ssid="bench"))
    wait_set_up(bench, "bench")
    assert rows(bench, "command") == commands("bench", 6)
    assert shown(station)[:2] == ("bench", "6")


def test_channel_alone_keeps_the_ssid(bench, station):
    station.write(CONFIGURATION, wireless(channel=1))
    wait_set_up(bench, "Quorvane")
    assert rows(bench, "command") == commands("Quorvane", 1)
    assert shown(station)[:2] == ("Quorvane", "1")


def test_of_two_requests_before_the_task_runs_only_the_second_is_applied(bench, station):
    station.write(CONFIGURATION, wireless("first", 1))
    wait_set_up(bench, "first")
    # The task sleeps for two seconds now.
    station.write(CONFIGURATION, wireless("second", 2))
    station.write(CONFIGURATION, wireless("third", 3))
    wait_set_up(bench, "third")
    assert rows(bench, "command") == commands("first", 1) + commands("third", 3)
    assert shown(station)[:2] == ("third", "3")


@pytest.mark.parametrize("settings", [{"channel": 12}, {"channel": "0"}, {"ssid": "s" * 32}, {"ssid": "a", "channel": 99}])
def test_settings_that_no_radio_takes_are_refused(bench, station, settings):
    with pytest.raises(TftpError, match="Test not supported"):
        station.write(CONFIGURATION, wireless(**settings))
    # A request that comes after them finds nothing left of them.
    station.write(CONFIGURATION, wireless("bench", 2))
    wait_set_up(bench, "bench")
    assert rows(bench, "command") == commands("bench", 2)


@pytest.mark.parametrize("fault", ["radio", "radio-version"])
def test_radio_that_is_missing_or_too_new_is_left_alone(bench, station, fault):
    bench.fault(fault)
    station.write(CONFIGURATION, wireless("bench", 3))
    bench.wait_journal("w1 driver adapter not found")
    bench.fault(fault, on=False)
    station.write(CONFIGURATION, wireless("later", 4))
    wait_set_up(bench, "later")
    assert rows(bench, "command") == commands("later", 4)


def test_radio_that_refuses_its_channel_is_set_up_with_what_it_last_told(bench, station):
    assert shown(station)[:2] == ("Quorvane", "6")
    bench.fault("radio-request 29")
    station.write(CONFIGURATION, wireless(ssid="bench"))
    wait_set_up(bench, "bench")
    assert rows(bench, "command") == commands("bench", 6)


def test_radio_that_refuses_to_be_tuned_shows_it_by_reading_back(bench, station):
    station.write(CONFIGURATION, wireless("bench", "6ab"))
    wait_set_up(bench, "bench")
    assert rows(bench, "command") == commands("bench", "6ab")
    assert shown(station)[:2] == ("bench", "6")


def test_task_without_a_session_ends_the_service_which_starts_again(bench, station):
    starts = bench.starts()
    bench.fault("session")
    station.write(CONFIGURATION, wireless("bench", 3))
    bench.wait_journal("crit FATAL: failed to start session")
    bench.fault("session", on=False)
    bench.wait_ready(starts + 1)
    assert shown(station)[:2] == ("Quorvane", "6")
