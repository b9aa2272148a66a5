// Shows what the desk tells in its events, and hands on what is pressed, chosen or filmed.

const SIDE = 400;           // pixels: the terminal's view, and each of the sixteen pictures
const TILE_SIDE = 200;      // pixels of the small ones
const FRAME_MS = 1000 / 12; // between frames of this computer's camera
const RETRY_MS = 1000;      // until a lost connection is tried again
const SILENT_MS = 5000;     // there is a state every second: a longer silence is a lost connection
const REPORT_MS = 2000;     // within which the service reports what it can read, as a rule
const REPORT_MIN = 11;      // bytes: a shorter text is never reported
const ROWS = 200;           // datagrams and notes kept
const LINES = 500;          // kept of each log
const HEAD = ["nMsgSync", "nMsgCommand", "nMsgSource", "nMsgParam", "nMsgLength"];
const HEAD_SIZE = 20;
const STATES = { starting: "Starting: waits for a mode", running: "Running", ended: "Ended",
    parked: "Parked: no mode but 0 came in time; only a restart with another answer helps" };
const REFUSALS = {
    NotAllowedError: "The browser refuses the camera. Allow it for this page, then press again.",
    NotFoundError: "This computer has no camera. Connect one, then press again.",
    NotReadableError: "The camera cannot be opened, perhaps because another program uses it. Press again.",
    TypeError: "The browser gives its camera only to pages at 127.0.0.1 or localhost.",
};

let begin = null;   // the event that opened this connection
let state = null;   // the newest of their kind
let reading = null;
let told = null;    // the last result: {hex, at, old: of a service before, passed: since then read other}
let idleAt = 0;     // when the service was last seen to be unable to report, or a fault to come or go
let showing = null; // what is read without a break: {hex: of its text, view, shown: that view, since}

const $ = (id) => document.getElementById(id);
const all = (selector) => document.querySelectorAll(selector);
const hex = (value, digits) => value.toString(16).padStart(digits, "0");
const clock = (ms) => new Date(ms).toTimeString().slice(0, 8);
const fineClock = (ms) => `${clock(ms)}.${String(new Date(ms).getMilliseconds()).padStart(3, "0")}`;

// What cannot be seen, or turns the direction of writing, as its bytes.
const visible = (text) => text.replace(/[\p{Cc}\p{Cf}\p{Zl}\p{Zp}]/gu, (letter) => (letter === "\n" ? "\\n"
    : Array.from(new TextEncoder().encode(letter), (byte) => `\\x${hex(byte, 2)}`).join("")));

function make(tag, properties, ...children) {
    const element = Object.assign(document.createElement(tag), properties);
    element.append(...children);
    return element;
}

function put(element, text) {
    if (element.textContent !== text) element.textContent = text;
}

// One element for each item, anew only when an item has changed: a selection in them stays.
function fill(element, items, build = line) {
    const key = JSON.stringify(items);
    if (element.dataset.shown !== key) element.replaceChildren(...items.map(build));
    element.dataset.shown = key;
}

const line = (text) => make("li", {}, text);
const fact = ([name, value]) => make("div", {}, make("dt", {}, name), make("dd", {}, String(value)));

// --- Connection ---
let source = null;
let heardAt = 0;
const isOnline = () => $("banner").hidden;

function setOnline(yes) {
    $("banner").hidden = yes;
    for (const controls of all("fieldset")) controls.disabled = !yes;
}

function connect() {
    heardAt = performance.now();
    source = new EventSource("/events");
    source.onerror = lose;
    source.onmessage = (message) => {
        heardAt = performance.now();
        const event = JSON.parse(message.data);
        HANDLERS[event.type]?.(event);
        showResult();
    };
}

function lose() {
    source.close();
    put($("banner"), "Connection lost; trying again");
    setOnline(false);
    setTimeout(connect, RETRY_MS);
}

