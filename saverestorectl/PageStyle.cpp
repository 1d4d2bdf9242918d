#include "saverestorectl/PageStyle.h"

const char *pageStyle()
{
    return R"(
:root { color-scheme: light dark; --page: #f6f7f9; --card: #fff; --text: #1c2430; --faint: #5b6675; --edge: #d9dee6;
  --good: #1a7f4b; --bad: #b42318; --doubt: #9a6700; --wait: #e0a030; --copy: #c2413b; --hold: #8d5bb5;
  --stage: #2f6fd0; --send: #2d9d78; }
@media (prefers-color-scheme: dark) { :root { --page: #12161c; --card: #1b212a; --text: #e6eaf0; --faint: #9aa7b8;
  --edge: #323b48; --good: #4cc38a; --bad: #ff7a6e; --doubt: #e3b341; --wait: #e3b341; --copy: #ef6f66;
  --hold: #b48ade; --stage: #6ea8fe; --send: #4cc3a0; } }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 1rem; max-width: 70rem; background: var(--page); color: var(--text);
  font: 16px/1.5 system-ui, sans-serif; }
h1 { font-size: 1.5rem; margin: 0.5rem 0; } h2 { font-size: 1.2rem; margin: 0 0 0.5rem; } h3 { font-size: 1rem; margin: 1rem 0 0.25rem; }
p { margin: 0.25rem 0; } .faint, .count, .legend, figcaption { color: var(--faint); font-size: 0.875rem; }
section { background: var(--card); border: 1px solid var(--edge); border-radius: 0.6rem; padding: 1rem; margin: 1rem 0; }
.code { display: inline-block; padding: 0 0.6rem; border-radius: 1rem; border: 1px solid; font-size: 0.875rem; }
.good { color: var(--good); } .bad { color: var(--bad); } .doubt { color: var(--doubt); }
.totals { display: grid; grid-template-columns: repeat(auto-fit, minmax(8.5rem, 1fr)); gap: 0.5rem; margin: 0.75rem 0; padding: 0; }
.totals div { border: 1px solid var(--edge); border-radius: 0.4rem; padding: 0.4rem 0.7rem; }
.totals dt { color: var(--faint); font-size: 0.8rem; } .totals dd { margin: 0; font-size: 1.1rem; font-weight: 600; }
.totals small { display: block; font-weight: 400; color: var(--faint); }
.group { display: grid; grid-template-columns: minmax(6rem, 14rem) 1fr; gap: 0.75rem; align-items: center; margin: 0.2rem 0; }
.group > span { overflow-wrap: anywhere; font-size: 0.875rem; } svg { display: block; } .legend svg { display: inline; vertical-align: -1px; }
.legend span { margin-right: 1rem; white-space: nowrap; }
.ground { fill: var(--edge); } .wait { fill: var(--wait); } .copy { fill: var(--copy); } .hold { fill: var(--hold); }
.stage { fill: var(--stage); } .send { fill: var(--send); }
.axis { overflow: visible; } .axis text { fill: var(--faint); font-size: 11px; } .axis line { stroke: var(--faint); }
details { margin: 0.5rem 0; } summary { cursor: pointer; font-weight: 600; } .wide { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; font-size: 0.875rem; margin: 0.3rem 0; }
th, td { text-align: left; padding: 0.25rem 0.6rem; border-bottom: 1px solid var(--edge); vertical-align: top; }
td { overflow-wrap: anywhere; font-variant-numeric: tabular-nums; } th { color: var(--faint); font-weight: 600; white-space: nowrap; }
td.digest, code { font-family: ui-monospace, monospace; font-size: 0.8rem; }
@media (max-width: 40rem) { body { padding: 0.5rem; } section { padding: 0.75rem; border-radius: 0.3rem; }
  .group { grid-template-columns: 1fr; gap: 0; margin: 0.5rem 0; } table { min-width: 34rem; } th, td { padding: 0.2rem 0.35rem; } }
@media print { :root { color-scheme: light; --page: #fff; --card: #fff; --text: #000; --faint: #444; --edge: #bbb; }
  body { max-width: none; padding: 0; font-size: 10pt; } section { border: 0; padding: 0; } .wide { overflow: visible; }
  details::details-content { content-visibility: visible; display: block; block-size: auto; }
  table { min-width: 0; } tr, .group { break-inside: avoid; } svg { print-color-adjust: exact; -webkit-print-color-adjust: exact; } }
)";
}
