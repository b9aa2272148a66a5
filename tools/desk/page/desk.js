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
const MESSAGES = 5;         // on view at once
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
let showing = null; // what is read without a break: {hex: of its text, view, shown: that view, since}

const $ = (id) => document.getElementById(id);
const all = (selector) => document.querySelectorAll(selector);
const hex = (value, digits) => value.toString(16).padStart(digits, "0");
const megabytes = (bytes) => `${(bytes / 1048576).toFixed(1)} MB`;
const clock = (ms) => new Date(ms).toTimeString().slice(0, 8);
const fineClock = (ms) => `${clock(ms)}.${String(new Date(ms).getMilliseconds()).padStart(3, "0")}`;
const pairs = (text) => text.match(/../g) || [];

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
let online = false;
let heardAt = 0;

function setOnline(yes) {
    online = yes;
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

function complain(text) {
    const shown = [...$("messages").children];
    if (shown.some((message) => message.firstChild.textContent === text)) return;
    if (shown.length === MESSAGES) shown[0].remove();
    const dismiss = make("button", { type: "button" }, "Dismiss");
    dismiss.onclick = () => dismiss.parentElement.remove();
    $("messages").append(make("p", {}, make("span", {}, text), dismiss));
}

// Returns whether the server took it. What it says against it becomes a message.
async function post(path, body, quiet = false) {
    try {
        const answer = await fetch(path, { method: "POST", body });
        const said = await answer.json().catch(() => ({})); // Chromium never lets go of one that is not read
        if (answer.ok) return true;
        complain(visible(said.error || `The desk answered ${answer.status} to ${path}.`));
    } catch {
        if (online && !quiet) complain("The desk gave no answer; it may have ended.");
    }
    return false;
}

// In the order in which they are pressed. What was refused is not left chosen.
let steering = Promise.resolve();
const steer = (path) => {
    steering = steering.then(async () => await post(path) || (state && syncControls()));
};

// --- Camera ---
const pen = $("view").getContext("2d");
const video = Object.assign(document.createElement("video"), { muted: true, playsInline: true });
let stream = null;             // of this computer's camera while it is on
let filming = 0;               // changes whenever the camera is switched
let frame = Promise.resolve(); // the frame on its way
let frames = 0;                // taken within the present second
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
    put($("camera-rate"), "");
    sayCamera(why);
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
        if (mine !== filming || !online || document.hidden || !video.videoWidth) continue;
        frame = sendFrame(mine);
        await frame;
    }
}

async function sendFrame(mine) {
    const side = Math.min(video.videoWidth, video.videoHeight);
    const corner = [(video.videoWidth - side) / 2, (video.videoHeight - side) / 2];
    draw("this computer's camera", video, corner, side);
    const jpeg = await new Promise((taken) => $("view").toBlob(taken, "image/jpeg", 0.85));
    if (mine !== filming) return;
    const taken = await post("/picture?from=camera&name=camera", jpeg, true); // another one follows
    frames += taken;
}

// Anything else before the camera: the frame on its way arrives first.
async function choose(path, body) {
    stopCamera("");
    await frame;
    if (await post(path, body)) $("messages").replaceChildren();
}

function chooseFile(file) {
    if (!file || !online) return;
    const most = begin.limit.upload;
    if (file.size <= most) choose(`/picture?from=file&name=${encodeURIComponent(file.name)}`, file);
    else complain(`${visible(file.name)} has ${megabytes(file.size)}; at most ${megabytes(most)} are taken.`);
}

function showView(view) {
    for (const button of $("samples").children) {
        button.setAttribute("aria-pressed", String(view.from === "sample" && button.name === view.name));
    }
    if (stream || view.k === viewed) return;
    viewed = view.k;
    if (view.from === "wall") return draw("nothing: a grey wall");
    const image = new Image();
    const name = visible(view.name);
    image.onload = () => viewed === view.k && draw(name, image);
    image.src = `/view?${view.k}`;
}

