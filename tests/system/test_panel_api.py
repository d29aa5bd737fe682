"""The panel's HTTP calls, served by `gateway up` as it is."""

import contextlib
import os
import resource
import signal
import socket
import subprocess

import pytest

from bench import GATEWAY, wait_until
from panel import ANY_PORT, Panel, wait_panel
from station import Station

SECTIONS = {
    "unit", "leds", "testMode", "buttons", "relays", "outputs", "line", "ports", "traffic", "radio", "usb", "faults",
    "wire", "journal", "output", "transfers",
}  # fmt: skip
PAGES = 16
FEW_DESCRIPTORS = 256


@pytest.fixture
def unit(stopped):
    return stopped.start(panel=ANY_PORT)


@pytest.fixture
def panel(unit):
    return Panel(wait_panel(unit))


def change_of(section):
    return lambda name, data: name == "change" and section in data


def phase_is(phase):
    return lambda name, data: name in ("state", "change") and data.get("unit", {}).get("phase") == phase


# The state.


def test_the_state_holds_the_whole_unit(panel, unit):
    state = panel.state()
    assert set(state) == SECTIONS
    about = state["unit"]
    assert about["folder"] == str(unit.folder)
    assert (about["model"], about["serial"], about["mac"]) == ("M77-210010-04", "1234", "02:1a:2b:00:00:01")
    assert (about["phase"], about["boot"], about["boots"], about["lastEnd"]) == ("up", "normal", 1, "")
    assert [row["kind"] for row in state["journal"]][:2] == ["boot", "log"]
    assert "ready" in state["output"]
    assert state["wire"] == {"loss": 0, "duplicate": 0, "delay": 0, "jitter": 0, "seed": 1}


def test_the_page_and_the_calls_tell_browsers_to_run_nothing_foreign(panel):
    for path in ["/", "/api/state", "/nothing"]:
        with contextlib.closing(panel._connect()) as connection:
            connection.request("GET", path)
            headers = connection.getresponse().headers
        assert headers["Content-Security-Policy"].startswith("default-src 'self'")
        assert headers["X-Content-Type-Options"] == "nosniff"
        assert headers["Cache-Control"] == "no-store"


def test_the_stores_tables_and_the_faults_are_listed(panel, unit):
    unit.set_row("LedTable", 1, "Power", "on")
    assert "ProductionData" in panel.get("/api/tables")
    table = panel.get("/api/tables/LedTable")
    assert table["name"] == "LedTable"
    assert table["rows"][1][table["columns"].index("Power")] == "on"
    assert [fault["effect"] for fault in panel.get("/api/faults") if fault["form"] == "commit"] != []
    assert panel.call("GET", "/api/tables/NoTable")[0] == 404


def test_the_journal_is_given_in_pages(panel, unit):
    everything = [row["id"] for row in panel.get("/api/journal?limit=1000")["rows"]]
    last = panel.get("/api/journal?limit=2")
    assert [row["id"] for row in last["rows"]] == everything[-2:] and last["more"]
    before = panel.get(f"/api/journal?limit=2&before={everything[-2]}")
    assert [row["id"] for row in before["rows"]] == everything[-4:-2]
    first = panel.get("/api/journal?limit=2&after=0")
    assert [row["id"] for row in first["rows"]] == everything[:2] and first["more"]
    assert [row["text"] for row in panel.get("/api/journal?kind=log&text=ftm+started")["rows"]] == ["info FTM Started\n"]


# Actions and events.


def test_an_action_is_done_and_told_to_the_page(panel, unit):
    with panel.events() as events:
        name, state = events.next()
        assert name == "state" and set(state) == SECTIONS
        assert panel.action("press", "reset") == (200, {})
        change = events.wait(change_of("buttons"), "change of the buttons")
        assert change["buttons"] == [{"name": "reset", "pressed": True}, {"name": "wps", "pressed": False}]
        rows = events.wait(lambda name, data: name == "journal", "journal rows")
        assert ("action", "press reset") in [(row["kind"], row["text"]) for row in rows]
    assert unit.status()["buttons"] == "reset pressed, wps released"


