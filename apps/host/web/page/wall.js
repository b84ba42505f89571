// The wall: all cameras, each still until something moves in it. Only those in view are sent.
import {h, fill, setText} from './dom.js';
import {model, now, on, settings} from './model.js';
import {drawTracks, Pen} from './draw.js';
import {link} from './route.js';
import {get, eventPath} from './api.js';
import {agoText, msOf} from './time.js';
import {armingText, eventTitle, showState, stateBadge, toggle} from './parts.js';
import {texts} from './texts.js';
import {watch} from './pictures.js';

const NEAR = '200px'; // pictures come a little before one scrolls to them
const AGO_MS = 10000;

class Tile {
  constructor(name, wall) {
    this.name = name;
    this.wall = wall;
    this.canvas = h('canvas', {width: 320, height: 240, 'aria-hidden': 'true'});
    this.badge = stateBadge();
    this.title = h('strong');
    this.moving = h('span', {class: 'moving'});
    this.last = h('span', {class: 'muted'});
    this.element = h('a', {class: 'tile', href: link(['camera', name]), data: {camera: name}},
      h('div', {class: 'screen'}, this.canvas),
      h('div', {class: 'caption'}, h('div', {class: 'row'}, this.title, this.badge), h('div', {class: 'row small'}, this.last, this.moving)));
    this.lastEvent = null;
    this.update();
  }

  /// Begins or ends to be sent.
  show(visible) {
    if (visible === Boolean(this.end)) return;
    if (visible) {
      const width = this.canvas.clientWidth * Math.min(devicePixelRatio, 2);
      this.end = watch(this.name, {width, calm: true}, (frame, bitmap) => this.draw(frame, bitmap));
      if (!this.asked) this.askLast();
    } else {
      this.end();
      this.end = null;
    }
  }

  draw(frame, bitmap) {
    const {canvas} = this;
    if (canvas.width !== bitmap.width || canvas.height !== bitmap.height) Object.assign(canvas, {width: bitmap.width, height: bitmap.height});
    const context = canvas.getContext('2d');
    context.drawImage(bitmap, 0, 0);
    if (this.wall.boxes) {
      const dot = Math.max(1, canvas.width / (canvas.clientWidth || canvas.width));
      drawTracks(new Pen(context, {scale: bitmap.width / frame.size[0], left: 0, top: 0}, dot), frame.tracks, {labels: false});
    }
    bitmap.close();
    canvas.dataset.sequence = frame.sequence;
    this.element.classList.add('pictured');
  }

  update() {
    const camera = model.cameras.get(this.name);
    if (!camera) return;
    setText(this.title, camera.title || camera.name);
    showState(this.badge, camera);
    this.element.classList.toggle('busy', camera.tracks > 0);
    setText(this.moving, armingText(camera) || (camera.tracks > 0 ? texts.wall.moving(camera.tracks) : ''));
    this.showLast();
  }

  /// Which event was the last is known at once, what it was when somebody looks.
  async askLast() {
    this.asked = true;
    const path = eventPath(model.cameras.get(this.name)?.last_event);
    if (!path) return;
    try {
      this.lastEvent ??= (await get(path)).event;
      this.showLast();
    } catch { /* gone meanwhile */ }
  }

  showLast() {
    if (this.lastEvent) {
      setText(this.last, `${eventTitle(this.lastEvent)} · ${agoText(msOf(this.lastEvent.start_ns), now())}`);
    } else if (!model.cameras.get(this.name)?.last_event) {
      setText(this.last, texts.wall.noEvent);
    }
  }
}

/// @returns {element, close}
export function wallView() {
  const wall = {boxes: settings.read('wallBoxes', true)};
  const tiles = new Map();
  const sections = h('div');
  const seen = new IntersectionObserver((entries) => {
    for (const entry of entries) tiles.get(entry.target.dataset.camera)?.show(entry.isIntersecting);
  }, {rootMargin: NEAR});

  let built = null;
  function build() {
    const now = JSON.stringify([...model.cameras.values()].map(({name, group}) => [name, group]));
    if (now === built) return void tiles.forEach((tile) => tile.update());
    built = now;
    for (const tile of tiles.values()) tile.show(false);
    seen.disconnect();
    tiles.clear();
    const groups = new Map();
    for (const camera of model.cameras.values()) {
      const tile = new Tile(camera.name, wall);
      tiles.set(camera.name, tile);
      const group = camera.group ?? '';
      groups.set(group, [...(groups.get(group) ?? []), tile.element]);
    }
    if (tiles.size === 0) {
      fill(sections, h('p', {class: 'empty'}, model.session?.cameras ? texts.wall.noneForUser : texts.wall.none));
    }
    else {
      fill(sections, [...groups].map(([group, elements]) => h('section', null,
        groups.size > 1 && h('h2', null, group || texts.wall.others),
        h('div', {class: 'tiles', data: tiles.size <= 4 ? {few: tiles.size} : {}, onkeydown: move}, elements))));
    }
    // All tiles have the shape of the first picture: rows stay even, and mostly nothing is left black.
    const shape = [...model.cameras.values()].find((camera) => camera.size)?.size;
    if (shape) sections.style.setProperty('--shape', `${shape[0]} / ${shape[1]}`);
    for (const tile of tiles.values()) seen.observe(tile.element);
  }

  /// Arrows lead from tile to tile, by where they are seen.
  function move(event) {
    const all = [...sections.querySelectorAll('.tile')];
    const at = all.indexOf(document.activeElement);
    if (at < 0 || event.ctrlKey || event.altKey || event.metaKey) return;
    const columns = Math.max(1, all.filter((tile) => tile.offsetTop === all[0].offsetTop).length);
    const step = {ArrowLeft: -1, ArrowRight: 1, ArrowUp: -columns, ArrowDown: columns}[event.key];
    if (!step || !all[at + step]) return;
    event.preventDefault();
    all[at + step].focus();
  }

  const ends = [
    on('cameras', build),
    on('camera', (name) => tiles.get(name)?.update()),
    on('event', (event) => {
      const tile = tiles.get(event.camera);
      if (!tile || (tile.lastEvent && event.start_ns < tile.lastEvent.start_ns)) return;
      tile.lastEvent = event;
      tile.showLast();
    }),
  ];
  const timer = setInterval(() => tiles.forEach((tile) => tile.showLast()), AGO_MS);
  build();
  return {
    title: texts.wall.title,
    element: h('div', {class: 'wall'},
      h('div', {class: 'head'}, h('h1', null, texts.wall.title),
        toggle(texts.wall.boxes, wall.boxes, (yes) => { wall.boxes = yes; settings.write('wallBoxes', yes); })),
      sections),
    close() {
      clearInterval(timer);
      seen.disconnect();
      ends.forEach((end) => end());
      tiles.forEach((tile) => tile.show(false));
    },
  };
}
