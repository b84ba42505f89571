// The page of an archive: choose, count, search, look. Data of a camera and day is a script of its own, which is loaded
// when it is asked for: a page from the disk may load scripts, and nothing else.
"use strict";

const PAGE = 120; // entries at a time
const FEW = 2000; // events of all days that are shown without being asked for
const HOURS = Array.from({ length: 24 }, (_, hour) => hour);
const element = (id) => document.getElementById(id);

function make(tag, attributes = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (name === "onclick") made.onclick = value;
    else if (value !== undefined && value !== "") made.setAttribute(name, value);
  }
  made.append(...children.filter((child) => child !== undefined && child !== ""));
  return made;
}

// ---- Data ----

const loaded = new Map(); // by file: {events, tracks}, or a promise of it
let reading = null; // what the script that runs now fills
let clip = null;

/** What scripts of data call. */
const archive = {
  clip(of) { clip = of; },
  event(of) { reading.push({ ...of, kind: of.k, clip }); },
  track(of) { reading.push({ ...of, kind: "track", clip }); },
};

let queue = Promise.resolve(); // one script after the other: each fills the same list

function load(camera, day) {
  const file = `data/${encodeURIComponent(camera)}-${day || "undated"}.js`;
  if (!loaded.has(file)) {
    queue = queue.then(() => new Promise((done) => {
      reading = [];
      const script = make("script", { src: file });
      script.onload = script.onerror = () => {
        for (const entry of reading) Object.assign(entry, { camera, day });
        done(reading);
      };
      document.head.append(script);
    }));
    loaded.set(file, queue);
  }
  return loaded.get(file);
}

// ---- Times ----

const clock = new Intl.DateTimeFormat("en-GB", { timeZone: archiveData.timezone, hour: "2-digit", minute: "2-digit", second: "2-digit", hourCycle: "h23" });

function timeOf(entry, ms) {
  if (entry.day) return clock.format(new Date(ms));
  const seconds = Math.floor(ms / 1000);
  const two = (n) => String(n).padStart(2, "0");
  return `+${Math.floor(seconds / 3600)}:${two(Math.floor(seconds / 60) % 60)}:${two(seconds % 60)}`;
}

const hourOf = (entry) => (entry.day ? Number(clock.format(new Date(entry.s)).slice(0, 2)) : 0);

// ---- What is shown ----

const cameras = new Map(archiveData.cameras.map((camera) => [camera.name, camera]));
const chosen = () => [...cameras.values()].filter((camera) => !element("camera").value || camera.name === element("camera").value);
const sum = (numbers) => numbers.reduce((all, number) => all + number, 0);

function options(select, entries, value = "") {
  select.replaceChildren(...entries.map(([key, text]) => make("option", { value: key || undefined }, text)));
  [...select.options].forEach((option, i) => { option.value = entries[i][0]; });
  select.value = entries.some(([key]) => key === value) ? value : entries[0][0];
}

/** Days of the chosen cameras with counts of events by hour. */
function daysOf() {
  const days = new Map();
  for (const camera of chosen())
    for (const [day, hours] of Object.entries(camera.days)) {
      const all = days.get(day) ?? HOURS.map(() => 0);
      hours.forEach((count, hour) => { all[hour] += count; });
      days.set(day, all);
    }
  return new Map([...days].sort(([a], [b]) => (a || "~") < (b || "~") ? -1 : 1)); // those without a date last
}

const dayName = (day) => day || "without a date";

function fillChoices() {
  const days = daysOf();
  options(element("day"), [...[...days.keys()].map((day) => [day || "undated", dayName(day)]), ["all", "all days"]], element("day").value || (sum([...days.values()].flat()) <= FEW ? "all" : ""));
  const rules = [...new Set(chosen().flatMap((camera) => camera.rules))].sort();
  options(element("rule"), [["", "any"], ...rules.map((rule) => [rule, rule])], element("rule").value);
}

function cell(count, most, choose) {
  const shade = most > 0 ? Math.round((count / most) * 100) : 0;
  return make("td", { class: "hour", style: count ? `background: color-mix(in srgb, var(--bar) ${shade}%, transparent)` : "" },
    count ? make("button", { type: "button", onclick: choose }, String(count)) : "");
}

