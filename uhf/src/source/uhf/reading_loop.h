// The plug-in's main function and its reading of tags.
#pragma once

#include <condition_variable>

#include "globals.h"

// The plug-in's main function: starts the threads of the message queue and of the dispatch, then polls the reader on
// the calling thread. Does not return; a failure of the serial line leaves it as an ac::ac_exception.
extern "C" UHF_EXPORT int run();

// Tells the host's watchdog that the queue thread lives; called by the message queue whenever its time-out passes.
void keepAliveWorker();

// One pass of the reading loop: the pause, an inventory, the relay, and the cards read for the dispatch thread, which
// cardsRead wakes. lastSeen: as below. Reading loop only.
void readTags(TimePoint& lastSeen, std::condition_variable& cardsRead);

// Tells the tag-detector relay of a change. inventorySucceeded: the outcome of the inventory just made. lastSeen: the
// time of the last successful one, updated. Reading loop only.
void update_tag_detection(bool inventorySucceeded, TimePoint& lastSeen);
