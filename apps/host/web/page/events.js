// Events: visits as cards, newest first, a page at a time. Only what is near the screen has elements; what is far away is
// asked for again when one comes back to it, so that a hundred thousand visits are as light as a hundred.
import {h, fill, icon} from './dom.js';
import {ask, eventPath, get} from './api.js';
import {attempt, failure, question} from './parts.js';
import {exportEvents} from './export.js';
import {Card, endPreview} from './card.js';
import {eachAlone, filterBar, filters, KINDS} from './filter.js';
import {longDay, msOf} from './time.js';
import {isAdmin, on} from './model.js';
import {setNeighbours} from './player.js';
import {texts} from './texts.js';

const PAGE = 60; // visits: fills a large screen
const NEAR = '1200px';

/// A page of visits, or of single events where these are listed: on a busy street one visit lasts for hours.
async function found(query, signal) {
  const asked = {...filters(), ...query, limit: PAGE};
  if (!eachAlone()) return get('visits', asked, {signal});
  const {events, next} = await get('events', {...asked, kind: asked.kind ?? KINDS.join(',')}, {signal});
  return {visits: events.map(alone), next};
}

const alone = (event) => ({event, kinds: {}, rules: [], show: event.event});

/// One page of the list; `before`: what the page above said.
class Page {
  constructor(list, before) {
    this.list = list;
    this.before = before;
    this.element = h('div', {class: 'cards'});
    this.cards = null; // null: not there now
    this.ids = [];
  }

  async load() {
    const {visits, next} = await found({before: this.before}, this.list.signal);
    this.next = next;
    this.build(visits);
  }

  build(visits) {
    let day = this.list.dayBefore(this);
    // Cards that stay are the same elements: no picture flickers, no focus is lost behind a dialog.
    const known = new Map((this.cards ?? []).map((card) => [card.id, card]));
    this.cards = visits.map((visit) => {
      const card = known.get(visit.event.event) ?? this.list.card(visit);
      card.show(visit);
      return card;
    });
    this.ids = visits.map((visit) => visit.event.event);
    fill(this.element, this.cards.map((card) => {
      const text = longDay(msOf(card.visit.event.start_ns));
      const heading = text !== day && h('h2', {class: 'day'}, text);
      day = text;
      return [heading, card.element];
    }));
    this.lastDay = day;
    this.element.style.removeProperty('height');
  }

  /// Far away: only its place remains.
  rest() {
    if (!this.cards || this.cards.some((card) => card.element.contains(document.activeElement))) return;
    this.element.style.setProperty('height', `${this.element.offsetHeight}px`);
    this.element.replaceChildren();
    this.cards = null;
  }

  async wake() {
    if (this.cards || this.loading) return;
    this.loading = true;
    try {
      await this.load();
    } catch { /* the next scroll tries again */ } finally {
      this.loading = false;
    }
  }
}

class EventList {
  constructor() {
    this.selected = new Set();
    this.fresh = new Set();
    this.element = h('div', {class: 'eventlist', onkeydown: (event) => this.key(event)});
    this.foot = h('div', {class: 'foot', role: 'status'});
    this.news = h('button', {type: 'button', class: 'news', hidden: true, onclick: () => { scrollTo(0, 0); this.restart(); }});
    this.bar = h('div', {class: 'selection', role: 'toolbar', hidden: true});
    this.near = new IntersectionObserver((entries) => this.passed(entries), {rootMargin: NEAR});
    this.near.observe(this.foot);
    this.restart();
  }

  restart() {
    this.abort?.abort();
    this.abort = new AbortController();
    this.signal = this.abort.signal;
    for (const page of this.pages ?? []) this.near.unobserve(page.element);
    this.pages = [];
    this.fresh.clear();
    this.select(null);
    this.showNews();
    this.ended = false;
    this.more(true);
  }

