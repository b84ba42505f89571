// "Not again": what would keep an event from coming, with what it would cost of the events that people have marked.
import {h, fill} from './dom.js';
import {ask, cameraPath, eventPath, get} from './api.js';
import {attempt, explain} from './parts.js';
import {link} from './route.js';
import {settings} from './model.js';
import {takeBack} from './changelist.js';
import {texts} from './texts.js';

const HIGHER = 1.25; // thresholds that are tried beside

/// A dialog over whatever is open.
export async function notAgain(event) {
  const words = texts.notAgain;
  const {camera} = event;
  const body = h('div', null, h('p', {class: 'muted'}, words.looking));
  const stop = new AbortController();
  const dialog = h('dialog', {class: 'notagain', 'aria-label': words.title, onclose: () => { stop.abort(); dialog.remove(); }},
    h('form', {method: 'dialog'}, h('div', {class: 'head'}, h('h2', null, words.title), h('span', {class: 'gap'}), h('button', {value: ''}, texts.close)), body));
  // Keys are this dialog's own, also above the player.
  dialog.addEventListener('keydown', (key) => key.stopPropagation());
  document.body.append(dialog);
  dialog.showModal();

  function row({kind, change, removes}) {
    const said = h('p', {role: 'status'});
    const button = h('button', {type: 'button', class: 'primary', onclick: async () => {
      let made = null;
      if (!await attempt(async () => { made = await ask('PATCH', cameraPath(camera, 'settings'), {body: change}); })) return;
      button.hidden = true;
      fill(said, texts.workbench.saved(texts.workbench.effects[made.effect]), ' ', h('button', {type: 'button', onclick: async () => {
        if (!await takeBack(camera, made.change)) return;
        said.replaceChildren();
        button.hidden = false;
        button.focus();
      }}, texts.workbench.takeBack));
      said.querySelector('button').focus();
    }}, words.apply);
    const [, value] = Object.entries(change)[0];
    const inner = kind === 'mask' ? value : value.least_size ?? value.least_age ?? value.when ?? Object.values(value)[0];
    return h('li', {class: 'panel', data: {kind}}, h('h3', null, words.kinds[kind](kind === 'mask' ? inner.length : inner[kind] ?? inner)),
      h('p', {class: removes.right > 0 ? 'warn' : ''}, words.removes(removes)), h('div', {class: 'row wrap'}, button), said);
  }

  try {
    const found = await get(eventPath(event.event, 'not-again'), null, {signal: stop.signal});
    fill(body, h('p', null, found.judged > 0 ? words.judged(found) : words.notJudged),
      h('ul', {class: 'choices'}, found.suggestions.map(row),
        h('li', {class: 'panel', data: {kind: 'threshold'}}, h('h3', null, words.threshold), h('p', {class: 'muted'}, words.thresholdHint),
          h('div', {class: 'row wrap'}, h('a', {class: 'button', href: link(['workbench', camera], {tab: 'tune'}), onclick: () => {
            settings.write('tune.start', {camera, factors: {low: HIGHER, high: HIGHER}});
            dialog.close();
          }}, words.tryThreshold)))),
      found.judged > 0 && found.suggestions.length < 4 && h('p', {class: 'muted small'}, words.fewer),
      h('p', {class: 'muted small'}, words.hint));
  } catch (error) {
    if (error.name !== 'AbortError') fill(body, h('p', {class: 'bad'}, texts.failed(explain(error))));
  }
}
