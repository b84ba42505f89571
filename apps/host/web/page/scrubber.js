// Pictures of the past: one a second, from the film strips of a camera's visits.
import {cameraPath, eventPath, get, url} from './api.js';
import {isoOf, msOf} from './time.js';

const NEAR_MS = 1500; // a picture this far away still shows the moment
const KEPT = 6; // strips in memory
const AROUND_MS = 36e5; // visits asked for at once

export class Scrubber {
  constructor(camera) {
    this.camera = camera;
    this.strips = new Map(); // event id -> promise of {bitmap, details, size} or null
    this.visits = new Map(); // begin of an hour -> promise of its visits
  }

  hour(begin) {
    if (!this.visits.has(begin)) {
      if (this.visits.size > 48) this.visits.clear();
      const asked = get('visits', {camera: this.camera, since: isoOf(begin), until: isoOf(begin + AROUND_MS), limit: 500});
      this.visits.set(begin, asked.then((found) => found.visits.map((visit) => visit.event), () => []));
      if (begin + AROUND_MS > Date.now()) this.visits.get(begin).finally(() => this.visits.delete(begin)); // it goes on
    }
    return this.visits.get(begin);
  }

  /// The visit of that moment, or null.
  async visitAt(ms) {
    const begin = Math.floor(ms / AROUND_MS) * AROUND_MS;
    const events = [...await this.hour(begin), ...await this.hour(begin - AROUND_MS)];
    return events.find((event) => msOf(event.start_ns) - NEAR_MS <= ms && (event.end_ns === null || msOf(event.end_ns) + NEAR_MS >= ms)) ?? null;
  }

  strip(event) {
    const known = this.strips.get(event);
    if (known) return known;
    const made = loadStrip(event);
    this.strips.set(event, made);
    for (const [oldest, strip] of this.strips) {
      if (this.strips.size <= KEPT) break;
      this.strips.delete(oldest);
      strip.then((old) => old?.bitmap.close());
    }
    return made;
  }

  /// {bitmap, cut, size} to be drawn, or null: nothing was kept.
  async at(ms) {
    const visit = await this.visitAt(ms);
    const strip = visit && await this.strip(visit.event);
    return strip ? tileAt(strip, ms) : null;
  }

  close() {
    for (const strip of this.strips.values()) strip.then((made) => made?.bitmap.close());
    this.strips.clear();
  }
}

/// Tile [width, height], columns and times_ns say where each picture of the strip is.
export async function loadStrip(event) {
  try {
    const {media} = await get(eventPath(event));
    if (!media.strip?.details) return null;
    const answer = await fetch(url(media.strip.href), {credentials: 'same-origin'});
    if (!answer.ok) return null;
    return {bitmap: await createImageBitmap(await answer.blob()), details: media.strip.details};
  } catch {
    return null;
  }
}

/// The tile nearest to that moment.
export function tileAt({bitmap, details}, ms) {
  const times = details.times_ns.map(msOf);
  let best = 0;
  times.forEach((time, index) => { if (Math.abs(time - ms) < Math.abs(times[best] - ms)) best = index; });
  return tile({bitmap, details}, best);
}

export function tile({bitmap, details}, index) {
  const [width, height] = details.tile;
  const columns = details.columns || Math.max(1, Math.floor(bitmap.width / width));
  return {bitmap, cut: [index % columns * width, Math.floor(index / columns) * height, width, height], size: [width, height]};
}

/// All tracks of a stretch of time, with their ways.
export const pathsOf = (camera, since, until) => get(cameraPath(camera, 'paths'), {since: isoOf(since), until: isoOf(until)});
