#pragma once
// The two log channels. Both end on stderr, one record a line: a line break
// inside a record is written as the two characters "\n", so a reader can split
// on newlines. Nothing is ever written to stdout. A record is cut at 64 KiB.
// Writing never waits for a stderr that is not read (where it is
// non-blocking, see makeNonBlocking in util/fd_io.h): a line it cannot take
// now is dropped, and the next line that goes through says how many were.
//
//  - Logging: the facade with levels. Info and debug do nothing; a warning is
//    queued and written by a background writer; an error is written at once
//    (after whatever warnings are still queued). Text "[tag], message", or
//    "message" when there is no tag.
//  - systemLog(): the platform log, a plain line written at once.
//
// Safe from any thread.
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace wren {

class Logging {
 public:
  static void logInfoWithTag(std::optional<std::string_view> tag, std::string_view message);
  static void logDebugWithTag(std::optional<std::string_view> tag, std::string_view message);
  static void logWarningWithTag(std::optional<std::string_view> tag, std::string_view message);
  static void logErrorWithTag(std::optional<std::string_view> tag, std::string_view message);

  // Waits until every queued warning has been written.
  static void flush();
};

void systemLog(std::string_view line);

// Where finished lines go (the text, without the trailing newline). The default
// writes to stderr. Tests install their own; pass nullptr to restore stderr.
// The sink is called with the writer's lock held: it must not log itself.
using LogSink = std::function<void(std::string_view line)>;
void setLogSink(LogSink sink);

// A record's line: every "\n" replaced by the two characters '\' 'n' and every
// "\r" by '\' 'r'.
std::string oneLine(std::string_view text);

}  // namespace wren
