#pragma once

// The fuzz targets' own Android log. Linking fuzz/support/FuzzLog.cpp into a target replaces
// liblog's print functions (for the library and libutils alike) with a recorder that keeps the
// lines in memory: far cheaper than liblog's stderr printing, and lets a target check that a
// refused input got its line.

#include <cstddef>
#include <string>
#include <string_view>

namespace zorcam_fuzz {

struct LogLine {
    int prio;
    std::string tag;
    std::string text;
};

/// The lines written since the last clearLog(): logCount() of them, logLine(0) first. Their
/// storage is reused from input to input, so recording allocates nothing once warmed up.
size_t logCount();
const LogLine& logLine(size_t index);
void clearLog();
/// Records one line (the log functions' common end).
void record(int prio, const char* tag, const char* text);
/// Whether a line written since the last clearLog() contains `needle`.
bool logContains(std::string_view needle);

}  // namespace zorcam_fuzz
