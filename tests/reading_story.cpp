#include "reading_story.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <sstream>

#include "dispatch.h"
#include "fake_clock.h"
#include "fake_module.h"
#include "gpio_events.h"
#include "live_config.h"
#include "message_handling.h"
#include "reading_loop.h"
#include "second_host.h"
#include "settings.h"
#include "witness_beside.h"

using second_host::Fields;
using second_host::host;
using second_host::SentMessage;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

namespace {

// What happens in each wait of the plug-in's dispatch.
std::function<void()> in_wait;

}  // namespace

// The linker sends the waits of condition variables and the pauses of the reading loop here (--wrap).
extern "C" int __real_pthread_cond_clockwait(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
extern "C" int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                             const timespec* deadline) {
  if (!in_wait) {
    return __real_pthread_cond_clockwait(condition, mutex, clock, deadline);
  }
  in_wait();
  return ETIMEDOUT;
}
extern "C" int __wrap_usleep(useconds_t) { return 0; }

namespace reading_story {

namespace {

constexpr int kGpio = 5;
constexpr auto kMode = static_cast<std::size_t>(why::Setting::kOperationMode);

// Between the answer and the next question, and how long after it is there an answer may be noted.
constexpr milliseconds kPause{1};
constexpr nanoseconds kLatest = milliseconds(50);

struct End {};
struct Disagreement {
  std::string text;
};

why::Settings settings_of(const std::array<std::int64_t, 5>& values) {
  constexpr std::array kByPlace{why::Mode::kInhibit, why::Mode::kTrigger, why::Mode::kContinuous,
                                why::Mode::kContinuous};
  return {kByPlace.at(static_cast<std::size_t>(values[0])), static_cast<int>(values[1]), milliseconds(values[2]),
          milliseconds(values[3]), milliseconds(values[4])};
}

class Play {
 public:
  Play(const Start& start, const Next& next, Count& count, Telling telling, std::uint64_t seed)
      : start_(start), next_(next), count_(count), telling_(telling), random_(seed), stored_(start.settings) {
    host().reset();
    host().on_call([this](const std::string& call) { has_announced_ |= call == "send identifier_new_card"; });
    host().answer_with([this](const SentMessage&) { return level_ < 0 ? Fields{} : Fields{{"value", level_}}; });
    set_up_clock();
    set_up_plug_in();
  }

  std::string run() {
    std::string failure;
    in_wait = [this] { wait(); };
    try {
      dispatchCards(condition_);
    } catch (const End&) {
    } catch (const Disagreement& disagreement) {
      failure = disagreement.text;
    } catch (const std::exception& error) {
      failure = std::string("the plug-in failed: ") + error.what();
    }
    in_wait = nullptr;
    fake_clock::release();
    t640_module.reset();
    lastCardsRead_.clear();
    return failure;
  }

 private:
  void set_up_clock() {
    fake_clock::freeze();
    fake_clock::advance(start_.clock - fake_clock::now().time_since_epoch());
  }

  void set_up_plug_in() {
    for (std::size_t place = 0; place < kKeys.size(); ++place) {
      write(place);
    }
    host().set("trig_gpio", kGpio);
    host().set("watchdog_timeout", 3'600'000);
    host().set("tag_detector_relay", 3);
    host().set("identification_bits", bits_);
    readSettings();
    tagDetectorEnabled = false;
    lastCardsRead_.clear();
    lastCardsSent_.clear();
    lastTriggerTimePoint = {};
    inhibitActive = false;
    level_ = start_.level;
    reader_ = &FakeModule::install();
    if (start_.read_before != nanoseconds(0)) {
      fake_clock::advance(-start_.read_before);
      read_tags(1, nanoseconds(0));
      fake_clock::advance(start_.read_before);
    }
  }

  void write(std::size_t place) {
    if (place == kMode) {
      host().set(kKeys[place], std::string(kModes.at(static_cast<std::size_t>(stored_[place]))));
    } else {
      host().set(kKeys[place], static_cast<int>(stored_[place]));
    }
  }

  // Who tells: each in the order in which it happened.
  enum class Teller { kChanges, kPolls, kAnnouncements };

  // The plug-in's own time as the model is told it.
  Time told(Teller teller = Teller::kChanges) {
    auto time = fake_clock::now();
    if (telling_ != Telling::kExactly) {
      time += nanoseconds(static_cast<std::int64_t>(random_() % 2'000'001) - 1'000'000);
    }
    auto& latest = told_.at(rounds_are_told() ? 0 : static_cast<std::size_t>(teller));
    return latest = std::max(latest, time);
  }

  bool rounds_are_told() const { return telling_ == Telling::kExactly || telling_ == Telling::kNearly; }

