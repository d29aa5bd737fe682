"""The transfers that a station may make, chosen at random and told to the model in the order in which they are made."""

import string
from dataclasses import dataclass

import model
from bench import MODEM_INFO, PROGRESS, STATISTICS, TEST_MODE_CFG, TEST_MODE_OP
from station import BLOCK

# Without digits: a model number with 6204 in it shows other ports. Without characters that XML or a shell knows.
TEXT = string.ascii_letters + "-_.:,@"
ANY_TEXT = "*"


@dataclass
class Transfer:
    """A file to read, with what it has to hold, or one to write; `refusal` is the text of the ERROR packet that has to
    come instead of an answer."""

    name: str
    expected: bytes | None = None
    content: bytes | None = None
    refusal: str | None = None

    @property
    def is_read(self):
        return self.content is None


class Choice:
    """Chooses transfers; the same generator and the same model give the same ones."""

    # Reads and writes by how often they come. A station reads more than it writes.
    READS = 60

    def __init__(self, generator, the_model):
        self.generator = generator
        self.model = the_model
        self.writes = {
            self.identify: 12,
            self.identify_at_length: 2,
            self.overflow: 0.5,
            self.enter_a_test: 4,
            self.leave_all_tests: 4,
            self.switch_leds: 6,
            self.switch_a_point: 3,
            self.switch_the_pair: 2,
            self.switch_a_relay: 2,
            self.move_the_circuit: 0.05,
            self.configure: 1,
            self.load_an_image: 2,
            self.write_what_is_refused: 4,
        }

    def transfers(self, count):
        """So many transfers, to be made one after the other."""
        choices = [self.read, *self.writes]
        weights = [self.READS, *self.writes.values()]
        return [choice() for choice in self.generator.choices(choices, weights, k=count)]

    def word(self, longest=40):
        return "".join(self.generator.choices(TEXT, k=self.generator.randrange(1, longest)))

    def read(self):
        if self.generator.random() < 0.05:
            name = self.generator.choice(model.UNREADABLE)
            # The other one tells the text that it remembers.
            return Transfer(name, refusal=model.NOT_SUPPORTED if name == "unknown.xml" else ANY_TEXT)
        name = self.generator.choice(model.READABLE)
        return Transfer(name, expected=self.model.document(name))

    def identify(self, padding=0):
        hexadecimals = "".join(self.generator.choices("0123456789abcdef", k=10))
        texts = {
            "MODEL_NUM": self.word(),
            "SERIAL_NUM": self.word(),
            "MAC_ADDR": "02:" + ":".join(hexadecimals[i : i + 2] for i in range(0, 10, 2)),
            "PROD_DATE": self.word(12),
            "PROD_REV": self.word(6),
            "E_164": self.word(600),
            "BOOT_DELAY": str(self.generator.randrange(256)),
        }
        some = self.generator.sample(sorted(texts), k=self.generator.randrange(1, len(texts)))
        elements = {name: texts[name] for name in some}
        body = "".join(f"<{name}>{text}</{name}>" for name, text in elements.items())
        self.model.identify(elements)
        return Transfer(MODEM_INFO, content=f"<MODEM_INFO>{body}</MODEM_INFO>".ljust(padding).encode())

    def identify_at_length(self):
        """A file of any length up to the largest, often of whole blocks."""
        length = self.generator.randrange(2 * BLOCK, model.LARGEST_FILE + 1)
        return self.identify(length // BLOCK * BLOCK if self.generator.random() < 0.5 else length)

    def overflow(self):
        return Transfer(MODEM_INFO, content=b"x" * (model.LARGEST_FILE + BLOCK), refusal=model.TOO_LARGE)

    def enter_a_test(self):
        test = self.generator.choice(("LED", "RESET_SWITCH", "AUTO_PAIR", "BCOM_WIRELESS", "VOIP"))
        self.model.enter(test)
        return Transfer(TEST_MODE_OP, content=f"<ENTER_TEST><{test}/></ENTER_TEST>".encode())

    def leave_all_tests(self):
        self.model.leave_all()
        return Transfer(TEST_MODE_OP, content=b"<EXIT_TEST/>")

    def _configuration(self, sections, refusal=None):
        return Transfer(TEST_MODE_CFG, content=f"<TEST_CONFIG>{sections}</TEST_CONFIG>".encode(), refusal=refusal)

    def switch_leds(self):
        sections = ""
        for name in self.generator.sample(list(model.LEDS.values())[1:], k=self.generator.randrange(1, 4)):
            on = self.generator.random() < 0.5
            sections += f"<{name}>{'ON' if on else 'OFF'}</{name}>"
            self.model.switch_led(name, on)
        return self._configuration(f"<LED>{sections}</LED>")

    def switch_a_point(self):
        point = self.generator.choice((*model.LEDS, model.ALL_LEDS))
        on = self.generator.random() < 0.5
        self.model.switch_point(point, on)
        return self._configuration(f'<LED><SINGLE_LED NUM="{point}" MODE="{"ON" if on else "OFF"}"/></LED>')

    def switch_the_pair(self):
        pair = self.generator.choice(("INNER", "OUTER"))
        self.model.switch_pair(pair)
        return self._configuration(f"<AUTO_PAIR><AUTO_MODE>{pair}</AUTO_MODE></AUTO_PAIR>")

    def switch_a_relay(self):
        self.model.switch_relay()
        relay, state = self.generator.choice("12"), self.generator.choice(("Enable", "Disable"))
        return self._configuration(f"<VOIP><CUT_RELAY_{relay}>{state}</CUT_RELAY_{relay}></VOIP>")

    def move_the_circuit(self):
        vpi, vci = str(self.generator.randrange(256)), str(self.generator.randrange(32, 65536))
        self.model.move_circuit(vpi, vci)
        return self._configuration(f'<THROUGHPUT VPI="{vpi}" VCI="{vci}"/>')

    def configure(self):
        version = self.word(12)
        self.model.configure_version(version)
        return Transfer("config.ini", content=f"[ProductInfo]\nIniVersion={version}\n[control]\nreset=0\n".encode())

    def load_an_image(self):
        """Of more than one block: the last block of an image is not acknowledged when it is the only one."""
        length = self.generator.randrange(BLOCK, 8 * BLOCK)
        return Transfer("image.upg", content=self.generator.randbytes(length))

    def write_what_is_refused(self):
        text = f"<FTM_STATS><ETH_IN>{self.word()}</ETH_IN></FTM_STATS>".encode()
        return self.generator.choice(
            [
                Transfer(STATISTICS, content=text, refusal=model.NOT_SUPPORTED),
                Transfer(PROGRESS, content=text, refusal=model.NOT_SUPPORTED),
                Transfer("a.b.ini", content=text, refusal=model.NOT_SUPPORTED),
                Transfer("config.ini", content=b"[NoSuchTable]\nX=1\n", refusal=model.WRITE_FAILED),
                Transfer(TEST_MODE_OP, content=b"<NO_COMMAND/>", refusal=model.NO_COMMAND),
                self._configuration("<LED><SESSION_LED>ON</SESSION_LED></LED>", model.READ_ONLY),
                self._configuration("<AUTO_PAIR><AUTO_MODE>AUTO</AUTO_MODE></AUTO_PAIR>", model.TEST_NOT_SUPPORTED),
                self._configuration("<USB/>", model.TEST_NOT_SUPPORTED),
            ]
        )
