// A visit as a card: what happened, how it looked, whether this user has seen it.
import {h, fill, icon, setText} from './dom.js';
import {calmly, eventTitle, lastedText} from './parts.js';
import {clockText, msOf} from './time.js';
import {loadStrip, tile} from './scrubber.js';
import {eventPath, url} from './api.js';
import {linkWith} from './route.js';
import {now, ruleTitle, titleOf} from './model.js';
import {texts} from './texts.js';

const PREVIEW_DELAY_MS = 250;
const PREVIEW_STEP_MS = 250; // of one picture a second: four times as fast as it was
const SWIPE_PX = 90;

/// What happened in it, the most telling first.
export function summary({event, kinds, rules}) {
  if (event.kind !== 'motion' || rules.length + Object.keys(kinds).length === 0) return eventTitle(event);
  const told = rules.map((rule) => ruleTitle(event.camera, rule));
  for (const kind of ['stopped', 'removed', 'external']) if (kinds[kind]) told.push(texts.events.several(kinds[kind], texts.kinds[kind]));
  return told.join(' · ') || texts.kinds.motion;
}

export class Card {
  /// `acts`: {select(card, yes), seen(card)}
  constructor(visit, acts) {
    this.acts = acts;
    this.image = h('img', {alt: '', loading: 'lazy', decoding: 'async', onerror: () => this.noPicture()});
    this.screen = h('div', {class: 'screen'}, this.image);
    this.marks = h('span', {class: 'marks'});
    this.select = h('input', {type: 'checkbox', class: 'pick', 'aria-label': texts.events.select, onchange: () => acts.select(this, this.select.checked)});
    this.when = h('span', {class: 'number'});
    this.what = h('strong');
    this.unseen = h('span', {class: 'unseeable'});
    this.more = h('span', {class: 'muted'});
    this.link = h('a', null, this.screen, h('div', {class: 'caption'}, h('div', {class: 'row'}, this.what, this.when), h('div', {class: 'row small'}, this.more, this.unseen, this.marks)));
    this.element = h('article', {class: 'card'}, this.link, this.select);
    this.element.addEventListener('pointerenter', (event) => { if (event.pointerType === 'mouse') preview(this); });
    this.element.addEventListener('pointerleave', () => preview(null));
    this.link.addEventListener('focus', () => { if (this.link.matches(':focus-visible')) preview(this); });
    this.link.addEventListener('blur', () => preview(null));
    this.swipes();
    this.show(visit);
  }

  get id() { return this.visit.event.event; }

  show(visit) {
    this.visit = visit;
    const {event} = visit;
    const ms = msOf(event.start_ns);
    this.element.dataset.event = event.event;
    this.link.href = linkWith({event: event.event, t: null});
    setText(this.unseen, event.reviewed === false ? texts.events.unseen : '');
    setText(this.what, titleOf(event.camera));
    setText(this.when, clockText(ms));
    setText(this.more, [summary(visit), lastedText(event, now())].filter(Boolean).join(' · '));
    this.element.classList.toggle('unseen', event.reviewed === false);
    this.element.classList.toggle('held', event.held);
    const words = texts.events;
    fill(this.marks, event.held && h('span', {class: 'chip held'}, words.held), event.keep && h('span', {class: 'chip', title: words.kept}, icon('star')),
      event.mark && h('span', {class: `chip ${event.mark}`}, words[event.mark]),
      event.clip === 'recording' && h('span', {class: 'dot live', title: words.clipStates.recording}));
    const path = eventPath(visit.show, 'thumb.jpg');
    const source = path && String(url(path));
    if (source && this.shown !== `${source} ${event.pictures}`) {
      this.shown = `${source} ${event.pictures}`;
      this.image.hidden = false;
      this.screen.classList.remove('bare');
      this.image.src = source;
    }
  }

  noPicture() {
    this.image.hidden = true;
    this.screen.classList.add('bare');
    this.screen.dataset.words = texts.events.noPicture;
  }

  /// To the right: seen.
  swipes() {
    let start = null;
    const {element} = this;
    const move = (px) => element.style.setProperty('--swipe', `${px}px`);
    element.addEventListener('pointerdown', (event) => { if (event.pointerType === 'touch') start = event.clientX; });
    element.addEventListener('pointermove', (event) => { if (start !== null) move(Math.max(0, Math.min(SWIPE_PX * 1.3, event.clientX - start))); });
    element.addEventListener('pointerup', (event) => {
      if (start !== null && event.clientX - start > SWIPE_PX) {
        this.acts.seen(this);
        element.addEventListener('click', (click) => click.preventDefault(), {once: true, capture: true});
      }
      start = null;
      move(0);
    });
    element.addEventListener('pointercancel', () => { start = null; move(0); });
  }
}

let previewed = {card: null, timer: 0, canvas: null};

/// One at a time, whichever is pointed at.
function preview(card) {
  clearTimeout(previewed.timer);
  previewed.canvas?.remove();
  previewed.bitmap?.close();
  const mine = {card, timer: 0, canvas: null};
  previewed = mine;
  if (!card || calmly()) return;
  mine.timer = setTimeout(async () => {
    const strip = await loadStrip(card.id);
    if (previewed !== mine || !strip) return void strip?.bitmap.close();
    const [width, height] = strip.details.tile;
    mine.bitmap = strip.bitmap;
    mine.canvas = h('canvas', {width, height, 'aria-hidden': 'true'});
    card.screen.append(mine.canvas);
    let index = 0;
    const step = () => {
      const {bitmap, cut} = tile(strip, index);
      mine.canvas.getContext('2d').drawImage(bitmap, ...cut, 0, 0, width, height);
      index = (index + 1) % strip.details.times_ns.length;
      mine.timer = setTimeout(step, PREVIEW_STEP_MS);
    };
    step();
  }, PREVIEW_DELAY_MS);
}

export const endPreview = () => preview(null);
