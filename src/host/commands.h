#pragma once
// The executable's diagnostic commands, run in-process against the local
// service (no browser involved).
#include <string>
#include <vector>

namespace wren {

// send NAME [JSON]: acts as one page. Prints each answer as one JSON line.
int runSendCommand(const std::vector<std::string>& args);
// popover [--url URL] [--title TITLE] [--dark]: the popover as a user would
// see it after a toolbar validation and a showing, on that page.
int runPopoverCommand(const std::vector<std::string>& args);
// doctor: says whether the local service answers and what it reports, and
// where the defaults store is. Non-zero when the service is unreachable.
int runDoctorCommand();

}  // namespace wren
