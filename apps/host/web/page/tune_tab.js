// Values of the analyzer and the track filter: tried beside the camera, on the same frames, before they are in force.
import {h, fill, setText} from './dom.js';
import {ask, cameraPath, get} from './api.js';
import {attempt, choice, explain, field, notice} from './parts.js';
import {drawTracks, fitInto, Pen} from './draw.js';
import {settings as kept} from './model.js';
import {takeBack} from './changelist.js';
import {texts} from './texts.js';
import {watch} from './pictures.js';

const ASK_MS = 2000;
const PROFILES = ['', 'people-outdoor', 'traffic', 'indoor', 'thermal'];
const SIZES = ['', '160x120', '240x180', '320x240', '384x288', '480x360', '640x480'];
// [key, lowest, highest, step]; thresholds belong to the kind of image.
const SLIDERS = [['low', 0, 5, 0.05], ['high', 0, 8, 0.05], ['least_area', 0, 0.02, 0.0001], ['learning', 1, 600, 1], ['rate', 1, 30, 1], ['stopped', 0, 120, 1]];
const USUAL = {color: {low: 0.25, high: 0.5}, ir: {low: 1, high: 2}, learning: 300};

/// One of the two pictures, with its tracks.
function screen(camera, title) {
  const canvas = h('canvas', {role: 'img', 'aria-label': title});
  const facts = h('dl', {class: 'facts'});
  let end = null;
  const draw = (frame, bitmap) => {
    canvas.parentElement?.style.setProperty('--shape', `${frame.size[0]} / ${frame.size[1]}`);
    Object.assign(canvas, {width: Math.round(canvas.clientWidth * devicePixelRatio) || 320, height: Math.round(canvas.clientHeight * devicePixelRatio) || 240});
    const context = canvas.getContext('2d');
    const base = fitInto(...frame.size, [canvas.width, canvas.height]);
    context.drawImage(bitmap, base.left, base.top, frame.size[0] * base.scale, frame.size[1] * base.scale);
    drawTracks(new Pen(context, base, devicePixelRatio), frame.tracks);
    canvas.dataset.sequence = frame.sequence;
    bitmap.close();
  };
  return {
    element: h('section', {class: 'panel beside'}, h('h2', null, title), h('div', {class: 'picture'}, canvas), facts),
    begin() { end ??= watch(camera, {width: 640}, draw); },
    facts(rows) { fill(facts, rows.map(([name, value]) => [h('dt', null, name), h('dd', {class: 'number'}, value)])); },
    close() {
      end?.();
      end = null;
    },
  };
}

