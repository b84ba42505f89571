// Drawing a region on a camera's picture, by pointer or keys.
import {h} from './dom.js';
import {model} from './model.js';
import {cameraPath, url} from './api.js';
import {texts} from './texts.js';

const STEP = 0.02;
const FIRST = [0.3, 0.3, 0.7, 0.7];
const round = (value) => Math.round(value * 1000) / 1000;

/// "left,top,right,bottom" in shares of the source picture, null: none, undefined: as it was.
export function drawnArea(camera, text) {
  const words = texts.filter;
  const [left, top, width, height] = model.cameras.get(camera)?.map ?? [0, 0, 1, 1]; // what the picture shows of the source
  const given = text?.split(',').map(Number);
  let box = given?.length === 4 ? [(given[0] - left) / width, (given[1] - top) / height, (given[2] - left) / width, (given[3] - top) / height] : [...FIRST];
  let from = null;

  const area = h('div', {class: 'area'});
  const image = h('img', {alt: '', src: url(cameraPath(camera, 'picture.jpg'), {width: 960})});
  const surface = h('div', {class: 'surface', tabindex: 0, role: 'application', 'aria-label': words.areaHint}, image, area);

  function place() {
    box = box.map((value) => Math.min(1, Math.max(0, value)));
    const [a, b, c, d] = [Math.min(box[0], box[2]), Math.min(box[1], box[3]), Math.max(box[0], box[2]), Math.max(box[1], box[3])];
    for (const [name, value] of Object.entries({left: a, top: b, width: c - a, height: d - b})) area.style.setProperty(name, `${100 * value}%`);
    return [a, b, c, d];
  }
  const at = (event) => {
    const bounds = surface.getBoundingClientRect();
    return [(event.clientX - bounds.left) / bounds.width, (event.clientY - bounds.top) / bounds.height];
  };
  surface.addEventListener('pointerdown', (event) => { surface.setPointerCapture(event.pointerId); from = at(event); });
  surface.addEventListener('pointermove', (event) => { if (from) { box = [...from, ...at(event)]; place(); } });
  surface.addEventListener('pointerup', () => { from = null; });
  surface.addEventListener('keydown', (event) => {
    const [dx, dy] = {ArrowLeft: [-STEP, 0], ArrowRight: [STEP, 0], ArrowUp: [0, -STEP], ArrowDown: [0, STEP]}[event.key] ?? [0, 0];
    if (!dx && !dy) return;
    event.preventDefault();
    box = event.shiftKey ? [box[0], box[1], box[2] + dx, box[3] + dy] : [box[0] + dx, box[1] + dy, box[2] + dx, box[3] + dy];
    place();
  });
  place();

  return new Promise((answer) => {
    const dialog = h('dialog', {'aria-label': words.drawArea, onclose: () => {
      dialog.remove();
      const [a, b, c, d] = place();
      if (dialog.returnValue === 'use' && c > a && d > b) {
        answer([left + a * width, top + b * height, left + c * width, top + d * height].map(round).join(','));
      } else {
        answer(dialog.returnValue === 'none' ? null : undefined);
      }
    }}, h('form', {method: 'dialog'}, h('h2', null, words.drawArea), h('p', {class: 'muted'}, words.areaHint), surface,
      h('div', {class: 'row end'}, h('button', {value: ''}, texts.cancel), text && h('button', {value: 'none'}, words.areaNone), h('button', {class: 'primary', value: 'use'}, words.areaUse))));
    document.body.append(dialog);
    dialog.showModal();
    surface.focus();
  });
}
