"""A station that reads and writes everything at random while somebody handles the unit, for STATION_SECONDS seconds.
What comes of each step is the other tests' business; here the service has to stay, and no sanitizer may speak up."""

import os
import random
import string
import time

from bench import FOUR_PORTS, MODEM_INFO, PROGRESS, STATISTICS, STATISTICS_2, TEST_MODE_CFG, TEST_MODE_OP, field
from station import BLOCK, Station, TftpError, blocks, data

SECONDS = float(os.environ.get("STATION_SECONDS", "5"))
SEED = int(os.environ.get("STATION_SEED", "2009"))

READABLE = [MODEM_INFO, TEST_MODE_OP, TEST_MODE_CFG, STATISTICS, STATISTICS_2, FOUR_PORTS, PROGRESS, "unknown.xml"]
READ_ONLY = [STATISTICS, STATISTICS_2, FOUR_PORTS, PROGRESS, "unknown.xml", "a.b.ini"]

# Without characters that the shell knows: this machine's shell gets what a station writes.
HARMLESS = string.ascii_letters + string.digits + "-_.:,%@ "


class Everything:
    """The station and its random choices. Every method is a step."""

    def __init__(self, bench, generator):
        self.bench = bench
        self.generator = generator

    # Texts.

    def word(self, longest=40):
        return "".join(self.generator.choices(HARMLESS, k=self.generator.randrange(1, longest)))

    def one_of(self, *texts):
        """One of the texts, or now and then something else."""
        return self.generator.choice(texts) if self.generator.random() < 0.9 else self.word()

    def elements(self, **choices):
        """Some of the elements, in any order and more than once, each with one of its texts."""
        names = self.generator.choices(list(choices), k=self.generator.randrange(1, 2 * len(choices)))
        return "".join(f"<{name}>{self.one_of(*choices[name])}</{name}>" for name in names)

    # Transfers.

    def write(self, name, text):
        with Station() as station:
            try:
                station.write(name, text.encode())
            except TftpError:
                pass

    def operate(self, text):
        self.write(TEST_MODE_OP, text)

    def configure(self, text):
        self.write(TEST_MODE_CFG, f"<TEST_CONFIG>{text}</TEST_CONFIG>")

    # Steps.

    def read(self):
        for name in self.generator.sample(READABLE, k=len(READABLE)):
            with Station() as station:
                try:
                    assert station.read(name)
                except TftpError:
                    assert name in (STATISTICS_2, "unknown.xml")

    def write_what_is_read_only(self):
        self.write(self.generator.choice(READ_ONLY), f"<FTM_STATS><ETH_IN>{self.word()}</ETH_IN></FTM_STATS>")

    def write_modem_info(self):
        names = ("MODEL_NUM", "SERIAL_NUM", "MAC_ADDR", "PROD_DATE", "PROD_REV", "E_164", "SEC", "OTHER")
        choices = {name: (self.word(), "M77-6204", "1234") for name in names}
        boot_delay = ("0", "5", "200", "255")
        self.write(MODEM_INFO, f"<MODEM_INFO>{self.elements(**choices, BOOT_DELAY=boot_delay)}</MODEM_INFO>")

    def enter_a_test(self):
        test = self.one_of("LED", "RESET_SWITCH", "BCOM_WIRELESS", "AUTO_PAIR", "VOIP", "MULTI_HYBRID").split(" ")[0]
        self.operate(f"<ENTER_TEST><{test}/></ENTER_TEST>")

    def leave_all_tests(self):
        self.operate("<EXIT_TEST/>")

    def resynchronise(self):
        self.operate("<RESYNC/>")

    def switch_leds(self):
        states = ("ON", "OFF")
        names = ("READY_GREEN_LED", "READY_RED_LED", "ETHER_LED", "USB_LED", "WPS_LED", "ALL_LEDS")
        self.configure(f"<LED>{self.elements(**dict.fromkeys(names, states))}</LED>")

    def switch_one_led(self):
        point = self.generator.randrange(-10, 400)
        self.configure(f'<LED><SINGLE_LED NUM="{point}" MODE="{self.one_of("ON", "OFF")}"/></LED>')

    def move_the_circuit(self):
        vpi, vci = (self.generator.choice(["0", "8", "255", "32", self.word(8)]) for _ in range(2))
        circuit = f'<THROUGHPUT VPI="{vpi}" VCI="{vci}"/>'
        if self.generator.random() < 0.5:
            self.configure(circuit)
        else:
            self.operate(f"<ENTER_TEST>{circuit}</ENTER_TEST>")

    def switch_the_pair(self):
        self.configure(f"<AUTO_PAIR><AUTO_MODE>{self.one_of('INNER', 'OUTER', 'AUTO')}</AUTO_MODE></AUTO_PAIR>")

    def set_the_radio(self):
        channels = [str(channel) for channel in range(14)]
        self.configure(f"<BCOM_WIRELESS>{self.elements(SSID=(self.word(34), 'Line'), CHANNEL=channels)}</BCOM_WIRELESS>")

    def test_the_lines(self):
        children = {}
        for line in ("1", "2"):
            children |= {f"CUT_RELAY_{line}": ("Enable", "Disable"), f"HOOK_{line}": ("ON", "OFF")}
            children |= {f"DECODER_{line}": ("ON", "OFF"), f"TONE_{line}": ("1", "2", "3", "4", "None")}
            children |= {f"RING_VOLTAGE_{line}": ("25v", "50v", "75v")}
        attribute = self.generator.choice(["", ' ReadClear="1"', ' ReadClear="0"', ' Other="1"'])
        self.configure(f"<VOIP{attribute}>{self.elements(**children)}</VOIP>")

    def write_what_the_configuration_shows_only(self):
        self.configure(self.generator.choice(["<USB/>", "<RESET_SWITCH/>", "<PSD_SETTING/>", "<ETHER_PORT/>", ""]))

    def apply_an_ini_file(self):
        reset = self.generator.choice(["", "[control]\nreset=0\n"])
        self.write("config.ini", f"[ProductInfo]\nIniVersion={self.word()}\n{reset}")

    def load_an_image(self):
        with Station() as station:
            station.start_write("image.upg")
            for block, payload in blocks(self.generator.randbytes(self.generator.randrange(BLOCK, 4 * BLOCK))):
                station.send(data(block, payload))
                station.expect_ack(block)

    def load_an_image_of_one_block(self):
        with Station() as station:
            station.start_write(self.generator.choice(["image.hex", "image.upg"]))
            station.send(data(1, self.generator.randbytes(self.generator.randrange(BLOCK))))

    def send_noise(self):
        with Station() as station:
            for _ in range(self.generator.randrange(20)):
                station.send(b"\xff" + self.generator.randbytes(self.generator.randrange(520)))

    def reboot(self):
        starts = self.bench.starts()
        with Station() as station:
            station.start_write(TEST_MODE_OP)
            station.send(data(1, self.generator.choice([b"<REBOOT/>", b"<REBOOT_TO_SAFEBOOT/>"])))
            self.bench.wait_ready(starts + 1)

    def handle_the_unit(self):
        command = self.generator.choice(
            ["press reset", "release reset", "line down", "line train", "line up", "usb plug --vendor A --model B"]
            + ["usb unplug", "port 2 up", "port 1 down", "port 1 up", "traffic on", "traffic off", "station join"]
            + ["radio up", "radio down", "set ProductionData ModelNum 6204"]
        )
        # A radio that is off takes no station.
        self.bench.gateway(*command.split(), check=command != "station join")


