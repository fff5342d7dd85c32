#include "door/why/reports.h"

#include <algorithm>

#include "door/why/answer.h"

namespace achost::why {
namespace {

using line::Exchange;
using line::Frame;

// What a report's frame has beside the EPC.
constexpr std::size_t kAroundEpc = 12;

// Nothing but reports, as nearly every answer that has any.
bool is_plain(const Exchange& exchange) {
  std::size_t size = 0;
  for (const line::TagPlace& tag : exchange.answer.tags) {
    size += tag.size + kAroundEpc;
  }
  return size == exchange.bytes.size();
}

std::vector<Report> plain_reports(const Exchange& exchange) {
  const std::size_t count = exchange.answer.tags.size();
  const std::size_t first = count / 2;
  std::vector<Report> reports;
  reports.reserve(count);
  for (const line::TagPlace& tag : exchange.answer.tags) {
    const std::size_t place = reports.size();
    reports.push_back({.epc = exchange.epc_of(tag),
                       .rssi = tag.rssi,
                       .unused = place < first ? std::optional(Reason::kHalfNotUsed) : std::nullopt,
                       .number = place + 1,
                       .count = count});
  }
  return reports;
}

bool is_report(const Frame& frame) {
  return frame.type == line::FrameType::notice && frame.code == line::Code::inventory;
}

// The frames up to the first bytes that are none. None at all when the plug-in finds no beginning, or no end.
std::vector<AnswerFrame> frames_taken(const Exchange& exchange, const line::Pieces& pieces) {
  std::vector<AnswerFrame> taken;
  if (exchange.bytes.back() != line::kFrameEnd) {
    return taken;
  }
  for (const Frame& frame : pieces.frames) {
    if (!pieces.gaps.empty() && pieces.gaps.front().offset < frame.offset) {
      break;
    }
    taken.push_back(is_report(frame) ? AnswerFrame::kReport : AnswerFrame::kOther);
  }
  return taken;
}

}  // namespace

std::vector<Report> reports_of(const Exchange& exchange) {
  if (exchange.answer.tags.empty() || is_plain(exchange)) {
    return plain_reports(exchange);
  }
  const auto pieces = line::pieces_of(exchange.bytes);
  const auto taken = frames_taken(exchange, pieces);
  const std::size_t first = first_used(taken);
  const bool none = first == taken.size();
  std::vector<Report> reports;
  for (std::size_t i = 0; i < pieces.frames.size(); ++i) {
    if (is_report(pieces.frames[i])) {
      const auto& tag = exchange.answer.tags[reports.size()];
      Report report{.epc = exchange.epc_of(tag), .rssi = tag.rssi, .number = i + 1, .count = taken.size()};
      if (i >= taken.size()) {
        report.unused = Reason::kBadFrame;
        report.flaw = name_of(exchange.answer.flaw.value_or(line::Flaw::truncated));
      } else if (i < first) {
        report.unused = none && i >= taken.size() / 2 ? Reason::kAnswerEnded : Reason::kHalfNotUsed;
      }
      reports.push_back(report);
    }
  }
  return reports;
}

}  // namespace achost::why