function drawDays() {
  const days = daysOf();
  const most = Math.max(0, ...[...days.values()].flat());
  const rows = [...days].map(([day, hours]) => make("tr", {}, make("td", {}, dayName(day)), make("td", {}, String(sum(hours))),
    ...hours.map((count, hour) => cell(count, most, () => choose(day, hour)))));
  element("days").replaceChildren(make("h2", {}, "Events by day and hour"), make("div", { class: "scroll" },
    make("table", {}, make("tr", {}, make("th", {}, "Day"), make("th", {}, "all"), ...HOURS.map((hour) => make("th", {}, String(hour)))), ...rows)));
}

function choose(day, hour) {
  element("day").value = day || "undated";
  element("from").value = String(hour);
  element("to").value = String(hour + 1);
  show();
}

function drawLines() {
  const rows = [];
  const day = element("day").value === "undated" ? "" : element("day").value;
  for (const camera of chosen())
    for (const [line, days] of Object.entries(camera.lines)) {
      const wanted = Object.entries(days).filter(([date]) => day === "all" || date === day).map(([, counts]) => counts);
      for (const [i, way] of [[0, "forward"], [1, "backward"]]) {
        const hours = HOURS.map((hour) => sum(wanted.map((counts) => counts[i][hour])));
        rows.push(make("tr", {}, make("td", {}, `${camera.title}: ${line}, ${way}`), make("td", {}, String(sum(hours))),
          ...hours.map((count) => make("td", { class: "hour" }, count ? String(count) : ""))));
      }
    }
  element("lines").replaceChildren(...(rows.length === 0 ? [] : [make("h2", {}, `Crossings by hour, ${day === "all" ? "all days" : dayName(day)}`),
    make("div", { class: "scroll" }, make("table", {}, make("tr", {}, make("th", {}, "Line"), make("th", {}, "all"), ...HOURS.map((hour) => make("th", {}, String(hour)))), ...rows))]));
}

function words(entry) {
  return [entry.camera, cameras.get(entry.camera).title, entry.kind, entry.r, entry.c, entry.why, entry.text, entry.t && `track ${entry.t}`, entry.kind === "track" && `track ${entry.n}`, entry.clip.f]
    .filter(Boolean).join(" ").toLowerCase();
}

let entries = []; // of the chosen cameras and days
let found = []; // of them, what was asked for
let turn = 0; // of the latest show(): an earlier one that is still loading is out of date

async function show() {
  const mine = ++turn;
  drawLines();
  element("found").textContent = "Loading ...";
  const day = element("day").value;
  const loads = chosen().flatMap((camera) => Object.keys(camera.days).filter((date) => day === "all" || (date || "undated") === day).map((date) => load(camera.name, date)));
  const all = (await Promise.all(loads)).flat();
  if (mine !== turn) return;
  entries = all;
  const kind = element("kind").value, rule = element("rule").value;
  const from = Number(element("from").value), to = Number(element("to").value);
  const search = element("text").value.toLowerCase().split(/\s+/).filter(Boolean);
  found = entries.filter((entry) => (kind ? entry.kind === kind : entry.kind !== "track") && (!rule || entry.r === rule) &&
    hourOf(entry) >= from && hourOf(entry) < to && search.every((word) => words(entry).includes(word)));
  found.sort((a, b) => Number(!a.day) - Number(!b.day) || a.s - b.s);
  element("list").replaceChildren();
  element("found").textContent = `${found.length} found`;
  more();
}

const nameOf = (entry) => [entry.kind, entry.kind === "track" ? entry.n : "", entry.r, entry.c].filter(Boolean).join(" ");
const resultFile = (entry, file) => `../results/${entry.clip.n.split("/").map(encodeURIComponent).join("/")}/${file}`;

function card(entry) {
  const picture = entry.i ? make("img", { src: resultFile(entry, entry.i), alt: "", loading: "lazy" }) : make("span", { class: "none" }, "no picture");
  return make("li", {}, make("button", { type: "button", onclick: () => open(entry) }, picture,
    make("p", {}, make("b", {}, nameOf(entry).replaceAll(",", ", ")), make("br"), `${cameras.get(entry.camera).title}, ${dayName(entry.day)} ${timeOf(entry, entry.s)}`)));
}

