// Pieces that several views show.
import {h, setText} from './dom.js';
import {ruleTitle} from './model.js';
import {minuteText, dayText, durationText, msOf} from './time.js';
import {texts} from './texts.js';

export function stateBadge() {
  return h('span', {class: 'badge'});
}

export function showState(badge, camera) {
  const state = camera.ended ? 'ended' : camera.state;
  badge.dataset.state = state;
  setText(badge, texts.states[state] ?? texts.ended);
  badge.title = camera.trouble || texts.stateHints[state] || '';
}

export function armingText(camera) {
  if (camera.armed) return '';
  return camera.armed_from ? texts.disarmedUntil(minuteText(Date.parse(camera.armed_from))) : texts.disarmed;
}

/// "zone yard", "line gate forward", "motion".
export function eventTitle(event) {
  const rule = event.rule ? ` ${ruleTitle(event.camera, event.rule)}` : '';
  const change = event.kind === 'line' || event.kind === 'scene' ? ` ${texts.changes[event.change] ?? event.change ?? ''}` : '';
  return `${texts.kinds[event.kind] ?? event.kind}${rule}${change}`.trim();
}

/// Until now where it has no end yet.
export function lastedText(event, now) {
  if (event.end_ns === null) return texts.events.running;
  if (event.end_ns === event.start_ns) return '';
  return durationText(msOf(event.end_ns - event.start_ns)) || durationText(now - msOf(event.start_ns));
}

export const startText = (event) => `${dayText(msOf(event.start_ns))}, ${minuteText(msOf(event.start_ns))}`;

let noticeTimer = 0;
/// A sentence at the lower edge, read out; goes by itself.
export function notice(text, {bad = false, stays = false} = {}) {
  const place = document.getElementById('notices');
  clearTimeout(noticeTimer);
  place.replaceChildren(h('p', {class: bad ? 'bad' : ''}, text));
  if (!stays) noticeTimer = setTimeout(() => place.replaceChildren(), 6000);
}

export function explain(error) {
  return error.status === 0 ? texts.hostGone : error.message;
}

/// Says what went wrong; for calls behind buttons. @returns whether it went well
export async function attempt(call) {
  try {
    await call();
    return true;
  } catch (error) {
    if (error.name !== 'AbortError') notice(texts.failed(explain(error)), {bad: true});
    return false;
  }
}

/// A question with an answer, in a dialog of the browser's own making: focus stays in it, Esc says no.
export function question(text, yes) {
  return new Promise((answer) => {
    const dialog = h('dialog', {class: 'question', 'aria-label': text, onclose: () => { dialog.remove(); answer(dialog.returnValue === 'yes'); }},
      h('form', {method: 'dialog'}, h('p', null, text),
        h('div', {class: 'row end'}, h('button', {value: 'no'}, texts.cancel), h('button', {class: 'danger', value: 'yes'}, yes))));
    document.body.append(dialog);
    dialog.showModal();
  });
}

export function field(label, input, hint) {
  return h('label', {class: 'field'}, h('span', null, label), input, hint && h('small', null, hint));
}

export function choice(options, selected, change, properties) {
  return h('select', {onchange: (event) => change(event.target.value), ...properties},
    options.map(([value, text]) => h('option', {value, selected: value === selected}, text)));
}

export function toggle(text, on, change, properties) {
  const button = h('button', {type: 'button', class: 'toggle', 'aria-pressed': on, onclick: () => {
    const next = button.getAttribute('aria-pressed') !== 'true';
    button.setAttribute('aria-pressed', next);
    change(next);
  }, ...properties}, text);
  return button;
}

export function failure(error, again) {
  return h('div', {class: 'empty'}, h('p', null, texts.failed(explain(error))), h('button', {type: 'button', onclick: again}, texts.again));
}

export function sizeText(bytes) {
  const units = ['B', 'kB', 'MB', 'GB', 'TB'];
  let at = 0;
  let value = bytes;
  for (; value >= 1000 && at < units.length - 1; at++) value /= 1000;
  return `${value >= 100 || at === 0 ? value.toFixed(0) : value.toFixed(1)} ${units[at]}`;
}

/// Downloads what a POST answers with.
export async function saveAnswer(response, name) {
  const address = URL.createObjectURL(await response.blob());
  const disposition = /filename="([A-Za-z0-9_. -]+)"/.exec(response.headers.get('Content-Disposition') ?? '');
  h('a', {href: address, download: disposition?.[1] ?? name}).click();
  setTimeout(() => URL.revokeObjectURL(address), 60000);
}

/// Does this person want things to stand still?
export const calmly = () => matchMedia('(prefers-reduced-motion: reduce)').matches;