/// @returns {element, show(settings), close}
export function tuneTab(camera, saved) {
  const words = texts.workbench;
  let before = null; // tuning in force
  let wanted = {};
  let trial = null; // {number, change}
  let timer = 0;
  let screens = [];
  let closed = false;
  const form = h('div', {class: 'sliders'});
  const told = h('p', {class: 'saved', role: 'status', hidden: true});
  const state = h('p', {role: 'status', 'aria-live': 'polite', class: 'muted'});
  const pair = h('div', {class: 'pair'});
  const tryIt = h('button', {type: 'button', onclick: begin}, words.tryIt);
  const stopIt = h('button', {type: 'button', onclick: () => stop(), hidden: true}, words.stopTrial);
  const apply = h('button', {type: 'button', class: 'primary', onclick: keep}, words.apply);
  const reset = h('button', {type: 'button', onclick: () => { wanted = {}; build(); }}, words.reset);

  function valueOf(key) {
    if (key in wanted) return wanted[key];
    if (before[key] !== null && before[key] !== undefined) return before[key];
    return USUAL[before.infrared ? 'ir' : 'color'][key] ?? USUAL[key] ?? null;
  }

  function set(key, value) {
    if (value === before[key]) delete wanted[key];
    else wanted[key] = value;
    update();
  }

  function slider([key, low, high, step]) {
    const present = valueOf(key);
    const output = h('output', {class: 'number'});
    const write = (value) => setText(output, value === null ? words.asItComes : words.values[key]?.(value) ?? String(value));
    const input = h('input', {type: 'range', name: key, min: low, max: Math.max(high, present ?? 0), step, value: present ?? high, oninput: () => { set(key, Number(input.value)); write(Number(input.value)); }});
    write(present);
    return field(h('span', {class: 'row'}, words.tune[key], h('span', {class: 'gap'}), output), input, words.tuneHints[key]);
  }

  const flag = (key) => h('label', {class: 'row field-row'}, h('input', {type: 'checkbox', name: key, checked: valueOf(key), onchange: (event) => set(key, event.target.checked)}), words.tune[key]);

  function build() {
    const sizes = before.size && !SIZES.includes(before.size) ? [...SIZES, before.size] : SIZES;
    fill(form,
      field(words.tune.profile, choice(PROFILES.map((name) => [name, name || words.noProfile]), valueOf('profile') ?? '', (value) => set('profile', value || null), {name: 'profile'}), words.tuneHints.profile),
      SLIDERS.map(slider), flag('shadow_test'), flag('split_people'),
      field(words.tune.size, choice(sizes.map((size) => [size, size || (before.longest_side ? words.longest(before.longest_side) : words.asItComes)]), valueOf('size') ?? '', (value) => set('size', value || null), {name: 'size'}), words.tuneHints.size));
    update();
  }

  /// As PATCH settings takes it.
  function change() {
    const body = {};
    const kind = before.infrared ? 'ir' : 'color';
    for (const [key, value] of Object.entries(wanted)) {
      if (key === 'low' || key === 'high') (body.control ??= {})[`${kind}_${key}`] = value;
      else if (key === 'learning') (body.control ??= {}).bgframes = value;
      else body[key] = value;
    }
    return body;
  }

  function update() {
    const none = Object.keys(wanted).length === 0;
    tryIt.disabled = apply.disabled = reset.disabled = none;
    if (trial && JSON.stringify(change()) !== trial.text) setText(tryIt, words.tryAnew);
    else setText(tryIt, words.tryIt);
    tryIt.hidden = Boolean(trial) && JSON.stringify(change()) === trial.text;
  }

  async function begin() {
    await stop(true);
    const body = change();
    if (!await attempt(async () => {
      const found = await ask('POST', cameraPath(camera, 'trials'), {body: {change: body}});
      trial = {number: found.trial, text: JSON.stringify(body)};
      if (closed) return void await stop(true);
      screens = [screen(camera, words.present), screen(found.pictures, words.changed)];
      fill(pair, screens.map((each) => each.element));
      screens.forEach((each) => each.begin());
      stopIt.hidden = false;
      tell(found);
    })) return;
    update();
    again();
  }

  function again() {
    clearTimeout(timer);
    timer = setTimeout(async () => {
      const asked = trial;
      if (!asked) return;
      try {
        const found = await get(cameraPath(camera, `trials/${asked.number}`));
        if (trial !== asked) return;
        tell(found);
        if (found.trouble) return;
      } catch (error) {
        if (trial !== asked) return;
        if (error.status === 404) {
          setText(state, words.trialGone);
          return void stop(true, true);
        }
        setText(state, texts.failed(explain(error)));
      }
      again();
    }, ASK_MS);
  }

  function tell(found) {
    const learned = found.learned >= found.learning && found.learning > 0;
    setText(state, found.trouble ? texts.failed(found.trouble) : learned ? words.tried(Math.round(found.seconds)) : words.trialLearns(found.learned, found.learning));
    const aMinute = (tracks) => (found.seconds >= 5 ? words.aMinute(tracks / found.seconds * 60) : '–');
    const cost = (cpu) => (cpu === null ? '–' : words.cost(cpu));
    screens[0].facts([[words.tracksAMinute, aMinute(found.live_tracks)], [words.processor, cost(found.live_cpu)]]);
    screens[1].facts([[words.tracksAMinute, aMinute(found.tracks)], [words.processor, cost(found.cpu)], found.size && [words.tune.size, found.size.join('x')],
      found.left_out > 0 && [words.leftOut, String(found.left_out)]].filter(Boolean));
    pair.dataset.frames = found.frames;
  }


  async function stop(quiet = false, gone = false) {
    clearTimeout(timer);
    const old = trial;
    trial = null;
    screens.forEach((each) => each.close());
    screens = [];
    pair.replaceChildren();
    stopIt.hidden = true;
    if (!quiet) setText(state, '');
    if (old && !gone) await ask('DELETE', cameraPath(camera, `trials/${old.number}`)).catch(() => {});
    if (before) update();
  }

  async function keep() {
    let made = null;
    if (!await attempt(async () => { made = await ask('PATCH', cameraPath(camera, 'settings'), {body: change()}); })) return;
    await stop();
    wanted = {};
    fill(told, words.saved(words.effects[made.effect]), ' ', h('button', {type: 'button', onclick: async () => { if (await takeBack(camera, made.change)) { told.hidden = true; saved(); } }}, words.takeBack));
    told.hidden = false;
    notice(words.saved(words.effects[made.effect]));
    saved();
  }

  const leave = () => { if (trial) stop(true); }; // and where this is not heard, the host ends it by itself
  addEventListener('pagehide', leave);
  return {
    element: h('div', {class: 'columns tune'}, h('div', null, told, h('div', {class: 'row tools'}, tryIt, stopIt, h('span', {class: 'gap'}), reset, apply), state, pair,
      h('p', {class: 'muted small'}, words.tuneHint)), h('aside', null, h('section', {class: 'panel'}, form))),
    show(found) {
      before = {...found.tuning, profile: found.tuning.profile, size: found.tuning.size};
      // What somebody asked to be tried from elsewhere in the page.
      const left = kept.read('tune.start', null);
      if (left?.camera === camera) {
        kept.write('tune.start', null);
        for (const [key, factor] of Object.entries(left.factors)) wanted[key] = Math.round(valueOf(key) * factor * 100) / 100;
      }
      build();
    },
    get busy() { return Boolean(trial) || Object.keys(wanted).length > 0; },
    close() {
      closed = true;
      removeEventListener('pagehide', leave);
      stop(true);
    },
  };
}
