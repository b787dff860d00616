// The extension's background: holds the one native-messaging port to the
// wren-bridge host for as long as it lives (the open port also keeps a
// Manifest V3 service worker alive) and translates between the host's frames
// (docs/native-messaging.md) and the browser: page messages to and from the
// content scripts, the host's browser calls, toolbar validation, and the
// popup's popover frames.
"use strict";

if (typeof WrenPageProtocol === "undefined" && typeof importScripts === "function") {
  importScripts("page_protocol.js");
}

const api = globalThis.browser ?? globalThis.chrome;

// Reconnection after the host went away: doubled after each failure, from a
// second (a host that crashed once is back at once) up to a minute (a host
// that is not installed yet costs one process start a minute).
const kReconnectFirstMs = 1000;
const kReconnectMaxMs = 60 * 1000;

const kHookNames = new Set(["toolbarItemClicked", "validateToolbarItem", "popoverViewController",
                            "popoverWillShow", "popoverDidClose"]);
const kPopoverEvents = new Set(["viewWillAppear", "viewDidAppear", "click", "mouseEntered", "mouseExited"]);

let port = null;
let hostVersion = null;
// The local service's origin, from the host's hello: block pages are its
// own documents, so only they may report one, and a page is sent back only
// to an address of it.
let serviceOrigin = null;
let reconnectDelay = kReconnectFirstMs;
let reconnectTimer = null;
const popups = new Set();
let lastPopoverState = null;

// ---- the native host ------------------------------------------------------

function connectHost() {
  reconnectTimer = null;
  let p;
  try {
    p = api.runtime.connectNative(WrenPageProtocol.hostName);
  } catch (e) {
    console.warn("[wren] cannot start the native host:", e.message);
    scheduleReconnect();
    return;
  }
  port = p;
  p.onMessage.addListener(handleHostFrame);
  p.onDisconnect.addListener(() => {
    const reason = api.runtime.lastError?.message ?? p.error?.message ?? "closed";
    console.warn("[wren] native host disconnected:", reason);
    if (port !== p) return;
    port = null;
    hostVersion = null;
    serviceOrigin = null;
    lastPopoverState = null;
    broadcastStatus();
    scheduleReconnect();
  });
}

function scheduleReconnect() {
  if (reconnectTimer !== null) return;
  reconnectTimer = setTimeout(connectHost, reconnectDelay);
  reconnectDelay = Math.min(reconnectDelay * 2, kReconnectMaxMs);
}

function toHost(frame) {
  if (!port) {
    console.debug("[wren] no native host; dropped", frame.type, frame.name ?? frame.event ?? "");
    return;
  }
  try {
    port.postMessage(frame);
  } catch (e) {
    console.warn("[wren] cannot write to the native host:", e.message);
  }
}

function handleHostFrame(frame) {
  if (!frame || typeof frame !== "object") return;
  switch (frame.type) {
    case "hello":
      hostVersion = typeof frame.version === "string" ? frame.version : "";
      serviceOrigin = typeof frame.serviceOrigin === "string" ? originOf(frame.serviceOrigin) : null;
      reconnectDelay = kReconnectFirstMs;
      broadcastStatus();
      // A new host knows nothing yet: let it load the settings now rather
      // than at the next tab change, so the first page's requests pass.
      lastFocusedWindowId().then(validateToolbar);
      break;
    case "message":
      deliverToPage(frame);
      break;
    case "call":
      answerCall(frame);
      break;
    case "popover":
      relayToPopups(frame);
      break;
    default:
      console.debug("[wren] dropped host frame of type", frame.type);
  }
}

// ---- pages ------------------------------------------------------------------

function originOf(address) {
  try {
    return new URL(address).origin;
  } catch {
    return null;
  }
}

// Whether `address` belongs to the local service (never when the host has
// not said where it is).
function isServiceAddress(address) {
  return serviceOrigin !== null && typeof address === "string" && originOf(address) === serviceOrigin;
}

function isIndex(value) {
  return Number.isInteger(value) && value >= 0;
}

function deliverToPage(frame) {
  const page = frame.page;
  if (!page || !isIndex(page.tabId) || !WrenPageProtocol.isToPage(frame.name)) {
    console.debug("[wren] dropped host message", frame.name);
    return;
  }
  if (frame.name === "reload_block_page" && !isServiceAddress(frame.userInfo?.href)) {
    console.warn("[wren] refused to reload a block page to an address outside the local service");
    return;
  }
  const message = { wren: "page", name: frame.name };
  if (frame.userInfo !== undefined && frame.userInfo !== null) message.userInfo = frame.userInfo;
  const frameId = isIndex(page.frameId) ? page.frameId : 0;
  // The page may have gone meanwhile; it was never waiting.
  Promise.resolve(api.tabs.sendMessage(page.tabId, message, { frameId })).catch(() => {});
}

api.runtime.onMessage.addListener((message, sender) => {
  if (sender.id !== api.runtime.id || !sender.tab || !message || message.wren !== "page") return;
  if (!WrenPageProtocol.isToHost(message.name)) return;
  // Any page can carry the block-page marker; only the service's own are
  // block pages.
  if (message.name === "block_page" && !isServiceAddress(sender.url)) {
    console.warn("[wren] refused block_page from a page outside the local service");
    return;
  }
  const frame = { type: "message", name: message.name, page: { tabId: sender.tab.id, frameId: sender.frameId ?? 0 } };
  const userInfo = message.userInfo;
  if (userInfo !== undefined && userInfo !== null) {
    if (typeof userInfo !== "object" || Array.isArray(userInfo)) return;
    frame.userInfo = userInfo;
  }
  toHost(frame);
});

