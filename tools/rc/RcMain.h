// The resource compiler as a command, `orm rc`.
#pragma once

namespace CLI {
class App;
}

namespace orm::rc {

// Hangs the command's options and examples on an application, for its manual page and completion.
void DescribeCommandLine(CLI::App& app);

// Runs the command on a program's arguments, argv[0] being the command's name. Returns the exit status: 0
// when the output was written, 1 when the source has an error (printed on the standard error as
// file:line:column), 2 when the arguments are wrong.
int RcMain(int argc, char** argv);

}  // namespace orm::rc
