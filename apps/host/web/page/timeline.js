// A camera's past on one line: activity, visits, what was held back, gaps. Dragging scrubs, letting go plays.
import {h, fill, iconButton, setText} from './dom.js';
import {cameraPath, get} from './api.js';
import {choice} from './parts.js';
import {dayText, isoOf, minuteText, momentText, msOf} from './time.js';
import {go, here, linkWith} from './route.js';
import {now, on} from './model.js';
import {texts} from './texts.js';

const HOUR = 36e5;
const SPANS = [1, 6, 24, 168, 720, 8760]; // hours
const USUAL = 1;
const VALUES = 600; // of activity across the line
const RELOAD_MS = 30000;
const STEPS = [1, 5, 10, 15, 30, 60, 180, 360, 720, 1440, 2880, 10080, 43200, 86400].map((minutes) => minutes * 6e4);

/// `scrub(ms)` while one drags, `release(ms)` when one lets go; null: live.
export function timeline(camera, {scrub, release}) {
  const words = texts.timeline;
  const canvas = h('canvas', {class: 'timeline', tabindex: 0, role: 'slider', 'aria-label': words.title, 'aria-description': words.hint});
  const reading = h('span', {class: 'number muted'});
  let hours = SPANS.includes(Number(here().query.get('span'))) ? Number(here().query.get('span')) : USUAL;
  let end = null; // null: goes along with the present
  let cursor = null; // null: live
  let data = {activity: null, visits: [], gaps: [], from: 0};
  let dragging = false;
  let loading = null;

  const until = () => end ?? now();
  const since = () => until() - hours * HOUR;
  const xOf = (ms) => (ms - since()) / (hours * HOUR) * canvas.width;

  async function load() {
    loading?.abort();
    loading = new AbortController();
    const options = {signal: loading.signal};
    const range = {since: isoOf(since()), until: isoOf(until() + 6e4)};
    const step = Math.max(1, Math.ceil(hours * 60 / VALUES));
    try {
      const [activity, gaps, visits] = await Promise.all([
        get(cameraPath(camera, 'activity'), {...range, step: Math.min(step, 1440)}, options),
        get(cameraPath(camera, 'gaps'), range, options),
        get('visits', {...range, camera, limit: 500}, options)]);
      data = {activity, gaps: gaps.gaps, visits: visits.visits.map((visit) => visit.event)};
      paint();
    } catch { /* another load has begun, or there is no store */ }
  }

  function colours() {
    const style = getComputedStyle(canvas);
    return (name) => style.getPropertyValue(name).trim();
  }

  function paint() {
    const dot = devicePixelRatio;
    const width = Math.round(canvas.clientWidth * dot);
    const height = Math.round(canvas.clientHeight * dot);
    if (width === 0) return;
    Object.assign(canvas, {width, height});
    const context = canvas.getContext('2d');
    const colour = colours();
    const axis = height - 16 * dot;
    const lane = 7 * dot;
    paintGaps(context, axis, colour('--line-strong'));
    paintActivity(context, axis - lane - 3 * dot, colour('--activity'));
    for (const event of data.visits) {
      const left = xOf(msOf(event.start_ns));
      const right = xOf(event.end_ns === null ? now() : msOf(event.end_ns));
      context.fillStyle = event.held ? colour('--held') : colour('--accent');
      context.fillRect(left, axis - lane, Math.max(2 * dot, right - left), lane - dot);
    }
    paintAxis(context, axis, dot, colour);
    const x = cursor === null ? xOf(now()) : xOf(cursor);
    context.fillStyle = cursor === null ? colour('--good') : colour('--text');
    context.fillRect(Math.min(width - 2 * dot, x - dot), 0, 2 * dot, axis);
    describe();
  }

  function paintGaps(context, axis, colour) {
    context.save();
    context.beginPath();
    for (const gap of data.gaps) context.rect(xOf(msOf(gap.from_ns)), 0, Math.max(1, xOf(msOf(gap.to_ns)) - xOf(msOf(gap.from_ns))), axis);
    context.clip();
    context.strokeStyle = colour;
    context.lineWidth = devicePixelRatio;
    context.beginPath();
    for (let x = -axis; data.gaps.length && x < canvas.width; x += 6 * devicePixelRatio) {
      context.moveTo(x, axis);
      context.lineTo(x + axis, 0);
    }
    context.stroke();
    context.restore();
  }

  /// The square root, so that a person far away is seen beside a truck.
  function paintActivity(context, height, colour) {
    if (!data.activity) return;
    const from = msOf(data.activity.from_ns);
    const step = data.activity.step * 6e4;
    context.fillStyle = colour;
    data.activity.foreground.forEach((share, index) => {
      if (!share) return;
      const x = xOf(from + index * step);
      const tall = Math.min(1, Math.sqrt(share * 4)) * height;
      context.fillRect(x, height - tall, Math.max(1, xOf(from + (index + 1) * step) - x), tall);
    });
  }

  function paintAxis(context, axis, dot, colour) {
    context.fillStyle = colour('--line-strong');
    context.fillRect(0, axis, canvas.width, dot);
    const step = STEPS.find((each) => xOf(since() + each) > 70 * dot) ?? STEPS.at(-1);
    context.fillStyle = colour('--muted');
    context.font = `${11 * dot}px system-ui, sans-serif`;
    context.textBaseline = 'top';
    for (let ms = Math.ceil(since() / step) * step; ms < until(); ms += step) {
      const text = step < 864e5 ? minuteText(ms) : dayText(ms);
      const x = xOf(ms);
      context.fillRect(x, axis, dot, 4 * dot);
      if (x + context.measureText(text).width + 3 * dot < canvas.width) context.fillText(text, x + 3 * dot, axis + 4 * dot);
    }
  }

  function describe() {
    const ms = cursor ?? now();
    const visit = data.visits.find((event) => msOf(event.start_ns) <= ms && (event.end_ns === null || msOf(event.end_ns) >= ms));
    const gap = data.gaps.find((each) => msOf(each.from_ns) <= ms && msOf(each.to_ns) >= ms);
    const what = gap ? words.legend.gap : visit ? (visit.held ? words.legend.held : words.legend.visit) : '';
    const text = cursor === null ? texts.camera.live : words.at(momentText(ms), what);
    canvas.setAttribute('aria-valuemin', Math.round(since() / 1000));
    canvas.setAttribute('aria-valuemax', Math.round(until() / 1000));
    canvas.setAttribute('aria-valuenow', Math.round(ms / 1000));
    canvas.setAttribute('aria-valuetext', text);
    setText(reading, text);
  }

  function setCursor(ms, tell = true) {
    cursor = ms !== null && ms >= now() ? null : ms;
    if (cursor !== null && (cursor < since() || cursor > until())) {
      end = Math.min(now(), cursor + hours * HOUR / 2);
      load();
    }
    paint();
    if (tell) scrub(cursor);
  }

  function setSpan(value) {
    hours = value;
    select.value = String(value);
    if (cursor !== null) end = Math.min(now(), cursor + hours * HOUR / 2);
    if (end !== null && end >= now() - 1000) end = null;
    go(linkWith({span: hours === USUAL ? null : hours}), {replace: true});
    paint();
    load();
  }

  function shift(direction) {
    end = until() + direction * hours * HOUR / 2;
    if (end >= now()) end = null;
    paint();
    load();
  }

  const msAt = (event) => since() + (event.clientX - canvas.getBoundingClientRect().left) / canvas.clientWidth * hours * HOUR;
  canvas.addEventListener('pointerdown', (event) => {
    if (event.button !== 0) return;
    canvas.setPointerCapture(event.pointerId);
    dragging = true;
    setCursor(msAt(event));
  });
  canvas.addEventListener('pointermove', (event) => { if (dragging) setCursor(Math.max(since(), msAt(event))); });
  canvas.addEventListener('pointerup', () => {
    if (!dragging) return;
    dragging = false;
    release(cursor);
  });
  canvas.addEventListener('pointercancel', () => { dragging = false; });
  canvas.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    const step = hours * HOUR / 400 * (event.shiftKey ? 10 : 1);
    const at = SPANS.indexOf(hours);
    const moves = {
      ArrowLeft: () => setCursor((cursor ?? now()) - step), ArrowRight: () => setCursor(cursor === null ? null : cursor + step),
      Home: () => setCursor(since()), End: () => setCursor(null), Enter: () => release(cursor),
      '+': () => at > 0 && setSpan(SPANS[at - 1]), '-': () => at < SPANS.length - 1 && setSpan(SPANS[at + 1]),
      PageUp: () => shift(-1), PageDown: () => shift(1),
    };
    if (!moves[event.key]) return;
    event.preventDefault();
    event.stopPropagation();
    moves[event.key]();
  });

  const select = choice(SPANS.map((value) => [String(value), words.spans[value]]), String(hours), (value) => setSpan(Number(value)), {'aria-label': words.span});
  const resize = new ResizeObserver(paint);
  resize.observe(canvas);
  const timer = setInterval(() => (end === null ? load() : paint()), RELOAD_MS);
  let soon = 0;
  const ends = [on('theme', paint), on('event', (event) => {
    if (event.camera !== camera || end !== null || soon) return;
    soon = setTimeout(() => { soon = 0; load(); }, 1000);
  })];
  load();
  return {
    element: fill(h('section', {class: 'timelines', 'aria-label': words.title}),
      h('div', {class: 'row'}, iconButton('left', words.earlier, () => shift(-1)), select, iconButton('right', words.later, () => shift(1)), reading, h('span', {class: 'gap'}),
        h('ul', {class: 'legend'}, Object.entries(words.legend).map(([key, text]) => h('li', {data: {key}}, text)))),
      canvas),
    /// The address says another moment.
    changed(ms) { if (!dragging && ms !== cursor) setCursor(ms, false); },
    close() {
      clearInterval(timer);
      clearTimeout(soon);
      loading?.abort();
      resize.disconnect();
      ends.forEach((each) => each());
    },
  };
}
