"""What a station waits for, side by side with two public TFTP servers, on one core in one run.

Called by script/benchmark with the folder of the release build. Every figure printed is measured
here and now; a ratio is the median over rounds in which the servers take turns.
"""

import contextlib
import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

CORE = "0"
ROUNDS = 9
READS = 1000
WRITES = 300
FILE = "FTM_ModemInfo.xml"
OTHER_FILES = ["FTM_TestModeCfg.xml", "FTM_Statistics.xml"]
LED_FILE = "FTM_TestModeCfg.xml"
LED_DOCUMENT = "<TEST_CONFIG><LED><READY_GREEN_LED>ON</READY_GREEN_LED></LED></TEST_CONFIG>"
LONG_FILE_BYTES = 3000
WRITE_BYTES = 7648
IDLE_SECONDS = 20
HOST = "127.0.0.1"


class Server:
    """A server on UDP 69 in a network namespace of its own, pinned to the core."""

    def __init__(self, name, command, stack, **options):
        self.name = name
        self.holder = subprocess.Popen(["unshare", "--net", "sh", "-c", "ip link set lo up && exec sleep infinity"])
        stack.callback(self._end, self.holder)
        self._wait(self._loopback_is_up, "namespace")
        self.process = subprocess.Popen(self.enter(command), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options)
        stack.callback(self._end, self.process)
        self._wait(self._listens, "port 69")

    def enter(self, command):
        return ["nsenter", "--target", str(self.holder.pid), "--net", "taskset", "--cpu-list", CORE, *command]

    def _loopback_is_up(self):
        flags = subprocess.run(["nsenter", "--target", str(self.holder.pid), "--net", "ip", "-o", "link", "show", "lo"],
                               capture_output=True, text=True, check=False).stdout
        return ",UP" in flags

    def _listens(self):
        return ":0045 " in pathlib.Path(f"/proc/{self.holder.pid}/net/udp").read_text()

    def _wait(self, condition, what, seconds=10):
        deadline = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > deadline:
                sys.exit(f"benchmark: {self.name}: no {what} within {seconds} s")
            time.sleep(0.01)

    @staticmethod
    def _end(process):
        process.terminate()
        process.wait()

    def serving_pid(self):
        """The process that holds the port: the one started, or its child for a supervised server."""
        children = pathlib.Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children").read_text().split()
        return int(children[0]) if children else self.process.pid


def transfer_time(server, client, verb, name, count, *content):
    """Median time of a transfer in microseconds, and the bytes moved."""
    run = subprocess.run(server.enter([client, verb, HOST, name, str(count), *map(str, content)]),
                         capture_output=True, text=True, check=False)
    if run.returncode != 0:
        sys.exit(f"benchmark: {server.name}: {verb} {name}: {run.stderr.strip()}")
    microseconds, transferred = run.stdout.split()
    return float(microseconds), int(transferred)


def compare(label, servers, measure):
    """Prints one row: each server's median time, and the first server's ratio to each other one."""
    rounds = [[measure(server) for server in servers] for _ in range(ROUNDS)]
    columns = [statistics.median(column) for column in zip(*rounds)]
    figures = "  ".join(f"{server.name} {value:7.1f} us" for server, value in zip(servers, columns))
    ratios = "  ".join(
        f"ratio to {server.name} {statistics.median(row[0] / row[i] for row in rounds):.2f}"
        for i, server in enumerate(servers) if i > 0)
    print(f"{label:<40} {figures}  {ratios}", flush=True)


def status_of(pid, field):
    return int(re.search(rf"^{field}:\s+(\d+)", pathlib.Path(f"/proc/{pid}/status").read_text(), re.M).group(1))


def wakeups(pid):
    """Times that the process's threads have left the processor of their own accord."""
    total = 0
    for status in pathlib.Path(f"/proc/{pid}/task").glob("*/status"):
        total += int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status.read_text(), re.M).group(1))
    return total


def idle_wakeups_per_second(pid):
    before = wakeups(pid)
    time.sleep(IDLE_SECONDS)
    return (wakeups(pid) - before) / IDLE_SECONDS


def stripped_size(program):
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder) / "stripped"
        subprocess.run(["strip", "-o", copy, program], check=True)
        return copy.stat().st_size