  async more(first = false) {
    if (this.ended || (this.adding && !first)) return;
    const {signal} = this;
    this.adding = true;
    fill(this.foot, h('p', {class: 'muted'}, texts.loading));
    const page = new Page(this, this.pages.at(-1)?.next ?? null);
    try {
      await page.load();
    } catch (error) {
      if (signal.aborted) return;
      this.adding = false;
      this.ended = error.status !== 0;
      fill(this.foot, failure(error, () => this.restart()));
      if (first) this.element.replaceChildren();
      return;
    }
    if (signal.aborted) return;
    if (first) this.element.replaceChildren();
    this.pages.push(page);
    this.element.append(page.element);
    this.near.observe(page.element);
    this.adding = false;
    this.ended = page.next === null;
    const none = Object.keys(filters()).length > 0 ? texts.events.none : texts.events.noneYet;
    fill(this.foot, this.ended && h('p', {class: page.ids.length === 0 && first ? 'empty' : 'muted'}, page.ids.length === 0 && first ? none : texts.events.end));
    // The foot may still be near: asked anew, the observer tells.
    this.near.unobserve(this.foot);
    this.near.observe(this.foot);
  }

  passed(entries) {
    for (const {target, isIntersecting} of entries) {
      if (target === this.foot) {
        if (isIntersecting && this.pages.length > 0) this.more();
        continue;
      }
      const page = this.pages.find((each) => each.element === target);
      if (isIntersecting) page?.wake();
      else page?.rest();
    }
  }

  dayBefore(page) {
    const at = this.pages.indexOf(page);
    return (at < 0 ? this.pages.at(-1) : this.pages[at - 1])?.lastDay ?? '';
  }

  card(visit) {
    const card = new Card(visit, {select: (which, yes) => this.select(which, yes), seen: (which) => this.seen([which.id], true)});
    card.select.checked = this.selected.has(card.id);
    return card;
  }

  cards() { return this.pages.flatMap((page) => page.cards ?? []); }
  ids() { return this.pages.flatMap((page) => page.ids); }
  find(id) { return this.cards().find((card) => card.id === id); }

  /// Another state of an event: of a visit's own row at once; a new visit is told, not pushed in under somebody's finger.
  event(event) {
    const card = this.find(event.event) ?? (event.visit && this.find(event.visit));
    const listed = (event.kind === 'motion') !== eachAlone();
    if (card) {
      const {visit} = card;
      if (card.id === event.event) card.show({...visit, event: {...visit.event, ...event}});
      else this.refresh(card);
    } else if (listed && event.state === 'start') {
      const wanted = filters();
      if (eachAlone() && ((wanted.kind && wanted.kind !== event.kind) || (wanted.rule && wanted.rule !== event.rule))) return;
      if (wanted.camera && !wanted.camera.split(',').includes(event.camera)) return;
      if (wanted.until && Date.parse(wanted.until) <= msOf(event.start_ns)) return;
      this.fresh.add(event.event);
      if (scrollY < 80 && (eachAlone() || (!wanted.kind && !wanted.rule)) && !document.querySelector('dialog[open]') && this.selected.size === 0) this.restartSoon();
      else this.showNews();
    }
  }

  restartSoon() {
    clearTimeout(this.soon);
    this.soon = setTimeout(() => this.refreshTop(), 400);
  }

  /// New visits at the top while one looks at it: the first page is built anew.
  async refreshTop() {
    const first = this.pages[0];
    if (!first || this.element.contains(document.activeElement)) return this.showNews();
    try {
      const {visits, next} = await found({}, this.signal);
      if (this.pages.length > 1) return this.restart();
      first.next = next;
      first.build(visits);
      this.ended = next === null;
      this.fresh.clear();
      this.showNews();
      fill(this.foot, this.ended && h('p', {class: 'muted'}, texts.events.end));
    } catch { /* the next event tries again */ }
  }

  refresh(card) {
    clearTimeout(card.again);
    card.again = setTimeout(async () => {
      try {
        const {visits} = await get('visits', {visit: card.id, limit: 1});
        if (visits[0]?.event.event === card.id) card.show(visits[0]);
      } catch { /* as it was */ }
    }, 500);
  }

  showNews() {
    this.news.hidden = this.fresh.size === 0;
    this.news.textContent = texts.events.fresh(this.fresh.size);
  }

