// One camera: the live picture with its layers, what is in it, and its time line.
import {h, fill, setText, iconButton} from './dom.js';
import {isAdmin, model, now, on, settings, titleOf} from './model.js';
import {drawMasks, drawObjects, drawRules, drawTracks, drawTrails, fitInto, Pen, trackColour} from './draw.js';
import {go, here, link, linkWith} from './route.js';
import {get} from './api.js';
import {durationText, momentText, msOf} from './time.js';
import {armingText, lastedText, showState, startText, stateBadge, toggle} from './parts.js';
import {texts} from './texts.js';
import {timeline} from './timeline.js';
import {openEvent} from './player.js';
import {Scrubber} from './scrubber.js';
import {watch} from './pictures.js';
import {zoomable} from './zoom.js';
import {Why} from './why.js';

const TRAIL_NS = 8e9; // of a track's way behind it
const STALE_MS = 5000;
const LAYERS = ['tracks', 'trails', 'objects', 'rules', 'masks'];
const DEFAULT = 'tracks,trails,rules';
const VISITS = 8;

/// The picture with everything that is drawn on it.
class Screen {
  constructor(name, layers) {
    this.name = name;
    this.layers = layers;
    this.trails = new Map(); // track -> {times, feet}
    this.canvas = h('canvas', {tabindex: 0, role: 'img', 'aria-label': texts.camera.picture(titleOf(name))});
    this.view = zoomable(this.canvas, () => this.paint());
    this.resize = new ResizeObserver(() => this.fit());
    this.resize.observe(this.canvas);
    this.still = null; // {bitmap} of a moment in the past, in place of the live one
  }

  fit() {
    const dot = devicePixelRatio;
    const width = Math.round(this.canvas.clientWidth * dot);
    const height = Math.round(this.canvas.clientHeight * dot);
    if (width === 0 || (this.canvas.width === width && this.canvas.height === height)) return;
    Object.assign(this.canvas, {width, height});
    this.paint();
    clearTimeout(this.sizing);
    this.sizing = setTimeout(() => this.ask(), this.end ? 300 : 0);
  }

  /// Pictures as large as they are shown.
  ask() {
    this.end?.();
    this.end = watch(this.name, {width: this.canvas.width}, (frame, bitmap) => this.take(frame, bitmap));
  }

  take(frame, bitmap) {
    this.bitmap?.close();
    Object.assign(this, {frame, bitmap, came: performance.now()});
    this.canvas.parentElement?.style.setProperty('--shape', `${frame.size[0]} / ${frame.size[1]}`);
    this.keepTrails(frame);
    this.paint();
    Object.assign(this.canvas.dataset, {sequence: frame.sequence, time: frame.time, drawn: now()});
    this.onframe?.(frame);
  }

  keepTrails(frame) {
    const live = new Set(frame.tracks.map((track) => track.track));
    for (const number of this.trails.keys()) if (!live.has(number)) this.trails.delete(number);
    for (const {track, box} of frame.tracks) {
      const trail = this.trails.get(track) ?? {times: [], feet: []};
      this.trails.set(track, trail);
      trail.times.push(frame.time_ns);
      trail.feet.push([box[0] + box[2] / 2, box[1] + box[3]]);
      while (trail.times[0] < frame.time_ns - TRAIL_NS) {
        trail.times.shift();
        trail.feet.shift();
      }
    }
  }

  paint() {
    const {canvas, view, frame} = this;
    const context = canvas.getContext('2d');
    context.setTransform(1, 0, 0, 1, 0, 0);
    context.clearRect(0, 0, canvas.width, canvas.height);
    const picture = this.still ?? (this.bitmap && {bitmap: this.bitmap, size: frame.size, frame});
    if (!picture) return;
    const {size} = picture;
    const base = fitInto(size[0], size[1], [canvas.width, canvas.height]);
    const place = {
      scale: base.scale * view.scale,
      left: (base.left - view.x * canvas.width) * view.scale,
      top: (base.top - view.y * canvas.height) * view.scale,
    };
    const [sx, sy, sw, sh] = picture.cut ?? [0, 0, picture.bitmap.width, picture.bitmap.height];
    context.imageSmoothingEnabled = place.scale * size[0] / sw < 4;
    context.drawImage(picture.bitmap, sx, sy, sw, sh, place.left, place.top, size[0] * place.scale, size[1] * place.scale);
    Object.assign(canvas.dataset, {left: place.left, top: place.top, scale: place.scale});
    const pen = new Pen(context, place, devicePixelRatio);
    const camera = model.cameras.get(this.name) ?? {};
    if (this.layers.has('masks')) drawMasks(pen, camera, size);
    if (this.layers.has('rules')) drawRules(pen, camera, size);
    if (!picture.frame) return;
    if (this.layers.has('trails')) drawTrails(pen, new Map([...this.trails].map(([key, {feet}]) => [key, feet])), frame.tracks);
    if (this.layers.has('objects')) drawObjects(pen, frame.objects);
    if (this.layers.has('tracks')) drawTracks(pen, frame.tracks);
    if (!this.still) this.overlay?.(pen, frame);
  }

