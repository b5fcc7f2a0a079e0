"use strict";

// Shows the data that stands in the page. Texts of the data become text nodes and canvas texts, never
// markup. What may be millions of rows is drawn where it is looked at.

const at = (id) => document.getElementById(id);

function make(name, properties = {}, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(properties)) {
    if (key in element) element[key] = value;
    else element.setAttribute(key, value);
  }
  element.append(...children);
  return element;
}

// --- Reading the data

async function unpack(text) {
  const packed = Uint8Array.fromBase64
    ? Uint8Array.fromBase64(text)
    : Uint8Array.from(atob(text), (each) => each.charCodeAt(0));
  const stream = new Blob([packed]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Response(stream).arrayBuffer();
}

// Differences to the number before, in groups of seven bits; every other difference is negative.
function readRun(bytes, count) {
  const numbers = new Float64Array(count);
  let at = 0;
  let last = 0;
  for (let i = 0; i < count; ++i) {
    let value = 0;
    let scale = 1;
    let byte;
    do {
      byte = bytes[at++];
      value += (byte & 127) * scale;
      scale *= 128;
    } while (byte > 127);
    last += value % 2 === 0 ? value / 2 : -(value + 1) / 2;
    numbers[i] = last;
  }
  return numbers;
}

function readData(buffer) {
  const length = new DataView(buffer).getUint32(0, true);
  const decoder = new TextDecoder();
  const data = JSON.parse(decoder.decode(new Uint8Array(buffer, 8, length)));
  const types = { 1: Uint8Array, 2: Uint16Array, 4: Uint32Array, 8: BigUint64Array };
  const column = (name) => {
    const [offset, width, count] = data.columns[name];
    const begin = 8 + length + offset;
    return width === 0 ? readRun(new Uint8Array(buffer, begin), count) : new types[width](buffer, begin, count);
  };
  data.texts = decoder.decode(column("texts")).split("\n");
  const group = (name, columns) => Object.fromEntries(columns.map((each) => [each, column(name + "." + each)]));
  data.calls = group("call", ["number", "begin", "took", "value", "thread", "handle", "unit", "table", "field",
    "arguments", "rc", "span", "operation", "flags"]);
  data.spans = group("span", ["begin", "took", "thread", "name", "detail", "flags"]);
  data.messages = group("message", ["time", "thread", "recipe", "text"]);
  data.base = BigInt(data.base);
  delete data.columns;
  return data;
}

// --- What is said of times, calls and spans

const flag = { neverReturned: 1, inputsLost: 2, hasValue: 4, stopped: 8 };
const spanFlag = { entry: 1, bad: 2 };

let data;
let operations;

function durationText(nanoseconds) {
  for (const [unit, size] of [["s", 1e9], ["ms", 1e6], ["µs", 1e3]]) {
    if (nanoseconds >= size) return (nanoseconds / size).toPrecision(3).replace(/\.0+$/, "") + " " + unit;
  }
  return Math.round(nanoseconds) + " ns";
}

// Seconds since the report begins: "12.345 678 901".
function timeText(nanoseconds) {
  const whole = Math.floor(nanoseconds / 1e9);
  const rest = String(Math.round(nanoseconds - whole * 1e9)).padStart(9, "0");
  return `${whole}.${rest.slice(0, 3)}\u2009${rest.slice(3, 6)}\u2009${rest.slice(6)}`;
}

function utcText(nanoseconds) {
  const time = data.base + BigInt(Math.round(nanoseconds));
  const second = Number(time / 1000000000n);
  const date = new Date(second * 1000);
  if (time < 0n || Number.isNaN(date.getTime())) return `${time} ns since 1970`;
  return date.toISOString().slice(0, 19) + "." + String(time % 1000000000n).padStart(9, "0") + "Z";
}

const rcOf = (call) => (data.calls.rc[call] % 2 === 0 ? data.calls.rc[call] / 2 : -(data.calls.rc[call] + 1) / 2);
const has = (call, which) => (data.calls.flags[call] & which) !== 0;
const isFailed = (call) => data.calls.rc[call] % 2 === 1;
const spanOf = (call) => data.calls.span[call] - 1 - data.spansDropped;

function operationText(call) {
  return operations[data.calls.operation[call]];
}

function inputText(call) {
  const { calls, texts } = data;
  const parts = [];
  if (calls.field[call]) parts.push(texts[calls.field[call]]);
  const rest = texts[calls.arguments[call]];
  if (operationText(call) === "entry_field_add" && has(call, flag.hasValue)) parts.push("= " + calls.value[call]);
  else if (operationText(call) === "entry_field_symbol_add") parts.push("= " + rest);
  else if (rest) parts.push(rest.replaceAll("BCMLT_", ""));
  if (operationText(call) === "entry_field_get" && has(call, flag.hasValue)) parts.push("→ " + calls.value[call]);
  if (has(call, flag.inputsLost)) parts.push("(inputs lost)");
  return parts.join(" ");
}

function resultText(call) {
  return has(call, flag.neverReturned) ? "–" : String(rcOf(call));
}

function callText(call) {
  const table = data.texts[data.calls.table[call]];
  return [operationText(call), table, inputText(call)].filter(Boolean).join(" ");
}

function spanText(span) {
  return data.texts[data.spans.detail[span]] || data.texts[data.spans.name[span]];
}

function recipeOf(call) {
  const span = spanOf(call);
  return span < 0 || data.spans.flags[span] & spanFlag.entry ? "" : data.texts[data.spans.name[span]];
}

const countText = (count, one, many = one + "s") => `${count.toLocaleString("en")} ${count === 1 ? one : many}`;

// Which texts have a part: a mark for each text.
function textsWith(part) {
  const wanted = part.toLowerCase();
  return Uint8Array.from(data.texts, (text) => (text.toLowerCase().includes(wanted) ? 1 : 0));
}

// --- Rows of which only those in sight are there

class Rows {
  static rowHeight = 26;
  // Browsers know no higher element; beyond, the place is scaled.
  static mostHeight = 8000000;
  static mostPrinted = 500;

  // columns: [{ head, width, text( row ), style }]
  constructor(place, label, columns, { isBad = () => false, onChoose = () => {}, empty = "Nothing to show" } = {}) {
    this.columns = columns;
    this.isBad = isBad;
    this.onChoose = onChoose;
    this.empty = empty;
    this.rows = null; // all, or the numbers of those that are shown
    this.count = 0;
    this.chosen = -1; // as a place in what is shown
    this.id = place.id;
    this.window = make("div", { className: "window", tabIndex: 0, role: "grid", "aria-label": label, "aria-colcount": columns.length });
    this.window.style.setProperty("--columns", columns.map((each) => each.width).join(" "));
    this.heads = make("div", { className: "heads", role: "row", "aria-rowindex": 1 },
      ...columns.map((each) => make("span", { role: "columnheader", className: (each.style ?? "").replace("mono", "") }, each.head)));
    this.layer = make("div", { className: "layer", role: "rowgroup" });
    this.space = make("div", { className: "space" });
    this.window.append(make("div", { className: "top", role: "rowgroup" }, this.heads), this.space, this.layer);
    place.append(make("div", { className: "rows" }, this.window));
    this.window.addEventListener("scroll", () => this.draw());
    this.window.addEventListener("keydown", (event) => this.onKey(event));
    this.layer.addEventListener("click", (event) => {
      const row = event.target.closest(".row");
      if (row) this.choose(Number(row.dataset.place));
    });
    new ResizeObserver(() => this.draw()).observe(this.window);
    window.addEventListener("beforeprint", () => this.draw(true));
    window.addEventListener("afterprint", () => this.draw());
  }

  show(rows, count) {
    const kept = this.chosen < 0 ? -1 : this.rowAt(this.chosen);
    this.rows = rows;
    this.count = rows ? rows.length : count;
    this.chosen = this.placeOf(kept);
    this.window.setAttribute("aria-rowcount", this.count + 1);
    this.height = Math.min(this.count * Rows.rowHeight, Rows.mostHeight);
    this.space.style.height = this.height + "px";
    if (this.chosen < 0) this.window.scrollTop = 0;
    this.draw();
  }

  rowAt(place) {
    return this.rows ? this.rows[place] : place;
  }

  placeOf(row) {
    if (row < 0) return -1;
    if (!this.rows) return row < this.count ? row : -1;
    const place = lowerBound(this.rows, row);
    return this.rows[place] === row ? place : -1;
  }

  // What of the window is below the heads, in pixels and in whole rows.
  get room() {
    return this.window.clientHeight - this.heads.offsetHeight;
  }

  inSight() {
    return Math.max(1, Math.floor(this.room / Rows.rowHeight));
  }

  // The first row in sight, and where the window is scrolled to for a row to be the first.
  first() {
    const most = this.height - this.room;
    if (most <= 0) return 0;
    return Math.min(1, this.window.scrollTop / most) * Math.max(0, this.count - this.room / Rows.rowHeight);
  }

  scrollTo(first) {
    const rows = Math.max(1, this.count - this.room / Rows.rowHeight);
    this.window.scrollTop = (first / rows) * Math.max(0, this.height - this.room);
  }

  draw(isPrint = false) {
    const first = isPrint ? Math.max(0, Math.min(this.chosen, this.count - Rows.mostPrinted)) : this.first();
    const begin = Math.floor(first);
    const end = Math.min(this.count, begin + (isPrint ? Rows.mostPrinted : this.inSight() + 2));
    const rows = [];
    for (let place = begin; place < end; ++place) rows.push(this.make(place));
    if (this.count === 0) rows.push(make("p", { className: "none" }, this.empty));
    if (isPrint && end - begin < this.count)
      rows.push(make("p", { className: "none" }, `${countText(end - begin, "row")} of ${countText(this.count, "row")} printed`));
    this.layer.replaceChildren(...rows);
    this.layer.style.transform = `translateY(${this.window.scrollTop - (first - begin) * Rows.rowHeight}px)`;
    if (this.chosen >= begin && this.chosen < end) this.window.setAttribute("aria-activedescendant", `${this.id}-${this.chosen}`);
    else this.window.removeAttribute("aria-activedescendant");
  }

  make(place) {
    const row = this.rowAt(place);
    const element = make("div", {
      className: "row" + (this.isBad(row) ? " bad" : ""), role: "row", id: `${this.id}-${place}`,
      "aria-rowindex": place + 2, "aria-selected": place === this.chosen,
    });
    element.dataset.place = place;
    for (const column of this.columns) {
      const text = column.text(row);
      element.append(make("span", { role: "gridcell", className: column.style ?? "", title: text.length > 24 ? text : "" }, text));
    }
    return element;
  }

  // Chooses a row, and brings it into sight.
  choose(place, isTold = true) {
    if (place < 0 || place >= this.count) return;
    this.chosen = place;
    const first = this.first();
    const inSight = this.room / Rows.rowHeight;
    if (place < first) this.scrollTo(place);
    else if (place + 1 > first + inSight) this.scrollTo(place + 1 - inSight);
    this.draw();
    if (isTold) this.onChoose(this.rowAt(place));
  }

  onKey(event) {
    const steps = { ArrowDown: 1, ArrowUp: -1, PageDown: this.inSight(), PageUp: -this.inSight(), Home: -Infinity, End: Infinity };
    if (!(event.key in steps) || event.ctrlKey || event.altKey || event.metaKey) return;
    event.preventDefault();
    const from = this.chosen < 0 ? Math.ceil(this.first()) - (steps[event.key] > 0 ? 1 : 0) : this.chosen;
    this.choose(Math.max(0, Math.min(this.count - 1, from + steps[event.key])));
  }
}

// The first place whose number is not less.
function lowerBound(numbers, wanted, numberAt = (place) => numbers[place]) {
  let begin = 0;
  let end = numbers.length;
  while (begin < end) {
    const middle = (begin + end) >> 1;
    if (numberAt(middle) < wanted) begin = middle + 1;
    else end = middle;
  }
  return begin;
}

// --- The timeline

class Timeline {
  static laneHeight = 74;
  static mostZoom = 20; // nanoseconds from side to side

  constructor(onChoose) {
    this.onChoose = onChoose;
    this.chosen = -1;
    this.lanes = this.sorted();
    this.end = 1;
    for (const lane of this.lanes) this.end = Math.max(this.end, lane.end);
    this.from = 0;
    this.to = this.end;
    this.found = null;
    this.box = at("lanes");
    this.canvas = at("canvas");
    this.ruler = at("ruler");
    at("lanes-space").style.height = this.lanes.length * Timeline.laneHeight + "px";
    this.listen();
    this.showAll();
  }

  // By thread, the numbers of its spans, calls and messages, each in the order of time.
  sorted() {
    const lanes = data.threads.map((name) => ({ name, end: 0 }));
    const split = (name, threads, begins, tooks) => {
      const counts = new Uint32Array(lanes.length);
      for (let i = 0; i < threads.length; ++i) ++counts[threads[i]];
      lanes.forEach((lane, i) => (lane[name] = new Uint32Array(counts[i])));
      counts.fill(0);
      for (let i = 0; i < threads.length; ++i) {
        const lane = lanes[threads[i]];
        lane[name][counts[threads[i]]++] = i;
        lane.end = Math.max(lane.end, begins[i] + (tooks ? tooks[i] : 0));
      }
    };
    split("spans", data.spans.thread, data.spans.begin, data.spans.took);
    split("calls", data.calls.thread, data.calls.begin, data.calls.took);
    split("messages", data.messages.thread, data.messages.time);
    for (const lane of lanes) lane.failed = lane.calls.filter(isFailed);
    return lanes;
  }

  listen() {
    this.box.addEventListener("keydown", (event) => this.onKey(event));
    this.box.addEventListener("scroll", () => this.draw());
    this.box.addEventListener("wheel", (event) => {
      if (event.ctrlKey || event.metaKey) {
        event.preventDefault();
        this.zoom(Math.exp(event.deltaY / 300), this.timeAt(event));
      } else if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
        event.preventDefault();
        this.move(((event.deltaX || event.deltaY) / this.width) * (this.to - this.from));
      }
    }, { passive: false });
    this.box.addEventListener("pointerdown", (event) => {
      if (event.button !== 0) return;
      this.drag = { x: event.clientX, from: this.from, to: this.to, moved: false };
      this.box.setPointerCapture(event.pointerId);
    });
    this.box.addEventListener("pointermove", (event) => {
      if (!this.drag) {
        this.showTip(event);
        return;
      }
      const by = event.clientX - this.drag.x;
      if (Math.abs(by) > 3) this.drag.moved = true;
      if (!this.drag.moved) return;
      this.box.classList.add("drags");
      at("tip").hidden = true;
      const time = (-by / this.width) * (this.drag.to - this.drag.from);
      this.look(this.drag.from + time, this.drag.to + time);
    });
    const drop = (event) => {
      const drag = this.drag;
      this.drag = null;
      this.box.classList.remove("drags");
      if (event.type === "pointerup" && drag && !drag.moved) this.choose(this.callNear(event));
    };
    this.box.addEventListener("pointerup", drop);
    this.box.addEventListener("pointercancel", drop);
    this.box.addEventListener("pointerleave", () => (at("tip").hidden = true));
    this.box.addEventListener("dblclick", (event) => {
      const what = this.thingAt(event);
      if (what) this.lookAt(what.begin, what.took);
    });
    at("zoom-in").addEventListener("click", () => this.zoom(0.5));
    at("zoom-out").addEventListener("click", () => this.zoom(2));
    at("zoom-all").addEventListener("click", () => this.showAll());
    at("find").addEventListener("input", () => this.find(at("find").value));
    at("find").addEventListener("keydown", (event) => {
      if (event.key === "Enter") this.findNext();
    });
    at("find-next").addEventListener("click", () => this.findNext());
    new ResizeObserver(() => this.draw()).observe(this.box);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.draw());
    matchMedia("print").addEventListener("change", () => this.draw());
  }

  onKey(event) {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    const width = this.to - this.from;
    const actions = {
      ArrowLeft: () => this.move(-width / 8),
      ArrowRight: () => this.move(width / 8),
      "+": () => this.zoom(0.5),
      "=": () => this.zoom(0.5),
      "-": () => this.zoom(2),
      Home: () => this.showAll(),
      "]": () => this.step(1),
      "[": () => this.step(-1),
      Enter: () => this.chosen >= 0 && this.lookAt(data.calls.begin[this.chosen], data.calls.took[this.chosen]),
    };
    if (!(event.key in actions)) return;
    event.preventDefault();
    actions[event.key]();
  }

  look(from, to) {
    const most = this.end * 1.04;
    const width = Math.min(most, Math.max(Timeline.mostZoom, to - from));
    const middle = (from + to) / 2;
    const margin = this.end * 0.02;
    this.from = Math.max(-margin, Math.min(middle - width / 2, this.end + margin - width));
    this.to = this.from + width;
    this.draw();
  }

  showAll() {
    this.look(-this.end * 0.02, this.end * 1.02);
  }

  move(by) {
    this.look(this.from + by, this.to + by);
  }

  zoom(factor, around = (this.from + this.to) / 2) {
    this.look(around + (this.from - around) * factor, around + (this.to - around) * factor);
  }

  lookAt(begin, took) {
    const margin = Math.max(took * 0.6, Timeline.mostZoom);
    this.look(begin - margin, begin + took + margin);
  }

  // The call before or after the one that is chosen.
  step(by) {
    const count = data.calls.begin.length;
    if (count === 0) return;
    if (this.chosen < 0) this.choose(Math.min(count - 1, lowerBound(data.calls.begin, this.from)));
    else this.choose(Math.max(0, Math.min(count - 1, this.chosen + by)));
  }

  choose(call, isTold = true) {
    if (call < 0 || call === undefined) return;
    this.chosen = call;
    const begin = data.calls.begin[call];
    const end = begin + data.calls.took[call];
    if (begin < this.from || end > this.to) {
      const width = Math.max(this.to - this.from, (end - begin) * 2);
      this.look((begin + end - width) / 2, (begin + end + width) / 2);
    }
    const top = data.calls.thread[call] * Timeline.laneHeight;
    if (top < this.box.scrollTop || top + Timeline.laneHeight > this.box.scrollTop + this.box.clientHeight) this.box.scrollTop = top;
    at("lanes-now").textContent = `${timeText(begin)}  ${callText(call)}  rc ${resultText(call)}, ${durationText(data.calls.took[call])}`;
    this.draw();
    if (isTold) this.onChoose(call);
  }

  // Brings a moment into sight.
  showTime(time, text) {
    const width = Math.min(this.to - this.from, this.end / 20);
    this.look(time - width / 2, time + width / 2);
    at("lanes-now").textContent = `${timeText(time)}  ${text}`;
  }

  // --- Finding

  find(text) {
    this.found = text.trim() === "" ? null : textsWith(text.trim());
    this.next = null;
    const output = at("find-count");
    output.textContent = "";
    if (this.found) {
      let count = 0;
      const { spans, messages, calls } = data;
      for (let i = 0; i < spans.name.length; ++i) count += this.isSpanFound(i);
      for (let i = 0; i < messages.text.length; ++i) count += this.isMessageFound(i);
      for (let i = 0; i < calls.table.length; ++i) count += this.isCallFound(i);
      output.textContent = countText(count, "place");
    }
    this.draw();
  }

  isSpanFound(span) {
    return this.found[data.spans.name[span]] | this.found[data.spans.detail[span]];
  }

  isMessageFound(message) {
    return this.found[data.messages.text[message]] | this.found[data.messages.recipe[message]];
  }

  isCallFound(call) {
    return this.found[data.calls.field[call]] | this.found[data.calls.arguments[call]] | this.found[data.calls.table[call]];
  }

  // The first that is found after the one before, in the order of time; after the last, the first.
  findNext() {
    if (!this.found) return;
    const after = this.next ?? -1;
    const search = (from) => {
      let best = null;
      const take = (begin, took, call) => {
        if (begin > from && (best === null || begin < best.begin)) best = { begin, took, call };
      };
      const { spans, messages, calls } = data;
      for (let i = 0; i < spans.name.length; ++i) if (this.isSpanFound(i)) take(spans.begin[i], spans.took[i], -1);
      for (let i = 0; i < messages.text.length; ++i) if (this.isMessageFound(i)) take(messages.time[i], 0, -1);
      for (let i = 0; i < calls.table.length; ++i) if (this.isCallFound(i)) take(calls.begin[i], calls.took[i], i);
      return best;
    };
    const place = search(after) ?? search(-1);
    if (!place) return;
    this.next = place.begin;
    const width = Math.min(this.to - this.from, Math.max(place.took * 4, this.end / 50));
    this.look(place.begin + place.took / 2 - width / 2, place.begin + place.took / 2 + width / 2);
    if (place.call >= 0) this.choose(place.call);
    else at("lanes-now").textContent = `${timeText(place.begin)}  found`;
  }

  // --- Drawing

  get width() {
    return this.canvas.clientWidth || 1;
  }

  x(time) {
    return ((time - this.from) / (this.to - this.from)) * this.width;
  }

  timeAt(event) {
    const place = this.canvas.getBoundingClientRect();
    return this.from + ((event.clientX - place.left) / place.width) * (this.to - this.from);
  }

  draw() {
    if (this.isAsked) return;
    this.isAsked = true;
    requestAnimationFrame(() => {
      this.isAsked = false;
      this.drawNow();
    });
  }

  prepared(canvas, height) {
    const scale = window.devicePixelRatio || 1;
    const width = canvas.clientWidth;
    if (canvas.width !== Math.round(width * scale) || canvas.height !== Math.round(height * scale)) {
      canvas.width = Math.round(width * scale);
      canvas.height = Math.round(height * scale);
      canvas.style.height = height + "px";
    }
    const pen = canvas.getContext("2d");
    pen.setTransform(scale, 0, 0, scale, 0, 0);
    pen.clearRect(0, 0, width, height);
    pen.textBaseline = "middle";
    return pen;
  }

  drawNow() {
    const style = getComputedStyle(document.documentElement);
    this.color = Object.fromEntries(["ink", "soft", "line", "accent", "bad", "recipe", "recipe-other", "entry", "call", "lane", "panel", "tint"]
      .map((name) => [name, style.getPropertyValue("--" + name).trim()]));
    this.font = style.getPropertyValue("--text");
    this.drawRuler();
    const height = Math.max(1, Math.min(this.box.clientHeight, this.lanes.length * Timeline.laneHeight));
    const pen = this.prepared(this.canvas, height);
    const first = Math.floor(this.box.scrollTop / Timeline.laneHeight);
    this.drawLines(pen, height);
    for (let i = first; i < this.lanes.length; ++i) {
      const top = i * Timeline.laneHeight - this.box.scrollTop;
      if (top > height) break;
      this.drawLane(pen, this.lanes[i], top, i === this.lanes.length - 1);
    }
    if (this.chosen >= 0) {
      const x = this.x(data.calls.begin[this.chosen]);
      pen.fillStyle = this.color.accent;
      pen.fillRect(x - 0.5, 0, 1, height);
    }
  }

  // Times at round distances, at most one for each 110 pixels.
  ticks() {
    const least = ((this.to - this.from) / this.width) * 110;
    const power = 10 ** Math.floor(Math.log10(least));
    const distance = [1, 2, 5, 10].map((each) => each * power).find((each) => each >= least);
    const ticks = [];
    for (let time = Math.ceil(this.from / distance) * distance; time <= this.to; time += distance) ticks.push(time);
    return ticks;
  }

  drawRuler() {
    const pen = this.prepared(this.ruler, 24);
    pen.font = `12px ${this.font}`;
    pen.fillStyle = this.color.soft;
    for (const time of this.ticks()) {
      const text = Math.round(time) === 0 ? "0" : (time < 0 ? "−" : "") + durationText(Math.abs(time));
      const width = pen.measureText(text).width;
      pen.fillText(text, Math.max(0, Math.min(this.width - width, this.x(time) + 1 - width / 2)), 12);
    }
  }

  drawLines(pen, height) {
    pen.fillStyle = this.color.line;
    for (const time of this.ticks()) pen.fillRect(Math.round(this.x(time)), 0, 1, height);
  }

  drawLane(pen, lane, top, isLast) {
    pen.fillStyle = this.color.line;
    if (!isLast) pen.fillRect(0, top + Timeline.laneHeight - 1, this.width, 1);
    this.drawSpans(pen, lane, top + 22);
    this.drawCalls(pen, lane, top + 46);
    this.drawMessages(pen, lane, top + 18);
    pen.font = `12px ${this.font}`;
    const width = pen.measureText(lane.name).width;
    pen.fillStyle = this.color.panel;
    pen.fillRect(6, top + 2, width + 8, 15);
    pen.fillStyle = this.color.soft;
    pen.fillText(lane.name, 10, top + 10);
  }

  // Calls show( item, x, width ) for what is in sight. Of what falls into one pixel only the first.
  inSight(items, begins, tooks, show) {
    let place = Math.max(0, lowerBound(items, this.from, (each) => begins[items[each]]) - 1);
    const perPixel = (this.to - this.from) / this.width;
    while (place < items.length && begins[items[place]] <= this.to) {
      const item = items[place];
      const begin = begins[item];
      const end = begin + (tooks ? tooks[item] : 0);
      if (end >= this.from) {
        const x = Math.max(-2, this.x(begin));
        show(item, x, Math.min(this.width + 2, this.x(end)) - x);
      }
      ++place;
      const pixel = this.from + Math.floor((Math.max(begin, this.from) - this.from) / perPixel + 1) * perPixel;
      if (place < items.length && begins[items[place]] < pixel) place = this.later(items, begins, place, pixel);
    }
  }

  later(items, begins, from, time) {
    let begin = from;
    let end = items.length;
    while (begin < end) {
      const middle = (begin + end) >> 1;
      if (begins[items[middle]] < time) begin = middle + 1;
      else end = middle;
    }
    return begin;
  }

  drawSpans(pen, lane, top) {
    const { spans } = data;
    pen.font = `12px ${this.font}`;
    this.inSight(lane.spans, spans.begin, spans.took, (span, x, width) => {
      const isFound = !this.found || this.isSpanFound(span);
      const isBad = spans.flags[span] & spanFlag.bad;
      // Two shades, by the name: most neighbours are told apart.
      const isOther = spans.name[span] % 2 === 1;
      pen.globalAlpha = isFound ? 1 : 0.3;
      pen.fillStyle = isBad ? this.color.bad
        : spans.flags[span] & spanFlag.entry ? this.color.entry
          : isOther ? this.color["recipe-other"] : this.color.recipe;
      pen.fillRect(x, top, Math.max(1, width - (width > 4 ? 1 : 0)), 20);
      if (width > 28) {
        const begin = Math.max(4, x + 5);
        const room = x + width - begin - 4;
        const text = shortened(pen, spanText(span), data.texts[spans.name[span]], room);
        pen.fillStyle = isBad ? this.color.panel : this.color.ink;
        pen.fillText(text, begin, top + 10.5);
      }
    });
    pen.globalAlpha = 1;
  }

  drawCalls(pen, lane, top) {
    const { calls } = data;
    this.inSight(lane.calls, calls.begin, calls.took, (call, x, width) => {
      const isFound = !this.found || this.isCallFound(call);
      pen.globalAlpha = isFound ? 1 : 0.25;
      pen.fillStyle = operationText(call).endsWith("commit") ? this.color.accent : this.color.call;
      pen.fillRect(x, top, Math.max(1, width - (width > 3 ? 1 : 0)), 14);
      if (width > 60) {
        pen.font = `11px ${this.font}`;
        pen.fillStyle = operationText(call).endsWith("commit") ? this.color.panel : this.color.ink;
        const begin = Math.max(4, x + 4);
        pen.globalAlpha = 1;
        pen.fillText(shortened(pen, callText(call), operationText(call), x + width - begin - 4), begin, top + 7.5);
      }
    });
    pen.globalAlpha = 1;
    pen.fillStyle = this.color.bad;
    this.inSight(lane.failed, calls.begin, calls.took, (call, x, width) => pen.fillRect(x, top, Math.max(2, width), 20));
  }

  drawMessages(pen, lane, top) {
    this.inSight(lane.messages, data.messages.time, null, (message, x) => {
      pen.globalAlpha = !this.found || this.isMessageFound(message) ? 1 : 0.2;
      pen.fillStyle = this.color.ink;
      pen.fillRect(x - 0.5, top, 1.5, 5);
    });
    pen.globalAlpha = 1;
  }

  // --- What is under the pointer

  laneAt(event) {
    const place = this.canvas.getBoundingClientRect();
    const y = event.clientY - place.top + this.box.scrollTop;
    const lane = this.lanes[Math.floor(y / Timeline.laneHeight)];
    return { lane, y: y % Timeline.laneHeight };
  }

  // The item of the list that lasts at the time, or begins within some pixels.
  itemAt(items, begins, tooks, time) {
    const near = ((this.to - this.from) / this.width) * 3;
    const place = lowerBound(items, time + near, (each) => begins[items[each]]) - 1;
    if (place < 0) return -1;
    const item = items[place];
    return time <= begins[item] + (tooks ? tooks[item] : 0) + near ? item : -1;
  }

  callNear(event) {
    const { lane } = this.laneAt(event);
    if (!lane) return -1;
    const time = this.timeAt(event);
    const failed = this.itemAt(lane.failed, data.calls.begin, data.calls.took, time);
    return failed >= 0 ? failed : this.itemAt(lane.calls, data.calls.begin, data.calls.took, time);
  }

  thingAt(event) {
    const { lane, y } = this.laneAt(event);
    if (!lane) return null;
    const time = this.timeAt(event);
    if (y < 22) {
      const message = this.itemAt(lane.messages, data.messages.time, null, time);
      if (message >= 0) return { begin: data.messages.time[message], took: 0, text: data.texts[data.messages.text[message]] };
    }
    if (y > 43) {
      const call = this.callNear(event);
      if (call >= 0)
        return { begin: data.calls.begin[call], took: data.calls.took[call], text: `${callText(call)}\nrc ${resultText(call)}`, isCall: true };
    }
    const span = this.itemAt(lane.spans, data.spans.begin, data.spans.took, time);
    return span < 0 ? null : { begin: data.spans.begin[span], took: data.spans.took[span], text: spanText(span) };
  }

  showTip(event) {
    const tip = at("tip");
    const what = this.thingAt(event);
    tip.hidden = !what;
    if (!what) return;
    tip.textContent = `${what.text}\n${timeText(what.begin)}${what.took ? ", " + durationText(what.took) : ""}`;
    const size = tip.getBoundingClientRect();
    tip.style.left = Math.min(event.clientX + 14, innerWidth - size.width - 8) + "px";
    tip.style.top = (event.clientY + 18 + size.height > innerHeight ? event.clientY - size.height - 12 : event.clientY + 18) + "px";
  }
}

