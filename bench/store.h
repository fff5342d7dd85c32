// A settings store of the reference host, the current one for as long as it lives.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "refhost/settings_store.h"

// A directory that goes with the object.
class TemporaryDirectory {
 public:
  explicit TemporaryDirectory(const std::filesystem::path& below = std::filesystem::temp_directory_path()) {
    auto name = (below / "uhf-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("no temporary directory");
    }
    path_ = name;
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

class Store {
 public:
  Store() { refhost::SettingsStore::make_current(&store_); }
  ~Store() { refhost::SettingsStore::make_current(nullptr); }

  refhost::SettingsStore& operator*() { return store_; }
  refhost::SettingsStore* operator->() { return &store_; }

 private:
  TemporaryDirectory directory_;
  refhost::SettingsStore store_{directory_.path(), refhost::SettingsStore::Access::read_write};
};