  showStill(still) {
    this.still = still;
    this.paint();
  }

  close() {
    clearTimeout(this.sizing);
    this.end?.();
    this.resize.disconnect();
    this.bitmap?.close();
  }
}

/// What is in the frame, in words and numbers.
class TrackTable {
  constructor() {
    const words = texts.camera;
    this.body = h('tbody');
    this.none = h('p', {class: 'muted'}, words.noTracks);
    this.table = h('table', {class: 'tracks'},
      h('thead', null, h('tr', null, [words.track, words.trackState, words.speed, words.since].map((text, at) => h('th', {scope: 'col', class: at > 1 ? 'number' : ''}, text)))), this.body);
    this.element = h('section', {class: 'panel'}, h('h2', null, words.tracks), this.none, this.table);
    this.rows = new Map();
    this.show({tracks: []});
  }

  show(frame) {
    this.none.hidden = frame.tracks.length > 0;
    this.table.hidden = frame.tracks.length === 0;
    for (const [number, row] of this.rows) {
      if (frame.tracks.some((track) => track.track === number)) continue;
      row.remove();
      this.rows.delete(number);
    }
    for (const track of frame.tracks) {
      let row = this.rows.get(track.track);
      if (!row) {
        const swatch = h('span', {class: 'swatch'});
        swatch.style.setProperty('--colour', trackColour(track.track));
        row = h('tr', null, h('th', {scope: 'row'}, swatch, String(track.track)), h('td'), h('td', {class: 'number'}), h('td', {class: 'number'}));
        this.rows.set(track.track, row);
        this.body.append(row);
      }
      row.dataset.box = track.box.join(',');
      setText(row.cells[1], texts.camera.trackStates[track.state]);
      setText(row.cells[2], texts.camera.pixelsPerSecond(Math.round(Math.hypot(...track.velocity))));
      setText(row.cells[3], durationText(msOf(track.time_ns - track.start_ns)));
    }
    this.element.dataset.sequence = frame.sequence ?? '';
  }
}

