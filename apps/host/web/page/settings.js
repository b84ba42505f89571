// Settings: who is told, how the page looks, one's account; for administrators, everybody's.
import {h, fill, iconButton} from './dom.js';
import {attempt, choice, field, notice, question} from './parts.js';
import {ask, get} from './api.js';
import {isAdmin, model, now, on, settings, tell} from './model.js';
import {isoOf, minuteText, momentText, msOfWall, wallText} from './time.js';
import {texts} from './texts.js';

const MORNING = 7; // o'clock

/// The next time it is seven on the wall.
function nextMorning() {
  const today = msOfWall(`${wallText(now()).slice(0, 10)}T0${MORNING}:00:00`);
  return today > now() ? today : msOfWall(`${wallText(today + 864e5).slice(0, 10)}T0${MORNING}:00:00`);
}

/// One line for all cameras, a group or a camera.
function armingRow(title, cameras, target, strong) {
  const words = texts.settings;
  const silent = cameras.filter((camera) => !camera.armed);
  const untils = [...new Set(silent.map((camera) => camera.armed_from))];
  const when = untils.length === 1 && untils[0] ? Date.parse(untils[0]) : null;
  const text = silent.length === 0 ? words.telling : silent.length < cameras.length ? words.partly
    : when ? words.silentUntil(when - now() < 72e6 ? minuteText(when) : momentText(when)) : words.silent;
  const put = (body) => attempt(async () => {
    const {cameras: all} = await ask('PUT', 'arming', {body: {...target, ...body}});
    for (const {camera, armed, until} of all) {
      const known = model.cameras.get(camera);
      if (known) Object.assign(known, {armed, armed_from: until});
    }
    tell('cameras');
  });
  const until = h('input', {type: 'datetime-local', 'aria-label': words.untilLabel(title), value: wallText(now() + 36e5).slice(0, 16)});
  const pick = h('form', {class: 'row', hidden: true, onsubmit: (event) => { event.preventDefault(); put({armed: false, until: isoOf(msOfWall(`${until.value}:00`))}); }}, until, h('button', null, words.set));
  const acts = {
    hour: () => put({armed: false, minutes: 60}), morning: () => put({armed: false, until: isoOf(nextMorning())}),
    until: () => { pick.hidden = false; until.focus(); }, forever: () => put({armed: false}),
  };
  const menu = choice([['', words.silence], ...['hour', 'morning', 'until', 'forever'].map((key) => [key, words[key]])], '', (value) => acts[value]?.(), {'aria-label': `${title}: ${words.silence}`});
  return h('tr', {class: strong ? 'strong' : ''}, h('th', {scope: 'row'}, title), h('td', {class: silent.length ? 'warn' : ''}, text),
    h('td', null, isAdmin() && h('div', {class: 'row wrap'}, menu, pick, silent.length > 0 && h('button', {type: 'button', onclick: () => put({armed: true})}, words.tell))));
}

function arming() {
  const words = texts.settings;
  let shown = '';
  const body = h('tbody', {onfocusout: () => setTimeout(show)});
  // Cameras change several times a second; rows are made anew only when what they say does, or an open menu would close.
  function show() {
    if (body.contains(document.activeElement) && document.activeElement.matches('input')) return;
    const cameras = [...model.cameras.values()];
    const facts = JSON.stringify(cameras.map(({name, title, group, armed, armed_from: from}) => [name, title, group, armed, from]));
    if (facts === shown) return;
    shown = facts;
    const groups = [...new Set(cameras.map((camera) => camera.group).filter(Boolean))];
    fill(body, cameras.length > 0 && armingRow(words.all, cameras, {cameras: null}, true),
      groups.map((group) => armingRow(words.group(group), cameras.filter((camera) => camera.group === group), {group}, true)),
      cameras.map((camera) => armingRow(camera.title || camera.name, [camera], {cameras: [camera.name]})));
  }
  show();
  const element = h('section', {class: 'panel wide'}, h('h2', null, words.arming), h('p', {class: 'muted'}, words.armingHint, !isAdmin() && ` ${words.adminOnly}`),
    h('div', {class: 'scroll', tabindex: 0, role: 'region', 'aria-label': words.arming}, h('table', {class: 'arming'}, body)));
  return {element, ends: [on('cameras', show), on('camera', show)]};
}

export function applyTheme() {
  const theme = settings.read('theme', 'auto');
  if (theme === 'auto') delete document.documentElement.dataset.theme;
  else document.documentElement.dataset.theme = theme;
  tell('theme');
}

