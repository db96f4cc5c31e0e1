// How the page looks: on a screen of any width, light and dark, and on paper. The colours of series differ in lightness
// from one to the next, so that they can be told apart without seeing colours; legends name them in the order in which
// they are stacked.
#pragma once

#include <string_view>

namespace netrove::cli {

inline constexpr std::string_view kPageStyle = R"(
:root { color-scheme: light dark; --page: #f4f6f9; --panel: #fff; --text: #1c2430; --faint: #566273; --line: #dfe4ec;
  --good: #18794e; --bad: #b42318; --value: #4a8ae0; --track: #eef1f6; --s0: #0072b2; --s1: #e69f00; --s2: #882255;
  --s3: #56b4e9; --s4: #117733; --s5: #d9c865; --s6: #8a95a6; }
@media (prefers-color-scheme: dark) {
  :root { --page: #12161c; --panel: #1a2029; --text: #e4e9f0; --faint: #9aa7b8; --line: #2d3643;
    --good: #4cc38a; --bad: #ff6b61; --value: #4a86d8; --track: #232b36; --s0: #3d9be0; --s1: #f2b134; --s2: #c2588f;
    --s3: #9bd6f7; --s4: #3f9d63; --s5: #efe3a4; --s6: #6b7788; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--text); font: 15px/1.5 system-ui, sans-serif; }
main { max-width: 1180px; margin: 0 auto; padding: 28px 20px 48px; }
h1 { margin: 0 0 4px; font-size: 28px; line-height: 1.2; letter-spacing: -.01em; overflow-wrap: anywhere; }
h1::before { content: ""; display: inline-block; width: .6em; height: .6em; margin-right: .45em; border-radius: 50%;
  background: var(--verdict); }
h2 { margin: 0; font-size: 17px; }
h3 { margin: 16px 0 4px; font-size: 13px; font-weight: 600; color: var(--faint); }
a { color: inherit; text-decoration-color: var(--faint); }
.faint, .note, footer, .csv { color: var(--faint); }
.faint { overflow-wrap: anywhere; }
.note { margin: 2px 0 12px; font-size: 13px; }
pre { margin: 14px 0 18px; padding: 10px 14px; background: var(--panel); border: 1px solid var(--line);
  border-radius: 8px; font: 13px/1.5 ui-monospace, monospace; white-space: pre-wrap; overflow-wrap: anywhere; }
.tiles { --n: var(--columns); display: grid; grid-template-columns: repeat(auto-fit,
  minmax(max(132px, calc(100% / var(--n) - 12px)), 1fr)); gap: 12px; margin: 0 0 18px; }
.tiles div { padding: 12px 16px; background: var(--panel); border: 1px solid var(--line); border-radius: 10px; }
.tiles dt { color: var(--faint); font-size: 13px; }
.tiles dd { margin: 0; font-size: 22px; line-height: 1.3; font-weight: 600; font-variant-numeric: tabular-nums; }
.tiles .bad dd, .bad-text { color: var(--bad); }
section { margin: 0 0 18px; padding: 18px 20px; min-width: 0; background: var(--panel); border: 1px solid var(--line);
  border-radius: 10px; }
.pair { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(440px, 100%), 1fr)); gap: 18px;
  margin: 0 0 18px; }
.trio { grid-template-columns: repeat(auto-fit, minmax(min(320px, 100%), 1fr)); }
.pair section { margin: 0; } .trio .values { min-width: 52px; }
.head { display: flex; align-items: baseline; gap: 12px; }
.csv { margin-left: auto; font-size: 13px; }
.wide { overflow-x: auto; }
.chart { display: grid; grid-template-columns: max-content minmax(0, 1fr); padding: 8px 18px 0 0; font-size: 12px;
  color: var(--faint); font-variant-numeric: tabular-nums; }
.chart .values, .chart .area { display: flex; flex-direction: column-reverse; justify-content: space-between;
  height: 170px; }
.values { min-width: 88px; }
.values span { padding-right: 8px; text-align: right; line-height: 0; white-space: nowrap; }
.area { position: relative; }
.area i { height: 0; border-top: 1px solid var(--line); }
.area svg { position: absolute; inset: 0; width: 100%; height: 100%; }
.marks { position: relative; grid-column: 2; height: 22px; }
.marks span { position: absolute; top: 4px; transform: translateX(-50%); white-space: nowrap; }
.hit { fill: var(--text); fill-opacity: 0; } .hit:hover { fill-opacity: .12; }
.done { fill: var(--value); --key: var(--value); } .bad { fill: var(--bad); --key: var(--bad); }
.s0 { fill: var(--s0); --key: var(--s0); } .s1 { fill: var(--s1); --key: var(--s1); }
.s2 { fill: var(--s2); --key: var(--s2); } .s3 { fill: var(--s3); --key: var(--s3); }
.s4 { fill: var(--s4); --key: var(--s4); } .s5 { fill: var(--s5); --key: var(--s5); }
.s6 { fill: var(--s6); --key: var(--s6); }
.legend { display: flex; flex-wrap: wrap; gap: 2px 18px; margin: 8px 0 0; padding: 0; font-size: 13px; list-style: none; }
.legend li { min-width: 0; overflow-wrap: anywhere; }
.legend i { display: inline-block; width: 11px; height: 11px; margin-right: 6px; border-radius: 2px;
  background: var(--key); }
.legend data { color: var(--faint); }
table { width: 100%; border-collapse: collapse; font-variant-numeric: tabular-nums; }
th { padding: 4px 14px 4px 0; border-bottom: 1px solid var(--line); color: var(--faint); font-size: 13px;
  font-weight: 600; text-align: left; white-space: nowrap; }
td { padding: 5px 14px 5px 0; border-bottom: 1px solid var(--line); vertical-align: top; }
tr:last-child td { border-bottom: 0; } th:last-child, td:last-child { padding-right: 0; }
th.n, td.n { text-align: right; white-space: nowrap; }
td.long { min-width: 190px; overflow-wrap: anywhere; }
.url { min-width: 200px; max-width: 400px; }
.url div { overflow: hidden; text-overflow: ellipsis; white-space: nowrap; }
.track { min-width: 80px; width: 24%; } #slowest .track { width: 30%; }
#slowest .when { min-width: 70px; width: 12%; } .when .bar { background: var(--faint); }
.bar { display: flex; height: 12px; margin-top: 5px; min-width: 3px; overflow: hidden; border-radius: 3px;
  background: var(--value); }
.bar.bad { background: var(--bad); }
.bar i { display: block; background: var(--key); }
.all .bar { height: 18px; margin: 0; }
table.small, details { font-size: 13px; } details { margin-top: 10px; } summary { cursor: pointer; color: var(--faint); }
footer { font-size: 13px; }
@media (max-width: 1100px) { .tiles div { padding: 12px 14px; } .tiles dd { font-size: 18px; } }
@media (max-width: 860px) { .tiles { --n: var(--narrow); } }
@media (max-width: 640px) {
  main { padding: 18px 12px 32px; } section { padding: 14px; } h1 { font-size: 23px; }
  .chart { padding-right: 14px; } .chart .values, .chart .area { height: 130px; }
  .values { min-width: 72px; } .marks span:nth-child(even) { display: none; }
  .track, .more { display: none; } #slowest .track:last-child { display: table-cell; } td.long { min-width: 150px; }
  .url { min-width: 0; max-width: 150px; }
  .tiles { gap: 8px; } .tiles div { padding: 9px 12px; } }
@media print {
  * { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
  body { background: none; font-size: 11pt; } main { max-width: none; padding: 0; }
  section, .tiles div, pre { border-color: #ccc; } .chart, tr, .tiles div { break-inside: avoid; }
  .wide { overflow: visible; } .csv, summary { display: none; } }
)";

} // namespace netrove::cli
