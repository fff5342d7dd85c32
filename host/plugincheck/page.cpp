// Writes docs/plugin-contract.md on standard output.
#include <iostream>

#include "clauses.h"

namespace {

constexpr const char* kIntroduction =
    R"(# The contract of a plug-in

What a plug-in must do, clause by clause: [`host/include`](../host/include) in sentences that `plugincheck` examines one by
one ([how to use it](device.md#examining-a-plug-in)). "Otherwise" is what a plug-in that does not costs. A clause with a star
rests on how we read the headers, or on what a host needs: they do not say it in so many words. What is marked "uhf" is
examined with `--level uhf` alone: `uhf.so` does it beyond the contract, and whoever takes its place must, too.

This page is made from the table of the check, [`host/plugincheck/clauses.h`](../host/plugincheck/clauses.h), by
`scripts/plugin-contract`.
)";

}  // namespace

int main() {
  std::cout << kIntroduction;
  std::string_view chapter;
  for (const auto& clause : plugincheck::kClauses) {
    if (const auto its = plugincheck::chapter_of(clause); its != chapter) {
      chapter = its;
      std::cout << "\n## " << clause.number.front() << " " << chapter
                << "\n\n| | Clause | Otherwise |\n|---|---|---|\n";
    }
    std::cout << "| " << clause.number << (clause.is_reading ? " \\*" : "")
              << (clause.level == plugincheck::Level::uhf ? " uhf" : "") << " | " << clause.sentence << " | "
              << clause.consequence << " |\n";
  }
}
