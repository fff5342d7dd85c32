#include "dynamic_symbols.h"

#include <cxxabi.h>
#include <elf.h>
#include <link.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <span>
#include <stdexcept>

namespace plugincheck {
namespace {

using Symbol = ElfW(Sym);
using Section = ElfW(Shdr);
using Entry = ElfW(Dyn);

// The bytes of a file, of which nothing is believed.
class Image {
 public:
  explicit Image(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(stream), {});
    if (!stream || bytes_.empty()) {
      throw std::runtime_error("it cannot be read");
    }
  }

  template <typename T>
  T at(std::size_t offset) const {
    T value;
    std::memcpy(&value, part(offset, sizeof(T)).data(), sizeof(T));
    return value;
  }

  template <typename T>
  std::vector<T> all_of(const Section& section) const {
    std::vector<T> values(section.sh_size / sizeof(T));
    for (std::size_t i = 0; i < values.size(); ++i) {
      values[i] = at<T>(section.sh_offset + i * sizeof(T));
    }
    return values;
  }

  std::string text_at(std::size_t offset) const {
    std::string text;
    for (char c; (c = at<char>(offset)) != '\0'; ++offset) {
      text += c;
    }
    return text;
  }

 private:
  std::span<const char> part(std::size_t offset, std::size_t size) const {
    if (offset > bytes_.size() || size > bytes_.size() - offset) {
      throw std::runtime_error("it is no whole shared object");
    }
    return std::span(bytes_).subspan(offset, size);
  }

  std::vector<char> bytes_;
};

std::vector<Section> sections_of(const Image& image) {
  const auto header = image.at<ElfW(Ehdr)>(0);
  constexpr int kClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_type != ET_DYN) {
    throw std::runtime_error("it is no shared object");
  }
  if (header.e_ident[EI_CLASS] != kClass) {
    throw std::runtime_error("it is for another machine");
  }
  std::vector<Section> sections;
  for (std::size_t i = 0; i < header.e_shnum; ++i) {
    sections.push_back(image.at<Section>(header.e_shoff + i * sizeof(Section)));
  }
  return sections;
}

// What a linker may add by itself is no export.
bool is_export(const Symbol& symbol, const std::string& name) {
  const auto type = symbol.st_info & 0xF;  // alike for both sizes
  return symbol.st_shndx != SHN_UNDEF && symbol.st_info >> 4 == STB_GLOBAL &&
         (type == STT_FUNC || type == STT_OBJECT) && name != "_init" && name != "_fini";
}

}  // namespace

DynamicSymbols dynamic_symbols_of(const std::string& file) {
  const Image image(file);
  const auto sections = sections_of(image);
  DynamicSymbols found;
  for (const auto& section : sections) {
    if ((section.sh_type != SHT_DYNSYM && section.sh_type != SHT_DYNAMIC) || section.sh_link >= sections.size()) {
      continue;
    }
    const std::size_t texts = sections[section.sh_link].sh_offset;
    if (section.sh_type == SHT_DYNSYM) {
      for (const auto& symbol : image.all_of<Symbol>(section)) {
        if (const auto name = image.text_at(texts + symbol.st_name); is_export(symbol, name)) {
          found.exports.push_back(name);
        }
      }
    } else {
      for (const auto& entry : image.all_of<Entry>(section)) {
        if (entry.d_tag == DT_NEEDED) {
          found.libraries.push_back(image.text_at(texts + entry.d_un.d_val));
        }
      }
    }
  }
  return found;
}

std::string demangled(const std::string& symbol) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status),
                                                         &std::free);
  return name == nullptr ? symbol : name.get();
}

}  // namespace plugincheck
