// zorcam-util: a command-line front end to libzorcam_stdutils for engineers on a host.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <string>

#include "Command.h"

namespace zorcam_util {

namespace {

std::map<std::string, const Command*>& registry() {
    static std::map<std::string, const Command*> sCommands;
    return sCommands;
}

}  // namespace

Command::Command(const char* name, const char* description, Setup setup)
    : mName(name), mDescription(description), mSetup(std::move(setup)) {
    registry()[name] = this;
}

int badArgument(const char* command, const std::string& message) {
    fprintf(stderr, "zorcam-util %s: %s\n", command, message.c_str());
    return 2;
}

}  // namespace zorcam_util

int main(int argc, char** argv) {
    using namespace zorcam_util;
    CLI::App app("A command-line front end to libzorcam_stdutils.", "zorcam-util");
    app.require_subcommand(1, 1);
    std::map<const CLI::App*, Command::Runner> runners;
    for (const auto& [name, command] : registry()) {
        CLI::App* sub = app.add_subcommand(name, command->mDescription);
        runners[sub] = command->mSetup(*sub);
    }
    if (argc < 2) {
        fprintf(stderr, "%s", app.help().c_str());
        return 2;
    }
    if (std::string(argv[1]) == "help") {
        printf("%s", app.help().c_str());
        return 0;
    }
    if (argv[1][0] != '-' && registry().count(argv[1]) == 0) {
        fprintf(stderr, "zorcam-util: unknown command '%s' (zorcam-util --help lists them)\n",
                argv[1]);
        return 2;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);  // the help of the command named, on stdout
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        const auto parsed = app.get_subcommands();
        const std::string where = parsed.empty() ? "" : " " + parsed[0]->get_name();
        fprintf(stderr, "zorcam-util%s: %s (zorcam-util%s --help lists the options)\n",
                where.c_str(), e.what(), where.c_str());
        return 2;
    }
    return runners.at(app.get_subcommands().at(0))();
}
