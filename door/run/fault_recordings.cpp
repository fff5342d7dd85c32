#include "door/run/fault_recordings.h"

#include <algorithm>
#include <system_error>
#include <vector>

#include "ac/message.h"
#include "cli/output_file.h"
#include "door/base/local_time.h"
#include "refhost/log.h"
#include "refhost/state_file.h"

namespace achost {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::minutes kPause{1};

// A disk that does not answer is an alarm of its own, and no reason to end.
constexpr int kShareOfPatience = 20;  // of the watchdog's limits

// The oldest go until so many are left; their names are their times.
void make_room(const fs::path& directory, std::size_t left) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(directory)) {
    files.push_back(entry.path());
  }
  std::ranges::sort(files);
  for (std::size_t i = 0; files.size() - i > left; ++i) {
    fs::remove(files[i]);
  }
}

}  // namespace

FaultRecordings::FaultRecordings(const fs::path& state, const line::Recorder& recorder)
    : directory_(state / "recordings"),
      recorder_(recorder),
      subscriber_("recordings",
                  {{"reader_state",
                    [this](ac::Message* message) {
                      std::string reader_state;
                      message->get_string("state", &reader_state);
                      keep(reader_state);
                    },
                    false}},
                  refhost::Subscriber::kDefaultBound, kShareOfPatience) {}

void FaultRecordings::keep(const std::string& reader_state) {
  const auto now = std::chrono::steady_clock::now();
  const bool is_fault = reader_state == "silent" || reader_state == "gone" || reader_state == "noisy";
  if (!is_fault || now < next_) {
    return;
  }
  next_ = now + kPause;
  const auto time = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
  const fs::path file = directory_ / (local_time(time, "%Y-%m-%dT%H-%M-%S") + "-" + reader_state + ".uhfrec");
  try {
    fs::create_directory(directory_);
    fs::permissions(directory_, fs::perms::owner_all);
    refhost::give_to_directorys_owner(directory_);
    make_room(directory_, kMost - 1);
    OutputFile out(file, OutputFile::Form::whole);
    out.write(recorder_.text(kLatest));
    out.close();
    refhost::give_to_directorys_owner(file);
  } catch (const std::exception& failure) {
    refhost::log::warning(std::string("the recording of a fault is not kept: ") + failure.what());
  }
}

}  // namespace achost
