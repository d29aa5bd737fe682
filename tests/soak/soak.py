"""Many transfers of real clients with one simulated unit, over a line on which much goes wrong: every answer has to be
right, and the service as quick and as small at the end as at the beginning."""

import argparse
import collections
import os
import random
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "system"))

import measurements
import mischief
import model
from bench import MODEM_INFO, TEST_MODE_CFG, TEST_MODE_OP, Bench, field, wait_until
from real_clients import CLIENTS
from station import Station
from transfers import ANY_TEXT, Choice, Transfer

# Transfers in one run of a client. A round has a run of each client, and what goes wrong beside.
RUN = {"curl": 100, "tftp-hpa": 100, "atftp": 100, "busybox": 15}
FEWEST = 2500
STATION = "station"
STATION_RUN = 10
PROXIED_RUN = 10
# Every how many rounds.
FLOODS, PROXIES, LOSSES, HANDLINGS, EVENTS, PAUSES = 16, 8, 64, 8, 32, 1024


class SoakBench(Bench):
    """A unit whose output is not kept: there is a line for each station that makes room for another."""

    def _collect(self, stream):
        lines = (line for line in stream if not line.startswith("Close Old Connection"))
        super()._collect(lines)


class Soak:
    def __init__(self, bench, folder, count, seed):
        self.bench = bench
        self.count = count
        self.generator = random.Random(seed)
        self.clients = [client(folder) for client in CLIENTS]
        self.model = model.Model(self._read)
        self.choice = Choice(self.generator, self.model)
        self.made = collections.Counter()
        self.proxied = collections.Counter()
        self.wrong_on_the_line = collections.Counter()
        self.measurements = measurements.Measurements(bench, count)

    @staticmethod
    def _read(name):
        with Station() as station:
            return station.read(name)

    def run(self):
        number = 0
        while self.made.total() < self.count:
            self._round(number)
            number += 1
        mischief.wait_until_idle()

    def _round(self, number):
        for client in self.clients:
            self._run_client(client)
        self._run_station()
        self._send_strays()
        if number % FLOODS == 1:
            mischief.flood()
            self.wrong_on_the_line["datagrams of floods"] += mischief.FLOOD
        if number % PROXIES == 2:
            self._run_proxied(loses=number % LOSSES == 2)
        if number % HANDLINGS == 0:
            self._handle_the_unit()
        if number % EVENTS == 3:
            self._event(number // EVENTS)
        if number % PAUSES == PAUSES - 1:
            self._load_hex_image()
        self.measurements.sample(self.made.total())

    # Transfers.

    def _run_client(self, client):
        transfers = self.choice.transfers(RUN[client.name])
        start = time.perf_counter()
        run = client.run(transfers)
        self.measurements.took(client.name, self.made.total(), (time.perf_counter() - start) / len(transfers))
        for transfer, refusal, content in zip(transfers, run.refusals, run.contents):
            self._check(client.name, transfer, refusal, content, client.shows_texts)
        self.made[client.name] += len(transfers)

    def _run_station(self):
        station = mischief.DisturbedStation(self.generator)
        for transfer in self.choice.transfers(STATION_RUN):
            self._check(STATION, transfer, *station.make(transfer))
        self.made[STATION] += STATION_RUN

    def _check(self, client, transfer, refusal, content, shows_texts=True):
        if transfer.refusal is None:
            assert refusal is None, f"{client}: {transfer} was refused: {refusal}"
            assert content == transfer.expected, f"{client}: {transfer} was answered with {content}"
        else:
            assert refusal is not None, f"{client}: {transfer} was not refused"
            is_told = shows_texts and transfer.refusal != ANY_TEXT
            assert not is_told or refusal == transfer.refusal, f"{client}: {transfer} was refused: {refusal}"

    # What goes wrong on the line.

    def _send_strays(self):
        mischief.send_strays(self.generator)
        mischief.wait_until_idle()
        self.wrong_on_the_line["stray packets"] += mischief.STRAYS

    def _run_proxied(self, loses):
        """Transfers in which datagrams come twice, late or not at all. One may fail then, as its client sees; but what
        a client takes for a success has to be one."""
        client = self.generator.choice(self.clients)
        possible = {self.model.document(MODEM_INFO)}
        # Of its own, because the proxy draws for each datagram, of which there may be more or fewer.
        with mischief.Proxy(random.Random(self.generator.random())) as proxy:
            proxy.losses = int(loses)
            for _ in range(PROXIED_RUN):
                possible = self._run_one_proxied(client, proxy.port, possible)
        for kind, count in proxy.counts.items():
            self.wrong_on_the_line[kind] += count
        self._learn_identity(possible)
        self.made[client.name] += PROXIED_RUN

    def _run_one_proxied(self, client, port, possible):
        """Given the documents that the unit may have, those that it may have after one more transfer."""
        before = possible
        if self.generator.random() < 0.5:
            transfer = Transfer(MODEM_INFO, expected=b"")
        else:
            transfer = self._rename()
            possible = {self.model.document(MODEM_INFO)}
        run = client.run([transfer], port)
        is_done = run.refusals[0] is None
        self.proxied["done" if is_done else "failed"] += 1
        mischief.wait_until_idle()
        if not is_done:
            return possible | before
        assert not transfer.is_read or run.contents[0] in possible, f"{client.name}: a wrong document {run.contents[0]}"
        return {run.contents[0]} if transfer.is_read else possible

    def _rename(self):
        serial = self.choice.word()
        self.model.identify({"SERIAL_NUM": serial})
        return Transfer(MODEM_INFO, content=f"<MODEM_INFO><SERIAL_NUM>{serial}</SERIAL_NUM></MODEM_INFO>".encode())

    def _learn_identity(self, possible):
        """Which of the documents that the unit may have it has."""
        document = self._read(MODEM_INFO)
        assert document in possible, f"a document that nobody wrote: {document}"
        self.model.identify({"SERIAL_NUM": field(document, "SERIAL_NUM")})

    # What somebody does to the unit.

    def _handle_the_unit(self):
        for button, name in (("reset", "RESET"), ("wps", "WPS")):
            pressed = self.generator.random() < 0.5
            self.bench.gateway("press" if pressed else "release", button)
            self.model.press(name, pressed)
        count = str(self.generator.randrange(10_000, 900_000_000))
        self.bench.set("SwitchStat", "RxPackets", count)
        self.model.count_packets(count)

    # What takes the unit longer, or changes more than the model knows.

    def _event(self, number):
        events = (self._name_the_radio, self._resynchronise, self._return_to_factory_configuration)
        events[number % len(events)]()

    def _write(self, name, text):
        with Station() as station:
            station.write(name, text.encode())

    def _name_the_radio(self):
        ssid = self.choice.word(30)
        self._write(TEST_MODE_CFG, f"<TEST_CONFIG><BCOM_WIRELESS><SSID>{ssid}</SSID></BCOM_WIRELESS></TEST_CONFIG>")
        self.model.name_radio(ssid)
        wait_until(lambda: self._read(TEST_MODE_CFG) == self.model.document(TEST_MODE_CFG), f"SSID {ssid}")

    def _resynchronise(self):
        self._write(TEST_MODE_OP, "<RESYNC/>")
        self.bench.gateway("line", "up")

    def _return_to_factory_configuration(self):
        version = self.choice.word(12)
        self._write("config.ini", f"[ProductInfo]\nIniVersion={version}\n")
        self.model.configure_version(version)
        self.model.forget_configuration(self._read)

    def _load_hex_image(self):
        """After it the unit serves nothing for a while."""
        self._write("image.hex", "x" * 700)
        mischief.wait_until_idle()

    # The end.

    def check_end(self):
        """The unit answers after all that, and its identity survives a reboot."""
        assert self.bench.starts() == 1, "the service was started again"
        assert self._read(MODEM_INFO) == self.model.document(MODEM_INFO)
        self.bench.gateway("reboot")
        self.bench.wait_ready(2)
        assert self._read(MODEM_INFO) == self.model.document(MODEM_INFO)
        assert self.bench.sanitizer_reports() == []

    def report(self, seconds):
        total = self.made.total()
        print(f"{total} transfers in {seconds:.0f} s, {1e6 * seconds / total:.0f} us each with all that went wrong")
        for name, count in self.made.items():
            print(f"  {name:<10} {count:>8}  {100 * count / total:4.1f} %")
        wrong = ", ".join(f"{count} {kind}" for kind, count in self.wrong_on_the_line.items())
        print(f"on the line: {wrong}")
        print(f"through the proxy: {self.proxied['done']} done and right, {self.proxied['failed']} failed and seen to fail")
        repeats = sum(client.repeats for client in self.clients)
        print(f"transfers made again by busybox: {repeats}")
        processor = os.times()
        own, clients = processor.user + processor.system, processor.children_user + processor.children_system
        print(f"processor: {1e6 * clients / total:.0f} us of the clients, {1e6 * own / total:.0f} us of this program")
        self.measurements.report()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("count", type=int)
    parser.add_argument("--plot", type=Path)
    parser.add_argument("--seed", type=int, default=2009)
    arguments = parser.parse_args()
    if arguments.count < FEWEST:
        parser.error(f"fewer than {FEWEST} transfers are over before there is anything to compare")
    with tempfile.TemporaryDirectory() as scratch:
        folder = Path(scratch) / "files"
        folder.mkdir()
        bench = SoakBench(Path(scratch) / "unit").start()
        try:
            start = time.monotonic()
            soak = Soak(bench, folder, arguments.count, arguments.seed)
            soak.run()
            soak.report(time.monotonic() - start)
            if arguments.plot:
                soak.measurements.plot(arguments.plot)
            soak.check_end()
            failures = soak.measurements.failures()
        finally:
            bench.stop()
    for failure in failures:
        print(f"soak: {failure}", file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
