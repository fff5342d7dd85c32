// Writes docs/host-contract.md on standard output.
#include <iostream>

#include "clauses.h"

namespace {

constexpr const char* kIntroduction =
    R"(# The contract of a host

What a host that loads `uhf.so` must do, clause by clause: [`host/include`](../host/include) in sentences that
`hostcheck.so` examines one by one ([how to use it](device.md#examining-a-host)). "Otherwise" is what a host that does not
costs. A clause with a star rests on how we read the headers, or on how `uhf.so` uses them: they do not say it in so many
words.

This page is made from the table of the check, [`host/check/clauses.h`](../host/check/clauses.h), by
`scripts/host-contract`.
)";

}  // namespace

int main() {
  std::cout << kIntroduction;
  std::string_view chapter;
  for (const auto& clause : hostcheck::kClauses) {
    if (const auto its = hostcheck::chapter_of(clause); its != chapter) {
      chapter = its;
      std::cout << "\n## " << clause.number.front() << " " << chapter
                << "\n\n| | Clause | Otherwise |\n|---|---|---|\n";
    }
    std::cout << "| " << clause.number << (clause.is_reading ? " \\*" : "") << " | " << clause.sentence << " | "
              << clause.consequence << " |\n";
  }
}
