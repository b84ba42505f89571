// Moments and durations as people read them, in the host's time zone.
import {model} from './model.js';
import {locale, texts} from './texts.js';

const formats = new Map();

function format(name, options) {
  const zone = model.session?.timezone || 'UTC';
  const key = `${name} ${zone}`;
  if (!formats.has(key)) {
    let made;
    try {
      made = new Intl.DateTimeFormat(locale, {...options, timeZone: zone});
    } catch { // a zone that this browser does not know
      made = new Intl.DateTimeFormat(locale, {...options, timeZone: 'UTC'});
    }
    formats.set(key, made);
  }
  return formats.get(key);
}

const clock = {hour: '2-digit', minute: '2-digit', hourCycle: 'h23'};
const seconds = {...clock, second: '2-digit'};
const day = {weekday: 'short', day: 'numeric', month: 'short'};
const parts = {year: 'numeric', month: '2-digit', day: '2-digit', ...seconds};

/// Milliseconds since 1970.
export const msOf = (ns) => ns / 1e6;
export const nsOf = (ms) => `${Math.round(ms)}000000`;
export const clockText = (ms) => format('seconds', seconds).format(ms);
export const minuteText = (ms) => format('clock', clock).format(ms);
export const dayText = (ms) => format('day', day).format(ms);
export const longDay = (ms) => format('long', {...day, weekday: 'long', month: 'long', year: 'numeric'}).format(ms);
export const momentText = (ms) => `${dayText(ms)}, ${clockText(ms)}`;
export const isoOf = (ms) => new Date(ms).toISOString();

/// "2026-11-21T08:15:02" on a clock on the wall, for inputs of date and time.
export function wallText(ms) {
  const found = Object.fromEntries(format('parts', parts).formatToParts(ms).map((part) => [part.type, part.value]));
  return `${found.year}-${found.month}-${found.day}T${found.hour}:${found.minute}:${found.second}`;
}

/// The moment at which the wall's clock shows that; NaN where it is none. In the hour that comes twice: the first.
export function msOfWall(text) {
  const asUtc = Date.parse(`${text}Z`);
  if (Number.isNaN(asUtc)) return NaN;
  const offsetAt = (ms) => Date.parse(`${wallText(ms)}Z`) - Math.floor(ms / 1000) * 1000;
  const first = asUtc - offsetAt(asUtc - 864e5 / 2);
  return offsetAt(first) === asUtc - first ? first : asUtc - offsetAt(first);
}

export function durationText(ms) {
  const all = Math.max(0, Math.round(ms / 1000));
  if (all < 60) return texts.seconds(all);
  if (all < 3600) return texts.minutes(Math.floor(all / 60), all % 60);
  if (all < 86400) return texts.hours(Math.floor(all / 3600), Math.floor(all % 3600 / 60));
  return texts.days(Math.floor(all / 86400));
}

/// How long ago, in one word where it is lately.
export const agoText = (ms, current) => (current - ms < 5000 ? texts.justNow : texts.ago(durationText(current - ms)));
