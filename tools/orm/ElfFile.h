// What a shared object says about itself: exports, imports, needed libraries, and what would pin it in
// memory.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orm::tool {

struct ElfDescription {
  std::string fault;  // why this is no shared object for this machine; empty when it is one
  std::vector<std::string> needed;
  std::vector<std::string> exports;
  std::vector<std::string> imports;
  std::vector<std::string> uniqueSymbols;  // GNU-unique ones that it defines, as the linker names them
  bool isNoDelete = false;                 // DF_1_NODELETE

  bool HasExport(std::string_view name) const;
  bool HasImport(std::string_view name) const;
};

// The bytes may be anything.
ElfDescription DescribeElf(std::string_view bytes);

// A C++ symbol as the source names it; other names as they are.
std::string DemangledSymbol(const std::string& symbol);

}  // namespace orm::tool
