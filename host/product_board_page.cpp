// The quote board served at / of tikron-host's web port: plain HTML and
// JavaScript, no external resources. It polls /api/stats every second and
// /api/tables every two seconds and draws the ingest rate on a canvas.
namespace product {

extern const char kBoardPage[];
const char kBoardPage[] = R"PAGE(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>tikron quote board</title>
<style>
body { font: 13px/1.4 system-ui, sans-serif; margin: 12px; color: #222; background: #fafafa; }
h1 { font-size: 18px; margin: 0 0 8px; }
h2 { font-size: 15px; margin: 16px 0 4px; }
#status { color: #666; margin-left: 8px; font-size: 12px; }
.row { display: flex; gap: 16px; flex-wrap: wrap; align-items: flex-start; }
.panel { background: #fff; border: 1px solid #ddd; border-radius: 4px; padding: 8px; }
#counters { display: grid; grid-template-columns: repeat(3, auto auto); gap: 1px 10px; max-width: 900px; }
#counters .v { text-align: right; font-variant-numeric: tabular-nums; }
table.data { border-collapse: collapse; font-size: 12px; }
table.data th { background: #eee; cursor: pointer; position: sticky; top: 0; white-space: nowrap; user-select: none; }
table.data th, table.data td { border: 1px solid #ddd; padding: 2px 6px; white-space: nowrap; }
table.data td.num { text-align: right; font-variant-numeric: tabular-nums; }
.scroll { max-height: 420px; overflow: auto; }
.tabs button { margin-right: 4px; }
.tabs button.on { font-weight: bold; }
#rate-text { margin-top: 4px; }
</style>
</head>
<body>
<h1>tikron quote board <span id="status">connecting...</span></h1>
<div class="row">
  <div class="panel">
    <canvas id="rate-chart" width="560" height="180"></canvas>
    <div id="rate-text">datagrams/s now <b id="rate-now">0</b>, peak <b id="rate-peak">0</b> (last minutes)</div>
  </div>
  <div class="panel" id="counters"></div>
</div>
<h2>Tables</h2>
<div class="tabs" id="tabs"></div>
<p>Filter (contract or exchange): <input id="filter" size="20" placeholder="e.g. IF2412 or F4">
  <span id="shown"></span></p>
<div class="panel scroll"><table class="data" id="table"></table></div>
<script>
"use strict";
const TABLES = [["single_leg", "single-leg"], ["extended", "extended single-leg"],
                ["arbitrage", "arbitrage"], ["exchange_status", "exchange status"]];
let current = "single_leg", tables = {}, sortCol = -1, sortDesc = false;

function el(tag, text, cls) {
  const e = document.createElement(tag);
  if (text !== undefined) e.textContent = text;
  if (cls) e.className = cls;
  return e;
}

// Flattens the figures into "group.name" rows of plain numbers.
function flatten(obj, prefix, out) {
  for (const [k, v] of Object.entries(obj)) {
    const key = prefix ? prefix + "." + k : k;
    if (typeof v === "number") out.push([key, v]);
    else if (v && typeof v === "object" && !Array.isArray(v) && k !== "rate" && k !== "latency") flatten(v, key, out);
  }
  return out;
}

function fmt(v) { return Number.isInteger(v) ? v.toLocaleString("en") : v.toFixed(2); }

function drawRate(rate) {
  const c = document.getElementById("rate-chart"), g = c.getContext("2d");
  const pts = rate.points || [], w = c.width, h = c.height, pad = 28;
  g.clearRect(0, 0, w, h);
  const max = Math.max(1, ...pts.map(p => p.rate));
  g.strokeStyle = "#ccc"; g.fillStyle = "#666"; g.font = "11px sans-serif";
  g.strokeRect(pad, 4, w - pad - 4, h - pad);
  g.fillText(fmt(Math.round(max)), 2, 14);
  g.fillText("0", 2, h - pad + 4);
  g.fillText("ingest rate, datagrams/s, last " + Math.round(pts.length / 60 * 10) / 10 + " min", pad + 4, h - 8);
  if (pts.length < 2) return;
  const t0 = pts[0].t, t1 = pts[pts.length - 1].t;
  g.strokeStyle = "#1565c0"; g.lineWidth = 1.5; g.beginPath();
  pts.forEach((p, i) => {
    const x = pad + (w - pad - 4) * (t1 > t0 ? (p.t - t0) / (t1 - t0) : 0);
    const y = 4 + (h - pad) * (1 - p.rate / max);
    if (i === 0) g.moveTo(x, y); else g.lineTo(x, y);
  });
  g.stroke();
}

function showStats(s) {
  document.getElementById("status").textContent =
    "updated " + new Date().toLocaleTimeString() + (s.plugin_figures ? "" : " (no plug-in figures)");
  const rate = s.rate || {points: []};
  document.getElementById("rate-now").textContent = fmt(Math.round(rate.now || 0));
  document.getElementById("rate-peak").textContent = fmt(Math.round(rate.peak || 0));
  drawRate(rate);
  const t = document.getElementById("counters");
  t.replaceChildren();
  const rows = flatten(s, "", []);
  const pubs = (s.publications || []).reduce((a, p) => a + p.count, 0);
  rows.push(["publications", pubs]);
  if (s.latency && s.latency.count) rows.push(["latency.mean_us", s.latency.sum_seconds / s.latency.count * 1e6]);
  for (const [k, v] of rows) t.append(el("span", k), el("span", fmt(v), "v"));
}

function isNum(v) { return typeof v === "number"; }

function cellText(v) { return v === null || v === undefined ? "" : typeof v === "number" ? String(v) : String(v); }

// Columns that name a contract or an exchange (the filter looks there).
function keyColumns(cols) {
  const out = [0];
  cols.forEach((c, i) => { if (i > 0 && /交易|exch/i.test(c.name || c)) out.push(i); });
  return out;
}

function showTable() {
  const t = document.getElementById("table"), ans = tables[current];
  t.replaceChildren();
  if (!ans || !ans.ok) { t.append(el("caption", ans ? ans.error : "loading...")); return; }
  const cols = ans.table.columns.map(c => c.name || c);
  let rows = ans.table.rows.slice();
  const f = document.getElementById("filter").value.trim().toLowerCase();
  if (f) {
    const keys = keyColumns(cols);
    rows = rows.filter(r => keys.some(i => cellText(r[i]).toLowerCase().includes(f)));
  }
  if (sortCol >= 0) {
    rows.sort((a, b) => {
      const x = a[sortCol], y = b[sortCol];
      const d = isNum(x) && isNum(y) ? x - y : cellText(x).localeCompare(cellText(y));
      return sortDesc ? -d : d;
    });
  }
  const head = el("tr");
  cols.forEach((c, i) => {
    const th = el("th", c + (i === sortCol ? (sortDesc ? " \u25bc" : " \u25b2") : ""));
    th.onclick = () => { sortDesc = sortCol === i ? !sortDesc : false; sortCol = i; showTable(); };
    head.append(th);
  });
  const thead = el("thead"); thead.append(head);
  const tbody = el("tbody");
  for (const r of rows) {
    const tr = el("tr");
    cols.forEach((_, i) => tr.append(el("td", cellText(r[i]), isNum(r[i]) ? "num" : "")));
    tbody.append(tr);
  }
  t.append(thead, tbody);
  document.getElementById("shown").textContent = rows.length + " of " + ans.table.rows.length + " rows";
}

function tabs() {
  const d = document.getElementById("tabs");
  d.replaceChildren();
  for (const [id, label] of TABLES) {
    const n = tables[id] && tables[id].ok ? tables[id].table.rows.length : 0;
    const b = el("button", label + " (" + n + ")", id === current ? "on" : "");
    b.id = "tab-" + id;
    b.onclick = () => { current = id; sortCol = -1; tabs(); showTable(); };
    d.append(b);
  }
}

async function poll(path, show) {
  try {
    const r = await fetch(path, {cache: "no-store"});
    show(await r.json());
  } catch (e) {
    document.getElementById("status").textContent = "no answer from tikron-host (" + e + ")";
  }
}

function refreshStats() { return poll("/api/stats", showStats); }
function refreshTables() { return poll("/api/tables", t => { tables = t; tabs(); showTable(); }); }

document.getElementById("filter").addEventListener("input", showTable);
tabs();
refreshStats();
refreshTables();
setInterval(refreshStats, 1000);
setInterval(refreshTables, 2000);
</script>
</body>
</html>
)PAGE";

}  // namespace product