// The text, or the short one, or as much of that as there is room for.
function shortened(pen, text, short, room) {
  if (pen.measureText(text).width <= room) return text;
  const width = pen.measureText(short).width;
  if (width <= room) return short;
  const count = Math.floor((short.length * room) / width) - 1;
  return count < 2 ? "" : short.slice(0, count) + "…";
}

// --- The sections

function addFacts(list, facts) {
  for (const [name, fact] of facts) {
    const text = /^\d+$/.test(fact) ? Number(fact).toLocaleString("en") : fact;
    list.append(make("div", { className: text.length > 18 ? "long" : "" }, make("dt", {}, name), make("dd", {}, text)));
  }
}

function addPairs(list, pairs) {
  for (const [name, text] of pairs) list.append(make("dt", {}, name), make("dd", {}, text));
}

function showSummary() {
  document.title = `${data.kind}: ${data.input}`;
  at("kind").textContent = data.kind;
  at("input").textContent = data.input;
  at("ending").textContent = data.endingText;
  at("ending").classList.add(data.ending);
  addFacts(at("facts"), data.facts);
  at("notes").append(...data.notes.map((text) => make("li", {}, text)));
}

class Calls {
  constructor() {
    const { calls, texts } = data;
    this.rows = new Rows(at("call-rows"), "Calls", [
      { head: "call", width: "4.5rem", text: (call) => String(calls.number[call]), style: "right soft" },
      { head: "time, s", width: "8.5rem", text: (call) => timeText(calls.begin[call]), style: "right soft" },
      ...(data.threads.length > 1 ? [{ head: "thread", width: "8rem", text: (call) => data.threads[calls.thread[call]], style: "soft" }] : []),
      { head: "recipe", width: "minmax(6rem, 1.5fr)", text: recipeOf },
      { head: "operation", width: "10rem", text: operationText },
      { head: "table", width: "minmax(6rem, 1.6fr)", text: (call) => texts[calls.table[call]], style: "mono" },
      { head: "given and read", width: "minmax(8rem, 1.9fr)", text: inputText, style: "mono" },
      { head: "rc", width: "2.5rem", text: resultText, style: "right" },
      { head: "took", width: "4.5rem", text: (call) => durationText(calls.took[call]), style: "right soft" },
    ], { isBad: isFailed, onChoose: (call) => showCall(call, this), empty: "No call is like that" });
    this.fill(at("call-operation"), data.calls.operation, (each) => operations[each]);
    this.fill(at("call-table"), data.calls.table, (each) => texts[each]);
    this.fill(at("call-thread"), data.calls.thread, (each) => data.threads[each]);
    at("call-thread-field").hidden = data.threads.length < 2;
    const filter = () => this.filter();
    at("call-filter").addEventListener("input", filter);
    at("call-filter").addEventListener("reset", () => setTimeout(filter)); // it is reset after the event
    at("call-filter").addEventListener("submit", (event) => event.preventDefault());
    this.filter();
  }

