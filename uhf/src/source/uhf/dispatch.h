// From readings to identifications: at most one card a round is announced to the host, under the operation mode and the
// rules against repeats.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <utility>

#include "globals.h"

using CardReading = std::pair<std::uint64_t, TimePoint>;  // card value and time

// Takes all readings out of lastCardsRead_. Any thread.
CardTimes getLastCardsRead();

// Drops all readings of lastCardsRead_. Any thread.
void clearLastCardsRead();

// Whether the time-out after the latest trigger still runs, its last instant included. Any thread.
bool isTriggerWindowOpen();

// Whether candidate (a card, and when it was read) may be announced at now. lastSent: the card announced last, and from
// when on a different card may be. Dispatch thread.
bool shouldSentCardIdentification(const CardReading& lastSent, const TimePoint& now, const CardReading& candidate);

// One round: takes the readings and announces the first, in the map's order, that may be announced; the others are
// dropped. Updates both arguments. Dispatch thread.
void processCardsToSend(TimePoint& nextKeepAlive, CardReading& lastSent);

// Walks through lastCardsSent_ and forgets the cards that were announced so long ago that no rule asks for them: for
// the larger of the two intervals (ms), read afresh from the configuration store. Dispatch thread; no lock. Throws what
// the host's configuration throws.
void pruneCardsSent();

// The body of the dispatch thread. cardsRead: notified after each successful inventory. Leaves only by an exception:
// ac::ac_exception "Empty reply; gpio: <number>" when the host does not tell the level of the inhibit input.
[[noreturn]] void dispatchCards(std::condition_variable& cardsRead);