function look() {
  const words = texts.settings;
  return h('section', {class: 'panel'}, h('h2', null, words.look),
    field(words.theme, choice(Object.entries(words.themes), settings.read('theme', 'auto'), (value) => { settings.write('theme', value); applyTheme(); })),
    h('label', {class: 'row'}, h('input', {type: 'checkbox', checked: settings.read('shortcuts', true), onchange: (event) => settings.write('shortcuts', event.target.checked)}), words.shortcuts));
}

function account() {
  const words = texts.settings;
  const {access, user, role} = model.session;
  if (access === 'open' || !user) return h('section', {class: 'panel'}, h('h2', null, words.account), h('p', {class: 'muted'}, words.open));
  const [old, fresh, again] = ['current-password', 'new-password', 'new-password'].map((autocomplete) => h('input', {type: 'password', autocomplete, required: true, maxlength: 1024}));
  const form = h('form', {onsubmit: async (event) => {
    event.preventDefault();
    if (fresh.value !== again.value) return notice(words.differ, {bad: true});
    if (fresh.value.length < 8) return notice(words.short, {bad: true});
    if (await attempt(() => ask('PUT', 'session/password', {body: {old: old.value, new: fresh.value}, signingIn: true}))) {
      form.reset();
      notice(words.changed);
    }
  }}, h('input', {type: 'text', autocomplete: 'username', value: user, hidden: true}), field(words.oldPassword, old), field(words.newPassword, fresh, words.short), field(words.repeat, again), h('button', null, words.change));
  return h('section', {class: 'panel'}, h('h2', null, words.account), h('p', null, words.signedIn(user, words.roles[role])), form);
}

function users() {
  const words = texts.settings;
  const body = h('tbody');
  const section = h('section', {class: 'panel wide', hidden: true}, h('h2', null, words.users));
  const roles = Object.entries(words.roles);
  const listOf = (text) => { const names = text.split(',').map((name) => name.trim()).filter(Boolean); return names.length ? names : null; };
  async function load() {
    const all = await get('users');
    section.hidden = false;
    fill(body, all.map((user) => h('tr', null, h('th', {scope: 'row'}, user.name),
      h('td', null, choice(roles, user.role, (role) => attempt(() => ask('PATCH', `users/${encodeURIComponent(user.name)}`, {body: {role}})).then(load), {'aria-label': `${words.role}: ${user.name}`})),
      h('td', null, user.cameras === null ? words.allCameras : user.cameras.join(', ')), h('td', {class: 'number'}, String(user.sessions)),
      h('td', null, user.name !== model.session.user && iconButton('bin', `${words.removeUser}: ${user.name}`, async () => {
        if (await question(words.removeQuestion(user.name), words.removeUser) && await attempt(() => ask('DELETE', `users/${encodeURIComponent(user.name)}`))) load();
      })))));
  }
  const name = h('input', {required: true, pattern: '[A-Za-z0-9_.@\\-]{1,64}', autocomplete: 'off'});
  const password = h('input', {type: 'password', required: true, minlength: 8, maxlength: 1024, autocomplete: 'new-password'});
  const role = choice(roles, 'view', () => {});
  const cameras = h('input', {autocomplete: 'off'});
  const form = h('form', {class: 'row wrap', onsubmit: async (event) => {
    event.preventDefault();
    const body = {name: name.value, password: password.value, role: role.value, cameras: listOf(cameras.value)};
    if (!await attempt(() => ask('POST', 'users', {body}))) return;
    notice(words.added(body.name));
    form.reset();
    load();
  }}, field(words.name, name), field(words.password, password), field(words.role, role), field(words.cameras, cameras, words.camerasHint), h('button', null, words.addUser));
  section.append(h('div', {class: 'scroll', tabindex: 0, role: 'region', 'aria-label': words.users}, h('table', null,
    h('thead', null, h('tr', null, [words.name, words.role, words.cameras, words.sessions, ''].map((text) => h(text ? 'th' : 'td', {scope: text && 'col'}, text)))), body)), form);
  attempt(load);
  return section;
}

/// @returns {element, close}
export function settingsView() {
  const telling = arming();
  return {
    title: texts.settings.title,
    element: h('div', {class: 'settings'}, h('div', {class: 'head'}, h('h1', null, texts.settings.title)),
      h('div', {class: 'panels'}, telling.element, look(), account(), isAdmin() && model.session.access === 'accounts' && users())),
    close: () => telling.ends.forEach((end) => end()),
  };
}
