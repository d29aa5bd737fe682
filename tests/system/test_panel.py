"""The panel's page in a real browser: the unit shows on it as the station changes it, and what is done on it reaches
the unit and the wire."""

import pytest
from selenium.webdriver.common.keys import Keys

from bench import FOUR_PORTS, MODEM_INFO, TEST_MODE_CFG, TEST_MODE_OP, Document, field, wait_until
from browser import LIMIT, URL, Page, Panel
from station import RRQ, Station, TftpError, ack, request

LAMPS = ["Power", "DSL", "Internet", "Wireless", "USB", "Voice1", "Voice2", "Eth0", "Eth1", "Eth2", "Eth3", "EC"]
HOSTILE = "<img src=x onerror=alert(1)>"


@pytest.fixture(scope="module")
def browser():
    page = Page()
    yield page
    page.close()


@pytest.fixture
def panel(bench):
    """The panel of a running unit. It has nothing to say but where it is."""
    panel = Panel(bench.folder).start()
    yield panel
    assert panel.stop() == ""


@pytest.fixture
def page(panel, browser):
    """The page of a running unit. It asks nobody but the panel for anything, and the browser has no complaints."""
    browser.open()
    yield browser
    complaints = browser.complaints()
    requests = browser.requests()
    browser.browser.get("about:blank")
    assert complaints == []
    assert requests and [url for url in requests if not url.startswith(URL)] == []


@pytest.fixture
def patient():
    """A station that waits as long as a slow machine needs."""
    with Station(timeout=LIMIT) as station:
        yield station


def enter(station, test):
    station.write(TEST_MODE_OP, f"<ENTER_TEST><{test}/></ENTER_TEST>".encode())


def set_leds(station, **leds):
    elements = "".join(f"<{name}>{value}</{name}>" for name, value in leds.items())
    station.write(TEST_MODE_CFG, f"<TEST_CONFIG><LED>{elements}</LED></TEST_CONFIG>".encode())


def reset_button(station):
    return Document(station.read(TEST_MODE_CFG)).text("TEST_CONFIG/RESET_SWITCH/RESET_SW_STATUS")


def forgive_lost_connection(page):
    """Takes what the browser says of requests when a server is gone; returns the rest."""
    return [text for text in page.complaints() if "Failed to load resource: net::ERR_" not in text]


def test_lamps_show_the_unit_itself(page):
    page.wait(lambda: page.lamp("Power") == "green", "a green power lamp")
    shown = {name: page.lamp(name) for name in LAMPS}
    lit = {"Power", "DSL", "Internet", "Wireless", "Eth0"}
    assert shown == {name: "green" if name in lit else "off" for name in LAMPS}
    assert page.text("#held") is None


def test_led_test_over_the_wire_changes_the_drawing(page, patient):
    enter(patient, "LED")
    page.wait(lambda: all(page.lamp(name) == "off" for name in LAMPS), "dark lamps")
    page.wait_text("#held", "held by the test station")
    set_leds(patient, READY_RED_LED="ON")
    page.wait(lambda: page.lamp("DSL") == "red", "a red DSL lamp")
    assert page.text('[data-lamp="DSL"] .lamp-word') == "red"
    set_leds(patient, READY_GREEN_LED="ON")
    page.wait(lambda: page.lamp("DSL") == "both", "both colours of the DSL lamp")
    patient.write(TEST_MODE_OP, b"<EXIT_TEST/>")
    page.wait(lambda: page.text("#held") is None, "LEDs that are not held")
    page.wait(lambda: page.lamp("DSL") == "green", "a green DSL lamp")


def test_active_tests_are_shown(page, patient):
    assert page.texts("#active-tests li") == ["none"]
    enter(patient, "RESET_SWITCH")
    page.wait(lambda: page.texts("#active-tests li") == ["RESET_SWITCH"], "the active test")
    patient.write(TEST_MODE_OP, b"<EXIT_TEST/>")
    page.wait(lambda: page.texts("#active-tests li") == ["none"], "no active test")


def test_reset_button_is_closed_while_it_is_held_down(page, patient):
    button = page.find('#back [data-button="reset"]')
    page.actions().click_and_hold(button).perform()
    page.wait(lambda: page.attribute('#back [data-button="reset"]', "aria-pressed") == "true", "a pressed button")
    assert reset_button(patient) == "CLOSED"
    page.actions().release().perform()
    page.wait(lambda: page.attribute('#back [data-button="reset"]', "aria-pressed") == "false", "a released button")
    assert reset_button(patient) == "OPEN"


