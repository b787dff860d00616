// Gives the extension's page scripts the messaging interface they were
// written against:
//   safari.extension.dispatchMessage(name, userInfo)   to the native host
//   safari.self.addEventListener("message", handler)    events {name, message}
// Runs in the extension's isolated world of every frame, so the extension's
// page scripts see it and the web page's own scripts do not: a page cannot
// send commands to the local protection service through it.
"use strict";

(() => {
  if (globalThis.safari && globalThis.safari.wrenShim) return;
  const api = globalThis.browser ?? globalThis.chrome;
  const listeners = new Set();

  // A plain JSON copy of the page's dictionary: no functions, no cycles, no
  // DOM nodes can reach the background. Returns undefined when it cannot be
  // copied.
  function jsonCopy(value) {
    try {
      return JSON.parse(JSON.stringify(value));
    } catch (e) {
      return undefined;
    }
  }

  function dispatchMessage(name, userInfo) {
    if (!WrenPageProtocol.isToHost(name)) {
      console.debug("[wren] dropped page message with unknown name", name);
      return;
    }
    const message = { wren: "page", name };
    if (userInfo !== undefined && userInfo !== null) {
      const copy = typeof userInfo === "object" && !Array.isArray(userInfo) ? jsonCopy(userInfo) : undefined;
      if (copy === undefined) {
        console.debug("[wren] dropped page message whose userInfo is not a dictionary", name);
        return;
      }
      message.userInfo = copy;
    }
    // Pages never wait for an answer; a background that is not reachable
    // just means no answer.
    Promise.resolve(api.runtime.sendMessage(message)).catch(() => {});
  }

  function deliver(event) {
    for (const listener of [...listeners]) {
      try {
        if (typeof listener === "function") listener.call(safariSelf, event);
        else if (listener && typeof listener.handleEvent === "function") listener.handleEvent(event);
      } catch (e) {
        console.error("[wren] page message handler failed", e);
      }
    }
  }

  const safariSelf = Object.freeze({
    addEventListener(type, listener) {
      if (type === "message" && listener) listeners.add(listener);
    },
    removeEventListener(type, listener) {
      if (type === "message") listeners.delete(listener);
    },
  });

  api.runtime.onMessage.addListener((message, sender) => {
    if (sender.id !== api.runtime.id || sender.tab) return;  // only the background speaks here
    if (!message || message.wren !== "page" || !WrenPageProtocol.isToPage(message.name)) return;
    deliver({ type: "message", name: message.name, message: message.userInfo, target: safariSelf });
  });

  globalThis.safari = Object.freeze({
    wrenShim: true,
    extension: Object.freeze({ dispatchMessage }),
    self: safariSelf,
  });
})();
