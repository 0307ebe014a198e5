#pragma once

#include <functional>
#include <string_view>

// The one logging facility of Kestrix. Every line starts with "[Kestrix] " and goes to the system
// log (syslog, which the journal collects) and to stderr, unless stderr already is the journal.
namespace kestrix::Log {

// Writes one line. `text` is the whole line, including its "[Kestrix] " prefix, so the fixed log
// texts of the program can be searched for in the source exactly as they appear in the journal.
void write(std::string_view text);

// Writes the line only when KESTRIX_DEBUG is set to a non-empty value other than "0". For bug
// reports: every synthesized event, replayed click, grab and release.
void debug(std::string_view text);
bool debugEnabled();

// Logs and stops the process. For conditions the program's own constants rule out: reaching one
// is a programming error, never a user error, so nothing is clamped or recovered.
[[noreturn]] void fatal(std::string_view text);

// Sees every line written, after it was written. Tests use it to check the log; nullptr removes it.
using Observer = std::function<void(std::string_view)>;
void setObserver(Observer observer);

} // namespace kestrix::Log
