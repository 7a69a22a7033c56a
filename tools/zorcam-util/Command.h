#pragma once

// Sub-commands of zorcam-util register themselves here with a static Command object. Each
// declares its options on its own CLI11 sub-command and hands back what runs once the command
// line has been parsed; the runner checks what CLI11 cannot (sizes, format names, files) and
// returns the exit status: 0, 1 when the work failed, 2 for a bad argument.

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace zorcam_util {

struct Command {
    using Runner = std::function<int()>;
    using Setup = std::function<Runner(CLI::App& command)>;
    Command(const char* name, const char* description, Setup setup);

    const char* mName;
    const char* mDescription;  // one line: what the command does
    Setup mSetup;
};

/// Prints "zorcam-util <command>: <message>" on stderr and returns 2: a bad argument.
int badArgument(const char* command, const std::string& message);

}  // namespace zorcam_util
