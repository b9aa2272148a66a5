#!/usr/bin/python3
"""Tests of the terminal in a browser: one server, and one page with a camera that plays the film."""
import base64
import os
import pathlib
import signal
import socket
import subprocess
import unittest

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

import film
import harness
from harness import Page, Server

FILM = harness.folder / "film.mjpeg"
PICTURES = pathlib.Path(os.environ.get("KEEP_PICTURES", harness.folder))
CONTROLS = {"camera-toggle", "file", "clear", "mode-0", "mode-1", "mode-3", "mode-other", "mode-send", "enable",
            "disable", "stop", "restart", "kill", "fault", "findings", "datagrams", "log-stdout", "answer", "badge.png"}
BRING = """
const bytes = Uint8Array.from(atob(arguments[1]), (letter) => letter.charCodeAt(0));
const data = new DataTransfer();
data.items.add(new File([bytes, new Uint8Array(arguments[2])], arguments[0]));
const how = {bubbles: true, cancelable: true, dataTransfer: data, clipboardData: data};
for (const kind of arguments[3]) {
    document.body.dispatchEvent(kind === "paste" ? new ClipboardEvent(kind, how) : new DragEvent(kind, how));
}"""
WINNER_IS_DRAWN = """const tile = document.querySelector(".tile.won canvas");
return tile && tile.getContext("2d").getImageData(99, 99, 1, 1).data[3] > 0"""
server = page = None


def setUpModule():
    global server, page
    film.write(FILM)
    server = Server()
    page = Page(server, FILM)


def drop(name, content, zeros=0, kinds=("dragover", "drop")):
    page.js(BRING, name, base64.b64encode(content).decode(), zeros, kinds)


