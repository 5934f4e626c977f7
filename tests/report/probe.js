// SPDX-License-Identifier: MIT
//
// Looks at a report and uses it as a person would. What it finds it writes into the page, an item a
// line: a failure begins with FAIL, and the picture's changes with `picture`.
(() => {
  const found = [];
  const expect = (holds, what) => { if (!holds) found.push("FAIL " + what); };
  const all = selector => [...document.querySelectorAll(selector)];
  const text = selector => document.querySelector(selector).textContent;
  const facts = text("#facts").trim().split("\n").map(line => JSON.parse(line));
  const of = kind => facts.filter(fact => fact.kind === kind);
  const end = Math.max(...facts.map(fact => fact.t || 0));
  const plot = document.querySelector(".catcher");
  const cursor = () => Number(text(".cursor text"));
  const reading = lane => all(".name").find(name => name.textContent === lane).nextSibling.textContent;
  const bandTime = band => band.querySelector("rect").getAttribute("x") / plot.getAttribute("width") * end;
  const act = (target, type, more) => target.dispatchEvent(
    new (type === "wheel" ? WheelEvent : type === "keydown" ? KeyboardEvent : MouseEvent)(type,
      Object.assign({bubbles: true, cancelable: true, view: window}, more)));
  // A mouse knows whole pixels: the one at this share of the plot, and the time that it shows.
  const place = share => {
    const box = plot.getBoundingClientRect(), clientX = Math.floor(box.left + box.width * share);
    return {clientX, clientY: box.top + box.height / 2, time: (clientX - box.left) / box.width * end};
  };
  const near = (a, b) => Math.abs(a - b) <= 0.001; // the cursor tells whole milliseconds
  const overlap = (a, b) => a.width && b.width && a.left < b.right - 1 && b.left < a.right - 1
    && a.top < b.bottom - 2 && b.top < a.bottom - 2;

  // The picture's changes, and what the cursor reads in the middle of each.
  const bands = all(".picture .band");
  bands.forEach((band, i) => {
    const from = bandTime(band), to = i + 1 < bands.length ? bandTime(bands[i + 1]) : end;
    found.push(`picture ${from.toFixed(3)} ${band.dataset.value}`);
    const middle = place((from + to) / 2 / end);
    act(plot, "mousemove", middle);
    expect(near(cursor(), middle.time), `the cursor is at ${cursor()}, not at ${middle.time}, in the middle of band ${i}`);
    // A band can be narrower than a pixel.
    expect(middle.time - from < 0.001 || reading("picture") === band.dataset.value, `the cursor reads ${reading("picture")} in band ${i}`);
  });

  // Every mark shows its line and takes the cursor there; a log line does.
  of("do").forEach((fact, i) => {
    act(all(".drive .mark")[i], "click");
    expect(text("#detail").endsWith(`line ${fact.line}: ${fact.subject}`), `a click on ${fact.subject} shows ${text("#detail")}`);
    expect(near(cursor(), fact.t), `a click on ${fact.subject} leads to ${cursor()}`);
  });
  expect(all(".expectations .mark").length === of("expect").length, "not every expectation has its mark");
  expect(all(".expectations .failed").length === of("expect").filter(fact => fact.value === "failed").length, "failed marks");
  of("log").forEach((fact, i) => {
    act(all("#log li")[i], "click");
    expect(near(cursor(), fact.t || 0), `a click on log line ${i} leads to ${cursor()}`);
    expect(all("#log li.now").length === 1, "not one log line is the cursor's");
    expect(all("#log li")[i].lastChild.textContent === fact.subject, `log line ${i} reads otherwise`);
  });
  const held = cursor();
  act(plot, "mousemove", place(0.3));
  expect(cursor() === held, "a cursor that is held follows the mouse");
  const half = place(0.5);
  act(plot, "click", half);
  expect(near(cursor(), half.time), "a click does not let the cursor go");

  // Zoom and pan: the last picture's band tells what is in view.
  const last = () => bandTime(all(".picture .band").pop()); // as if all were in view
  const whole = last();
  const moves = (what, action) => {
    const before = last();
    action();
    expect(last() !== before, what + " changes nothing");
  };
  const key = name => act(document.body, "keydown", {key: name});
  moves("the wheel", () => act(plot, "wheel", Object.assign(place(0.99), {deltaY: -400})));
  moves("a drag", () => ["mousedown", "mousemove", "mouseup"].forEach((type, i) =>
    act(i ? window : plot, type, place(0.3 + 0.3 * i))));
  moves("Page Down", () => key("PageDown"));
  moves("Page Up", () => key("PageUp"));
  moves("the key -", () => key("-"));
  moves("the key +", () => key("+"));
  const zoomed = last();
  act(window, "resize");
  expect(near(last(), zoomed), "another size of the window shows another time");
  key("0");
  expect(near(last(), whole), "the key 0 does not show all");
  act(plot, "mousemove", place(0.1));
  const before = cursor();
  key("ArrowRight");
  expect(cursor() > before, "the arrow does not move the cursor");

  // From failure to failure and wish to wish, and the whole why above the lanes.
  of("failure").forEach((failure, i) => {
    act(all("#failures a")[i], "click");
    expect(near(cursor(), failure.settled), `a click on failure ${i} leads to ${cursor()}`);
  });
  key("0");
  act(plot, "click", place(0));
  const unmet = of("why").filter((fact, i, whys) => (fact.unmet || fact.value.includes("no renderer")) && (i + 1 < whys.length ? whys[i + 1].t : end) - fact.t >= 0.5);
  expect(all("#unmet a").length === Math.min(12, unmet.length), "not every wish that was not fulfilled is listed");
  [...new Set(of("failure").map(fact => fact.settled).concat(unmet.map(fact => fact.t)))].sort((a, b) => a - b).forEach(at => {
    key("n");
    expect(near(cursor(), at), `n leads to ${cursor()}, not to ${at}`);
  });
  of("why").filter(why => why.unmet).forEach(why => {
    act(plot, "click", place((why.t + 0.03) / end));
    act(plot, "click", place((why.t + 0.03) / end));
    const told = of("why").filter(other => other.t <= cursor()).pop();
    expect(text("#why").includes(told.value.split("; ")[0]) && text("#why").includes(told.unmet), `the why at ${cursor()} is ${text("#why")}`);
  });

  // Nothing covers a lane's name or its reading, nor one mark's text another.
  for (let share = 0; share < 1; share += 0.1) {
    act(plot, "click", place(share));
    all(".reading").forEach(reading => expect(!overlap(reading.getBoundingClientRect(), reading.previousSibling.getBoundingClientRect()),
      `'${reading.previousSibling.textContent}' and '${reading.textContent}' overlap`));
  }
  all(".mark text").forEach((label, i, labels) => labels.slice(0, i).forEach(other => expect(
    !overlap(label.getBoundingClientRect(), other.getBoundingClientRect()), `'${label.textContent}' covers '${other.textContent}'`)));
  expect(document.documentElement.scrollWidth <= window.innerWidth, "the page is wider than the window");
  expect(!all("script[src], link, img, iframe, b").length, "there is markup that is not the page's own");
  expect(document.title === `${of("drive")[0].subject}: ${of("result")[0].value}`, "the title is " + document.title);

  document.body.appendChild(document.createElement("pre")).textContent = "FOUND\n" + found.join("\n") + "\nEND";
})();