// Returns whether the server took it. What it says against it becomes the message, until it takes something; a frame of the camera, which another
// one follows, is neither missed nor a reason to take a message away.
async function post(path, body, filmed = false) {
    try {
        const answer = await fetch(path, { method: "POST", body });
        const said = await answer.json().catch(() => ({})); // Chromium never lets go of one that is not read
        const words = answer.ok ? "" : said.error || `The desk answered ${answer.status} to ${path}.`;
        if (words || !filmed) put($("message"), visible(words));
        return answer.ok;
    } catch {
        if (isOnline() && !filmed) put($("message"), "The desk gave no answer; it may have ended.");
        return false;
    }
}

// In the order in which they are pressed. What was refused is not left chosen: the next state says so.
let steering = Promise.resolve();
const steer = (path) => {
    steering = steering.then(() => post(path));
};

// --- Camera ---
const pen = $("view").getContext("2d");
const video = Object.assign(document.createElement("video"), { muted: true, playsInline: true });
let stream = null;             // of this computer's camera while it is on
let filming = 0;               // changes whenever the camera is switched
let frame = Promise.resolve(); // the frame on its way
let viewed = null;             // the view that is drawn

// An image, or the part of it that `from`, its corner, and `side` say, as the terminal sees it.
function draw(words, image, from = [0, 0], side = SIDE) {
    pen.fillStyle = "rgb(128, 128, 128)";
    pen.fillRect(0, 0, SIDE, SIDE);
    const size = Math.min(side, SIDE); // never enlarged
    if (image) pen.drawImage(image, ...from, side, side, (SIDE - size) / 2, (SIDE - size) / 2, size, size);
    put($("view-name"), words);
    $("view").setAttribute("aria-label", words);
}

function sayCamera(text) {
    put($("camera-message"), text);
    $("camera-toggle").setAttribute("aria-pressed", String(stream !== null));
}

function stopCamera(why) {
    ++filming;
    for (const track of stream ? stream.getTracks() : []) track.stop(); // which does not call onended
    stream = video.srcObject = viewed = null;
    sayCamera(why);
    if (state) showView(state.view);
}

async function startCamera() {
    const mine = ++filming;
    sayCamera("Waiting for the camera; the browser may ask for permission.");
    try {
        const size = { width: { ideal: 640 }, height: { ideal: 480 } };
        const got = await navigator.mediaDevices.getUserMedia({ video: size });
        if (mine !== filming) return got.getTracks().forEach((track) => track.stop());
        stream = video.srcObject = got;
        got.getVideoTracks()[0].onended = () => stopCamera("The system has ended the camera. Press again.");
        sayCamera("On.");
        await video.play();
        film(mine);
    } catch (error) {
        if (mine === filming) stopCamera(REFUSALS[error.name] || `No camera: ${error.message}. Press again.`);
    }
}

// One frame after another, never two on their way; the pace makes up for a late one.
async function film(mine) {
    for (let due = performance.now(); mine === filming; due = Math.max(due + FRAME_MS, performance.now())) {
        await new Promise((next) => setTimeout(next, due - performance.now()));
        if (mine !== filming || !isOnline() || document.hidden || !video.videoWidth) continue;
        frame = sendFrame(mine);
        await frame;
    }
}

async function sendFrame(mine) {
    const side = Math.min(video.videoWidth, video.videoHeight);
    const corner = [(video.videoWidth - side) / 2, (video.videoHeight - side) / 2];
    draw("this computer's camera", video, corner, side);
    const jpeg = await new Promise((taken) => $("view").toBlob(taken, "image/jpeg", 0.85));
    if (mine === filming) await post("/picture?from=camera&name=camera", jpeg, true);
}

