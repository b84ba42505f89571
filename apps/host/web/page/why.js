// Why: a click on the live picture shows what the analyzer knows of that place and what became of it; layers show it for
// the whole picture. Asked again and again while it is open, about one frame at a time.
import {h, fill, setText} from './dom.js';
import {cameraPath, get} from './api.js';
import {model} from './model.js';
import {choice, explain, field, toggle} from './parts.js';
import {isAwake} from './tabs.js';
import {texts} from './texts.js';
import {layerPicture, paintLegend} from './why_layers.js';
import {showWhy} from './why_facts.js';

const PAUSE_MS = 400; // between an answer and the next question
const AGAIN_MS = 3000; // after a failure
const LAYERS = ['difference', 'confidence', 'edges', 'labels', 'age'];
const CLICK_PX = 6; // a pointer that moves farther moves the picture
const CELL_COLOUR = '#ffffff';
const DROPPED_COLOUR = '#ff8fa3';

/// `screen`: the camera's picture: {canvas, frame, paint()}, and calls `overlay(pen, frame)` when it paints.
export class Why {
  constructor(name, screen) {
    const words = texts.why;
    this.name = name;
    this.screen = screen;
    this.at = null; // pixel of the analyzed frame
    this.layer = '';
    this.body = h('div', {class: 'why', data: {why: ''}});
    this.told = h('p', {class: 'muted small', role: 'status'}, words.hint);
    this.x = h('input', {type: 'number', min: 0, step: 1, 'aria-label': words.x, onchange: () => this.typed()});
    this.y = h('input', {type: 'number', min: 0, step: 1, 'aria-label': words.y, onchange: () => this.typed()});
    this.legend = h('canvas', {width: 256, height: 8, class: 'legend-strip', 'aria-hidden': 'true'});
    this.ends = h('span', {class: 'row small muted legend-ends'});
    this.legends = h('div', {hidden: true}, this.legend, this.ends);
    this.panel = h('section', {class: 'panel why-panel', hidden: true}, h('h2', null, words.title),
      h('div', {class: 'row wrap'},
        field(words.layer, choice([['', words.noLayer], ...LAYERS.map((layer) => [layer, words.layers[layer]])], '', (value) => this.setLayer(value))),
        field(words.x, this.x), field(words.y, this.y)),
      this.legends, this.told, this.body);
    this.button = toggle(words.title, false, (yes) => this.open(yes), {title: words.buttonHint});
    this.canvas = screen.canvas;
    this.down = (event) => { this.pressed = [event.clientX, event.clientY]; };
    this.click = (event) => this.picked(event);
    this.canvas.addEventListener('pointerdown', this.down);
    this.canvas.addEventListener('click', this.click);
    screen.overlay = (pen, frame) => this.draw(pen, frame);
  }

  get on() { return !this.panel.hidden; }

  open(yes) {
    this.panel.hidden = !yes;
    this.canvas.classList.toggle('picking', yes);
    if (yes) this.ask();
    else this.stop();
    this.screen.paint();
  }

  setLayer(layer) {
    this.layer = layer;
    this.picture = null;
    this.legends.hidden = layer === '';
    if (layer) paintLegend(this.legend, layer);
    this.ask();
    this.screen.paint();
  }

  picked(event) {
    if (!this.on || !this.screen.frame || this.screen.still) return;
    const [x, y] = this.pressed ?? [event.clientX, event.clientY];
    if (Math.hypot(event.clientX - x, event.clientY - y) > CLICK_PX) return;
    const box = this.canvas.getBoundingClientRect();
    const {left, top, scale} = this.canvas.dataset;
    const dot = this.canvas.width / box.width;
    this.pick([Math.floor(((event.clientX - box.left) * dot - left) / scale), Math.floor(((event.clientY - box.top) * dot - top) / scale)]);
  }

  typed() {
    if (this.x.value !== '' && this.y.value !== '') this.pick([Math.floor(Number(this.x.value)), Math.floor(Number(this.y.value))]);
  }

  pick([x, y]) {
    const size = this.screen.frame?.size;
    if (!size || x < 0 || y < 0 || x >= size[0] || y >= size[1]) return;
    this.at = [x, y];
    [this.x.value, this.y.value] = this.at;
    this.ask();
    this.screen.paint();
  }

  stop() {
    clearTimeout(this.timer);
    this.abort?.abort();
    this.abort = null;
    Object.assign(this, {picture: null, why: null});
  }

  /// The next question at once, whatever is under way.
  ask() {
    clearTimeout(this.timer);
    this.abort?.abort();
    if (!this.on) return;
    const off = model.cameras.get(this.name)?.explain_off;
    if (off) return setText(this.told, texts.why.off(off));
    const mine = this.abort = new AbortController();
    this.question(mine);
  }

  async question(mine) {
    let pause = PAUSE_MS;
    if (isAwake() && !this.screen.still) {
      try {
        const asked = {layer: this.layer, x: this.at?.[0], y: this.at?.[1]};
        const why = await get(cameraPath(this.name, 'why'), asked, {signal: mine.signal});
        if (this.abort !== mine) return;
        this.show(why);
      } catch (error) {
        if (error.name === 'AbortError' || this.abort !== mine) return;
        setText(this.told, texts.failed(explain(error)));
        pause = AGAIN_MS;
      }
    }
    this.timer = setTimeout(() => { if (this.abort === mine) this.question(mine); }, pause);
  }

  show(why) {
    const words = texts.why;
    this.why = why;
    const shown = why.analyzer?.layer;
    this.picture = shown && why.layer ? layerPicture(shown, why.layer) : null;
    if (shown) fill(this.ends, words.legends[shown.name](why.analyzer).map((text) => h('span', null, text)));
    setText(this.told, this.at ? '' : words.hint);
    if (this.at) showWhy(this.body, why, this.at);
    this.body.dataset.why = why.sequence;
    this.screen.paint();
  }

  /// Over the picture: the layer, the cells of the place, what was dropped.
  draw(pen, frame) {
    if (!this.on) return;
    const {context} = pen;
    if (this.picture && this.why.size.join() === frame.size.join()) {
      const [left, top] = pen.at([0, 0]);
      const [right, bottom] = pen.at(frame.size);
      context.save();
      context.beginPath();
      context.rect(left, top, right - left, bottom - top);
      context.clip();
      context.imageSmoothingEnabled = false;
      context.drawImage(this.picture.canvas, left, top, this.picture.width * pen.place.scale, this.picture.height * pen.place.scale);
      context.restore();
    }
    for (const piece of this.why?.filter?.dropped ?? []) if (piece.why !== 'too-small') pen.box(piece.box, DROPPED_COLOUR, 1, [3, 3]);
    if (!this.at) return;
    for (const cell of this.why?.analyzer?.place?.cells ?? []) pen.box(cell.box, CELL_COLOUR, 1);
    const [x, y] = [this.at[0] + 0.5, this.at[1] + 0.5];
    const reach = 12 * pen.dot / pen.place.scale;
    for (const line of [[[x - reach, y], [x + reach, y]], [[x, y - reach], [x, y + reach]]]) {
      pen.path(line, false);
      pen.stroke(CELL_COLOUR, 1);
    }
  }

  close() {
    this.stop();
    this.canvas.removeEventListener('pointerdown', this.down);
    this.canvas.removeEventListener('click', this.click);
  }
}
