// Chapter 6: settings. It changes some of section "uhf", and sets them back.
#include <algorithm>
#include <memory>
#include <numeric>
#include <vector>

#include "ac/config.h"
#include "ac/config_util.h"
#include "ac/exception.h"
#include "desk.h"
#include "examination.h"
#include "report.h"
#include "waiting.h"

namespace hostcheck {
namespace {

constexpr const char* kSection = "uhf";
constexpr const char* kMissing = "hostcheck_missing";
constexpr const char* kUnknown = "hostcheck_unknown";
constexpr const char* kNumber = "probe_interval";
constexpr const char* kWord = "operation_mode";
constexpr const char* kRanges = "work_channel";

std::optional<std::string> stored(const std::string& key) {
  std::string value = "before";
  return ac::config::get_param(kSection, key, value, false) ? std::optional(value) : std::nullopt;
}

std::string quoted(const std::optional<std::string>& text) { return text ? "\"" + *text + "\"" : "nothing"; }

// What it throws: "ac::ac_exception", something else in words, or nothing.
template <class Action>
std::string kind_thrown_by(Action action) {
  try {
    action();
    return "nothing";
  } catch (const ac::ac_exception&) {
    return "ac::ac_exception";
  } catch (const std::exception& failure) {
    return std::string("another exception: ") + failure.what();
  } catch (...) {
    return "what is no std::exception";
  }
}

void expect_exception(ClauseId clause, const std::string& call, const std::string& thrown) {
  if (thrown != "ac::ac_exception") {
    report().found(clause, call + " threw " + thrown);
  }
}

void examine_missing() {
  report().examine({"6.1", "6.2"});
  if (!stored("trig_gpio")) {
    report().found("6.1", "get_param() found no \"trig_gpio\" in section \"uhf\", which the plug-in needs");
  }
  std::string untouched = "before";
  if (ac::config::get_param(kSection, kMissing, untouched, false) || untouched != "before" ||
      ac::config::get_param(kSection, kMissing, untouched, true) || untouched != "before") {
    report().found("6.2", "get_param() of a setting that is missing gave \"" + untouched + "\"");
  }
}

void examine_optional_number(const std::string& key) {
  int value = -1;
  const auto thrown = kind_thrown_by([&] { value = ac::config_util::get_int(kSection, key, false); });
  if (thrown != "nothing") {
    report().found("6.4", "get_int() of \"" + key + "\", which is not required, threw " + thrown);
  } else if (value != 0) {
    report().found("6.4", "get_int() of \"" + key + "\", which is no number, was " + std::to_string(value));
  }
}

void examine_numbers() {
  using ac::config_util::get_int;
  report().examine({"6.3", "6.4"});
  expect_exception("6.3", "get_int() of a required setting that is missing",
                   kind_thrown_by([] { get_int(kSection, kMissing, true); }));
  if (stored(kWord)) {
    expect_exception("6.3", "get_int() of a required setting that is a word",
                     kind_thrown_by([] { get_int(kSection, kWord, true); }));
  }
  for (const char* const key : {kMissing, kWord}) {
    examine_optional_number(key);
  }
}

// The numbers that a list such as "0-10;26-51" stands for.
std::vector<int> numbers_of(const std::string& ranges) {
  std::vector<int> numbers;
  for (std::size_t place = 0; place < ranges.size();) {
    const std::size_t end = std::min(ranges.find(';', place), ranges.size());
    const std::string range = ranges.substr(place, end - place);
    const auto hyphen = range.find('-');
    const int first = std::stoi(range);
    const int last = hyphen == std::string::npos ? first : std::stoi(range.substr(hyphen + 1));
    const std::size_t before = numbers.size();
    numbers.resize(before + static_cast<std::size_t>(last - first + 1));
    std::iota(numbers.begin() + static_cast<std::ptrdiff_t>(before), numbers.end(), first);
    place = end + 1;
  }
  return numbers;
}

void examine_ranges() {
  using ac::config_util::get_int_range;
  if (const auto ranges = stored(kRanges); ranges && !ranges->empty()) {
    report().examine({"6.5"});
    std::vector<int> numbers;
    const auto thrown = kind_thrown_by([&] { numbers = get_int_range(kSection, kRanges, true); });
    if (thrown != "nothing" || numbers != numbers_of(*ranges)) {
      report().found("6.5", "get_int_range() of \"" + *ranges + "\" gave " + std::to_string(numbers.size()) +
                                " numbers, and threw " + thrown);
    }
  } else {
    report().leave_out("6.5", "there is no setting \"work_channel\" in section \"uhf\"");
  }
  report().examine({"6.6"});
  expect_exception("6.6", "get_int_range() of a required setting that is missing",
                   kind_thrown_by([] { get_int_range(kSection, kMissing, true); }));
  if (stored(kWord) && kind_thrown_by([] { get_int_range(kSection, kWord, true); }) == "nothing") {
    report().found("6.6", "get_int_range() of a required setting that lists no ranges threw nothing");
  }
  const auto thrown = kind_thrown_by([] { get_int_range(kSection, kMissing, false); });
  if (thrown != "nothing" || !get_int_range(kSection, kMissing, false).empty()) {
    report().found("6.6", "get_int_range() of a missing setting that is not required was not empty, or threw");
  }
}

struct Change {
  std::string module, param, value, previous;
  bool operator==(const Change&) const = default;
};

Change change_of(const ac::Message& message) {
  Change change;
  message.get_string("module", &change.module);
  message.get_string("param", &change.param);
  message.get_string("value", &change.value);
  message.get_string("previous_value", &change.previous);
  return change;
}

// Whether one of the changes seen is that, waiting for it.
bool has_come(const Seen<Change>& seen, const Change& expected) {
  for (std::size_t count = 1; seen.wait_for(count); ++count) {
    if (seen.all()[count - 1] == expected) {
      return true;
    }
  }
  return false;
}

// A number, so that it is written as one and read as both.
void examine_writing(int before) {
  report().examine({"6.7", "6.8"});
  const auto seen = std::make_shared<Seen<Change>>();
  delivery().on(Type::change, [seen](ac::Message* message) { seen->add(change_of(*message)); });
  const std::string text = std::to_string(before + 1);
  ac::config_util::set_int(before + 1, kSection, kNumber, true);
  if (stored(kNumber) != text || ac::config_util::get_int(kSection, kNumber, true) != before + 1) {
    report().found("6.7", "set_int() wrote " + text + ", get_param() read " + quoted(stored(kNumber)));
  }
  const Change expected{kSection, kNumber, text, std::to_string(before)};
  if (!has_come(*seen, expected)) {
    const auto all = seen->all();
    report().found("6.8", all.empty() ? "the change of \"probe_interval\" was not announced"
                                      : "the change of \"probe_interval\" from " + expected.previous + " to " + text +
                                            " was announced as \"" + all.back().module + "\" \"" + all.back().param +
                                            "\" from \"" + all.back().previous + "\" to \"" + all.back().value + "\"");
  }
  ac::config::set_param(kSection, kNumber, std::to_string(before), true);
  if (ac::config_util::get_int(kSection, kNumber, true) != before) {
    report().found("6.7", "set_param() wrote " + std::to_string(before) + ", get_int() read another number");
  }
}

// The plug-in may hold a lock that its handler waits for.
void examine_writing_with_lock(int before) {
  report().examine({"6.9"});
  const auto gate = std::make_shared<Gate>();
  const auto writer = std::make_shared<Seen<long>>();
  delivery().on(Type::change, [=](ac::Message*) {
    if (writer->count() != 0 && writer->all().back() == thread_id()) {
      report().found("6.9", "set_int() called the handler of \"config_param_set\" on the thread that writes");
    }
    gate->pass();
  });
  const auto writing = outcome_of([=] {
    writer->add(thread_id());
    ac::config_util::set_int(before + 1, kSection, kNumber, true);
    ac::config_util::set_int(before, kSection, kNumber, true);
    writer->add(0);
  });
  gate->open();
  if (!writing.is_well()) {
    report().found("6.9",
                   "set_int() beside a handler of \"config_param_set\" that takes its time " + words_of(writing));
  }
}

void examine_writing_from_inside(int before) {
  report().examine({"6.11"});
  const auto done = std::make_shared<Seen<bool>>();
  delivery().on(Type::change, nullptr);
  delivery().on(Type::outer, [=](ac::Message*) {
    ac::config_util::set_int(before + 1, kSection, kNumber, true);
    const bool was_written = ac::config_util::get_int(kSection, kNumber, true) == before + 1;
    ac::config_util::set_int(before, kSection, kNumber, true);
    done->add(was_written);
  });
  send(numbered(Type::outer, 0));
  if (!done->wait_for(1) || !done->all().front()) {
    report().found("6.11", done->count() == 0 ? "writing a setting inside a handler did not return within some seconds"
                                              : "a setting written inside a handler was not read back there");
    require_delivery();
  }
}

// A host may take any setting, and then this one is there.
void examine_refusal() {
  report().examine({"6.10"});
  const auto before = stored(kUnknown);
  const auto thrown = kind_thrown_by([] { ac::config::set_param(kSection, kUnknown, "1", true); });
  if (thrown == "nothing" ? stored(kUnknown) != "1" : thrown != "ac::ac_exception" || stored(kUnknown) != before) {
    report().found("6.10", "set_param() of a setting that the host may not know threw " + thrown +
                               ", and get_param() read " + quoted(stored(kUnknown)));
  }
}

}  // namespace

void examine_settings() {
  examine_missing();
  examine_numbers();
  examine_ranges();
  examine_refusal();
  const auto number = stored(kNumber);
  if (number) {
    const int before = ac::config_util::get_int(kSection, kNumber, false);
    examine_writing(before);
    examine_writing_with_lock(before);
    examine_writing_from_inside(before);
    return;
  }
  for (const ClauseId clause : {ClauseId("6.7"), ClauseId("6.8"), ClauseId("6.9"), ClauseId("6.11")}) {
    report().leave_out(clause, "there is no setting \"probe_interval\" in section \"uhf\"");
  }
}

}  // namespace hostcheck
