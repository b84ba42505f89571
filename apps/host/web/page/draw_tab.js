// Drawing zones, lines, masks and private areas on a camera's picture.
import {h, fill, setText} from './dom.js';
import {ask, cameraPath} from './api.js';
import {attempt, notice, question} from './parts.js';
import {Drawing, personAt, sizeOfPeople} from './drawing.js';
import {ruleForm} from './ruleform.js';
import {Surface} from './surface.js';
import {takeBack} from './changelist.js';
import {texts} from './texts.js';
import {whatIf} from './whatif.js';

const KINDS = ['zone', 'line', 'mask', 'private'];
const LISTS = {zone: 'zones', line: 'lines', mask: 'masks', private: 'private'};
const FAR_APART = 0.15; // of the picture, between the two people
const USUAL_PERSON = {near: 0.4, far: 0.15}; // heights, before anybody has said

/// Feet of a near and a far person: where the rule looks.
function feet(points, [left, , right]) {
  const ys = points.map(([, y]) => y);
  let [far, near] = [Math.min(...ys), Math.max(...ys)];
  if (near - far < FAR_APART) [far, near] = [Math.max(0.1, near - FAR_APART), Math.max(0.1 + FAR_APART, near)];
  const x = points.reduce((sum, point) => sum + point[0], 0) / points.length;
  const aside = (right - left) * 0.08;
  return [{x: Math.min(right - aside, x + aside), y: near}, {x: Math.max(left + aside, x - aside), y: far}];
}

