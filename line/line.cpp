#include "line/line.h"

#include <utility>

#include "line/relay.h"

namespace line {

Line::Line(LineOptions options, std::function<void(const Event&)> on_event)
    : relay_(std::make_unique<Relay>(std::move(options), std::move(on_event))) {}

Line::~Line() = default;

const std::string& Line::terminal() const { return relay_->terminal(); }
std::string Line::port() const { return relay_->port(); }
Health Line::health() const { return relay_->health(); }
std::array<int, kRungs> Line::steps_taken() const { return relay_->steps_taken(); }
bool Line::wait_for_answer(std::chrono::milliseconds timeout) const { return relay_->wait_for_answer(timeout); }
Recorder& Line::recorder() const { return relay_->recorder(); }
std::optional<Bytes> Line::ask(Code code) { return relay_->ask(code); }
std::optional<int> Line::try_power(int power, std::chrono::milliseconds how_long) {
  return relay_->try_power(power, how_long);
}
std::optional<int> Line::end_trial() { return relay_->end_trial(); }
std::optional<Clock::time_point> Line::trial_until() const { return relay_->trial_until(); }
bool Line::lend(int socket, const std::string& who) { return relay_->lend(socket, who); }
void Line::take_back() { relay_->take_back(); }
std::unique_ptr<Onlooker> Line::look_on() { return relay_->onlookers().add(); }

}  // namespace line
