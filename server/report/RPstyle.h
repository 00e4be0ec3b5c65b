// The style of the page. Included by one file.
#pragma once

// Colours: each pair of text and background has a contrast of 4.5 or more, and each shape of a
// chart 3 or more against the paper. The colours of the verdicts differ in lightness as well as in
// hue, and failures are hatched and the
// unknown is striped, for people who see few colours.
inline constexpr char kRPStyle[] = R"(
:root { color-scheme: light dark;
  --ground: #f4f3ef; --paper: #ffffff; --ink: #1c2227; --soft: #59626a; --rule: #dcdad3; --link: #14548f;
  --fine: #1d6b43; --look: #855800; --wrong: #a3211a;
  --v0: #1b4f8c; --v1: #2b86c8; --v2: #3c9d9b; --v3: #4d5358; --v4: #7b8288; --v5: #bb8200; --v6: #b3261e; }
@media (prefers-color-scheme: dark) { :root {
  --ground: #14171a; --paper: #1c2125; --ink: #e7e9eb; --soft: #a9b2b9; --rule: #363d43; --link: #8ec3f2;
  --fine: #7fcf9f; --look: #e8bd62; --wrong: #ff9a8d;
  --v0: #4f95e0; --v1: #92cdf5; --v2: #5fbab3; --v3: #767f86; --v4: #a9b0b6; --v5: #e3b042; --v6: #f4705f; } }
@media print { :root { color-scheme: light;
  --ground: #ffffff; --paper: #ffffff; --ink: #000000; --soft: #444444; --rule: #bbbbbb; --link: #000000;
  --fine: #1d6b43; --look: #855800; --wrong: #a3211a;
  --v0: #1b4f8c; --v1: #2b86c8; --v2: #3c9d9b; --v3: #4d5358; --v4: #7b8288; --v5: #bb8200; --v6: #b3261e; }
  section, table, li { break-inside: avoid; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--ground); color: var(--ink); font: 16px/1.5 system-ui, sans-serif;
  font-variant-numeric: tabular-nums; -webkit-text-size-adjust: 100%; }
header, main, footer { max-width: 1080px; margin: 0 auto; padding: 0 20px; }
header { padding-top: 36px; }
h1 { margin: 0; font-size: 1.75rem; line-height: 1.2; font-weight: 650; letter-spacing: -.01em; }
h2 { margin: 0 0 12px; font-size: 1.1rem; font-weight: 650; }
h3 { margin: 0; font-size: 1rem; font-weight: 600; overflow-wrap: anywhere; }
p { margin: 0; }
a { color: var(--link); text-decoration-thickness: 1px; text-underline-offset: 3px; }
.soft, .meaning, caption, footer { color: var(--soft); }
.brand { font-size: .8rem; letter-spacing: .08em; text-transform: uppercase; color: var(--soft); margin-bottom: 4px; }
header .soft { margin-top: 6px; }
section { background: var(--paper); border: 1px solid var(--rule); border-radius: 8px; padding: 20px; margin: 16px 0; }
.mood { border-left: 6px solid var(--mood); }
.mood strong { display: block; font-size: 1.2rem; line-height: 1.35; color: var(--mood); }
.mood p { margin-top: 6px; max-width: 60em; }
.fine { --mood: var(--fine); } .look { --mood: var(--look); } .wrong { --mood: var(--wrong); }
dl { display: grid; grid-template-columns: repeat(auto-fit, minmax(130px, 1fr)); gap: 12px 20px; margin: 0 0 20px; }
dt { font-size: .85rem; color: var(--soft); }
dd { margin: 0; font-size: 1.5rem; line-height: 1.25; font-weight: 600; }
dd small { font-size: .85rem; font-weight: 400; color: var(--soft); }
.pair { display: grid; grid-template-columns: minmax(0, 1fr); column-gap: 16px; }
@media (min-width: 860px) { .pair { grid-template-columns: repeat(2, minmax(0, 1fr)); } }
.charts { display: grid; grid-template-columns: minmax(0, 1fr); gap: 28px; }
@media (min-width: 860px) { .charts { grid-template-columns: repeat(2, minmax(0, 1fr)); } }
svg { display: block; }
.bar { width: 100%; height: 30px; margin-bottom: 12px; border-radius: 4px; overflow: hidden; }
.bar rect, .columns rect { stroke: var(--paper); stroke-width: 1px; }
.columns { width: 100%; height: 204px; overflow: visible; }
.columns text { font-size: 12px; fill: var(--soft); }
.mark { text-anchor: end; }
.date, .none { text-anchor: middle; }
.columns .last { fill: var(--ink); font-weight: 700; }
.columns .none { font-size: 14px; }
.rule { stroke: var(--rule); stroke-width: 1px; }
.time { fill: var(--soft); }
.swatch { display: inline-block; width: 12px; height: 12px; margin-right: 8px; flex: none; }
.patterns { position: absolute; width: 0; height: 0; }
.v0 { fill: var(--v0); } .v1 { fill: var(--v1); } .v2 { fill: var(--v2); } .v3 { fill: var(--v3); }
.v4 { fill: url(#gaps); } .v5 { fill: var(--v5); } .v6 { fill: url(#hatch); }
.hatched { fill: var(--v6); } .gapped { fill: var(--v4); } .stripe { fill: var(--paper); opacity: .45; }
table { width: 100%; border-collapse: collapse; font-size: .93rem; }
th, td { padding: 6px 0 6px 14px; border-top: 1px solid var(--rule); text-align: right; vertical-align: baseline; white-space: nowrap; }
th:first-child, td:first-child { text-align: left; padding-left: 0; white-space: normal; overflow-wrap: anywhere; font-weight: 400; }
thead th, thead th:first-child { border-top: 0; font-size: .82rem; font-weight: 400; color: var(--soft); padding-top: 0; }
.meaning { display: block; font-size: .85rem; white-space: normal; }
.legend .meaning { padding-left: 20px; }
@media (min-width: 860px) { .legend .meaning { display: inline; padding-left: 12px; }
  .groups { display: grid; grid-template-columns: repeat(2, minmax(0, 1fr)); column-gap: 36px; } }
.url { overflow-wrap: anywhere; word-break: break-word; }
.group { border-top: 1px solid var(--rule); padding: 12px 0; }
.group h3 { display: flex; align-items: baseline; }
.group h3 b { margin-left: auto; padding-left: 14px; white-space: nowrap; overflow-wrap: normal; }
.group ul { margin: 6px 0 0; padding: 0 0 0 20px; list-style: none; font-size: .88rem; }
.group li { padding: 2px 0; }
.group > p { padding-left: 20px; font-size: .93rem; }
summary { cursor: pointer; color: var(--link); margin-top: 12px; }
details table { margin-top: 10px; }
footer { font-size: .85rem; padding-bottom: 40px; overflow-wrap: anywhere; }
@media (max-width: 600px) {
  header, main, footer { padding-left: 12px; padding-right: 12px; }
  header { padding-top: 20px; }
  h1 { font-size: 1.4rem; }
  section { padding: 16px 14px; }
  .wide { display: none; }
  dl { grid-template-columns: repeat(2, 1fr); }
  th, td { padding-left: 10px; } }
)";