def test_reset_button_works_by_keyboard(page, patient):
    page.run("""document.querySelector('#back [data-button="reset"]').focus()""")
    page.actions().key_down(Keys.SPACE).perform()
    wait_until(lambda: reset_button(patient) == "CLOSED", "a closed button", LIMIT)
    page.actions().key_up(Keys.SPACE).perform()
    wait_until(lambda: reset_button(patient) == "OPEN", "an open button", LIMIT)


def test_button_can_be_held_by_a_switch(page, patient):
    page.click('[aria-label="Hold Reset down"]')
    page.wait(lambda: page.attribute('[aria-label="Hold Reset down"]', "aria-checked") == "true", "a held button")
    assert reset_button(patient) == "CLOSED"
    page.click('[aria-label="Hold Reset down"]')
    wait_until(lambda: reset_button(patient) == "OPEN", "an open button", LIMIT)


def test_port_is_unplugged_on_the_page_and_plugged_in_behind_it(page, bench, patient):
    active = lambda: Document(patient.read(FOUR_PORTS)).text("ETHERNET/PORT_1/ETH_PORT_ACTIVE")
    page.click('[data-socket="port-1"]')
    page.wait_text('[data-socket="port-1"] .socket-word', "no link")
    page.wait(lambda: page.lamp("Eth0") == "off", "a dark lamp of the port")
    assert active() == "NO"
    bench.gateway("port", "1", "up")
    page.wait_text('[data-socket="port-1"] .socket-word', "100 Mbit/s")
    page.wait(lambda: page.lamp("Eth0") == "green", "a green lamp of the port")
    assert active() == "YES"


def test_line_trains_and_comes_up(page, bench):
    page.click('[data-socket="line"]')
    page.wait_text('[data-socket="line"] .socket-word', "down")
    page.wait(lambda: page.lamp("DSL") == "off", "a dark DSL lamp")
    page.click('[data-line="train"]')
    page.wait_text('[data-socket="line"] .socket-word', "training")
    page.wait(lambda: page.lamp("DSL") == "red", "a red DSL lamp")
    bench.let_line_train()
    page.wait_text('[data-socket="line"] .socket-word', "up")


def test_fault_is_switched_on_and_makes_the_wire_err(page, patient):
    faults = page.card("Faults")
    page.wait(lambda: page.texts(f"{faults} option[value=commit]"), "the faults that there are")
    page.choose(f"{faults} select", "commit")
    page.button("Faults", "Switch on").click()
    page.wait_text("#faults", "commit")
    document = b"<MODEM_INFO><SERIAL_NUM>4711</SERIAL_NUM></MODEM_INFO>"
    with pytest.raises(TftpError, match="Write data failed"):
        patient.write(MODEM_INFO, document)
    page.click("#faults button")
    page.wait(lambda: page.texts("#faults li") == [], "no fault")
    patient.write(MODEM_INFO, document)
    page.wait_text("#identity", "4711")


def test_what_is_refused_is_said(page):
    faults = page.card("Faults")
    page.wait(lambda: page.texts(f"{faults} option[value=commit]"), "the faults that there are")
    page.choose(f"{faults} select", "open PATH")
    page.fill(f"{faults} input[name=PATH]", "/dev/nothing")
    page.button("Faults", "Switch on").click()
    page.wait_text("#toasts", "no such fault: open /dev/nothing")
    assert page.texts("#faults li") == []
    # The refusal is an answer of the panel, which the browser tells too.
    complaints = page.complaints()
    assert complaints and all("/api/action" in text for text in complaints)


def test_killed_service_is_seen_dark_and_comes_up_again(page, bench, patient):
    page.record_phases()
    page.button("Service", "Kill service").click()
    page.wait(lambda: "dark" in page.phases() and page.phase() == "up", "a dark unit that came up again")
    page.wait_text("#boot-steps", "(signal 9)")
    page.wait_text(page.card("Service"), "signal 9")
    assert patient.read(MODEM_INFO)


def test_reboot_over_the_wire_is_seen_as_a_reboot(page, bench, patient):
    starts = bench.starts()
    page.record_phases()
    patient.start_write(TEST_MODE_OP)
    patient.send(b"\0\3\0\1<REBOOT/>")
    bench.wait_ready(starts + 1)
    steps = lambda: [step.split()[0] for step in page.texts("#boot-steps li")]
    page.wait(lambda: steps() == ["dark", "booting", "up"], "all steps of a reboot")
    assert "(reboot)" in page.text("#boot-steps") and "(normal)" in page.text("#boot-steps")
    page.wait_phase("up")
    assert set(page.phases()) <= {"dark", "booting", "up"}