/// @returns {element, show(settings), close}
export function drawTab(camera, saved) {
  const words = texts.workbench;
  let state = null; // settings as the interface gives them
  let open = null; // {kind, index, rule, form, size} of what is drawn
  const surface = new Surface(camera, {changed, done: finished, cancel: stop});
  const study = whatIf(camera);
  const list = h('div', {class: 'shapes'});
  const panel = h('section', {class: 'panel shapeform', hidden: true});
  const hint = h('p', {class: 'muted', id: 'draw-keys'});
  const told = h('p', {class: 'saved', role: 'status', hidden: true});
  const undo = h('button', {type: 'button', onclick: () => { if (surface.drawing?.undo()) surface.update(); }}, words.undo);
  const redo = h('button', {type: 'button', onclick: () => { if (surface.drawing?.redo()) surface.update(); }}, words.redo);
  const turn = h('button', {type: 'button', onclick: () => { surface.drawing.turn(); surface.update(); }}, words.turn);
  const done = h('button', {type: 'button', onclick: () => surface.finish()}, words.done);
  const save = h('button', {type: 'button', class: 'primary', onclick: keep}, words.save);
  const tools = h('div', {class: 'row tools', hidden: true}, done, undo, redo, turn, h('span', {class: 'gap'}), h('button', {type: 'button', onclick: stop}, texts.cancel), save);

  const all = () => KINDS.flatMap((kind) => state[LISTS[kind]].map((item, index) => ({
    kind, index, rule: item.name ? item : null, points: item.points ?? item, label: item.title || item.name || `${words.units[kind]} ${index + 1}`,
  })));

  function show(settings) {
    if (settings) state = settings;
    surface.others = all().map((each) => ({...each, hidden: open && open.kind === each.kind && open.index === each.index, select: () => begin(each)}));
    surface.paint();
    fill(list, KINDS.map((kind) => h('section', null, h('div', {class: 'head'}, h('h3', null, words.lists[kind]), h('span', {class: 'gap'}),
      h('button', {type: 'button', disabled: Boolean(open), onclick: () => begin({kind}), 'aria-label': words.addOf[kind]}, words.add)),
    h('ul', {class: 'lines'}, all().filter((each) => each.kind === kind).map((each) => h('li', {class: 'row'},
      h('button', {type: 'button', class: 'plain', disabled: Boolean(open), onclick: () => begin(each), 'aria-label': words.editOf(each.label)}, each.label),
      each.rule && h('span', {class: 'muted'}, each.rule.origin !== 'file' && words.origins[each.rule.origin]), h('span', {class: 'gap'}),
      h('button', {type: 'button', class: 'plain danger', disabled: Boolean(open), onclick: () => remove(each), 'aria-label': words.removeOf(each.label)}, words.remove)))),
    h('p', {class: 'muted small'}, words.listHints[kind]))));
  }

  function freeName(kind) {
    const used = new Set([...state.zones, ...state.lines].map((each) => each.name));
    for (let count = 1; ; count++) if (!used.has(`${kind}${count}`)) return `${kind}${count}`;
  }

  function begin({kind, index = -1, rule = null, points = []}) {
    const isRule = kind === 'zone' || kind === 'line';
    const form = isRule ? ruleForm(kind, rule ?? {suggested: freeName(kind)}, changed) : null;
    open = {kind, index, rule, form, size: rule?.least_size ?? {near: 0, far: 0}, edited: false};
    told.hidden = true;
    const person = isRule && h('label', {class: 'row'}, h('input', {type: 'checkbox', checked: open.size.near > 0 || open.size.far > 0, onchange: (event) => setPeople(event.target.checked)}), words.people);
    fill(panel, h('h2', null, rule || points.length ? words.editOf(rule?.title || rule?.name || words.units[kind]) : words.addOf[kind]), form?.element, person, isRule && h('p', {class: 'muted small'}, words.peopleHint),
      kind === 'mask' && h('p', {class: 'muted'}, words.maskHint), kind === 'private' && h('p', {class: 'muted'}, words.privateHint));
    panel.hidden = false;
    tools.hidden = false;
    turn.hidden = kind !== 'line';
    done.hidden = kind === 'line';
    surface.edit(new Drawing({kind, points, bounds: surface.bounds}));
    show();
    changed(false);
    open.edited = false;
    surface.element.scrollIntoView({block: 'nearest'});
    surface.svg.focus({preventScroll: true});
  }

  function setPeople(yes) {
    if (!yes) open.size = {near: 0, far: 0};
    else if (surface.drawing.points.length) {
      const [near, far] = feet(surface.drawing.points, surface.bounds);
      open.size = sizeOfPeople([[near.y, USUAL_PERSON.near], [far.y, USUAL_PERSON.far]]);
    } else open.size = {near: 0.2, far: 0.1};
    changed();
  }

  function placePeople() {
    const {size} = open;
    const {points} = surface.drawing;
    if ((size.near <= 0 && size.far <= 0) || points.length === 0) return null;
    const [near, far] = feet(points, surface.bounds);
    const list = [near, far].map((foot, at) => ({...foot, height: Math.max(0.01, personAt(size, foot.y)), label: at ? words.personFar : words.personNear}));
    return {list, set: (at, height) => {
      const heights = list.map((each, index) => [each.y, index === at ? Math.min(1, Math.max(0.02, height)) : each.height]);
      open.size = sizeOfPeople(heights);
      changed();
    }};
  }

  /// The shape, its values or its people are others.
  function changed(repaint = true) {
    if (!open) return;
    open.edited = true;
    const {drawing} = surface;
    undo.disabled = drawing.past.length === 0;
    redo.disabled = drawing.future.length === 0;
    done.disabled = !drawing.mayClose;
    turn.disabled = save.disabled = !drawing.closed;
    surface.people = placePeople();
    if (repaint) surface.paint();
    setText(hint, drawing.closed ? words.keysClosed : open.kind === 'line' ? words.keysLine : words.keysOpen);
    if (open.form && drawing.closed && open.form.name()) study.ask(open.form.name(), change());
    else study.clear();
  }

  function change() {
    const {kind, index, form, size, rule} = open;
    const {points} = surface.drawing;
    if (kind === 'mask' || kind === 'private') {
      const key = kind === 'mask' ? 'masks' : 'private';
      return {[key]: index < 0 ? [...state[key], points] : state[key].map((each, at) => (at === index ? points : each))};
    }
    const value = form.value();
    if (!rule || JSON.stringify(points) !== JSON.stringify(rule.points)) value.points = points;
    if (size.near !== (rule?.least_size.near ?? 0) || size.far !== (rule?.least_size.far ?? 0)) value.least_size = size;
    return {[kind]: {[form.name()]: value}};
  }

  function finished() {
    if (!surface.drawing?.closed) return;
    if (open.form && !open.rule) open.form.focus();
    else save.focus();
  }

  function stop() {
    open = null;
    surface.people = null;
    surface.edit(null);
    panel.hidden = tools.hidden = true;
    setText(hint, '');
    study.clear();
    show();
    list.querySelector('button')?.focus();
  }

  async function keep() {
    if (open.form && !open.form.good()) return;
    const wanted = change();
    if (Object.values(wanted)[0] && open.form && Object.keys(Object.values(wanted)[0][open.form.name()]).length === 0) return stop();
    await apply(wanted, stop);
  }

  async function remove({kind, index, rule, label}) {
    if (!await question(words.removeQuestion(label), words.remove)) return;
    const key = LISTS[kind];
    await apply(rule ? {[kind]: {[rule.name]: {removed: true}}} : {[key]: state[key].filter((_, at) => at !== index)}, () => {});
  }

  /// And one click takes it back.
  async function apply(wanted, then) {
    let made = null;
    if (!await attempt(async () => { made = await ask('PATCH', cameraPath(camera, 'settings'), {body: wanted}); })) return;
    then();
    fill(told, words.saved(words.effects[made.effect]), ' ', h('button', {type: 'button', onclick: async () => { if (await takeBack(camera, made.change)) { told.hidden = true; saved(); } }}, words.takeBack));
    told.hidden = false;
    notice(words.saved(words.effects[made.effect]));
    saved();
  }

  return {
    element: h('div', {class: 'columns draw'},
      h('div', null, told, h('div', {class: 'picture'}, surface.element), tools, hint, study.element),
      h('aside', null, panel, h('section', {class: 'panel'}, list))),
    show,
    /// What is drawn stays while others change things.
    get busy() { return Boolean(open); },
    close() {
      study.close();
      surface.close();
    },
  };
}