function more() {
  const list = element("list");
  const at = list.children.length;
  list.append(...found.slice(at, at + PAGE).map(card));
  element("more").hidden = list.children.length >= found.length;
}

// ---- One of them ----

const MARGIN = 3; // seconds that a visit's video begins before it

function video(entry) {
  const visit = entry.kind === "motion" ? entry : entries.find((other) => other.kind === "motion" && other.clip === entry.clip && other.n === entry.visit);
  let source = "", at = 0;
  if (entry.video) {
    source = resultFile(entry, entry.video);
    const begin = Math.max(entry.clip.s / 1000, (visit ?? entry).s / 1000 - MARGIN);
    at = Math.max(0, entry.s / 1000 - begin - 1);
  } else if (entry.clip.f) {
    source = entry.clip.f.split("/").map(encodeURIComponent).join("/");
    at = Math.max(0, (entry.s - entry.clip.s) / 1000 - 1);
  }
  if (!source) return "";
  const player = make("video", { src: `${source}#t=${at.toFixed(1)}`, controls: "", preload: "metadata" });
  player.onerror = () => player.replaceWith(make("p", { class: "muted" }, "This browser cannot play the clip: ", make("a", { href: source }, entry.clip.f || entry.video)));
  return player;
}

function open(entry) {
  const rows = [["camera", cameras.get(entry.camera).title], ["what", nameOf(entry).replaceAll(",", ", ")], ["begins", `${dayName(entry.day)} ${timeOf(entry, entry.s)}`],
    ["ends", timeOf(entry, entry.e)], ["why it ended", entry.why], ["says", entry.text], ["value", entry.v], ["track", entry.t], ["frames", entry.f], ["way", entry.px && `${entry.px} pixels`],
    ["held back", entry.h && "the light was changing"], ["clip", entry.clip.f], ["result", entry.clip.n]];
  const detail = element("detail");
  const image = entry.p ?? entry.i;
  detail.replaceChildren(
    make("button", { type: "button", onclick: () => detail.close() }, "Close"),
    image ? make("img", { src: resultFile(entry, image), alt: nameOf(entry) }) : "", video(entry),
    entry.strip ? make("img", { src: resultFile(entry, entry.strip), alt: "one picture a second" }) : "",
    make("dl", {}, ...rows.filter(([, value]) => value !== undefined && value !== "").flatMap(([name, value]) => [make("dt", {}, name), make("dd", {}, String(value))])));
  detail.showModal();
}

function drawTroubles() {
  if (archiveData.troubleCount === 0) return;
  element("troubles").append(make("h2", {}, `${archiveData.troubleCount} clips without a whole result`),
    make("div", { class: "scroll" }, make("table", {}, ...archiveData.troubles.map(([camera, file, state, reason]) =>
      make("tr", {}, make("td", {}, camera), make("td", {}, file), make("td", { class: "bad" }, state), make("td", {}, reason))))));
}

function begin() {
  const all = [...cameras.values()];
  element("totals").textContent = `${archiveData.clips} clips of ${all.length} cameras, ${sum(all.map((camera) => camera.frames)).toLocaleString("en")} frames, ` +
    `${sum(all.map((camera) => camera.tracks)).toLocaleString("en")} tracks; times of ${archiveData.timezone}`;
  options(element("camera"), [["", "all"], ...all.map((camera) => [camera.name, camera.title])]);
  options(element("from"), HOURS.map((hour) => [String(hour), `${hour}:00`]));
  options(element("to"), HOURS.map((hour) => [String(hour + 1), `${hour + 1}:00`]), "24");
  options(element("kind"), [["", "events"], ...["motion", "zone", "line", "stopped", "removed", "scene", "track"].map((kind) => [kind, kind === "track" ? "tracks" : kind])]);
  element("filter").onsubmit = (event) => event.preventDefault();
  element("filter").onchange = (event) => {
    if (event.target.id === "camera") { fillChoices(); drawDays(); }
    show();
  };
  let wait;
  element("text").oninput = () => { clearTimeout(wait); wait = setTimeout(show, 200); };
  element("more").onclick = more;
  fillChoices();
  drawDays();
  drawTroubles();
  show();
}

begin();