// Anything else before the camera, in the order in which it is chosen: the frame on its way arrives first. What is
// refused leaves the camera on.
let choosing = Promise.resolve();
const choose = (path, body) => {
    choosing = choosing.then(async () => {
        const mine = ++filming;
        if (!stream) sayCamera("");
        await frame;
        const taken = await post(path, body);
        if (mine !== filming) return; // the camera was switched meanwhile
        if (taken) stopCamera("");
        else if (stream) film(mine);
    });
};

function chooseFile(file) {
    if (file && isOnline()) choose(`/picture?from=file&name=${encodeURIComponent(file.name)}`, file);
}

function showView(view) {
    for (const button of $("samples").children) {
        button.setAttribute("aria-pressed", String(view.from === "sample" && button.name === view.name));
    }
    if (stream || view.k === viewed) return;
    viewed = view.k;
    const image = new Image();
    const name = view.from === "wall" ? "nothing: a grey wall" : visible(view.name);
    image.onload = () => viewed === view.k && draw(name, image);
    image.src = `/view?${view.k}`;
}

function makeSample(name, n) {
    const image = make("img", { alt: "", loading: "lazy", src: `/pictures/${n}` }); // named below it
    const onclick = () => choose(`/sample?n=${n}`);
    return make("button", { type: "button", name, onclick }, image, visible(name.replace(/\.\w+$/, "")));
}

// --- Result ---
// Why the service reports nothing, whatever is before the camera.
function idleReason() {
    if (state?.service === "ended") return `; the service ${state.end || "has ended"}`;
    if (state && state.service !== "running") return `; the service is ${state.service}`;
    return state?.enabled === false ? "; scanning is switched off" : "";
}

// The case, its words, and what is said about it.
function verdict() {
    if (!reading) return ["idle", "Waiting", "for the first reading"];
    const idle = idleReason();
    const bytes = `${reading.bytes} of ${REPORT_MIN} bytes, read but never reported`;
    const why = reading.causes?.[0]?.sentence || reading.remark || reading.outcome;
    if (reading.outcome === "too short") return ["short", "Too short", bytes + idle];
    if (!showing.hex && state?.view.from === "wall") return ["idle", "Nothing on view", `only a wall${idle}`];
    if (!showing.hex) return ["nothing", "Nothing found", visible(why) + idle];
    if (idle) {
        idleAt = Date.now();
        return ["off", "Would be read", `nothing is reported${idle}`];
    }
    const blocked = begin.faults[state?.fault]?.blocks;
    const waited = Date.now() - Math.max(showing.since, idleAt);
    const same = told && !told.old && told.hex === showing.hex;
    const once = same && `at ${clock(told.at)}, not sent again until a reading finds nothing or another text`;
    const asIs = reading.outcome === "altered" ? ["altered", "Reported, altered"] : ["reported", "Reported"];
    if (same && told.at >= showing.since) return [...asIs, once];
    if (same && !blocked && (!told.passed || waited > REPORT_MS)) return ["seen", "Seen before", `reported ${once}`];
    if (waited < REPORT_MS) return ["idle", "Read here", "the service has not reported it yet"];
    const fault = state?.fault ? `; the platform has the fault "${begin.faults[state.fault]?.name}"` : "";
    return ["silent", "Read here, not reported", `the service has sent nothing${fault}`];
}

function showResult() {
    const [kind, words, details] = verdict();
    $("verdict").dataset.case = kind;
    put($("verdict-word"), words);
    put($("verdict-detail"), details);
    const before = told?.old ? ", before the last start of the service" : "";
    put($("result-time"), told ? `at ${fineClock(told.at)}${before}` : "");
}

// --- Reading ---
let sheet = null;   // picture of all sixteen
let sheetOf = null; // the view that it shows
let loading = false;
let enlarged = 0;

// In the service's order, each opened twin beside its own.
const tiles = Array.from({ length: 16 }, (_, n) => make("button",
    { type: "button", className: "tile", onclick: () => enlarge(n) },
    make("canvas", { width: TILE_SIDE, height: TILE_SIDE }), make("span"), make("span", { className: "dim" })));
