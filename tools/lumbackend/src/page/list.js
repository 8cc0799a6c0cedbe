// --- The filter stands in the form and in the URL, where a link to it can be taken.

let since = 0;   // "Clear view" hides everything up to this id
let opened = 0;  // id of the exchange in the detail

const filters = () => [...new FormData(form)].map(([name, value]) => [name, value.trim()]).filter(([, value]) => value);
const isFiltered = () => since > 0 || filters().length > 0;

function readUrl() {
  const query = new URLSearchParams(location.search);
  for (const name of ["text", "kind", "status", "device", "topic"]) {
    form.elements[name].value = query.get(name) ?? "";
  }
  return Number(query.get("open")) || 0;
}

function writeUrl(step) {
  const query = new URLSearchParams([...filters(), ...(opened ? [["open", opened]] : [])]).toString();
  const url = location.pathname + (query && "?" + query);
  if (url !== location.pathname + location.search) {
    history[step](null, "", url);
  }
}

async function ask(path) {
  const answer = await fetch(path, {cache: "no-store"});
  const document = await answer.json();
  if (!answer.ok) {
    throw new Error(document.error);
  }
  return document;
}

// What fails is said above the list.
const attempt = task => task().catch(failure => say("gone", failure.message));

// --- The rows: one stretch of all that pass the filter, newest first. Both ends grow when one
// scrolls there; the far end is let go and asked for again, so that memory stays bounded.

let rows = [];
let newer = 0;             // how many pass the filter above rows[0]
let more = false;          // there are some below the last
let matching = {total: 0, totalIsExact: true};
let seen = 0;              // newest id that was asked about
let asking = false;        // for one of the ends
let paths = [];            // what the back end serves; none before it has answered
let generation = 0;        // counts filters: an answer to an earlier one is thrown away
let following = true;      // the newest row stays in view
let paused = false;
let totals = {all: 0, kinds: {}};

async function rowsFor(range) {
  const mine = generation;
  const query = new URLSearchParams([...filters(), ["since", since], ["limit", kPage], ...Object.entries(range)]);
  const answer = await ask("/exchanges?" + query);
  if (mine !== generation) {
    return null;
  }
  matching = answer;
  return answer;
}

// The newest rows, or for "oldest" the other end.
async function load(end = "newest") {
  ++generation;
  asking = false;
  const answer = await rowsFor(end === "oldest" ? {after: 0, order: "oldest"} : {});
  if (answer) {
    const below = end === "newest";
    rows = answer.rows;
    more = below && answer.more;
    newer = below ? 0 : answer.total - rows.length;
    seen = answer.last;
    follow(below);
    shift(below ? -Infinity : Infinity);
  }
}

async function extend(end) {
  if (asking || rows.length === 0 || (end === "older" ? !more : newer === 0)) {
    return;
  }
  asking = true;
  await attempt(async () => {
    const range = end === "older" ? {before: rows.at(-1).id} : {after: rows[0].id, order: "oldest"};
    const answer = await rowsFor(range);
    if (answer && end === "older") {
      rows.push(...answer.rows);
      more = answer.more;
      const surplus = Math.max(0, rows.length - kMostRows);
      rows.splice(0, surplus);
      newer += surplus;
      shift(-surplus);
    } else if (answer) {
      rows.unshift(...answer.rows);
      more = rows.splice(kMostRows).length > 0 || more;
      newer = answer.more ? Math.max(1, newer - answer.rows.length) : 0;
      shift(answer.rows.length);
    }
  });
  asking = false;
}

// Keeps what is in view in its place while rows come or go above it.
function shift(by) {
  const at = grid.scrollTop;
  byId("rows").style.height = rows.length * rowHeight + "px";
  grid.scrollTop = Math.min(Math.max(0, at + by * rowHeight), grid.scrollHeight);
  draw();
}

// New exchanges came in: those of the stream, or the answer to a question of our own when there is
// a filter.
function arrive(news) {
  const fresh = news.rows.filter(row => row.id > seen);
  const gap = news.more && fresh.length > 0;
  seen = Math.max(seen, news.last);
  if (!following) {
    newer += gap ? news.arrived : fresh.length;
  } else if (fresh.length > 0) {
    const calm = fresh.length <= 5;  // more of them would be a flicker
    fresh.forEach(row => { row.isNew = calm; });
    rows = gap ? fresh : [...fresh, ...rows];
    more = rows.splice(kMostRows).length > 0 || gap || more;
  }
  matching = {total: news.total, totalIsExact: news.totalIsExact};
  draw();
}

function follow(on) {
  following = on;
  byId("follow").ariaPressed = on;
}

// --- Drawing: only the rows in view exist as elements.

