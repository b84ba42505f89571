// A shape while it is drawn: its points, and the way back. Shares of the source picture, 0 to 1, y downwards.

const KEPT = 100; // steps back
export const round = (value) => Math.round(value * 1e4) / 1e4;
const within = (value, low, high) => Math.min(high, Math.max(low, value));

/// What a shape needs to be done: a line has two points, an area three.
export const leastPoints = (kind) => (kind === 'line' ? 2 : 3);

export class Drawing {
  /// `bounds`: [left, top, right, bottom] that can be seen.
  constructor({kind, points = [], bounds = [0, 0, 1, 1]}) {
    this.kind = kind;
    this.bounds = bounds;
    this.points = points;
    this.closed = points.length >= leastPoints(kind);
    this.past = [];
    this.future = [];
  }

  /// Before a change, once for a drag.
  begin() {
    this.past.push({points: this.points, closed: this.closed});
    if (this.past.length > KEPT) this.past.shift();
    this.future = [];
  }

  step(from, to) {
    const state = from.pop();
    if (!state) return false;
    to.push({points: this.points, closed: this.closed});
    Object.assign(this, state);
    return true;
  }

  undo() { return this.step(this.past, this.future); }
  redo() { return this.step(this.future, this.past); }

  kept([x, y]) {
    const [left, top, right, bottom] = this.bounds;
    return [round(within(x, left, right)), round(within(y, top, bottom))];
  }

  add(point) {
    if (this.closed) return;
    this.begin();
    this.points = [...this.points, this.kept(point)];
    if (this.kind === 'line' && this.points.length === 2) this.closed = true;
  }

  /// Behind the point of that index.
  insert(index, point) {
    this.begin();
    this.points = [...this.points.slice(0, index + 1), this.kept(point), ...this.points.slice(index + 1)];
  }

  /// Part of a drag: begin() comes before.
  move(index, point) {
    this.points = this.points.map((old, at) => (at === index ? this.kept(point) : old));
  }

  /// Part of a drag: the whole by that much, as far as it stays in the picture.
  shift([dx, dy]) {
    const [left, top, right, bottom] = this.bounds;
    const xs = this.points.map(([x]) => x);
    const ys = this.points.map(([, y]) => y);
    const x = within(dx, left - Math.min(...xs), right - Math.max(...xs));
    const y = within(dy, top - Math.min(...ys), bottom - Math.max(...ys));
    this.points = this.points.map((point) => [round(point[0] + x), round(point[1] + y)]);
  }

  remove(index) {
    if (this.closed && this.points.length <= leastPoints(this.kind)) return false;
    this.begin();
    this.points = this.points.filter((_, at) => at !== index);
    return true;
  }

  turn() {
    this.begin();
    this.points = [...this.points].reverse();
  }

  get mayClose() { return !this.closed && this.points.length >= leastPoints(this.kind); }

  close() {
    if (!this.mayClose) return false;
    this.begin();
    this.closed = true;
    return true;
  }

  /// Of each edge: [index of its first point, its middle].
  middles() {
    if (this.kind === 'line') return [];
    const edges = this.closed ? this.points.length : this.points.length - 1;
    return this.points.slice(0, Math.max(0, edges)).map(([x, y], at) => {
      const [nx, ny] = this.points[(at + 1) % this.points.length];
      return [at, [(x + nx) / 2, (y + ny) / 2]];
    });
  }
}

/// Even-odd, as the host has it.
export function isInside(points, [x, y]) {
  let inside = false;
  points.forEach(([ax, ay], at) => {
    const [bx, by] = points[(at + points.length - 1) % points.length];
    if ((ay > y) !== (by > y) && x < (bx - ax) * (y - ay) / (by - ay) + ax) inside = !inside;
  });
  return inside;
}

/// A rule's least size and the people on the picture: what is lower than half a person is left out. `near`, `far`: shares of the picture's
/// height that count for a foot at its lower and its upper edge, even between them.
export const SHARE_OF_PERSON = 0.5;
const sizeAt = ({near, far}, y) => far + (near - far) * y;
export const personAt = (size, y) => sizeAt(size, y) / SHARE_OF_PERSON;
/// From two people: [foot's y, height] each, the lower one first.
export function sizeOfPeople([[y1, h1], [y0, h0]]) {
  const slope = (h1 - h0) / Math.max(0.05, y1 - y0) * SHARE_OF_PERSON;
  const far = h0 * SHARE_OF_PERSON - slope * y0;
  const fit = (value) => Math.round(within(value, 0, 1) * 1000) / 1000;
  return {near: fit(far + slope), far: fit(far)};
}
