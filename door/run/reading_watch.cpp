#include "door/run/reading_watch.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <iterator>
#include <new>
#include <string_view>
#include <utility>

#include "refhost/send.h"

namespace achost {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// How often the thread looks for something to do. Nobody waits for it, and ten polls at once cost little more than one,
// after which nothing of it is in the caches any more.
constexpr milliseconds kPeriod{1000};
constexpr milliseconds kPeriodWhenMore{250};  // sightings are to be told
constexpr milliseconds kPeriodWhenWanted{20};

// What is looked at sooner than that, in bytes: a full field brings megabytes a second.
constexpr std::size_t kMuch = 256UL * 1024;

// How long a reader of the sightings waits at most; the journal has those that are over by then.
constexpr std::chrono::seconds kLongestQuestion{2};

constexpr std::chrono::seconds kBetweenWords{10};

// More than can be over while the journal takes one to the disk.
constexpr std::size_t kMostJustOver = 64;

// Between the two clocks. Looked at each time, it would differ a little; it is another one when the wall clock was set.
std::chrono::nanoseconds wall_clock_ahead() {
  constexpr milliseconds kSame{20};
  static std::atomic<std::int64_t> known = 0;  // ns; 0: not yet
  const auto now = std::chrono::system_clock::now().time_since_epoch() - steady_clock::now().time_since_epoch();
  const auto before = std::chrono::nanoseconds(known.load());
  if (std::chrono::abs(now - before) < kSame) {
    return before;
  }
  known = std::chrono::nanoseconds(now).count();
  return now;
}

Milliseconds wall_time(why::Time time) {
  return std::chrono::floor<milliseconds>(Milliseconds::clock::time_point(
      std::chrono::duration_cast<std::chrono::system_clock::duration>(time.time_since_epoch() + wall_clock_ahead())));
}

}  // namespace

ReadingWatch::ReadingWatch(const refhost::SettingsStore& settings, const GpioService& gpio,
                           std::function<void(const Entry&)> note, std::function<bool()> has_room)
    : settings_(settings), gpio_(gpio), note_(std::move(note)), has_room_(std::move(has_room)) {}

ReadingWatch::~ReadingWatch() {
  tap_.reset();
  end();
}

void ReadingWatch::begin(line::Recorder* recorder, milliseconds between_notes) {
  recorder_ = recorder;
  between_notes_ = between_notes;
  trigger_line_ = settings_.get_int("uhf", "trig_gpio").value_or(-1);
  // First of all: what changes from now on is seen.
  tap_ = std::make_unique<refhost::BusTap>([this](const ac::Message& message) { see(message); });
  const std::lock_guard lock(mutex_);
  const auto now = steady_clock::now();
  standing_ = {.is_start = true, .settings = settings_now(), .trigger_line = trigger_line_, .level = level_now()};
  begin_witness(now);
  record(now);
  standing_.is_start = false;
  thread_ = std::thread([this] { run(); });
}

void ReadingWatch::begin_witness(Time now) {
  witness_.emplace(
      why::settings_of(standing_.settings), now, [this](const why::Sighting& sighting) { note(sighting); },
      [this](const why::Disagreement& disagreement) { tell(disagreement); });
  witness_->answer(standing_.level, now);
}

// Nothing where there is no such line.
std::optional<int> ReadingWatch::level_now() const {
  const int line = trigger_line_;
  const bool is_there = line >= 0 && line < GpioService::kLines;
  return is_there ? std::optional(gpio_.levels().at(static_cast<std::size_t>(line))) : std::nullopt;
}

why::SettingTexts ReadingWatch::settings_now() const {
  why::SettingTexts texts;
  for (const auto name : why::kSettingNames) {
    texts.emplace(name, settings_.get("uhf", name).value_or(""));
  }
  return texts;
}

// On the sender's thread.
void ReadingWatch::see(const ac::Message& message) {
  try {
    take_down(message);
  } catch (const std::bad_alloc&) {  // the sender goes on
    ++left_out_;
  }
}

