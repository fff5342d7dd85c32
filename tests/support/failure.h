// What an action fails with, for tests.
#pragma once

#include <string>

#include "ac/exception.h"

// The text of the ac::ac_exception that the action throws; empty when it throws none.
template <class Action>
std::string failure_of(Action action) {
  try {
    action();
  } catch (const ac::ac_exception& error) {
    return error.what();
  }
  return "";
}
