"""The TFTP clients that a test station is likely to have."""

import subprocess

from limits import COMMAND_TIME

HOST = "127.0.0.1"


def _run(*command):
    return subprocess.run(command, capture_output=True, text=True, timeout=COMMAND_TIME)


class TftpHpa:
    def read(self, name, to):
        return _run("tftp", "-4", "-m", "binary", HOST, "-c", "get", name, str(to))

    def write(self, name, source):
        return _run("tftp", "-4", "-m", "binary", HOST, "-c", "put", str(source), name)


class Atftp:
    def __init__(self, *options):
        self.options = options

    def read(self, name, to):
        return _run("atftp", *self.options, "--get", "--remote-file", name, "--local-file", str(to), HOST)

    def write(self, name, source):
        return _run("atftp", *self.options, "--put", "--remote-file", name, "--local-file", str(source), HOST)


class Curl:
    def __init__(self, *options):
        self.options = options

    def read(self, name, to):
        return _run("curl", "-sS", *self.options, "-o", str(to), f"tftp://{HOST}/{name}")

    def write(self, name, source):
        return _run("curl", "-sS", *self.options, "-T", str(source), f"tftp://{HOST}/{name}")


class Busybox:
    def __init__(self, *options):
        self.options = options

    def read(self, name, to):
        return _run("busybox", "tftp", *self.options, "-g", "-r", name, "-l", str(to), HOST)

    def write(self, name, source):
        return _run("busybox", "tftp", *self.options, "-p", "-r", name, "-l", str(source), HOST)


CLIENTS = {
    "tftp-hpa": TftpHpa(),
    "atftp": Atftp(),
    "atftp with options": Atftp("--option", "blksize 1024", "--option", "tsize 0", "--option", "timeout 3"),
    "curl": Curl(),
    "curl without options": Curl("--tftp-no-options"),
    "curl with a block size": Curl("--tftp-blksize", "1024"),
    "busybox": Busybox(),
    "busybox with a block size": Busybox("-b", "1024"),
}
