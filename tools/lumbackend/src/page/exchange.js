// --- One exchange.

// A text that scrolls by itself, by the keys as well.
const block = (label, text) => make("pre", {role: "region", tabIndex: 0, ariaLabel: label}, text);
const folded = (title, open, ...content) => make("details", {open}, make("summary", {}, title), ...content);
const button = (text, onclick) => make("button", {type: "button", onclick}, text);
const link = (text, href, download) => make("a", {className: "button", href, download}, text);

async function copy(text, from) {
  try {
    await navigator.clipboard.writeText(text);
  } catch {  // not offered to pages that came over plain HTTP from another machine
    const area = make("textarea", {className: "spoken", value: text});
    detail.append(area);
    area.select();
    document.execCommand("copy");
    area.remove();
    from.focus();
  }
  from.textContent = "Copied";
  setTimeout(() => { from.textContent = "Copy"; }, 2000);
}

// What the detail holds; on a narrow screen it covers the list.
function show(title, ...content) {
  byId("detail-title").replaceChildren(safe(title));
  detail.lastElementChild.replaceChildren(...content);
  if (!detail.open) {
    byId("main").classList.add("open");
    narrow.matches ? detail.showModal() : detail.show();
  }
  detail.scrollTop = 0;
  byId("detail-title").focus();
}

async function open(id) {
  opened = id;
  writeUrl("pushState");
  draw();
  try {
    const x = await ask("/exchanges/" + id);
    const bytes = x.bodySize > 0 ? await readBody(id, kBodyPiece) : new Uint8Array();
    if (opened === id) {  // nothing else was opened meanwhile
      show(`${x.method} ${target(x)}`, ...parts(x, bytes));
    }
  } catch (failure) {
    show("Exchange " + id, make("p", "", failure.message));
  }
}

function parts(x, bytes) {
  const facts = make("dl");
  const fact = (name, value, className) => value && facts.append(make("dt", "", name), make("dd", className, value));
  fact("Refused", x.refusal, "bad");
  fact("Path", target(x), "mono");
  fact("Status", x.status || "no answer");
  fact("Time", stamp(x.time, 23));
  fact("Duration", took(x.duration));
  fact("Body in", count(x.bytesIn, "byte") + (x.gzip ? ", gzip" : ""));
  fact("Answer out", count(x.bytesOut, "byte"));
  fact("Device", x.device);
  fact("Topic", x.topic);
  fact("Object", x.object);
  fact("Signature", x.signed ? "signed" : x.kind === "upload" ? "unsigned" : "");
  fact("Client", x.client + (x.tls ? ", TLS" : ""));
  const object = /^\/(objects|files)\/./.test(x.path) && x.object && x.status < 400
    ? [make("p", "", link("Download the object", x.path, x.object.split("/").pop()))] : [];
  const fields = (title, isOpen, list) => folded(title, isOpen,
    block(title, list.map(field => field.name + ": " + field.value).join("\n")));
  const answer = x.answerText.length < 2000 ? "Answer" : "Answer, its first 2 KiB";
  return [
    facts, ...object,
    ...(bytes.length > 0 ? [body(x, bytes)] : []),
    ...(x.answerText ? [folded(answer, true, block("Answer", pretty(x.answerText)))] : []),
    fields("Head of the request", true, x.head), fields("Head of the answer", false, x.answerHead),
    again("curl", curlCommand(x, bytes)), again("lumcurl", lumcurlCommand(x, bytes)),
  ];
}

// The first `limit` bytes of a body; the rest is not fetched until somebody asks for it.
async function readBody(id, limit) {
  const reader = (await fetch(`/exchanges/${id}/body`)).body.getReader();
  const pieces = [];
  for (let length = 0; length < limit;) {
    const {done, value} = await reader.read();
    if (done) {
      break;
    }
    pieces.push(value);
    length += value.length;
  }
  reader.cancel();
  return new Uint8Array(await new Blob(pieces).arrayBuffer()).subarray(0, limit);
}

