// The resource compiler: what it reads, and what it says about scripts that are wrong.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "Output.h"
#include "Parser.h"
#include "RcMain.h"
#include "kernel/ResourceDirectory.h"

namespace {

using orm::rc::Directory;

using Files = std::map<std::string, std::string>;

orm::rc::PreprocessorOptions Options(const Files& files) {
  orm::rc::PreprocessorOptions options;
  options.readFile = [files](const std::string& path) -> std::optional<std::string> {
    const auto found = files.find(path);
    if (found == files.end()) return std::nullopt;
    return found->second;
  };
  options.includeFolders = {"inc"};
  return options;
}

std::string Bitmap() {
  // A header of 40 bytes for 24 bits per pixel, and one pixel.
  return "BM" + std::string(8, '\0') + std::string("\x36\0\0\0\x28\0\0\0\1\0\0\0\1\0\0\0\1\0\x18\0", 20) +
         std::string(28, '\0');
}

// The same with a width of 0.
std::string EmptyBitmap() {
  std::string file = Bitmap();
  file[18] = 0;
  return file;
}

// The error that the script "a.rc" gets, or what it holds.
std::string Compile(const std::string& script, Files files = {}) {
  files["a.rc"] = script;
  files.emplace("b.bmp", Bitmap());
  try {
    orm::rc::Preprocessor source("a.rc", Options(files));
    Directory directory;
    orm::rc::Parse(source, directory);
    return directory.List();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

// The one string of a script, its number being 0.
std::u16string OneString(const std::string& literal, const std::string& before = "") {
  orm::rc::Preprocessor source("a.rc", Options({{"a.rc", before + "STRINGTABLE { 0 " + literal + " }"}}));
  Directory directory;
  orm::rc::Parse(source, directory);
  const std::string block = directory.Build();
  const std::size_t start =
      (orm::platform::resource::headerSize + orm::platform::resource::entrySize + 7) / 8 * 8;
  std::u16string text;
  const auto unit = [&](std::size_t i) {
    return static_cast<char16_t>(static_cast<unsigned char>(block.at(start + i)) |
                                 static_cast<unsigned char>(block.at(start + i + 1)) << 8);
  };
  for (std::size_t i = 1; i <= unit(0); ++i) text.push_back(unit(2 * i));
  return text;
}

TEST(Rc, Strings) {
  EXPECT_EQ(OneString(R"("")"), u"");
  EXPECT_EQ(OneString(R"("a\tb\nc\r\\\"d""e\a")"), u"a\tb\nc\r\\\"d\"e\a");
  EXPECT_EQ(OneString(R"("\101\x42\0z")"), std::u16string(u"AB\0z", 4));
  EXPECT_EQ(OneString(R"("\x41\x42G")"), u"ABG");
  EXPECT_EQ(OneString(R"(L"\x20AC\x41 €")"), u"€A €");
  EXPECT_EQ(OneString("\"one\" \"two\"\n \"three\""), u"onetwothree");
  EXPECT_EQ(OneString("\"conti\\\nnued\""), u"continued");
  EXPECT_EQ(OneString("\"conti\\\r\nnued\""), u"continued");
  EXPECT_EQ(OneString("\"/* no // comment */\" /* one */"), u"/* no // comment */");
  EXPECT_EQ(OneString("\"\x83\x5C\x95\x5C\"", "#pragma code_page(932)\n"), u"ソ表");
  EXPECT_EQ(OneString("\"\\x83\\x5C\"", "#pragma code_page(932)\n"), u"ソ");
  EXPECT_EQ(OneString("L\"\x83\x5C\"", "#pragma code_page(932)\n"), u"ソ");
  EXPECT_EQ(OneString("\"\xE9\"", "#pragma code_page(1252)\n"), u"é");
  EXPECT_EQ(OneString("\"é\"", "\xEF\xBB\xBF#pragma once\n"), u"é");
  EXPECT_EQ(OneString("\"é\"", "#pragma code_page(932)\n#pragma code_page(default)\n"), u"é");
}

TEST(Rc, Utf16Scripts) {
  const std::u16string script = u"\xFEFFSTRINGTABLE { 1 \"ソ\" }";
  const std::string bytes(reinterpret_cast<const char*>(script.data()), script.size() * 2);
  EXPECT_EQ(Compile(bytes), "strings 1, language 1033: 34 bytes\n");
}

TEST(Rc, Statements) {
  EXPECT_EQ(Compile(""), "");
  EXPECT_EQ(Compile("#define A 0x10\n#define B A+1\nstringtable begin A \"x\" B, \"y\" 15 \"z\" end"),
            "strings 1, language 1033: 34 bytes\nstrings 2, language 1033: 36 bytes\n");
  EXPECT_EQ(
      Compile("STRINGTABLE LANGUAGE 7,1 VERSION 2 CHARACTERISTICS 1 DISCARDABLE { ~0 & 0xFF - (1|2) \"x\" }"),
      "strings 16, language 1031: 34 bytes\n");
  EXPECT_EQ(Compile("LANGUAGE 0x11, 1\nSTRINGTABLE { 1 \"x\" }"), "strings 1, language 1041: 34 bytes\n");
  EXPECT_EQ(Compile("7 BITMAP \"b.bmp\"\nlogo BITMAP LOADONCALL \"b.bmp\"\n\"q\" bitmap \".\\\\b.bmp\"",
                    {{"./b.bmp", Bitmap()}}),
            "bitmap 7, language 1033: 44 bytes\nbitmap LOGO, language 1033: 44 bytes\nbitmap Q, language "
            "1033: 44 bytes\n");
}

TEST(Rc, HeadersAreSharedWithThePrograms) {
  const char* header =
      "#pragma once\n#ifndef H\n#define H\n#define ID 5\nint f(void) { return \"text\"[0] + 'x'; }\n"
      "#define F(x) ((x) + 1)\n#else\n#error twice\n#endif\n#ifdef NO\n#if 1\n#else\n#endif\n#define ID "
      "6\n#endif\n";
  EXPECT_EQ(Compile("#include \"h.h\"\n#include <g.h>\n#include \"h.h\"\nSTRINGTABLE { ID \"x\" G \"y\" }",
                    {{"h.h", header}, {"inc/g.h", "#define G ID\\\n+1\n"}}),
            "strings 1, language 1033: 36 bytes\n");
  // Statements of an included script count.
  EXPECT_EQ(Compile("#include \"more.rc\"", {{"more.rc", "STRINGTABLE { 1 \"x\" }"}}),
            "strings 1, language 1033: 34 bytes\n");
}

TEST(Rc, Errors) {
  const struct {
    const char* script;
    const char* error;
  } rows[] = {
      {"STRINGTABLE {\n  IDS_X \"x\"\n}", "a.rc:2:3: error: 'IDS_X' is not defined"},
      {"STRINGTABLE { 1 \"x\"\n", "a.rc:1:13: error: this string table has no END"},
      {"STRINGTABLE 1 \"x\"", "a.rc:1:13: error: expected BEGIN, not '1'"},
      {"STRINGTABLE { 1 2 }", "a.rc:1:17: error: expected the text of string 1, not '2'"},
      {"STRINGTABLE { 70000 \"x\" }", "a.rc:1:15: error: a string's number lies between 0 and 65535"},
      {"STRINGTABLE { 1 \"x\"\n1 \"y\" }", "a.rc:2:1: error: string 1 has a text already, at a.rc:1:15"},
      {"STRINGTABLE { 1 \"x }", "a.rc:1:17: error: this string does not end on its line"},
      {"STRINGTABLE { 1 \"x\r\n\" }", "a.rc:1:17: error: this string does not end on its line"},
      {"STRINGTABLE { 1 \"x\\q\" }", "a.rc:1:17: error: unknown escape '\\q' in this string"},
      {"STRINGTABLE { 1 \"\\x\" }", "a.rc:1:17: error: '\\x' without hexadecimal digits in this string"},
      {"STRINGTABLE { 1 \"\xFF\" }",
       "a.rc:1:17: error: this string is not text in code page 65001 (say which it is with #pragma "
       "code_page(number))"},
      {"STRINGTABLE { 12x \"x\" }", "a.rc:1:15: error: '12x' is no number"},
      {"STRINGTABLE { 09 \"x\" }", "a.rc:1:15: error: '09' is no number"},
      {"STRINGTABLE { 4294967296 \"x\" }", "a.rc:1:15: error: the number 4294967296 does not fit 32 bits"},
      {"STRINGTABLE { (1 \"x\" }", "a.rc:1:18: error: expected ')', not a string"},
      {"LANGUAGE 1024, 1", "a.rc:1:10: error: there is no such language"},
      {"/* é */ 1 DIALOG",
       "a.rc:1:11: error: resource type 'DIALOG' is not supported (STRINGTABLE and BITMAP are)"},
      {"1 BITMAP b.bmp", "a.rc:1:10: error: expected the name of a bitmap file in quotation marks, not 'b'"},
      {"1 BITMAP \"c.bmp\"", "a.rc:1:10: error: cannot read the file 'c.bmp'"},
      {"1 BITMAP \"a.rc\"", "a.rc:1:10: error: 'a.rc' is no bitmap file"},
      {"1 BITMAP \"s.bmp\"", "a.rc:1:10: error: 's.bmp' is cut short"},
      {"1 BITMAP \"b.bmp\" 1 BITMAP \"b.bmp\"",
       "a.rc:1:18: error: there is a resource '1' of this type already, at a.rc:1:1"},
      {"1 BITMAP \"e.bmp\"", "a.rc:1:10: error: 'e.bmp' has a size that makes no sense"},
      {"0 BITMAP \"b.bmp\"", "a.rc:1:1: error: a resource's number lies between 1 and 65535"},
      {"/* ", "a.rc:1:1: error: this comment does not end"},
      {"#include", "a.rc:1:2: error: #include needs a file name in \"...\" or <...>"},
      {"#include <x", "a.rc:1:10: error: this header name does not end with '>'"},
      {"#include \"a.rc\"", "a.rc:1:10: error: includes are nested too deeply"},
      {"#ifdef X\n", "a.rc:1:2: error: this condition has no #endif in its file"},
      {"#endif", "a.rc:1:2: error: #endif without #ifdef"},
      {"#if 1\n", "a.rc:1:2: error: #if is not supported, use #ifdef"},
      {"#line 3",
       "a.rc:1:2: error: unknown directive '#line' (include, define, undef, ifdef, ifndef, else, endif and "
       "pragma are known)"},
      {"#pragma code_page(1200)", "a.rc:1:19: error: there is no code page 1200"},
      {"#define A B\n#define B A\nSTRINGTABLE { A \"x\" }",
       "a.rc:3:15: error: the definition of 'A' refers to itself"},
      {"STRINGTABLE \\\n// x\n{ } }", "a.rc:3:5: error: expected a resource's name or number, not '}'"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Compile(row.script, {{"s.bmp", "BM123"}, {"e.bmp", EmptyBitmap()}}), row.error) << row.script;
}

TEST(Rc, DefinitionsThatDoubleEndEarly) {
  std::string script = "#define A0\n";
  for (int i = 1; i < 60; ++i)
    script +=
        "#define A" + std::to_string(i) + " A" + std::to_string(i - 1) + " A" + std::to_string(i - 1) + "\n";
  EXPECT_EQ(Compile(script + "STRINGTABLE { A59 }"),
            "a.rc:61:15: error: the definition grows beyond all bounds");
  const std::string deep = "STRINGTABLE { " + std::string(100000, '(');
  EXPECT_EQ(Compile(deep), "a.rc:1:79: error: this expression is nested too deeply");
}

int RunCommand(std::vector<std::string> arguments) {
  std::vector<char*> pointers;
  arguments.insert(arguments.begin(), "orm rc");
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  return orm::rc::RcMain(static_cast<int>(pointers.size()), pointers.data());
}

std::string Read(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TEST(Rc, TheCommand) {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("rc_test_" + std::to_string(getpid()));
  std::filesystem::create_directories(folder / "in c");
  const std::string script = folder / "s.rc";
  std::ofstream(folder / "in c" / "i.h") << "#define ID 3\n";
  std::ofstream(script) << "#include \"i.h\"\nSTRINGTABLE { ID WORD }\n";
  const std::string object = folder / "s.o";
  EXPECT_EQ(
      RunCommand({script, "-o", object, "-I", folder / "in c", "-D", "WORD=\"text\"", "-M", folder / "s.d"}),
      0);
  EXPECT_EQ(Read(object).substr(0, 4),
            "\x7F"
            "ELF");
  EXPECT_NE(Read(folder / "s.d").find("in\\ c/i.h"), std::string::npos);
  const auto before = Read(object);
  EXPECT_EQ(RunCommand({script, "-o", object}), 1);  // i.h is not found
  EXPECT_EQ(Read(object), before);                   // and the object of the last good run stays
  EXPECT_EQ(RunCommand({script, "-o", folder / "s.exe", "-I", folder / "in c", "-D", "WORD=\"text\""}), 1);
  EXPECT_EQ(RunCommand({folder / "none.rc", "-o", object}), 1);
  std::ofstream(script) << "STRINGTABLE { 3 \"text\" }\n";
  std::filesystem::create_directory(folder / "taken.o");
  EXPECT_EQ(RunCommand({script, "-o", folder / "taken.o"}), 1);
  EXPECT_FALSE(std::filesystem::exists(folder / "taken.o.new")) << "nothing is left of it";
  EXPECT_EQ(RunCommand({"/dev/zero", "-o", object}), 1) << "it has no end";
  EXPECT_EQ(RunCommand({script}), 2);
  EXPECT_EQ(RunCommand({script, "-o", object, "-c", "1200"}), 2);
  EXPECT_EQ(RunCommand({"--help"}), 0);
  std::filesystem::remove_all(folder);
}

// All three forms define the same bytes under the same name; the object's are what the C++ and assembler
// compile to.
TEST(Rc, SourceFormsHoldTheSameBytes) {
  using orm::rc::OutputForm;
  const std::string block = "ORMR" + std::string("\1\0\xFF", 3);
  EXPECT_NE(orm::rc::MakeOutput(OutputForm::Cplusplus, block).find("79,82,77,82,1,0,255,"),
            std::string::npos);
  EXPECT_NE(orm::rc::MakeOutput(OutputForm::Assembler, block).find(".byte 79,82,77,82,1,0,255\n"),
            std::string::npos);
  EXPECT_NE(orm::rc::MakeOutput(OutputForm::Object, block).find(block), std::string::npos);
}

}  // namespace
