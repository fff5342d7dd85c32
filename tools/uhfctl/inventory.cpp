// The tags in the field.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>

#include "cli/paragraph.h"
#include "commands.h"
#include "failure.h"
#include "live_table.h"
#include "port.h"
#include "tags.h"
#include "terminal.h"
#include "uhfsim/text.h"
#include "watch.h"

namespace uhfctl {

namespace {

std::string hex(unsigned int value, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "%0*X", digits, value);
  return text;
}

std::string as_table(const Tags& tags, const InventoryOptions& options, const CardForm& form, Clock::time_point begin) {
  std::vector<std::vector<std::string>> rows{{"EPC", "RSSI", "PC", "times", "first", "last"}};
  if (options.card_value) {
    rows.front().push_back("card value");
  }
  for (const auto& [epc, tag] : tags.all()) {
    rows.push_back({epc, std::to_string(tag.rssi), hex(tag.pc, 4), std::to_string(tag.times),
                    seconds(tag.first - begin) + " s", seconds(tag.last - begin) + " s"});
    if (options.card_value) {
      rows.back().push_back(std::to_string(form.value_of(tag)));
    }
  }
  return table(rows);
}

// Shows what polls bring, in one of the forms below.
class Show {
 public:
  virtual ~Show() = default;
  virtual void add(const Poll& poll, Clock::time_point at) = 0;  // of a poll
  virtual void end() = 0;                                        // of all, also when the line has failed
};

// What every form has.
struct Seen {
  Seen(const InventoryOptions& wanted, std::string prefix)
      : options(wanted),
        tags(std::move(prefix)),
        form{.identification_bits = wanted.identification_bits, .from_front = upper(wanted.reader_type) == "LSB"},
        duration(wanted.seconds) {}

  const InventoryOptions& options;
  Tags tags;
  CardForm form;
  PollFaults faults;
  Duration duration;
  Clock::time_point begin = Clock::now();
};

// True four times a second at most.
class Rhythm {
 public:
  bool is_due(Clock::time_point now) {
    if (now < next_) {
      return false;
    }
    next_ = now + std::chrono::milliseconds(250);
    return true;
  }

 private:
  Clock::time_point next_{};
};

class LiveShow : public Show {
 public:
  explicit LiveShow(const Seen& seen) : seen_(seen) {}

  void add(const Poll& /*poll*/, Clock::time_point at) override {
    if (rhythm_.is_due(at)) {
      auto size = terminal_size();
      const auto below = state(size.columns, seen_.faults.noisy() ? "\nnoisy line: " + seen_.faults.text() : "");
      size.rows -= std::min(size.rows, below.size() + 1);  // and the line on which the cursor stands
      show(live_table(seen_.tags, seen_.form, at, size), below);
    }
  }

  void end() override {
    const auto columns = terminal_size().columns;
    show(whole_table(seen_.tags, seen_.form, Clock::now(), columns), state(columns, ""));
  }

 private:
  void show(std::vector<LiveLine> lines, const std::vector<LiveLine>& below) {
    lines.insert(lines.end(), below.begin(), below.end());
    area_.show(lines);
  }

  // What stands below the table.
  std::vector<LiveLine> state(std::size_t columns, const std::string& noise) const {
    const auto tags = seen_.tags.all().size();
    const auto text = seconds(seen_.duration.passed()) + " s, " + std::to_string(tags) +
                      (tags == 1 ? " tag, " : " tags, ") + std::to_string(seen_.faults.polls()) + " polls" +
                      (seen_.options.seconds > 0 ? "" : ", Ctrl-C ends") + noise;
    std::vector<LiveLine> lines;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part);) {
      std::istringstream folded(cli::wrapped(part, 0, columns));
      for (std::string line; std::getline(folded, line);) {
        lines.push_back({line.substr(0, columns)});
      }
    }
    return lines;
  }

  const Seen& seen_;
  Rhythm rhythm_;
  LiveArea area_;
};

// A table at the end, and on standard error how it goes.
class PlainShow : public Show {
 public:
  explicit PlainShow(const Seen& seen) : seen_(seen) {}

  void add(const Poll& /*poll*/, Clock::time_point at) override {
    if (rhythm_.is_due(at)) {
      progress(seconds(seen_.duration.passed()) + " s, " + std::to_string(seen_.tags.all().size()) + " tags, " +
               std::to_string(seen_.tags.readings()) + " readings");
    }
  }

  void end() override {
    progress("");
    print(as_table(seen_.tags, seen_.options, seen_.form, seen_.begin));
  }

 private:
  const Seen& seen_;
  Rhythm rhythm_;
};

// An object a sighting.
class ObjectShow : public Show {
 public:
  explicit ObjectShow(const Seen& seen) : seen_(seen) {}

  void add(const Poll& poll, Clock::time_point at) override {
    for (const auto& reading : poll.tags) {
      const auto epc = uhfsim::hex_of(reading.epc);
      if (const auto found = seen_.tags.all().find(epc); found != seen_.tags.all().end()) {
        print(nlohmann::ordered_json{{"time", std::chrono::duration<double>(at - seen_.begin).count()},
                                     {"epc", epc},
                                     {"card_value", seen_.form.value_of(found->second)},
                                     {"rssi", reading.rssi},
                                     {"pc", hex(reading.pc, 4)}});
      }
    }
  }

  void end() override {}

 private:
  const Seen& seen_;
};

std::unique_ptr<Show> show_of(const Seen& seen, bool as_objects) {
  if (as_objects) {
    return std::make_unique<ObjectShow>(seen);
  }
  return can_be_redrawn() ? std::unique_ptr<Show>(std::make_unique<LiveShow>(seen)) : std::make_unique<PlainShow>(seen);
}

void look(Watch& watch, Seen& seen, Show& show) {
  const auto has_enough = [&seen] {
    return seen.options.count > 0 && seen.tags.all().size() >= static_cast<std::size_t>(seen.options.count);
  };
  do {
    const auto poll = watch.next();
    const auto now = Clock::now();
    if (poll.has_value()) {
      seen.tags.add(*poll, now);
      seen.faults.add(poll->fault);
    }
    show.add(poll.value_or(Poll()), now);
  } while (!seen.duration.is_over() && !has_enough());
}

void tell_what_was_wrong(const Seen& seen, const Watch& watch, const std::string& prefix) {
  if (seen.faults.polls() == 0 && !watch.whose().empty()) {
    note(watch.whose() + " has not asked for tags in that time: `achost config get operation_mode` tells when it does");
  }
  if (seen.faults.noisy()) {
    note("noisy line: " + seen.faults.text() + ": " + advice_on(seen.faults.commonest()).way_out);
  }
  if (seen.tags.all().empty()) {
    note("no tag" + (prefix.empty() ? std::string() : " that begins with " + prefix) + " in " +
         seconds(seen.duration.passed()) + " s");
  }
}

}  // namespace

void inventory(const Common& common, const InventoryOptions& options) {
  const auto prefix = upper(options.filter);
  if (!std::ranges::all_of(prefix, [](unsigned char c) { return std::isxdigit(c) != 0; })) {
    throw Failure(kUsage,
                  "\"" + options.filter + "\" is no beginning of an EPC: give hexadecimal digits, such as E200");
  }
  const auto polls = watch(common);
  Seen seen(options, prefix);
  const auto show = show_of(seen, common.json);
  try {
    look(*polls, seen, *show);
  } catch (const Failure&) {
    show->end();  // what was found until then is not lost
    tell_what_was_wrong(seen, *polls, prefix);
    throw;
  }
  show->end();
  tell_what_was_wrong(seen, *polls, prefix);
}

}  // namespace uhfctl