const drawn = new Map();  // id: element
let rowHeight = 1;        // px; cards on a narrow screen are higher than lines
let seats = 0;            // rows that the list has room for
let active = 0;           // id of the row that the keys move

const cell = (className, ...content) => make("span", {className, role: "gridcell"}, ...content);
const group = (className, ...cells) => make("span", {className, role: "presentation"}, ...cells);

function about(x) {
  const node = cell("about");
  const add = (className, text) => text && node.append(make("span", className, text));
  add("why", x.refusal);
  add("tag", x.topic);
  add("mono", x.object);
  add("start", x.kind === "report" ? x.text : "");
  add("tag", x.gzip && "gzip");
  add("tag", x.signed ? "signed" : x.kind === "upload" && "unsigned");
  add("tag", x.tls && "TLS");
  return node;
}

function element(x) {
  const className = "row" + (x.kind === "refusal" ? " refusal" : "") + (x.isNew ? " new" : "");
  x.isNew = false;  // once
  return make("div", {className, id: "x" + x.id, role: "row"},
    cell("time", stamp(x.time)), cell("status", statusText(x)), cell("method", x.method || "none"),
    cell("path mono", target(x)), cell("duration", took(x.duration)),
    group("sizes", cell("in", size(x.bytesIn)), cell("out", size(x.bytesOut))),
    group("domain", cell("device", x.device), about(x)));
}

function draw() {
  const body = byId("window");
  const top = grid.scrollTop / rowHeight;
  const from = Math.max(0, Math.floor(top) - kSpare);
  const shown = rows.slice(from, Math.ceil(top + seats) + kSpare);
  byId("rows").style.height = rows.length * rowHeight + "px";
  body.style.transform = `translateY(${from * rowHeight}px)`;
  const wanted = new Set(shown.map(x => x.id));
  for (const [id, node] of drawn) {
    if (!wanted.has(id)) {
      node.remove();
      drawn.delete(id);
    }
  }
  // Rows never change their order: what is there stays where it is, and keeps its state.
  let next = body.firstElementChild;
  shown.forEach((x, i) => {
    let node = drawn.get(x.id);
    if (node) {
      next = node.nextElementSibling;
    } else {
      node = element(x);
      drawn.set(x.id, node);
      body.insertBefore(node, next);
    }
    node.ariaRowIndex = newer + from + i + 2;
    node.ariaSelected = x.id === opened;
    node.classList.toggle("active", x.id === active);
  });
  grid.ariaRowCount = matching.totalIsExact ? matching.total + 1 : -1;
  if (drawn.has(active)) {
    grid.setAttribute("aria-activedescendant", "x" + active);
  } else {
    grid.removeAttribute("aria-activedescendant");
  }
  drawSummary(Math.floor(top), Math.min(rows.length, Math.floor(top + seats)));
}

function drawSummary(first, end) {
  const total = number(matching.total) + (matching.totalIsExact ? "" : "+");
  const part = rows.length === 0 ? "0" : number(newer + first + 1) + "\u2013" + number(newer + Math.max(end, first + 1));
  const which = since ? "since the view was cleared" : "that match";
  const kept = isFiltered() ? `${total} ${which}, ${number(totals.all)} kept` : total;
  put(byId("range"), `${part} of ${kept}`);
  const refused = totals.kinds.refusal ?? 0;
  put(byId("refused"), refused ? number(refused) + " refused" : "nothing refused");
  byId("refused").className = refused ? "bad" : "";
  byId("all").hidden = since === 0;
  byId("newer").hidden = newer === 0;
  put(byId("newer"), `${number(newer)} newer \u2191`);
  drawEmpty();
}

function drawEmpty() {
  const empty = byId("empty");
  const state = rows.length > 0 || paths.length === 0 ? "" : totals.all === 0 ? "nothing" : since ? "cleared"
    : filters().join() === "kind,refusal" ? "unrefused" : "unmatched";
  empty.hidden = state === "";
  if (empty.dataset.state === state) {
    return;
  }
  empty.dataset.state = state;
  const texts = {
    "": [], nothing: ["Nothing has come in yet", "Send something, and it shows up here:"],
    cleared: ["The view is cleared", "What comes in from now on shows up here. Everything is still kept."],
    unrefused: ["Nothing refused", "No request was refused in all that is kept."],
    unmatched: ["No exchange matches the filter", "Everything that is kept was searched."],
  }[state];
  empty.replaceChildren(...texts.map((text, i) => make(i ? "p" : "h2", "", text)));
  if (state === "nothing") {
    empty.append(make("pre", "", `curl -d '{"hello": "world"}' ${location.origin}/echo`), pathList());
  }
}

// --- News: a stream of what comes in, and the totals with it.

