// Elements without markup: whatever comes from a camera's name or an event becomes a text node.

const SVG = 'http://www.w3.org/2000/svg';

/// `properties`: class, data (an object), on<event>, aria-* and other attributes, which true and false switch.
/// `children`: elements, texts, arrays of them; null and false are left out.
export function h(name, properties, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(properties ?? {})) {
    if (value === undefined || value === null) continue;
    if (key === 'class') element.className = value;
    else if (key === 'data') Object.assign(element.dataset, value);
    else if (key.startsWith('on')) element.addEventListener(key.slice(2), value);
    else if (key === 'value' || key === 'checked') element[key] = value;
    else if (key.startsWith('aria-')) element.setAttribute(key, String(value));
    else if (value === true) element.setAttribute(key, '');
    else if (value !== false) element.setAttribute(key, String(value));
  }
  append(element, children);
  return element;
}

function append(element, children) {
  for (const child of children) {
    if (Array.isArray(child)) append(element, child);
    else if (child !== null && child !== undefined && child !== false) element.append(child);
  }
}

/// Other children in place of those there are.
export function fill(element, ...children) {
  element.replaceChildren();
  append(element, children);
  return element;
}

/// Writes only what is different, so that nothing is laid out or read out anew.
export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

const ICONS = {
  wall: 'M3 3h8v8H3zM13 3h8v8h-8zM3 13h8v8H3zM13 13h8v8h-8z',
  events: 'M4 5h16M4 12h16M4 19h10',
  state: 'M3 12h4l3-8 4 16 3-8h4',
  settings: 'M4 7h9M17 7h3M4 17h3M11 17h9M15 4.5v5M9 14.5v5',
  play: 'M7 4l13 8-13 8z',
  pause: 'M7 4v16M17 4v16',
  back: 'M16 4l-9 8 9 8M5 4v16',
  forward: 'M8 4l9 8-9 8M19 4v16',
  left: 'M15 4l-8 8 8 8',
  right: 'M9 4l8 8-8 8',
  close: 'M5 5l14 14M19 5L5 19',
  check: 'M4 13l5 5L20 6',
  star: 'M12 3l2.8 6 6.2.8-4.600 4.400 1.200 6.400L12 17.500 6.400 20.600l1.200-6.400L3 9.800l6.200-.8z',
  save: 'M12 3v12M7 10l5 5 5-5M4 20h16',
  bin: 'M4 7h16M9 7V4h6v3M6 7l1 13h10l1-13',
  link: 'M10 14a4 4 0 006 0l3-3a4 4 0 00-6-6l-1 1M14 10a4 4 0 00-6 0l-3 3a4 4 0 006 6l1-1',
  area: 'M4 9V4h5M15 4h5v5M20 15v5h-5M9 20H4v-5',
  bell: 'M6 16V11a6 6 0 0112 0v5l2 2H4zM10 21h4',
  silent: 'M6 16V11a6 6 0 0112 0v5l2 2H4zM3 3l18 18',
};

export function icon(name) {
  const svg = document.createElementNS(SVG, 'svg');
  svg.setAttribute('viewBox', '0 0 24 24');
  svg.setAttribute('class', 'icon');
  svg.setAttribute('aria-hidden', 'true');
  const path = document.createElementNS(SVG, 'path');
  path.setAttribute('d', ICONS[name]);
  svg.append(path);
  return svg;
}

/// A button with a picture and, for those who do not see it and as a tip, words.
export function iconButton(name, words, click, properties) {
  return h('button', {type: 'button', class: 'quiet', 'aria-label': words, title: words, onclick: click, ...properties}, icon(name));
}
