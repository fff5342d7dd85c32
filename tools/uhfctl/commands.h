// The commands of uhfctl. Each prints its data on standard output, as a table or as JSON objects, a line each, and ends
// by a Failure when it cannot be done.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common.h"
#include "law.h"

namespace uhfctl {

// Whether a reader answers, its power and sensitivity, how long it takes.
void info(const Common& common);

struct InventoryOptions {
  double seconds = 5;  // 0: until Ctrl-C
  int count = 0;       // ends when so many tags have been seen; 0: does not
  std::string filter;  // the beginning of the EPCs that count, in hexadecimal
  bool card_value = false;
  int identification_bits = 32;
  std::string reader_type = "msb";
};
void inventory(const Common& common, const InventoryOptions& options);

// Ends by a Failure that says that the protocol has no such question.
[[noreturn]] void cannot_be_asked(const std::string& what, const std::string& setting);

void get_power(const Common& common);
void set_power(const Common& common, const std::string& power, const Law& law);
void set_region(const Common& common, const std::string& region);
void set_channels(const Common& common, const std::string& channels, const Law& law);
void get_sensitivity(const Common& common);
void set_sensitivity(const Common& common, const std::vector<int>& values);

struct SurveyOptions {
  std::string power;   // FROM:TO:STEP
  double seconds = 5;  // at each step
  std::string tag;     // the one to recommend a power for; empty: the one read most
  std::string out = "survey.html";
  bool overwrite = false;  // files of an earlier one, unasked
  Law law;
};
void survey(const Common& common, const SurveyOptions& options);

// Polls and writes every byte with its time and direction.
void record(const Common& common, const std::string& file, double seconds);

// Plays a recording as a simulated reader, which answers what is not in it as a plain one would, until Ctrl-C, or for
// some seconds (0: does not end).
void replay(const Common& common, const std::string& file, double seconds);

// Every frame in a recording, a file of hexadecimal digits, standard input ("-"), or the word itself.
void decode(const Common& common, const std::string& what);

// Every frame as it goes over the line, for some seconds (0: does not end).
void decode_live(const Common& common, double seconds);

// One thing after the other that can be wrong.
void doctor(const Common& common, const std::string& region);

}  // namespace uhfctl