for (let n = 0; n < tiles.length; n += 2) {
    $("tiles").append(make("div", { className: "pair" }, tiles[n], tiles[n + 1]));
}

function showTile(n, canvas, title, finding) {
    const [pen, side] = [canvas.getContext("2d"), canvas.width];
    const [column, row] = [(n >> 1) % 4, 2 * (n >> 3) + n % 2];
    pen.clearRect(0, 0, side, side);
    if (sheet) pen.drawImage(sheet, SIDE * column, SIDE * row, SIDE, SIDE, 0, 0, side, side);
    put(title, `${(n >> 1) + 1} ${begin.attempts[n >> 1]}${n % 2 ? ", opened" : ""}`);
    put(finding, visible(reading?.findings[n] || "not made"));
}

function showTiles() {
    tiles.forEach((tile, n) => {
        const made = n < (reading?.scans || 0);
        tile.classList.toggle("unmade", !made);
        tile.classList.toggle("won", made && reading.text !== null && n === reading.scans - 1);
        showTile(n, ...tile.children);
    });
    showTile(enlarged, $("tile-large"), $("tile-title"), $("tile-finding"));
}

function dropSheet() {
    sheet?.close();
    sheet = sheetOf = null;
}

// The newest sheet, one at a time: what comes meanwhile is passed over but for the last.
async function loadTiles() {
    if (loading) return;
    loading = true;
    while (reading?.findings.length && reading.view !== sheetOf && !document.hidden) {
        sheetOf = reading.view;
        try {
            const bitmap = await createImageBitmap(await (await fetch(`/tiles?${sheetOf}`)).blob());
            sheet?.close();
            sheet = bitmap;
            showTiles();
        } catch {
            // Cut off, which the banner says, or no longer kept: the next follows.
        }
    }
    loading = false;
}

function enlarge(n) {
    enlarged = (n + tiles.length) % tiles.length;
    if (!$("tile-dialog").open) $("tile-dialog").showModal();
    showTiles();
}

function showReading() {
    const { outcome, text, causes = [], texts = [], attempt } = reading;
    const words = outcome[0].toUpperCase() + outcome.slice(1);
    const several = text === null || texts.length > 1;
    put($("outcome"), text === null ? words : `${words}: ${visible(text)}`);
    put($("remark"), visible(reading.remark || ""));
    fill($("texts"), several ? texts.map((one) => `${one.symbology} ${visible(one.text)}`) : []);
    fill($("causes"), text === null ? causes.map((one) => `${visible(one.sentence)} (${one.more})`) : []);
    fill($("reading-facts"), [["Attempt", attempt ? attempt + (reading.opened ? ", opened" : "") : "none"],
        ["Scans", reading.scans], ["Took", `${reading.ms.toFixed(1)} ms`],
        ["Kind", reading.symbologies.join(", ") || "none"]], fact);
    if (!reading.findings.length) dropSheet();
    showTiles();
    loadTiles();
}

// --- Main application ---
// Newest first, by their own times: notes may come late.
function insertRow(time, row) {
    const rows = $("datagrams");
    row.dataset.time = time;
    rows.insertBefore(row, [...rows.children].find((other) => Number(other.dataset.time) <= time) || null);
    while (rows.childElementCount > ROWS) rows.lastElementChild.remove();
}

function addDatagram(event) {
    const mode = event.mode === undefined ? "" : `mode ${event.mode}`;
    const way = event.direction === "in" ? "← from the service" : "→ to the service";
    const command = `${event.command || "no command"} ${event.name || ""}`;
    const words = [fineClock(event.time * 1000), way, command, visible(event.text ?? mode)];
    const bytes = make("pre");
    const row = make("details", { className: event.direction },
        make("summary", {}, ...words.map((word) => make("span", {}, word))), bytes);
    row.ontoggle = () => put(bytes, row.open ? dump(event) : "");
    insertRow(event.time, row);
}

