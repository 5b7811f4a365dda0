// How reports look, and what moves in them.
#ifndef KVJPX_TOOLS_REPORT_STYLE_H_
#define KVJPX_TOOLS_REPORT_STYLE_H_

namespace kvjpx_tool {

// Colours are for roles of boxes and for severities only, and never alone: words or labels say the
// same. Printers get all that is folded.
constexpr char kReportStyle[] = R"css(
:root {
  color-scheme: light dark;
  --paper: #fcfcfa; --panel: #f3f3ef; --ink: #1c2024; --soft: #5a6169; --line: #dcdcd5;
  --link: #1f5a8c; --error: #a3232b; --warning: #8a5a00; --note: #4a5a68;
  --structure: #a9afb6; --header: #7fa3c4; --codestream: #d9b679; --composition: #b79ac0;
  --metadata: #8db58f; --unknown: #c9958c; --on-map: #16191c;
}
@media (prefers-color-scheme: dark) {
  :root {
    --paper: #15171a; --panel: #1d2024; --ink: #e4e6e8; --soft: #9da5ad; --line: #33383e;
    --link: #8fbce6; --error: #f0898f; --warning: #e2b45c; --note: #a9b8c6;
    --structure: #6b737c; --header: #5f88ae; --codestream: #b48f4f; --composition: #94749e;
    --metadata: #6b966e; --unknown: #aa7167; --on-map: #0d0f11;
  }
}
* { box-sizing: border-box; }
html { scroll-behavior: smooth; scroll-padding-top: 1rem; }
@media (prefers-reduced-motion: reduce) { html { scroll-behavior: auto; } }
body {
  margin: 0 auto; padding: 2.5rem 1.5rem 4rem; max-width: 68rem;
  background: var(--paper); color: var(--ink);
  font: 1rem/1.55 system-ui, "Segoe UI", Roboto, "Helvetica Neue", "Noto Sans", sans-serif;
}
a { color: var(--link); text-decoration-thickness: 1px; text-underline-offset: 0.2em; }
:focus-visible { outline: 2px solid var(--link); outline-offset: 2px; border-radius: 3px; }
code, pre, .mono { font-family: ui-monospace, "Cascadia Mono", "DejaVu Sans Mono", monospace; font-size: 0.875em; }
bdi, code, pre, dd, h1 { unicode-bidi: isolate; overflow-wrap: anywhere; }
.skip { position: absolute; left: -100rem; padding: 0.5rem 1rem; background: var(--panel); }
.skip:focus { left: 1rem; top: 1rem; }
.soft { color: var(--soft); }
.num { font-variant-numeric: tabular-nums; white-space: nowrap; }
header { display: flex; flex-wrap: wrap; gap: 1.5rem 2rem; align-items: center; }
header > div:last-child { flex: 1 1 18rem; min-width: 0; }
header p { margin: 0.4rem 0 0; }
h1 { margin: 0; font-size: 2rem; font-weight: 600; line-height: 1.2; letter-spacing: -0.015em; }
h2 { margin: 3rem 0 0.9rem; padding-bottom: 0.4rem; border-bottom: 1px solid var(--line);
     font-size: 1.15rem; font-weight: 600; letter-spacing: -0.005em; }
h3 { margin: 1.5rem 0 0.5rem; font-size: 1rem; font-weight: 600; }
figure { margin: 0; }
figure img { display: block; max-width: min(100%, 20rem); max-height: 14rem; border-radius: 4px;
             box-shadow: 0 0 0 1px var(--line); background: var(--panel); }
.nothing { max-width: 20rem; padding: 1rem 1.25rem; border: 1px dashed var(--line); border-radius: 4px;
           color: var(--soft); font-size: 0.9rem; }
nav ul { display: flex; flex-wrap: wrap; gap: 0.3rem 1.5rem; margin: 1.6rem 0 0; padding: 0; list-style: none; }
dl { display: grid; grid-template-columns: minmax(7rem, max-content) minmax(0, 1fr); gap: 0.3rem 1.5rem; margin: 0; }
dt { color: var(--soft); }
dd { margin: 0; }
.findings { margin: 0; padding: 0; list-style: none; }
.findings li { padding: 0.6rem 0; border-bottom: 1px solid var(--line); }
.findings p { margin: 0; }
.error, .warning, .note { font-weight: 600; }
.error { color: var(--error); } .warning { color: var(--warning); } .note { color: var(--note); }
.k-structure { --role: var(--structure); } .k-header { --role: var(--header); }
.k-codestream { --role: var(--codestream); } .k-composition { --role: var(--composition); }
.k-metadata { --role: var(--metadata); } .k-unknown { --role: var(--unknown); }
.legend { display: flex; flex-wrap: wrap; gap: 0.2rem 1.2rem; margin: 0 0 0.8rem; padding: 0; list-style: none;
          font-size: 0.875rem; color: var(--soft); }
.legend li::before { content: ""; display: inline-block; width: 0.8em; height: 0.8em; margin-right: 0.45em;
                     border-radius: 2px; background: var(--role); }
.map { overflow-x: auto; padding: 3px; }
.cells { display: flex; gap: 2px; }
.cell { flex: 1 1 0; min-width: 9px; }
.cell > .cells { margin-top: 2px; }
.cell:has(> .cells) { min-width: min-content; }
.cell > a, .cell > span { display: block; height: 2.4rem; overflow: hidden; container-type: inline-size;
  background: var(--role); color: var(--on-map); border-radius: 2px; line-height: 2.4rem; text-decoration: none;
  white-space: nowrap; font-size: 0.8rem; }
.cell > a:hover { filter: brightness(1.12); }
.cell > a > span, .cell > span > span { padding: 0 0.35rem; }
@container (max-width: 2.6rem) { .cell span > span, .cell a > span { visibility: hidden; } }
.scale { display: flex; justify-content: space-between; margin: 0.3rem 3px 0; font-size: 0.8rem; color: var(--soft); }
.tools { display: flex; gap: 0.6rem; margin: 0 0 0.8rem; }
button { padding: 0.25rem 0.8rem; border: 1px solid var(--line); border-radius: 4px; background: var(--panel);
         color: inherit; font: inherit; font-size: 0.875rem; cursor: pointer; }
.tree, .tree ul { margin: 0; padding: 0; list-style: none; }
.tree ul { margin-left: 0.55rem; padding-left: 1.1rem; border-left: 1px solid var(--line); }
.tree > ul { margin: 0; padding: 0; border: 0; }
.tree .more { padding: 0.3rem 0.2rem; }
summary { display: flex; flex-wrap: wrap; gap: 0 0.9rem; align-items: baseline; padding: 0.28rem 0.3rem; cursor: pointer;
          border-radius: 4px; list-style: none; }
summary::-webkit-details-marker { display: none; }
summary::before { content: "\25B8"; width: 0.8em; color: var(--soft); }
details[open] > summary::before { content: "\25BE"; }
summary:hover { background: var(--panel); }
details:target > summary { background: var(--panel); box-shadow: inset 3px 0 0 var(--link); }
summary > code { padding: 0 0.4em; border-radius: 3px; background: var(--role, transparent); white-space: pre; }
.tree summary > code { color: var(--on-map); }
summary > .num { color: var(--soft); font-size: 0.875rem; }
summary > .place { margin-left: auto; }
.body { margin: 0.2rem 0 0.8rem 1.65rem; font-size: 0.925rem; }
.body dl { grid-template-columns: minmax(5rem, max-content) minmax(0, 1fr); }
.mark { color: var(--warning); font-size: 0.875rem; }
pre { max-height: 26rem; margin: 0.6rem 0; padding: 0.8rem 1rem; overflow: auto; background: var(--panel);
      border-radius: 4px; white-space: pre-wrap; tab-size: 2; }
table { width: 100%; border-collapse: collapse; font-size: 0.9rem; }
th, td { padding: 0.3rem 0.9rem 0.3rem 0; border-bottom: 1px solid var(--line); text-align: left; vertical-align: top; }
th { color: var(--soft); font-weight: 500; }
.wide { overflow-x: auto; }
footer { margin-top: 3rem; color: var(--soft); font-size: 0.85rem; }
@media (max-width: 40rem) {
  body { padding: 1.2rem 1rem 3rem; }
  dl { grid-template-columns: 1fr; gap: 0; }
  dd { margin-bottom: 0.6rem; }
  .body, .tree ul { margin-left: 0.3rem; }
  .tree ul { padding-left: 0.6rem; }
}
@media print {
  :root {
    color-scheme: light;
    --paper: #fff; --panel: #f6f6f6; --ink: #000; --soft: #444; --line: #ccc; --link: #000;
    --error: #8a1018; --warning: #6b4500; --note: #333; --on-map: #000;
    --structure: #c4c9ce; --header: #a9c3db; --codestream: #e6cfa3; --composition: #cdb8d3;
    --metadata: #b2cfb3; --unknown: #dcb5ae;
  }
  body { max-width: none; padding: 0; font-size: 10pt; }
  nav, .tools, .skip { display: none; }
  details::details-content { content-visibility: visible; block-size: auto; }
  summary::before { content: none; }
  pre { max-height: none; }
  h2, summary { break-after: avoid; }
  .cell > a, .cell > span { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
}
)css";

// Everything works without it but the two buttons, and the unfolding of prints where browsers do
// not style what is folded.
constexpr char kReportScript[] = R"js(
const folds = document.querySelectorAll("details");
const unfold = open => folds.forEach(fold => { fold.open = open; });
for (const button of document.querySelectorAll("button")) {
  button.onclick = () => unfold(button.value === "open");
}
document.querySelectorAll(".tools").forEach(tools => { tools.hidden = false; });
addEventListener("beforeprint", () => unfold(true));
)js";

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_REPORT_STYLE_H_
