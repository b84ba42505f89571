// A clip and the boxes of its frames. Every frame that the browser shows is looked up in the clip's list of frame times, and
// the boxes are drawn for that very moment.
import {h} from './dom.js';
import {drawRules, Pen, trackColour} from './draw.js';
import {url} from './api.js';
import {model} from './model.js';
import {msOf} from './time.js';
import {pathsOf} from './scrubber.js';

const SAME_MS = 1; // times of one frame, rounded in two ways

/// Index of the frame that is shown at that time of the clip (ticks): the last one that has begun. `pts` rise.
export function frameAt(pts, ticks) {
  let [low, high] = [0, pts.length - 1];
  while (low < high) {
    const middle = Math.ceil((low + high) / 2);
    if (pts[middle] <= ticks) low = middle;
    else high = middle - 1;
  }
  return low;
}

/// Where a track was: [left, top, width, height] in shares, null where it was not there. Between two points of its way it
/// moved straight and evenly. `points`: [time in ns, foot x, foot y, width, height], times rising.
export function boxAt(points, ns) {
  if (points.length === 0 || ns < points[0][0] || ns > points.at(-1)[0]) return null;
  const after = Math.max(1, points.findIndex((point) => point[0] >= ns));
  const [a, b] = [points[after - 1], points[Math.min(after, points.length - 1)]];
  const part = b[0] > a[0] ? (ns - a[0]) / (b[0] - a[0]) : 0;
  const [x, y, width, height] = [1, 2, 3, 4].map((axis) => a[axis] + (b[axis] - a[axis]) * part);
  return [x - width / 2, y - height, width, height];
}

export class Clip {
  /// `event`: whose boxes are drawn boldly; `shown(clip)`: another frame is seen.
  constructor(event, {shown, failed}) {
    this.event = event;
    this.shown = shown;
    this.failed = failed;
    this.boxes = true;
    this.index = 0;
    this.paths = [];
    this.video = h('video', {muted: true, playsinline: true, preload: 'auto', 'aria-hidden': 'true'});
    this.video.muted = true;
    this.canvas = h('canvas', {'aria-hidden': 'true'});
    this.element = h('div', {class: 'clip'}, this.video, this.canvas);
    this.resize = new ResizeObserver(() => this.paint());
    this.resize.observe(this.video);
    for (const name of ['play', 'pause', 'ended', 'seeked', 'loadedmetadata']) this.video.addEventListener(name, () => this.shown(this));
    this.video.addEventListener('error', () => this.unplayable());
  }

  /// `media` of the event that holds the clip.
  async open(media) {
    this.media = media;
    const asked = await fetch(url(media.times.href), {credentials: 'same-origin'});
    if (!asked.ok) throw new Error(String(asked.status));
    this.times = await asked.json();
    if (this.closed) return;
    this.video.src = url(media.clip.href);
    this.follow();
    const moments = this.times.time_ns.filter((ns) => ns !== null).map(msOf);
    if (moments.length === 0) return;
    try {
      // Deliberate: a little more than the clip, so that a track that begins with its last frame is there.
      this.paths = (await pathsOf(this.event.camera, moments[0] - 1000, moments.at(-1) + 1000)).paths;
    } catch { /* no boxes but the event's own */ }
    this.paint();
  }

  /// HEVC on a browser that has none: a copy is made, which takes a while.
  async unplayable() {
    if (this.closed || !this.media) return;
    if (this.copying) return this.failed(false);
    this.copying = true;
    this.failed(true);
    const copy = url(this.media.clip.href.replace(/clip\.mp4$/, 'play.mp4'));
    for (;;) {
      const answer = await fetch(copy, {credentials: 'same-origin', headers: {Range: 'bytes=0-0'}}).catch(() => null);
      if (this.closed) return;
      if (answer?.ok) break;
      if (answer && answer.status !== 503) return this.failed(false);
      await new Promise((done) => setTimeout(done, 1000 * (Number(answer?.headers.get('Retry-After')) || 2)));
    }
    this.video.src = copy;
    this.shown(this);
  }

