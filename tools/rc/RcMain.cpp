// The command line of the resource compiler.
#include "RcMain.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>

#include "Output.h"
#include "Parser.h"

namespace orm::rc {
namespace {

constexpr char description[] = "Compile a resource script into an object that a module links";
constexpr char footer[] =
    R"(Examples:
  orm rc app.rc -o app_rc.o && g++ main.o app_rc.o -Wl,--export-dynamic-symbol=orm_resource_directory
  orm rc app.rc --list

The script may hold:
  #include "ids.h"            definitions shared with the program
  #define IDS_HELLO 100
  #pragma code_page(932)      what the bytes of the strings that follow mean
  STRINGTABLE
  BEGIN
    IDS_HELLO "Hello,\tworld\n"
    IDS_HELLO + 1, L"wide: \x20AC"
  END
  IDB_LOGO BITMAP "res/logo.bmp"

The module then finds them with FindResource, LoadString and the like. In CMake:
  orm_add_resources(target script.rc)
)";

struct Arguments {
  std::string source;
  std::string output;
  std::string dependencyFile;
  std::vector<std::string> includeFolders;
  std::vector<std::string> definitions;
  UINT codePage = CP_UTF8;
  bool list = false;
};

// No more of it than a script or a bitmap can need, and than conversions can count: what has no end is no
// file.
std::optional<std::string> ReadFile(const std::string& path) {
  constexpr std::size_t most = std::size_t{1} << 29;
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::string content;
  std::vector<char> part(std::size_t{1} << 16);
  do {
    file.read(part.data(), static_cast<std::streamsize>(part.size()));
    content.append(part.data(), static_cast<std::size_t>(file.gcount()));
    if (content.size() > most) throw std::runtime_error(path + ": error: this file is larger than 512 MiB");
  } while (file);
  if (file.bad()) return std::nullopt;
  return content;
}

// A build never sees half an output: it is written beside and renamed.
void WriteFile(const std::string& path, std::string_view content) {
  const std::string temporary = path + ".new";
  std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  file.close();
  if (file && std::rename(temporary.c_str(), path.c_str()) == 0) return;
  std::remove(temporary.c_str());
  throw std::runtime_error(path + ": error: cannot write this file");
}

std::string DependencyRule(const std::string& output, const std::set<std::string>& files) {
  const auto escape = [](const std::string& path) {
    std::string escaped;
    for (const char c : path) {
      if (c == ' ' || c == '#' || c == '\\') escaped.push_back('\\');
      if (c == '$') escaped.push_back('$');
      escaped.push_back(c);
    }
    return escaped;
  };
  std::string rule = escape(output) + ":";
  for (const std::string& file : files) rule += " \\\n  " + escape(file);
  return rule + "\n";
}

PreprocessorOptions OptionsOf(const Arguments& arguments) {
  PreprocessorOptions options;
  options.readFile = ReadFile;
  options.includeFolders = arguments.includeFolders;
  options.codePage = arguments.codePage;
  for (const std::string& definition : arguments.definitions) {
    const std::size_t equals = definition.find('=');
    options.definitions[definition.substr(0, equals)] =
        equals == std::string::npos ? "1" : definition.substr(equals + 1);
  }
  return options;
}

void Compile(const Arguments& arguments) {
  Preprocessor source(arguments.source, OptionsOf(arguments));
  Directory directory;
  Parse(source, directory);
  if (arguments.list) std::cout << directory.List();
  if (arguments.output.empty()) return;
  WriteFile(arguments.output, MakeOutput(OutputFormOf(arguments.output), directory.Build()));
  if (!arguments.dependencyFile.empty())
    WriteFile(arguments.dependencyFile, DependencyRule(arguments.output, source.FilesRead()));
}

void AddOptions(CLI::App& app, Arguments& arguments) {
  app.add_option("FILE.rc", arguments.source, "the script")->required();
  app.add_option("-o,--output", arguments.output, "OUT.o, OUT.cpp or OUT.s");
  app.add_flag("-l,--list", arguments.list, "print what the script holds");
  app.add_option("-I,--include", arguments.includeFolders, "a folder for included and bitmap files")
      ->allow_extra_args(false);
  app.add_option("-D,--define", arguments.definitions, "NAME or NAME=VALUE, as #define")
      ->allow_extra_args(false);
  app.add_option("-c,--code-page", arguments.codePage,
                 "of the script until its #pragma code_page says another")
      ->capture_default_str();
  app.add_option("-M,--depfile", arguments.dependencyFile,
                 "write the files that were read, for make and ninja");
  app.footer(footer);
}

}  // namespace

void DescribeCommandLine(CLI::App& app) {
  const auto arguments = std::make_shared<Arguments>();
  AddOptions(app, *arguments);
  app.description(description);
  app.callback([arguments] {});  // which keeps them
}

int RcMain(int argc, char** argv) {
  Arguments arguments;
  CLI::App app(description, "orm rc");
  AddOptions(app, arguments);
  try {
    app.parse(argc, argv);
    if (arguments.output.empty() && !arguments.list) throw CLI::RequiredError("--output or --list");
    if (!IsValidCodePage(arguments.codePage))
      throw CLI::ValidationError("there is no code page " + std::to_string(arguments.codePage));
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  try {
    Compile(arguments);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}

}  // namespace orm::rc
