// Runs a target on the inputs of a corpus, for builds without a fuzzer: PROGRAM FILE-OR-DIRECTORY...
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "input.h"

namespace {

void replay(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::vector<char> content(std::istreambuf_iterator<char>(stream), {});
  // Exactly as large as the input, so that the address sanitizer sees a read behind it.
  const std::vector<std::uint8_t> input(content.begin(), content.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int count, char** arguments) {
  std::size_t inputs = 0;
  for (int i = 1; i < count; ++i) {
    if (!std::filesystem::is_directory(arguments[i])) {
      replay(arguments[i]);
      ++inputs;
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
      replay(entry.path());
      ++inputs;
    }
  }
  std::cout << inputs << " inputs\n";
  return inputs > 0 ? 0 : 1;
}
