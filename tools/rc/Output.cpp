// Writes the resource block as an ELF object, as C++ or as assembler.
#include "Output.h"

#include <elf.h>

#include <array>
#include <filesystem>
#include <stdexcept>

#include "kernel/ResourceDirectory.h"

namespace orm::rc {
namespace {

constexpr std::string_view symbol = platform::resource::symbolName;
constexpr std::size_t alignment = 16;

template <typename Record>
void Append(std::string& file, const Record& record) {
  file.append(reinterpret_cast<const char*>(&record), sizeof record);
}

// The object by the System V ABI: one read-only section with the block, one symbol, and the note that the
// stack needs no execution.
class ObjectFile {
 public:
  std::string Make(std::string_view block) {
    mFile.resize(sizeof(Elf64_Ehdr));
    AddSection("", SHT_NULL, {}, 0);
    AddSection(".rodata", SHT_PROGBITS, block, alignment).sh_flags = SHF_ALLOC;
    std::string strings(1, '\0');
    strings += symbol;
    strings.push_back('\0');
    std::string symbols;
    Append(symbols, Elf64_Sym{});
    Append(symbols, Elf64_Sym{.st_name = 1,
                              .st_info = ELF64_ST_INFO(STB_GLOBAL, STT_OBJECT),
                              .st_other = STV_DEFAULT,
                              .st_shndx = 1,
                              .st_value = 0,
                              .st_size = block.size()});
    Elf64_Shdr& table = AddSection(".symtab", SHT_SYMTAB, symbols, 8);
    table.sh_link = 3;  // the section with the names, next
    table.sh_info = 1;  // the first symbol that is not local
    table.sh_entsize = sizeof(Elf64_Sym);
    AddSection(".strtab", SHT_STRTAB, strings, 1);
    AddSection(".note.GNU-stack", SHT_PROGBITS, {}, 1);
    const std::string names = mNames + ".shstrtab" + '\0';
    AddSection(".shstrtab", SHT_STRTAB, names, 1);
    return Finish();
  }

 private:
  Elf64_Shdr& AddSection(const char* name, Elf64_Word type, std::string_view content, std::size_t align) {
    if (align > 1) mFile.resize((mFile.size() + align - 1) / align * align);
    Elf64_Shdr& header = mHeaders[mCount++];
    header = {};
    header.sh_type = type;
    if (type == SHT_NULL) {
      mNames.push_back('\0');
      return header;
    }
    header.sh_name = static_cast<Elf64_Word>(mNames.size());
    header.sh_offset = mFile.size();
    header.sh_size = content.size();
    header.sh_addralign = align;
    mNames.append(name).push_back('\0');
    mFile.append(content);
    return header;
  }

  std::string Finish() {
    mFile.resize((mFile.size() + 7) / 8 * 8);
    Elf64_Ehdr header{};
    header.e_ident[EI_MAG0] = ELFMAG0;
    header.e_ident[EI_MAG1] = ELFMAG1;
    header.e_ident[EI_MAG2] = ELFMAG2;
    header.e_ident[EI_MAG3] = ELFMAG3;
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_type = ET_REL;
    header.e_machine = EM_X86_64;
    header.e_version = EV_CURRENT;
    header.e_ehsize = sizeof header;
    header.e_shentsize = sizeof(Elf64_Shdr);
    header.e_shnum = static_cast<Elf64_Half>(mCount);
    header.e_shstrndx = static_cast<Elf64_Half>(mCount - 1);
    header.e_shoff = mFile.size();
    mFile.replace(0, sizeof header, reinterpret_cast<const char*>(&header), sizeof header);
    for (std::size_t i = 0; i < mCount; ++i) Append(mFile, mHeaders[i]);
    return std::move(mFile);
  }

  std::string mFile;
  std::string mNames;
  std::array<Elf64_Shdr, 8> mHeaders{};
  std::size_t mCount = 0;
};

// The bytes as decimal numbers, 24 to a line.
std::string Numbers(std::string_view block, std::string_view lineStart, std::string_view lineEnd) {
  constexpr std::size_t perLine = 24;
  std::string text;
  text.reserve(block.size() * 4);
  for (std::size_t i = 0; i < block.size(); ++i) {
    text += i % perLine == 0 ? std::string(lineStart) : std::string(",");
    text += std::to_string(static_cast<unsigned char>(block[i]));
    if (i % perLine == perLine - 1 || i + 1 == block.size()) text += lineEnd;
  }
  return text;
}

std::string CplusplusSource(std::string_view block) {
  const std::string name(symbol);
  return "// Made by the resource compiler.\n"
         "extern \"C\" {\n"
         "extern const unsigned char " +
         name +
         "[];\n"
         "__attribute__((visibility(\"default\"), used)) alignas(16) const unsigned char " +
         name + "[] = {\n" + Numbers(block, "  ", ",\n") + "};\n}\n";
}

std::string AssemblerSource(std::string_view block) {
  const std::string name(symbol);
  return "# Made by the resource compiler.\n"
         "\t.section .rodata\n\t.balign 16\n\t.globl " +
         name + "\n\t.type " + name + ", @object\n\t.size " + name + ", " + std::to_string(block.size()) +
         "\n" + name + ":\n" + Numbers(block, "\t.byte ", "\n") +
         "\t.section .note.GNU-stack,\"\",@progbits\n";
}

}  // namespace

OutputForm OutputFormOf(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension().string();
  if (extension == ".o" || extension == ".obj") return OutputForm::Object;
  if (extension == ".cpp" || extension == ".cc" || extension == ".cxx") return OutputForm::Cplusplus;
  if (extension == ".s" || extension == ".S") return OutputForm::Assembler;
  throw std::runtime_error(path + ": error: the output's name ends in .o, .cpp or .s");
}

std::string MakeOutput(OutputForm form, std::string_view block) {
  switch (form) {
    case OutputForm::Object:
      return ObjectFile().Make(block);
    case OutputForm::Cplusplus:
      return CplusplusSource(block);
    default:
      return AssemblerSource(block);
  }
}

}  // namespace orm::rc
