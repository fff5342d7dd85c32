// The plug-in's shared state: one instance each, for the life of the process, exported under these names.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "ac/message_enqueuer.h"
#include "uhf_module.h"

// For the names that a host, or a test, finds with dlsym; everything else stays hidden.
#define UHF_EXPORT __attribute__((visibility("default")))

using TimePoint = std::chrono::steady_clock::time_point;

// Card values with the time of their latest reading or identification.
using CardTimes = std::unordered_map<std::uint64_t, TimePoint>;

// Written by init() alone, before the plug-in's threads start.
extern UHF_EXPORT int trigAntiesmagGPIO;             // GPIO number of the trigger or inhibit input
extern UHF_EXPORT int watchdogTimeout;               // ms between the keep-alives of the worker threads
extern UHF_EXPORT int tagDetectorTagPresentTimeout;  // ms that a tag counts as present after the last inventory
extern UHF_EXPORT int tagDetectorRelayGPIO;          // GPIO number of the tag-detector relay

// Pause between inventories, and wake-up period of the dispatch thread, in ms. Two threads and the handler of settings
// share this plain int: only through getProbeInterval() and setProbeInterval().
extern UHF_EXPORT int probeInterval;
int getProbeInterval();
void setProbeInterval(int milliseconds);

// Settings that may change while the plug-in runs; any thread, sequentially consistent.
extern UHF_EXPORT std::atomic<bool> tagDetectorEnabled;
extern UHF_EXPORT std::atomic<int> tagDetectorValue;                 // 0 or 1: the last one sent to the relay
extern UHF_EXPORT std::atomic<int> uhf_operation_mode_;              // OperationMode
extern UHF_EXPORT std::atomic<int> trigger_idle_;                    // level of the trigger input when idle
extern UHF_EXPORT std::atomic<std::int64_t> trigger_timeout_;        // ms
extern UHF_EXPORT std::atomic<std::int64_t> same_tag_timeout_;       // ms until the same card is announced again
extern UHF_EXPORT std::atomic<std::int64_t> different_tag_timeout_;  // ms until a different card is announced

// The level of the trigger input when active: 0 or 1.
int activeTriggerLevel();

// When the trigger input went active, or the inhibit input idle; the clock's epoch at first.
extern UHF_EXPORT std::mutex lastTriggerTimePointMutex;  // guards lastTriggerTimePoint
extern UHF_EXPORT TimePoint lastTriggerTimePoint;

// The readings that the dispatch thread has not taken yet.
extern UHF_EXPORT std::mutex cardsReadMutex_;  // guards lastCardsRead_
extern UHF_EXPORT CardTimes lastCardsRead_;

// The cards announced. Owned by the dispatch thread.
extern UHF_EXPORT CardTimes lastCardsSent_;

// Held around each insert of an audit record.
extern UHF_EXPORT std::mutex db_create_mutex;

// The plug-in's own message queue.
extern UHF_EXPORT ac::MessageEnqueuer enqueuer;

// The reader. Set by init(); the module has a mutex of its own.
extern UHF_EXPORT std::unique_ptr<ac::UHF::UHFModule> t640_module;
