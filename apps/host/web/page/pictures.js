// Live pictures of all cameras in view: the second of the page's two long responses. A picture comes in one message with the
// tracks of its own frame, so that no box can lie on another one. Of a camera whose pictures come faster than this browser
// decodes them the newest wins.
import {ask, send, url} from './api.js';
import {model} from './model.js';
import {isAwake} from './tabs.js';

const SILENCE_MS = 40000; // the host sends something every 15 s
const GATHER_MS = 50; // changes of the view while one scrolls go together

const viewers = new Set(); // {camera, width, calm, take}
const decoding = new Map(); // by camera: the message that waits, or null
let running = null; // {abort, stream, view}
let gather = 0;
let wait = 0;
let retry = 0;

/// Calls `take(frame, bitmap)` for each picture of that camera; the bitmap is the taker's to close.
/// `calm`: still until something moves. @returns what ends it
export function watch(camera, {width, calm = false}, take) {
  const viewer = {camera, width: Math.max(1, Math.round(width)), calm, take};
  viewers.add(viewer);
  viewChanged();
  return () => {
    viewers.delete(viewer);
    viewChanged();
  };
}

export function wakePictures() {
  if (isAwake()) viewChanged();
  else stop();
}

function wantedView() {
  const view = new Map();
  for (const {camera, width, calm} of viewers) {
    const known = view.get(camera);
    view.set(camera, known ? {camera, width: Math.max(width, known.width), calm: calm && known.calm} : {camera, width, calm});
  }
  return [...view.values()].slice(0, 200); // as many as the host allows
}

function viewChanged() {
  clearTimeout(gather);
  gather = setTimeout(applyView, GATHER_MS);
}

async function applyView() {
  const view = wantedView();
  if (view.length === 0 || !model.session || !isAwake()) return stop();
  if (!running) return run(view);
  const text = JSON.stringify(view);
  if (!running.stream || running.view === text) return;
  const asked = running;
  asked.view = text;
  try {
    await ask('PUT', `pictures/${encodeURIComponent(asked.stream)}`, {body: {view}});
  } catch (error) {
    if (running === asked && error.name !== 'AbortError') again(asked);
  }
}

function stop() {
  clearTimeout(retry);
  running?.abort.abort();
  running = null;
}

function again(which) {
  if (running !== which) return;
  stop();
  wait = Math.min(wait ? wait * 2 : 500, 15000);
  retry = setTimeout(applyView, wait);
}

async function run(view) {
  const mine = {abort: new AbortController(), stream: '', view: JSON.stringify(view)};
  running = mine;
  const text = view.map(({camera, width, calm}) => `${camera}:${width}${calm ? ':calm' : ''}`).join(',');
  let silence = 0;
  try {
    const response = await send('GET', url('pictures', {view: text}), undefined, {signal: mine.abort.signal});
    const reader = response.body.getReader();
    const parser = new Parser((json, jpeg) => message(mine, json, jpeg));
    for (;;) {
      silence = setTimeout(() => again(mine), SILENCE_MS);
      const {done, value} = await reader.read();
      clearTimeout(silence);
      if (done) break;
      parser.add(value);
    }
  } catch { /* ended by us, or by the network */ }
  clearTimeout(silence);
  again(mine);
}

function message(from, json, jpeg) {
  if (running !== from) return;
  if (json.stream) {
    from.stream = json.stream;
    wait = 0;
    viewChanged(); // it may be another one by now
  }
  if (!json.camera || jpeg.length === 0) return;
  if (decoding.has(json.camera)) decoding.set(json.camera, {json, jpeg});
  else decode({json, jpeg});
}

async function decode(picture) {
  const {camera} = picture.json;
  decoding.set(camera, null);
  try {
    const bitmap = await createImageBitmap(new Blob([picture.jpeg], {type: 'image/jpeg'}));
    const takers = [...viewers].filter((viewer) => viewer.camera === camera);
    for (const [index, {take}] of takers.entries()) {
      take(picture.json, index + 1 < takers.length ? await createImageBitmap(bitmap) : bitmap);
    }
    if (takers.length === 0) bitmap.close();
  } catch { /* a picture that cannot be decoded is left out */ }
  const next = decoding.get(camera);
  decoding.delete(camera);
  if (next) decode(next);
}

/// Takes messages out of a stream of bytes: two lengths, JSON, JPEG.
class Parser {
  constructor(take) {
    this.take = take;
    this.bytes = new Uint8Array(1 << 16);
    this.length = 0;
  }

  add(chunk) {
    if (this.length + chunk.length > this.bytes.length) {
      const larger = new Uint8Array(Math.max(this.bytes.length * 2, this.length + chunk.length));
      larger.set(this.bytes.subarray(0, this.length));
      this.bytes = larger;
    }
    this.bytes.set(chunk, this.length);
    this.length += chunk.length;
    let at = 0;
    const view = new DataView(this.bytes.buffer);
    while (this.length - at >= 8) {
      const json = view.getUint32(at);
      const jpeg = view.getUint32(at + 4);
      const end = at + 8 + json + jpeg;
      if (end > this.length) break;
      const text = new TextDecoder().decode(this.bytes.subarray(at + 8, at + 8 + json));
      this.take(JSON.parse(text), this.bytes.slice(at + 8 + json, end));
      at = end;
    }
    this.bytes.copyWithin(0, at, this.length);
    this.length -= at;
  }
}
