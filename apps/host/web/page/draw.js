// Drawing on a picture: where things are, where they came from, what is watched. All sizes in the canvas's pixels.

const FULL = [0, 0, 1, 1];
// Told apart on dark and light pictures and by most who see colours differently; a number stands beside each.
const TRACK_COLOURS = ['#ffd23f', '#4cc9f0', '#ff8fa3', '#a3e635', '#ffa552', '#c8b6ff'];
const ZONE_COLOUR = '#38d6c4';
const LINE_COLOUR = '#ffffff';
const OBJECT_COLOUR = '#ffffff';
const SHADE = 'rgba(0, 0, 0, 0.65)';

export const trackColour = (number) => TRACK_COLOURS[Math.abs(number) % TRACK_COLOURS.length];

/// How shares of the source picture lie on the analyzed frame. `map`: [left, top, width, height] of the analyzed part.
export function shareToFrame([x, y], map, size) {
  const [left, top, width, height] = map ?? FULL;
  return [(x - left) / width * size[0], (y - top) / height * size[1]];
}

/// The largest place for a picture of that shape in the middle of an area.
export function fitInto(width, height, area) {
  const scale = Math.min(area[0] / width, area[1] / height);
  return {scale, left: (area[0] - width * scale) / 2, top: (area[1] - height * scale) / 2};
}

/// A pen that turns pixels of the analyzed frame into those of the canvas. `dot`: canvas pixels of one CSS pixel.
export class Pen {
  constructor(context, place, dot) {
    this.context = context;
    this.place = place;
    this.dot = dot;
  }

  at([x, y]) {
    return [this.place.left + x * this.place.scale, this.place.top + y * this.place.scale];
  }

  path(points, closed) {
    const {context} = this;
    context.beginPath();
    points.forEach((point, index) => (index ? context.lineTo(...this.at(point)) : context.moveTo(...this.at(point))));
    if (closed) context.closePath();
  }

  /// A line that is seen on every ground.
  stroke(colour, width, dashes = []) {
    const {context, dot} = this;
    context.lineJoin = 'round';
    context.setLineDash([]);
    context.strokeStyle = SHADE;
    context.lineWidth = (width + 2) * dot;
    context.stroke();
    context.setLineDash(dashes.map((length) => length * dot));
    context.strokeStyle = colour;
    context.lineWidth = width * dot;
    context.stroke();
    context.setLineDash([]);
  }

  label(point, text, colour) {
    const {context, dot} = this;
    const [x, y] = this.at(point);
    context.font = `600 ${12 * dot}px system-ui, sans-serif`;
    context.textBaseline = 'bottom';
    const width = context.measureText(text).width + 6 * dot;
    const left = Math.max(0, Math.min(x, context.canvas.width - width));
    const top = Math.max(15 * dot, y);
    context.fillStyle = 'rgba(0, 0, 0, 0.72)';
    context.fillRect(left, top - 15 * dot, width, 15 * dot);
    context.fillStyle = colour;
    context.fillText(text, left + 3 * dot, top - dot);
  }

  box([left, top, width, height], colour, thickness, dashes) {
    this.path([[left, top], [left + width, top], [left + width, top + height], [left, top + height]], true);
    this.stroke(colour, thickness, dashes);
  }
}

export function drawTracks(pen, tracks, {labels = true, thickness = 2} = {}) {
  for (const track of tracks) {
    if (track.state === 'ended' || track.state === 'tentative') continue;
    const colour = trackColour(track.track);
    pen.box(track.box, colour, thickness, track.state === 'coasting' ? [5, 4] : track.state === 'stopped' ? [1.5, 3] : []);
    if (labels) pen.label([track.box[0], track.box[1]], String(track.track), colour);
  }
}

export function drawObjects(pen, objects) {
  for (const object of objects) pen.box(object.box, OBJECT_COLOUR, 1, [2, 2]);
}

/// `trails`: Map of track number -> feet, the latest last.
export function drawTrails(pen, trails, tracks) {
  for (const {track} of tracks) {
    const feet = trails.get(track);
    if (!feet || feet.length < 2) continue;
    pen.path(feet, false);
    pen.stroke(trackColour(track), 1.5);
  }
}

export function drawRules(pen, camera, size) {
  const {context} = pen;
  for (const zone of camera.zones ?? []) {
    const points = zone.points.map((point) => shareToFrame(point, camera.map, size));
    pen.path(points, true);
    context.fillStyle = 'rgba(56, 214, 196, 0.12)';
    context.fill();
    pen.stroke(ZONE_COLOUR, 1.5);
    pen.label(points.reduce((best, point) => (point[1] < best[1] ? point : best)), zone.title || zone.name, ZONE_COLOUR);
  }
  for (const line of camera.lines ?? []) {
    const points = line.points.map((point) => shareToFrame(point, camera.map, size));
    pen.path(points, false);
    pen.stroke(LINE_COLOUR, 2);
    drawForward(pen, points);
    pen.label(points[0], line.title || line.name, LINE_COLOUR);
  }
}

/// An arrow at the middle of a line: forward leads from its left to its right.
function drawForward(pen, points) {
  const middle = Math.floor((points.length - 1) / 2);
  const [a, b] = [pen.at(points[middle]), pen.at(points[middle + 1])];
  const length = Math.hypot(b[0] - a[0], b[1] - a[1]) || 1;
  // To the right of the way from a to b, y downwards.
  const [rx, ry] = [-(b[1] - a[1]) / length, (b[0] - a[0]) / length];
  const [mx, my] = [(a[0] + b[0]) / 2, (a[1] + b[1]) / 2];
  const size = 9 * pen.dot;
  const {context} = pen;
  context.beginPath();
  context.moveTo(mx + rx * size, my + ry * size);
  context.lineTo(mx - ry * size * 0.6, my + rx * size * 0.6);
  context.lineTo(mx + ry * size * 0.6, my - rx * size * 0.6);
  context.closePath();
  context.fillStyle = LINE_COLOUR;
  context.fill();
}

export function drawMasks(pen, camera, size) {
  for (const mask of camera.masks ?? []) {
    pen.path(mask.map((point) => shareToFrame(point, camera.map, size)), true);
    pen.context.fillStyle = 'rgba(20, 20, 24, 0.7)';
    pen.context.fill();
  }
}
