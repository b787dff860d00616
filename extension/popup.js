// The toolbar popover, drawn from the host's popover state frames. The host
// owns the row logic (check marks, greyed rows, tooltips, highlights); this
// page only renders the state it is sent and reports what the user does:
// on open the hooks "popoverViewController" and "popoverWillShow" and the
// events "viewWillAppear" and "viewDidAppear", then clicks and hovers by the
// row button's outlet name. It closes itself when the host dismisses it.
"use strict";

const api = globalThis.browser ?? globalThis.chrome;

// The rows as the popover lays them out, used until the host's state names
// them, with English titles for labels that carry no text.
const kDefaultRows = [
  { container: "viewAutoRating", label: "lblAutoRating", check: "autoRatingCheck", button: "btnAutoRating",
    hoverTarget: "autoRatingLayer", layer: "layerAutoRating" },
  { container: "viewManualRating", label: "lblManualRating", check: "manualRatingCheck", button: "btnManualRating",
    hoverTarget: "manualRatingLayer", layer: "layerManualRating" },
  { container: "viewVeldrin", label: "lblVeldrin", check: "veldrinCheck", button: "btnVeldrin",
    hoverTarget: "veldrinLayer", layer: "layerVeldrin" },
  { container: "viewSettings", label: "lblSettings", check: null, button: "btnSettings",
    hoverTarget: "settingLayer", layer: "layerSettings" },
  { container: "viewHelp", label: "lblHelp", check: null, button: "btnHelp", hoverTarget: "helpLayer",
    layer: "layerHelp" },
];
const kDefaultTitles = {
  lblAutoRating: "Automatic scan",
  lblManualRating: "Manual rating",
  lblVeldrin: "Veldrin Scam Scanner",
  lblSettings: "Settings",
  lblHelp: "Help",
};

const rowsElement = document.getElementById("rows");
const statusElement = document.getElementById("status");
const rowElements = new Map();  // container outlet name -> the row's elements
let haveState = false;

const port = api.runtime.connect({ name: "popover" });

function send(frame) {
  try {
    port.postMessage(frame);
  } catch (e) {
    // The background went away; the popup is closing anyway.
  }
}

function appearance() {
  return matchMedia("(prefers-color-scheme: dark)").matches ? "dark" : "light";
}

function element(tag, className) {
  const e = document.createElement(tag);
  e.className = className;
  return e;
}

function rowFor(names) {
  let row = rowElements.get(names.container);
  if (row) return row;
  const container = element("div", "row");
  const hoverTarget = element("div", "hover-target");
  const highlight = element("div", "highlight");
  highlight.hidden = true;
  hoverTarget.append(highlight);
  const check = element("span", "check");
  check.textContent = "\u2713";
  check.setAttribute("aria-hidden", "true");
  const label = element("span", "label");
  label.textContent = kDefaultTitles[names.label] ?? "";
  const button = element("button", "row-button");
  button.type = "button";
  button.setAttribute("aria-disabled", "true");
  container.append(hoverTarget, check, label, button);
  row = { names, container, hoverTarget, highlight, check, label, button };
  // The host decides what a hover or a click does; a disabled row takes no
  // click. Entry and exit alternate, as a tracking area reports them.
  let inside = false;
  button.addEventListener("mouseenter", () => {
    if (inside) return;
    inside = true;
    send({ type: "popover", event: "mouseEntered", control: row.names.button });
  });
  button.addEventListener("mouseleave", () => {
    if (!inside) return;
    inside = false;
    send({ type: "popover", event: "mouseExited", control: row.names.button });
  });
  button.addEventListener("click", () => {
    if (button.getAttribute("aria-disabled") !== "true") send({ type: "popover", event: "click", control: row.names.button });
  });
  rowElements.set(names.container, row);
  return row;
}

function textOf(value) {
  return typeof value === "string" ? value : "";
}

function colorCss(color) {
  if (color === "highlightColor") return "var(--wren-highlight)";
  if (Array.isArray(color) && color.length === 4 && color.every((c) => typeof c === "number")) {
    const [r, g, b, a] = color;
    const byte = (f) => Math.round(Math.min(Math.max(f, 0), 1) * 255);
    return `rgba(${byte(r)}, ${byte(g)}, ${byte(b)}, ${Math.min(Math.max(a, 0), 1)})`;
  }
  return "transparent";
}

