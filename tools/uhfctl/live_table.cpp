#include "live_table.h"

#include <algorithm>
#include <bit>
#include <cstdio>

#include "card_value.h"

namespace uhfctl {

namespace {

constexpr std::chrono::seconds kLeft{2};   // without a reading: it is thought to have left
constexpr std::chrono::seconds kAway{10};  // without a reading: it is not shown any more
constexpr int kMostRssi = 255;             // of its one byte

// A tag's texts.
struct Cells {
  std::string epc;
  std::string card;
  int rssi = 0;
  std::string share;
  std::string ago;
  bool faded = false;
};

std::string ago(Clock::duration time, bool left) {
  const double past = std::chrono::duration<double>(time).count();
  if (past < 1) {
    return "now";
  }
  char text[32];
  std::snprintf(text, sizeof text, left ? "gone %.0f s" : "%.1f s ago", past);
  return text;
}

Cells cells_of(const std::string& epc, const SeenTag& tag, const CardForm& form, Clock::time_point now) {
  const bool left = now - tag.last >= kLeft;
  const int polls = std::min(tag.polls, SeenTag::kRecentPolls);
  const int percent = polls == 0 ? 0 : std::popcount(tag.recent) * 100 / polls;
  return {.epc = epc,
          .card = std::to_string(form.value_of(tag)),
          .rssi = tag.rssi,
          .share = std::to_string(percent) + "%",
          .ago = ago(now - tag.last, left),
          .faded = left};
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

std::string right(const std::string& text, std::size_t width) {
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

std::string bar(int rssi, std::size_t width) {
  const auto full = (static_cast<std::size_t>(rssi) * width + kMostRssi / 2) / kMostRssi;
  return std::string(full, '#') + std::string(width - full, '.');
}

// The end of a text tells more than its beginning: EPCs of one make begin alike.
std::string shortened(const std::string& text, std::size_t width) {
  return text.size() <= width ? text : ".." + text.substr(text.size() - (width - 2));
}

// What stands where in a width.
class Layout {
 public:
  Layout(const std::vector<Cells>& rows, std::size_t columns) : columns_(columns) {
    for (const auto& row : rows) {
      epc_ = std::max(epc_, row.epc.size());
      card_ = std::max(card_, row.card.size());
    }
    const auto beside = kGap + card_ + kGap + kRssi + 1 + kGap + kShare + kGap + kAgo;  // of EPC and bar
    folded_ = epc_ + beside + kLeastBar > columns;
    const auto room = columns - std::min(columns, folded_ ? beside : epc_ + beside);
    bar_ = std::clamp<std::size_t>(room, kLeastBar, kMostBar);
  }

  std::size_t lines_per_tag() const { return folded_ ? 2 : 1; }

  LiveLine heading() const {
    const std::string gap(kGap, ' ');
    return {cut(folded_ ? "EPC, then CARD, RSSI, POLLS, LAST SEEN"
                        : padded("EPC", epc_) + gap + padded("CARD", card_) + gap + padded("RSSI", kRssi + 1 + bar_) +
                              gap + "POLLS" + gap.substr(1) + "LAST SEEN")};
  }

  void add(const Cells& row, std::vector<LiveLine>& lines) const {
    const std::string gap(kGap, ' ');
    const auto figures = padded(row.card, card_) + gap + right(std::to_string(row.rssi), kRssi) + " " +
                         bar(row.rssi, bar_) + gap + right(row.share, kShare) + gap + row.ago;
    if (folded_) {
      lines.push_back({shortened(row.epc, columns_), row.faded});
      lines.push_back({cut(gap + figures), row.faded});
    } else {
      lines.push_back({cut(padded(row.epc, epc_) + gap + figures), row.faded});
    }
  }

 private:
  static constexpr std::size_t kGap = 2;
  static constexpr std::size_t kRssi = 3;   // "255"
  static constexpr std::size_t kShare = 4;  // "100%"
  static constexpr std::size_t kAgo = 9;    // "9.9 s ago"
  static constexpr std::size_t kLeastBar = 4;
  static constexpr std::size_t kMostBar = 20;

  std::string cut(const std::string& text) const { return text.substr(0, columns_); }

  std::size_t columns_;
  std::size_t epc_ = 3;
  std::size_t card_ = 4;
  std::size_t bar_ = kLeastBar;
  bool folded_ = false;
};

std::vector<Cells> cells_of(const Tags& tags, const CardForm& form, Clock::time_point now, Clock::duration longest) {
  std::vector<Cells> rows;
  for (const auto& [epc, tag] : tags.all()) {
    if (now - tag.last < longest) {
      rows.push_back(cells_of(epc, tag, form, now));
    }
  }
  return rows;
}

std::string more(std::size_t tags) { return "and " + std::to_string(tags) + (tags == 1 ? " tag more" : " tags more"); }

std::vector<LiveLine> table_of(const std::vector<Cells>& rows, std::size_t columns, std::size_t height) {
  const Layout layout(rows, columns);
  std::vector<LiveLine> lines{layout.heading()};
  // A line is kept for how many more there are.
  const auto room = (height - std::min<std::size_t>(height, 2)) / layout.lines_per_tag();
  const auto shown = rows.size() * layout.lines_per_tag() < height ? rows.size() : std::min(room, rows.size());
  for (std::size_t i = 0; i < shown; ++i) {
    layout.add(rows[i], lines);
  }
  if (shown < rows.size()) {
    lines.push_back({more(rows.size() - shown).substr(0, columns)});
  }
  return lines;
}

}  // namespace

std::uint64_t CardForm::value_of(const SeenTag& tag) const {
  return cardValueOf(tag.epc, identification_bits, from_front);
}

std::vector<LiveLine> live_table(const Tags& tags, const CardForm& form, Clock::time_point now,
                                 const TerminalSize& size) {
  return table_of(cells_of(tags, form, now, kAway), size.columns, size.rows);
}

std::vector<LiveLine> whole_table(const Tags& tags, const CardForm& form, Clock::time_point now, std::size_t columns) {
  return table_of(cells_of(tags, form, now, Clock::duration::max()), columns, static_cast<std::size_t>(-1));
}

void LiveArea::show(const std::vector<LiveLine>& lines) {
  // A terminal that has become narrower has folded them.
  const auto columns = terminal_size().columns;
  std::size_t rows = 0;
  for (const auto length : lengths_) {
    rows += std::max<std::size_t>(1, (length + columns - 1) / columns);
  }
  std::string text = rows == 0 ? "" : "\r\033[" + std::to_string(rows) + "A";
  lengths_.clear();
  for (const auto& [line, faded] : lines) {
    text += (faded ? coloured(Colour::grey, line) : line) + "\033[K\n";
    lengths_.push_back(line.size());
  }
  print(text + "\033[J");
}

}  // namespace uhfctl