def xml_rows(program):
    """Ratios of the XML module to the two libraries, from the microbenchmark."""
    run = subprocess.run(["taskset", "--cpu-list", CORE, program, "--benchmark_format=json",
                          "--benchmark_repetitions=9", "--benchmark_enable_random_interleaving=true",
                          "--benchmark_report_aggregates_only=true"],
                         capture_output=True, text=True, check=True)
    times = {}
    for row in json.loads(run.stdout)["benchmarks"]:
        if row["aggregate_name"] == "median":
            times[row["run_name"].removesuffix("/repeats:9")] = row["cpu_time"] / 1000
    own = times.pop("ftm")
    figures = "  ".join(f"{name} {value:7.1f} us" for name, value in times.items())
    ratios = "  ".join(f"ratio to {name} {own / value:.2f}" for name, value in times.items())
    print(f"{'XML: parse, serialise and free':<40} ftm {own:7.1f} us  {figures}  {ratios}")


def store_set(build, unit, column, value):
    subprocess.run([build / "simulator/gateway", "set", "ProductionData", column, value, "--unit", unit], check=True,
                   stdout=subprocess.DEVNULL)


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    client = str(build / "benchmarks/tftp_client")
    with contextlib.ExitStack() as stack:
        scratch = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory()))
        scratch.chmod(0o755)
        root = scratch / "root"
        root.mkdir()
        root.chmod(0o777)
        unit = scratch / "unit"

        ftm = Server("ftm", [str(build / "simulator/gateway"), "up", "--no-panel", "--unit", str(unit)], stack)
        atftpd = Server("atftpd", [shutil.which("atftpd"), "--daemon", "--no-fork", "--user", "root.root", "--logfile",
                                   "/dev/null", "--verbose=0", "--bind-address", HOST, str(root)], stack)
        dnsmasq = Server("dnsmasq", [shutil.which("dnsmasq"), "--no-daemon", "--port=0", "--enable-tftp", "--user=root",
                                     f"--tftp-root={root}", "--conf-file=/dev/null"], stack)

        def publish_what_the_unit_serves(name=FILE):
            text = subprocess.run(ftm.enter(["curl", "--silent", "--fail", f"tftp://{HOST}/{name}"]), capture_output=True,
                                  check=True).stdout
            (root / name).write_bytes(text)
            return len(text)

        size = publish_what_the_unit_serves()
        compare(f"read {FILE}, {size} bytes", [ftm, atftpd, dnsmasq],
                lambda server: transfer_time(server, client, "read", FILE, READS)[0])

        for name in OTHER_FILES:
            compare(f"read {name}, {publish_what_the_unit_serves(name)} bytes", [ftm, atftpd, dnsmasq],
                    lambda server: transfer_time(server, client, "read", name, READS)[0])

        model_length = LONG_FILE_BYTES - size + len("M77-210010-04")
        store_set(build, unit, "ModelNum", "M" * model_length)
        size = publish_what_the_unit_serves()
        compare(f"read of {size} bytes", [ftm, atftpd, dnsmasq],
                lambda server: transfer_time(server, client, "read", FILE, READS)[0])

        compare(f"write of {WRITE_BYTES} bytes", [ftm, atftpd],
                lambda server: transfer_time(server, client, "write", FILE, WRITES, WRITE_BYTES)[0])

        compare(f"write of one LED, {len(LED_DOCUMENT)} bytes", [ftm, atftpd],
                lambda server: transfer_time(server, client, "write", LED_FILE, WRITES, LED_DOCUMENT)[0])

        xml_rows(build / "benchmarks/xml_benchmark")

        memory = status_of(ftm.serving_pid(), "VmRSS")
        other = status_of(atftpd.serving_pid(), "VmRSS")
        print(f"{'resident memory':<40} ftm {memory} KiB  atftpd {other} KiB  ratio to atftpd {memory / other:.2f}")
        print(f"{'idle wake-ups a second':<40} ftm {idle_wakeups_per_second(ftm.serving_pid()):.2f}")
        print(f"{'stripped release binary':<40} ftm {stripped_size(build / 'userapps/FTM/FTM')} bytes")


if __name__ == "__main__":
    os.environ["LC_ALL"] = "C"
    main()
