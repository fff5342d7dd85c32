// What a man page and a completion tell of a program beyond its commands and options.
#pragma once

#include <string>
#include <vector>

namespace cli {

// A line of a list: what, and what it means.
struct Entry {
  std::string what;
  std::string meaning;
};

// What may stand after some words of the command line, for completions.
struct Offer {
  std::string path;    // the command's words, and those that have been given to it: "config set region"
  std::string option;  // whose value it is: "--region"; empty: the command's own next word
  std::vector<std::string> words;
};

struct Manual {
  std::vector<Entry> examples;  // command lines
  std::vector<Entry> files;
  std::vector<Entry> environment;
  std::vector<Offer> offers;
};

}  // namespace cli