/// @returns {element, close, changed}
export function cameraView([name]) {
  if (!model.cameras.has(name)) return {title: name, element: h('p', {class: 'empty'}, texts.noCamera(name)), close() {}};
  const words = texts.camera;
  const layers = new Set((here().query.get('layers') ?? settings.read('layers', DEFAULT)).split(',').filter((layer) => LAYERS.includes(layer)));
  const screen = new Screen(name, layers);
  const table = new TrackTable();
  const why = new Why(name, screen);
  const badge = stateBadge();
  const title = h('h1');
  const facts = h('span', {class: 'muted number'});
  const told = h('p', {class: 'over', hidden: true});
  const elsewhere = h('a', {target: '_blank', rel: 'noopener noreferrer', hidden: true}, words.elsewhere);
  const visits = h('ul', {class: 'lines'});
  const live = h('button', {type: 'button', class: 'live', onclick: () => go(linkWith({at: null}))}, words.live);
  const scrubber = new Scrubber(name);
  let at = null; // the moment in the past that is shown, milliseconds
  let delay = 0;

  screen.onframe = (frame) => {
    if (at === null) table.show(frame);
    const age = now() - msOf(frame.time_ns);
    delay = delay ? delay * 0.9 + age * 0.1 : age;
  };

  function update() {
    const camera = model.cameras.get(name);
    if (!camera) return;
    setText(title, camera.title || camera.name);
    showState(badge, camera);
    const silent = armingText(camera);
    const late = camera.live && screen.frame && at === null && delay < 6e4 ? words.delay(Math.max(0, Math.round(delay))) : '';
    setText(facts, [silent, camera.trouble, words.rate(camera.rate), late].filter(Boolean).join(' · '));
    const safe = /^https?:\/\//.test(camera.link ?? '');
    elsewhere.hidden = !safe;
    if (safe) elsewhere.href = camera.link;
    const quiet = screen.came ? performance.now() - screen.came : 0;
    let text = '';
    if (at !== null) text = screen.still ? words.past(momentText(at)) : words.noPictureThen;
    else if (!screen.frame) text = camera.trouble || words.waiting;
    else if (quiet > STALE_MS) text = words.stale(durationText(quiet));
    told.hidden = text === '';
    setText(told, text);
    live.setAttribute('aria-pressed', String(at === null));
    live.setAttribute('aria-label', at === null ? words.live : words.goLive);
  }

  async function loadVisits() {
    try {
      const {visits: found} = await get('visits', {camera: name, limit: VISITS});
      fill(visits, found.map(({event, kinds}) => h('li', null, h('a', {href: linkWith({event: event.event})},
        h('span', {class: 'number'}, startText(event)), ' ',
        h('span', {class: 'muted'}, [lastedText(event, now()), ...Object.keys(kinds).filter((kind) => kind !== 'motion').map((kind) => texts.kinds[kind])].filter(Boolean).join(' · '))))));
      if (found.length === 0) fill(visits, h('li', {class: 'muted'}, texts.events.none));
    } catch { /* without a store there are none */ }
  }

  /// One picture a second of the past while one drags; null: live again.
  async function showMoment(ms) {
    at = ms;
    if (ms === null) screen.showStill(null);
    else {
      const still = await scrubber.at(ms);
      if (at !== ms) return;
      screen.showStill(still);
    }
    update();
  }

  const line = timeline(name, {
    scrub: (ms) => showMoment(ms),
    async release(ms) {
      if (ms === null || ms >= now() - 1000) return go(linkWith({at: null}), {replace: true});
      go(linkWith({at: new Date(ms).toISOString()}), {replace: true});
      const visit = await scrubber.visitAt(ms);
      if (visit && visit.clip === 'ready') openEvent(visit.event, ms);
    },
  });

  function changed() {
    const moment = Date.parse(here().query.get('at') ?? '');
    line.changed(Number.isNaN(moment) ? null : moment);
    if (here().query.get('event') === null || at === null) showMoment(Number.isNaN(moment) ? null : moment);
  }

  function setLayer(layer, yes) {
    if (yes) layers.add(layer);
    else layers.delete(layer);
    const text = LAYERS.filter((each) => layers.has(each)).join(',');
    settings.write('layers', text);
    go(linkWith({layers: text === DEFAULT ? null : text || 'none'}), {replace: true});
    screen.paint();
  }

  let visitsTimer = 0;
  const ends = [
    on('camera', (which) => { if (which === name) { update(); screen.paint(); } }),
    on('cameras', () => { update(); screen.paint(); }),
    on('event', (event) => {
      if (event.camera !== name || event.kind !== 'motion') return;
      clearTimeout(visitsTimer);
      visitsTimer = setTimeout(loadVisits, 300);
    }),
    on('missed', loadVisits),
  ];
  const timer = setInterval(update, 1000);
  const picture = h('div', {class: 'picture'}, screen.canvas, told);
  const element = h('div', {class: 'camera'},
    h('div', {class: 'head'}, title, badge, facts, h('span', {class: 'gap'}), elsewhere, isAdmin() && h('a', {class: 'button', href: link(['workbench', name])}, texts.workbench.open), live,
      iconButton('area', words.fullscreen, () => (document.fullscreenElement ? document.exitFullscreen() : picture.requestFullscreen?.()))),
    h('div', {class: 'columns'},
      h('div', null, picture,
        h('div', {class: 'row layers', role: 'group', 'aria-label': words.layers},
          LAYERS.map((layer) => toggle(words.layer[layer], layers.has(layer), (yes) => setLayer(layer, yes), {title: words.layerHints[layer]})), why.button),
        line.element),
      h('aside', null, table.element, why.panel,
        h('section', {class: 'panel'}, h('h2', null, words.visits), visits, h('a', {href: link(['events'], {camera: name})}, words.allVisits)))));
  update();
  loadVisits();
  changed();
  return {
    title: titleOf(name),
    element,
    changed,
    close() {
      clearInterval(timer);
      clearTimeout(visitsTimer);
      ends.forEach((end) => end());
      line.close();
      scrubber.close();
      why.close();
      screen.close();
    },
  };
}
