// What the analyzer and the track filter say of a frame and a place in it, in words and numbers. For the live picture and
// for events alike.
import {h, fill} from './dom.js';
import {durationText} from './time.js';
import {texts} from './texts.js';

const MOST_SUPPORT = 512;
const MOST_PIECES = 6;

const rgb = (mean) => (mean.length === 1 ? [mean[0], mean[0], mean[0]] : mean).map((value) => Math.max(0, Math.min(255, value)));
const contains = ([left, top, width, height], [x, y]) => x >= left && x < left + width && y >= top && y < top + height;
const short = (value) => (Math.abs(value) >= 100 ? Math.round(value) : Number(value.toFixed(2)));

/// A square of that colour, with its numbers.
function swatch(mean) {
  const square = h('span', {class: 'swatch'});
  square.style.setProperty('--colour', `rgb(${rgb(mean).join(' ')})`);
  return h('span', {class: 'number'}, square, mean.join(' '));
}

/// `marks`: [[value, name], ...] on a bar from 0 to `full`.
function bar(value, full, marks = []) {
  const share = (part) => `${Math.max(0, Math.min(1, part / full)) * 100}%`;
  const inner = h('span', {class: 'filled'});
  inner.style.setProperty('--share', share(value));
  return h('span', {class: 'bar', 'aria-hidden': 'true'}, inner, marks.map(([mark, name]) => {
    const line = h('span', {class: 'mark', title: name});
    line.style.setProperty('--share', share(mark));
    return line;
  }));
}

const row = (name, ...value) => [h('dt', null, name), h('dd', null, ...value)];

function clusters(cell) {
  const words = texts.why;
  if (cell.clusters.length === 0) return h('p', {class: 'muted small'}, words.noClusters);
  return h('table', {class: 'clusters'},
    h('thead', null, h('tr', null, [words.mean, words.support, ''].map((text) => h('th', {scope: 'col'}, text)))),
    h('tbody', null, cell.clusters.map((one) => h('tr', {class: one.counts ? '' : 'muted'},
      h('td', null, swatch(one.mean)), h('td', {class: 'number'}, String(one.support)),
      h('td', null, bar(one.support, MOST_SUPPORT, [[128, words.countsFrom]]), one.counts ? '' : h('span', {class: 'unseeable'}, words.countsNot))))));
}

function cellFacts(cell, analyzer, learning) {
  const words = texts.why;
  const since = cell.since_start ? words.sinceStart : durationText(cell.since_s * 1000);
  return h('section', {class: 'cell', data: {cell: cell.cell, foreground: cell.foreground}},
    h('h3', null, words.lattice[cell.lattice], ' ', h('span', {class: cell.foreground ? 'chip wrong' : 'chip'}, cell.foreground ? words.foreground : words.background), ' ', h('span', {class: 'muted small'}, since)),
    !learning && h('dl', {class: 'facts'},
      row(words.difference, h('span', {class: 'number', data: {fact: 'difference'}}, String(short(cell.difference))), ' ',
        bar(cell.difference, Math.max(2 * analyzer.high, cell.difference), [[analyzer.low, words.low], [analyzer.high, words.high]])),
      row(words.confidence, h('span', {class: 'number', data: {fact: 'confidence'}}, cell.confidence.toFixed(2)), ' ', bar(cell.confidence, 1)),
      row(words.edges, h('span', {class: 'number', data: {fact: 'edges'}}, cell.edges.toFixed(2)), ' ', bar(cell.edges, 1)),
      row(words.label, h('span', {data: {fact: 'label'}}, cell.label === 0 ? words.none : String(cell.label)))),
    clusters(cell));
}

function placeFacts(analyzer) {
  const words = texts.why;
  const {place} = analyzer;
  const learning = analyzer.phase !== 'detection';
  return [
    h('dl', {class: 'facts'},
      row(words.place, h('span', {class: 'number', data: {fact: 'at'}}, place.at.join(', '))),
      place.pixel && row(words.pixel, swatch(place.pixel)),
      place.nearest !== undefined && row(words.nearest, place.nearest === null ? words.nothingKnown
        : [swatch(place.nearest.mean), ', ', h('span', {class: 'number'}, words.distance(Math.round(analyzer.type === 'infrared' ? place.nearest.distance : Math.sqrt(place.nearest.distance)))), ' ', h('span', {class: 'muted'}, words.of[place.nearest.of])])),
    place.cells.map((cell) => cellFacts(cell, analyzer, learning)),
  ];
}