  follow() {
    const {video} = this;
    if (video.requestVideoFrameCallback) {
      const next = (_, {mediaTime}) => {
        this.show(mediaTime);
        if (!this.closed) video.requestVideoFrameCallback(next);
      };
      video.requestVideoFrameCallback(next);
      return;
    }
    let last = -1;
    const look = () => {
      if (this.closed) return;
      if (video.currentTime !== last) this.show(last = video.currentTime);
      requestAnimationFrame(look);
    };
    look();
  }

  show(seconds) {
    // Half a tick: seconds are not whole ticks.
    this.index = frameAt(this.times.pts, seconds * this.times.timescale + 0.5);
    this.paint();
    this.shown(this);
  }

  get frames() { return this.times?.pts.length ?? 0; }
  /// When the camera saw the frame that is shown; null: it was not analyzed.
  get timeNs() { return this.times?.time_ns[this.index] ?? null; }

  /// To the middle of a frame's time, where no rounding leads to its neighbour.
  seek(index) {
    const {pts, timescale} = this.times;
    const at = Math.min(pts.length - 1, Math.max(0, index));
    this.video.currentTime = (pts[at] + (pts[at + 1] ?? pts[at] + (pts[at] - (pts[at - 1] ?? 0))) ) / 2 / timescale;
  }

  /// To the frame that the camera saw then, or the next one that it did.
  seekTo(ms) {
    const at = this.times.time_ns.findIndex((ns) => ns !== null && msOf(ns) >= ms - SAME_MS);
    this.seek(at < 0 ? this.frames - 1 : at);
  }

  step(frames) {
    this.video.pause();
    this.seek(this.index + frames);
  }

  toggle() {
    if (this.video.paused) this.video.play().catch(() => {});
    else this.video.pause();
  }

  /// [{track, box, own, exact}] of the frame that is shown, in shares of the source picture.
  boxesNow() {
    const ns = this.timeNs;
    if (ns === null) return [];
    const boxes = [];
    for (const {track, points} of this.paths) {
      const box = boxAt(points, ns);
      if (box) boxes.push({track, box, own: track === this.event.track});
    }
    // The event's own box. That of an end is the last one that was seen, some time before it.
    const {event} = this;
    const seen = event.state !== 'end' || event.time_ns === event.start_ns;
    if (event.box && seen && Math.abs(msOf(ns - event.time_ns)) <= SAME_MS) {
      const [left, top, width, height] = model.cameras.get(event.camera)?.map ?? [0, 0, 1, 1];
      const [x, y, w, h_] = [0, 1, 2, 3].map((at) => event.box[at] / event.size[at % 2]);
      const own = boxes.find((each) => each.own) ?? {track: event.track ?? 0, own: true};
      own.box = [left + x * width, top + y * height, w * width, h_ * height];
      if (!boxes.includes(own)) boxes.push(own);
    }
    return boxes;
  }

  paint() {
    const {canvas, video} = this;
    const dot = devicePixelRatio;
    const width = Math.round(video.clientWidth * dot);
    const height = Math.round(video.clientHeight * dot);
    if (canvas.width !== width || canvas.height !== height) Object.assign(canvas, {width, height});
    const context = canvas.getContext('2d');
    context.clearRect(0, 0, width, height);
    const boxes = this.boxesNow();
    canvas.dataset.boxes = JSON.stringify(boxes);
    canvas.dataset.index = this.index;
    if (!this.boxes || !video.videoWidth) return;
    const scale = Math.min(width / video.videoWidth, height / video.videoHeight);
    const place = {scale, left: (width - video.videoWidth * scale) / 2, top: (height - video.videoHeight * scale) / 2};
    const pen = new Pen(context, place, dot);
    const camera = model.cameras.get(this.event.camera);
    if (camera) drawRules(pen, {...camera, map: null}, [video.videoWidth, video.videoHeight]);
    for (const {track, box, own} of boxes) {
      const pixels = box.map((share, at) => share * (at % 2 ? video.videoHeight : video.videoWidth));
      pen.box(pixels, trackColour(track), own ? 3 : 1.5);
      if (track) pen.label([pixels[0], pixels[1]], String(track), trackColour(track));
    }
  }

  close() {
    this.closed = true;
    this.resize.disconnect();
    this.video.removeAttribute('src');
    this.video.load();
  }
}
