// Single keys, wherever one is but in a field. They can be switched off in the settings.
import {h} from './dom.js';
import {go, link} from './route.js';
import {settings} from './model.js';
import {texts} from './texts.js';

function showKeys() {
  const words = texts.keys;
  const dialog = h('dialog', {'aria-label': words.title, onclose: () => dialog.remove()}, h('form', {method: 'dialog'}, h('h2', null, words.title),
    h('dl', {class: 'facts'}, words.rows.map(([key, what]) => [h('dt', null, h('kbd', null, key)), h('dd', null, what)])),
    h('div', {class: 'row end'}, h('button', null, texts.close))));
  document.body.append(dialog);
  dialog.showModal();
}

const ACTS = {w: () => go(link(['wall'])), e: () => go(link(['events'])), s: () => go(link(['state'])), ',': () => go(link(['settings'])), '?': showKeys};

export function watchKeys() {
  document.addEventListener('keydown', (event) => {
    if (event.defaultPrevented || event.ctrlKey || event.altKey || event.metaKey || !settings.read('shortcuts', true)) return;
    if (event.target.closest?.('input, select, textarea') || document.querySelector('dialog[open]') || !ACTS[event.key]) return;
    event.preventDefault();
    ACTS[event.key]();
  });
}
