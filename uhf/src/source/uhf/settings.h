// The plug-in's settings, section "uhf" of the host's configuration store.
#pragma once

#include <string>

// The values of uhf_operation_mode_; with any other value no reading is used.
enum OperationMode : int {
  INHIBIT = 0,     // readings count while the input is idle
  TRIGGER = 1,     // readings count for a time after the input went active
  CONTINUOUS = 2,  // readings always count
};

// An integer setting, read afresh; required as in ac::config_util::get_int.
int intSetting(const std::string& key, bool required = false);

// A text setting, read afresh; empty when there is none.
std::string textSetting(const std::string& key, bool required = false);

// Setting "operation_mode", read afresh: a word in any case; one that is unknown, or none, is CONTINUOUS.
int readOperationMode();

// Reads the settings of the plug-in's globals, and tells the host who drives the tag-detector relay.
void readSettings();

// ASCII letters in the other case; other bytes as they are.
std::string toLower(std::string text);
std::string toUpper(std::string text);