  // The numbers that a column has, as a choice.
  fill(select, column, textOf) {
    const seen = new Set(column);
    const choices = [...seen].map((each) => [each, textOf(each)]).filter(([, text]) => text !== "");
    choices.sort((one, other) => (one[1] < other[1] ? -1 : 1));
    select.append(make("option", { value: "" }, "all"), ...choices.map(([each, text]) => make("option", { value: String(each) }, text)));
  }

  filter() {
    const { calls } = data;
    const count = calls.number.length;
    const chosen = (id) => (at(id).value === "" ? -1 : Number(at(id).value));
    const operation = chosen("call-operation");
    const table = chosen("call-table");
    const thread = chosen("call-thread");
    const failed = at("call-failed").checked;
    const part = at("call-find").value.trim();
    if (operation < 0 && table < 0 && thread < 0 && !failed && part === "") {
      this.rows.show(null, count);
      at("call-count").textContent = countText(count, "call");
      return;
    }
    const found = part === "" ? null : textsWith(part);
    const recipes = found && Uint8Array.from(data.spans.name, (name, span) => found[name] | found[data.spans.detail[span]]);
    const number = /^-?\d+$/.test(part) ? Number(part) : NaN;
    const lower = part.toLowerCase();
    const inOperation = operations.map((name) => found && name.includes(lower));
    const rows = [];
    for (let call = 0; call < count; ++call) {
      if (operation >= 0 && calls.operation[call] !== operation) continue;
      if (table >= 0 && calls.table[call] !== table) continue;
      if (thread >= 0 && calls.thread[call] !== thread) continue;
      if (failed && !isFailed(call)) continue;
      if (found && !(found[calls.table[call]] || found[calls.field[call]] || found[calls.arguments[call]] ||
        inOperation[calls.operation[call]] || (calls.span[call] && recipes[spanOf(call)]) ||
        calls.number[call] === number || rcOf(call) === number || (has(call, flag.hasValue) && String(calls.value[call]) === part))) continue;
      rows.push(call);
    }
    this.rows.show(Uint32Array.from(rows), rows.length);
    at("call-count").textContent = `${rows.length.toLocaleString("en")} of ${countText(count, "call")}`;
  }

