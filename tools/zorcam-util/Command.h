#pragma once

// Sub-commands of zorcam-util register themselves here with a static Command object.

#include <functional>
#include <string>
#include <vector>

namespace zorcam_util {

struct Command {
    using Run = std::function<int(const std::vector<std::string>& args)>;
    Command(const char* name, const char* usage, Run run);

    const char* mName;
    const char* mUsage;  // one line: arguments and what the command does
    Run mRun;
};

}  // namespace zorcam_util
