// The picture one draws on: by mouse, finger or keys. Targets are 44 px wide; the picture stands still meanwhile.
import {h, setText} from './dom.js';
import {cameraPath, url} from './api.js';
import {isInside, leastPoints} from './drawing.js';
import {model} from './model.js';
import {texts} from './texts.js';

const SVG = 'http://www.w3.org/2000/svg';
const TARGET = 22; // px, half of what a finger needs
const STEP = 0.005;
const FAST = 0.05; // with Shift
const AGAIN_MS = 1000; // between two pictures while nothing is drawn
const FULL = [0, 0, 1, 1];

function s(name, properties, ...children) {
  const element = document.createElementNS(SVG, name);
  for (const [key, value] of Object.entries(properties ?? {})) {
    if (value === null || value === undefined) continue;
    if (key.startsWith('on')) element.addEventListener(key.slice(2), value);
    else element.setAttribute(key, String(value));
  }
  element.append(...children.filter(Boolean));
  return element;
}

export class Surface {
  /// `changed()`: the drawing is another one; `done()`: Enter, or the first point again; `cancel()`: Esc.
  constructor(camera, {changed, done, cancel}) {
    Object.assign(this, {camera, changed, done, cancel, drawing: null, others: [], people: null, drag: null, cursor: null});
    const words = texts.workbench;
    this.image = h('img', {alt: '', draggable: 'false', onload: () => this.paint()});
    this.svg = s('svg', {tabindex: 0, role: 'application', 'aria-label': words.surface, 'aria-describedby': 'draw-keys'});
    this.said = h('p', {class: 'unseeable', role: 'status', 'aria-live': 'polite'});
    this.element = h('div', {class: 'drawing'}, this.image, this.svg, this.said);
    for (const [type, call] of Object.entries({pointerdown: this.down, pointermove: this.moved, pointerup: this.up, pointercancel: this.up, keydown: this.key, focus: this.focused, blur: this.blurred})) {
      this.svg.addEventListener(type, (event) => call.call(this, event));
    }
    this.resize = new ResizeObserver(() => this.paint());
    this.resize.observe(this.svg);
    this.load();
    this.timer = setInterval(() => { if (!this.drawing && document.visibilityState === 'visible') this.load(); }, AGAIN_MS);
  }

  get map() { return model.cameras.get(this.camera)?.map ?? FULL; }
  get bounds() {
    const [left, top, width, height] = this.map;
    return [left, top, left + width, top + height];
  }

  load() {
    const width = Math.min(1280, Math.round((this.element.clientWidth || 640) * devicePixelRatio));
    this.image.src = url(cameraPath(this.camera, 'picture.jpg'), {width, at: Date.now()});
  }

  /// Another drawing, or null: the picture lives again.
  edit(drawing) {
    this.drawing = drawing;
    this.cursor = null;
    this.element.classList.toggle('editing', Boolean(drawing));
    this.paint();
  }

  toView([x, y]) {
    const [left, top, width, height] = this.map;
    return [(x - left) / width * this.svg.clientWidth, (y - top) / height * this.svg.clientHeight];
  }

  fromView([x, y]) {
    const [left, top, width, height] = this.map;
    return [left + x / this.svg.clientWidth * width, top + y / this.svg.clientHeight * height];
  }

  pathOf(points) {
    return points.map((point) => this.toView(point).map((value) => value.toFixed(1)).join(',')).join(' ');
  }

  paint() {
    const {svg, drawing} = this;
    const focused = svg.contains(document.activeElement) && document.activeElement !== svg ? document.activeElement.dataset.target : null;
    svg.setAttribute('viewBox', `0 0 ${svg.clientWidth || 1} ${svg.clientHeight || 1}`);
    svg.replaceChildren(...this.others.filter((each) => !each.hidden).map((each) => this.other(each)));
    if (drawing) this.paintDrawing(drawing);
    if (this.people) this.paintPeople();
    if (this.cursor) svg.append(this.cross());
    if (focused) svg.querySelector(`[data-target="${focused}"]`)?.focus();
  }

  other({kind, points, label, select}) {
    const at = this.toView(points.reduce((best, point) => (point[1] < best[1] ? point : best)));
    const group = s('g', {class: `shape ${kind}`}, s(kind === 'line' ? 'polyline' : 'polygon', {points: this.pathOf(points)}),
      kind === 'line' && this.arrow(points), s('text', {x: at[0], y: Math.max(14, at[1] - 6)}, label));
    if (select && !this.drawing) group.addEventListener('click', select);
    return group;
  }