ACTIONS = [
    (["press", "wps"], "buttons"),
    (["release", "wps"], "buttons"),
    (["line", "down"], "line"),
    (["line", "train"], "line"),
    (["line", "up"], "line"),
    (["usb", "plug", "--vendor", "V", "--model", "M"], "usb"),
    (["usb", "unplug"], "usb"),
    (["port", "2", "up"], "ports"),
    (["port", "2", "down"], "ports"),
    (["speed", "1", "1000"], "ports"),
    (["traffic", "on"], "traffic"),
    (["traffic", "off"], "traffic"),
    (["radio", "ssid", "--", "-Bench 4-"], "radio"),
    (["radio", "down"], "radio"),
    (["radio", "channel", "11"], "radio"),
    (["radio", "up"], "radio"),
    (["station", "join"], "radio"),
    (["station", "leave"], "radio"),
    (["set", "ProductionData", "SerialNum", "4711"], "unit"),
    (["fault", "on", "table", "Xcvr"], "faults"),
    (["fault", "off", "table", "Xcvr"], "faults"),
    (["circuit", "delete", "1.0.35"], "line"),
    (["circuit", "new", "1.8.48", "02:1a:2b:00:00:01"], "line"),
    (["wire", "loss", "5"], "wire"),
    (["wire", "duplicate", "5"], "wire"),
    (["wire", "delay", "3", "--jitter", "2"], "wire"),
    (["wire", "seed", "7"], "wire"),
    (["wire", "clear"], "wire"),
]


def test_every_action_does_by_http_what_its_command_does(panel, tmp_path):
    """The same actions on a second unit by command lead to the same state."""
    twin = tmp_path / "twin"
    subprocess.run([GATEWAY, "up", "--no-panel", "--unit", twin, "--service", "/bin/false"], check=False, timeout=60,
                   capture_output=True)  # fmt: skip
    process = subprocess.Popen([GATEWAY, "panel", "--unit", twin, "--address", ANY_PORT], stdout=subprocess.PIPE, text=True)
    try:
        other = Panel(int(process.stdout.readline().rpartition(":")[2].rstrip("/\n")))
        for words, section in ACTIONS:
            before = panel.state()[section]
            assert panel.action(*words) == (200, {}), words
            subprocess.run([GATEWAY, *words], check=True, timeout=60, env=os.environ | {"GATEWAY_UNIT": str(twin)})
            mine, theirs = panel.state()[section], other.state()[section]
            if section == "unit":
                mine, theirs = mine["serial"], theirs["serial"]
            if words[0] != "traffic" and "ports" not in section:
                assert mine == theirs, words
            assert mine != before or section == "ports", words
        texts = [row["text"] for row in panel.get("/api/journal?kind=action")["rows"]]
        assert len(texts) == len(ACTIONS)
        assert texts == [row["text"] for row in other.get("/api/journal?kind=action")["rows"]]
    finally:
        process.kill()
        process.wait()


REFUSED = [
    ('{"words":["press","nothing"]}', 400),
    ('{"words":["journal"]}', 400),
    ('{"words":["up"]}', 400),
    ('{"words":[]}', 400),
    ('{"words":["radio","channel","3"]}', 409),
    ('{"words":["press",7]}', 400),
    ('{"words":"press"}', 400),
    ('{"words":["radio","ssid","\\u2603"]}', 400),
    ('{"words":', 400),
    ("[" * 60000, 400),
    ('{"words":' + "[" * 60000, 400),
    ("\xff\xfe\x00", 400),
    ("", 400),
]


def test_what_is_no_action_or_is_refused_changes_nothing(panel, unit):
    before = unit.state()
    for body, status in REFUSED:
        answer = panel.call("POST", "/api/action", body.encode("latin-1"), {"Content-Type": "application/json"})
        assert answer[0] == status and answer[1]["error"], body[:80]
        assert unit.state() == before, body[:80]


def test_bytes_of_all_kinds_come_out_as_characters(panel, unit):
    unit.change("UPDATE ProductionData SET SerialNum = CAST(x'ff80e29883' AS TEXT)")
    assert panel.state()["unit"]["serial"] == "\xff\x80\xe2\x98\x83"
    assert panel.action("set", "ProductionData", "SerialNum", "\xff\x80") == (200, {})
    assert panel.get("/api/tables/ProductionData")["rows"][0][1] == "\xff\x80"


# The unit's life.


def test_a_reboot_and_a_kill_are_seen_on_their_way(panel, unit):
    with panel.events() as events:
        assert events.next()[1]["unit"]["phase"] == "up"
        assert panel.action("kill") == (200, {})
        dark = events.wait(phase_is("dark"), "dark unit")
        assert dark["unit"]["lastEnd"] == "signal 9"
        events.wait(phase_is("up"), "unit that is up")
        assert panel.action("reboot", "--safe") == (200, {})
        up = events.wait(
            lambda name, data: phase_is("up")(name, data) and data["unit"]["boot"] == "safe boot", "unit after a safe boot"
        )
        assert (up["unit"]["lastEnd"], up["unit"]["boots"]) == ("reboot", 3)


def test_transfers_and_what_the_service_prints_are_told(panel, unit):
    with panel.events() as events, Station() as station:
        events.next()
        station.read("FTM_ModemInfo.xml")
        done = events.wait(
            lambda name, data: name == "transfers" and data[-1]["outcome"] == "done", "transfer that is done"
        )[-1]
        assert (done["file"], done["write"]) == ("FTM_ModemInfo.xml", False)
        assert done["bytes"] > 0 and done["blocks"] > 0 and done["end"] >= done["start"]
        panel.action("kill")
        events.wait(lambda name, data: name == "output" and "ready" in data, "line of output")
    assert panel.state()["transfers"][-1] == done


