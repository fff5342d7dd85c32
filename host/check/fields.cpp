// Chapter 5: the fields of messages and replies.
#include "fields.h"

#include <cstdint>
#include <limits>

#include "examination.h"
#include "report.h"

namespace hostcheck {
namespace {

constexpr int kInt = std::numeric_limits<int>::min();
constexpr std::int64_t kInt64 = std::numeric_limits<std::int64_t>::max();
constexpr const char* kText = "text with \"quotes\" and \xC3\xA4";

template <class T>
struct Read {
  bool found;
  T value;
};

// With a value that nobody has set when there is no such field.
Read<int> int_of(const auto& fields, const std::string& name, int before = 77) {
  const bool found = fields.get_int(name, &before);
  return {found, before};
}
Read<std::int64_t> int64_of(const auto& fields, const std::string& name, std::int64_t before = 77) {
  const bool found = fields.get_int64(name, &before);
  return {found, before};
}
Read<std::string> text_of(const auto& fields, const std::string& name, std::string before = "before") {
  const bool found = fields.get_string(name, &before);
  return {found, before};
}

template <class T>
bool is(const Read<T>& read, const T& expected) {
  return read.found && read.value == expected;
}

template <class T>
bool is_untouched(const Read<T>& read, const T& before) {
  return !read.found && read.value == before;
}

// No field of that name and of either type.
bool has_no(const auto& fields, const std::string& name) {
  return is_untouched(int_of(fields, name), 77) && is_untouched(int64_of(fields, name), std::int64_t{77}) &&
         is_untouched(text_of(fields, name), std::string("before"));
}

void expect(ClauseId clause, bool holds, const std::string& otherwise) {
  if (!holds) {
    report().found(clause, otherwise);
  }
}

void examine_types() {
  report().examine({"5.1", "5.2", "5.3"});
  const auto message = with_known_fields(Type::probe);
  expect("5.1", is(int_of(*message, "int"), kInt), "the least int was not read as it was added");
  expect("5.1", is(int64_of(*message, "int64"), kInt64), "the largest int64 was not read as it was added");
  expect("5.1", is(text_of(*message, "text"), std::string(kText)), "a text was not read as it was added");
  expect("5.2", has_no(*message, "missing"), "a missing field was found, or the value was touched");
  expect("5.3", is_untouched(int_of(*message, "int64"), 77), "an int64 was read as an int");
  expect("5.3", is_untouched(int_of(*message, "text"), 77), "a text was read as an int");
  expect("5.3", is_untouched(int64_of(*message, "int"), std::int64_t{77}), "an int was read as an int64");
  expect("5.3", is_untouched(text_of(*message, "int"), std::string("before")), "an int was read as a text");
}

void examine_repeated() {
  report().examine({"5.4"});
  ac::Message message("hostcheck_repeated");
  message.add_string("name", "other type");
  message.add_int("name", 1);
  message.add_int("name", 2);
  message.add_int64("name", 3);
  expect("5.4", is(int_of(message, "name"), 1), "of two ints with one name the second was found, or none");
  expect("5.4", is(int64_of(message, "name"), std::int64_t{3}), "an int64 behind two ints of its name was not found");
  expect("5.4", is(text_of(message, "name"), std::string("other type")),
         "a text before two ints of its name was not found");
}

void examine_sizes() {
  report().examine({"5.5", "5.6"});
  const std::string with_zeros("a\0b\0", 4);
  const std::string large(1'000'000, 'x');
  ac::Message message("hostcheck_sizes");
  message.add_string("empty", "");
  message.add_string("zeros", with_zeros);
  message.add_string("large", large);
  for (int i = 0; i < 1000; ++i) {
    message.add_int("field" + std::to_string(i), i);
  }
  expect("5.5", is(text_of(message, "empty"), std::string()), "an empty text was not found, or was not empty");
  expect("5.5", is(text_of(message, "zeros"), with_zeros), "a text with zero bytes came back otherwise");
  expect("5.6", is(text_of(message, "large"), large), "a text of 1,000,000 bytes came back otherwise");
  expect("5.6", is(int_of(message, "field0"), 0) && is(int_of(message, "field999"), 999),
         "of 1,000 fields the first or the last is missing");
}

}  // namespace

std::unique_ptr<ac::Message> with_known_fields(Type type) {
  auto message = std::make_unique<ac::Message>(name_of(type));
  message->add_int("int", kInt);
  message->add_int64("int64", kInt64);
  message->add_string("text", kText);
  return message;
}

std::string difference_in(const ac::Message& message, Type type) {
  if (message.type() != name_of(type)) {
    return "a message of type \"" + name_of(type) + "\" had the type \"" + message.type() + "\" in its handler";
  }
  const bool is_same = is(int_of(message, "int"), kInt) && is(int64_of(message, "int64"), kInt64) &&
                       is(text_of(message, "text"), std::string(kText));
  return is_same ? "" : "a message of type \"" + name_of(type) + "\" did not have its fields in its handler";
}

void examine_fields() {
  examine_types();
  examine_repeated();
  examine_sizes();
  report().examine({"5.7"});
  const ac::MessageReply reply;
  expect("5.7", !reply.replied() && has_no(reply, "value"), "a new reply was replied, or had a field");
}

}  // namespace hostcheck