let source = null;
let updating = false;      // a filtered question is on its way, or was asked less than a second ago
let unspoken = 0;          // refusals that were not announced yet
let lastRefusal = null;
let quiet = 0;             // timer since the last announcement
let charted = 0;

function say(state, text) {
  byId("state").className = state;
  put(byId("state"), text);
}

function listen() {
  source?.close();
  source = null;
  if (paused || document.hidden) {  // a hidden page takes none of the browser's few connections
    return;
  }
  source = new EventSource("/stream?after=" + seen);
  source.onopen = () => say("live", "live");
  source.addEventListener("rows", event => receive(JSON.parse(event.data), Number(event.lastEventId)));
  source.onerror = () => {
    say("gone", "the back end does not answer");
    if (source?.readyState === EventSource.CLOSED) {  // refused, not cut: it would not try again
      setTimeout(start, 1000);
    }
  };
}

function receive(news, last) {
  if (totals.database !== undefined && news.totals.database !== totals.database) {
    start();  // another root answers on this port now
    return;
  }
  const refusals = (news.totals.kinds.refusal ?? 0) - (totals.kinds.refusal ?? 0);
  showTotals({...news.totals, last});
  announce(refusals, news.rows.find(x => x.kind === "refusal"));
  if (!isFiltered()) {
    arrive({...news, last, more: news.skipped > 0, arrived: news.rows.length + news.skipped,
            total: totals.all, totalIsExact: true});
  } else {
    draw();  // what is kept in all has changed, whatever passes the filter
    if (!updating && last > seen) {
      update();
    }
  }
  if (Date.now() - charted >= 1000) {
    showChart();
  }
}

// With a filter the back end is asked what of the news passes, once a second at most.
async function update() {
  updating = true;
  await attempt(async () => {
    const before = matching.total;
    const answer = await rowsFor({after: seen});
    if (answer) {
      arrive({...answer, arrived: Math.max(answer.rows.length, answer.total - before)});
    }
  });
  setTimeout(() => {
    updating = false;
    if (totals.last > seen) {
      update();
    }
  }, 1000);
}

function showTotals(news) {
  totals = {...totals, ...news};
  for (const label of byId("kinds").querySelectorAll("label")) {
    const {value, checked} = label.firstElementChild;
    const n = value ? totals.kinds[value] ?? 0 : totals.all;
    put(label.lastElementChild, number(n));
    label.hidden = n === 0 && !checked && kRareKinds.includes(value);
  }
}

// Tells a screen reader of refusals: each once, and in a storm their number every now and then.
function announce(n, last) {
  unspoken += Math.max(0, n);
  lastRefusal = last ?? lastRefusal;
  if (unspoken > 0 && quiet === 0) {
    const {method, refusal} = lastRefusal ?? {};
    const what = lastRefusal ? `: ${method} ${target(lastRefusal)}, ${statusText(lastRefusal)}, ${refusal}` : "";
    byId("announce").replaceChildren(safe((unspoken === 1 ? "Refused" : number(unspoken) + " refused, the last") + what));
    unspoken = 0;
    quiet = setTimeout(() => {
      quiet = 0;
      announce(0);
    }, kQuiet);
  }
}

async function showChart() {
  charted = Date.now();
  const chart = await ask("/chart?minutes=10").catch(() => null);
  if (chart === null) {
    return;
  }
  // Both on one scale: reports grow up from the line, refusals down.
  const [up, down] = [Math.max(...chart.reports), Math.max(...chart.refusals)];
  const unit = 58 / Math.max(1, up + down);
  const zero = 1 + up * unit + (up + down === 0 ? 58 : 0);
  const wide = 600 / chart.all.length;
  const bar = (i, height) => `M${(i + 0.1) * wide} ${zero}h${0.8 * wide}v${height}h${-0.8 * wide}z`;
  const bars = (values, sign) => values.map((n, i) => n ? bar(i, sign * Math.max(1, n * unit)) : "").join("");
  const svg = byId("chart");
  svg.querySelector(".reports").setAttribute("d", bars(chart.reports, -1));
  svg.querySelector(".refusals").setAttribute("d", bars(chart.refusals, 1));
  svg.querySelector("line").setAttribute("y1", zero);
  svg.querySelector("line").setAttribute("y2", zero);
  const sum = values => values.reduce((a, b) => a + b, 0);
  const [reports, refusals] = [count(sum(chart.reports), "report"), count(sum(chart.refusals), "refusal")];
  put(byId("reports"), reports);
  put(byId("refusals"), refusals);
  put(byId("peak"), up + down ? `at most ${count(up, "report")}, ${count(down, "refusal")} in ${chart.step / 1000} s` : "");
  svg.ariaLabel = `The last ten minutes: ${reports}, ${refusals}`;
}