void ReadingWatch::take_down(const ac::Message& message) {
  const std::string_view type = message.type();
  std::int64_t value = 0;
  int line = 0;
  int level = 0;
  std::string module;
  if (type == "identifier_new_card" && message.get_int64("value", &value)) {
    put(steady_clock::now(), Announced{static_cast<why::Card>(value)});
  } else if (type == "gpio_notified" && message.get_int("gpio", &line) && line == trigger_line_ &&
             message.get_int("value", &level)) {
    put(steady_clock::now(), Level{level});
  } else if (type == "config_param_set" && message.get_string("module", &module) && module == "uhf") {
    put(steady_clock::now(), settings_now());
  } else if (type == "reader_state") {
    ReaderState reader;
    message.get_string("state", &reader.state);
    message.get_string("cause", &reader.cause);
    put(steady_clock::now(), std::move(reader));
  }
}

void ReadingWatch::saw(line::Exchange exchange) {
  const auto at = exchange.last_byte;
  const auto more = exchange.bytes.capacity() + exchange.answer.tags.capacity() * sizeof(line::TagPlace);
  put(at, std::move(exchange), more);
}

void ReadingWatch::put(Time at, decltype(Fact::what) what, std::size_t more) {
  // The line and the bus wait for no opinion: the thread that forms it may hang.
  constexpr milliseconds kTellersPatience{5};
  std::unique_lock lock(facts_mutex_, std::try_to_lock);
  for (const auto end = steady_clock::now() + kTellersPatience; !lock.owns_lock() && steady_clock::now() < end;) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
    lock.try_lock();
  }
  const auto bytes = sizeof(Fact) + more;
  if (!lock.owns_lock() || bytes_ + bytes > kMostBytes) {
    ++left_out_;
    return;
  }
  try {
    facts_.push_back({.at = at, .what = std::move(what)});
    bytes_ += bytes;
  } catch (const std::bad_alloc&) {
    ++left_out_;
  }
  const bool is_much = bytes_ > kMuch;
  lock.unlock();
  if (is_much) {
    changed_.notify_all();  // should it be missed, the next answer says so again
  }
}

void ReadingWatch::run() {
  pthread_setname_np(pthread_self(), "reading_watch");
  std::unique_lock lock(mutex_);
  while (!ending_) {
    changed_.wait_for(lock, pause());
    if (!ending_) {
      const refhost::Work::Step step(work_);
      look();
    }
  }
}

// With mutex_ held.
std::chrono::milliseconds ReadingWatch::pause() const {
  return known_until_ < wanted_until_                           ? kPeriodWhenWanted
         : witness_.has_value() && witness_->has_more_to_tell() ? kPeriodWhenMore
                                                                : kPeriod;
}

// With mutex_ held. Without memory all that was known is let go, and counted as one thing left out.
void ReadingWatch::look() {
  try {
    if (!witness_.has_value()) {
      begin_witness(steady_clock::now());
    }
    take_facts();
    if (ending_) {
      witness_->end();
    }
  } catch (const std::bad_alloc&) {
    by_reason_ = all_by_reason();
    witness_.reset();
    handled_.clear();
    ++left_out_;
  }
}

// The same.
void ReadingWatch::take_facts() {
  // An answer is told when the line is quiet, at the latest; what it brought is known a moment after that.
  constexpr milliseconds kToldLate{300};
  const auto now = steady_clock::now();
  {
    const std::lock_guard lock(facts_mutex_);
    handled_.swap(facts_);
    bytes_ = 0;
  }
  std::ranges::for_each(handled_, [this](const Fact& fact) { handle(fact); });
  handled_.clear();
  if (left_out_ != left_out_before_) {
    catch_up(now);
  }
  if (now >= next_record_) {
    record(now);
  }
  witness_->pass(now);
  known_until_ = now - std::max(kToldLate, why::SecondOpinion::kPatience);
  changed_.notify_all();
}

// Something was left out: a change may have been, and an announcement. By the end of all intervals it is past.
void ReadingWatch::catch_up(Time now) {
  left_out_before_ = left_out_;
  standing_.settings = settings_now();
  standing_.level = level_now();
  const auto settings = why::settings_of(standing_.settings);
  witness_->apply(settings, now);
  witness_->input(standing_.level, now);
  const auto& rules = settings.rules;
  doubtful_until_ = now + 2 * why::SecondOpinion::kPatience +
                    std::max({rules.read_interval, rules.read_interval_diff_tags, rules.trigger_timeout});
}