  /// Forward leads from the line's left to its right.
  arrow(points) {
    const [[ax, ay], [bx, by]] = points.map((point) => this.toView(point));
    const length = Math.hypot(bx - ax, by - ay) || 1;
    const [rx, ry] = [-(by - ay) / length * 18, (bx - ax) / length * 18];
    const [mx, my] = [(ax + bx) / 2, (ay + by) / 2];
    return s('polygon', {class: 'arrow', points: `${mx + rx},${my + ry} ${mx - ry * 0.5},${my + rx * 0.5} ${mx + ry * 0.5},${my - rx * 0.5}`});
  }

  paintDrawing(drawing) {
    const {kind, points, closed} = drawing;
    const shape = s(closed && kind !== 'line' ? 'polygon' : 'polyline', {points: this.pathOf(points)});
    this.svg.append(s('g', {class: `shape drawn ${kind}`}, points.length > 0 && shape, kind === 'line' && points.length === 2 && this.arrow(points)));
    for (const [at, middle] of drawing.middles()) this.svg.append(this.handle('middle', at, middle, texts.workbench.middle(at + 1)));
    points.forEach((point, at) => this.svg.append(this.handle('point', at, point, texts.workbench.point(at + 1, points.length, point))));
  }

  handle(type, at, point, label) {
    const [x, y] = this.toView(point);
    return s('g', {class: `handle ${type}`, tabindex: 0, role: 'button', 'aria-label': label, 'data-target': `${type}${at}`, 'data-type': type, 'data-at': at},
      s('circle', {class: 'target', cx: x, cy: y, r: TARGET}), s('circle', {class: 'dot', cx: x, cy: y, r: type === 'point' ? 7 : 5}));
  }

  /// Two outlines: as tall as a person is near and far.
  paintPeople() {
    const {list} = this.people;
    list.forEach(({x, y, height, label}, at) => {
      const [vx, foot] = this.toView([x, y]);
      const [, head] = this.toView([x, y - height]);
      const tall = foot - head;
      const r = tall * 0.075;
      const body = `M${vx} ${head + 2 * r} c${tall * 0.16} 0 ${tall * 0.13} ${tall * 0.2} ${tall * 0.11} ${tall * 0.38} h${-tall * 0.04} l${-tall * 0.01} ${tall * 0.47} h${-tall * 0.05}`
        + ` v${-tall * 0.38} h${-tall * 0.02} v${tall * 0.38} h${-tall * 0.05} l${-tall * 0.01} ${-tall * 0.47} h${-tall * 0.04} c${-tall * 0.02} ${-tall * 0.18} ${-tall * 0.05} ${-tall * 0.38} ${tall * 0.11} ${-tall * 0.38} z`;
      this.svg.append(s('g', {class: 'person'}, s('circle', {cx: vx, cy: head + r, r}), s('path', {d: body}),
        s('g', {class: 'handle head', tabindex: 0, role: 'slider', 'aria-label': label, 'aria-valuenow': Math.round(height * 100), 'aria-valuemin': 1, 'aria-valuemax': 100,
          'data-target': `head${at}`, 'data-type': 'head', 'data-at': at}, s('circle', {class: 'target', cx: vx, cy: head, r: TARGET}), s('circle', {class: 'dot', cx: vx, cy: head, r: 5}))));
    });
  }

  cross() {
    const [x, y] = this.toView(this.cursor);
    return s('path', {class: 'cross', d: `M${x - 14} ${y}h28M${x} ${y - 14}v28`});
  }

  say(text) { setText(this.said, text); }

  at(event) {
    const box = this.svg.getBoundingClientRect();
    return this.fromView([event.clientX - box.left, event.clientY - box.top]);
  }

  update() {
    this.paint();
    this.changed();
  }

  // ---- pointers ----

  down(event) {
    const {drawing} = this;
    if (event.button > 0 || this.drag || (!drawing && !this.people)) return;
    const place = this.at(event);
    const handle = event.target.closest('.handle');
    const {type} = handle?.dataset ?? {};
    const at = Number(handle?.dataset.at);
    this.cursor = null;
    if (type === 'head') {
      this.drag = {type, at};
    } else if (!drawing) {
      return;
    } else if (type === 'point' && at === 0 && drawing.mayClose && drawing.kind !== 'line') {
      this.drag = {type: 'first', at, from: place};
    } else if (type === 'point') {
      drawing.begin();
      this.drag = {type, at};
    } else if (type === 'middle') {
      drawing.insert(at, drawing.middles()[at][1]);
      this.drag = {type: 'point', at: at + 1};
    } else if (!drawing.closed) {
      drawing.add(place);
      this.say(texts.workbench.placed(drawing.points.length));
      this.drag = {type: 'point', at: drawing.points.length - 1};
      if (drawing.closed) this.done();
    } else if (drawing.kind === 'line' || isInside(drawing.points, place)) {
      drawing.begin();
      this.drag = {type: 'whole', from: place};
    } else {
      return;
    }
    event.preventDefault();
    this.svg.setPointerCapture(event.pointerId);
    this.drag.pointer = event.pointerId;
    this.svg.focus({preventScroll: true});
    this.cursor = null;
    this.paint();
  }