  // Brings a call into sight, without the filter if that leaves it out.
  choose(call) {
    if (this.rows.placeOf(call) < 0) {
      at("call-filter").reset();
      this.filter();
    }
    this.rows.choose(this.rows.placeOf(call), false);
  }
}

let calls;
let timeline;

// Shows a call in all places but the one that it was chosen in.
function showCall(call, from) {
  const { texts } = data;
  const span = spanOf(call);
  const unit = data.calls.unit[call] - 1;
  const pairs = [
    ["Call", `${data.calls.number[call]}: bcmlt_${operationText(call)}${has(call, flag.neverReturned) ? " (never returned)" : ""}`],
    ["At", `${utcText(data.calls.begin[call])}, ${durationText(data.calls.took[call])}, ${data.threads[data.calls.thread[call]]}`],
    ["In", span < 0 ? "" : data.spans.flags[span] & spanFlag.entry ? `an entry of ${spanText(span)}` : spanText(span)],
    ["Entry", data.calls.handle[call] ? `${data.calls.handle[call]}${texts[data.calls.table[call]] ? " of " + texts[data.calls.table[call]] : ""}${unit >= 0 ? ", unit " + unit : ""}` : ""],
    ["Given and read", inputText(call)],
    ["Code", has(call, flag.neverReturned) ? "" : String(rcOf(call)) + (has(call, flag.stopped) ? ", which stopped the process" : "")],
  ];
  at("call-detail").replaceChildren();
  addPairs(at("call-detail"), pairs.filter(([, text]) => text !== ""));
  if (from !== calls) calls?.choose(call);
  if (from !== timeline) timeline?.choose(call, false);
}

