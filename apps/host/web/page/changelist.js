// Who changed what at a camera, when, with which effect; and back.
import {h, fill} from './dom.js';
import {ask, cameraPath, get} from './api.js';
import {attempt, failure, notice} from './parts.js';
import {durationText, momentText, msOf} from './time.js';
import {texts} from './texts.js';

const unitText = (unit) => {
  const [kind, name] = unit.split('.');
  const known = texts.workbench.units[kind] ?? kind;
  return name ? `${known} ${name}` : known;
};
const plain = (value) => (value === null || value === undefined ? texts.workbench.asInFile : typeof value === 'object' ? JSON.stringify(value) : String(value));

function what([unit, {before, after}]) {
  const words = texts.workbench;
  const geometry = unit === 'masks' || unit === 'private';
  if (geometry) return `${unitText(unit)}: ${words.areas(before?.length ?? 0)} → ${words.areas(after?.length ?? 0)}`;
  if (after?.removed) return `${unitText(unit)}: ${words.removed}`;
  if (after?.added && !before) return `${unitText(unit)}: ${words.added}`;
  if (!after && before?.added) return `${unitText(unit)}: ${words.removed}`;
  const keys = [...new Set([...Object.keys(Object(before)), ...Object.keys(Object(after))])].filter((key) => key !== 'added' && JSON.stringify(before?.[key]) !== JSON.stringify(after?.[key]));
  if (typeof before === 'object' && typeof after === 'object' && keys.length) {
    return `${unitText(unit)}: ${keys.map((key) => (key === 'points' ? words.drawnAnew : `${words.keys[key] ?? key} ${plain(before?.[key])} → ${plain(after?.[key])}`)).join(', ')}`;
  }
  return `${unitText(unit)}: ${plain(before)} → ${plain(after)}`;
}

/// Events a day, where there was time enough to say so.
const rate = ({seconds, events}) => (seconds >= 600 ? texts.workbench.aDay(events / seconds * 86400) : '–');

export async function takeBack(camera, change) {
  let made = null;
  const good = await attempt(async () => { made = await ask('POST', cameraPath(camera, 'undo'), {body: {change}}); });
  if (good) notice(texts.workbench.takenBack(texts.workbench.effects[made.effect]));
  return good;
}

/// @returns {element, load}
export function changeList(camera, undone) {
  const words = texts.workbench;
  const list = h('div');
  async function load() {
    try {
      const {changes} = await get(cameraPath(camera, 'history'));
      fill(list, changes.length === 0 && h('p', {class: 'muted'}, words.noChanges), changes.length > 0 && h('div', {class: 'scroll', tabindex: 0, role: 'region', 'aria-label': words.tabs.changes}, h('table', {class: 'history'},
        h('thead', null, h('tr', null, words.columns.map((text) => h(text ? 'th' : 'td', {scope: text && 'col'}, text)))),
        h('tbody', null, changes.map((each) => h('tr', {class: each.undone_by ? 'undone' : ''},
          h('th', {scope: 'row'}, momentText(msOf(each.time_ns)), h('br'), h('span', {class: 'muted'}, each.user || words.somebody)),
          h('td', null, each.undoes && h('p', null, words.undoes(each.undoes)), Object.entries(each.units).map((unit) => h('p', null, what(unit)))),
          h('td', {class: 'muted'}, words.effects[each.effect]),
          h('td', {class: 'number', title: `${durationText(each.before.seconds * 1000)} / ${durationText(each.after.seconds * 1000)}`}, `${rate(each.before)} → ${rate(each.after)}`),
          h('td', null, !each.undone_by && h('button', {type: 'button', onclick: async () => { if (await takeBack(camera, each.change)) undone(); }}, words.takeBack))))))));
    } catch (error) {
      fill(list, failure(error, load));
    }
  }
  return {element: h('section', {class: 'panel'}, h('h2', null, words.tabs.changes), list), load};
}
