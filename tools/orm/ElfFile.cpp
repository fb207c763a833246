// Reads the dynamic part of an ELF file (System V ABI, x86-64 supplement); every place is checked before it
// is read.
#include "ElfFile.h"

#include <cxxabi.h>
#include <elf.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

namespace orm::tool {

namespace {

class Image {
 public:
  explicit Image(std::string_view bytes) : mBytes(bytes) {}

  template <class T>
  std::optional<T> Load(uint64_t at) const {
    if (at > mBytes.size() || mBytes.size() - at < sizeof(T)) return std::nullopt;
    T value;
    std::memcpy(&value, mBytes.data() + at, sizeof value);
    return value;
  }
  std::optional<std::string_view> Range(uint64_t at, uint64_t size) const {
    if (at > mBytes.size() || mBytes.size() - at < size) return std::nullopt;
    return mBytes.substr(at, size);
  }

 private:
  std::string_view mBytes;
};

std::string TextAt(std::string_view table, uint64_t at) {
  if (at >= table.size()) return "";
  const std::string_view rest = table.substr(at);
  return std::string(rest.substr(0, rest.find('\0')));
}

class Reader {
 public:
  explicit Reader(std::string_view bytes) : mImage(bytes) {}

  ElfDescription Read() {
    const auto header = mImage.Load<Elf64_Ehdr>(0);
    if (!header || std::memcmp(header->e_ident, ELFMAG, SELFMAG) != 0) return Faulty("this is no ELF file");
    if (header->e_ident[EI_CLASS] != ELFCLASS64 || header->e_machine != EM_X86_64) {
      return Faulty("it is for another machine than x86-64");
    }
    if (header->e_type != ET_DYN) return Faulty("it is no shared object");
    if (header->e_shentsize != sizeof(Elf64_Shdr)) return Faulty("it has no section table");
    for (unsigned i = 0; i < header->e_shnum; ++i) {
      const auto section = mImage.Load<Elf64_Shdr>(header->e_shoff + uint64_t{i} * sizeof(Elf64_Shdr));
      if (!section) return Faulty("its section table is cut short");
      if (section->sh_type != SHT_DYNSYM && section->sh_type != SHT_DYNAMIC) continue;
      const auto linked =
          mImage.Load<Elf64_Shdr>(header->e_shoff + uint64_t{section->sh_link} * sizeof(Elf64_Shdr));
      const auto texts = linked ? mImage.Range(linked->sh_offset, linked->sh_size) : std::nullopt;
      if (!texts || !mImage.Range(section->sh_offset, section->sh_size)) return Faulty("it is cut short");
      if (section->sh_type == SHT_DYNSYM) {
        ReadSymbols(*section, *texts);
      } else {
        ReadDynamic(*section, *texts);
      }
    }
    return std::move(mResult);
  }

 private:
  ElfDescription Faulty(const std::string& fault) {
    mResult.fault = fault;
    return std::move(mResult);
  }

  void ReadSymbols(const Elf64_Shdr& section, std::string_view texts) {
    for (uint64_t at = sizeof(Elf64_Sym); at + sizeof(Elf64_Sym) <= section.sh_size;
         at += sizeof(Elf64_Sym)) {
      const auto symbol = mImage.Load<Elf64_Sym>(section.sh_offset + at);
      std::string name = TextAt(texts, symbol->st_name);
      if (symbol->st_shndx == SHN_UNDEF) {
        mResult.imports.push_back(std::move(name));
        continue;
      }
      if (ELF64_ST_BIND(symbol->st_info) == STB_GNU_UNIQUE) mResult.uniqueSymbols.push_back(name);
      mResult.exports.push_back(std::move(name));
    }
  }

  void ReadDynamic(const Elf64_Shdr& section, std::string_view texts) {
    for (uint64_t at = 0; at + sizeof(Elf64_Dyn) <= section.sh_size; at += sizeof(Elf64_Dyn)) {
      const auto entry = mImage.Load<Elf64_Dyn>(section.sh_offset + at);
      if (entry->d_tag == DT_NULL) return;
      if (entry->d_tag == DT_NEEDED) mResult.needed.push_back(TextAt(texts, entry->d_un.d_val));
      if (entry->d_tag == DT_FLAGS_1) mResult.isNoDelete = (entry->d_un.d_val & DF_1_NODELETE) != 0;
    }
  }

  Image mImage;
  ElfDescription mResult;
};

bool Contains(const std::vector<std::string>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

bool ElfDescription::HasExport(std::string_view name) const {
  return Contains(exports, name);
}
bool ElfDescription::HasImport(std::string_view name) const {
  return Contains(imports, name);
}

ElfDescription DescribeElf(std::string_view bytes) {
  return Reader(bytes).Read();
}

std::string DemangledSymbol(const std::string& symbol) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), std::free);
  return status == 0 && name ? std::string(name.get()) : symbol;
}

}  // namespace orm::tool