function showFailure() {
  const failure = data.failure;
  if (!failure) return;
  at("failure").hidden = false;
  at("failure-title").textContent = failure.title;
  addPairs(at("failure-facts"), failure.facts);
  const call = (failure.call ?? -1) - data.callsDropped;
  if (call < 0) return;
  at("failure-show").hidden = false;
  at("failure-show").addEventListener("click", () => {
    showCall(call);
    timeline?.lookAt(data.calls.begin[call], Math.max(data.calls.took[call] * 4, timeline.end / 40));
    at("calls").scrollIntoView();
    calls.rows.window.focus({ preventScroll: true });
  });
}

function showMessages() {
  const { messages, texts } = data;
  const rows = new Rows(at("message-rows"), "Messages", [
    { head: "time, s", width: "8.5rem", text: (each) => timeText(messages.time[each]), style: "right soft" },
    ...(data.threads.length > 1 ? [{ head: "thread", width: "9rem", text: (each) => data.threads[messages.thread[each]], style: "soft" }] : []),
    { head: "text", width: "1fr", text: (each) => texts[messages.text[each]], style: "mono" },
  ], { empty: "No message is like that", onChoose: (each) => timeline.showTime(messages.time[each], texts[messages.text[each]]) });
  const filter = () => {
    const part = at("message-find").value.trim();
    const count = messages.text.length;
    if (part === "") {
      rows.show(null, count);
      at("message-count").textContent = countText(count, "message");
      return;
    }
    const found = textsWith(part);
    const places = [];
    for (let i = 0; i < count; ++i) if (found[messages.text[i]]) places.push(i);
    rows.show(Uint32Array.from(places), places.length);
    at("message-count").textContent = `${places.length.toLocaleString("en")} of ${countText(count, "message")}`;
  };
  at("message-filter").addEventListener("input", filter);
  at("message-filter").addEventListener("submit", (event) => event.preventDefault());
  filter();
}