function makeSample({ name }, n) {
    const image = make("img", { alt: "", loading: "lazy", src: `/pictures/${n}` }); // named below it
    const button = make("button", { type: "button", name }, image, visible(name.replace(/\.\w+$/, "")));
    button.onclick = () => choose(`/sample?n=${n}`);
    return button;
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
    if (idle) return ["off", "Would be read", `nothing is reported${idle}`];

    const waited = Date.now() - showing.since;
    const same = told && !told.old && told.hex === showing.hex;
    const once = same && `at ${clock(told.at)}, not sent again until a reading finds nothing`;
    const asIs = reading.outcome === "altered" ? ["altered", "Reported, altered"] : ["reported", "Reported"];
    if (same && told.at >= showing.since) return [...asIs, once];
    if (same && (!told.passed || waited > REPORT_MS)) return ["seen", "Seen before", `reported ${once}`];
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
const tiles = []; // {button, pen, title, finding}, in the service's order
let sheet = null; // picture of all sixteen
let sheetOf = null; // the reading that it shows
let loading = false;
let enlarged = 0;

function makeTiles() {
    const pens = Array.from({ length: 8 }, () => make("div", { className: "pair" }));
    for (let n = 0; n < 2 * pens.length; ++n) {
        const canvas = make("canvas", { width: TILE_SIDE, height: TILE_SIDE });
        const [title, finding] = [make("span", {}), make("span", { className: "dim" })];
        const button = make("button", { type: "button" }, canvas, title, finding);
        button.onclick = () => enlarge(n);
        tiles.push({ button, pen: canvas.getContext("2d"), title, finding });
        pens[n >> 1].append(button);
    }
    $("tiles").append(...pens);
}

function drawTiles() {
    const cut = (to, n, side) => {
        const [column, row] = [(n >> 1) % 4, 2 * (n >> 3) + n % 2];
        to.clearRect(0, 0, side, side);
        if (sheet) to.drawImage(sheet, SIDE * column, SIDE * row, SIDE, SIDE, 0, 0, side, side);
    };
    tiles.forEach((tile, n) => cut(tile.pen, n, TILE_SIDE));
    cut($("tile-large").getContext("2d"), enlarged, SIDE);
}

// The newest sheet, one at a time: what comes meanwhile is passed over but for the last.
async function loadTiles() {
    if (loading) return;
    loading = true;
    while (reading?.findings.length && reading.k !== sheetOf && !document.hidden) {
        sheetOf = reading.k;
        try {
            const bitmap = await createImageBitmap(await (await fetch(`/tiles?${sheetOf}`)).blob());
            sheet?.close();
            sheet = bitmap;
            drawTiles();
        } catch {
            // Cut off, which the banner says, or no longer kept: the next follows.
        }
    }
    loading = false;
}

function describeTiles() {
    tiles.forEach(({ button, title, finding }, n) => {
        const made = n < (reading?.scans || 0);
        const won = made && reading.text !== null && n === reading.scans - 1;
        put(title, `${(n >> 1) + 1} ${begin.attempts[n >> 1]}${n % 2 ? ", opened" : ""}`);
        put(finding, visible(reading?.findings[n] || "not made"));
        button.className = `tile${made ? "" : " unmade"}${won ? " won" : ""}`;
    });
    put($("tile-title"), tiles[enlarged].title.textContent);
    put($("tile-finding"), tiles[enlarged].finding.textContent);
}

function enlarge(n) {
    enlarged = (n + tiles.length) % tiles.length;
    if (!$("tile-dialog").open) $("tile-dialog").showModal();
    describeTiles();
    drawTiles();
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
    describeTiles();
    if (!reading.findings.length) {
        sheet?.close();
        sheet = null;
        drawTiles();
    }
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
    const bytes = make("pre", {});
    const row = make("details", { className: event.direction },
        make("summary", {}, ...words.map((word) => make("span", {}, word))), bytes);
    row.ontoggle = () => put(bytes, row.open ? dump(event) : "");
    insertRow(event.time, row);
}

// The header's words, then all bytes in hexadecimal; whole lines of zeros are counted.
function dump(event) {
    const width = $("datagrams").clientWidth < 560 ? 8 : 16;
    const bytes = pairs(event.hex).map((pair) => parseInt(pair, 16));
    const words = new DataView(new ArrayBuffer(HEAD_SIZE)); // what is missing counts as zero
    bytes.slice(0, HEAD_SIZE).forEach((byte, at) => words.setUint8(at, byte));
    const meanings = ["", event.name || "", "", "", `of ${Math.max(0, bytes.length - HEAD_SIZE)} that came`];
    const lines = HEAD.map((name, n) => {
        const value = words.getUint32(4 * n, true);
        return `${name.padEnd(11)} 0x${hex(value, 8)} = ${value} ${meanings[n]}`;
    });
    for (let at = 0, end = 0; at < bytes.length; at = end) {
        while (end < bytes.length && bytes[end] === 0) ++end;
        if (end < bytes.length) end -= (end - at) % width;
        if (end - at > width) {
            lines.push(`* ${end - at} more zero bytes`);
            continue;
        }
        end = at + width;
        const part = bytes.slice(at, end);
        const letters = part.map((byte) => (byte > 31 && byte < 127 ? String.fromCharCode(byte) : "."));
        const digits = part.map((byte) => hex(byte, 2)).join(" ").padEnd(3 * width - 1);
        lines.push(`${hex(at, 4)}  ${digits}  ${letters.join("")}`);
    }
    return lines.join("\n");
}

// --- Terminal ---
function syncControls() {
    document.querySelector(`input[name=answer][value=${state.answer}]`).checked = true;
    $("fault").selectedIndex = state.fault;
}

function showState() {
    const { service, end, upS, mode } = state;
    const ended = service === "ended";
    $("dot").className = service;
    put($("service-state"), STATES[service] + (ended && end ? `: ${end}` : ""));
    fill($("terminal-facts"), ended ? [] : [["Up", `${Math.floor(upS / 60)} min ${Math.floor(upS % 60)} s`],
        ["Process", state.pid], ["Threads", state.threads], ["CPU", `${state.cpuPercent.toFixed(0)} %`],
        ["Memory", megabytes(state.residentKib * 1024)], ["Peak", megabytes(state.peakKib * 1024)],
        ["Descriptors", state.descriptors]], fact);
    const apart = state.betweenMs === null ? "none yet" : `${state.betweenMs.toFixed(0)} ms`;
    fill($("service-facts"), [["Service: between its last two pictures", apart],
        ["Readings a second", state.readingsPerS]], fact);
    put($("answer-with"), `: mode ${state.answerMode}${state.answerEnable ? ", Enable" : ""}`);
    put($("told-mode"), `The service was told ${mode === null ? "no mode" : `mode ${mode}`}; ` +
        `scanning is ${state.enabled ? "on" : "off"}.`);
    for (const n of [0, 1, 3]) $(`mode-${n}`).setAttribute("aria-pressed", String(mode === n));
    put($("fault-door"), begin.faults[state.fault]?.door || "");
    showView(state.view);
}

// The log's mark stays where the log has it, dimmed.
function logLine(text) {
    const line = make("div", {});
    text.trimEnd().split("</br>").forEach((part, n) => {
        if (n > 0) line.append(make("span", { className: "dim" }, "</br>"));
        line.append(visible(part));
    });
    return line;
}

const HANDLERS = {
    begin(event) {
        begin = event;
        state = reading = told = showing = viewed = null;
        sheet?.close();
        sheet = sheetOf = null;
        put($("version"), begin.version);
        for (const old of all("#datagrams, #last-note, #remark, .log")) old.replaceChildren();
        for (const id of ["causes", "texts", "reading-facts"]) fill($(id), []);
        put($("outcome"), "No reading yet");
        put($("result"), "none yet");
        $("result").className = "none";
        fill($("fault"), begin.faults, ({ name }) => make("option", {}, name));
        fill($("samples"), begin.pictures, makeSample);
        describeTiles();
        drawTiles();
        setOnline(true);
    },
    state(event) {
        const changed = !state || state.answer !== event.answer || state.fault !== event.fault;
        state = event;
        if (changed) syncControls();
        showState();
    },
    datagram(event) {
        addDatagram(event);
        if (event.direction === "out") put($("last-note"), "");
        if (event.direction === "in" && event.command === "0x602" && told) told.old = true;
        if (event.direction !== "in" || event.command !== "0x904") return;
        const text = pairs(event.hex).slice(HEAD_SIZE).concat("00");
        told = { hex: text.slice(0, text.indexOf("00")).join(""), at: event.time * 1000, old: false };
        $("result").className = "";
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
        const pane = $(`log-${event.stream.replace(".txt", "")}`);
        const follows = pane.scrollHeight - pane.scrollTop - pane.clientHeight < 8;
        if (event.emptied) pane.replaceChildren();
        pane.append(...event.lines.slice(-LINES).map(logLine));
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
$("tile-dialog").onclose = () => tiles[enlarged].button.focus();

document.onvisibilitychange = () => {
    if (stream) sayCamera(document.hidden ? "Paused while this page is hidden." : "On.");
    loadTiles();
};

setInterval(() => {
    if (source.readyState !== EventSource.CLOSED && performance.now() - heardAt > SILENT_MS) lose();
    if (stream) put($("camera-rate"), `${frames} frames a second`);
    frames = 0;
    showResult();
}, 1000);

draw("nothing yet");
makeTiles();
connect();
