// orm man: manual pages in roff (man(7)), generated from the command line itself, so that they say what the
// help says.
#include "Command.h"
#include "Console.h"
#include "Failure.h"

namespace orm::tool {

const char* CommandVersion() {
  return ORM_VERSION;
}

namespace {

// Text of a page: back slashes and hyphens are printed as they are, no line begins with a control character.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\') {
      escaped += "\\e";
    } else if (c == '-') {
      escaped += "\\-";
    } else if ((c == '.' || c == '\'') && (escaped.empty() || escaped.back() == '\n')) {
      escaped += std::string("\\&") + c;
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string OptionHead(const CLI::Option& option) {
  std::string head;
  for (const std::string& name : option.get_snames()) head += (head.empty() ? "-" : ", -") + name;
  for (const std::string& name : option.get_lnames()) head += (head.empty() ? "--" : ", --") + name;
  if (head.empty()) return option.get_name();
  return option.get_type_name().empty() ? head : head + " " + option.get_type_name();
}

std::string Options(const CLI::App& app) {
  std::string page;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;  // not for people
    page += ".TP\n.B " + Escaped(OptionHead(*option)) + "\n" + Escaped(option->get_description()) + "\n";
  }
  return page;
}

std::vector<const CLI::App*> Subcommands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

std::string Examples(const CLI::App& app) {
  const std::string footer = app.get_footer();
  return footer.empty() ? "" : ".PP\n.nf\n" + Escaped(footer) + "\n.fi\n";
}

// A page for a sub-command of the command, with a section for each of its own sub-commands.
std::string Page(const CLI::App& app, const std::string& path) {
  std::string name = path;
  std::replace(name.begin(), name.end(), ' ', '-');
  std::string page = ".TH " + name + " 1 \"\" \"ormutil " ORM_VERSION "\" \"ormutil manual\"\n";
  page += ".SH NAME\n" + Escaped(name) + " \\- " + Escaped(app.get_description()) + "\n";
  page += ".SH SYNOPSIS\n.B " + Escaped(path) + (Subcommands(app).empty() ? "" : " COMMAND") + " [OPTIONS]\n";
  page += ".SH OPTIONS\n" + Options(app);
  for (const CLI::App* command : Subcommands(app)) {
    page += ".SH " + Escaped(path + " " + command->get_name()) + "\n" + Escaped(command->get_description()) +
            ".\n";
    page += Options(*command) + Examples(*command);
  }
  page += ".SH EXAMPLES\n" + Examples(app);
  return page +
         ".SH EXIT STATUS\n0 done; 1 failed, with a message on the standard error; 2 a comparison or check "
         "found\n"
         "something, or the command line could not be understood.\n";
}

}  // namespace

void AddManCommand(CLI::App& app) {
  auto name = std::make_shared<std::string>();
  CLI::App* command = AddSubcommand(app, "man", "Print a manual page",
                                    "  orm man reg | man -l -\n"
                                    "  orm man | man -l -\n");
  command->add_option("COMMAND", *name, "The sub-command; without it the page of orm itself");
  command->callback([name, &app] {
    if (name->empty()) return Print(Page(app, "orm"));
    for (const CLI::App* found : Subcommands(app)) {
      if (found->get_name() == *name) return Print(Page(*found, "orm " + *name));
    }
    throw Failure("there is no sub-command '" + *name + "'");
  });
}

}  // namespace orm::tool
