// orm: looks at and changes what programs of this library keep on a machine.
//
// Exit codes: 0 done; 1 failed, with a message; 2 a comparison or check found something, or the command line
// could not be understood.
#include <ormutil/Error.h>

#include <cstdio>
#include <cstring>

#include "Command.h"
#include "Console.h"
#include "Failure.h"
#include "RegDocument.h"
#include "Text.h"

#ifdef ORM_HAS_rc
#include "RcMain.h"
#endif
#ifdef ORM_HAS_draw
#include "DrawMain.h"
#endif

using namespace orm::tool;

namespace {

int Fail(const std::string& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "orm: %s\n", message.c_str());
  return EXIT_FAILED;
}

// Sub-commands with a command line of their own; here for the help, they are dispatched before it is read.
void AddOtherPrograms(CLI::App& app) {
  [[maybe_unused]] CLI::App* rc = app.add_subcommand("rc", "Compile a resource script");
  [[maybe_unused]] CLI::App* draw = app.add_subcommand("draw", "Draw texts and bitmaps into PNG files");
#ifdef ORM_HAS_rc
  orm::rc::DescribeCommandLine(*rc);
#endif
#ifdef ORM_HAS_draw
  orm::draw::DescribeCommandLine(*draw);
#endif
}

int RunOtherProgram(int argc, char** argv) {
#ifdef ORM_HAS_rc
  if (std::strcmp(argv[0], "rc") == 0) return orm::rc::RcMain(argc, argv);
#endif
#ifdef ORM_HAS_draw
  if (std::strcmp(argv[0], "draw") == 0) return orm::draw::DrawMain(argc, argv);
#endif
  (void)argc;
  return Fail(std::string(argv[0]) + ": this build does not have that sub-command");
}

int Run(int argc, char** argv) {
  CLI::App app("Look at and change what programs of ormutil keep on this machine.", "orm");
  app.footer(
      "Examples:\n"
      "  orm machine info                        where everything is\n"
      "  orm reg query HKLM -r                   the whole local machine hive\n"
      "  orm trace set ormutil thread d          trace the threads of ormutil ...\n"
      "  orm trace watch                         ... and look at it\n"
      "  orm class list                          classes that can be created\n\n"
      "Exit codes: 0 done, 1 failed, 2 something differs or the command line is wrong.\n");
  app.set_version_flag("--version", std::string("orm ") + CommandVersion());
  app.require_subcommand(1);
  AddRegCommand(app);
  AddTraceCommand(app);
  AddClassCommand(app);
  AddArchiveCommand(app);
  AddMachineCommand(app);
  AddOtherPrograms(app);
  AddCompletionCommand(app);
  AddManCommand(app);
  try {
    app.parse(argc, argv);
    return EXIT_OK;
  } catch (const CLI::ParseError& error) {
    const bool isHelp = error.get_exit_code() == 0;
    app.exit(error);
    return isHelp ? EXIT_OK : EXIT_USAGE;
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc > 1 && (std::strcmp(argv[1], "rc") == 0 || std::strcmp(argv[1], "draw") == 0)) {
      return RunOtherProgram(argc - 1, argv + 1);
    }
    const int code = Run(argc, argv);
    if (std::fflush(stdout) != 0) return Fail("cannot write the output");
    return code;
  } catch (const Exit& exit) {
    std::fflush(stdout);
    return exit.code;
  } catch (const orm::Error& error) {
    return Fail(ToDisplay(error.Format().GetBegin()));
  } catch (const std::exception& error) {
    return Fail(error.what());
  }
}