  moved(event) {
    const {drag, drawing} = this;
    if (!drag || drag.pointer !== event.pointerId) return;
    const place = this.at(event);
    if (drag.type === 'point') drawing.move(drag.at, place);
    else if (drag.type === 'head') this.people.set(drag.at, this.people.list[drag.at].y - place[1]);
    else if (drag.type === 'whole') {
      const before = drawing.points[0];
      drawing.shift([place[0] - drag.from[0], place[1] - drag.from[1]]);
      drag.from = [drag.from[0] + drawing.points[0][0] - before[0], drag.from[1] + drawing.points[0][1] - before[1]];
    } else if (drag.type === 'first' && Math.hypot(place[0] - drag.from[0], place[1] - drag.from[1]) > 0.02) {
      drawing.begin();
      drag.type = 'point';
    }
    this.paint();
  }

  up(event) {
    const {drag} = this;
    if (!drag || drag.pointer !== event.pointerId) return;
    this.drag = null;
    if (drag.type === 'first' && event.type === 'pointerup') this.finish();
    else this.update();
  }

  finish() {
    if (this.drawing.close()) this.say(texts.workbench.isClosed);
    this.update();
    this.done();
  }

  // ---- keys ----

  focused(event) {
    if (event.target === this.svg && this.drawing && !this.drawing.closed && !this.drag && this.svg.matches(':focus-visible')) {
      const [left, top, right, bottom] = this.bounds;
      this.cursor ??= [(left + right) / 2, (top + bottom) / 2];
      this.paint();
    }
  }

  blurred(event) {
    if (!this.svg.contains(event.relatedTarget)) { this.cursor = null; this.paint(); }
  }

  key(event) {
    const {drawing} = this;
    if (!drawing || event.altKey) return;
    const handled = event.ctrlKey || event.metaKey ? this.keyBack(event) : this.keyPlain(event);
    if (!handled) return;
    event.preventDefault();
    event.stopPropagation();
  }

  keyBack(event) {
    const back = event.key === 'z' && !event.shiftKey;
    if (!back && event.key !== 'y' && !(event.key.toLowerCase() === 'z' && event.shiftKey)) return false;
    if (back ? this.drawing.undo() : this.drawing.redo()) this.update();
    return true;
  }

  keyPlain(event) {
    const {drawing} = this;
    const step = event.shiftKey ? FAST : STEP;
    const way = {ArrowLeft: [-step, 0], ArrowRight: [step, 0], ArrowUp: [0, -step], ArrowDown: [0, step]}[event.key];
    const {type, at: text} = event.target.closest('.handle')?.dataset ?? {};
    const at = Number(text);
    if (event.key === 'Escape') this.cancel();
    else if (way) this.keyMove(type, at, way);
    else if ((event.key === 'Delete' || event.key === 'Backspace') && type === 'point') { if (drawing.remove(at)) this.update(); }
    else if (event.key === 'Backspace') { if (drawing.undo()) this.update(); }
    else if ((event.key === ' ' || event.key === 'Enter') && type === 'middle') {
      drawing.insert(at, drawing.middles()[at][1]);
      this.update();
      this.svg.querySelector(`[data-target="point${at + 1}"]`)?.focus();
    } else if (event.key === ' ' && !drawing.closed && this.cursor) {
      drawing.add(this.cursor);
      this.say(texts.workbench.placed(drawing.points.length));
      this.update();
      if (drawing.closed) this.done();
    } else if (event.key === 'Enter' && (drawing.mayClose || drawing.closed)) this.finish();
    else if (event.key === 'Enter') this.say(texts.workbench.tooFew(leastPoints(drawing.kind)));
    else return false;
    return true;
  }

  keyMove(type, at, [dx, dy]) {
    const {drawing} = this;
    if (type === 'head') {
      this.people.set(at, this.people.list[at].height - dy);
      return this.update();
    }
    if (type === 'point') {
      drawing.begin();
      drawing.move(at, [drawing.points[at][0] + dx, drawing.points[at][1] + dy]);
      return this.update();
    }
    if (drawing.closed) {
      drawing.begin();
      drawing.shift([dx, dy]);
      return this.update();
    }
    const [left, top, right, bottom] = this.bounds;
    this.cursor ??= [(left + right) / 2, (top + bottom) / 2];
    this.cursor = drawing.kept([Math.min(right, Math.max(left, this.cursor[0] + dx)), Math.min(bottom, Math.max(top, this.cursor[1] + dy))]);
    this.say(texts.workbench.cursor(this.cursor));
    return this.paint();
  }

  close() {
    clearInterval(this.timer);
    this.resize.disconnect();
  }
}
