// Reference page script: rates the links of the page and the page itself,
// marks each link with its level and reports block pages. It speaks only the
// page protocol through the safari shim, as the product's page scripts do.
//
// Manual rating: Alt+Shift+R rates every link of the page again with type
// "ManualScanner" (the service answers it only while manual rating is on).
"use strict";

(() => {
  // Links go to the service in request headers, a few per link; batches keep
  // each request's header block small.
  const kLinksPerRequest = 50;
  // Pages that keep adding links (feeds, mail) are rescanned at most this
  // often, for the links that were not rated yet.
  const kRescanDelayMs = 500;
  const kLevelNames = { 0: "unknown", 1: "safe", 2: "caution", 3: "dangerous" };
  const kIdAttribute = "data-wren-id";

  let nextId = 1;
  const linksById = new Map();

  function isWebAddress(href) {
    return /^https?:\/\//i.test(href);
  }

  function itemFor(link) {
    let id = Number(link.getAttribute(kIdAttribute));
    if (!id) {
      id = nextId++;
      link.setAttribute(kIdAttribute, String(id));
    }
    linksById.set(id, link);
    return { url: link.href, id };
  }

  function rate(type, links) {
    const items = links.filter((a) => isWebAddress(a.href)).map(itemFor);
    for (let i = 0; i < items.length; i += kLinksPerRequest) {
      safari.extension.dispatchMessage("rateItems", { type, urls: items.slice(i, i + kLinksPerRequest) });
    }
  }

  function unratedLinks() {
    return [...document.querySelectorAll("a[href]")].filter((a) => !a.hasAttribute(kIdAttribute));
  }

  function markLink(result) {
    if (!result || typeof result !== "object") return;
    const link = linksById.get(Number(result.id));
    const level = Number(result.level);
    if (!link || !Number.isInteger(level)) return;
    const name = kLevelNames[level] ?? "unknown";
    link.setAttribute("data-wren-level", String(level));
    link.title = "Wren: " + name + " (" + link.href + ")";
  }

  function markPage(userInfo) {
    if (!userInfo || typeof userInfo !== "object") return;
    const root = document.documentElement;
    root.setAttribute("data-wren-page-level", String(userInfo.wtp_level));
    const page = userInfo.results;
    if (page && typeof page.category === "string") root.setAttribute("data-wren-page-category", page.category);
  }

  function reloadBlockPage(userInfo) {
    const href = userInfo && userInfo.href;
    if (typeof href === "string" && isWebAddress(href)) location.href = href;
  }

  safari.self.addEventListener("message", (event) => {
    switch (event.name) {
      case "rateItems":
        if (event.message && Array.isArray(event.message.results)) event.message.results.forEach(markLink);
        break;
      case "wtp_rating":
        markPage(event.message);
        break;
      case "reload_block_page":
        reloadBlockPage(event.message);
        break;
    }
  });

  // Manual rating on demand, from the user's own key press only: a page's
  // script can dispatch a synthetic one, which is not trusted.
  document.addEventListener("keydown", (event) => {
    if (!event.isTrusted) return;
    if (event.altKey && event.shiftKey && !event.ctrlKey && !event.metaKey && event.code === "KeyR") {
      rate("ManualScanner", [...document.querySelectorAll("a[href]")]);
    }
  }, true);

  if (document.querySelector('meta[name="wren-block-page"]')) {
    safari.extension.dispatchMessage("block_page", { href: location.href });
  }
  if (window === window.top && isWebAddress(location.href)) {
    safari.extension.dispatchMessage("wtp_rating", { urls: [{ url: location.href, id: 0 }] });
  }
  rate("AutomaticScan", unratedLinks());

  let rescan = null;
  new MutationObserver(() => {
    if (rescan) return;
    rescan = setTimeout(() => {
      rescan = null;
      const links = unratedLinks();
      if (links.length) rate("AutomaticScan", links);
    }, kRescanDelayMs);
  }).observe(document.documentElement, { childList: true, subtree: true });
})();