// ---- the host's browser calls -----------------------------------------------

async function lastFocusedWindowId() {
  try {
    const w = await api.windows.getLastFocused({ windowTypes: ["normal"] });
    return w && isIndex(w.id) ? w.id : null;
  } catch (e) {
    return null;  // no window at all
  }
}

const calls = {
  async getActiveWindow() {
    const windowId = await lastFocusedWindowId();
    return windowId === null ? null : { windowId };
  },
  async getActiveTab(frame) {
    const windowId = frame.window?.windowId;
    if (!isIndex(windowId)) return null;
    const [tab] = await api.tabs.query({ active: true, windowId });
    return tab && isIndex(tab.id) ? { tabId: tab.id } : null;
  },
  async getActivePage(frame) {
    const tabId = frame.tab?.tabId;
    if (!isIndex(tabId)) return null;
    const tab = await api.tabs.get(tabId);
    return tab ? { tabId: tab.id, frameId: 0 } : null;
  },
  async getPageProperties(frame) {
    // A page is named by its tab: the properties are the tab's (its top frame's).
    const tabId = frame.page?.tabId;
    if (!isIndex(tabId)) return null;
    const tab = await api.tabs.get(tabId);
    if (!tab) return null;
    return { url: tab.url || tab.pendingUrl || "", title: tab.title ?? "" };
  },
  async openTab(frame) {
    const windowId = frame.window?.windowId;
    const url = frame.url;
    // Only web addresses: the address comes from a page.
    if (typeof url !== "string" || !/^https?:\/\//i.test(url)) {
      console.warn("[wren] not opening a tab on", url);
      return null;
    }
    const options = { url, active: frame.activate !== false };
    if (isIndex(windowId)) options.windowId = windowId;
    await api.tabs.create(options);
    return null;
  },
};

async function answerCall(frame) {
  if (!Number.isInteger(frame.id)) return;
  let value = null;
  const method = Object.hasOwn(calls, frame.method) ? calls[frame.method] : null;
  if (!method) {
    console.warn("[wren] unknown host call", frame.method);
  } else {
    try {
      value = (await method(frame)) ?? null;
    } catch (e) {
      value = null;  // a tab or window that went away: none
    }
  }
  toHost({ type: "result", id: frame.id, value });
}

// ---- toolbar validation -----------------------------------------------------

function validateToolbar(windowId) {
  if (!isIndex(windowId)) return;  // WINDOW_ID_NONE: the browser lost focus
  toHost({ type: "hook", name: "validateToolbarItem", window: { windowId } });
}

api.tabs.onActivated.addListener(({ windowId }) => validateToolbar(windowId));
api.windows.onFocusChanged.addListener((windowId) => validateToolbar(windowId));
api.tabs.onUpdated.addListener((tabId, change, tab) => {
  if (change.status === "complete" && tab.active) validateToolbar(tab.windowId);
});

// ---- the popup ----------------------------------------------------------------

function broadcastStatus() {
  for (const p of popups) postStatus(p);
}

function postStatus(p) {
  p.postMessage({ type: "status", connected: hostVersion !== null, hostVersion });
}

function relayToPopups(frame) {
  let out;
  if (frame.dismiss === true) {
    out = { type: "popover", dismiss: true };
  } else if (frame.state && typeof frame.state === "object") {
    lastPopoverState = frame.state;
    out = { type: "popover", state: frame.state };
  } else {
    return;
  }
  for (const p of popups) p.postMessage(out);
}

// The popup's frames go to the host in the order they were sent; a hook
// waits for its window, so everything behind it waits too.
async function forwardPopupFrame(frame) {
  if (!frame || typeof frame !== "object") return;
  if (frame.type === "hook" && kHookNames.has(frame.name)) {
    const windowId = await lastFocusedWindowId();
    toHost({ type: "hook", name: frame.name, window: windowId === null ? null : { windowId } });
  } else if (frame.type === "popover" && kPopoverEvents.has(frame.event)) {
    const out = { type: "popover", event: frame.event };
    if (typeof frame.appearance === "string") out.appearance = frame.appearance;
    if (typeof frame.control === "string") out.control = frame.control;
    toHost(out);
  }
}

api.runtime.onConnect.addListener((p) => {
  const popupUrl = api.runtime.getURL("popup.html");
  if (p.name !== "popover" || p.sender?.id !== api.runtime.id || !(p.sender.url ?? "").startsWith(popupUrl)) return;
  popups.add(p);
  let queue = Promise.resolve();
  p.onMessage.addListener((frame) => {
    queue = queue.then(() => forwardPopupFrame(frame));
  });
  p.onDisconnect.addListener(() => {
    popups.delete(p);
    queue = queue.then(() => forwardPopupFrame({ type: "hook", name: "popoverDidClose" }));
  });
  postStatus(p);
  if (lastPopoverState) p.postMessage({ type: "popover", state: lastPopoverState });
});

// Start with the browser, so the host is ready before the first page asks.
api.runtime.onStartup.addListener(() => {});
api.runtime.onInstalled.addListener(() => {});

connectHost();