  // To whichever of the two plays; a witness is told in its own way.
  template <typename What>
  void tell(What what) {
    if (afar_) {
      what(*afar_);
    } else if (model_) {
      what(*model_);
    }
  }

  void begin() {
    const auto start = told();
    last_round_ = fake_clock::now();
    if (telling_ == Telling::kBesideADoor) {
      witness_.emplace(witness_settings(), start, level_);
    } else if (telling_ == Telling::kFromAfar) {
      afar_.emplace(settings_of(stored_), kPeriod, start);
    } else {
      model_.emplace(settings_of(stored_), start);
    }
    tell([&](auto& model) { model.answer(level_, start); });
    if (model_ && start_.read_before != nanoseconds(0)) {
      model_->read(why::card_value(kTags[0], bits_, ""), start - start_.read_before);
    }
  }

  void wait() {
    if (!std::exchange(has_begun_, true)) {
      begin();
    } else {
      compare();
    }
    for (;;) {
      const auto step = rounds_are_told() ? next_({fake_clock::now(), marks_}) : next_of_plug_in();
      if (!step) {
        look_at_outcomes(fake_clock::now() + std::chrono::hours(1));
        look_at_witness(true);
        throw End();
      }
      if (step->kind == Kind::kRound) {
        break;
      }
      witness_ ? take_beside_a_door(*step) : take(*step);
    }
    last_round_ = fake_clock::now();
    ++count_.rounds;
    if (model_) {
      const auto before = *model_;
      const auto at = told();
      expected_ = model_->round(at);
      look_at_promises(before, at);
    }
  }

  // The next step, or as much of it as the plug-in's period leaves; or the round that the plug-in has anyway.
  std::optional<Step> next_of_plug_in() {
    const auto due = (last_round_ + kPeriod - fake_clock::now()).count();
    if (due <= 0 || std::exchange(wakes_, false)) {
      return Step{Kind::kRound};
    }
    if (!step_ && !is_last_) {
      step_ = next_({fake_clock::now(), marks_});
      is_last_ = !step_;
      if (is_last_) {
        return Step{Kind::kTime, 0, due};  // to a last round
      }
      if (step_->kind == Kind::kPass || step_->kind == Kind::kMissedPass) {
        step_->number = std::max(step_->number, nanoseconds(kLeastPass).count());
      }
    }
    if (step_ && takes_time(*step_) && step_->number > due) {
      step_->number -= due;
      return Step{Kind::kTime, 0, due};
    }
    wakes_ = step_ && step_->kind == Kind::kPass;
    return std::exchange(step_, std::nullopt);
  }

  static bool takes_time(const Step& step) {
    return step.kind == Kind::kTime || step.kind == Kind::kPass || step.kind == Kind::kMissedPass;
  }

  // "It would have been from then on": in what was known then, at that instant and not one before.
  void look_at_promises(const why::Suppression& before, Time at) {
    for (const auto& one : expected_) {
      const auto from = one.would_have_been_from;
      if (!from || *from <= at) {
        continue;
      }
      const auto earlier = *from - nanoseconds(1);
      if (!before.verdict({one.reading.card, *from}, *from).expected() ||
          before.verdict({one.reading.card, earlier}, earlier).expected()) {
        throw Disagreement{"card " + std::to_string(one.reading.card) + " would not have been announced from " +
                           std::to_string((*from - start_time()).count()) + " ns on"};
      }
    }
  }

  // What the plug-in did in the round that is over, and what the model expected of it.
  void compare() {
    const auto announced = take_announcement();
    if (announced) {
      mark_ends();
    }
    if (witness_) {
      if (announced) {
        ++count_.announced;
        witness_->announced(*announced, told(Teller::kAnnouncements));
      }
      look_at_witness(false);
      return;
    }
    if (afar_) {
      if (announced) {
        afar_->announced(*announced, told(Teller::kAnnouncements));
      }
      look_at_outcomes(fake_clock::now());
      return;
    }
    const auto seen = expected_;
    const auto opinion = model_->settle(expected_, announced, told());
    if (opinion == why::Opinion::kDisagrees || (telling_ == Telling::kExactly && opinion != why::Opinion::kAgrees)) {
      throw Disagreement{told_of(seen, announced)};
    }
    tell_of({{}, expected_, announced, opinion});
    count_.chosen += std::ranges::count_if(seen, &why::Verdict::expected) > 1;
  }

  void look_at_outcomes(Time now) {
    if (!afar_) {
      return;
    }
    for (const auto& outcome : afar_->settle(now)) {
      if (outcome.opinion == why::Opinion::kDisagrees) {
        throw Disagreement{told_of(outcome.verdicts, outcome.announced)};
      }
      tell_of(outcome);
    }
  }

