// SPDX-License-Identifier: MIT
//
// Draws a drive from its facts, as --json writes them. What a fact holds is shown as text and
// nothing else. Times are seconds of drive time; `steps` are a value over time, [{at, value}...].
(() => {
"use strict";

const facts = document.getElementById("facts").textContent.split("\n").filter(line => line)
  .map(line => JSON.parse(line));
facts.forEach(fact => { fact.at = fact.t || 0; fact.value = String(fact.value); }); // what came before drive time 0 stands there
const of = kind => facts.filter(fact => fact.kind === kind);
const end = Math.max(0.1, d3.max(facts, fact => fact.at));
const speedLimit = 15;

// What a lane shows.

// The value over time as the functions give it, each for the facts of a kind; undefined: it stays.
function steps(first, kinds) {
  const list = [{at: 0, value: first}];
  facts.filter(fact => kinds[fact.kind]).forEach(fact => {
    const value = kinds[fact.kind](fact);
    if (value !== undefined && value !== list[list.length - 1].value)
      list.push({at: fact.at, value});
  });
  return list;
}

// A journal does not tell how a board was that nobody plays.
const isExplained = of("result").some(fact => fact.value === "explained");
const atFirst = value => isExplained ? "not told" : value;
const isStop = fact => isExplained && fact.kind === "log" && fact.subject.startsWith("=== avm stop");

const car = subject => steps("", {car: fact => fact.subject === subject ? fact.value : undefined});

// Of a comparison the page shows the drive with controller A, and picture and why with B too.
const isCompared = of("B power").length > 0;
const whose = side => side || (isCompared ? "A " : "");

function picture(side) {
  return band("picture", 42, steps(isExplained ? "?" : "off", {[side + "power"]: fact => fact.value === "on" ? "PVM" : "off",
    [side + "picture"]: fact => fact.value}), whose(side) + "picture");
}

// What is not as somebody wishes: the other picture is not shown, or nobody draws this one.
const wishOf = fact => (fact.unmet ? [`not ${fact.subject === "PVM" ? "DA" : "PVM"}: ${fact.unmet}`] : [])
  .concat(fact.value.split("; ").slice(1)).join("; ");
// Why the picture is shown and, below a ✗, why the other is not, as the bench has read it.
function why(side) {
  return band("why", 30, steps("", {[side + "why"]: fact => [fact.value.split("; ")[0], wishOf(fact)].filter(text => text).join("\n✗ ")}),
    whose(side) + "why");
}

function renderer() {
  const off = new Set();
  let isRunning = isExplained; // who tells flags runs
  return steps(atFirst("not running"), {log: fact => isStop(fact) ? "no heartbeat" : undefined, renderer: fact => {
    const [what, value] = fact.value.split(" ");
    if (what === "started" || what === "ended") {
      isRunning = what === "started";
      off.clear();
    } else {
      off[value === "off" ? "add" : "delete"](what);
    }
    return isRunning ? ["running", ...off].join(", no ") : "not running";
  }});
}

// A line that cannot be read has no level.
function lineLevel(line) {
  const levels = {on: "1", off: "0", pressed: "1", released: "0"};
  let level = line.value;
  return steps(level, {
    power: fact => fact.value === "on" && !line.input ? line.value : undefined,
    gpio: fact => fact.subject === line.subject ? fact.value : undefined,
    input: fact => {
      if (fact.subject !== line.input)
        return undefined;
      level = levels[fact.value] || level;
      return fact.value in levels || fact.value === "readable" ? level : fact.value;
    },
  });
}

const seen = (items, at) => items.filter(item => item.at <= at);
const isFedAt = at => of("watchdog").some(fact => fact.value === "fed" && fact.at <= at && at - fact.at < 2.5);

// A radar that has seen nothing takes one row.
function radar() {
  const all = [5, 4, 3, 2, 1, 0].map(sensor => band("radar", 11, car("radar " + sensor), "radar " + sensor));
  return all.some(lane => lane.steps.some(step => Number(step.value))) ? all
    : [band("radar", 11, steps("", {}), "radar")];
}

// The lanes, from the top.

const band = (name, height, list, title) =>
  ({name, title: title || name, height, steps: list, draw: drawBands, read: at => valueAt(list, at)});
const curve = (name, height, list, title, top, notes = []) => // up to `top` at least, the notes ruled
  ({name, title, height, steps: list, top, notes, draw: drawCurve, read: at => valueAt(list, at)});
const lastOf = items => at => (seen(items, at).pop() || {label: ""}).label;
const marks = (name, rows, items, read = lastOf(items)) =>
  ({name, title: name, height: 16 * rows, rows, items, draw: drawMarks, read});

const mark = (fact, shape, label, detail) => ({at: fact.at, shape, label, detail});
const settled = of("expect").map(fact => Object.assign({from: fact.asked}, fact.value === "held"
  ? mark(fact, "circle", "", `line ${fact.line}: ${fact.text}`)
  : mark(fact, "cross", fact.subject, `line ${fact.line}: ${fact.text}`)));
const differences = of("difference").map(fact => mark(fact, fact.value === "A" ? "triangle-up" : "triangle-down",
  fact.value, `only with ${fact.value}: ${fact.subject}`));
const isFailed = item => item.shape === "cross";
const feeds = of("watchdog");
const gaps = feeds.map((fact, i) => ({fact, until: (feeds[i + 1] || {at: end}).at}))
  .filter(gap => gap.fact.value === "fed" && gap.until - gap.fact.at > 2.5).map(gap => Object.assign({until: gap.until},
    mark(gap.fact, "square", "not fed", `not fed for ${(gap.until - gap.fact.at).toFixed(1)} s`)));
// For longer than a script takes, or the 100 ms: wishes that were not fulfilled, and PVM that nobody draws.
const unmet = of("why").map((fact, i, all) => ({fact, until: (all[i + 1] || {at: end}).at}))
  .filter(wish => wishOf(wish.fact) && wish.until - wish.fact.at >= 0.5);
const lanes = [
  picture(""),
  why(""),
  ...(isCompared ? [picture("B "), why("B "), marks("differences", 2, differences)] : []),
  marks("drive", 4, of("do").map(fact =>
    mark(fact, "triangle-down", fact.subject, `line ${fact.line}: ${fact.subject}`))),
  band("gear", 16, car("gear")),
  band("light", 16, car("light"), "turn light"),
  band("key", 16, car("key")),
  band("renderer", 18, renderer()),
  curve("speed", 54, car("speed"), "speed", 20, [speedLimit]),
  curve("angle", 44, car("angle"), "steering angle", 100, [0]),
  ...radar(),
  marks("commands", 2, of("command").map(fact => Object.assign({until: fact.at + Number(fact.value)},
    mark(fact, "square", fact.subject.replace("/etc/set_t840", ""), `${fact.subject}, takes ${fact.value} s`),
    {short: fact.subject.split(" ")[fact.subject.startsWith("/etc/") ? "pop" : "shift"]().replace("/etc/set_t840", "")}))),
  marks("watchdog", 1, facts.filter(isStop).map(fact => mark(fact, "square", "no heartbeat", "no longer fed"))
    .concat(feeds.map(fact => fact.value === "fed" ? mark(fact, "diamond", "", "watchdog fed")
      : mark(fact, "square", fact.value, "watchdog " + fact.value)), gaps).sort((a, b) => a.at - b.at), at => atFirst(isFedAt(at) ? "fed" : "not fed")),
  marks("expectations", 2, settled, at => `${seen(settled, at).length} ✗`
    + seen(settled, at).filter(isFailed).length),
  band("power", 14, steps(atFirst("off"), {power: fact => fact.value})),
  band("bus", 14, steps(atFirst("down"), {power: fact => fact.value === "off" ? "down" : undefined,
    bus: fact => fact.value === "connected" ? undefined : fact.value}), "can0"),
  ...of("line").map(line => curve("level", 13, lineLevel(line), `${line.subject} ${line.name}`, 1)),
];

// Drawing.

const left = 196, right = 14, top = 22, gap = 3;
const height = top + gap + d3.sum(lanes, lane => lane.height + gap);
let width, now = 0, isHeld = false, chosen = null;
const x = d3.scale.linear();
const zoom = d3.behavior.zoom().scaleExtent([1, Math.max(1, end / 0.05)]).on("zoom", keepInside);
const valueAt = (list, at) => list[Math.max(0, d3.bisector(step => step.at).right(list, at) - 1)].value;
const seconds = at => at.toFixed(3);
const cut = (text, room, perLetter = 6.3) => text.length * perLetter <= room ? text
  : room < 18 ? "" : text.slice(0, room / perLetter - 1) + "…";

const svg = d3.select("#lanes svg");
const axis = svg.append("g").attr("class", "axis").attr("transform", `translate(${left},${top})`);
const plot = svg.append("g").attr("class", "plot").attr("transform", `translate(${left},0)`);
plot.append("rect").attr("class", "catcher").attr("height", height);
lanes.forEach((lane, i) => {
  lane.y = top + gap + d3.sum(lanes.slice(0, i), above => above.height + gap);
  const label = svg.append("g").attr("transform", `translate(0,${lane.y + Math.min(lane.height / 2 + 4, 20)})`);
  label.append("text").attr("class", "name").text(lane.title);
  lane.reading = label.append("text").attr("class", "reading").attr("x", left - 10);
  lane.plot = plot.append("g").attr("class", "lane " + lane.name).attr("transform", `translate(0,${lane.y})`);
  lane.plot.append("rect").attr("class", "background").attr("height", lane.height).style("pointer-events", "none");
  lane.content = lane.plot.append("g").attr("class", "content").attr("clip-path", "url(#inside)");
});
const cursor = plot.append("g").attr("class", "cursor");
cursor.append("line").attr("y1", top).attr("y2", height);
cursor.append("text").attr("y", 14);

function drawBands(lane) {
  const ends = lane.steps.slice(1).concat({at: end});
  const pieces = lane.steps.map((step, i) => ({value: step.value, at: `${seconds(step.at)} to ${seconds(ends[i].at)}`, from: x(step.at), to: x(ends[i].at)}))
    .filter(piece => piece.value && piece.value !== "0" && piece.to > Math.max(0, piece.from) && piece.from < width);
  const bands = lane.content.selectAll(".band").data(pieces).enter().append("g").attr("class", "band")
    .classed("hatched", piece => /✗|not running|not told|no heartbeat|^off$|^down$|^\?$/.test(piece.value)).attr("data-value", piece => piece.value);
  bands.each(function (piece) {
    const from = Math.max(0, piece.from) + 4, to = Math.min(width, piece.to);
    d3.select(this).append("title").text(`${piece.at}\n${piece.value}`);
    d3.select(this).append("rect").attr("x", from - 4).attr("width", Math.max(1, to - from + 4)).attr("height", lane.height);
    piece.value.split("\n").forEach((line, i, all) => d3.select(this).append("text").text(cut(line, to - from, 6))
      .attr("x", from).attr("y", lane.height / 2 + 4 + (i - (all.length - 1) / 2) * 13));
  });
}

function drawCurve(lane) {
  const points = lane.steps.concat({at: end, value: valueAt(lane.steps, end)}).filter(point => point.value);
  const numbers = points.map(point => Number(point.value)).filter(isFinite).concat(0, lane.top);
  const scale = d3.scale.linear().range([lane.height - 3, 3]).domain(d3.extent(numbers));
  const group = lane.content.append("g").attr("class", "curve");
  group.append("path").attr("d", d3.svg.line().interpolate("step-after").defined(point => isFinite(point.value))
    .x(point => x(point.at)).y(point => scale(point.value))(points));
  lane.notes.forEach(value => {
    group.append("path").attr("class", "limit").attr("d", `M0,${scale(value)}H${width}`);
    group.append("text").attr("x", 3).attr("y", scale(value) - 2).text(value);
  });
}

function drawMarks(lane) {
  lane.items.forEach((item, i) => {
    const from = Math.min(item.at, "from" in item ? item.from : item.at), until = Math.max(item.at, item.until || 0);
    const group = lane.content.append("g").attr("transform", `translate(0,${16 * (i % lane.rows) + 8})`)
      .attr("class", "mark").classed({failed: isFailed(item), chosen: item === chosen}).on("click", () => choose(item));
    group.append("title").text(seconds(item.at) + "  " + item.detail);
    group.append("rect").attr("x", x(from)).attr("y", item.until ? 6 : -1).attr("width", x(until) - x(from)).attr("height", 2);
    group.append("path").attr("d", d3.svg.symbol().type(item.shape).size(isFailed(item) ? 90 : 36))
      .attr("transform", `translate(${x(item.at)},0)` + (isFailed(item) ? "rotate(45)" : ""));
    const next = lane.items[i + lane.rows], room = (next ? x(next.at) : width) - x(item.at) - 14;
    const label = item.short && cut(item.label, room) !== item.label ? item.short : item.label;
    group.append("text").attr("x", x(item.at) + 7).attr("y", 4).text(cut(label, room));
  });
}

function redraw() {
  plot.selectAll(".lane .content > *").remove();
  lanes.forEach(lane => lane.draw(lane));
  axis.call(d3.svg.axis().scale(x).orient("top").ticks(width / 90).tickFormat(at => Number(at.toFixed(6)) + " s"));
  showCursor();
}

function showCursor(at = now) {
  now = Math.min(end, Math.max(0, at));
  cursor.style("display", x(now) >= 0 && x(now) <= width ? null : "none").classed("held", isHeld)
    .attr("transform", `translate(${x(now)},0)`).select("text").text(seconds(now));
  lanes.forEach(lane => lane.reading.text(cut(lane.read(now), left - 22 - lane.title.length * 5.8, 7)));
  const reason = seen(of("why"), now).pop() || {subject: "", value: "", unmet: ""};
  document.getElementById("why").textContent = `${seconds(now)} s: ${reason.subject}, ${reason.value.split("; ")[0]}.`
    + (wishOf(reason) ? ` ✗ ${wishOf(reason)}.` : "");
  const current = seen(log, now).length - 1, box = document.getElementById("log");
  entries.classed("now", (fact, i) => i === current);
  box.scrollTop = (entries[0][current] || {offsetTop: 0}).offsetTop - box.clientHeight / 2;
}

// Holds the cursor there and sees to it that it is in view.
function goTo(at) {
  const [from, to] = x.domain();
  isHeld = true;
  showCursor(at);
  if (now < from || now > to)
    view(now - (to - from) / 2, now + (to - from) / 2);
}

const failures = of("failure").map(fact => fact.settled).concat(of("difference").map(fact => fact.at), unmet.map(wish => wish.fact.at))
  .sort((a, b) => a - b);
function goToFailure(at) {
  if (at !== undefined)
    goTo(at);
}

function choose(item) {
  d3.event.stopPropagation();
  chosen = item;
  document.getElementById("detail").textContent = `${seconds(item.at)} s, ${item.detail}`;
  goTo(item.at);
  redraw();
}

function view(from, to) {
  const scale = Math.min(zoom.scaleExtent()[1], Math.max(1, end / (to - from)));
  zoom.scale(scale).translate([-from / end * width * scale, 0]);
  keepInside();
}

function keepInside() {
  zoom.translate([Math.min(0, Math.max(width * (1 - zoom.scale()), zoom.translate()[0])), 0]);
  redraw();
}

function layOut() {
  const [from, to] = width ? x.domain() : [0, end];
  width = Math.max(200, document.getElementById("lanes").clientWidth - left - right);
  svg.attr("viewBox", `0 0 ${left + width + right} ${height}`);
  svg.select("#inside rect").attr("x", -6).attr("width", width + 12).attr("height", height);
  svg.selectAll(".catcher, .background").attr("width", width);
  zoom.x(x.domain([0, end]).range([0, width])).scale(1).translate([0, 0]);
  view(from, to);
}

// Head and log.

const fill = (list, kind, tag) => d3.select(list).selectAll(tag).data(of(kind)).enter().append(tag);
const name = of("drive").map(fact => fact.subject).join(), result = of("result").map(fact => fact.value).join();
document.title = name + ": " + result;
d3.select("#name").text(name);
d3.select("#result").text({FAILED: "✗ ", held: "✓ "}[result] || "").classed("failed", result === "FAILED")
  .append("span").text(result);
fill("#remarks", "remark", "li").text(fact => fact.subject);
fill("#failures", "failure", "li").append("a").attr("href", "#why").text(fact => fact.subject)
  .on("click", fact => { d3.event.preventDefault(); goTo(fact.settled); });
d3.select("#unmet").selectAll("li").data(unmet.slice(0, 12)).enter().append("li").append("a").attr("href", "#why")
  .text(wish => `${seconds(wish.fact.at)} to ${seconds(wish.until)} ✗ ${wish.fact.subject}, ${wishOf(wish.fact)}`)
  .on("click", wish => { d3.event.preventDefault(); goTo(wish.fact.at); });
if (unmet.length > 12)
  d3.select("#unmet").append("li").text(`and ${unmet.length - 12} more: key n`);
const figures = fill("#figures", "figure", "div");
figures.append("dt").text(fact => fact.subject.replace(/_/g, " "));
figures.append("dd").text(fact => Number(Number(fact.value).toFixed(3)));
const log = of("log");
const entries = fill("#log", "log", "li").on("click", fact => goTo(fact.at));
entries.append("time").text(fact => fact.t === null ? "boot" : seconds(fact.at));
entries.append("span").text(fact => fact.subject);
entries.classed("cut", fact => fact.cut);

// Mouse and keys.

plot.call(zoom).on("mousemove", function () {
  if (!isHeld)
    showCursor(x.invert(d3.mouse(this)[0]));
}).on("click", function () {
  if (d3.event.defaultPrevented) // the end of a drag
    return;
  isHeld = !isHeld;
  showCursor(x.invert(d3.mouse(this)[0]));
});
d3.select(document).on("keydown", () => {
  const [from, to] = x.domain(), span = to - from, about = Math.min(to, Math.max(from, now));
  const keys = {
    "+": () => view(about - (about - from) / 1.5, about + (to - about) / 1.5),
    "-": () => view(about - (about - from) * 1.5, about + (to - about) * 1.5),
    "0": () => view(0, end),
    PageUp: () => view(from - span / 2, to - span / 2),
    PageDown: () => view(from + span / 2, to + span / 2),
    ArrowLeft: () => goTo(now - span / 100),
    ArrowRight: () => goTo(now + span / 100),
    n: () => goToFailure(failures.find(at => at > now)),
    p: () => goToFailure(failures.filter(at => at < now).pop()),
  };
  // The log scrolls by itself while it has the focus.
  if (d3.event.target.id === "log" && /Page|Arrow/.test(d3.event.key))
    return;
  if (!keys[d3.event.key] || d3.event.ctrlKey || d3.event.metaKey || d3.event.altKey)
    return;
  d3.event.preventDefault();
  keys[d3.event.key]();
});
d3.select("#with-log").on("change", function () { document.body.classList.toggle("with-log", this.checked); });
d3.select(window).on("resize", layOut);
now = of("failure").length ? d3.min(of("failure"), fact => fact.settled) : failures.length ? failures[0] : d3.sum(of("run"), fact => fact.opens_at || 0);
layOut();
})();