function body(x, bytes) {
  const isJson = /^\s*[[{"]/.test(textOf(bytes.subarray(0, 64)));
  const text = block("Body", "");
  const rest = make("p");
  const raw = button("Raw", () => fill(!isRaw()));
  const isRaw = () => raw.ariaPressed === "true";
  raw.hidden = !isJson;
  const fill = asRaw => {
    raw.ariaPressed = asRaw;
    const shown = textOf(bytes);
    text.replaceChildren(safe(asRaw ? shown : pretty(shown), "\n\t"));
    rest.replaceChildren(`${size(bytes.length)} of ${size(x.bodySize)} are shown. `,
      button("Show more", async () => {
        bytes = await readBody(x.id, 16 * bytes.length);
        fill(isRaw());
      }));
    rest.hidden = bytes.length >= x.bodySize;
  };
  fill(!isJson);
  const bar = make("div", "bar", raw, link("Save", `/exchanges/${x.id}/body`, `body-${x.id}${isJson ? ".json" : ""}`));
  const cut = x.bodyIsWhole ? [] : [make("p", "", "Of a body as long as this one the back end keeps no more.")];
  return folded(`Body, ${size(x.bodySize)}`, true, bar, text, rest, ...cut);
}

// --- The same request once more. A command is made of quoted words and of variables for what the
// page does not know. Nothing that a client sent can end a word or steer the terminal it is pasted
// into: what holds controls is spelled in octal, and bodies that are long or not plain are fetched
// from the back end.

function quote(text) {
  if (/^[\w.,:/@%+-]+$/.test(text)) {
    return text;
  }
  return text.search(kUnfit) < 0 ? "'" + text.replaceAll("'", "'\\''") + "'"
    : "$'" + bytesOf(text).map(b => b > 31 && b < 127 && b !== 39 && b !== 92 ? String.fromCharCode(b)
      : "\\" + b.toString(8).padStart(3, "0")).join("") + "'";
}

const urlOf = x => quote(location.origin + target(x));
const fileOf = x => quote("./" + (x.object.split("/").pop() || "file"));
const header = (x, name) => x.head.find(field => field.name.toLowerCase() === name)?.value ?? "";

// Options for the header lines that the tool does not write itself. Secrets become variables; `empty`
// is what the tool wants behind the name of a line without a value.
function headerOptions(x, empty) {
  const kOwn = ["host", "content-length", "transfer-encoding", "connection", "expect", "accept-encoding"];
  return x.head.filter(({name}) => /^\w[\w!#$%&'*+.^`|~-]*$/.test(name) && !kOwn.includes(name.toLowerCase()))
    .map(({name, value}) => "-H " + (value === "***" ? `${quote(name + ": ")}"$${variable(name)}"`
      : quote(name + (value ? ": " + value : empty))));
}

function variable(name) {
  return name.toLowerCase() === "x-auth-token" ? "LUMCURL_TOKEN" : name.toUpperCase().replace(/\W/g, "_");
}

// Where a command gets the body from: a text to be quoted, or a pipe from what is kept of it.
function bodyFor(x, bytes) {
  const text = textOf(bytes);
  const isPlain = x.bodyIsWhole && bytes.length === x.bodySize && bytes.length <= kInline &&
    bytesOf(text).length === bytes.length && text.replaceAll("\n", "").search(kUnfit) < 0;
  return {text: isPlain ? text : null, pipe: `curl -s ${quote(`${location.origin}/exchanges/${x.id}/body`)} | `};
}

function curlCommand(x, bytes) {
  const {text, pipe} = bodyFor(x, bytes);
  const packed = header(x, "content-encoding") === "gzip";
  const words = ["curl" + (location.protocol === "https:" ? " -k" : "") + (/[[\]{}]/.test(target(x)) ? " -g" : "") +
    (x.path.includes("/.") ? " --path-as-is" : ""), ...headerOptions(x, ";")];
  let before = "";
  if (x.method === "PUT" && x.path.startsWith("/objects/")) {
    words.push("-T " + fileOf(x));
  } else if (x.bytesIn > 0) {
    if (!header(x, "content-type")) {
      words.push("-H 'Content-Type:'");  // curl would announce a form
    }
    if (x.bodySize === 0) {
      words.push("--data-binary @request.json");
    } else if (text !== null && !packed) {
      words.push("--data-raw " + quote(text));  // unlike -d, a leading @ names no file
    } else {
      before = (text === null ? pipe : `printf %s ${quote(text)} | `) + (packed ? "gzip -c | " : "");
      words.push("--data-binary @-");
    }
  }
  const has = option => words.some(word => word.startsWith(option));
  const implied = has("--data") ? "POST" : has("-T ") ? "PUT" : "GET";
  if (x.method === "HEAD") {
    words.push("-I");
  } else if (x.method !== implied) {
    words.push("-X " + quote(x.method));
  }
  return before + [...words, urlOf(x)].join(" \\\n  ");
}

// "" where lumcurl has no command for such a request.
function lumcurlCommand(x, bytes) {
  const {text, pipe} = bodyFor(x, bytes);
  const data = x.bodySize > 0 ? text === null ? "--data-file -" : "--data=" + quote(text)
    : x.bytesIn > 0 ? "--data-file request.json" : "--data=''";
  const before = data.endsWith(" -") ? pipe : "";
  const first = x.path.split("/")[1];
  const log = /access_id=(.*?)&file_name=(.*)/.exec(x.query);
  const sender = header(x, "x-orv-access-id");
  const line = (...words) => words.filter(word => word).join(" \\\n  ");
  switch (x.method + " " + first) {
    case "POST report":
      return before + line("lumcurl report", x.gzip && "--gzip",
        x.gzip && sender && "--access-id=" + quote(sender), data, urlOf(x));
    case "POST token":
      return line("lumcurl token", "--data-file request.json", urlOf(x));
    case "PUT token":
      return line("lumcurl refresh-token", "--data-file request.json", urlOf(x));
    case "GET log-address":
      return log ? line("lumcurl log-address", "--access-id=" + quote(log[1]),
        "--file-name=" + quote(log[2]), quote(location.origin + x.path)) : "";
    case "PUT objects":
      return line(x.object.endsWith(".mp4") ? "lumcurl upload-video" : "lumcurl upload-log",
        x.signed && "--sign-key-file storage.key", urlOf(x), fileOf(x));
    case "GET objects":
    case "GET files":
      return line("lumcurl download", urlOf(x), fileOf(x));
    default:
      return x.method === "GET" ? line("lumcurl service-get", ...headerOptions(x, ":"), urlOf(x))
        : x.method === "POST" ? before + line("lumcurl service-post", ...headerOptions(x, ":"), data, urlOf(x)) : "";
  }
}

function again(tool, text) {
  const title = "Again with " + tool;
  if (!text) {
    return folded(title, false, make("p", "", `${tool} has no command for such a request.`));
  }
  const needs = [...new Set([...text.matchAll(/"\$(\w+)"/g)].map(found => found[1])),
    ...(/^lumcurl (report|refresh|log-)|\| lumcurl report/.test(text) ? ["LUMCURL_TOKEN"] : [])];
  const files = text.includes("request.json") ? ["the file request.json"]
    : / -T |lumcurl upload-/.test(text) ? ["the file"] : [];
  const missing = [...needs.map(name => name + " in the environment"), ...files];
  return folded(title, true, block(title, text), make("div", "bar", button("Copy", event => copy(text, event.target)),
    ...(missing.length ? [make("span", "", "Needs " + missing.join(" and ") + ".")] : [])));
}
