// One event, in a dialog over whatever one was looking at: its clip or picture, what is known of it, what one may do with it.
import {h, fill, icon, iconButton, setText} from './dom.js';
import {ask, eventPath, get, url} from './api.js';
import {attempt, calmly, choice, eventTitle, explain, lastedText, notice, question, toggle} from './parts.js';
import {clockText, isoOf, momentText, msOf} from './time.js';
import {go, here, link, linkWith} from './route.js';
import {isAdmin, now, on, ruleTitle, titleOf} from './model.js';
import {notAgain} from './notagain.js';
import {Clip} from './clip.js';
import {exportEvents} from './export.js';
import {texts} from './texts.js';
import {eventWhy} from './why_facts.js';

const BEFORE_MS = 2000; // of what one came for, within a longer clip
const SHARE_HOURS = 24;

let open = null;
let neighbours = null;

/// Who knows what comes before and after an event: `find(id)` gives {newer, older}.
export function setNeighbours(find) {
  neighbours = find;
}

export function openEvent(id, ms) {
  go(linkWith({event: id, t: ms === undefined ? null : isoOf(ms)}));
}

/// After the address has changed.
export function showAddressedEvent() {
  const id = here().query.get('event');
  if (open && open.id === id) return;
  const former = open;
  open = null;
  if (former) former.close();
  if (id) open = new Player(id);
}

class Player {
  constructor(id) {
    this.id = id;
    this.title = h('h1');
    this.stage = h('div', {class: 'stage'});
    this.controls = h('div', {class: 'controls'});
    this.side = h('div', {class: 'side'});
    this.dialog = h('dialog', {class: 'player', tabindex: -1, 'aria-label': id, onkeydown: (event) => this.key(event), onclose: () => this.closed()});
    const words = texts.player;
    const {newer, older} = neighbours?.(id) ?? {};
    fill(this.dialog, h('div', {class: 'head'}, this.title, h('span', {class: 'gap'}),
      neighbours && iconButton('left', words.previous, () => this.other('newer'), {disabled: !newer}),
      neighbours && iconButton('right', words.next, () => this.other('older'), {disabled: !older}),
      iconButton('close', texts.close, () => this.dialog.close())),
    h('div', {class: 'columns'}, h('div', null, this.stage, this.controls), this.side));
    document.body.append(this.dialog);
    this.dialog.showModal();
    this.dialog.focus(); // not the first button: Space is for the clip
    this.ends = [
      on('event', (event) => this.told(event)),
      on('deleted', (which) => { if (which === this.id) this.gone(); }),
      on('review', (change) => this.reviewed(change)),
    ];
    this.load();
  }

  async load() {
    const path = eventPath(this.id);
    if (!path) return this.gone();
    try {
      this.detail = await get(path);
      this.event = this.detail.event;
      // The clip of a visit shows its events, too.
      this.holder = this.detail;
      if (!this.detail.media.clip && this.event.visit && this.event.visit !== this.id) {
        this.holder = await get(eventPath(this.event.visit)).catch(() => this.detail);
        if (!this.holder.media.clip) this.holder = this.detail;
      }
    } catch (error) {
      if (error.status === 404) return this.gone();
      return void fill(this.stage, h('p', {class: 'empty'}, texts.failed(explain(error))));
    }
    if (open !== this) return;
    const title = texts.player.title(titleOf(this.event.camera), momentText(msOf(this.event.start_ns)));
    setText(this.title, title);
    this.dialog.setAttribute('aria-label', title);
    this.showSide();
    this.loadFamily();
    await this.showStage();
    if (!this.event.reviewed) attempt(() => this.change({reviewed: true}));
  }

  gone() {
    fill(this.stage, h('p', {class: 'empty'}, texts.player.gone));
    this.controls.replaceChildren();
    this.side.replaceChildren();
  }

  /// News of this event or of the visit whose clip is waited for.
  told(event) {
    if (!this.event) return;
    if (event.event === this.id) {
      Object.assign(this.event, event);
      this.showSide();
    }
    if (!this.clip && event.clip === 'ready' && (event.event === this.id || event.event === this.event.visit)) this.load();
  }

  /// Somebody, here or elsewhere, has judged an event.
  reviewed(change) {
    if (change.event !== this.id || !this.event) return;
    for (const name of ['reviewed', 'keep', 'mark']) if (change[name] !== undefined) this.event[name] = change[name];
    this.showSide();
  }