def test_safe_boot_is_seen_as_safe_boot(page, bench):
    page.button("Service", "Safe boot").click()
    page.wait_text("#banner", "safe-boot image")
    page.wait_text("#boot-steps", "(safe boot)")
    page.button("Service", "Reboot").click()
    page.wait(lambda: page.text("#banner") is None, "no banner")
    page.wait_text("#boot-steps", "(normal)")


def test_unit_that_is_off_is_said_to_be_off_until_it_is_on(page, bench):
    bench.stop()
    page.wait_phase("off")
    page.wait_text("#banner", "The unit is off")
    bench.start()
    page.wait_phase("up")
    assert page.text("#banner") is None


def test_unit_that_is_gone_is_said_to_be_gone_until_there_is_another(page, bench):
    bench.stop()
    page.wait_phase("off")
    for file in bench.folder.glob("unit.db*"):
        file.unlink()
    page.wait_phase("gone")
    page.wait_text("#banner", "No unit can be read")
    assert page.run("return document.querySelector('#controls').inert")
    bench.start()
    page.wait_phase("up")
    assert page.text("#banner") is None
    assert not page.run("return document.querySelector('#controls').inert")


def test_panel_that_is_gone_is_said_to_be_gone_until_it_is_back(page, panel, bench):
    panel.stop()
    page.wait_phase("lost")
    page.wait_text("#banner", "out of reach")
    assert page.run("return document.querySelector('.unit').inert")
    bench.set("ProductionData", "SerialNum", "5000")
    panel.start()
    page.wait_phase("up")
    page.wait_text("#identity", "5000")
    assert page.text("#banner") is None
    assert not page.run("return document.querySelector('.unit').inert")
    assert forgive_lost_connection(page) == []


def test_panel_that_says_nothing_is_taken_for_gone(page, panel):
    panel.halt()
    try:
        page.wait_phase("lost")
    finally:
        panel.go_on()
    page.wait_phase("up")
    assert forgive_lost_connection(page) == []


def test_cell_of_a_table_is_edited_and_followed(page, bench, patient):
    page.tab("tables")
    page.wait(lambda: "ProductionData" in page.texts("#table-name option"), "the tables")
    page.choose("#table-name", "ProductionData")
    cell = '[data-column="SerialNum"] input'
    page.wait(lambda: page.value(cell) == "1234", "the cell")
    page.fill(cell, "-4712" + Keys.ENTER)
    page.wait_text("#identity", "-4712")
    assert field(patient.read(MODEM_INFO), "SERIAL_NUM") == "-4712"
    patient.write(MODEM_INFO, b"<MODEM_INFO><MODEL_NUM>M2</MODEL_NUM></MODEM_INFO>")
    page.wait(lambda: page.value('[data-column="ModelNum"] input') == "M2", "the station's value")


def test_journal_of_10000_rows_is_filtered_and_scrolled(page, bench):
    rows = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10000)"
    bench.change(f"INSERT INTO journal (time_ms, kind, text) {rows} SELECT i, 'log', 'row ' || i || '.' FROM n")
    shown = lambda: page.texts("#journal .journal-row .text")
    page.wait(lambda: shown()[-1:] == ["row 10000."], "the newest row")
    assert len(shown()) < 200
    page.fill("#journal input", "ROW 77.")
    page.wait(lambda: shown() == ["row 77."], "the row that is looked for")
    page.fill("#journal input", "row ")
    # From here to the first one by the wheel alone.
    list_of_rows = "document.querySelector('.journal-list')"
    page.wait(lambda: shown()[-1:] == ["row 10000."], "all rows")
    page.wait(lambda: page.run(f"{list_of_rows}.scrollTop = 0") or shown()[:1] == ["row 1."], "the oldest row")
    assert len(shown()) < 200
    bench.gateway("line", "down")
    page.fill("#journal input", "")
    page.choose("#journal select", "line")
    page.wait(lambda: shown()[-1:] == ["down"], "the rows of a kind")
    bench.gateway("line", "up")
    page.wait(lambda: shown()[-1:] == ["up"], "a new row")