// The header's words, then all bytes in hexadecimal, a "*" for several lines of zeros.
function dump(event) {
    const width = $("datagrams").clientWidth < 560 ? 8 : 16;
    const bytes = (event.datagram.match(/../g) || []).map((pair) => parseInt(pair, 16));
    const words = new DataView(new ArrayBuffer(HEAD_SIZE)); // what is missing counts as zero
    bytes.slice(0, HEAD_SIZE).forEach((byte, at) => words.setUint8(at, byte));
    const meanings = ["", event.name || "", "", "", `of ${Math.max(0, bytes.length - HEAD_SIZE)} that came`];
    const lines = HEAD.map((name, n) => {
        const value = words.getUint32(4 * n, true);
        return `${name.padEnd(11)} 0x${hex(value, 8)} = ${value} ${meanings[n]}`;
    });
    for (let at = 0, zeros = 0; at < bytes.length; at += width) {
        const part = bytes.slice(at, at + width);
        zeros = part.some(Boolean) ? 0 : zeros + 1;
        if (zeros === 2) lines.push("*");
        if (zeros > 1) continue;
        const letters = part.map((byte) => (byte > 31 && byte < 127 ? String.fromCharCode(byte) : "."));
        const digits = part.map((byte) => hex(byte, 2)).join(" ").padEnd(3 * width - 1);
        lines.push(`${hex(at, 4)}  ${digits}  ${letters.join("")}`);
    }
    return lines.join("\n");
}

// --- Terminal ---
for (const name of ["qrcodelog.txt", "uilog.txt", "stdout", "stderr"]) {
    const log = make("div", { className: "log", id: `log-${name}`, role: "log", ariaLabel: name, tabIndex: 0 });
    $("terminal").append(make("h3", {}, name), log);
}

function showState(event) {
    if (state?.fault !== event.fault) idleAt = Date.now();
    state = event;
    const { service, end, mode } = state;
    const ended = service === "ended";
    $("dot").className = service;
    put($("service-state"), STATES[service] + (ended && end ? `: ${end}` : ""));
    fill($("terminal-facts"), ended ? [] : [["Threads", state.threads], ["CPU", `${state.cpuPercent.toFixed(0)} %`],
        ["Memory", `${(state.residentKib / 1024).toFixed(1)} MB`], ["Descriptors", state.descriptors]], fact);
    const apart = state.betweenMs === null ? "none yet" : `${state.betweenMs.toFixed(0)} ms`;
    fill($("service-facts"), [["Service: between its last two pictures", apart],
        ["Readings a second", state.readingsPerS]], fact);
    put($("answer-with"), `: mode ${state.answerMode}${state.answerEnable ? ", Enable" : ""}`);
    const scans = service === "parked" ? "it is parked, and never scans" : `scanning is ${state.enabled ? "on" : "off"}`;
    put($("told-mode"), ended ? "" : `The service was told ${mode === null ? "no mode" : `mode ${mode}`}; ${scans}.`);
    for (const n of [0, 1, 3]) $(`mode-${n}`).setAttribute("aria-pressed", String(mode === n));
    document.querySelector(`input[name=answer][value=${state.answer}]`).checked = true;
    if ($("fault").selectedIndex !== state.fault) $("fault").selectedIndex = state.fault; // else an open list jumps
    put($("fault-door"), begin.faults[state.fault]?.door || "");
    showView(state.view);
}

