// Browsers open six connections to one origin, in all of their tabs together. So only what somebody looks at holds long
// responses: a page that is hidden lets go of them, and of many windows side by side those two that were used last keep theirs.
import {tell} from './model.js';

const KEPT = 2; // pages with two long responses each: two connections remain for everything else
const HIDDEN_MS = 3000; // a glance at another tab costs nothing

const id = crypto.getRandomValues(new Uint32Array(2)).join('-');
const channel = typeof BroadcastChannel === 'function' ? new BroadcastChannel('fleifeisa') : null;
const since = new Set(); // pages used after this one was
let hidden = false;
let timer = 0;
let awake = true;

function judge() {
  const wanted = !hidden && since.size < KEPT;
  if (wanted === awake) return;
  awake = wanted;
  tell('awake', awake);
}

/// Somebody uses this page.
function used() {
  since.clear();
  channel?.postMessage(id);
  judge();
}

function looked() {
  clearTimeout(timer);
  if (document.hidden) {
    timer = setTimeout(() => { hidden = true; judge(); }, HIDDEN_MS);
  } else {
    hidden = false;
    used();
  }
}

export const isAwake = () => awake;

export function watchTabs() {
  channel?.addEventListener('message', ({data}) => { since.add(data); judge(); });
  document.addEventListener('visibilitychange', looked);
  window.addEventListener('focus', used);
  window.addEventListener('pointerdown', () => { if (!awake) used(); });
  looked();
}
