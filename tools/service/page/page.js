// SPDX-License-Identifier: MIT
"use strict";

const mostCharacters = 300; // of a value
const mostFields = 200; // of an upload
const metresOfDegree = 111195;
const find = id => document.getElementById(id);

// What stands in uploads and answers gets into the page as text nodes alone.
const maker = namespace => (name, attributes = {}, ...children) => {
    const made = document.createElementNS(namespace, name);
    Object.entries(attributes).forEach(([key, value]) => made.setAttribute(key, value));
    made.append(...children);
    return made;
};
const html = maker("http://www.w3.org/1999/xhtml");
const svg = maker("http://www.w3.org/2000/svg");
const section = (title, content) => html("section", {}, html("h3", {}, title), content);

// Characters that cannot be seen, or that turn the text around them, appear as escapes.
function shown(text, most = mostCharacters) {
    const visible = text.slice(0, most).replace(/[[\p{C}\p{Z}]--[\n ]]/gv, character => character.split("").map(
        unit => "\\u" + unit.charCodeAt(0).toString(16).padStart(4, "0")).join(""));
    const rest = text.length > most ? [html("small", {}, `… ${text.length.toLocaleString("en")} characters in all`)] : [];
    return [html("bdi", {}, visible), ...rest];
}

// Numbers keep the text that they came with. Nothing for what is no JSON.
function parse(text) {
    try {
        return JSON.parse(text, (key, value, context) =>
            typeof value === "number" && JSON.rawJSON ? JSON.rawJSON(context.source) : value);
    } catch {
        return undefined;
    }
}

// The titles of the data inventory's columns, and its rows by field.
async function readInventory() {
    const lines = (await (await fetch("data-inventory.md")).text()).split("\n");
    const cells = line => line.split("|").slice(1, -1).map(cell => cell.trim());
    const rows = lines.filter(line => line.startsWith("| `")).map(cells);
    return {titles: cells(lines.find(line => line.startsWith("| field"))),
        rows: new Map(rows.map(row => [row[0].replaceAll("`", ""), row]))};
}
const markdown = text => text.split("`").map((part, i) => i % 2 ? html("code", {}, part) : part);

function fieldsOf(upload) {
    const body = parse(upload.body);
    const fields = body instanceof Object
        ? new Map(Object.entries(body).map(([name, value]) => [name, JSON.stringify(value)]))
        : new Map([["(no JSON)", upload.body]]);
    if (upload.token) {
        fields.set(fields.has("API_TOKEN") ? "API_TOKEN (header)" : "API_TOKEN", upload.token);
    }
    return fields;
}

// Which fields are "new", "changed" or "gone".
function changesBetween(before, fields) {
    const changes = new Map();
    fields.forEach((value, name) => before.get(name) === value ||
        changes.set(name, before.has(name) ? "changed" : "new"));
    before.forEach((value, name) => fields.has(name) || changes.set(name, "gone"));
    return changes;
}

function row(name, value, change, before) {
    const [, words, ...about] = inventory.rows.get(name) ?? ["", "the data inventory does not have it"];
    return html("tr", {role: "row", class: change ?? ""},
        html("th", {role: "rowheader", scope: "row"}, html("code", {}, ...shown(name, 60)),
            ...(change ? [" ", html("mark", {}, change)] : [])),
        html("td", {role: "cell", class: "value"}, html("div", {}, ...shown(value ?? before)),
            ...(change === "changed" ? [html("div", {class: "was"}, "was ", ...shown(before))] : [])),
        html("td", {role: "cell"}, ...markdown(words)),
        html("td", {role: "cell", class: "about"}, ...about.flatMap((text, i) => text === "" ? [] :
            [html("span", {}, html("b", {}, inventory.titles[i + 2]), " ", ...markdown(text))])));
}

function table(fields, changes, before) {
    const names = [...new Set([...fields.keys(), ...changes.keys()])];
    const rows = names.slice(0, mostFields).map(
        name => row(name, fields.get(name), changes.get(name), before?.get(name)));
    const head = ["Field", "Value", "What it tells", "More of it"].map(
        (title, i) => html("th", {role: "columnheader", scope: "col", class: i === 3 ? "unseen" : ""}, title));
    const absent = [...inventory.rows.keys()].filter(name => !fields.has(name)).join(", ");
    return html("section", {},
        html("table", {role: "table", "aria-label": "Fields"},
            html("thead", {role: "rowgroup"}, html("tr", {role: "row"}, ...head)),
            html("tbody", {role: "rowgroup"}, ...rows)),
        html("p", {class: "about"}, names.length > mostFields ? `${names.length} fields in all. ` : "",
            absent ? `Not sent this time: ${absent}` : ""));
}

function decimalsOf(text) {
    const number = /^-?\d+(?:\.(\d+))?(?:e([+-]?\d+))?$/i.exec(text ?? "");
    return number && Math.max(0, (number[1] ?? "").length - (number[2] ?? 0));
}
const lengthOf = metres => metres < 1000 ? `${Number(metres.toPrecision(3))} m`
    : `${Number((metres / 1000).toPrecision(3))} km`;

