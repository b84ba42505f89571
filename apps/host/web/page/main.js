// The shell: who is here, which view is open, the bar above it.
import {h, fill, icon, setText} from './dom.js';
import {ask, get, onRefused, setToken} from './api.js';
import {applyTheme, settingsView} from './settings.js';
import {cameraView} from './camera.js';
import {eventsView} from './events.js';
import {here, link} from './route.js';
import {loadCameras, startChanges, stopChanges, wakeChanges} from './changes.js';
import {model, on, tell} from './model.js';
import {attempt, failure} from './parts.js';
import {showAddressedEvent} from './player.js';
import {signInView} from './signin.js';
import {stateView} from './state.js';
import {texts} from './texts.js';
import {wakePictures} from './pictures.js';
import {wallView} from './wall.js';
import {watchKeys} from './keys.js';
import {watchTabs} from './tabs.js';
import {workbenchView} from './workbench.js';

// A view: {title, element, close(), changed()?, ready()?}. What the address names first opens it; the rest is its own.
const VIEWS = {wall: wallView, camera: cameraView, events: eventsView, state: stateView, settings: settingsView, workbench: workbenchView};
const BAR = ['wall', 'events', 'state', 'settings'];

const main = document.getElementById('main');
const bar = document.getElementById('bar');
const banner = h('p', {class: 'banner', role: 'status', hidden: true, onclick: () => window.dispatchEvent(new Event('focus'))});
let view = null;
let place = null; // parts of the address that the open view stands for

function show(name, made) {
  view?.close();
  view = made;
  main.dataset.view = name;
  fill(main, made.element);
  document.title = `${made.title} · ${texts.product}`;
  scrollTo(0, 0);
  made.ready?.();
}

function follow() {
  if (!model.session || main.dataset.view === 'signin') return;
  const {parts} = here();
  const [name = 'wall', ...rest] = parts;
  const next = JSON.stringify([name, ...rest]);
  if (next === place) {
    view.changed?.();
  } else {
    const moved = place !== null;
    place = next;
    const open = Object.hasOwn(VIEWS, name) ? VIEWS[name] : null;
    show(name, open ? open(rest) : {title: texts.nothingHere, element: h('p', {class: 'empty'}, texts.nothingHere), close() {}});
    if (moved && !document.querySelector('dialog[open]')) main.focus({preventScroll: true});
  }
  showBar();
  showAddressedEvent();
}

function showBar() {
  const {session} = model;
  const current = main.dataset.view;
  const shown = `${current} ${session?.user}`;
  if (bar.dataset.shown === shown) return;
  bar.dataset.shown = shown;
  fill(bar, h('a', {class: 'brand', href: link(['wall'])}, h('img', {src: 'icon.svg', alt: '', width: 22, height: 22}), h('span', null, texts.product)),
    session && current !== 'signin' && h('nav', {'aria-label': texts.navigation}, BAR.map((name) => h('a', {
      href: link([name]), 'aria-current': current === name || (name === 'wall' && ['camera', 'workbench'].includes(current)) ? 'page' : null,
    }, icon(name), h('span', null, texts.views[name])))),
    session?.user && h('button', {type: 'button', class: 'plain who', onclick: signOut, title: texts.signOut}, h('span', {class: 'muted'}, session.user), ' ', texts.signOut),
    banner);
}

let asleep = false;
let lost = 0;
function tellConnection() {
  clearTimeout(lost);
  const text = asleep ? texts.asleep : texts.offline;
  if (asleep || model.connected) {
    banner.hidden = !asleep;
    setText(banner, text);
    return;
  }
  // A moment without is no matter.
  lost = setTimeout(() => { banner.hidden = main.dataset.view === 'signin'; setText(banner, text); }, 2500);
}

async function signOut() {
  if (!await attempt(() => ask('DELETE', 'session'))) return;
  location.reload();
}

async function begin(session) {
  model.session = session;
  model.ahead = Date.parse(session.time) - Date.now();
  setToken(session.token);
  tell('session');
  if (session.access === 'accounts' && !session.user) return signIn();
  await loadCameras();
  delete main.dataset.view;
  place = null;
  startChanges();
  follow();
}

/// Nobody is signed in, or no more.
function signIn() {
  if (main.dataset.view === 'signin') return;
  stopChanges();
  place = null;
  document.querySelectorAll('dialog[open]').forEach((dialog) => dialog.remove());
  show('signin', signInView((session) => begin(session)));
  wakePictures();
  showBar();
}

async function start() {
  fill(main, h('p', {class: 'empty'}, texts.loading));
  try {
    await begin(await get('session'));
  } catch (error) {
    if (error.status !== 401) fill(main, failure(error, start));
  }
}

setText(document.getElementById('skip'), texts.skip);
document.getElementById('skip').addEventListener('click', (event) => { event.preventDefault(); main.focus(); });
applyTheme();
matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => tell('theme'));
onRefused(() => tell('signedout'));
on('signedout', () => {
  if (!model.session) return;
  model.session = {...model.session, access: 'accounts', user: null, token: null};
  signIn();
});
on('connection', tellConnection);
on('awake', (awake) => {
  asleep = !awake;
  wakeChanges(awake);
  wakePictures();
  tellConnection();
});
addEventListener('hashchange', follow);
watchTabs();
watchKeys();
start();