def test_what_the_unit_holds_is_shown_as_text(page, bench, patient):
    bench.gateway("radio", "ssid", HOSTILE)
    bench.gateway("usb", "plug", "--vendor", "<b>", "--model", "<i>x</i>")
    serial = b"&lt;script&gt;alert(1)&lt;/script&gt;"
    patient.write(MODEM_INFO, b"<MODEM_INFO><SERIAL_NUM>%s</SERIAL_NUM></MODEM_INFO>" % serial)
    with pytest.raises(TftpError):
        patient.read("<svg onload=alert(1)>")
    page.wait(lambda: page.value("#ssid") == HOSTILE, "the name of the network")
    page.wait_text(page.card("USB"), "<b> <i>x</i>")
    page.wait_text("#identity", "<script>alert(1)</script>")
    page.wait_text("#journal .rows", HOSTILE)
    page.tab("transfers")
    page.wait_text(".transfer-table", "<svg onload=alert(1)>")
    assert page.run("return document.querySelectorAll('img, b, i:not(.squares i), main script').length") == 0
    assert page.run("return document.querySelectorAll('[onload], [onerror]').length") == 0


def test_transfer_is_seen_block_by_block(page, patient):
    page.tab("transfers")
    patient.send(request(RRQ, MODEM_INFO))
    patient.expect_data(1)
    page.wait(lambda: page.attribute(".transfer-table tbody tr", "data-outcome") == "running", "a transfer under way")
    assert page.text(".transfer-table tbody tr .file") == MODEM_INFO
    patient.send(ack(1))
    patient.finish_read(2)
    page.wait(lambda: page.attribute(".transfer-table tbody tr", "data-outcome") == "done", "the end of the transfer")
    assert int(page.text(".transfer-table tbody tr .blocks")) >= 2
    page.wait(lambda: page.texts(".chart .mark.read"), "the transfer in the chart")


def test_wire_is_set_and_cleared(page, patient):
    wire = page.card("Wire")
    page.fill(f"{wire} [aria-label^=Loss]", "100" + Keys.ENTER)
    clear = lambda: page.run("return document.querySelector(arguments[0]).disabled", f"{wire} header button")
    page.wait(lambda: not clear(), "a wire that loses")
    page.button("Wire", "Clear").click()
    page.wait(lambda: page.value(f"{wire} [aria-label^=Loss]") == "0", "a wire that loses nothing")
    assert patient.read(MODEM_INFO)


def test_field_shows_in_the_end_what_the_unit_holds(page, bench):
    loss = f"{page.card('Wire')} [aria-label^=Loss]"
    page.fill(loss, "00" + Keys.ENTER)
    assert page.value(loss) == "00"
    bench.wait_rows("action", "wire loss 00")
    page.wait(lambda: page.value(loss) == "0", "the number as the unit has it")


def test_text_typed_while_another_is_on_its_way_is_taken_over_after_it(page, bench):
    loss = f"{page.card('Wire')} [aria-label^=Loss]"
    page.run("""const fetchNow = window.fetch;
                const released = new Promise((resolve) => (window.release = resolve));
                window.fetch = async (...request) => { await released; return fetchNow(...request); }""")
    page.fill(loss, "11" + Keys.ENTER)
    page.fill(loss, "12" + Keys.ENTER)
    page.run("window.release()")
    bench.wait_rows("action", "wire loss 12")
    page.wait(lambda: page.value(loss) == "12", "the second number")


def test_narrow_window_shows_the_phase_and_is_not_scrolled_sideways(page):
    try:
        page.resize(360, 800)
        page.wait(lambda: page.run("return document.documentElement.scrollWidth <= innerWidth"), "a page that fits")
        assert page.run("return document.querySelector('#phase').getBoundingClientRect().right <= innerWidth")
    finally:
        page.resize(1440, 900)


def test_every_control_has_a_name_and_is_reached_by_keyboard(page):
    script = """
        const named = (node) => node.getAttribute("aria-label") || node.labels?.length || node.textContent.trim();
        const shown = (node) => node.closest("[hidden]") === null;
        return [...document.querySelectorAll("button, input, select, a, [role=switch], [role=button]")]
            .filter((node) => shown(node) && (!named(node) || (node.tabIndex < 0 && node.role !== "tab")))
            .map((node) => node.outerHTML);"""
    assert page.run(script) == []


def test_output_of_the_service_is_shown(page, bench):
    page.tab("output")
    page.wait_text("#output", "ready")


def test_unit_without_a_production_line_says_so(page):
    page.tab("line-units")
    page.wait_text("#line-units", "This unit runs by itself")
    assert page.texts("#line-units tbody tr") == []
