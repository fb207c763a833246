// Drawing texts and bitmaps into PNG files, `orm draw`.
#pragma once

namespace CLI {
class App;
}

namespace orm::draw {

// Hangs the command's sub-commands, options and examples on an application, for its manual page and
// completion.
void DescribeCommandLine(CLI::App& app);

// Runs the command on a program's arguments, argv[0] being the command's name. Returns the exit status: 0
// when the picture was written, 1 when it could not be made (the reason is on the standard error), 2 when the
// arguments are wrong.
int DrawMain(int argc, char** argv);

}  // namespace orm::draw
