#include "refhost/send.h"

#include <memory>

#include "ac/post_office.h"

namespace refhost {
namespace {

// Adds a field with the operation of its type.
struct Adder {
  ac::Message& message;
  const std::string& name;
  void operator()(int value) const { message.add_int(name, value); }
  void operator()(std::int64_t value) const { message.add_int64(name, value); }
  void operator()(const std::string& value) const { message.add_string(name, value); }
};

}  // namespace

void send(const std::string& type, const std::vector<std::pair<std::string, FieldValue>>& fields) {
  auto message = std::make_unique<ac::Message>(type);
  for (const auto& [name, value] : fields) {
    std::visit(Adder{*message, name}, value);
  }
  ac::PostOffice::send_message(std::move(message));
}

}  // namespace refhost
