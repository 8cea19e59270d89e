"use strict";

const mostCharacters = 300; // of a value
const mostFields = 200;     // of an upload
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

const escaped = text => text.split("").map(
    unit => "\\u" + unit.charCodeAt(0).toString(16).padStart(4, "0")).join("");
// Characters that cannot be seen or that turn the text around them appear as escapes.
function shown(text, most = mostCharacters) {
    const nodes = [html("bdi", {}, text.slice(0, most).replace(/[[\p{C}\p{Z}]--[\n ]]/gv, escaped))];
    if (text.length > most) {
        nodes.push(html("small", {}, `… ${text.length.toLocaleString("en")} characters in all`));
    }
    return nodes;
}

// Numbers keep the text that they came with.
const parse = text => JSON.parse(text, (key, value, context) =>
    typeof value === "number" && JSON.rawJSON ? JSON.rawJSON(context.source) : value);

// The header of the data inventory's table, and its rows by field.
async function readInventory() {
    const page = await (await fetch("data-inventory.md")).text();
    const cells = line => line.split("|").slice(1, -1).map(cell => cell.trim());
    const lines = page.split("\n");
    const first = lines.findIndex(line => line.startsWith("| `"));
    const rows = lines.slice(first).filter(line => line.startsWith("| `")).map(cells);
    return {columns: cells(lines[first - 2]), rows: new Map(rows.map(row => [row[0].replaceAll("`", ""), row]))};
}
const markdown = text => text.split("`").map((part, i) => i % 2 ? html("code", {}, part) : part);

function fieldsOf(upload) {
    const fields = new Map();
    try {
        Object.entries(parse(upload.body)).forEach(([name, value]) => fields.set(name, JSON.stringify(value)));
    } catch {
        fields.set("(no JSON)", upload.body);
    }
    const token = Object.keys(upload.headers).find(name => name.toUpperCase() === "API_TOKEN");
    if (token) {
        fields.set(fields.has("API_TOKEN") ? "API_TOKEN (header)" : "API_TOKEN", upload.headers[token]);
    }
    return fields;
}

// The names of fields that are "new", "changed" or "gone" since the upload before.
function changesSince(before, fields) {
    const changes = new Map();
    if (before) {
        fields.forEach((value, name) => {
            if (before.get(name) !== value) {
                changes.set(name, before.has(name) ? "changed" : "new");
            }
        });
        before.forEach((value, name) => fields.has(name) || changes.set(name, "gone"));
    }
    return changes;
}

function row(name, value, change, before, inventory) {
    const words = inventory.rows.get(name.replace(" (header)", ""));
    const about = words ? words.slice(2).flatMap((text, i) => text === "" ? [] : [
        html("span", {}, html("b", {}, inventory.columns[i + 2]), " ", ...markdown(text))]) : [];
    return html("tr", {role: "row", class: change ?? ""},
        html("th", {role: "rowheader", scope: "row"}, html("code", {}, ...shown(name, 60)),
            ...(change ? [" ", html("mark", {}, change)] : [])),
        html("td", {role: "cell", class: "value"}, html("div", {}, ...shown(value ?? "")),
            ...(change === "changed" ? [html("div", {class: "was"}, "was ", ...shown(before))] : [])),
        html("td", {role: "cell"}, ...(words ? markdown(words[1]) : ["the data inventory does not have it"])),
        html("td", {role: "cell", class: "about"}, ...about));
}

function table(fields, changes, before, inventory) {
    const names = [...new Set([...fields.keys(), ...changes.keys()])];
    const rows = names.slice(0, mostFields).map(name => row(name,
        fields.get(name) ?? before.get(name), changes.get(name), before?.get(name), inventory));
    const absent = [...inventory.rows.keys()].filter(name => !fields.has(name));
    const head = ["Field", "Value", "What it tells", ""].map(
        name => html("th", {role: "columnheader", scope: "col"}, name));
    return html("section", {"aria-label": "Fields"},
        html("table", {role: "table"}, html("thead", {role: "rowgroup"}, html("tr", {role: "row"}, ...head)),
            html("tbody", {role: "rowgroup"}, ...rows)),
        ...(names.length > mostFields ? [html("p", {}, `… ${names.length} fields in all`)] : []),
        ...(absent.length ? [html("p", {class: "about"}, "Not sent this time: ", absent.join(", "))] : []));
}

