// orm-client: what a program does with component libraries. It registers a folder, lists the classes found
// there, creates objects by class id and uses them on files, watches the folder for changes, and shows an
// error as its user reads it.
#include <CLI/CLI.hpp>

#include "Commands.h"

int main(int count, char** arguments) {
  CLI::App app("Uses the component libraries of a folder.");
  app.require_subcommand(1);
  std::string folder;
  const auto addCommand = [&](const char* name, const char* text) {
    CLI::App* command = app.add_subcommand(name, text);
    command->add_option("FOLDER", folder, "folder of component libraries (*.dll)")->required();
    return command;
  };

  CLI::App* list = addCommand("list", "List the classes of the folder with their faces and libraries");

  std::vector<std::string> files;
  std::string database;
  CLI::App* run =
      addCommand("run", "Compress, restore and digest files; note the results in a table and read it");
  run->add_option("FILE", files, "files to work on; they are only read")->required();
  run->add_option("--table", database, "SQLite file of the table (default: a temporary one)");

  unsigned changes = 1;
  unsigned seconds = 60;
  CLI::App* watch = addCommand("watch", "Print what changes among the classes while libraries come and go");
  watch->add_option("--changes", changes, "stop after that many changes (default 1)");
  watch->add_option("--seconds", seconds, "give up after that many seconds (default 60)");

  CLI::App* fail = addCommand("fail", "Ask for objects that cannot be made, and show the errors");

  CLI11_PARSE(app, count, arguments);
  try {
    if (list->parsed()) return ListClasses(folder);
    if (run->parsed()) return UseClasses(folder, files, database);
    if (watch->parsed()) return WatchClasses(folder, changes, seconds);
    if (fail->parsed()) return ShowErrors(folder);
  } catch (const orm::Error& error) {
    std::fprintf(stderr, "orm-client: %s\n", error.Format().GetBegin());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "orm-client: %s\n", error.what());
  }
  return 1;
}
