// The report's style sheet and script. The page is whole without the script: it adds highlighting and sorting.
#include "report/report_data.h"

namespace fleifeisa::host {

// .k0 to .k9 are the colours of tracks on the map (kTrackColours, on a picture: the same in both schemes), .c0 to .c9
// their counterparts on the page's ground.
const char* const kReportStyle = R"css(:root {
  color-scheme: light dark;
  --ground: #f6f7f9; --card: #fff; --ink: #1a2029; --soft: #566070; --line: #dfe3e9; --accent: #0b63c4;
  --learning: #e8ecf2; --area: #cfe0f5;
}
@media (prefers-color-scheme: dark) {
  :root {
    --ground: #101418; --card: #181e25; --ink: #e8ecf1; --soft: #9aa6b5; --line: #2c3540; --accent: #6cb2ff;
    --learning: #222a34; --area: #23405f;
  }
}
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 1.5rem clamp(.75rem, 3vw, 2rem) 3rem; max-width: 1120px; background: var(--ground);
  color: var(--ink); font: 16px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "DejaVu Sans", sans-serif; }
h1 { margin: 0; font-size: 1.9rem; line-height: 1.2; overflow-wrap: anywhere; }
h2 { margin: 0 0 .6rem; font-size: 1.15rem; }
header p, section > p { margin: .25rem 0 0; color: var(--soft); }
section > p { margin: 0 0 .5rem; font-size: .9rem; }
.source { overflow-wrap: anywhere; }
.figures { display: grid; grid-template-columns: repeat(auto-fit, minmax(11rem, 1fr)); gap: .75rem; margin: 1.25rem 0; }
.figures div, section { background: var(--card); border: 1px solid var(--line); border-radius: 10px; }
.figures div { padding: .75rem 1rem; }
dt { color: var(--soft); font-size: .85rem; }
dd { margin: 0; font-size: 1.6rem; font-weight: 650; line-height: 1.25; font-variant-numeric: tabular-nums; }
dd small { display: block; color: var(--soft); font-size: .82rem; font-weight: 400; }
section { margin: 1rem 0; padding: 1rem; }
.switch { display: inline-flex; gap: .5rem; align-items: center; padding: .35rem 0; cursor: pointer; }
.switch input { width: 1.1rem; height: 1.1rem; accent-color: var(--accent); }
.nothing { padding: 1rem; border-left: 4px solid var(--accent); background: var(--card); }
.brief { display: none; }
body:has(#show-brief:checked) :is(g, div).brief { display: block; }
body:has(#show-brief:checked) tr.brief { display: table-row; }
svg { display: block; width: 100%; height: auto; }
.map { border-radius: 6px; background: #444; }
.map path { fill: none; stroke-linejoin: round; stroke-linecap: round; vector-effect: non-scaling-stroke; }
.map .zone path, .map .line path { stroke: #ffd60a; stroke-width: 1.6px; stroke-dasharray: 6 4; }
.map .zone path { fill: #ffd60a; fill-opacity: .08; }
.map .zone text, .map .line text { fill: #ffd60a; }
.map .under { stroke: #000; stroke-opacity: .5; stroke-width: 3.6px; }
.map .way { stroke: var(--k); stroke-width: 1.8px; }
.map .tip { fill: var(--k); stroke: #000; stroke-opacity: .7; stroke-width: 1px; }
.map .from { fill: #0008; stroke: var(--k); stroke-width: 1.6px; vector-effect: non-scaling-stroke; }
.map text { fill: var(--k); font-weight: 700; paint-order: stroke; stroke: #000c; stroke-width: 3px;
  vector-effect: non-scaling-stroke; }
.map .extra { display: none; } .lit .map .on.extra { display: inline; }
.map .brief .under { stroke-width: 2.5px; } .map .brief .way { stroke-width: 1.2px; }
.track, .name { cursor: pointer; }
.lit :is(.track, .name, .bar):not(.on) { opacity: .16; }
.lit .track.on .way, .track:target .way { stroke-width: 4px; }
.lit .track.on .under, .track:target .under { stroke-width: 7px; }
.track:target { display: block; }
.scroll { overflow-x: auto; }
.scroll:focus-visible, a:focus-visible, button:focus-visible, input:focus-visible
  { outline: 2px solid var(--accent); outline-offset: 2px; }
.chart { min-width: 640px; }
.chart text { fill: var(--soft); font-size: 11px; font-variant-numeric: tabular-nums; }
.axis path { stroke: var(--line); stroke-width: 1; }
.learning { fill: var(--learning); }
.restart { stroke: var(--ink); stroke-dasharray: 3 3; }
.bar rect { fill: var(--c); }
.bar { cursor: pointer; }
.chart .bar text { fill: #fff; font-weight: 600; }
.peak { fill: var(--area); } .mean { fill: none; stroke: var(--accent); stroke-width: 1.6; stroke-linejoin: round; }
table { width: 100%; border-collapse: collapse; font-variant-numeric: tabular-nums; }
th, td { padding: .3rem .6rem; border-bottom: 1px solid var(--line); text-align: right; white-space: nowrap; }
thead th { color: var(--soft); font-size: .85rem; font-weight: 600; vertical-align: bottom; }
th button { all: unset; cursor: pointer; border-radius: 3px; }
th[aria-sort=ascending] button::after { content: " \2191"; } th[aria-sort=descending] button::after { content: " \2193"; }
.thumb { width: 76px; padding: .2rem; }
.thumb img { display: block; width: 68px; height: 60px; object-fit: contain; }
tbody tr:hover, tr.on { background: var(--learning); }
a { color: var(--accent); }
footer { color: var(--soft); font-size: .9rem; } footer h2 { color: var(--ink); margin-top: 1.5rem; }
footer ul { padding-left: 1.2rem; } footer li { margin: .3rem 0; max-width: 75ch; }
.hidden { position: absolute; width: 1px; height: 1px; overflow: hidden; clip-path: inset(50%); white-space: nowrap; }
.k0 { --k: #ff6347; } .k1 { --k: #40c4ff; } .k2 { --k: #ffca28; } .k3 { --k: #b284ff; } .k4 { --k: #69db7c; }
.k5 { --k: #ff82cb; } .k6 { --k: #26dec7; } .k7 { --k: #ff9e40; } .k8 { --k: #8fa4ff; } .k9 { --k: #d4e157; }
.c0 { --c: #d0392a; } .c1 { --c: #0a76b3; } .c2 { --c: #8f6a00; } .c3 { --c: #7a4be0; } .c4 { --c: #2a803c; }
.c5 { --c: #c02f86; } .c6 { --c: #0a7d6f; } .c7 { --c: #b4560a; } .c8 { --c: #4a5fd0; } .c9 { --c: #68740f; }
@media (max-width: 640px) {
  .map text { display: none; }
  .lit .map text.on { display: inline; }
  /* The whole chart at a third of its size, with labels that can still be read; they reach into the card's margin. */
  .scroll { overflow: visible; } .chart { min-width: 0; overflow: visible; margin-bottom: 12px; }
  .chart text { font-size: 28px; } .chart .bar text, .axis text:nth-of-type(even) { display: none; }
  .axis text[text-anchor=middle] { transform: translateY(14px); }
  thead { display: none; }
  table, tbody { display: block; }
  tr { display: grid; grid-template-columns: 84px 1fr 1fr; gap: .1rem .75rem; padding: .5rem 0; border-bottom: 1px solid var(--line); }
  body:has(#show-brief:checked) tr.brief { display: grid; }
  tr.brief { display: none; }
  th, td { border: 0; padding: 0; text-align: left; }
  .thumb { grid-row: 1 / span 4; width: 84px; } .thumb img { width: 84px; height: 84px; }
  th[scope=row] { grid-column: 2 / span 2; font-size: 1.05rem; }
  th[scope=row]::before { content: "Track "; font-weight: 400; }
  td[data-l]::before { content: attr(data-l); display: block; color: var(--soft); font-size: .75rem; line-height: 1.2; }
}
@media print { body { background: #fff; } .switch { display: none; } section { break-inside: avoid-page; } }
@media (prefers-reduced-motion: no-preference) { .track, .name, .bar { transition: opacity .12s; } }
)css";

const char* const kReportScript = R"js('use strict';
(() => {
  // What belongs to one track lights up together: on the map, in the timeline, in the table.
  const parts = new Map();
  for (const part of document.querySelectorAll('[data-t]')) {
    if (!parts.has(part.dataset.t)) parts.set(part.dataset.t, []);
    parts.get(part.dataset.t).push(part);
  }
  let lit = null, pinned = null;
  const light = track => {
    if (track === lit) return;
    for (const part of parts.get(lit) || []) part.classList.remove('on');
    for (const part of parts.get(track) || []) part.classList.add('on');
    document.body.classList.toggle('lit', track !== null);
    lit = track;
  };
  const trackOf = event => {
    const part = event.target instanceof Element ? event.target.closest('[data-t]') : null;
    return part ? part.dataset.t : null;
  };
  document.addEventListener('pointerover', event => light(trackOf(event) ?? pinned));
  document.addEventListener('focusin', event => light(trackOf(event) ?? pinned));
  document.addEventListener('keydown', event => { if (event.key === 'Escape') light(pinned = null); });
  document.addEventListener('click', event => {
    const track = trackOf(event);
    if (track === null && !event.target.closest('svg')) return;
    pinned = track === pinned ? null : track;
    light(pinned);
  });

  // Sorting by a column's heading.
  const body = document.querySelector('tbody');
  const heads = document.querySelectorAll('thead th');
  heads.forEach((head, index) => {
    const button = document.createElement('button');
    button.type = 'button';
    button.textContent = head.textContent;
    head.replaceChildren(button);
    button.addEventListener('click', () => {
      const down = head.getAttribute('aria-sort') === 'ascending';
      heads.forEach(other => other.removeAttribute('aria-sort'));
      head.setAttribute('aria-sort', down ? 'descending' : 'ascending');
      const value = row => Number(row.children[index + 1].dataset.v);
      const rows = [...body.rows].sort((a, b) => down ? value(b) - value(a) : value(a) - value(b));
      body.append(...rows);
    });
  });
})();
)js";

}  // namespace fleifeisa::host
