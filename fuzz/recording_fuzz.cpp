// A recording of which nobody knows who has written it: any bytes, or a good beginning and lines of which some are
// wrong. It is refused with its name, or tells of the card what is within its times.
#include <sstream>

#include "door/base/failure.h"
#include "door/why/recollection.h"
#include "input.h"

namespace {

// Lines by their number, each with bytes of its own; a text of a corpus begins with "#" and is taken as it is.
std::string text_of(fuzz::Input input) {
  constexpr const char* kLines[] = {
      " > BB00220000227E",
      " < BB02220012C83000E2801170000002000A0000210000207E",
      " identifier_new_card identifier_id=1 value=33 device_id=1 uuid=u",
      " identifier_decision value=33 device_id=1 uuid=u outcome=opens user_id=7 user_name=Ana",
      " config_param_set module=uhf param=operation_mode value=trigger previous_value=continuous sys_config=0",
      " gpio_notified gpio=1 value=1",
      " door_state id=1 open=1 reason=0",
      " the line is lent to x",
      " the line comes back from x: y",
      " notes are missing here",
      " standing {\"start\":false,\"settings\":{\"operation_mode\":\"continuous\",\"identification_bits\":\"8\"},"
      "\"trigger_line\":1,\"level\":0,\"edges\":[[1,1]],\"announced\":[[2,33]],\"reader\":null}",
      " BB00B70000B77E"};
  std::string text = "# uhf recording 1\n# begins 2026-01-31T08:00:00.000000+01:00 5.5\n";
  std::uint64_t at = 0;
  while (!input.empty()) {
    const auto line = input.below(std::size(kLines) + 1);
    at += input.byte() * 37;
    const auto seconds = std::to_string(at / 1000) + "." + std::to_string(1000 + at % 1000).substr(1);
    text += line == std::size(kLines) ? input.text() : (line < 2 ? "" : "# ") + seconds + kLines[line];
    text += '\n';
  }
  return text;
}

void recall(const std::string& text, const achost::why::Question& question) {
  std::istringstream in(text);
  try {
    const auto known = achost::why::recall(in, "fuzz", question);
    fuzz::require(known.begins <= known.ends, "it ends after its beginning");
    for (const auto& sighting : known.evidence.sightings) {
      fuzz::require(sighting.polls > 0 && sighting.first <= sighting.last, "a sighting was read");
      fuzz::require(sighting.last <= known.ends + 1, "nothing is read after its end");
    }
    const auto answer = achost::why::explain(
        {.card = question.card, .epc = question.epc, .from = known.begins, .to = known.ends + 1, .at = {}},
        known.evidence, [](std::int64_t) { return std::string(); });
    fuzz::require(!answer.answer.empty() && !answer.reasons.empty(), "there is an answer");
  } catch (const achost::Failure& failure) {
    fuzz::require(std::string(failure.what()).starts_with("fuzz"), "an error names the file");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Input input(data, size);
  auto whole = input;
  const std::string text = size > 0 && data[0] == '#' ? whole.all_text() : text_of(input);
  recall(text, {.card = 33, .at = {}});
  recall(text, {.card = {}, .epc = "E2801170000002000A000021", .at = {}});
  return 0;
}
