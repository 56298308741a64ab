// How the report's page looks, in light and in dark.
#pragma once

namespace tool {

constexpr const char *kReportStyle = R"(
:root {
  color-scheme: light dark;
  --page: #f5f6f8; --card: #ffffff; --text: #1b2230; --muted: #5b6675; --border: #dfe3e9;
  --grid: #e8ebf0; --base: #aab2be; --shade: #f6c34433; --good: #17703a; --bad: #b3261e;
  --hue0: #2563c9; --hue1: #b45309; --hue2: #0f766e; --hue3: #7c3aed;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #12161d; --card: #1a2029; --text: #e6eaf0; --muted: #98a3b3; --border: #2c3440;
    --grid: #273040; --base: #566173; --shade: #f6c34426; --good: #5cc98a; --bad: #ff8a80;
    --hue0: #6ea8fe; --hue1: #f5a450; --hue2: #4fd1c0; --hue3: #b79cff;
  }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--text);
  font: 15px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Noto Sans", "DejaVu Sans", sans-serif; }
main { max-width: 1180px; margin: 0 auto; padding: 28px 20px 48px; }
h1 { font-size: 26px; line-height: 1.2; margin: 0 0 4px; }
h2 { font-size: 17px; margin: 0 0 8px; }
p { margin: 0; }
.address { font-size: 17px; overflow-wrap: anywhere; }
.muted { color: var(--muted); font-size: 13px; overflow-wrap: anywhere; }
.verdict { margin-top: 14px; padding: 10px 14px; border: 1px solid var(--bad); border-radius: 8px; color: var(--bad); }
.tiles { display: grid; grid-template-columns: repeat(auto-fit, minmax(108px, 1fr)); gap: 10px; margin: 16px 0; }
.tile { background: var(--card); border: 1px solid var(--border); border-radius: 10px; padding: 9px 10px; }
.tile span { display: block; color: var(--muted); font-size: 12px; }
.tile strong { display: block; font-size: 16px; font-weight: 600; font-variant-numeric: tabular-nums; }
.tile.bad strong { color: var(--bad); }
.tile.good strong { color: var(--good); }
section.facts { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 440px), 1fr)); gap: 14px; }
section.facts > div, .stream { background: var(--card); border: 1px solid var(--border); border-radius: 12px;
  padding: 16px 18px; }
.stream { margin-top: 14px; }
.stream .tile { background: var(--page); border: 0; }
.stream .tile strong { font-size: 15px; }
main > .muted { margin: 18px 4px 0; }
table { border-collapse: collapse; width: 100%; font-size: 14px; }
th, td { text-align: left; padding: 5px 12px 5px 0; border-top: 1px solid var(--border); vertical-align: top; }
tr:first-child > * { border-top: 0; }
th { font-weight: 400; color: var(--muted); white-space: nowrap; }
td { overflow-wrap: anywhere; }
td.number { text-align: right; white-space: nowrap; font-variant-numeric: tabular-nums; }
.events td:first-child { white-space: nowrap; }
.events { grid-column: 1 / -1; }
td.length { width: 40%; vertical-align: middle; padding-right: 0; }
td.length div { height: 8px; min-width: 1px; border-radius: 4px; background: var(--hue0); }
.hue0 { --hue: var(--hue0); } .hue1 { --hue: var(--hue1); } .hue2 { --hue: var(--hue2); } .hue3 { --hue: var(--hue3); }
h2 i { display: inline-block; width: 11px; height: 11px; border-radius: 3px; background: var(--hue); margin-right: 8px; }
.plots { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 440px), 1fr)); gap: 14px 26px; }
figure { margin: 0; }
svg { display: block; width: 100%; height: auto; overflow: visible;
  font: 12px system-ui, "Noto Sans", "DejaVu Sans", sans-serif; }
text { fill: var(--muted); }
text.title { fill: var(--text); font-size: 14px; font-weight: 600; }
.unit { fill: var(--muted); font-size: 12px; font-weight: 400; }
.value, .note { text-anchor: end; }
.time { text-anchor: middle; }
.grid { stroke: var(--grid); }
.base, .tick { stroke: var(--base); }
.shade { fill: var(--shade); }
.curve { fill: none; stroke: var(--hue); stroke-width: 1.8; stroke-linejoin: round; stroke-linecap: round; }
.area { fill: var(--hue); opacity: .13; }
.peak { fill: var(--hue); opacity: .22; }
.bar { fill: var(--bad); }
.hint { fill: transparent; }
.hint:hover { fill: var(--hue); opacity: .12; }
@media print, (max-width: 620px) { svg { font-size: 16px; } text.title { font-size: 18px; } .unit { font-size: 16px; } }
@media print {
  * { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
  body { background: #fff; }
  main { padding: 0; }
  section.facts, .plots { grid-template-columns: 1fr 1fr; }
  .stream { break-inside: avoid; }
}
)";

} // namespace tool
