// Layers of what the analyzer sees, as pictures that lie over the live one: a value from 0 to 255 for each place.

const ALPHA = 0.72;
const AGE_STEPS = 15; // of the analyzer's scale: 15 log2(1 + seconds)

/// From dark violet over red to light yellow; equal steps look about equal.
const HEAT = [[31, 12, 72], [85, 15, 109], [136, 34, 106], [187, 55, 84], [227, 89, 51], [249, 140, 10], [249, 201, 50], [252, 255, 164]];

function heat(share) {
  const at = Math.min(share, 0.9999) * (HEAT.length - 1);
  const low = HEAT[Math.floor(at)];
  const high = HEAT[Math.floor(at) + 1];
  return low.map((value, channel) => value + (high[channel] - value) * (at - Math.floor(at)));
}

/// Numbers beside each other get hues far from each other.
function distinct(number) {
  const hue = (number * 137.508) % 360;
  const part = (offset) => {
    const k = (offset + hue / 30) % 12;
    return 255 * (0.6 - 0.4 * Math.max(-1, Math.min(k - 3, 9 - k, 1)));
  };
  return [part(0), part(8), part(4)];
}

/// Colour and opacity of every value.
function palette(name) {
  return Array.from({length: 256}, (_, value) => {
    const share = value / 255;
    if (name === 'labels') return value === 0 ? [0, 0, 0, 0] : [...distinct(value), ALPHA];
    if (name === 'age') return [...heat(1 - share), ALPHA * (1 - share)];
    return [...heat(share), value === 0 ? 0 : ALPHA * Math.min(1, 0.25 + share)];
  });
}

const palettes = new Map();
export function paletteOf(name) {
  if (!palettes.has(name)) palettes.set(name, palette(name));
  return palettes.get(name);
}

/// `layer`: {name, width, height, step, full}, `text`: its bytes in base64. @returns {canvas, width, height}, the latter
/// two in pixels of the frame
export function layerPicture(layer, text) {
  const bytes = Uint8Array.from(atob(text), (character) => character.charCodeAt(0));
  const colours = paletteOf(layer.name);
  const image = new ImageData(layer.width, layer.height);
  bytes.forEach((value, at) => {
    const [r, g, b, a] = colours[value];
    image.data.set([r, g, b, 255 * a], 4 * at);
  });
  const canvas = document.createElement('canvas');
  Object.assign(canvas, {width: layer.width, height: layer.height});
  canvas.getContext('2d').putImageData(image, 0, 0);
  return {canvas, width: layer.width * layer.step, height: layer.height * layer.step};
}

/// A strip of the layer's colours into a canvas.
export function paintLegend(canvas, name) {
  const context = canvas.getContext('2d');
  const colours = paletteOf(name);
  for (let x = 0; x < canvas.width; x++) {
    const value = Math.round(x / (canvas.width - 1) * 255);
    const [r, g, b] = colours[name === 'labels' ? 1 + Math.floor(value / 16) : value];
    context.fillStyle = `rgb(${r} ${g} ${b})`;
    context.fillRect(x, 0, 1, canvas.height);
  }
}

/// Of the age layer: seconds that a value stands for.
export const secondsOfAge = (value) => 2 ** (value / AGE_STEPS) - 1;
