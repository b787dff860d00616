#pragma once
// The popover as data: what the native-messaging host sends to the
// extension's popup, and a plain-text rendering of it for diagnostics.
//
// Runs on the main run loop (it reads the controller's widgets).
#include <string>

#include "util/json.h"

namespace wren {

class SafariExtensionViewController;

// {"appearance": "light"|"dark",
//  "outlets": {<outlet name>: null | {"kind", "hidden", ...}},
//  "constraints": {"topToVeldrin": priority|null, "topToManualRating": ...},
//  "layers": {<layer name>: {"built", "attachedTo", "colors", "borderColor",
//                            "borderWidth", "cornerRadius", "bounds", "position"}},
//  "rows": [{"container", "label", "check", "button", "hoverTarget", "layer"}]}
// Outlets by kind: a view has "hidden"; a label adds "text", "textColor"
// ("label", "grey" or "Color") and "toolTip"; a check mark has "hidden"; a
// button adds "enabled" and "hover" (handlers installed). Colours are
// [r, g, b, a] fractions or "highlightColor". A layer not built yet is
// {"built": false}.
Json popoverState(const SafariExtensionViewController& controller);

// One line a row, top to bottom, e.g. "[x] Automatic scan",
// "[ ] Manual rating (greyed)", "    Help", with "(disabled)", "(hidden)",
// "(highlighted)" and the tooltip where they apply.
std::string describePopover(const Json& state);

}  // namespace wren
