// Settings as lines of text, for copies and for the next device.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "door/base/assignment.h"

namespace achost {

// The settings, a line each, SECTION.KEY=VALUE, behind a comment that says what to do with it.
std::string settings_as_text(const std::vector<Assignment>& settings);

// The settings of such a text. Blank lines and lines that begin with # say nothing; blanks around the name and the
// value do not count; a name without a section is of the plug-in. Throws Failure (kUsage), one line that begins with
// NAME:LINE, for the first line that is no setting, has a value that is not allowed, or sets what a line before it has
// set.
std::vector<Assignment> parse_settings_text(std::string_view text, const std::string& name);

}  // namespace achost
