#!/usr/bin/python3
"""Measures the desk, as scripts/test-desk.sh says. usage: desk_figures.py times N, or hour MINUTES"""
import os
import statistics
import sys
import threading
import time

import film
import harness
from harness import Page, Server

FILM = harness.folder / "film.mjpeg"
SENT_PER_S = 12  # frames, as the page sends them
SETTLED = 5      # minutes after which nothing should grow
# Notes when a white corner comes, by the time of capture, and how long after it another text is on the page.
STOPWATCH = """
const corner = new OffscreenCanvas(1, 1).getContext("2d", {willReadFrequently: true});
const play = HTMLMediaElement.prototype.play;
let white = false, since = null;
window.deskTimes = [];
window.deskShown = 0;
HTMLMediaElement.prototype.play = function () {
    const look = (now, frame) => {
        corner.drawImage(this, 20, 20, 1, 1, 0, 0, 1, 1);
        const before = white;
        white = corner.getImageData(0, 0, 1, 1).data[0] > 127;
        if (white && !before) {
            since = frame.captureTime ?? now;
            ++window.deskShown;
        }
        this.requestVideoFrameCallback(look);
    };
    this.requestVideoFrameCallback(look);
    return play.call(this);
};
addEventListener("DOMContentLoaded", () => new MutationObserver(() => {
    if (since !== null) window.deskTimes.push(performance.now() - since);
    since = null;
}).observe(document.getElementById("result"), {childList: true, characterData: true, subtree: true}));"""


def times_on_page(server, count):
    page = Page(server, FILM, script=STOPWATCH)
    page.press("camera-toggle")
    page.wait(lambda: page.js("return deskTimes.length") >= count, f"{count} texts", 60 + 2 * film.SCENE_S * count)
    times, shown = page.js("return [deskTimes, deskShown]")
    page.driver.quit()
    return times, shown - len(times)


def times_of_datagrams(server, count):
    """The film as the page sends it, without one; to the event of the datagram."""
    frames = {name: film.frame(name, sent=True) for name in [None] + film.NAMES}
    came, times, shown = {}, [], set()

    def play():
        start = time.perf_counter()
        while len(times) < count:
            scene, within = divmod(time.perf_counter() - start, film.SCENE_S)
            name = film.NAMES[int(scene) % len(film.NAMES)] if within < film.SHOWN_S else None
            if name and scene not in shown:
                came[film.text_of(name)] = start + scene * film.SCENE_S
                shown.add(scene)
            server.do("/picture?from=camera&name=camera", frames[name])
            time.sleep(-(time.perf_counter() - start) % (1 / SENT_PER_S))

    player = threading.Thread(target=play, daemon=True)
    player.start()
    for event in server.events():
        if event["type"] == "datagram" and event.get("text") in came:  # the first of each time it is shown
            times.append((time.perf_counter() - came.pop(event["text"])) * 1000)
        if len(times) == count:
            return times, len(shown) - count
        assert player.is_alive(), "no more frames are sent"


def times(server, count):
    for what, measure in (("on the page", times_on_page), ("without a browser", times_of_datagrams)):
        found, missed = measure(server, count)
        found = sorted(found[:count])
        print(f"{what}: {count} codes, median {statistics.median(found):.0f} ms, "
              f"95 % {found[int(0.95 * (count - 1))]:.0f} ms; {missed} shown and not read", flush=True)
        server.do("/clear")
        server.do("/restart")


def resident_kib(pid):
    with open(f"/proc/{pid}/statm") as figures:
        return int(figures.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") // 1024


def held(server, page, state):
    desk = server.pid()
    browser = harness.family(page.driver.service.process.pid)
    metrics = {one["name"]: int(one["value"]) for one in page.devtools("Performance.getMetrics", {})["metrics"]}
    return {"server KiB": resident_kib(desk), "descriptors": len(os.listdir(f"/proc/{desk}/fd")),
            "service KiB": state["residentKib"], "its descriptors": state["descriptors"],
            "page KiB": sum(resident_kib(pid) for pid, line in browser.items() if "--type=renderer" in line),
            "heap KiB": metrics["JSHeapUsedSize"] // 1024, "nodes": metrics["Nodes"]}


def hour(server, minutes):
    page = Page(server, FILM)
    page.devtools("Performance.enable", {})
    page.press("camera-toggle")
    page.shows("camera-message", "On.")
    lines, views, since = [], None, time.monotonic()
    for view, state in ((event["view"]["k"], event) for event in server.events() if event["type"] == "state"):
        seconds = time.monotonic() - since
        if views is None:
            views = view
        if seconds < 60:
            continue
        lines.append(held(server, page, state))
        print(f"{len(lines)} min: {(view - views) / seconds:.1f} frames a second; "
              + ", ".join(f"{name} {value}" for name, value in lines[-1].items()), flush=True)
        views, since = view, time.monotonic()
        if len(lines) == minutes:
            break
    if len(lines) > SETTLED:
        print(f"growth after minute {SETTLED}: " + ", ".join(
            f"{name} {value - lines[SETTLED - 1][name]:+}" for name, value in lines[-1].items()))


if __name__ == "__main__":
    film.write(FILM)
    desk = Server()
    {"times": times, "hour": hour}[sys.argv[1]](desk, int(sys.argv[2]))
    sys.exit(desk.end() != (0, []))
