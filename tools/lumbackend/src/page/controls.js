// --- Controls and keys.

function pathList() {
  const list = make("dl", "paths");
  for (const {method, path, takes, answers} of paths) {
    const lines = [takes && "Takes: " + takes, answers && "Answer: " + answers].filter(line => line);
    list.append(make("dt", "mono", method + " " + path), make("dd", "", ...lines.map(line => make("span", "", line))));
  }
  return list;
}

const kKeys = [
  ["\u2191 \u2193", "the row above or below"], ["Page Up, Page Down", "a screen further"],
  ["Home, End", "the newest row, the oldest"], ["Enter", "open the row"], ["Escape", "close it"],
  ["/", "search"], ["p", "pause"], ["f", "follow"], ["c", "clear the view"],
];

function showHelp() {
  const keys = make("dl");
  for (const [key, meaning] of kKeys) {
    keys.append(make("dt", "", make("kbd", "", key)), make("dd", "", meaning));
  }
  help.lastElementChild.replaceChildren(make("h3", "", "Paths"), pathList(), make("h3", "", "Keys in the list"), keys);
  help.showModal();
}

// Moves the active row by so many rows and brings it into view. One who walks through rows does not
// want them to run away.
async function move(by) {
  let at = rows.findIndex(x => x.id === active);
  at = at < 0 ? Math.ceil(grid.scrollTop / rowHeight) : at + by;
  if (at >= rows.length) {
    await extend("older");
  } else if (at < 0) {
    const before = rows.length && rows[0].id;
    await extend("newer");
    at += Math.max(0, rows.findIndex(x => x.id === before));
  }
  if (rows.length === 0) {
    return;
  }
  follow(false);
  at = Math.min(Math.max(at, 0), rows.length - 1);
  active = rows[at].id;
  const top = at * rowHeight;
  grid.scrollTop = Math.max(Math.min(grid.scrollTop, top), top - (seats - 1) * rowHeight);
  draw();
}

async function moveToEnd(end) {
  await load(end);
  active = (end === "newest" ? rows[0] : rows.at(-1))?.id ?? 0;
  draw();
}

const screenful = () => Math.max(1, Math.floor(seats) - 1);
const kActions = {
  ArrowDown: () => move(1), ArrowUp: () => move(-1),
  PageDown: () => move(screenful()), PageUp: () => move(-screenful()),
  Home: () => moveToEnd("newest"), End: () => moveToEnd("oldest"),
  Enter: () => active && open(active), " ": () => active && open(active),
  "/": () => byId("text").focus(), p: () => byId("pause").click(), f: () => byId("follow").click(),
  c: () => byId("clear").click(),
};

grid.addEventListener("keydown", event => {
  if (kActions[event.key] && !event.ctrlKey && !event.altKey && !event.metaKey) {
    event.preventDefault();
    kActions[event.key]();
  }
});

let lastTop = 0;
grid.addEventListener("scroll", () => {
  const top = grid.scrollTop;
  if (top !== lastTop) {
    follow(top < 2 && newer === 0);
    if (top < lastTop && top < 20 * rowHeight) {
      extend("newer");
    } else if (top > lastTop && top + grid.clientHeight > grid.scrollHeight - 20 * rowHeight) {
      extend("older");
    }
    lastTop = top;
  }
  draw();
});

grid.addEventListener("click", event => {
  const row = event.target.closest("#window .row");
  if (row) {
    active = Number(row.id.slice(1));
    open(active);
  }
});

// What is at the top stays there when the list gets another width.
new ResizeObserver(() => {
  const at = grid.scrollTop / rowHeight;
  rowHeight = parseFloat(getComputedStyle(byId("window")).minHeight);
  seats = (grid.clientHeight - byId("rows").offsetTop) / rowHeight;
  shift(at - grid.scrollTop / rowHeight);
}).observe(grid);

byId("pause").addEventListener("click", () => {
  paused = !paused;
  byId("pause").ariaPressed = paused;
  say("", paused ? "paused" : "connecting");
  listen();
});
byId("follow").addEventListener("click", () => {
  if (following) {
    follow(false);
  } else {
    attempt(load);
  }
});
byId("newer").addEventListener("click", () => { attempt(load); grid.focus(); });
byId("clear").addEventListener("click", () => { since = seen; attempt(load); });
byId("all").addEventListener("click", () => { since = 0; attempt(load); grid.focus(); });
byId("ask").addEventListener("click", showHelp);
byId("fold").addEventListener("click", event => {
  event.target.ariaExpanded = event.target.ariaExpanded !== "true";
});
for (const close of document.querySelectorAll(".close")) {
  close.addEventListener("click", () => close.closest("dialog").close());
}

let typing = 0;  // timer
form.addEventListener("input", event => {
  clearTimeout(typing);
  const isTyped = event.target.matches("input:not([type=radio])");
  typing = setTimeout(() => {
    writeUrl(isTyped ? "replaceState" : "pushState");
    attempt(load);
  }, isTyped ? 250 : 0);
});
form.addEventListener("submit", event => event.preventDefault());
form.addEventListener("reset", () => setTimeout(() => { writeUrl("pushState"); attempt(load); }));

detail.addEventListener("close", () => {
  opened = 0;
  byId("main").classList.remove("open");
  writeUrl("pushState");
  draw();
  grid.focus();
});
// A dialog beside the list is not modal: no browser closes it by itself.
document.addEventListener("keydown", event => {
  if (event.key === "Escape" && detail.open && !help.open) {
    event.preventDefault();
    detail.close();
  }
});
narrow.addEventListener("change", () => {
  if (opened) {
    detail.close();
  }
});
addEventListener("popstate", () => {
  const id = readUrl();
  attempt(load);
  if (id) {
    open(id);
  } else if (detail.open) {
    detail.close();
  }
});
document.addEventListener("visibilitychange", listen);

// --- The beginning.

for (const [value, name] of Object.entries(kKinds)) {
  const input = make("input", {type: "radio", name: "kind", value, checked: value === ""});
  byId("kinds").append(make("label", "", input, name + " ", make("b", "", "0")));
}
for (const name of ["Time", "Status", "Method", "Path", "Duration", "In", "Out", "Device", "About"]) {
  grid.firstElementChild.append(make("span", {className: name.toLowerCase(), role: "columnheader"}, name));
}

async function start() {
  source?.close();
  try {
    paths = (await ask("/paths")).paths;
    const news = await ask("/totals");
    totals = {};
    showTotals(news);
    for (const name of ["devices", "topics"]) {
      byId(name).replaceChildren(...news[name].map(value => make("option", {value})));
    }
    since = 0;
    drawn.forEach(node => node.remove());  // of another root, numbers are used again
    drawn.clear();
    await load();
    listen();
    showChart();
  } catch (failure) {
    say("gone", "the back end does not answer");
    setTimeout(start, 1000);
  }
}

const linked = readUrl();
start();
if (linked) {
  open(linked);
}
