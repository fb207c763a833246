// The sub-commands: each function hangs one, with its options, help and action, on the command line.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>

namespace orm::tool {

void AddRegCommand(CLI::App& app);
void AddRegWatchCommand(CLI::App& regCommand);
void AddTraceCommand(CLI::App& app);
void AddClassCommand(CLI::App& app);
void AddClassCacheCommand(CLI::App& classCommand);
void AddArchiveCommand(CLI::App& app);
void AddMachineCommand(CLI::App& app);
// Need the whole command line to be there.
void AddCompletionCommand(CLI::App& app);
void AddManCommand(CLI::App& app);

// The version that the build gave the command.
const char* CommandVersion();

// A sub-command with a description and examples, one a line: "COMMAND   what it does".
inline CLI::App* AddSubcommand(CLI::App& app, const std::string& name, const std::string& description,
                               const std::string& examples) {
  CLI::App* command = app.add_subcommand(name, description);
  command->footer("Examples:\n" + examples);
  return command;
}

}  // namespace orm::tool