  async showStage() {
    const {media} = this.holder;
    if (!media.clip || !media.times) return this.showPicture();
    this.clip?.close();
    this.clip = new Clip(this.event, {shown: () => this.showFrame(), failed: (copying) => this.noPlay(copying)});
    fill(this.stage, this.clip.element);
    this.showControls();
    try {
      await this.clip.open(media);
    } catch (error) {
      this.clip.close();
      this.clip = null;
      return this.showPicture();
    }
    const asked = Date.parse(here().query.get('t') ?? '');
    const start = () => {
      if (!Number.isNaN(asked)) this.clip.seekTo(asked);
      else if (this.holder !== this.detail) this.clip.seekTo(msOf(this.event.start_ns) - BEFORE_MS);
      if (!calmly()) this.clip.video.play().catch(() => {});
    };
    if (this.clip.video.readyState >= 1) start();
    else this.clip.video.addEventListener('loadedmetadata', start, {once: true});
  }

  showPicture() {
    const {media} = this.detail;
    const words = texts.player;
    const shown = media.box ?? media.picture;
    const waits = this.event.clip === 'recording';
    fill(this.stage, shown ? h('img', {src: url(shown.href), alt: eventTitle(this.event)}) : h('p', {class: 'empty'}, texts.events.noPicture));
    fill(this.controls, h('p', {class: 'muted'}, waits ? words.clipLater : words.noClip));
  }

  noPlay(copying) {
    const words = texts.player;
    const shown = this.detail.media.picture;
    notice(copying ? words.preparing : words.cannotPlay, {bad: !copying, stays: copying});
    if (!copying && shown) fill(this.stage, h('img', {src: url(shown.href), alt: ''}));
  }

  showControls() {
    const words = texts.player;
    const {clip} = this;
    this.playButton = iconButton('play', words.play, () => clip.toggle());
    this.slider = h('input', {type: 'range', min: 0, max: 0, value: 0, class: 'seek', 'aria-label': words.seek, oninput: () => clip.seek(Number(this.slider.value))});
    this.reading = h('span', {class: 'number'});
    this.frame = h('span', {class: 'number muted'});
    fill(this.controls, this.slider, h('div', {class: 'row wrap'},
      iconButton('back', words.back, () => clip.step(-1)), this.playButton, iconButton('forward', words.forward, () => clip.step(1)),
      this.reading, this.frame, h('span', {class: 'gap'}),
      choice([['0.25', '¼×'], ['0.5', '½×'], ['1', '1×'], ['2', '2×'], ['4', '4×'], ['8', '8×']], '1', (value) => { clip.video.playbackRate = Number(value); }, {'aria-label': words.speed}),
      this.boxToggle = toggle(words.boxes, true, (yes) => { clip.boxes = yes; clip.paint(); }),
      h('a', {class: 'button', href: url(this.holder.media.clip.href), download: `${this.holder.event.event}.mp4`, title: words.saveClip, 'aria-label': words.saveClip}, icon('save'))));
  }

  showFrame() {
    const {clip} = this;
    if (!clip?.times) return;
    const words = texts.player;
    this.slider.max = clip.frames - 1;
    this.slider.value = clip.index;
    const ns = clip.timeNs;
    const text = ns === null ? words.unanalyzed : `${clockText(msOf(ns))}.${String(Math.floor(msOf(ns)) % 1000).padStart(3, '0')}`;
    setText(this.reading, text);
    this.slider.setAttribute('aria-valuetext', text);
    setText(this.frame, words.frame(clip.index + 1, clip.frames));
    const playing = !clip.video.paused && !clip.video.ended;
    if (this.playButton.dataset.playing !== String(playing)) {
      this.playButton.dataset.playing = playing;
      fill(this.playButton, icon(playing ? 'pause' : 'play'));
      this.playButton.setAttribute('aria-label', playing ? words.pause : words.play);
    }
  }