  gone(id) {
    this.find(id)?.element.remove();
    for (const page of this.pages) {
      page.ids = page.ids.filter((each) => each !== id);
      page.cards = page.cards?.filter((card) => card.id !== id) ?? null;
    }
    if (this.selected.delete(id)) this.showBar();
  }

  review(change) {
    const card = this.find(change.event);
    if (!card) return;
    const {type, camera, event: id, ...changes} = change;
    card.show({...card.visit, event: {...card.visit.event, ...changes}});
  }

  seen(events, reviewed) {
    return attempt(async () => {
      for (let at = 0; at < events.length; at += 500) await ask('POST', 'reviewed', {body: {events: events.slice(at, at + 500), reviewed}});
      for (const event of events) this.review({event, reviewed});
    });
  }

  /// `card` null: none.
  select(card, yes) {
    if (!card) {
      for (const each of this.cards()) each.select.checked = false;
      this.selected.clear();
    } else if (yes) {
      this.selected.add(card.id);
    } else {
      this.selected.delete(card.id);
    }
    this.showBar();
  }

  showBar() {
    const words = texts.events;
    const ids = [...this.selected];
    this.bar.hidden = ids.length === 0;
    const button = (text, click, name = '') => h('button', {type: 'button', class: name, onclick: click}, text);
    fill(this.bar, h('strong', null, words.selected(ids.length)),
      button(words.seen, () => this.seen(ids, true).then(() => this.select(null))),
      button(words.notSeen, () => this.seen(ids, false).then(() => this.select(null))),
      button(words.export, () => exportEvents(ids)),
      isAdmin() && button(words.delete, () => this.remove(ids), 'danger'),
      button(words.unselect, () => this.select(null), 'plain'));
  }

  async remove(ids) {
    if (!await question(texts.events.deleteQuestion(ids.length), texts.events.delete)) return;
    for (const id of ids) if (!await attempt(async () => { await ask('DELETE', eventPath(id)); this.gone(id); })) break;
  }

  key(event) {
    const all = this.cards();
    const at = all.findIndex((card) => card.element.contains(document.activeElement));
    if (at < 0 || event.ctrlKey || event.altKey || event.metaKey) return;
    const row = all.filter((card) => card.element.offsetTop === all[at].element.offsetTop).length || 1;
    const step = {ArrowLeft: -1, ArrowRight: 1, ArrowUp: -row, ArrowDown: row}[event.key];
    if (step) (all[at + step] ?? all[step > 0 ? all.length - 1 : 0]).link.focus();
    else if (event.key === 'r') this.seen([all[at].id], !all[at].visit.event.reviewed);
    else if (event.key === 'x') { all[at].select.checked = !all[at].select.checked; this.select(all[at], all[at].select.checked); }
    else return;
    event.preventDefault();
  }

  close() {
    this.abort.abort();
    this.near.disconnect();
    clearTimeout(this.soon);
    endPreview();
  }
}

/// @returns {element, close, changed}
export function eventsView() {
  const bar = filterBar();
  const list = new EventList();
  const address = () => JSON.stringify([filters(), eachAlone()]);
  let shown = address();
  setNeighbours((id) => {
    const ids = list.ids();
    const at = ids.indexOf(id);
    return at < 0 ? {} : {newer: ids[at - 1], older: ids[at + 1]};
  });
  const ends = [
    on('event', (event) => list.event(event)), on('deleted', (id) => list.gone(id)), on('review', (change) => list.review(change)),
    on('missed', () => (scrollY < 80 ? list.refreshTop() : null)), on('cameras', () => bar.changed()),
  ];
  const words = texts.events;
  return {
    title: words.title,
    element: h('div', {class: 'events'},
      h('div', {class: 'head'}, h('h1', null, words.title), h('span', {class: 'gap'}),
        h('button', {type: 'button', onclick: () => list.seen(list.cards().filter((card) => !card.visit.event.reviewed).map((card) => card.id), true)}, icon('check'), words.allSeen)),
      bar.element, list.bar, list.news, list.element, list.foot),
    changed() {
      bar.changed();
      const now = address();
      if (now !== shown) list.restart();
      shown = now;
    },
    close() {
      setNeighbours(null);
      ends.forEach((end) => end());
      list.close();
    },
  };
}