const HANDLERS = {
    begin(event) {
        begin = event;
        state = reading = told = showing = viewed = null;
        dropSheet();
        put($("version"), begin.version);
        for (const old of all("#datagrams, #last-note, #remark, .log")) old.replaceChildren();
        for (const id of ["causes", "texts", "reading-facts"]) fill($(id), []);
        put($("outcome"), "No reading yet");
        put($("result"), "none yet");
        fill($("fault"), begin.faults, ({ name }) => make("option", {}, name));
        fill($("samples"), begin.pictures, makeSample);
        showTiles();
        setOnline(true);
    },
    state: showState,
    datagram(event) {
        addDatagram(event);
        if (event.direction === "out") return put($("last-note"), "");
        if (event.command === "0x602" && told) told.old = true;
        if (event.command !== "0x904") return;
        told = { hex: event.hex, at: event.time * 1000, old: false };
        put($("result"), visible(event.text || ""));
    },
    note(event) {
        const text = `${fineClock(event.time * 1000)} Note: ${visible(event.text)}`;
        insertRow(event.time, make("p", { className: "note" }, text));
        put($("last-note"), visible(event.text));
    },
    reading(event) {
        reading = event;
        const text = /^(read|text|altered)$/.test(reading.outcome) ? reading.hex : "";
        const moved = showing?.view !== reading.view && state?.view.from !== "camera";
        const shown = reading.shown * 1000;
        // Of the camera's pictures not all are read here: the first with this text may have come right after the last
        // that was read without it.
        const since = !showing ? 0 : moved ? shown : text !== showing.hex ? showing.shown : showing.since;
        if (told && text !== told.hex) told.passed = true;
        showing = { hex: text, view: reading.view, shown, since };
        showReading();
    },
    lines(event) {
        const pane = $(`log-${event.stream}`);
        const follows = pane.scrollHeight - pane.scrollTop - pane.clientHeight < 8;
        if (event.emptied) pane.replaceChildren();
        pane.append(...event.lines.slice(-LINES).map((text) => make("div", {}, visible(text.trimEnd()))));
        while (pane.childElementCount > LINES) pane.firstElementChild.remove();
        if (follows) pane.scrollTop = pane.scrollHeight;
    },
};

// --- Controls ---
for (const n of [0, 1, 3]) $(`mode-${n}`).onclick = () => steer(`/mode?value=${n}`);
for (const id of ["enable", "disable", "stop", "restart", "kill"]) $(id).onclick = () => steer(`/${id}`);
$("mode-form").onsubmit = (event) => {
    event.preventDefault();
    steer(`/mode?value=${$("mode-other").valueAsNumber}`);
};
for (const radio of all("input[name=answer]")) radio.onchange = () => steer(`/answer?when=${radio.value}`);
$("fault").onchange = () => steer(`/fault?n=${$("fault").selectedIndex}`);

$("camera-toggle").onclick = () => (stream ? stopCamera("") : startCamera());
$("clear").onclick = () => choose("/clear");
$("file").onchange = () => {
    chooseFile($("file").files[0]);
    $("file").value = ""; // so that the same file can be chosen again
};
addEventListener("paste", (event) => chooseFile(event.clipboardData.files[0]));
for (const kind of ["dragover", "dragleave", "drop"]) {
    addEventListener(kind, (event) => {
        event.preventDefault();
        const over = kind === "dragover" || (kind === "dragleave" && event.relatedTarget !== null);
        document.body.classList.toggle("dropping", over && event.dataTransfer.types.includes("Files"));
        if (kind === "drop") chooseFile(event.dataTransfer.files[0]);
    });
}

$("tile-dialog").onkeydown = (event) => {
    const step = { ArrowLeft: -1, ArrowUp: -1, ArrowRight: 1, ArrowDown: 1 }[event.key];
    if (!step) return;
    event.preventDefault();
    enlarge(enlarged + step);
};
$("tile-close").onclick = () => $("tile-dialog").close();
$("tile-dialog").onclose = () => tiles[enlarged].focus();

document.onvisibilitychange = () => {
    if (stream) sayCamera(document.hidden ? "Paused while this page is hidden." : "On.");
    loadTiles();
};

setInterval(() => {
    if (source.readyState !== EventSource.CLOSED && performance.now() - heardAt > SILENT_MS) lose();
    showResult();
}, 1000);

draw("nothing yet");
connect();
