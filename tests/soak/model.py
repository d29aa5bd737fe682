"""What the unit has to answer: every file as it was read first, with what has been written to the unit since then."""

import re

from bench import FOUR_PORTS, MODEM_INFO, PROGRESS, STATISTICS, STATISTICS_2, TEST_MODE_CFG, TEST_MODE_OP

READABLE = (MODEM_INFO, TEST_MODE_OP, TEST_MODE_CFG, STATISTICS, FOUR_PORTS, PROGRESS)
UNREADABLE = (STATISTICS_2, "unknown.xml")
LARGEST_FILE = 7648

NOT_SUPPORTED = "File Not Supported"
TEST_NOT_SUPPORTED = "Test not supported"
READ_ONLY = "Write test config failed"
WRITE_FAILED = "Write data failed"
NO_COMMAND = "No Command Found"
TOO_LARGE = "file allocation size exceeded"

# Elements of the configuration by the points of the board.
LEDS = {1: "SESSION_LED", 3: "READY_GREEN_LED", 4: "READY_RED_LED", 12: "ETHER_LED", 8: "USB_LED", 42: "WPS_LED"}
ALL_LEDS = 100

# As they are listed while they are active, in this order.
TESTS = ("LED", "RESET_SWITCH", "THROUGH_PUT", "AUTO_PAIR", "BCOM_WIRELESS", "VOIP")

_VALUE = re.compile(rb"<(\w+)[^<>]*>\r\n *([^<\r\n]*[^<\r\n ])\r\n|<(SINGLE_LED|THROUGHPUT) (\w+)=\"(.*?)\" (\w+)=\"(.*?)\">")


class Template:
    """A file cut up into values and what stands between them. Values are named by their elements, "ETH_IN", and where
    several elements have one name "ETH_IN#2"; attributes are "SINGLE_LED NUM"."""

    def __init__(self, document):
        self.parts = []
        self.values = {}
        self._document = document
        self._end = 0
        for found in _VALUE.finditer(document):
            if found[1]:
                self._cut(found[1], found.span(2))
            else:
                self._cut(found[3] + b" " + found[4], found.span(5))
                self._cut(found[3] + b" " + found[6], found.span(7))
        self.parts.append(document[self._end :])

    def _cut(self, name, span):
        key = name.decode()
        count = 1 + sum(known.partition("#")[0] == key for known in self.values)
        key = key if count == 1 else f"{key}#{count}"
        self.parts += [self._document[self._end : span[0]], key]
        self.values[key] = self._document[slice(*span)].decode("latin-1")
        self._end = span[1]

    def render(self, changed):
        """The document with these values in the place of those that it had."""
        values = self.values | changed
        return b"".join(part if isinstance(part, bytes) else values[part].encode("latin-1") for part in self.parts)


class Model:
    """The unit as its station knows it. Each method is one file written, and says which text refuses it, if any."""

    def __init__(self, read):
        """`read` gives the content of a file of a unit in factory state."""
        self.active = set()
        self.changed = {name: {} for name in READABLE}
        self.templates = {name: Template(read(name)) for name in READABLE}
        self.leds_of_the_unit = {led: self._first(TEST_MODE_CFG, led) == "ON" for led in LEDS.values()}
        self.leds = None
        self.pair = "INNER"

    def _first(self, name, key):
        return self.templates[name].values[key]

    def document(self, name):
        """What a read of the file gives now."""
        if name == TEST_MODE_OP:
            return self._operation()
        return self.templates[name].render(self.changed[name])

    def _operation(self):
        tests = "".join(f"    <{test}>\r\n    </{test}>\r\n" for test in TESTS if test in self.active)
        return self.templates[TEST_MODE_OP].render({}).replace(b"<ACTIVE_TEST>\r\n", b"<ACTIVE_TEST>\r\n" + tests.encode())

    def forget_configuration(self, read):
        """After a return to the factory configuration only the identity is as it was; the other files are read anew."""
        for name in READABLE:
            if name != MODEM_INFO:
                self.templates[name] = Template(self._without_tests(read(name)))
                self.changed[name] = {}
        self._show()

    @staticmethod
    def _without_tests(document):
        return re.sub(rb"(<ACTIVE_TEST>\r\n).*(  </ACTIVE_TEST>)", rb"\1\2", document, flags=re.DOTALL)

    # Identity and production configuration.

    def identify(self, elements):
        self.changed[MODEM_INFO].update(elements)
        if elements.get("BOOT_DELAY") == "255":
            self.changed[MODEM_INFO]["BOOT_DELAY"] = "5"

    def configure_version(self, version):
        self.changed[MODEM_INFO]["INI_VERSION"] = version

    # Tests.

    def enter(self, test):
        if test == "LED":
            self._hold_leds()
            self.leds = dict.fromkeys(self.leds, False)
        elif test == "RESET_SWITCH":
            self._hold_leds()
        self._activate(test)

    def leave_all(self):
        if "LED" in self.active:
            self.leds = None
        self.active.clear()
        self._show()

    def switch_led(self, name, on):
        self._hold_leds()
        self.leds[name] = on
        self._activate("LED")

    def switch_all_leds(self, on):
        self._hold_leds()
        self.leds = dict.fromkeys(self.leds, on)
        self._activate("LED")

    def switch_point(self, point, on):
        if point == ALL_LEDS:
            self.switch_all_leds(on)
        else:
            self.switch_led(LEDS[point], on)
        self.changed[TEST_MODE_CFG] |= {"SINGLE_LED NUM": str(point), "SINGLE_LED MODE": "ON" if on else "OFF"}

    def switch_pair(self, pair):
        self._hold_leds()
        self.pair = pair
        self._activate("AUTO_PAIR")

    def switch_relay(self):
        self._hold_leds()
        self._activate("VOIP")

    def move_circuit(self, vpi, vci):
        self.changed[TEST_MODE_CFG] |= {"THROUGHPUT VPI": vpi, "THROUGHPUT VCI": vci}
        self.changed[STATISTICS] |= {"VC_VPI": vpi, "VC_VCI": vci}
        self._activate("THROUGH_PUT")

    def name_radio(self, ssid):
        self.changed[TEST_MODE_CFG]["SSID"] = ssid
        self._activate("BCOM_WIRELESS")

    def _activate(self, test):
        self.active.add(test)
        self._show()

    def _hold_leds(self):
        """From the first point that the station switches the LEDs stay as they are."""
        if self.leds is None:
            self.leds = dict(self.leds_of_the_unit)

    def _show(self):
        shown = self.leds_of_the_unit if self.leds is None else self.leds
        ready = "READY" if "THROUGH_PUT" in self.active else "NOT_READY"
        self.changed[TEST_MODE_CFG] |= {led: "ON" if on else "OFF" for led, on in shown.items()}
        self.changed[TEST_MODE_CFG] |= {"AUTO_MODE": self.pair if self.active else "AUTO", "READY_STATUS": ready}
        self.changed[STATISTICS]["READY_STATUS"] = ready

    # What somebody does to the unit.

    def press(self, button, pressed):
        self.changed[TEST_MODE_CFG][f"{button}_SW_STATUS"] = "CLOSED" if pressed else "OPEN"

    def count_packets(self, count):
        self.changed[FOUR_PORTS]["ETH_IN"] = count
