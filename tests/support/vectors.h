// The wire vectors of tests/vectors.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "hex.h"

struct WireVector {
  std::string file;
  std::string kind;        // command, response or notice
  std::string class_name;  // of the frame
  std::vector<unsigned char> bytes;
};

// All vectors, file by file. directory: where the files are.
inline std::vector<WireVector> load_vectors(const std::filesystem::path& directory) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    if (entry.path().extension() == ".txt") {
      files.push_back(entry.path());
    }
  }
  std::ranges::sort(files);
  std::vector<WireVector> vectors;
  for (const auto& file : files) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
      std::istringstream words(line.substr(0, line.find('#')));
      WireVector vector{file.filename().string(), {}, {}, {}};
      if (words >> vector.kind >> vector.class_name) {
        std::string rest;
        std::getline(words, rest);
        vector.bytes = hex(rest.substr(0, rest.find_last_not_of(' ') + 1));
        vectors.push_back(vector);
      }
    }
  }
  return vectors;
}
