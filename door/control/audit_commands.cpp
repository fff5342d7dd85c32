#include "door/control/audit_commands.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "door/base/failure.h"
#include "door/control/answer_parts.h"
#include "door/control/packed_rows.h"
#include "door/control/row_lines.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

using refhost::AuditEntry;
using refhost::AuditFilter;
using refhost::kAuditTypes;
using Type = ControlField::Type;

const Json& columns() {
  static const Json names = {"id", "at", "type", "time", "details"};
  return names;
}

AuditFilter filter_of(const Json& request) {
  AuditFilter filter{
      .since = number_in(request, "since"), .until = number_in(request, "until"), .last = number_in(request, "last")};
  for (const auto& type : request.value("types", Json::array())) {
    filter.types.push_back(audit_type_of(type));
  }
  if (const auto to = number_in(request, "to"); to.has_value()) {
    filter.range = {.after = number_in(request, "after").value_or(0), .to = *to};
  }
  return filter;
}

Json json_of(const AuditEntry& entry) {
  const auto type = static_cast<std::size_t>(entry.record.type);
  return {{"id", entry.id},
          {"at", entry.at == 0 ? Json(nullptr) : Json(entry.at)},
          {"type", type < std::size(kAuditTypes) ? Json(kAuditTypes[type]) : Json(entry.record.type)},
          {"time", entry.record.time},
          {"details", entry.record.details}};
}

void pack(const AuditEntry& entry, PackedRows& rows) {
  rows.add(entry.id);
  rows.add(entry.at);
  rows.add(entry.record.type);
  rows.add(entry.record.time);
  rows.add(entry.record.details);
}

Json query(Stores& stores, const Json& request, ControlStream& stream) {
  AuditFilter filter = filter_of(request);
  if (!filter.range.has_value()) {
    filter.range = stores.audit().range_of(filter);
  }
  filter.last.reset();
  std::int64_t after = filter.range->to;
  const bool is_packed = wants_packed(request);
  PackedRows rows;
  std::string lines;
  stores.audit().read(filter, [&](const AuditEntry& entry) {
    is_packed ? pack(entry, rows) : void(lines += line_of({{"record", json_of(entry)}}));
    const bool goes_on = rows.bytes().size() + lines.size() < kEnoughForAPart;
    after = goes_on ? after : entry.id;
    return goes_on;
  });
  is_packed ? stream.send_bytes(rows.bytes()) : stream.send_lines(lines);
  Json answer = {{"after", after}, {"to", filter.range->to}, {"more", after < filter.range->to}};
  if (is_packed) {
    answer["columns"] = columns();
  }
  return answer;
}

}  // namespace

int audit_type_of(const std::string& name) {
  const auto* const found = std::ranges::find(kAuditTypes, name);
  if (found == std::end(kAuditTypes)) {
    std::string all;
    for (const auto known : kAuditTypes) {
      all += (all.empty() ? "" : ", ") + std::string(known);
    }
    throw Failure(kUsage, "there is no audit type \"" + name + "\": there are " + all);
  }
  return static_cast<int>(found - std::begin(kAuditTypes));
}

std::vector<ControlCommand> audit_commands(Stores& stores) {
  return {{"audit_query",
           {{"types", Type::texts, false},
            {"since", Type::integer, false},
            {"until", Type::integer, false},
            {"last", Type::integer, false},
            {"after", Type::integer, false},
            {"to", Type::integer, false},
            kForm},
           [&stores](const Json& request, ControlStream& stream) { return query(stores, request, stream); }}};
}

Json audit_request(const std::vector<std::string>& types, const AuditFilter& filter) {
  Json request = {{"command", "audit_query"}, {"types", types}, {"form", "packed"}};
  for (const auto& [name, value] : {std::pair{"since", filter.since}, {"until", filter.until}, {"last", filter.last}}) {
    if (value.has_value()) {
      request[name] = *value;
    }
  }
  return request;
}

void unpack_audit(const Json& answer, std::string_view bytes, const std::function<void(const AuditEntry&)>& take) {
  if (answer.at("columns") != columns()) {
    throw std::runtime_error("the host that runs is of another version than this program: start it again");
  }
  AuditEntry entry;  // the same for all, so that its texts keep their room
  for (PackedReader rows(bytes); !rows.is_at_end();) {
    entry.id = rows.number();
    entry.at = rows.number();
    entry.record.type = static_cast<int>(rows.number());
    entry.record.time = rows.text();
    entry.record.details = rows.text();
    take(entry);
  }
}

}  // namespace achost