function decimalsOf(text) {
    const number = /^-?\d+(?:\.(\d+))?(?:e([+-]?\d+))?$/i.exec(text ?? "");
    return number && Math.max(0, (number[1] ?? "").length - (number[2] ?? 0));
}
function lengthText(metres) {
    const units = [[1000, "km"], [1, "m"], [0.01, "cm"], [0, "mm"]];
    const [, unit] = units.find(([least]) => metres >= least);
    const factor = {km: 0.001, m: 1, cm: 100, mm: 1000}[unit];
    return `${Number((metres * factor).toPrecision(3))} ${unit}`;
}

// The cell that a position was rounded to, to scale among its neighbours. A coordinate may have
// lost zeros at its end, and so the finer of the two tells how exact both are.
function position(fields) {
    const texts = [fields.get("lat"), fields.get("lon")];
    const counts = texts.map(decimalsOf);
    if (counts.includes(null)) {
        return html("p", {}, "None was sent.");
    }
    const decimals = Math.max(...counts);
    const step = 10 ** -decimals;
    const [lat, lon] = texts.map(Number);
    const narrowing = Math.max(0.02, Math.cos(lat * Math.PI / 180));
    const high = 56;
    const wide = high * narrowing;
    const size = [step * metresOfDegree, step * metresOfDegree * narrowing].map(lengthText);
    const edge = (degrees, signs) =>
        `${Math.abs(degrees).toFixed(Math.min(decimals + 1, 15))}° ${signs[degrees < 0 ? 1 : 0]}`;
    const drawing = svg("svg", {viewBox: "-150 -100 300 216", role: "img",
        "aria-label": `A cell ${size[0]} high and ${size[1]} wide around ${texts.join(", ")}`});
    const line = (x1, y1, x2, y2) => drawing.append(svg("line", {x1, y1, x2, y2}));
    for (let x = wide / 2; x < 148; x += wide) {
        line(x, -84, x, 84);
        line(-x, -84, -x, 84);
    }
    [-84, -28, 28, 84].forEach(y => line(-148, y, 148, y));
    const label = (x, y, anchor, ...text) =>
        drawing.append(svg("text", {x, y, "text-anchor": anchor}, ...text));
    drawing.append(svg("rect", {x: -wide / 2, y: -high / 2, width: wide, height: high}),
        svg("circle", {r: 2.5}));
    label(-146, -32, "start", edge(lat + step / 2, "NS"));
    label(-146, 40, "start", edge(lat - step / 2, "NS"));
    label(-wide / 2 - 4, 98, "end", edge(lon - step / 2, "EW"));
    label(wide / 2 + 4, 98, "start", edge(lon + step / 2, "EW"));
    label(wide / 2 + 6, 4, "start", `${size[0]} high`);
    label(0, -90, "middle", `${size[1]} wide`);
    const zero = lat === 0 && lon === 0 ? ", which is what stands for no fix" : "";
    return html("figure", {}, drawing, html("figcaption", {},
        `${texts.join(", ")}${zero}: ${decimals} decimals, somewhere in a cell of ${size.join(" by ")}`));
}

function answer(upload) {
    if (upload.status === undefined) {
        return html("p", {}, "The connection was cut.");
    }
    let text = upload.answer;
    try {
        text = JSON.stringify(parse(text), null, 2);
    } catch {
        // Shown as it is.
    }
    return html("pre", {tabindex: 0}, ...shown(text, 2000));
}

