// What can be asked about the audit log.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "door/control/stores.h"

namespace achost {

// The code of a type by its name. Throws Failure (kUsage), which names all.
int audit_type_of(const std::string& name);

// audit_query: the records that the filter lets pass ("types", and as numbers "since", "until" and "last"), so many as
// one answer holds, as lines {"record"}, or packed as the answer's "columns" say. It says between which numbers the
// others are, "after" and "to", and whether there are "more": request_behind() gets them. So a connection that has
// ended may be another.
std::vector<ControlCommand> audit_commands(Stores& stores);

// The request for the first of them.
Json audit_request(const std::vector<std::string>& types, const refhost::AuditFilter& filter);

// Hand the records of an answer to a function. Throws std::runtime_error when they are not as this program knows them.
void unpack_audit(const Json& answer, std::string_view bytes,
                  const std::function<void(const refhost::AuditEntry&)>& take);

}  // namespace achost
