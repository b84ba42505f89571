// What a zone or line would have told: asked of the stored tracks as soon as it is drawn, before it is saved.
import {h, fill} from './dom.js';
import {ask, cameraPath, eventPath, url} from './api.js';
import {choice, explain} from './parts.js';
import {linkWith} from './route.js';
import {momentText, msOf} from './time.js';
import {settings} from './model.js';
import {texts} from './texts.js';

const WAIT_MS = 400;
const DAYS = [1, 7, 30];

/// @returns {element, ask(rule, change), clear(), close()}
export function whatIf(camera) {
  const words = texts.workbench;
  let days = settings.read('whatif.days', 7);
  let asked = null; // {rule, change}
  let timer = 0;
  let running = null;
  const answer = h('div', {class: 'answer', role: 'status', 'aria-live': 'polite'});
  const span = choice(DAYS.map((count) => [String(count), texts.days(count)]), String(days), (value) => {
    days = Number(value);
    settings.write('whatif.days', days);
    if (asked) later(0);
  }, {'aria-label': words.days});
  const element = h('section', {class: 'panel whatif', hidden: true}, h('div', {class: 'head'}, h('h2', null, words.whatIf), h('span', {class: 'gap'}), span), answer);

  function later(wait = WAIT_MS) {
    clearTimeout(timer);
    timer = setTimeout(load, wait);
  }

  async function load() {
    running?.abort();
    const mine = new AbortController();
    running = mine;
    fill(answer, h('p', {class: 'muted'}, words.looking), h('button', {type: 'button', onclick: cancel}, texts.cancel));
    try {
      const found = await ask('POST', cameraPath(camera, 'what-if'), {body: {...asked, days}, signal: mine.signal});
      if (running === mine) show(found);
    } catch (error) {
      if (error.name !== 'AbortError' && running === mine) fill(answer, h('p', {class: 'bad'}, texts.failed(explain(error))));
    }
  }

  function cancel() {
    running?.abort();
    running = null;
    clearTimeout(timer);
    ask('DELETE', cameraPath(camera, 'what-if')).catch(() => {});
    fill(answer, h('p', {class: 'muted'}, words.cancelled));
  }

  function show(found) {
    element.dataset.events = found.events;
    fill(answer, h('p', {class: 'count'}, words.gives(found.days, found.events), found.before !== null && found.before !== found.events && h('span', {class: 'muted'}, ` ${words.givesNow(found.before)}`)),
      found.tracks === 0 && h('p', {class: 'muted'}, words.noTracks),
      h('ul', {class: 'thumbs'}, found.shown.map((one) => h('li', null, h('a', {href: one.event ? linkWith({event: one.event}) : null},
        one.event ? h('img', {src: url(eventPath(one.event, 'thumb.jpg')), alt: '', loading: 'lazy'}) : h('span', {class: 'bare'}, texts.events.noPicture),
        h('span', {class: 'number'}, momentText(msOf(one.start_ns))), one.change !== 'enter' && h('span', {class: 'muted'}, ` ${texts.changes[one.change] ?? ''}`))))),
      h('p', {class: 'muted small'}, words.whatIfHint));
  }

  return {
    element,
    ask(rule, change) {
      asked = {rule, change};
      element.hidden = false;
      later();
    },
    clear() {
      clearTimeout(timer);
      running?.abort();
      running = asked = null;
      element.hidden = true;
    },
    close() {
      clearTimeout(timer);
      if (running) cancel();
    },
  };
}
