// Which events are listed. What is chosen stands in the address, under the interface's own names.
import {h, fill, iconButton} from './dom.js';
import {model, titleOf} from './model.js';
import {choice, field} from './parts.js';
import {here, go, linkWith} from './route.js';
import {isoOf, msOfWall, wallText} from './time.js';
import {drawnArea} from './area.js';
import {texts} from './texts.js';

export const FILTERS = ['camera', 'kind', 'rule', 'since', 'until', 'area', 'reviewed', 'held', 'keep', 'mark'];
export const KINDS = ['zone', 'line', 'stopped', 'removed', 'scene', 'analyzer', 'gap', 'clock', 'external'];

/// {camera: 'gate', ...} as the address has it.
export function filters() {
  const {query} = here();
  return Object.fromEntries(FILTERS.filter((name) => query.get(name)).map((name) => [name, query.get(name)]));
}

/// Single events are listed, not visits.
export const eachAlone = () => here().query.get('list') === 'each';

const set = (changes) => go(linkWith(changes));

/// @returns {element, changed}: changed() after the address is another one
export function filterBar() {
  const words = texts.filter;
  const element = h('form', {class: 'filters', role: 'search', 'aria-label': words.title, onsubmit: (event) => event.preventDefault()});
  let drawn = '';

  function rules(camera) {
    const cameras = camera ? [model.cameras.get(camera)].filter(Boolean) : [...model.cameras.values()];
    return [...new Map(cameras.flatMap((each) => [...each.zones, ...each.lines]).map((rule) => [rule.name, rule.title || rule.name]))];
  }

  const moment = (name, value) => h('input', {type: 'datetime-local', step: 1, value: value ? wallText(Date.parse(value)).slice(0, 19) : '',
    onchange: (event) => set({[name]: event.target.value ? isoOf(msOfWall(event.target.value)) : null})});
  const yesNo = (name, value, yes, no) => choice([['', words.all], ['true', yes], ['false', no]], value ?? '', (text) => set({[name]: text}));

  function build() {
    const now = filters();
    const state = JSON.stringify([now, eachAlone(), [...model.cameras.keys()]]);
    if (state === drawn) return;
    drawn = state;
    const open = element.querySelector('details')?.open || ['since', 'until', 'area', 'held', 'keep', 'mark'].some((name) => now[name]);
    const focused = document.activeElement?.closest?.('.filters') && document.activeElement.name;
    fill(element,
      h('div', {class: 'row wrap'},
        field(words.list, choice([['', words.visits], ['each', words.each]], eachAlone() ? 'each' : '', (value) => set({list: value}), {name: 'list'})),
        field(words.camera, choice([['', words.all], ...[...model.cameras.keys()].map((name) => [name, titleOf(name)])], now.camera ?? '', (value) => set({camera: value, rule: null, area: null}), {name: 'camera'})),
        field(words.kind, choice([['', words.all], ...KINDS.map((kind) => [kind, texts.kinds[kind]])], now.kind ?? '', (value) => set({kind: value}), {name: 'kind'})),
        field(words.rule, choice([['', words.all], ...rules(now.camera)], now.rule ?? '', (value) => set({rule: value}), {name: 'rule'})),
        field(words.reviewed, yesNo('reviewed', now.reviewed, words.seen, words.unseen)),
        Object.keys(now).length > 0 && h('button', {type: 'button', class: 'plain', onclick: () => set(Object.fromEntries(FILTERS.map((name) => [name, null])))}, words.clear)),
      h('details', {open}, h('summary', null, words.more),
        h('div', {class: 'row wrap'},
          field(words.since, moment('since', now.since)), field(words.until, moment('until', now.until)),
          field(words.mark, choice([['', words.all], ['right', words.right], ['wrong', words.wrong], ['none', words.none]], now.mark ?? '', (value) => set({mark: value}))),
          field(words.held, yesNo('held', now.held, words.yes, words.no)), field(words.keep, yesNo('keep', now.keep, words.yes, words.no)),
          h('div', {class: 'field'}, h('span', null, words.area), h('div', {class: 'row'},
            h('button', {type: 'button', disabled: !now.camera, title: now.camera ? '' : words.areaNeeds, onclick: async () => {
              const area = await drawnArea(now.camera, now.area);
              if (area !== undefined) set({area});
            }}, now.area ? words.areaSet : words.drawArea),
            now.area && iconButton('close', words.areaNone, () => set({area: null})))))));
    if (focused) element.elements[focused]?.focus();
  }
  build();
  return {element, changed: build};
}