def test_the_unit_goes_on_without_its_panel_and_gets_it_back(panel, unit):
    service = unit.service_pid()
    os.kill(unit.panel_pid(), signal.SIGKILL)
    unit.wait_output("The panel was ended by signal 9 and is started again")
    again = Panel(wait_panel(unit, times=2))
    assert again.phase() == "up"
    assert unit.service_pid() == service and unit.starts() == 1


def test_the_panel_ends_with_its_supervisor(panel, unit):
    process = unit.panel_pid()
    unit.process.kill()
    unit.wait_end()
    wait_until(lambda: not os.path.exists(f"/proc/{process}"), "end of the panel")


def test_a_unit_whose_port_is_taken_runs_without_a_panel(stopped):
    with socket.create_server(("127.0.0.1", 0)) as taken:
        stopped.start(panel=f"127.0.0.1:{taken.getsockname()[1]}")
        stopped.wait_output("The unit runs on without its panel")
        assert any("can't be served" in line and "in use" in line for line in stopped.output)
        assert stopped.service_pid() > 0


def test_another_address_than_loopback_is_said_aloud(stopped):
    stopped.start(panel="0.0.0.0:0")
    panel = Panel(wait_panel(stopped))
    stopped.wait_output("Whoever reaches this address can work the unit")
    assert panel.call("GET", "/api/faults", headers={"Host": "192.0.2.1"})[0] == 200
    assert panel.call("GET", "/api/faults", headers={"Host": "attacker.example"})[0] == 403


def test_a_panel_shows_a_unit_that_comes_stops_and_goes(stopped, tmp_path):
    process = subprocess.Popen([GATEWAY, "panel", "--unit", stopped.folder, "--address", ANY_PORT], stdout=subprocess.PIPE,
                               text=True)  # fmt: skip
    try:
        panel = Panel(int(process.stdout.readline().rpartition(":")[2].rstrip("/\n")))
        status, state = panel.call("GET", "/api/state")
        assert (status, state["unit"]["phase"]) == (503, "off")
        assert panel.action("press", "reset")[0] == 503
        with panel.events() as events:
            assert events.next()[1]["unit"]["phase"] == "off"
            stopped.start()
            events.wait(phase_is("up"), "unit that is up")
            stopped.stop()
            events.wait(phase_is("off"), "unit that is off")
            assert panel.call("GET", "/api/state")[0] == 200
            for file in stopped.folder.glob("unit.db*"):
                file.unlink()
            events.wait(lambda name, data: "unit" in data and "model" not in data["unit"], "unit that is gone")
            assert panel.call("GET", "/api/state")[0] == 503
            stopped.start()
            events.wait(phase_is("up"), "new unit")
            assert panel.state()["unit"]["boots"] == 1
    finally:
        process.kill()
        process.wait()


# Who may ask, and how often.


FOREIGN = [
    {"Origin": "http://attacker.example"},
    {"Origin": "null"},
    {"Origin": "https://127.0.0.1"},
    {"Sec-Fetch-Site": "cross-site"},
    {"Sec-Fetch-Site": "same-site"},
    {"Host": "attacker.example"},
    {"Host": "127.0.0.1.attacker.example"},
    {"Host": "192.0.2.1"},
    {"Host": ""},
]


def test_a_foreign_page_is_refused_and_changes_nothing(panel, unit):
    before = unit.state()
    for headers in FOREIGN:
        assert panel.action("press", "reset", **headers)[0] == 403, headers
        assert panel.call("GET", "/api/state", headers=headers)[0] == 403, headers
    assert unit.state() == before


def test_a_form_of_a_foreign_page_is_no_action(panel, unit):
    before = unit.state()
    for kind in ["text/plain", "application/x-www-form-urlencoded", "multipart/form-data; boundary=x"]:
        assert panel.call("POST", "/api/action", '{"words":["press","reset"]}', {"Content-Type": kind})[0] == 415
    assert unit.state() == before


def test_the_panels_own_page_is_served_under_each_of_its_names(panel):
    for host in [f"127.0.0.1:{panel.port}", f"localhost:{panel.port}", "LOCALHOST", "[::1]:80"]:
        headers = {"Host": host, "Origin": f"http://{host.lower()}", "Sec-Fetch-Site": "same-origin"}
        assert panel.action("release", "reset", **headers) == (200, {}), host