let inventory;
let before; // the fields of the last upload
let count = 0;

function show(upload) {
    const fields = fieldsOf(upload);
    const changes = changesSince(before, fields);
    const difference = !before ? "the first" : changes.size === 0 ? "as the one before"
        : `${changes.size} ${changes.size === 1 ? "field" : "fields"} differ${changes.size === 1 ? "s" : ""}`;
    const status = upload.status === undefined ? "cut off" : `answered ${upload.status}`;
    const time = new Date(upload.milliseconds);
    const others = Object.entries(upload.headers).filter(([name]) => name.toUpperCase() !== "API_TOKEN");
    const latest = find("uploads").firstElementChild;
    if (latest && !latest.matches(":hover, :focus-within")) {
        latest.open = false;
    }
    count += 1;
    find("uploads").prepend(html("details", {class: "card upload", open: ""},
        html("summary", {}, html("h2", {}, `Upload ${count}`),
            html("time", {datetime: time.toISOString()}, time.toLocaleTimeString("en-GB")),
            html("span", {}, `from ${upload.source}`), html("span", {class: "difference"}, difference),
            html("span", {class: upload.status === 200 ? "status" : "status bad"}, status)),
        html("div", {class: "columns"}, table(fields, changes, before, inventory),
            html("div", {},
                html("section", {}, html("h3", {}, "Position"), position(fields)),
                html("section", {}, html("h3", {}, "Answer"), answer(upload)),
                html("section", {}, html("h3", {}, "Headers besides"),
                    html("pre", {tabindex: 0}, ...shown(others.map(pair => pair.join(": ")).join("\n"), 1000)))))));
    find("empty").hidden = true;
    find("arrival").textContent = `Upload ${count}: ${difference}, ${status}.`;
    before = fields;
}

let edited = false;

// What decides about the answers to come.
function showState({steps, tags, upload}) {
    const waiting = JSON.stringify(steps);
    document.querySelectorAll("[data-steps]").forEach(button =>
        button.setAttribute("aria-pressed", String(button.dataset.steps === waiting)));
    find("waiting").textContent = steps.length > 1 ? `${steps.length} steps of a scenario wait.` : "";
    find("reset").disabled = tags === null;
    try {
        const sent = tags ?? JSON.parse(upload.answer).tags;
        if (!edited && sent !== undefined) {
            find("tags").value = JSON.stringify(sent, null, 2);
        }
    } catch {
        // An answer without tags.
    }
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
    find("check").textContent = problem || "This is JSON.";
}

async function decide(body) {
    const reply = await fetch("answers", {method: "POST", body}).catch(() => null);
    find("check").textContent = reply?.ok ? "" : await reply?.text() ?? "The service is gone.";
    return reply?.ok;
}

find("scenarios").addEventListener("click", event => {
    const button = event.target.closest("button");
    if (button) {
        decide(`{"steps": ${button.dataset.steps}}`);
    }
});
find("tags").addEventListener("input", () => {
    edited = true;
    check();
});
find("editor").addEventListener("submit", async event => {
    event.preventDefault();
    edited = !await decide(`{"tags": ${find("tags").value}}`);
});
find("reset").addEventListener("click", async () => {
    edited = !await decide('{"tags": null}');
});

async function listen() {
    if (matchMedia("(max-width: 48rem)").matches) {
        document.querySelectorAll("aside details").forEach(panel => panel.open = false);
    }
    inventory = await readInventory();
    const events = new EventSource("events");
    events.onopen = () => { // What is known comes again.
        find("uploads").replaceChildren();
        before = undefined;
        count = 0;
        find("connection").textContent = "Listening";
        find("connection").className = "on";
    };
    events.onerror = () => {
        find("connection").textContent = "The service is gone";
        find("connection").className = "";
    };
    events.onmessage = ({data}) => {
        const event = JSON.parse(data);
        if (event.upload) {
            show(event.upload);
        }
        showState(event);
    };
}
listen();