  why::WitnessSettings witness_settings() const {
    return {
        .rules = settings_of(stored_), .probe_interval = kPause, .identification_bits = bits_, .reader_type = type_};
  }

  void look_at_witness(bool is_end) {
    if (!witness_) {
      return;
    }
    is_end ? witness_->end() : witness_->pass(fake_clock::now());
    if (const auto& one = witness_->disagreement()) {
      std::string text = "at " + std::to_string((one->at - start_time()).count()) + " ns the witness says of card " +
                         std::to_string(one->card) +
                         (one->was_announced ? " that it was announced, despite:" : " that it was not announced");
      for (const auto& because : one->reasons) {
        text += ' ';
        text += why::row_of(because.reason).name;
      }
      throw Disagreement{text};
    }
    if (is_end) {
      const auto& readings = witness_->readings();
      count_.at_boundary += static_cast<std::uint64_t>(readings.at_boundary);
      for (const auto& [reason, times] : readings.by_reason) {
        count_.refused[reason] += static_cast<std::uint64_t>(times);
      }
    }
  }

  std::optional<why::Card> take_announcement() {
    if (!std::exchange(has_announced_, false)) {
      return std::nullopt;
    }
    const auto messages = host().messages("identifier_new_card");
    if (messages.size() != announced_before_ + 1) {
      throw Disagreement{"two cards in one round"};
    }
    announced_before_ = messages.size();
    return static_cast<why::Card>(std::get<std::int64_t>(messages.back().fields.at(1).second));
  }

  void mark_ends() {
    const auto now = fake_clock::now();
    mark(now + milliseconds(same_tag_timeout_));
    mark(now + milliseconds(different_tag_timeout_));
    mark(now + milliseconds(std::max(stored_[3], stored_[4])));
  }

  void tell_of(const why::Outcome& outcome) {
    count_.announced += outcome.announced.has_value();
    count_.at_boundary += outcome.opinion == why::Opinion::kAtBoundary;
    for (const auto& one : outcome.verdicts) {
      for (const auto& because : one.reasons) {
        ++count_.refused[because.reason];
      }
    }
  }

  std::string told_of(const std::vector<why::Verdict>& seen, std::optional<why::Card> announced) {
    std::ostringstream text;
    text << "at " << (fake_clock::now() - start_time()).count() << " ns the plug-in announced ";
    announced ? text << *announced : text << "nothing";
    text << "; the model:";
    for (const auto& one : seen) {
      text << "\n  card " << one.reading.card << (one.expected() ? " is expected" : " is not:");
      for (const auto& because : one.reasons) {
        text << ' ' << why::row_of(because.reason).name;
      }
    }
    return text.str();
  }

  Time start_time() const { return Time(start_.clock); }

  void mark(Time time) {
    if (marks_.size() == 8) {
      marks_.erase(marks_.begin());
    }
    marks_.push_back(time);
  }

  void take_beside_a_door(Step step) {
    switch (step.kind) {
      case Kind::kLoseMode:
        return;
      case Kind::kAnswer:
      case Kind::kNotify:
        step = {Kind::kInput, 0, std::abs(step.number)};
        break;
      default:
        break;
    }
    take(step);
    switch (step.kind) {
      case Kind::kInput:
        witness_->input(static_cast<int>(step.number), told());
        break;
      case Kind::kStore:
        take_setting(static_cast<std::size_t>(step.what));
        [[fallthrough]];
      case Kind::kTake:
      case Kind::kBits:
      case Kind::kType:
        witness_->apply(witness_settings(), told());
        break;
      default:
        break;
    }
  }

  void take(const Step& step) {
    switch (step.kind) {
      case Kind::kTime:
        fake_clock::advance(nanoseconds(step.number));
        break;
      case Kind::kInput:
      case Kind::kAnswer:
      case Kind::kNotify:
        change_input(step.kind, static_cast<int>(step.number));
        break;
      case Kind::kStore:
        stored_.at(static_cast<std::size_t>(step.what)) = step.number;
        write(static_cast<std::size_t>(step.what));
        tell([this](auto& model) { model.store(settings_of(stored_), told()); });
        break;
      case Kind::kTake:
        take_setting(static_cast<std::size_t>(step.what));
        break;
      case Kind::kLoseMode:
        lose_mode();
        break;
      case Kind::kBits:
        bits_ = static_cast<int>(step.number);
        host().set("identification_bits", bits_);
        break;
      case Kind::kType:
        type_ = kReaderTypes.at(static_cast<std::size_t>(step.number));
        host().set("reader_type", std::string(type_));
        break;
      case Kind::kPass:
      case Kind::kMissedPass:
        pass(static_cast<unsigned>(step.what), nanoseconds(step.number));
        break;
      case Kind::kRound:
        break;
    }
  }