// --- The chip

const mostRowsAtOnce = 200;

function writerButton(place) {
  const call = place - data.callsDropped;
  if (call < 0) return "before the calls that are shown";
  const recipe = recipeOf(call);
  const link = make("button", { type: "button", className: "link" }, `${recipe ? recipe + ", " : ""}call ${data.calls.number[call]}`);
  link.addEventListener("click", () => {
    showCall(call);
    at("calls").scrollIntoView();
    calls.rows.window.focus({ preventScroll: true });
  });
  return link;
}

function cellContent([text, isWritten, , before, hardware]) {
  const parts = [];
  if (!isWritten) parts.push(make("span", { className: "kept" }, `(${text})`));
  else if (before !== undefined && before !== null) parts.push(make("mark", {}, text), " ", make("span", { className: "before" }, `was ${before}`));
  else parts.push(text);
  if (hardware !== undefined) parts.push(make("span", { className: "hardware" }, `in the hardware: ${hardware}`));
  return parts;
}

// Who wrote a row last: one call, or one for each field.
function writersOf(table, cells) {
  const byWriter = new Map();
  cells.forEach((cell, field) => {
    const writer = cell[2];
    if (writer === undefined || writer === null) return;
    if (!byWriter.has(writer)) byWriter.set(writer, []);
    byWriter.get(writer).push(table.fields[field]);
  });
  const lines = [];
  for (const [writer, fields] of byWriter) {
    const call = writer - data.callsDropped;
    const line = make("div", {});
    if (byWriter.size > 1) line.append(make("span", {}, fields.join(", ") + ": "));
    line.append(writerButton(writer));
    if (call >= 0) line.append(make("span", {}, `, ${timeText(data.calls.begin[call])} s`));
    lines.push(line);
  }
  return lines;
}