void ReadingWatch::record(Time now) {
  next_record_ = now + between_notes_;
  if (recorder_ != nullptr) {
    recorder_->note(note_of(standing_, now), now);
  }
}

void ReadingWatch::handle(const Fact& fact) {
  if (const auto* const exchange = std::get_if<line::Exchange>(&fact.what)) {
    witness_->saw(*exchange);
    counters_.readings += exchange->answer.tags.size();
  } else if (const auto* const announced = std::get_if<Announced>(&fact.what)) {
    witness_->announced(announced->card, fact.at);
    standing_.was_announced(announced->card, fact.at);
  } else if (const auto* const level = std::get_if<Level>(&fact.what)) {
    witness_->input(level->level, fact.at);
    standing_.changed_to(level->level, fact.at);
  } else if (const auto* const reader = std::get_if<ReaderState>(&fact.what)) {
    standing_.reader = {reader->state, reader->cause, fact.at};
  } else {
    standing_.settings = std::get<why::SettingTexts>(fact.what);
    witness_->apply(why::settings_of(standing_.settings), fact.at);
  }
}

void ReadingWatch::note(const why::Sighting& sighting) {
  just_over_.push_back(told(sighting, wall_time));
  if (just_over_.size() > kMostJustOver) {
    just_over_.pop_front();
  }
  while (steady_clock::now() < noted_until_ && !has_room_()) {
    std::this_thread::sleep_for(milliseconds(5));
  }
  note_(entry_of(just_over_.back()));
}

void ReadingWatch::tell(const why::Disagreement& disagreement) {
  if (disagreement.at < doubtful_until_) {
    return;
  }
  ++counters_.disagreements;
  const auto now = steady_clock::now();
  if (now < next_word_) {
    return;
  }
  next_word_ = now + kBetweenWords;
  std::string text = disagreement.was_announced ? "was announced against the rules on readings"
                                                : "was to be announced by the rules on readings, and was not";
  for (const auto& because : disagreement.reasons) {
    text += std::string(": ") + std::string(row_of(because.reason).name);
  }
  note_({.kind = Kind::disagreement, .card = disagreement.card, .fields = {{"text", text}}});
  refhost::send("second_opinion", {{"value", static_cast<std::int64_t>(disagreement.card)}, {"text", text}});
}

std::vector<why::ToldSighting> ReadingWatch::sightings() const {
  const auto asked = steady_clock::now();
  std::unique_lock lock(mutex_);
  wanted_until_ = std::max(wanted_until_, asked);
  changed_.notify_all();
  changed_.wait_for(lock, kLongestQuestion, [&] { return known_until_ >= asked || ending_; });
  std::vector<why::ToldSighting> all(just_over_.begin(), just_over_.end());
  if (witness_.has_value()) {
    std::ranges::transform(witness_->sightings(), std::back_inserter(all),
                           [](const why::Sighting& sighting) { return told(sighting, wall_time); });
  }
  return all;
}

ReadingWatch::Counters ReadingWatch::counters() const {
  const std::lock_guard lock(mutex_);
  Counters counters = counters_;
  counters.left_out = left_out_;
  return counters;
}

why::Witness::ByReason ReadingWatch::by_reason() const {
  const std::lock_guard lock(mutex_);
  return all_by_reason();
}

// With mutex_ held.
why::Witness::ByReason ReadingWatch::all_by_reason() const {
  auto all = by_reason_;
  if (witness_.has_value()) {
    std::ranges::transform(all, witness_->by_reason(), all.begin(), std::plus());
  }
  return all;
}

void ReadingWatch::end() {
  {
    const std::lock_guard lock(mutex_);
    if (ending_) {
      return;
    }
    ending_ = true;
    if (thread_.joinable()) {
      noted_until_ = steady_clock::now() + kLongestEnd;
      look();
    }
    changed_.notify_all();
  }
  if (thread_.joinable()) {
    thread_.join();
  }
}

}  // namespace achost