// The cell that a position was rounded to, to scale among its neighbours. A coordinate may have
// lost zeros at its end, and so the finer of the two tells how exact both are.
function position(fields) {
    const texts = [fields.get("lat"), fields.get("lon")];
    const counts = texts.map(decimalsOf);
    if (counts.includes(null)) {
        return html("p", {}, "None was sent.");
    }
    const decimals = Math.max(...counts);
    const half = 10 ** -decimals / 2;
    const [lat, lon] = texts.map(Number);
    const narrowing = Math.max(0.02, Math.cos(lat * Math.PI / 180));
    const [high, wide] = [56, 56 * narrowing];
    const size = [1, narrowing].map(part => lengthOf(2 * half * metresOfDegree * part));
    const drawing = svg("svg", {viewBox: "-150 -100 300 204", role: "img",
        "aria-label": `A cell ${size[0]} high and ${size[1]} wide around ${texts.join(", ")}`});
    const line = (x1, y1, x2, y2) => drawing.append(svg("line", {x1, y1, x2, y2}));
    for (let x = wide / 2; x < 148; x += wide) {
        line(x, -84, x, 84);
        line(-x, -84, -x, 84);
    }
    [-84, -28, 28, 84].forEach(y => line(-148, y, 148, y));
    drawing.append(svg("rect", {x: -wide / 2, y: -high / 2, width: wide, height: high}), svg("circle", {r: 2.5}));
    const label = (x, y, anchor, text) => drawing.append(svg("text", {x, y, "text-anchor": anchor}, text));
    const edge = (x, y, anchor, degrees, signs) => label(x, y, anchor,
        `${Math.abs(degrees).toFixed(Math.min(decimals + 1, 15))}° ${signs[degrees < 0 ? 1 : 0]}`);
    edge(-146, -32, "start", lat + half, "NS");
    edge(-146, 40, "start", lat - half, "NS");
    edge(-wide / 2 - 4, 98, "end", lon - half, "EW");
    edge(wide / 2 + 4, 98, "start", lon + half, "EW");
    label(wide / 2 + 6, 4, "start", `${size[0]} high`);
    label(0, -90, "middle", `${size[1]} wide`);
    const zero = lat === 0 && lon === 0 ? ", which stands for no fix" : "";
    return html("figure", {}, drawing, html("figcaption", {},
        `${texts.join(", ")}${zero}: ${decimals} decimals, somewhere in a cell of ${size.join(" by ")}`));
}

const answer = text => html("pre", {tabindex: 0}, ...shown(JSON.stringify(parse(text), null, 2) ?? text, 2000));

let inventory;
let before; // the fields of the last upload
let edited = false;

function show(upload) {
    const uploads = find("uploads");
    const fields = fieldsOf(upload);
    const changes = before ? changesBetween(before, fields) : new Map();
    const difference = before ? `${changes.size || "no"} change${changes.size === 1 ? "" : "s"}` : "the first";
    const status = upload.status ? `answered ${upload.status}` : "cut off";
    const time = new Date(upload.milliseconds);
    const title = `Upload ${uploads.childElementCount + 1}`;
    const headers = Object.entries(upload.headers).map(header => header.join(": ")).join("\n");
    const latest = uploads.firstElementChild;
    if (latest && !latest.matches(":hover, :focus-within")) {
        latest.open = false;
    }
    uploads.prepend(html("details", {class: "card", open: ""},
        html("summary", {}, html("h2", {}, title),
            html("time", {datetime: time.toISOString()}, time.toLocaleTimeString("en-GB")),
            html("span", {}, `from ${upload.source}`), html("span", {class: "difference"}, difference),
            html("span", {class: upload.status === 200 ? "" : "bad"}, status)),
        html("div", {class: "columns"}, table(fields, changes, before),
            html("div", {}, section("Position", position(fields)), section("Answer", answer(upload.answer ?? "")),
                section("Other headers", html("pre", {tabindex: 0}, ...shown(headers, 1000)))))));
    find("arrival").textContent = `${title}: ${difference}, ${status}.`;
    before = fields;
}

// What decides about the answers to come.
function showState({steps, tags, upload}) {
    document.querySelectorAll("[data-steps]").forEach(button =>
        button.setAttribute("aria-pressed", String(button.dataset.steps === JSON.stringify(steps))));
    find("waiting").textContent = steps.length > 1 ? `${steps.length} steps of a scenario wait.` : "";
    find("reset").disabled = tags === null;
    const sent = tags ?? parse(upload?.answer)?.tags;
    if (!edited && sent !== undefined) {
        find("tags").value = JSON.stringify(sent, null, 2);
    }
    check();
}

function check() {
    let problem = "";
    try {
        JSON.parse(find("tags").value);
    } catch (error) {
        problem = error.message;
    }
    find("tags").setAttribute("aria-invalid", String(problem !== ""));
    find("send").disabled = problem !== "";
    find("problem").textContent = problem;
}

async function decide(body) {
    const reply = await fetch("answers", {method: "POST", body}).catch(() => null);
    find("problem").textContent = reply?.ok ? "" : await reply?.text() ?? "The service is gone";
}
find("scenarios").addEventListener("click", event => {
    const steps = event.target.closest("button")?.dataset.steps;
    steps && decide(`{"steps": ${steps}}`);
});
const decideTags = text => {
    edited = false;
    decide(`{"tags": ${text}}`);
};
find("reset").addEventListener("click", () => decideTags("null"));
find("send").addEventListener("click", () => decideTags(find("tags").value));
find("tags").addEventListener("input", () => {
    edited = true;
    check();
});

async function listen() {
    const isNarrow = matchMedia("(max-width: 48rem)").matches;
    document.querySelectorAll("aside details").forEach(panel => panel.open = !isNarrow);
    inventory = await readInventory();
    const events = new EventSource("events");
    const tell = (text, style) => Object.assign(find("connection"), {textContent: text, className: style});
    events.onerror = () => tell("The service is gone", "bad");
    events.onopen = () => { // What is known comes again.
        tell("Listening", "good");
        find("uploads").replaceChildren();
        before = undefined;
    };
    events.onmessage = ({data}) => {
        const event = JSON.parse(data);
        event.upload && show(event.upload);
        showState(event);
    };
}
listen();
