// Letting new doors in.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "gateway/fleet/authority.h"
#include "gateway/fleet/centre.h"
#include "gateway/fleet/invitations.h"

namespace fleet {

struct ProvisionOptions {
  std::filesystem::path state;
  std::string door;
  std::string serial;
  std::string lasts = "7 days";
  std::string key;           // of the authority
  std::string for_doors;     // where doors find the broker; empty: where this does
  std::string new_doors_at;  // the listener for new doors, for what is to be typed
  int days = 365;
};

// Prints the code and what is to be typed at the door. Throws cli::Failure.
int invite(const ProvisionOptions& options, bool as_json);

// What becomes of a request from a client that calls itself new-SERIAL: the answer to it. now: ms since 1970.
Json answer_to(const std::string& serial, const Json& request, Invitations& invitations, const Authority& authority,
               const std::string& broker, int days, std::int64_t now);

// Until Ctrl-C or SIGTERM.
int provision(Centre& centre, const Authority& authority, const ProvisionOptions& options, const std::string& broker,
              bool as_json);

}  // namespace fleet
