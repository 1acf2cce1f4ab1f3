// Where log lines go and what they look like:
//   2026-11-21T08:00:00.123Z WARN App.ox.s3 [oxs3conn.cpp:120] message
#pragma once

#include <string_view>

#include "ox/types.h"

namespace ox::log {

// Sends lines to fileText from now on: a path (appended to) or "stderr"; empty means stderr.
// A path that cannot be opened also falls back to stderr.
void setOutput(std::string_view fileText);

struct Event {
    int level;
    std::u32string_view logger;
    std::string_view srcPath;  // may be empty
    const char* lineText;      // may be null
    const OXChar* message;     // 0-terminated, may be null
};

// Writes the event as one line with one write(), so lines from several threads never mix.
OXStatus writeLine(const Event& event);

}  // namespace ox::log