def test_station_that_does_everything_at_random(bench):
    everything = Everything(bench, random.Random(SEED))
    steps = [
        everything.read,
        everything.write_what_is_read_only,
        everything.write_modem_info,
        everything.enter_a_test,
        everything.leave_all_tests,
        everything.resynchronise,
        everything.switch_leds,
        everything.switch_one_led,
        everything.move_the_circuit,
        everything.switch_the_pair,
        everything.set_the_radio,
        everything.test_the_lines,
        everything.write_what_the_configuration_shows_only,
        everything.apply_an_ini_file,
        everything.load_an_image,
        everything.load_an_image_of_one_block,
        everything.send_noise,
        everything.reboot,
        everything.handle_the_unit,
    ]
    end = time.monotonic() + SECONDS
    rounds = 0
    while rounds == 0 or time.monotonic() < end:
        # Every step in each round, and reads all the time.
        everything.generator.shuffle(steps)
        for step in steps:
            step()
            everything.read()
        rounds += 1
    # Each round had one reboot, and nothing else has ended the service.
    assert bench.starts() == 1 + rounds
    assert not any("The service" in line for line in bench.output)
    with Station() as station:
        station.write(MODEM_INFO, b"<MODEM_INFO><SERIAL_NUM>good</SERIAL_NUM></MODEM_INFO>")
        assert field(station.read(MODEM_INFO), "SERIAL_NUM") == "good"
