"use strict";

const kPage = 100;         // rows asked for at once
const kMostRows = 3000;    // kept in memory, whatever one scrolls past
const kSpare = 8;          // rows drawn beyond what is seen, above and below
const kQuiet = 10_000;     // ms between two announcements
const kBodyPiece = 65536;  // bytes of a body that are shown at first
const kInline = 2048;      // longest body that a copied command carries
const kKinds = {
  "": "All", report: "Reports", upload: "Uploads", token: "Tokens", configuration: "Configuration",
  refusal: "Refusals", address: "Log addresses", download: "Downloads", echo: "Echoes", other: "Other",
};
const kRareKinds = ["address", "download", "echo", "other"];  // offered when there are some

const byId = id => document.getElementById(id);
const [grid, form, detail, help] = ["grid", "filter", "detail", "help"].map(byId);
const narrow = matchMedia("(max-width: 64rem)");

// --- Text. What comes from clients is only ever set as text, and what could steer a reader's eye
// (controls, marks of writing direction, separators of lines) is spelled out, as in the log.

const kUnfit = /[\0-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069]/g;
const bytesOf = text => [...new TextEncoder().encode(text)];
const hex = byte => "\\x" + byte.toString(16).padStart(2, "0");

function safe(text, allowed = "") {
  return String(text).replace(kUnfit, c => allowed.includes(c) ? c : bytesOf(c).map(hex).join(""));
}

// `what` is a class, or properties by their names.
function make(tag, what, ...content) {
  const node = Object.assign(document.createElement(tag), typeof what === "string" ? {className: what} : what);
  node.append(...content.map(part => part instanceof Node ? part : safe(part, "\n\t")));
  return node;
}

// Changes nothing, for a screen reader least of all, where nothing has changed.
function put(node, text) {
  if (node.textContent !== text) {
    node.textContent = text;
  }
}

// Bytes as text: UTF-8 stays, every byte that is none becomes \xHH.
function textOf(bytes) {
  const kCharacter = new RegExp([
    /[\0-\x7f]|[\xc2-\xdf][\x80-\xbf]/, /\xe0[\xa0-\xbf][\x80-\xbf]/, /\xed[\x80-\x9f][\x80-\xbf]/,
    /[\xe1-\xec\xee\xef][\x80-\xbf]{2}/, /\xf0[\x90-\xbf][\x80-\xbf]{2}/, /[\xf1-\xf3][\x80-\xbf]{3}/,
    /\xf4[\x80-\x8f][\x80-\xbf]{2}/, /[^]/,
  ].map(part => part.source).join("|"), "g");
  const decode = part => new TextDecoder("utf-8", {fatal: true, ignoreBOM: true}).decode(part);
  try {
    return decode(bytes);
  } catch {
    const binary = bytes.reduce((text, byte) => text + String.fromCharCode(byte), "");
    const mended = binary.replace(kCharacter, c => c.length > 1 || c < "\x80" ? c : hex(c.charCodeAt(0)));
    return decode(Uint8Array.from(mended, c => c.charCodeAt(0)));
  }
}

const number = new Intl.NumberFormat("en").format;
const count = (n, one) => number(n) + " " + one + (n === 1 ? "" : "s");

function size(bytes) {
  const units = ["B", "KiB", "MiB", "GiB"];
  let unit = 0;
  for (; bytes >= 1024 && unit < 3; ++unit) {
    bytes /= 1024;
  }
  return (unit > 0 && bytes < 10 ? bytes.toFixed(1) : Math.round(bytes)) + " " + units[unit];
}

function took(microseconds) {
  const ms = microseconds / 1000;
  return ms < 10 ? ms.toFixed(1) + " ms" : ms < 1000 ? Math.round(ms) + " ms" : (ms / 1000).toFixed(1) + " s";
}

// Local time, in the order in which dates sort.
function stamp(time, length = 19) {
  const local = new Date(time - new Date(time).getTimezoneOffset() * 60_000);
  return local.toISOString().slice(0, length).replace("T", " ");
}

const target = x => x.path + (x.query ? "?" + x.query : "");
const statusText = x => x.status || "none";

// Re-indents JSON by its tokens alone: numbers of any length, members that come twice and a text
// that ends too early stay what they are.
function pretty(text) {
  const kToken = /[{}[\],:"]|[^\s{}[\],:"]+/g;
  let out = "", last = "", depth = 0;
  for (let found; (found = kToken.exec(text)) !== null;) {
    if (found[0] === '"') {
      kToken.lastIndex = endOfString(text, found.index);
    }
    const token = text.slice(found.index, kToken.lastIndex);
    const opened = last === "{" || last === "[";
    const closes = token === "}" || token === "]";
    depth = Math.max(0, depth - closes);
    if (closes ? !opened : opened || last === ",") {
      out += "\n" + "  ".repeat(Math.min(depth, 40));
    }
    out += token === ":" ? ": " : token;
    depth += token === "{" || token === "[";
    last = token;
  }
  return out;
}

// No regular expression: its stack does not hold a string of some megabytes.
function endOfString(text, start) {
  for (let end = start + 1; (end = text.indexOf('"', end)) >= 0; ++end) {
    let slashes = 0;
    while (text[end - 1 - slashes] === "\\") {
      ++slashes;
    }
    if (slashes % 2 === 0) {
      return end + 1;
    }
  }
  return text.length;
}
