// Cli::parse: how every program of the project reads its command line (CLI11), in
// the conventions operators know from ip and friends:
//  - `--help` and `--version` print to stdout and exit 0;
//  - a usage error prints one line "<program>: <what is wrong>" and a hint to stderr
//    and exits 2 (not CLI11's own codes);
//  - a word that names no command reads "unknown command 'bogus'";
//  - options of the program are accepted after its subcommands as well (fallthrough,
//    which the program sets before adding them).
//
//   CLI::App app{"..."};
//   app.fallthrough();
//   ... options and subcommands ...
//   if (const std::optional<int> done = Cli::parse(app, "vxrelayctl", argc, argv)) return *done;
#pragma once

#include <CLI/CLI.hpp>
#include <iostream>
#include <optional>
#include <string>

namespace Cli {

inline constexpr int kUsageError = 2;

inline std::optional<int> parse(CLI::App& app, const std::string& program, int argc, char** argv) {
  app.set_version_flag("--version", program + " " + VXRELAY_VERSION);
  try {
    app.parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::Success& e) {  // --help, --version
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::string what = e.what();
    // The first word left over when no command was taken names an unknown command.
    const bool hasCommands = !app.get_subcommands([](CLI::App*) { return true; }).empty();
    if (hasCommands && app.get_subcommands().empty() && !app.remaining().empty()) {
      what = "unknown command '" + app.remaining().front() + "'";
    }
    std::cerr << program << ": " << what << "\n"
              << "Try '" << program << " --help' for more information.\n";
    return kUsageError;
  }
}

}  // namespace Cli
