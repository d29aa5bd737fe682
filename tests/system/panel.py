"""A client of the panel's HTTP calls."""

import contextlib
import http.client
import json
import re
import socket
import time

ANY_PORT = "127.0.0.1:0"


def wait_panel(bench, times=1):
    """Waits until the panel has said for so many times where it is, and returns its port."""
    said = lambda: [match[1] for line in bench.output if (match := re.search(r"The panel is at http://.*:(\d+)/", line))]
    bench._wait_for(lambda: len(said()) >= times, "the panel's address")
    return int(said()[-1])


class Panel:
    """Each call is a connection of its own."""

    def __init__(self, port):
        self.port = port

    def _connect(self):
        return http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)

    def call(self, method, path, body=None, headers=None):
        """Returns the status and what the body's JSON holds, or the text when it is none."""
        with contextlib.closing(self._connect()) as connection:
            connection.request(method, path, body, headers or {})
            answer = connection.getresponse()
            text = answer.read()
            is_json = answer.headers.get("Content-Type") == "application/json"
            return answer.status, json.loads(text) if is_json else text

    def get(self, path):
        status, answer = self.call("GET", path)
        assert status == 200, answer
        return answer

    def state(self):
        return self.get("/api/state")

    def phase(self):
        return self.call("GET", "/api/state")[1]["unit"]["phase"]

    def action(self, *words, **headers):
        """Returns the status and the answer."""
        body = json.dumps({"words": words})
        return self.call("POST", "/api/action", body, {"Content-Type": "application/json"} | headers)

    def raw(self, content, timeout=60):
        """Sends bytes and returns what comes back until the panel closes the connection."""
        with socket.create_connection(("127.0.0.1", self.port), timeout) as connection:
            with contextlib.suppress(ConnectionError):
                connection.sendall(content)
            received = b""
            with contextlib.suppress(ConnectionError):
                while part := connection.recv(65536):
                    received += part
            return received

    def events(self):
        return Events(self._connect())


class Events:
    """The stream of events."""

    def __init__(self, connection):
        self._connection = connection
        self._connection.request("GET", "/api/events")
        self.answer = self._connection.getresponse()
        self.status = self.answer.status

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.answer.close()
        self._connection.close()

    def next(self):
        """The next event: its name and its data. The end of the stream is a ConnectionError."""
        name = None
        while True:
            line = self.answer.readline()
            if not line:
                raise ConnectionError("the stream has ended")
            field, _, value = line.decode().rstrip("\n").partition(": ")
            if field == "event":
                name = value
            elif field == "data":
                return name, json.loads(value)

    def wait(self, found, what, timeout=60):
        """Reads up to an event for which `found(name, data)` is true and returns its data."""
        deadline = time.monotonic() + timeout
        seen = []
        while time.monotonic() < deadline:
            name, data = self.next()
            if found(name, data):
                return data
            seen.append((name, data))
        raise AssertionError(f"no {what} among {seen}")
