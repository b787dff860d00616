// The page protocol's message names: the only names that travel between the
// extension's page scripts and the native host, in either direction. Loaded
// into every frame before the shim, and into the background.
"use strict";

var WrenPageProtocol = (() => {
  // Requests a page script may send to the host.
  const toHost = new Set([
    "rateItems", "wtp_rating", "send_data", "vd_set_email", "vd_send_command", "vd_scan_email",
    "vd_open_new_tab", "vd_show_protect_promotion", "vd_get_user_email", "vd_feedback", "vd_get_setting",
    "get_relevant_blog", "wtpatl", "block_page",
  ]);
  // Answers, plus the host's unsolicited messages, that may reach a page script.
  const toPage = new Set([...toHost, "reload_block_page", "vd_popoverClicked"]);

  return Object.freeze({
    // Native host name; lower case, as browsers require.
    hostName: "com.wren.bridge",
    isToHost: (name) => typeof name === "string" && toHost.has(name),
    isToPage: (name) => typeof name === "string" && toPage.has(name),
  });
})();