/// Why it is a track, or none yet.
function trackFacts(track) {
  const words = texts.why;
  const reasons = track.why.map((reason) => words.reasons[reason] ?? reason);
  const confirmed = track.track !== 0;
  return h('li', {data: {track: track.track}},
    h('strong', null, confirmed ? words.track(track.track) : words.noTrackYet), ' ', h('span', {class: 'muted'}, texts.camera.trackStates[track.state]),
    h('div', {class: 'small'}, words.trackNumbers(track.frames, track.age_s, track.largest), track.missed_s > 0 && `, ${words.missed(track.missed_s)}`),
    reasons.length > 0 && h('ul', {class: 'small reasons'}, reasons.map((text) => h('li', null, text))));
}

function filterFacts(filter, at) {
  const words = texts.why;
  const here = (list) => (at ? list.filter((one) => contains(one.box, at)) : list);
  const tracks = here(filter.tracks);
  const dropped = here(filter.dropped).slice(0, MOST_PIECES);
  if (tracks.length + dropped.length === 0) return h('p', {class: 'muted small'}, filter.refined ? words.nothingHere : words.notRefined);
  return [
    tracks.length > 0 && h('ul', {class: 'lines'}, tracks.map(trackFacts)),
    dropped.length > 0 && [h('h3', null, words.dropped), h('ul', {class: 'lines'}, dropped.map((piece) => h('li', null, `${words.pixels(piece.pixels)}: ${words.drops[piece.why] ?? piece.why}`)))],
    h('p', {class: 'muted small'}, words.births(filter.birth, Math.ceil(filter.least_pixels))),
  ];
}

function objectFacts(analyzer, at) {
  const words = texts.why;
  const objects = (analyzer.objects ?? []).filter((one) => !at || contains(one.box, at));
  if (objects.length === 0) return h('p', {class: 'muted small'}, analyzer.phase === 'detection' ? words.noObject : words.learning);
  return h('ul', {class: 'lines'}, objects.slice(0, MOST_PIECES).map((one) => h('li', {data: {object: one.id}},
    h('strong', null, words.object(one.id)), ' ', h('span', {class: 'small'}, words.objectNumbers(one)))));
}

function frameFacts(analyzer) {
  const words = texts.why;
  return h('dl', {class: 'facts'},
    row(words.frame, h('span', {class: 'number', data: {fact: 'sequence'}}, String(analyzer.sequence)), ' ', h('span', {class: 'muted'}, words.moments[analyzer.background])),
    analyzer.low !== undefined && row(words.thresholds, h('span', {class: 'number', data: {fact: 'low'}}, String(short(analyzer.low))), ' – ', h('span', {class: 'number', data: {fact: 'high'}}, String(short(analyzer.high)))),
    analyzer.components !== undefined && row(words.found, words.foundNumbers(analyzer.components, analyzer.foreground, analyzer.cells)),
    row(words.parameters, words.parameterNumbers(analyzer.parameters)));
}

/// In one sentence what counts at that place.
export function verdict(why, at) {
  const words = texts.why;
  const {analyzer, filter} = why;
  if (!analyzer) return words.noAnalyzer;
  if (analyzer.phase !== 'detection') return words.learning;
  const cells = analyzer.place?.cells ?? [];
  const inTrack = filter?.tracks.find((track) => at && contains(track.box, at));
  if (inTrack?.track) return words.verdicts.track(inTrack.track);
  if (inTrack) return words.verdicts.young;
  if (filter?.dropped.some((piece) => at && contains(piece.box, at))) return words.verdicts.dropped;
  if (cells.some((cell) => cell.foreground)) return words.verdicts.foreground;
  return cells.length > 0 ? words.verdicts.background : '';
}

/// Everything, in the order in which it comes about.
export function showWhy(element, why, at) {
  const words = texts.why;
  const {analyzer, filter} = why;
  fill(element,
    h('p', {class: 'verdict', role: 'status'}, verdict(why, at)),
    analyzer?.place && placeFacts(analyzer),
    analyzer && [h('h3', null, words.objects), objectFacts(analyzer, at)],
    filter && [h('h3', null, words.tracks), filterFacts(filter, at)],
    analyzer && [h('h3', null, words.wholeFrame), frameFacts(analyzer)]);
}

/// What was kept with an event, for its dialog; fetched when it is opened. `href`: of the file
export function eventWhy(load) {
  const words = texts.why;
  const body = h('div', {class: 'why'});
  const details = h('details', {class: 'why-event', ontoggle: async () => {
    if (!details.open || body.childElementCount > 0) return;
    try {
      const why = await load();
      showWhy(body, why, null);
      body.prepend(h('dl', {class: 'facts'}, row(words.ruleValues, h('code', null, why.rule_values || words.noRule)), row(words.parametersHash, h('code', null, why.parameters))));
    } catch {
      fill(body, h('p', {class: 'muted'}, words.notKept));
    }
  }}, h('summary', null, words.eventTitle), body);
  return details;
}
