#include "cli/program.h"

#include <cstdio>
#include <exception>

#include "cli/command_line.h"
#include "cli/describe.h"
#include "cli/failure.h"

namespace cli {

bool read_command_line(CLI::App& app, const Manual& manual, int argc, char** argv) {
  if (described(app, manual, argc, argv)) {
    return false;
  }
  try {
    app.parse(argc, argv);
    return true;
  } catch (const CLI::ParseError& failure) {
    if (failure.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success)) {
      throw Failure(kUsage, usage_error(app, failure, argc, argv));
    }
    app.exit(failure);
    return false;
  }
}

int explained(const char* program, const std::function<int()>& run,
              const std::function<std::string(std::string_view)>& spelt) {
  const auto complain = [&](int status, std::string_view text) {
    std::fprintf(stderr, "%s: %s\n", program, spelt(text).c_str());
    return status;
  };
  try {
    return run();
  } catch (const Failure& failure) {
    return complain(failure.status(), failure.what());
  } catch (const std::exception& failure) {
    return complain(kFailed, failure.what());
  }
}

}  // namespace cli
