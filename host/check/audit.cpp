// Chapter 8: audit records.
#include <sys/resource.h>

#include <csignal>
#include <memory>
#include <string>

#include "ac/util.h"
#include "ac_dal/audit_logs.h"
#include "desk.h"
#include "examination.h"
#include "report.h"
#include "waiting.h"

namespace hostcheck {
namespace {

void create(int type, const std::string& details) {
  char time[64];
  ac::util::get_formatted_date_and_time_ms(time);
  ac_dal::audit_logs record;
  record.time(time);
  record.type(type);
  record.details(details);
  record.create();
}

void expect_stored(ClauseId clause, int type, const std::string& details) {
  if (const auto outcome = outcome_of([=] { create(type, details); }); !outcome.is_well()) {
    report().found(clause, "create() of a record of type " + std::to_string(type) + " with " +
                               std::to_string(details.size()) + " bytes of details " + words_of(outcome));
  }
}

void examine_records() {
  report().examine({"8.1"});
  for (int type = 0; type <= 8; ++type) {
    expect_stored("8.1", type, "hostcheck: a record of type " + std::to_string(type));
  }
  expect_stored("8.1", 1, "");
  expect_stored("8.1", 1, "hostcheck: a tab \t, two\nlines, \"quotes\", \xC3\xA4, and a' quote");
  expect_stored("8.1", 1, "hostcheck: " + std::string(10'000, 'x'));
  const auto done = std::make_shared<Seen<int>>();
  delivery().on(Type::outer, [done](ac::Message*) {
    create(1, "hostcheck: a record made inside a handler");
    done->add(0);
  });
  send(numbered(Type::outer, 0));
  if (!done->wait_for(1)) {
    report().found("8.1", "create() inside a handler threw, or did not return within some seconds");
    require_delivery();
  }
}

// As long as it lives no file of this process can grow, which is what a full disk is like.
class FullDisk {
 public:
  FullDisk() {
    std::signal(SIGXFSZ, SIG_IGN);  // which ends the process else
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit none{0, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none);
  }
  ~FullDisk() { setrlimit(RLIMIT_FSIZE, &before_); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit before_{};
};

// How a record goes that no file can take: as outcome_of, but that what is no std::exception is told apart.
enum class Fate { stored, refused, refused_oddly };

Fate fate_on_full_disk() {
  const FullDisk disk;
  try {
    create(1, "hostcheck: a record that no file can take");
    return Fate::stored;
  } catch (const std::exception&) {
    return Fate::refused;
  } catch (...) {
    return Fate::refused_oddly;
  }
}

void examine_failure() {
  report().examine({"8.2"});
  switch (fate_on_full_disk()) {
    case Fate::stored:
      report().found("8.2", "create() returned while no file could grow");
      break;
    case Fate::refused:
      break;
    case Fate::refused_oddly:
      report().found("8.2", "create() threw what is no std::exception");
      break;
  }
  report().examine({"8.3"});
  expect_stored("8.3", 1, "hostcheck: the record after one that could not be stored");
}

}  // namespace

void examine_audit() {
  examine_records();
  examine_failure();
}

}  // namespace hostcheck
