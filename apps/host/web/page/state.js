// State: how the host does, what it says, what is in force and why.
import {h, fill, setText} from './dom.js';
import {explain, choice, field, showState, sizeText, stateBadge} from './parts.js';
import {durationText, momentText} from './time.js';
import {isAdmin, model, on} from './model.js';
import {get} from './api.js';
import {link} from './route.js';
import {texts} from './texts.js';

const AGAIN_MS = 5000;
const NUMBERS = ['rate', 'answered', 'dropped', 'lost', 'restarts'];
const LINES = 300; // of the log that are shown

const number = (value) => value.toLocaleString('en').replaceAll(',', '\u202f');
const facts = (rows) => h('dl', {class: 'facts'}, rows.map(([name, value, bad]) => [h('dt', null, name), h('dd', {class: bad ? 'number bad' : 'number'}, value)]));

function hostPanels(state) {
  const words = texts.state;
  const {store, disk, web} = state;
  const counts = (from, names, bad) => names.map((name) => [words[name === 'lost' ? 'lostEvents' : name], number(from[name]), bad.includes(name) && from[name] > 0]);
  const full = disk.total > 0 ? 1 - disk.free / disk.total : 0;
  const bar = h('div', {class: 'meter', role: 'meter', 'aria-label': words.disk, 'aria-valuenow': Math.round(full * 100), 'aria-valuemin': 0, 'aria-valuemax': 100}, h('div'));
  bar.firstChild.style.setProperty('width', `${100 * full}%`);
  return [
    h('section', {class: 'panel'}, h('h2', null, words.host), facts([[words.version, state.version], [words.uptime, durationText(state.uptime * 1000)],
      [words.ready, state.ready ? words.yes : words.no, !state.ready], [words.analyzers, `${state.analyzers} / ${state.cameras}`, state.analyzers < state.cameras],
      [words.memory, sizeText(state.memory)]])),
    h('section', {class: 'panel'}, h('h2', null, words.disk), bar, facts([[words.free, `${sizeText(disk.free)} / ${sizeText(disk.total)}`], [words.used, sizeText(disk.used)],
      [words.days, disk.days === null ? words.unknown : words.daysFit(disk.days)]])),
    h('section', {class: 'panel'}, h('h2', null, words.store), facts([...counts(store, ['committed', 'waiting', 'merged', 'lost', 'failures'], ['lost', 'failures']), [words.bytes, sizeText(store.bytes)]])),
    h('section', {class: 'panel'}, h('h2', null, words.web), facts(counts(web, ['connections', 'refused', 'requests', 'changes', 'pictures', 'encoded', 'skipped', 'faults'], ['faults']))),
  ];
}

class CameraTable {
  constructor() {
    const words = texts.state.columns;
    this.body = h('tbody');
    this.rows = new Map();
    this.element = h('section', {class: 'panel wide'}, h('h2', null, texts.state.cameras), h('div', {class: 'scroll', tabindex: 0, role: 'region', 'aria-label': texts.state.cameras},
      h('table', null, h('thead', null, h('tr', null, Object.entries(words).map(([key, text]) => h('th', {scope: 'col', class: NUMBERS.includes(key) ? 'number' : ''}, text)))), this.body)));
    this.show();
  }

  show() {
    for (const [name, {row}] of this.rows) if (!model.cameras.has(name)) { row.remove(); this.rows.delete(name); }
    for (const camera of model.cameras.values()) {
      if (!this.rows.has(camera.name)) {
        const badge = stateBadge();
        const row = h('tr', null, h('th', {scope: 'row'}, h('a', {href: link(['camera', camera.name])})), h('td', null, badge), NUMBERS.map(() => h('td', {class: 'number'})), h('td'));
        this.rows.set(camera.name, {row, badge});
        this.body.append(row);
      }
      const {row, badge} = this.rows.get(camera.name);
      setText(row.querySelector('a'), camera.title || camera.name);
      showState(badge, camera);
      [camera.rate.toFixed(1), number(camera.answered), number(camera.dropped), number(camera.lost), number(camera.restarts), camera.trouble]
        .forEach((text, at) => setText(row.cells[at + 2], text));
    }
  }
}

