"""A unit's panel and its page in a headless Chromium."""

import json
import signal
import subprocess
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.select import Select

from bench import GATEWAY, wait_until

ADDRESS = "127.0.0.1:8070"  # the unit's own panel may be at the usual port
URL = f"http://{ADDRESS}/"
LIMIT = 60.0  # seconds, for anything to show on the page

_SWITCHES = [
    "--headless=new",
    "--no-sandbox",  # it is started by root, or by who is taken for it in a namespace
    "--disable-gpu",
    "--disable-dev-shm-usage",
    "--hide-scrollbars",
    "--no-first-run",
    "--disable-background-networking",
    "--disable-component-update",
    "--lang=en",
]


class Panel:
    """A panel of a unit, in a process of its own."""

    def __init__(self, folder):
        self.folder = folder
        self.process = None

    def start(self):
        """Starts it and waits until it serves."""
        command = [GATEWAY, "panel", "--unit", str(self.folder), "--address", ADDRESS]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        line = self.process.stdout.readline()
        assert URL in line, line
        return self

    def stop(self):
        """Ends it. Returns what it has printed since its start."""
        self.process.send_signal(signal.SIGTERM)
        output, _ = self.process.communicate(timeout=LIMIT)
        return output

    def halt(self):
        """Keeps it from doing anything, without an end of its connections."""
        self.process.send_signal(signal.SIGSTOP)

    def go_on(self):
        self.process.send_signal(signal.SIGCONT)


class Page:
    """One browser with one page. Everything is read anew in one call, because the page may change at any time."""

    def __init__(self):
        self._profile = tempfile.TemporaryDirectory(prefix="panel-page-", ignore_cleanup_errors=True)
        options = Options()
        for switch in [*_SWITCHES, f"--user-data-dir={self._profile.name}"]:
            options.add_argument(switch)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.browser = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
        self.browser.set_page_load_timeout(LIMIT)
        self.browser.set_script_timeout(LIMIT)
        self.resize(1440, 900)
        self.requests()  # those of the browser's own first page

    def close(self):
        self.browser.quit()
        self._profile.cleanup()

    # What the window is like.

    def resize(self, width, height, scale=1):
        metrics = {"width": width, "height": height, "deviceScaleFactor": scale, "mobile": False}
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", metrics)

    def prefer(self, scheme):
        """Makes the system's colours light or dark."""
        features = [{"name": "prefers-color-scheme", "value": scheme}]
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": features})

    def open(self):
        """Opens the page and waits until it shows a running unit."""
        self.browser.get(URL)
        self.wait_phase("up")
        return self

    # What it shows.

    def run(self, script, *arguments):
        return self.browser.execute_script(script, *arguments)

    def text(self, css):
        """Text of an element; None when there is none or it is hidden."""
        script = """const node = document.querySelector(arguments[0]);
                    return node === null || node.closest("[hidden]") ? null : node.textContent"""
        return self.run(script, css)

    def texts(self, css):
        return self.run("return [...document.querySelectorAll(arguments[0])].map((node) => node.textContent)", css)

    def attribute(self, css, name):
        return self.run("return document.querySelector(arguments[0])?.getAttribute(arguments[1])", css, name)

    def value(self, css):
        return self.run("return document.querySelector(arguments[0])?.value", css)

    def lamp(self, name):
        """What a lamp of the drawing shows: "off", "green", "red" or "both"."""
        return self.attribute(f'[data-lamp="{name}"]', "data-shows")

    def phase(self):
        return self.attribute("body", "data-phase")

    def wait(self, condition, what):
        wait_until(condition, what, LIMIT)

    def wait_phase(self, phase):
        self.wait(lambda: self.phase() == phase, f"phase {phase} on the page")

    def wait_text(self, css, part):
        self.wait(lambda: part in (self.text(css) or ""), f"{part!r} in {css}")

    # What is done to it.

    def find(self, css):
        return self.browser.find_element(By.CSS_SELECTOR, css)

    def click(self, css):
        self.find(css).click()

    def fill(self, css, text):
        """Types a text into a field in place of what is in it, as somebody does, and leaves it there."""
        self.find(css).send_keys(Keys.CONTROL, "a", Keys.NULL, Keys.DELETE, text)

    def choose(self, css, text):
        Select(self.find(css)).select_by_visible_text(text)

    def actions(self):
        return ActionChains(self.browser)

    def card(self, title):
        """CSS of a card of the board."""
        return f'[data-card="{title}"]'

    def button(self, card, text):
        """The button of a card that has this text."""
        buttons = self.browser.find_elements(By.CSS_SELECTOR, f"{self.card(card)} button")
        return next(button for button in buttons if button.text == text)

    def tab(self, name):
        self.click(f"#tab-{name}")

    def record_phases(self):
        """From now on keeps each phase that the page comes to show, however short."""
        self.run(
            """window.phases = [];
               new MutationObserver(() => window.phases.push(document.body.dataset.phase))
                 .observe(document.body, {attributes: true, attributeFilter: ["data-phase"]});"""
        )

    def phases(self):
        """The recorded phases, each once in a row."""
        found = []
        for phase in self.run("return window.phases"):
            if found[-1:] != [phase]:
                found.append(phase)
        return found

    # What it did in the background, since the last time.

    def complaints(self):
        """What the browser has to say of the page: errors and warnings of the console."""
        return [entry["message"] for entry in self.browser.get_log("browser") if entry["level"] != "INFO"]

    def requests(self):
        """Addresses that the page has asked for."""
        events = [json.loads(entry["message"])["message"] for entry in self.browser.get_log("performance")]
        return [event["params"]["request"]["url"] for event in events if event["method"] == "Network.requestWillBeSent"]