class DeskTest(unittest.TestCase):
    def setUp(self):
        for path in ("clear", "fault?n=0", "answer?when=now", "mode?value=1", "enable", "restart"):
            server.do("/" + path)
        page.open()
        page.shows("service-state", "running")

    def tearDown(self):
        # "Failed to load" is the browser's word for any answer of 4xx; all else is a fault of the page.
        self.assertEqual([entry["message"] for entry in page.driver.get_log("browser")
                          if "Failed to load resource" not in entry["message"]], [])

    def shows_text_of(self, name):
        page.shows("result", film.text_of(name))

    def test_texts_of_the_camera_appear(self):
        page.press("camera-toggle")
        missing = {film.text_of(name) for name in film.NAMES}
        page.wait(lambda: missing.discard(page.text("result")) or not missing, missing)

    def test_picture_is_read_dropped_pasted_and_chosen(self):
        drop("a card.png", film.sample("faded").read_bytes())
        self.shows_text_of("faded")
        page.shows("view-name", "a card.png")
        drop("image.png", film.sample("code128").read_bytes(), kinds=["paste"])
        self.shows_text_of("code128")
        page.at("file").send_keys(str(film.sample("noisy")))
        self.shows_text_of("noisy")
        page.press("clear")
        page.shows("view-name", "wall")

    def test_verdicts_are_told_apart(self):
        looks = set()
        for name, words in (("faded", "reported"), ("faded", "seen before"), ("ten-characters", "too short"),
                            ("no-code-text", "nothing found")):
            page.choose(name)
            page.shows("verdict-word", words)
            looks.add((page.at("verdict-word").value_of_css_property("color"), page.text("verdict-word")))
        self.assertEqual([len(set(part)) for part in zip(*looks)], [4, 4])
        self.shows_text_of("faded")
        page.press("disable")
        page.choose("faded")
        page.shows("verdict", "switched off")

    def test_mode_3_freezes(self):
        page.press("mode-3")
        page.press("disable")
        page.shows("last-note", "ignored")
        page.shows("datagrams", "ignored")
        page.choose("faint")
        self.shows_text_of("faint")
        page.at("mode-other").clear()
        page.at("mode-other").send_keys("7", Keys.ENTER)
        page.shows("told-mode", "mode 7")
        page.press("stop")
        page.shows("told-mode", "off")

    def test_late_answer_parks(self):
        page.choose("badge")
        self.shows_text_of("badge")
        for when, state, verdict in (("late", "parked", "parked"), ("now", "running", "reported"),
                                     ("never", "parked", "parked")):
            with self.subTest(when):
                page.press_one(f"input[name=answer][value={when}]")
                page.press("restart")
                page.shows("service-state", state)
                page.shows("verdict", verdict)
        page.shows("datagrams", "parked")

    def test_faults_show_their_lines(self):
        faults = server.event("begin")["faults"]
        self.assertTrue(all(fault["door"] for fault in faults[1:]), faults)
        for words in ("VENC_CreateChn", "never", "too large"):
            page.choose("badge")
            page.shows("verdict-word", "reported")
            before = page.text("log-stdout") + page.text("log-stderr")
            n = next(n for n, fault in enumerate(faults) if words in fault["name"])
            page.press_one(f"#fault option:nth-child({n + 1})")
            page.shows("fault-door", faults[n]["door"])
            page.wait(lambda: page.text("log-stdout") + page.text("log-stderr") != before, words)
            page.choose("badge")
            page.shows("verdict-word", "not reported")
            server.do("/fault?n=0")
            server.do("/restart")

    def test_killed_service_comes_back(self):
        page.press("kill")
        page.shows("service-state", "signal 9")
        page.choose("badge")
        page.shows("verdict", "signal 9")
        page.press("restart")
        page.shows("service-state", "running")
        self.shows_text_of("badge")

    def test_broken_and_large_uploads(self):
        page.choose("badge")
        page.shows("view-name", "badge.png")
        before = server.ask("GET", "/view")[1]
        jpeg = film.sample("noisy").read_bytes()
        for name, content in (("text.png", b"no picture"), ("empty.png", b""), ("<b>.jpg", jpeg[:40])):
            drop(name, content)
            page.shows("message", name)
        drop("large.png", b"", (32 << 20) + 1)
        page.shows("message", "large.png is larger than 32 MB")
        page.shows("view-name", "badge.png")
        self.assertEqual(server.event("state")["view"]["name"], "badge.png")
        page.press("camera-toggle")
        page.shows("view-name", "this computer's camera")
        drop("text.png", b"no picture")
        page.shows("message", "text.png")
        film_is_read = {film.text_of(name) for name in film.NAMES[1:]}
        page.wait(lambda: page.text("result") in film_is_read, "the camera, still on")
        page.press("camera-toggle")
        page.shows("view-name", "camera")  # its last frame
        self.assertIn(b"JFIF", server.ask("GET", "/view")[1][:16])
        self.assertNotEqual(server.ask("GET", "/view")[1], before)

    def test_buttons_stay_where_they_are(self):
        places = set()
        for name in ("badge", "no-code-wall", "ten-characters", "several-codes"):
            before = page.text("outcome")
            page.choose(name)
            page.wait(lambda: page.text("outcome") != before, "its reading")
            places.add(str([page.at(one).location for one in ("restart", "enable")]))
        self.assertEqual(len(places), 1, places)

    def test_keyboard(self):
        def keys(*some):
            ActionChains(page.driver).send_keys(*some).perform()

        reached = set()
        for _ in range(120):
            keys(Keys.TAB)
            one = page.driver.switch_to.active_element
            reached.add(one.get_attribute("id") or one.get_attribute("name") or one.get_attribute("class"))
        self.assertLessEqual(CONTROLS, reached)
        self.assertTrue(any("tile" in name for name in reached))
        page.js("document.querySelector('.tile').focus()")
        keys(Keys.ENTER)
        page.shows("tile-title", "1 plain")
        keys(Keys.ARROW_RIGHT)
        page.shows("tile-title", "opened")
        keys(Keys.ESCAPE)
        page.wait(lambda: not page.at("tile-dialog").is_displayed(), "the dialog to close")

    def test_connection_cut_and_back(self):
        def camera_is_read():
            return page.text("result") in map(film.text_of, film.NAMES)

        page.press("camera-toggle")
        page.wait(camera_is_read, "a text")
        desk = server.pid()
        os.kill(desk, signal.SIGSTOP)  # hangs, and says no more
        page.shows("banner", "lost")
        os.kill(desk, signal.SIGCONT)
        page.wait(page.connected, "the connection again")
        self.assertEqual(server.end(), (0, []))
        page.wait(lambda: not page.connected(), "the banner")
        self.assertFalse(page.at("restart").is_enabled())
        server.__init__(server.port)
        page.wait(page.connected, "the connection again")
        page.shows("datagrams", "0x602")
        self.assertEqual(page.text("datagrams").count("0x602"), 1)  # of the new server alone
        page.wait(camera_is_read, "a text, with the camera still on")

    def test_looks(self):
        page.choose("glare")
        self.shows_text_of("glare")
        page.press("mode-3")
        page.press("disable")
        page.shows("last-note", "ignored")
        colours = {}
        for name, width, scheme in (("light", 1280, "light"), ("dark", 1280, "dark"), ("narrow", 360, "light")):
            page.devtools("Emulation.setEmulatedMedia",
                          {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
            for height in ("800", "document.documentElement.scrollHeight"):
                page.devtools("Emulation.setDeviceMetricsOverride", {
                    "width": width, "height": page.js("return " + height), "deviceScaleFactor": 1,
                    "mobile": width < 500})
            page.wait(lambda: page.js("return [...document.images].every((one) => one.naturalWidth > 0)"), "images")
            page.wait(lambda: page.js(WINNER_IS_DRAWN), "tiles")
            self.assertLessEqual(page.js("return document.documentElement.scrollWidth"), width)
            colours[name] = page.js("return getComputedStyle(document.body).color")
            picture = page.devtools("Page.captureScreenshot", {"captureBeyondViewport": True})["data"]
            (PICTURES / f"desk-{name}.png").write_bytes(base64.b64decode(picture))
        page.devtools("Emulation.clearDeviceMetricsOverride", {})
        self.assertNotEqual(colours["light"], colours["dark"])


class OtherCamerasTest(unittest.TestCase):
    def test_none_and_refused(self):
        for words, camera in (("refuses", {"allowed": False}), ("no camera", {"device": False})):
            with self.subTest(words):
                other = Page(server, **camera)
                other.press("camera-toggle")
                other.shows("camera-message", words)
                other.driver.quit()


class HttpTest(unittest.TestCase):
    def test_other_sites_are_refused(self):
        host = f"127.0.0.1:{server.port}"
        server.do("/restart")
        for headers in ({"Origin": "http://evil.example"}, {"Origin": "null"}, {"Origin": "https://" + host},
                        {"Host": f"evil.example:{server.port}"}, {"Host": ""}, {"Host": "127.0.0.1"},
                        {"Sec_Fetch_Site": "cross-site"}, {"Sec_Fetch_Site": "same-site"}):
            for method, path in (("POST", "/kill"), ("GET", "/"), ("GET", "/events"), ("GET", "/pictures/0")):
                self.assertEqual(server.ask(method, path, **headers)[0], 403, (path, headers))
        self.assertEqual(server.event("state")["end"], "")
        server_answers = server.ask("POST", "/enable", Origin="http://" + host, Sec_Fetch_Site="same-origin")
        self.assertEqual(server_answers[0], 200)
        self.assertFalse(harness.listens(server.port, "127.0.0.2"))  # bound to one address alone

    def test_nothing_else_is_served(self):
        up = "../" * 9
        for path in (f"/{up}etc/passwd", "/%2e%2e/%2e%2e/%2e%2e/%2e%2e/etc/passwd", f"/pictures/{up}etc/passwd",
                     "/pictures//etc/passwd", "/pictures/-1", "/pictures/9999", "/pictures/99999999999999999999",
                     "/pictures/", "/desk.js/../index.html", "/index.html"):
            self.assertEqual(server.ask("GET", path)[0], 404, path)
        for path in ("/sample?n=/etc/passwd", "/sample?n=", "/mode?value=256", "/answer?when=x", "/fault?n=9999"):
            self.assertEqual(server.ask("POST", path)[0], 404, path)
        self.assertEqual(server.ask("PUT", "/picture", b"x")[0], 405)
        server.do(f"/picture?name={up}etc/passwd", film.sample("badge").read_bytes())  # a label, no path
        self.assertIn(b"JFIF", server.ask("GET", f"/view?{up}etc/passwd")[1][:16])

    def test_what_it_starts_reaches_no_network(self):
        desk = server.pid()
        listening = os.readlink(f"/proc/{desk}/fd/3")
        started = [pid for pid, line in harness.family(desk).items() if pid != desk and line]
        self.assertTrue(any(harness.command_line(pid).startswith(str(harness.PROJECT)) for pid in started), started)
        for pid in [desk] + started:
            try:
                self.assertNotEqual(os.readlink(f"/proc/{pid}/ns/net"), os.readlink("/proc/self/ns/net"))
                held = [os.readlink(one) for one in pathlib.Path(f"/proc/{pid}/fd").iterdir()]
            except FileNotFoundError:
                continue  # a reading that has ended
            if pid != desk:
                self.assertNotIn(listening, held, harness.command_line(pid))

    def test_slow_and_cut_uploads_are_harmless(self):
        descriptors = pathlib.Path(f"/proc/{server.pid()}/fd")
        before = len(list(descriptors.iterdir()))
        head = f"POST /picture HTTP/1.1\r\nHost: 127.0.0.1:{server.port}\r\nContent-Length: 99999\r\n\r\n"
        slow = [socket.create_connection(("127.0.0.1", server.port)) for _ in range(20)]
        for one in slow:
            one.sendall(head.encode() + b"x" * 500)
        server.do("/sample?n=0")
        for one in slow:
            one.close()
        harness.until(lambda: len(list(descriptors.iterdir())) <= before, "the connections' end")
        self.assertEqual(server.event("state")["view"]["from"], "sample")


class EndTest(unittest.TestCase):
    def test_port_taken(self):
        ended = subprocess.run([harness.DESK, "--port", str(server.port)], capture_output=True, text=True,
                               timeout=harness.PATIENCE_S)
        self.assertEqual(ended.returncode, 1, ended.stderr)
        self.assertRegex(ended.stderr, f"^.*port {server.port} .*--port\n$")

    def test_nothing_is_left(self):
        for by, status in ((signal.SIGINT, 0), (signal.SIGTERM, -15), (signal.SIGKILL, -9)):
            with self.subTest(by.name):
                one = Server()
                watched = one.events()
                faults = [fault["name"] for fault in next(watched)["faults"]]
                one.do("/sample?n=0")
                one.do(f"/fault?n={faults.index('HI_MPI_VENC_CreateChn fails')}")  # floods its output
                self.assertEqual(one.end(by), (status, []))
                harness.until(lambda: not harness.listens(one.port), "the port to be free")


if __name__ == "__main__":
    unittest.main(verbosity=2)