def test_hostile_requests_leave_the_panel_as_it_was(panel, unit):
    host = b"Host: 127.0.0.1\r\n"
    post = b"POST /api/action HTTP/1.1\r\n" + host + b"Content-Type: application/json\r\n"
    action = b'{"words":["press","reset"]}'
    chunks = b"10000\r\n" + action.ljust(0x10000) + b"\r\n" + 40 * (b"10000\r\n" + b" " * 0x10000 + b"\r\n")
    for content, answer in [
        (post + b"Content-Length: 1000000\r\n\r\n" + action.ljust(1_000_000), None),
        (post + b"Transfer-Encoding: chunked\r\n\r\n" + chunks + b"0\r\n\r\n", None),
        (post + b"Content-Length: 10\r\n\r\n", None),
        (post + b"Content-Length: -1\r\n\r\n{}", None),
        (b"GET /../../../etc/passwd HTTP/1.1\r\n" + host + b"\r\n", b" 404 "),
        (b"GET /%2e%2e/%2e%2e/etc/passwd HTTP/1.1\r\n" + host + b"\r\n", b" 404 "),
        (b"GET /" + b"a" * 8000 + b" HTTP/1.1\r\n" + host + b"\r\n", b" 404 "),
        (b"GET /" + b"a" * 9000 + b" HTTP/1.1\r\n" + host + b"\r\n", b" 414 "),
        (b"GET /api/tables/" + b"%00" * 100 + b" HTTP/1.1\r\n" + host + b"\r\n", b" 404 "),
        (b"GET / HTTP/1.1\r\n" + host + host + b"\r\n", b" 403 "),
        (b"GET /api/state HTTP/1.1\r\n" + host + b"Origin: http://127.0.0.1\r\nOrigin: null\r\n\r\n", b" 403 "),
        (b"GET /api/state HTTP/1.1\r\n" + host + 2 * b"Sec-Fetch-Site: none\r\n" + b"\r\n", b" 403 "),
        (b"GET / HTTP/1.1\r\n" + host + b"Range: bytes=" + b"0-," * 2500 + b"0-\r\n\r\n", None),
        (b"GET /api/journal?limit=1e9 HTTP/1.1\r\n" + host + b"\r\n", b" 400 "),
        (b"GET /api/journal?limit=0 HTTP/1.1\r\n" + host + b"\r\n", b" 400 "),
        (b"GET /api/journal?before=x HTTP/1.1\r\n" + host + b"\r\n", b" 400 "),
        (b"GET /api/journal?text=%e2%98%83 HTTP/1.1\r\n" + host + b"\r\n", b" 400 "),
        (b"PUT /api/action HTTP/1.1\r\n" + host + b"Content-Length: 2\r\n\r\n{}", b" 405 "),
        (b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", None),
        (b"\x00\xff\r\n\r\n", None),
        (b"\r\n" * 1000, None),
    ]:
        received = panel.raw(content)
        assert answer is None or answer in received.partition(b"\r\n")[0], (content[:80], received[:200])
    state = panel.state()
    assert state["unit"]["phase"] == "up" and not state["buttons"][0]["pressed"]
    assert sum("The panel is at" in line for line in unit.output) == 1  # it is still the one that was started


def test_more_pages_than_there_may_be_are_refused_and_the_others_served(panel):
    with contextlib.ExitStack() as stack:
        pages = [stack.enter_context(panel.events()) for _ in range(PAGES)]
        assert all(page.next()[0] == "state" for page in pages)
        with panel.events() as another:
            assert another.status == 503
        assert panel.action("press", "wps") == (200, {})
        for page in pages:
            page.wait(change_of("buttons"), "change of the buttons")
        pages[0].close()
        def is_served():
            with panel.events() as page:
                return page.status == 200
        wait_until(is_served, "place for another page")


def test_idle_connections_keep_nobody_out_for_long(panel):
    with contextlib.ExitStack() as stack:
        for _ in range(40):  # more than are answered at a time
            stack.enter_context(socket.create_connection(("127.0.0.1", panel.port), timeout=60))
        assert panel.phase() == "up"


def test_a_flood_of_connections_keeps_the_unit_in_sight(panel, unit):
    """However many there are, the panel has descriptors left to look at the unit with."""
    process = unit.panel_pid()
    _, most = resource.prlimit(process, resource.RLIMIT_NOFILE)
    resource.prlimit(process, resource.RLIMIT_NOFILE, (FEW_DESCRIPTORS, most))
    with panel.events() as events, contextlib.ExitStack() as stack:
        assert events.next()[1]["unit"]["phase"] == "up"
        for _ in range(FEW_DESCRIPTORS + 20):
            connection = stack.enter_context(socket.socket())
            connection.setblocking(False)
            connection.connect_ex(("127.0.0.1", panel.port))
        for _ in range(3):
            name, data = events.next()
            while name != "alive":
                assert "unit" not in data, data
                name, data = events.next()
        assert unit.gateway("press", "reset").returncode == 0
        events.wait(change_of("buttons"), "change of the buttons")
    wait_until(lambda: panel.phase() == "up", "answers again")
