// A text of settings to be imported: what is taken is written again as it was.
#include "door/base/failure.h"
#include "door/cli/settings_text.h"
#include "input.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const auto settings = achost::parse_settings_text({reinterpret_cast<const char*>(data), size}, "fuzz");
    std::string text;
    for (const auto& [section, key, value] : settings) {
      text += section;
      text += "." + key + "=" + value + "\n";
    }
    const auto again = achost::parse_settings_text(text, "again");
    fuzz::require(again.size() == settings.size(), "no setting is lost");
    for (std::size_t i = 0; i < again.size(); ++i) {
      fuzz::require(again[i].value == settings[i].value, "no value is changed");
    }
  } catch (const achost::Failure& failure) {
    fuzz::require(std::string(failure.what()).starts_with("fuzz:"), "an error names the line, and is the copy's own");
  }
  return 0;
}