function chipRow(table, [place, cells, isNew]) {
  const row = make("tr", {});
  if (place.length === 0) row.append(make("td", {}, "–"));
  place.forEach((text, i) => row.append(i === 0
    ? make("td", {}, text, isNew ? make("span", { className: "before" }, " new") : "")
    : make("td", {}, text)));
  for (const cell of cells) row.append(make("td", {}, ...cellContent(cell)));
  row.append(make("td", { className: "by" }, ...writersOf(table, cells)));
  return row;
}

function chipTable(table) {
  const changed = table.rows.reduce((sum, [, cells]) => sum + cells.filter((cell) => cell[1] && cell[3] !== undefined && cell[3] !== null).length, 0);
  const count = table.rows.length + table.leftOut;
  const box = make("details", {}, make("summary", {},
    make("span", { className: "name" }, table.name),
    make("span", { className: "soft" }, `unit ${table.unit}, ${table.kind}, ${countText(count, "row")}`),
    make("span", { className: "changes" }, changed ? `${countText(changed, "value")} changed` : "")));
  const open = () => {
    if (!box.open || box.dataset.filled) return;
    box.dataset.filled = "yes";
    const heads = [...(table.place.length ? table.place : ["row"]), ...table.fields, "written last by"];
    const body = make("tbody", {});
    const scroll = make("div", { className: "scroll", tabIndex: 0, role: "region", "aria-label": `${table.name}, unit ${table.unit}` },
      make("table", {}, make("thead", {}, make("tr", {}, ...heads.map((head) => make("th", { scope: "col" }, head)))), body));
    box.append(scroll);
    const add = (most) => {
      const from = body.rows.length;
      body.append(...table.rows.slice(from, from + most).map((row) => chipRow(table, row)));
    };
    add(mostRowsAtOnce);
    const more = make("button", { type: "button" }, "More rows");
    const left = () => table.rows.length - body.rows.length;
    if (left() > 0) scroll.append(more);
    more.addEventListener("click", () => {
      add(mostRowsAtOnce);
      if (left() <= 0) more.remove();
    });
    if (table.leftOut) scroll.append(make("p", { className: "help" }, `${countText(table.leftOut, "row")} left out`));
  };
  box.addEventListener("toggle", open);
  box.openNow = (isOpen) => {
    box.open = isOpen;
    open();
  };
  return box;
}

