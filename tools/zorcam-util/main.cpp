// zorcam-util: a command-line front end to libzorcam_stdutils for engineers on a host.

#include "Command.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

namespace zorcam_util {

namespace {

std::map<std::string, const Command*>& registry() {
    static std::map<std::string, const Command*> sCommands;
    return sCommands;
}

int usage(FILE* out) {
    fprintf(out, "usage: zorcam-util <command> [arguments]\n\ncommands:\n");
    for (const auto& [name, cmd] : registry()) fprintf(out, "  %s %s\n", name.c_str(), cmd->mUsage);
    return out == stderr ? 2 : 0;
}

}  // namespace

Command::Command(const char* name, const char* usageText, Run run)
    : mName(name), mUsage(usageText), mRun(std::move(run)) {
    registry()[name] = this;
}

}  // namespace zorcam_util

int main(int argc, char** argv) {
    using namespace zorcam_util;
    if (argc < 2) return usage(stderr);
    const std::string command = argv[1];
    if (command == "help" || command == "--help" || command == "-h") return usage(stdout);
    auto it = registry().find(argv[1]);
    if (it == registry().end()) {
        fprintf(stderr, "zorcam-util: unknown command '%s'\n", argv[1]);
        return usage(stderr);
    }
    return it->second->mRun(std::vector<std::string>(argv + 2, argv + argc));
}