  void change_input(Kind kind, int level) {
    if (kind != Kind::kNotify) {
      level_ = level;
      tell([&](auto& model) { model.answer(level < 0 ? std::nullopt : std::optional(level), told()); });
    }
    if (kind != Kind::kAnswer) {
      handle(gpioNotifiedCallback, "gpio_notified", {{"gpio", kGpio}, {"value", level}});
      tell([&](auto& model) { model.notified(level, told()); });
      mark(fake_clock::now() + milliseconds(trigger_timeout_));
      mark(fake_clock::now());
    }
  }

  void take_setting(std::size_t place) {
    handle(configParamSetCallback, "config_param_set",
           {{"module", std::string("uhf")}, {"param", std::string(kKeys.at(place))}});
    tell([&](auto& model) { model.take(static_cast<why::Setting>(place), told()); });
    stored_[3] = std::stoi(host().get("uhf", "read_interval").value_or("0"));
    stored_[4] = std::stoi(host().get("uhf", "read_interval_diff_tags").value_or("0"));
  }

  void lose_mode() {
    uhf_operation_mode_ = 3;
    auto settings = settings_of(stored_);
    settings.operation_mode = why::Mode::kUnknown;
    tell([&, at = told()](auto& model) {
      model.store(settings, at);
      model.take(why::Setting::kOperationMode, at);
      model.store(settings_of(stored_), at);
    });
  }

  void pass(unsigned tags, nanoseconds takes) {
    read_tags(tags, takes);
    if (witness_) {
      pass_witness(tags, takes);
      return;
    }
    std::vector<why::Card> cards;
    for (std::size_t tag = 0; tag < kTags.size(); ++tag) {
      if ((tags >> tag & 1) != 0) {
        cards.push_back(why::card_value(kTags[tag], bits_, type_));
      }
    }
    if (afar_) {
      afar_->poll(cards, told(Teller::kPolls));
      return;
    }
    const auto at = told();
    for (const auto card : cards) {
      model_->read(card, at);
    }
  }

  // One answer of eight is noted late, by more than the times are off.
  void pass_witness(unsigned tags, nanoseconds takes) {
    std::vector<line::Bytes> epcs;
    for (std::size_t tag = 0; tag < kTags.size(); ++tag) {
      if ((tags >> tag & 1) != 0) {
        epcs.push_back(kTags[tag]);
      }
    }
    const auto late = std::min(takes - kLeastPass, kLatest);
    const bool is_late = random_() % 8 == 0 && late > why::Suppression::kNear / 2;
    const auto noted = told(Teller::kPolls);
    witness_->answered(epcs, is_late ? noted - late : noted, noted);
  }

  void read_tags(unsigned tags, nanoseconds takes) {
    reader_->onInventory = [tags, takes] {
      fake_clock::advance(takes);
      FakeModule::Inventory inventory(true, {});
      for (std::size_t tag = 0; tag < kTags.size(); ++tag) {
        if ((tags >> tag & 1) != 0) {
          inventory.second.push_back({200, 0x3000, kTags[tag], 0});
        }
      }
      return inventory;
    };
    TimePoint last_seen;
    readTags(last_seen, condition_);
  }

  Start start_;
  const Next& next_;
  Count& count_;
  Telling telling_;
  std::mt19937_64 random_;
  std::array<Time, 3> told_{};  // the latest of each teller
  std::array<std::int64_t, 5> stored_;
  int level_ = 0;
  int bits_ = 32;
  const char* type_ = "";
  FakeModule* reader_ = nullptr;
  std::condition_variable condition_;
  bool has_announced_ = false;
  std::size_t announced_before_ = 0;
  std::vector<Time> marks_;
  Time last_round_{};
  std::optional<Step> step_;  // what is left of it
  bool wakes_ = false;
  bool is_last_ = false;
  std::optional<why::Suppression> model_;  // or:
  std::optional<why::SecondOpinion> afar_;
  std::optional<WitnessBeside> witness_;
  bool has_begun_ = false;
  std::vector<why::Verdict> expected_;
};

}  // namespace

std::string play(const Start& start, const Next& next, Count& count, Telling telling, std::uint64_t seed) {
  return Play(start, next, count, telling, seed).run();
}

std::string play(const Start& start, const std::vector<Step>& steps, Telling telling, std::uint64_t seed) {
  Count count;
  std::size_t place = 0;
  return play(
      start, [&](const View&) { return place < steps.size() ? std::optional(steps[place++]) : std::nullopt; }, count,
      telling, seed);
}

}  // namespace reading_story