function drawHighlight(highlight, layer) {
  const colors = Array.isArray(layer.colors) ? layer.colors.map(colorCss) : [];
  if (colors.length === 1) colors.push(colors[0]);
  highlight.style.background = colors.length ? `linear-gradient(to bottom, ${colors.join(", ")})` : "transparent";
  const width = typeof layer.borderWidth === "number" ? layer.borderWidth : 0;
  highlight.style.border = `${width}px solid ${colorCss(layer.borderColor)}`;
  highlight.style.borderRadius = `${typeof layer.cornerRadius === "number" ? layer.cornerRadius : 0}px`;
}

function isObject(value) {
  return value !== null && typeof value === "object" && !Array.isArray(value);
}

function render(state) {
  const outlets = isObject(state.outlets) ? state.outlets : {};
  const layers = isObject(state.layers) ? state.layers : {};
  const constraints = isObject(state.constraints) ? state.constraints : {};
  const rows = Array.isArray(state.rows) ? state.rows.filter((r) => isObject(r) && typeof r.container === "string")
                                         : kDefaultRows;
  // Without the mail-scan row the layout follows topToManualRating.
  const veldrinLaidOut = !(typeof constraints.topToManualRating === "number" &&
                           typeof constraints.topToVeldrin === "number" &&
                           constraints.topToManualRating > constraints.topToVeldrin);
  rows.forEach((names, index) => {
    const row = rowFor(names);
    row.names = names;
    // In the state's order. A row is moved only when it must be: moving the
    // row under the mouse would make the browser report a new entry.
    if (rowsElement.children[index] !== row.container) {
      rowsElement.insertBefore(row.container, rowsElement.children[index] ?? null);
    }
    const container = outlets[names.container];
    const label = outlets[names.label];
    const check = names.check ? outlets[names.check] : null;
    const button = outlets[names.button];

    row.container.hidden = isObject(container) && container.hidden === true;
    row.container.classList.toggle("collapsed", names.container === "viewVeldrin" && !veldrinLaidOut);
    row.container.dataset.outlet = names.container;

    const title = isObject(label) ? textOf(label.text) : "";
    row.label.textContent = title || kDefaultTitles[names.label] || names.label;
    row.label.dataset.color = isObject(label) ? textOf(label.textColor) || "label" : "label";
    row.label.classList.toggle("off", isObject(label) && label.hidden === true);

    row.check.classList.toggle("off", !isObject(check) || check.hidden === true);
    row.check.dataset.shown = String(isObject(check) && check.hidden !== true);

    const enabled = isObject(button) && button.enabled === true && button.hidden !== true;
    row.button.setAttribute("aria-disabled", String(!enabled));
    row.button.setAttribute("aria-label", row.label.textContent);
    row.button.dataset.outlet = names.button;
    const tip = isObject(label) ? textOf(label.toolTip) : "";
    if (tip) row.button.title = tip;
    else row.button.removeAttribute("title");

    const layer = layers[names.layer];
    const shown = isObject(layer) && layer.built === true && layer.attachedTo === names.hoverTarget;
    row.highlight.hidden = !shown;
    if (shown) drawHighlight(row.highlight, layer);
    row.container.dataset.highlighted = String(shown);
  });
}

function showStatus(text) {
  statusElement.textContent = text;
  statusElement.hidden = !text;
}

port.onMessage.addListener((frame) => {
  if (!isObject(frame)) return;
  if (frame.type === "status") {
    if (!haveState) showStatus(frame.connected ? "" : "Connecting to Wren\u2026");
  } else if (frame.type === "popover" && frame.dismiss === true) {
    window.close();
  } else if (frame.type === "popover" && isObject(frame.state)) {
    haveState = true;
    showStatus("");
    render(frame.state);
    document.body.dataset.ready = "true";
  }
});

render({});
send({ type: "hook", name: "popoverViewController" });
send({ type: "hook", name: "popoverWillShow" });
send({ type: "popover", event: "viewWillAppear", appearance: appearance() });
send({ type: "popover", event: "viewDidAppear", appearance: appearance() });
