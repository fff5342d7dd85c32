// The contract of host/include as numbered clauses: the one table that the check reports by and that
// docs/host-contract.md is made from.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace hostcheck {

struct Clause {
  std::string_view number;  // CHAPTER.N
  std::string_view sentence;
  std::string_view consequence;  // what becomes of the plug-in where it is broken
  // The headers do not say it in so many words: it rests on how we read them, or on how uhf.so uses them.
  bool is_reading = false;
};

inline constexpr std::array<std::string_view, 9> kChapters = {"Loading",
                                                              "Delivery",
                                                              "The plug-in's queue",
                                                              "Questions and answers",
                                                              "Fields",
                                                              "Settings",
                                                              "Watchdog, log, utilities, device",
                                                              "Audit records",
                                                              "Load, and the end"};

inline constexpr bool kReading = true;

inline constexpr auto kClauses = std::to_array<Clause>({
    {"1.1", "The process that loads a plug-in defines every operation that the plug-in calls.",
     "the plug-in cannot be loaded"},
    {"1.2", "A queue can be made while the plug-in is loaded, before init().", "the plug-in's own is made then"},
    {"1.3", "init() gets a plug-in to describe and a text for its failure, neither of them null.",
     "it writes to both without looking"},
    {"1.4", "init() is called once.", "a second reader would be opened on the same line"},
    {"1.5", "No handler is called before init() has returned.", "its settings are not read yet", kReading},
    {"1.6", "Listeners given to add_messages_interested() are copied.", "its array is gone when init() returns"},
    {"1.7", "run() is called once, after init() has returned true, and not when it has returned false.",
     "there is no reader to read from"},
    {"1.8", "run() has a thread of its own, which calls no handler.", "it never returns, so no handler would be called",
     kReading},

    {"2.1", "A message reaches the handler of its type, with its type and fields as they were set.",
     "it would not hear of settings and inputs"},
    {"2.2", "Handlers run on a delivery thread of the host's, not inside the send on the sender's.",
     "a handler would wait for a lock that its own thread holds"},
    {"2.3", "Handlers of one type never run at once.", "what they share is not guarded against that"},
    {"2.4", "Messages of one sender arrive in the order in which they were sent.",
     "an input that was released would seem pressed"},
    {"2.5", "send_message() waits for no handler.", "the reading loop would stand still"},
    {"2.6", "What a handler throws goes no further: the next message is delivered.",
     "one record that cannot be written would end the door"},
    {"2.7", "A handler may send.", "exit requests are answered from inside a handler"},
    {"2.8", "What is sent while a handler takes its time is delivered afterwards.",
     "a handler that sets the reader up takes seconds"},
    {"2.9", "No lock of the host's is held while a handler runs.", "its other threads would wait for a handler"},
    {"2.10", "A message that nobody listens to is dropped, and nothing is thrown.",
     "what it throws would end the reading loop"},
    {"2.11", "A message is destroyed once its handlers have returned.", "each reading would cost memory for good"},
    {"2.12", "A message lives, unchanged, as long as the call of its handler.", "a handler would read freed memory"},

    {"3.1", "A message that a handler has transferred reaches the queue's handler, with its type and fields.",
     "enrollments would be lost"},
    {"3.2", "The queue's handlers run on the thread that called process().", "they would run beside themselves"},
    {"3.3", "They run once the handler that transferred the message has returned.",
     "two threads would use one message"},
    {"3.4", "Messages leave the queue in the order in which they were transferred.",
     "the end of an enrollment would come before its begin"},
    {"3.5", "Listeners given to listen() are copied.", "its array is gone when init() returns"},
    {"3.6", "process() calls on_timeout whenever timeout_ms have passed without a message, and not sooner.",
     "it tells the watchdog there that it is alive"},
    {"3.7", "It does so, too, while there is always another message.", "a busy queue would look like a dead thread"},
    {"3.8", "What a handler of the queue throws goes no further.", "the queue's thread would be gone"},
    {"3.9", "process() does not return.", "the code behind it does not exist"},
    {"3.10", "What on_timeout throws leaves process().", "a failure would be hidden"},
    {"3.11", "A message that no handler has transferred does not reach the queue.", "a setting would be applied twice"},
    {"3.12", "What is transferred before process() is called waits for it.", "what comes at the start would be lost",
     kReading},

    {"4.1", "\"gpio_current_state\" with the int \"gpio\" is answered with the int \"value\".",
     "in inhibit mode it asks before each reading counts", kReading},
    {"4.2", "The answer is there when send_message_sync() returns.", "it reads the answer at once"},
    {"4.3", "A handler may ask.", "its delivery thread would stand still"},
    {"4.4", "A question that nobody answers returns, with replied() false.", "the reading loop would stand still"},
    {"4.5", "Nothing writes to a reply after send_message_sync() has returned.",
     "the reply was on the stack, where something else is by now"},
    {"4.6", "The callback of a message that was sent without waiting is called once with the answer.",
     "whoever asks so would wait for ever"},
    {"4.7", "It may send and ask: no lock of the host's is held.", "it would wait for itself"},
    {"4.8", "What it throws goes no further.", "one failure would end the door"},
    {"4.9", "A question needs no reply to be attached.", "the host would write to nowhere", kReading},

    {"5.1", "Numbers of 32 and of 64 bits and texts are read as they were added.", "card values have 64 bits"},
    {"5.2", "A field that is missing gives false, and the value stays untouched.", "it sets a default there before"},
    {"5.3", "So does one of another type.", "an int in place of an int64 would be read beyond its end"},
    {"5.4", "Of two with one name the first of the type asked for is found.",
     "the two sides would read different fields"},
    {"5.5", "Empty texts, and texts with zero bytes, are kept.", "a setting that is emptied would keep its value"},
    {"5.6", "A text of a million bytes is kept, and so are a thousand fields.", "long details would be cut off"},
    {"5.7", "A new reply is not replied, has no field, and leaves values untouched.",
     "silence would be taken for an answer"},

    {"6.1", "A setting that is there is read as text.", "it cannot start"},
    {"6.2", "One that is missing gives false, and the value stays untouched.", "it sets a default there before"},
    {"6.3", "A required number that is missing or is none throws ac::ac_exception.",
     "init() tells by its text what is missing"},
    {"6.4", "One that is not required is 0 then.", "a missing setting would keep it from starting"},
    {"6.5", "A list of ranges gives all its numbers, in order.", "channels would be left out"},
    {"6.6", "One that is missing or malformed throws when it is required, and a missing one is empty when it is not.",
     "it would set no channel and say nothing"},
    {"6.7", "A written setting is read back as soon as the call returns, as text and as number.",
     "its handler reads what was before the change"},
    {"6.8",
     "A change is announced as \"config_param_set\" with \"module\", \"param\", \"value\" and \"previous_value\".",
     "it would not apply the change", kReading},
    {"6.9", "Writing waits for no handler, and calls none.", "it may hold a lock that its handler takes"},
    {"6.10", "A setting that the host refuses throws ac::ac_exception and stays as it was.",
     "it would take the new value for stored"},
    {"6.11", "A handler may read and write settings.", "every change is read from inside a handler"},

    {"7.1", "keep_alive() takes any name, on any thread, with a lock held.", "what it throws would end a thread"},
    {"7.2", "A name that says no more that it is alive ends the process.",
     "a door with a dead thread would stay closed", kReading},
    {"7.3", "A thread's name may be longer than the system takes: its first 15 bytes are kept.",
     "\"uhf_write_threads\" has 17"},
    {"7.4", "system() returns the command's wait status.", "a command that failed would look done"},
    {"7.5", "The date is a text of at most 63 bytes and its final zero, of now, to the millisecond.",
     "its buffer has 64 bytes"},
    {"7.6", "A uuid is one of version 4, as 8-4-4-4-12 hexadecimal digits.", "the receiver would refuse the reading"},
    {"7.7", "No uuid comes twice, whichever thread asks.", "one of two readings would be taken for a double"},
    {"7.8", "debug() takes any text, on any thread, with a lock held.", "what it throws would end a thread"},
    {"7.9",
     "relay_gpio() and relay_enabled() take the relay of \"tag_detector_relay\", and 0 when there is no such setting.",
     "it cannot start", kReading},
    {"7.10", "The device's number is always the same.", "readings would seem to come from elsewhere"},

    {"8.1", "A record of any kind is stored, with empty, long and odd details, on any thread.",
     "what happened would be in no log"},
    {"8.2", "One that cannot be stored throws a std::exception.", "nobody would know that it is missing"},
    {"8.3", "After a failure the next one is stored.", "one full disk would end the log"},

    {"9.1", "Of 100,000 messages from four threads, with at most a thousand waiting, each arrives once and in order.",
     "readings would be lost", kReading},
    {"9.2", "More than a queue takes are dropped: nothing is thrown, nobody waits, and what is sent later arrives.",
     "a flood would end the door"},
    {"9.3", "When run() returns, the process ends.", "a door without a reader would stay closed for good"},
    {"9.4", "When it throws, the process ends, too, with the exception caught.", "nobody would read why it has ended"},
});

// A clause of the table; a number that is not in it does not compile.
class ClauseId {
 public:
  // NOLINTNEXTLINE(google-explicit-constructor): numbers are written where a clause is meant
  consteval ClauseId(const char* number) {
    while (kClauses.at(index_).number != number) {
      ++index_;
    }
  }

  std::size_t index() const { return index_; }
  const Clause& clause() const { return kClauses[index_]; }

 private:
  std::size_t index_ = 0;
};

// The chapter that a clause stands in.
constexpr std::string_view chapter_of(const Clause& clause) {
  return kChapters.at(static_cast<std::size_t>(clause.number.front() - '1'));
}

}  // namespace hostcheck
