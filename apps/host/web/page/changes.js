// What happens, as it happens: the first of the page's two long responses. Brings the model up to date and tells the views.
import {url, get} from './api.js';
import {model, tell} from './model.js';
import {isAwake} from './tabs.js';

let source = null;
let last = ''; // id of the last message: what came meanwhile is sent again
let wait = 0;
let timer = 0;

function connected(yes) {
  if (model.connected === yes) return;
  model.connected = yes;
  tell('connection', yes);
}

export async function loadCameras() {
  const cameras = await get('cameras');
  model.cameras = new Map(cameras.map((camera) => [camera.name, camera]));
  tell('cameras');
}

async function loadAnew() {
  try {
    await loadCameras();
    tell('missed');
  } catch { /* the connection tells of it */ }
}

const handlers = {
  hello(change) {
    model.ahead = Date.parse(change.time) - Date.now();
    if (!change.resumed) loadAnew();
  },
  event(change) {
    const camera = model.cameras.get(change.event.camera);
    if (camera) camera.last_event = change.event.event;
    tell('event', change.event);
  },
  camera(change) {
    if (!model.cameras.has(change.camera.name)) return void loadAnew();
    model.cameras.set(change.camera.name, {...model.cameras.get(change.camera.name), ...change.camera});
    tell('camera', change.camera.name);
  },
  arming(change) {
    const camera = model.cameras.get(change.camera);
    if (!camera) return;
    camera.armed = change.armed;
    camera.armed_from = change.until;
    tell('camera', change.camera);
  },
  deleted: (change) => tell('deleted', change.event),
  review: (change) => tell('review', change),
  changed: async (change) => { await loadAnew(); tell('changed', change.camera); },
  reload: () => loadAnew(),
};

function open() {
  clearTimeout(timer);
  if (source || !model.session || !isAwake()) return;
  source = new EventSource(url('changes', {after: last}));
  for (const [type, handle] of Object.entries(handlers)) {
    source.addEventListener(type, (message) => {
      if (message.lastEventId) last = message.lastEventId;
      connected(true);
      wait = 0;
      handle(JSON.parse(message.data));
    });
  }
  source.addEventListener('error', () => {
    connected(false);
    if (source?.readyState !== EventSource.CLOSED) return; // the browser tries again by itself
    close();
    wait = Math.min(wait ? wait * 2 : 1000, 15000);
    timer = setTimeout(() => get('session').then(stillHere, open), wait);
  });
}

/// It ended because the host went away, or because this user may look no longer.
function stillHere(session) {
  if (session.access === 'accounts' && !session.user) tell('signedout');
  else open();
}

function close() {
  clearTimeout(timer);
  source?.close();
  source = null;
}

export const startChanges = open;
export function stopChanges() {
  close();
  last = '';
}
/// The tab is looked at again, or no more.
export function wakeChanges(awake) {
  if (awake) open();
  else close();
}
