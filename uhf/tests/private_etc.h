// An /etc of the test's own.
#pragma once

#include <string>

// While it lives, /etc is an empty directory, in memory and for this process alone: the machine's stays as it is.
class PrivateEtc {
 public:
  PrivateEtc();
  ~PrivateEtc();
  PrivateEtc(const PrivateEtc&) = delete;
  PrivateEtc& operator=(const PrivateEtc&) = delete;

  // Why this process cannot have one; empty when it has.
  const std::string& refusal() const { return refusal_; }

 private:
  std::string refusal_;
};