class Log {
  constructor() {
    const words = texts.state;
    this.next = 0;
    this.level = 'info';
    this.camera = '';
    this.lines = h('div', {class: 'log', tabindex: 0, role: 'log', 'aria-label': words.log});
    this.element = h('section', {class: 'panel wide'}, h('div', {class: 'head'}, h('h2', null, words.log), h('span', {class: 'gap'}),
      field(words.level, choice(Object.entries(words.levels), 'info', (value) => this.choose({level: value}))),
      field(texts.filter.camera, choice([['', texts.filter.all], ...[...model.cameras.values()].map((each) => [each.name, each.title || each.name])], '', (value) => this.choose({camera: value})))),
    this.lines);
  }

  choose(change) {
    Object.assign(this, change, {next: 0});
    this.lines.replaceChildren();
    this.load();
  }

  async load() {
    const asked = `${this.level} ${this.camera}`;
    const {lines, next} = await get('log', {after: this.next || null, level: this.level, camera: this.camera});
    if (asked !== `${this.level} ${this.camera}`) return;
    const atEnd = this.lines.scrollTop + this.lines.clientHeight >= this.lines.scrollHeight - 20;
    this.next = next;
    this.lines.append(...lines.map((line) => h('p', {data: {level: line.level}}, h('time', null, momentText(Date.parse(line.time))), ' ', h('b', null, texts.state.levels[line.level]), ' ',
      line.camera && `${line.camera}: `, line.message)));
    while (this.lines.childElementCount > LINES) this.lines.firstChild.remove();
    if (atEnd) this.lines.scrollTop = this.lines.scrollHeight;
  }
}

function configuration({file, values}) {
  const words = texts.state;
  const rows = values.map(({key, value, origin}) => h('tr', {data: {text: `${key} ${value} ${origin}`.toLowerCase()}}, h('th', {scope: 'row'}, key), h('td', null, h('code', null, value)), h('td', {class: 'muted'}, origin)));
  const search = h('input', {type: 'search', 'aria-label': words.search, placeholder: words.search, oninput: () => {
    for (const row of rows) row.hidden = !row.dataset.text.includes(search.value.toLowerCase());
  }});
  return h('section', {class: 'panel wide'}, h('div', {class: 'head'}, h('h2', null, words.configuration), h('span', {class: 'muted'}, file), h('span', {class: 'gap'}), search),
    h('div', {class: 'scroll tall', tabindex: 0, role: 'region', 'aria-label': words.configuration},
      h('table', null, h('thead', null, h('tr', null, [words.key, words.value, words.origin].map((text) => h('th', {scope: 'col'}, text)))), h('tbody', null, rows))));
}

/// @returns {element, close}
export function stateView() {
  const panels = h('div', {class: 'panels'});
  const trouble = h('p', {class: 'bad', role: 'status', hidden: true});
  const cameras = new CameraTable();
  const below = h('div');
  const log = isAdmin() ? new Log() : null;
  let timer = 0;
  let closed = false;

  async function load() {
    try {
      fill(panels, hostPanels(await get('state')));
      await log.load();
      trouble.hidden = true;
    } catch (error) {
      trouble.hidden = false;
      setText(trouble, texts.failed(explain(error)));
    }
    if (!closed) timer = setTimeout(load, AGAIN_MS);
  }
  async function loadConfiguration() {
    try {
      fill(below, configuration(await get('configuration')));
    } catch { /* said above */ }
  }
  if (log) {
    load();
    loadConfiguration();
  } else {
    fill(below, h('p', {class: 'muted'}, texts.state.adminOnly));
  }
  const ends = [on('cameras', () => cameras.show()), on('camera', () => cameras.show()), on('missed', () => log && loadConfiguration())];
  return {
    title: texts.state.title,
    element: h('div', {class: 'state'}, h('div', {class: 'head'}, h('h1', null, texts.state.title)), trouble, panels, cameras.element, log?.element, below),
    close() {
      closed = true;
      clearTimeout(timer);
      ends.forEach((end) => end());
    },
  };
}