function showChip() {
  at("chip").hidden = false;
  const boxes = data.tables.map((table) => ({ table, box: chipTable(table), names: [table.name, ...table.fields].join("\n").toLowerCase() }));
  at("chip-tables").append(...boxes.map(({ box }) => box));
  boxes.slice(0, boxes.length > 6 ? 1 : 6).forEach(({ box }) => box.openNow(true));
  const filter = () => {
    const part = at("chip-find").value.trim().toLowerCase();
    let count = 0;
    for (const { box, names } of boxes) {
      box.hidden = !names.includes(part);
      count += box.hidden ? 0 : 1;
    }
    at("chip-count").textContent = part === "" ? countText(count, "table") : `${count} of ${countText(boxes.length, "table")}`;
  };
  at("chip-filter").addEventListener("input", filter);
  at("chip-filter").addEventListener("submit", (event) => event.preventDefault());
  const openAll = (isOpen) => () => boxes.forEach(({ box }) => box.hidden || box.openNow(isOpen));
  at("chip-open").addEventListener("click", openAll(true));
  at("chip-close").addEventListener("click", openAll(false));
  filter();
}

// --- Rows of a document

function showGrid(grid, number) {
  const id = `grid-${number}`;
  const find = make("input", { type: "search", id: `${id}-find`, autocomplete: "off", spellcheck: false });
  const only = make("select", { id: `${id}-only` }, make("option", { value: "" }, "all"), make("option", { value: "bad" }, "not as expected"));
  const count = make("output", {});
  const place = make("div", { id: `${id}-rows` });
  const tools = make("form", { className: "tools" }, make("label", { className: "field" }, make("span", {}, "Find"), find));
  if (grid.bad.some(Boolean)) tools.append(make("label", { className: "field" }, make("span", {}, "Show"), only));
  tools.append(count);
  at("grids").append(make("section", { id, "aria-labelledby": `${id}-title` },
    make("div", { className: "head" }, make("h2", { id: `${id}-title` }, grid.title), tools), place));
  const widest = grid.heads.map((head, i) => grid.rows.slice(0, 500).reduce((most, row) => Math.max(most, row[i].length), head.length));
  const rows = new Rows(place, grid.title, grid.heads.map((head, i) => ({
    head, width: widest[i] < 8 ? `${Math.max(3, widest[i] * 0.6 + 0.5)}rem` : `minmax(${Math.min(widest[i], 14) * 0.55}rem, ${Math.min(widest[i], 48)}fr)`,
    text: (row) => grid.rows[row][i], style: widest[i] < 8 ? "soft" : "",
  })), { isBad: (row) => grid.bad[row], empty: "Nothing is like that" });
  const lower = grid.rows.map((row) => row.join("\n").toLowerCase());
  const filter = () => {
    const part = find.value.trim().toLowerCase();
    const places = [];
    lower.forEach((text, i) => text.includes(part) && (only.value === "" || grid.bad[i]) && places.push(i));
    rows.show(Uint32Array.from(places), places.length);
    count.textContent = places.length === lower.length ? countText(lower.length, "row") : `${places.length.toLocaleString("en")} of ${countText(lower.length, "row")}`;
  };
  tools.addEventListener("input", filter);
  tools.addEventListener("submit", (event) => event.preventDefault());
  filter();
}

// --- All of it

function showNavigation() {
  const sections = [...document.querySelectorAll("main section[aria-labelledby]:not([hidden])")];
  if (sections.length < 2) return;
  at("nav").append(...sections.map((section) =>
    make("a", { href: "#" + section.id }, section.id === "failure" ? "Failure" : section.querySelector("h2").textContent)));
}

async function open() {
  const text = at("data").textContent;
  at("data").remove();
  data = readData(await unpack(text));
  operations = data.operations.map((name) => name.replace(/^bcmlt_/, ""));
  const hasCalls = data.calls.number.length !== 0;
  const hasMessages = data.messages.text.length !== 0;
  for (const [id, isThere] of [["timeline", hasCalls || hasMessages], ["calls", hasCalls], ["messages", hasMessages]])
    at(id).hidden = !isThere;
  showSummary();
  at("main").hidden = false;
  if (hasCalls) calls = new Calls();
  if (hasCalls || hasMessages) timeline = new Timeline((call) => showCall(call, timeline));
  if (hasMessages) showMessages();
  showFailure();
  if (data.tables.length) showChip();
  data.grids.forEach(showGrid);
  showNavigation();
  document.documentElement.dataset.state = "open";
  performance.mark("open");
}

open().catch((error) => {
  at("input").textContent = "This page cannot be shown";
  at("ending").textContent = "DecompressionStream" in window ? `It is not as it was written: ${error.message}` : "The browser is too old: it cannot inflate.";
  document.documentElement.dataset.state = "failed";
});