  showSide() {
    const {event, detail} = this;
    const words = texts.player;
    const facts = [
      [words.facts.what, eventTitle(event)], [words.facts.when, momentText(msOf(event.start_ns))], [words.facts.lasted, lastedText(event, now())],
      [words.facts.rule, event.rule && ruleTitle(event.camera, event.rule)], [words.facts.track, event.track], [words.facts.value, event.value],
      [words.facts.reason, event.reason && (words.reasons[event.reason] ?? event.reason)], [words.facts.text, event.text],
      [words.facts.number, event.event], [words.facts.parameters, event.parameters], [words.facts.marked, detail.marked_by],
    ].filter(([, value]) => value !== null && value !== undefined && value !== '');
    const shown = JSON.stringify([facts, event.mark, event.reviewed, event.keep, detail.media]);
    if (shown === this.sideShown) return; // a button stays where somebody is about to press it
    this.sideShown = shown;
    const mark = (value) => toggle(words[value], event.mark === value, () => attempt(() => this.change({mark: event.mark === value ? null : value})), {class: `toggle ${value}`});
    const focus = this.side.contains(document.activeElement) ? document.activeElement.textContent : null;
    this.family ??= h('ul', {class: 'lines family', tabindex: 0, 'aria-label': words.inClip});
    fill(this.side,
      h('div', {class: 'row wrap', role: 'group'}, mark('right'), mark('wrong'),
        toggle(words.seen, event.reviewed, (yes) => attempt(() => this.change({reviewed: yes}))),
        isAdmin() && event.mark === 'wrong' && h('button', {type: 'button', onclick: () => notAgain(event)}, texts.notAgain.title),
        isAdmin() && toggle(words.keep, event.keep, (yes) => attempt(() => this.change({keep: yes})))),
      h('dl', {class: 'facts'}, facts.map(([name, value]) => [h('dt', null, name), h('dd', null, String(value))])),
      detail.media.why && (this.why ??= eventWhy(() => get(detail.media.why.href))),
      h('h2', null, words.inClip), this.family,
      h('div', {class: 'row wrap'},
        h('a', {class: 'button', href: link(['camera', event.camera], {at: isoOf(msOf(event.start_ns)), span: 1})}, words.atCamera),
        h('button', {type: 'button', onclick: () => this.copy(location.href)}, words.link),
        this.detail.media.picture && h('button', {type: 'button', onclick: () => this.share()}, words.share),
        h('button', {type: 'button', onclick: () => exportEvents([this.id])}, words.export),
        isAdmin() && h('button', {type: 'button', class: 'danger', onclick: () => this.remove()}, words.delete)));
    if (focus) [...this.side.querySelectorAll('button')].find((button) => button.textContent === focus)?.focus();
  }

  /// What else happened in this visit.
  async loadFamily() {
    const visit = this.event.kind === 'motion' ? this.id : this.event.visit;
    if (!visit) return;
    try {
      const {events} = await get('events', {visit, limit: 100});
      fill(this.family, events.toReversed().map((event) => h('li', null,
        event.event === this.id ? h('strong', null, `${clockText(msOf(event.start_ns))} ${eventTitle(event)}`)
          : h('a', {href: linkWith({event: event.event, t: null})}, `${clockText(msOf(event.start_ns))} ${eventTitle(event)}`))));
    } catch { /* the event stands for itself */ }
  }

  async change(body) {
    this.detail = {...this.detail, ...await ask('PATCH', eventPath(this.id), {body})};
    this.event = Object.assign(this.event, this.detail.event);
    if (open === this) this.showSide();
  }

  async copy(text) {
    try {
      await navigator.clipboard.writeText(text);
      notice(texts.player.copied);
    } catch { // not allowed without TLS: to be taken by hand
      notice(`${texts.player.copyByHand} ${text}`, {stays: true});
    }
  }

  share() {
    return attempt(async () => {
      const file = this.detail.media.clip ? 'clip.mp4' : 'picture.jpg';
      const {href} = await ask('POST', eventPath(this.id, 'link'), {body: {file, hours: SHARE_HOURS}});
      await this.copy(String(url(href)));
    });
  }

  async remove() {
    if (!await question(texts.player.deleteQuestion, texts.player.delete)) return;
    if (await attempt(() => ask('DELETE', eventPath(this.id)))) this.dialog.close();
  }

  other(which) {
    const next = neighbours?.(this.id)?.[which];
    if (next) go(linkWith({event: next, t: null}), {replace: true});
  }

  key(event) {
    if (event.ctrlKey || event.altKey || event.metaKey || event.target.matches('select, input:not([type=range]), dialog.question *')) return;
    const {clip} = this;
    const press = (words) => [...this.side.querySelectorAll('button')].find((button) => button.textContent === words)?.click();
    const keys = {
      ' ': () => clip?.toggle(), k: () => clip?.toggle(), ',': () => clip?.step(-1), '.': () => clip?.step(1),
      '[': () => this.other('newer'), ']': () => this.other('older'), b: () => this.boxToggle?.click(),
      r: () => press(texts.player.seen), y: () => press(texts.player.right), n: () => press(texts.player.wrong),
    };
    const act = keys[event.key];
    if (!act || (event.key === ' ' && event.target.matches('button, a'))) return;
    event.preventDefault();
    event.stopPropagation();
    act();
  }

  closed() {
    if (open !== this) return;
    this.close();
    open = null;
    go(linkWith({event: null, t: null}));
  }

  close() {
    this.ends.forEach((end) => end());
    this.clip?.close();
    this.dialog.remove();
  }
}
