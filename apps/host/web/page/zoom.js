// Looking closer at a picture: two fingers, the wheel, the keys + - 0. Zooms what is drawn, never the page.

const MOST = 12;

/// For a canvas: `view.scale` (1: all of it), `view.x`, `view.y`: where its upper left corner is, in shares of the canvas.
export function zoomable(canvas, changed) {
  const view = {scale: 1, x: 0, y: 0};
  const pointers = new Map();
  let spread = 0;

  function settle() {
    view.scale = Math.min(MOST, Math.max(1, view.scale));
    view.x = Math.min(1 - 1 / view.scale, Math.max(0, view.x));
    view.y = Math.min(1 - 1 / view.scale, Math.max(0, view.y));
    canvas.classList.toggle('zoomed', view.scale > 1);
    changed();
  }

  /// Around a point in shares of the canvas, which stays where it is.
  function zoom(factor, [px, py]) {
    const scale = Math.min(MOST, Math.max(1, view.scale * factor));
    view.x += px / view.scale - px / scale;
    view.y += py / view.scale - py / scale;
    view.scale = scale;
    settle();
  }

  function pan(dx, dy) {
    view.x -= dx / view.scale;
    view.y -= dy / view.scale;
    settle();
  }

  const shareOf = (event) => {
    const box = canvas.getBoundingClientRect();
    return [(event.clientX - box.left) / box.width, (event.clientY - box.top) / box.height];
  };
  const middle = (points) => [0, 1].map((axis) => points.reduce((sum, point) => sum + point[axis], 0) / points.length);
  const spreadOf = ([a, b]) => Math.hypot((a[0] - b[0]) * canvas.clientWidth, (a[1] - b[1]) * canvas.clientHeight);

  canvas.addEventListener('wheel', (event) => {
    if (!event.ctrlKey && !event.metaKey && view.scale === 1 && event.deltaY > 0) return; // the page scrolls on
    event.preventDefault();
    zoom(Math.exp(-event.deltaY / (event.ctrlKey ? 100 : 400)), shareOf(event));
  }, {passive: false});
  canvas.addEventListener('pointerdown', (event) => {
    pointers.set(event.pointerId, shareOf(event));
    if (pointers.size === 2 || view.scale > 1) canvas.setPointerCapture(event.pointerId);
    spread = pointers.size === 2 ? spreadOf([...pointers.values()]) : 0;
  });
  canvas.addEventListener('pointermove', (event) => {
    if (!pointers.has(event.pointerId)) return;
    const before = middle([...pointers.values()]);
    pointers.set(event.pointerId, shareOf(event));
    const points = [...pointers.values()];
    const after = middle(points);
    if (view.scale > 1) pan(after[0] - before[0], after[1] - before[1]);
    if (points.length === 2) {
      const wide = spreadOf(points);
      if (spread > 0 && wide > 0) zoom(wide / spread, after);
      spread = wide;
    }
  });
  const up = (event) => pointers.delete(event.pointerId);
  canvas.addEventListener('pointerup', up);
  canvas.addEventListener('pointercancel', up);
  canvas.addEventListener('dblclick', () => { Object.assign(view, {scale: 1, x: 0, y: 0}); settle(); });
  canvas.addEventListener('keydown', (event) => {
    const step = 0.1;
    const ways = {ArrowLeft: [step, 0], ArrowRight: [-step, 0], ArrowUp: [0, step], ArrowDown: [0, -step]};
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    if (event.key === '+' || event.key === '=') zoom(1.25, [0.5, 0.5]);
    else if (event.key === '-') zoom(0.8, [0.5, 0.5]);
    else if (event.key === '0') { Object.assign(view, {scale: 1, x: 0, y: 0}); settle(); }
    else if (view.scale > 1 && ways[event.key]) pan(...ways[event.key]);
    else return;
    event.preventDefault();
    event.stopPropagation();
  });
  return view;
}
