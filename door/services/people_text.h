// Users and cards as text, for copies and for other programs: CSV, or one JSON object a line. A row tells of a user and
// one of his cards; the columns are kPeopleColumns, of which "id" must be there.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "door/services/people_rows.h"
#include "door/services/user.h"

namespace achost {

enum class PeopleForm { csv, json };

// The form of "csv" or "jsonl"; nothing of any other text.
std::optional<PeopleForm> people_form(const std::string& text);

// All of it, with a row of its own for a user without a card; parse_people() makes the same of it. Cells of the CSV
// that a spreadsheet would take for a formula stand behind an apostrophe (csv.h).
std::string people_as_text(const People& people, PeopleForm form);

// form: nothing: JSON when the text begins with {, CSV otherwise. A byte order mark and lines that end with \r\n are
// taken. CSV has a line of the columns' names first, in any order. Throws Failure (kUsage), one line that begins with
// NAME:LINE, for the first thing that is wrong. Reads nothing but the text, and the time zone.
PeopleImport parse_people(std::string_view text, const std::string& name, std::optional<PeopleForm> form = {});

}  // namespace achost
