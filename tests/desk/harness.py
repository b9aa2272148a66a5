"""What the tests and measurements of the desk share: its server, requests to it, and a browser at its page."""
import atexit
import glob
import http.client
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

PROJECT = pathlib.Path(__file__).parents[2]
DESK = PROJECT / "scripts/desk.sh"
PATIENCE_S = 60  # for what takes a second on a machine that does nothing else
POLL_S = 0.05

folder = pathlib.Path(tempfile.mkdtemp(prefix="test-desk-"))
atexit.register(shutil.rmtree, folder, ignore_errors=True)
os.environ["TMPDIR"] = tempfile.tempdir = str(folder)  # the browser's and the driver's files, too
signal.signal(signal.SIGTERM, signal.default_int_handler)  # with all that atexit does


def until(test, what, seconds=PATIENCE_S):
    end = time.monotonic() + seconds
    while not test():
        assert time.monotonic() < end, f"not within {seconds} s: {what}"
        time.sleep(POLL_S)


def listens(port, address="127.0.0.1"):
    with socket.socket() as one:
        return one.connect_ex((address, port)) == 0


def command_line(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/cmdline").read_text().replace("\0", " ")
    except OSError:
        return ""  # has ended


def family(root):
    """The process and all that it started: {number: command line}."""
    found = {root: command_line(root)}
    for _ in range(8):  # generations
        for path in glob.glob("/proc/[0-9]*/stat"):
            try:
                parent = pathlib.Path(path).read_text().rsplit(")", 1)[1].split()[1]
            except OSError:
                continue
            if int(parent) in found:
                pid = int(path.split("/")[2])
                found[pid] = command_line(pid)
    return found


class Server:
    """The desk, started as by hand."""

    def __init__(self, port=None):
        self.port = port
        if port is None:
            with socket.socket() as one:
                one.bind(("127.0.0.1", 0))
                self.port = one.getsockname()[1]
        self.output = folder / f"desk-{self.port}.txt"
        with open(self.output, "w") as output:
            self.process = subprocess.Popen([DESK, "--port", str(self.port)], stdout=output, stderr=output,
                                            start_new_session=True)
        atexit.register(self.end, signal.SIGKILL)
        ready = f"The terminal is at http://127.0.0.1:{self.port}"
        until(lambda: ready in self.output.read_text() or self.process.poll() is not None, ready)
        if self.process.poll() is not None:
            sys.exit(self.output.read_text())

    def pid(self):
        """Of the process that serves the page."""
        return next(pid for pid, line in family(self.process.pid).items() if line.split(" ")[0].endswith("/desk"))

    def end(self, by=signal.SIGINT):
        """Ends it as Ctrl-C does, or its first process alone. Returns its status, and what is left of it."""
        started = {} if self.process.poll() is not None else family(self.process.pid)
        if started:
            (os.killpg if by == signal.SIGINT else os.kill)(self.process.pid, by)
        status = self.process.wait(PATIENCE_S)
        end = time.monotonic() + PATIENCE_S
        left = started
        while left and time.monotonic() < end:
            left = {pid: line for pid, line in left.items() if line and command_line(pid) == line}
            time.sleep(POLL_S)
        return status, list(left.values())

    def ask(self, method, path, body=None, **headers):
        """One request. Returns the status and the body. Headers: Sec_Fetch_Site="none"."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE_S)
        try:
            connection.request(method, path, body, {name.replace("_", "-"): headers[name] for name in headers})
            answer = connection.getresponse()
            return answer.status, answer.read()
        finally:
            connection.close()

    def do(self, path, body=None):
        status, answer = self.ask("POST", path, body)
        assert status == 200, f"{path}: {status} {answer}"

    def events(self):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE_S)
        connection.request("GET", "/events")
        for line in connection.getresponse():
            if line.startswith(b"data: "):
                yield json.loads(line[len(b"data: "):])

    def event(self, kind):
        return next(event for event in self.events() if event["type"] == kind)


class Page:
    """The desk's page in a browser of its own, without a window."""

    def __init__(self, server, film=None, device=True, allowed=True, script=""):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        words = {"headless=new": True, "disable-dev-shm-usage": True, "window-size=1280,1000": True,
                 "user-data-dir=" + tempfile.mkdtemp(): True, "no-sandbox": os.geteuid() == 0,
                 "hide-scrollbars": True, "use-fake-device-for-media-stream": device,
                 "use-fake-ui-for-media-stream": allowed,
                 f"use-file-for-fake-video-capture={film}": film}
        for word in (word for word, wanted in words.items() if wanted):
            options.add_argument("--" + word)
        if not allowed:  # 2: refuses without asking
            options.add_experimental_option(
                "prefs", {"profile.default_content_setting_values.media_stream_camera": 2})
        options.set_capability("goog:loggingPrefs", {"browser": "SEVERE"})
        self.driver = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
        atexit.register(self.driver.quit)
        self.devtools = self.driver.execute_cdp_cmd
        self.js = self.driver.execute_script
        self.devtools("Page.addScriptToEvaluateOnNewDocument", {"source": script})
        self.url = f"http://127.0.0.1:{server.port}/"
        self.open()

    def open(self):
        self.driver.get(self.url)
        self.wait(self.connected, "the page's connection")

    def wait(self, test, what, seconds=PATIENCE_S):
        WebDriverWait(self.driver, seconds, POLL_S).until(lambda _: test(), f"not within {seconds} s: {what}")

    def text(self, name):
        return self.js("return document.getElementById(arguments[0]).textContent", name)

    def shows(self, name, words):
        """Waits until the element's text holds the words, in capitals or not."""
        try:
            self.wait(lambda: words.lower() in self.text(name).lower(), words)
        except Exception as error:
            raise AssertionError(f'#{name} shows "{self.text(name)}", wanted "{words}"') from error

    def at(self, name):
        return self.driver.find_element(By.ID, name)

    def press(self, name):
        self.at(name).click()

    def press_one(self, selector):
        self.driver.find_element(By.CSS_SELECTOR, selector).click()

    def choose(self, name):
        self.press_one(f'#samples button[name^="{name}."]')

    def connected(self):
        return not self.at("banner").is_displayed()
