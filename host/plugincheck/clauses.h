// What a plug-in must do, as numbered clauses: the one table that the check reports by and that
// docs/plugin-contract.md is made from.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace plugincheck {

enum class Level {
  contract,  // what host/include says to whoever writes a plug-in
  uhf,       // what uhf.so does beyond
};

struct Clause {
  std::string_view number;  // CHAPTER.N
  std::string_view sentence;
  std::string_view consequence;  // what becomes of the host, or the door, where it is broken
  Level level = Level::contract;
  // The headers do not say it in so many words: it rests on how we read them, or on what a host needs.
  bool is_reading = false;
};

inline constexpr std::array<std::string_view, 6> kChapters = {
    "Loading", "init()", "run() and the handlers", "Threads", "What must not grow", "What uhf.so announces"};

inline constexpr bool kReading = true;

inline constexpr auto kClauses = std::to_array<Clause>({
    {"1.1", "It can be loaded where the interface and the libraries of C and C++ are.", "no host can load it"},
    {"1.2", "It exports init with C linkage.", "the host finds no beginning"},
    {"1.3", "It exports no name that the process has already.", "one of the two would take the place of the other",
     Level::contract, kReading},
    {"1.4", "Loading it starts no thread and sends nothing.", "the host's bus and settings are not there yet",
     Level::contract, kReading},
    {"1.5", "It needs no library but those of C and C++.", "a device that lacks one could not load it", Level::uhf},
    {"1.6", "It exports run, setWorkChannel and its globals.", "whoever looks them up finds nothing", Level::uhf},
    {"1.7",
     "It leaves the signal handlers, the blocked signals, the directory and the umask of the process as they are.",
     "the host could not be stopped, or would not find its files", Level::contract, kReading},

    {"2.1", "With its settings and a reader that answers, init() returns true.", "the door has no reader"},
    {"2.2", "init() comes back within ten seconds, whatever the settings are and the reader does.",
     "the host would not start", Level::contract, kReading},
    {"2.3", "An init() that fails says why, by its text or by that of an exception.", "nobody would know what is wrong",
     Level::contract, kReading},
    {"2.4", "Nothing but a std::exception leaves init().", "the host could not say what it was", Level::contract,
     kReading},
    {"2.5", "A setting that is missing, malformed or out of range does not end the process.",
     "one mistyped setting would end the host at each start", Level::contract, kReading},
    {"2.6", "An init() that fails leaves no thread behind.", "it would use a host that has given it up",
     Level::contract, kReading},
    {"2.7", "An init() that returns true has set a main function.", "the host has nothing to run"},
    {"2.8", "It has set a name.", "logs and people would not know whose it is", Level::contract, kReading},
    {"2.9", "Each listener has a type and a handler.", "its messages would reach nobody"},
    {"2.10", "The plug-in and the text that init() gets are not used once it has returned.",
     "they are gone by then: it would write to freed memory"},
    {"2.11", "Without its device, and with one that does not answer, init() returns false.",
     "the host would take a door without a reader for a whole one", Level::uhf},
    {"2.12", "Without a setting that is required init() returns false, and its text names the setting.",
     "whoever installs it would search for long", Level::uhf},

    {"3.1", "run() neither returns nor throws while the reader answers.", "the host ends the process"},
    {"3.2", "Each handler returns within ten seconds.", "all that waits behind it would not be delivered",
     Level::contract, kReading},
    {"3.3", "No message of the types that it listens to ends the process, whichever fields are missing or odd.",
     "anybody who can send a message could end the door", Level::contract, kReading},
    {"3.4", "No change of a setting while it runs ends the process.", "whoever changes a setting would end the door",
     Level::contract, kReading},
    {"3.5", "Each message that it sends has a type.", "nobody could listen to it", Level::contract, kReading},
    {"3.6", "run() ends within ten seconds when the line hangs up.", "the door would have no reader, and nobody knew",
     Level::uhf},

    {"4.1", "It tells the watchdog that it is alive.", "the host would not see that it hangs", Level::contract,
     kReading},
    {"4.2", "Each name that has been told alive is told again within the watchdog's limit.",
     "the host ends the process"},
    {"4.3", "The names are uhf, uhf_worker and uhf_write_threads.", "one of its threads could hang unseen", Level::uhf},
    {"4.4", "The thread of its queue is called uhf_watchdog.", "nobody would know it in a list of threads", Level::uhf},

    {"5.1", "The memory that it holds does not grow with each message.",
     "the device would run out of memory some night"},
    {"5.2", "Nor do its descriptors.", "nothing could be opened any more some night"},
    {"5.3", "Nor do its threads.", "none could be started any more some night"},

    {"6.1",
     "A tag in the field is announced: \"identifier_new_card\" with the int \"identifier_id\", the int64 \"value\" "
     "and \"device_id\", the int \"readings_count\" and the string \"uuid\", in this order.",
     "the identifier would not take it", Level::uhf},
    {"6.2", "The value is the tag's card, the device the host's own.", "the wrong door would open, or none",
     Level::uhf},
    {"6.3", "The uuid is one of version 4, and none comes twice.", "a reading would be taken for another", Level::uhf},
    {"6.4", "A tag that stays is not announced again within read_interval.", "the door would open again and again",
     Level::uhf},
    {"6.5", "Of several tags each is announced once read_interval_diff_tags is 0.", "somebody would stand outside",
     Level::uhf},
    {"6.6",
     "In inhibit mode nothing is announced while \"gpio_current_state\" is answered with the active level, and a "
     "tag is once it is idle.",
     "the door would open from inside, or to nobody", Level::uhf},
    {"6.7", "In inhibit mode nothing is announced while nobody answers.", "in doubt a door would open", Level::uhf},
    {"6.8", "In trigger mode a tag is announced after a trigger, and not before.", "the door would open untriggered",
     Level::uhf},
    {"6.9", "An exit request is forwarded: \"actuator_open_door\" with the ints \"id\" and \"reason\", both 1.",
     "somebody would stand inside", Level::uhf},
    {"6.10", "A remote enrollment asks for a card: \"identifier_supress_actions\", then \"enroll_card\".",
     "nobody could be enrolled", Level::uhf},
    {"6.11", "An enrollment that ends lets the identifier act again: \"identifier_allow_actions\".",
     "the door would stay closed after it", Level::uhf},
    {"6.12", "Each event for the audit log is recorded, with its kind.", "what happened would be in no log",
     Level::uhf},
    {"6.13", "A change of transmit_power reaches the reader.", "the change would wait for a new start", Level::uhf},
    {"6.14", "The tag detector's relay follows the field.", "the light would tell nothing", Level::uhf},
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

  const Clause& clause() const { return kClauses[index_]; }

 private:
  std::size_t index_ = 0;
};

// The chapter that a clause stands in.
constexpr std::string_view chapter_of(const Clause& clause) {
  return kChapters.at(static_cast<std::size_t>(clause.number.front() - '1'));
}

}  // namespace plugincheck
