// The workbench of one camera: what is watched for, tried before it is in force, and taken back.
import {h, fill} from './dom.js';
import {cameraPath, get} from './api.js';
import {changeList} from './changelist.js';
import {drawTab} from './draw_tab.js';
import {failure, notice} from './parts.js';
import {here, link, linkWith} from './route.js';
import {isAdmin, model, on, titleOf} from './model.js';
import {texts} from './texts.js';
import {tuneTab} from './tune_tab.js';

const TABS = ['draw', 'tune', 'changes'];

/// @returns {element, close, changed}
export function workbenchView([name]) {
  const words = texts.workbench;
  const empty = (text) => ({title: words.title, element: h('p', {class: 'empty'}, text), close() {}});
  if (!model.cameras.has(name)) return empty(texts.noCamera(name));
  if (!isAdmin()) return empty(words.adminOnly);
  let tab = null; // {element, show?, load?, busy?, close?}
  let open = '';
  const place = h('div');
  const buttons = TABS.map((each) => h('a', {href: linkWith({tab: each === TABS[0] ? null : each}), class: 'button toggle'}, words.tabs[each]));

  async function load() {
    try {
      const settings = await get(cameraPath(name, 'settings'));
      tab?.show?.(settings);
    } catch (error) {
      if (error.name !== 'AbortError') fill(place, failure(error, () => { open = ''; changed(); }));
    }
    tab?.load?.();
  }

  const make = {draw: () => drawTab(name, load), tune: () => tuneTab(name, load), changes: () => changeList(name, load)};
  function changed() {
    const wanted = TABS.includes(here().query.get('tab')) ? here().query.get('tab') : TABS[0];
    if (wanted === open) return;
    open = wanted;
    tab?.close?.();
    tab = make[wanted]();
    buttons.forEach((button, at) => {
      if (TABS[at] === wanted) button.setAttribute('aria-current', 'page');
      else button.removeAttribute('aria-current');
    });
    fill(place, tab.element);
    load();
  }

  const ends = [on('changed', (camera) => {
    if (camera !== name) return;
    if (tab?.busy) notice(words.othersChanged);
    else load();
  })];
  changed();
  return {
    title: `${words.title}: ${titleOf(name)}`,
    element: h('div', {class: 'workbench'}, h('div', {class: 'head'}, h('h1', null, titleOf(name)), h('nav', {class: 'row', 'aria-label': words.title}, buttons), h('span', {class: 'gap'}),
      h('a', {href: link(['camera', name])}, words.backToCamera)), place),
    changed,
    close() {
      ends.forEach((end) => end());
      tab?.close?.();
    },
  };
}
