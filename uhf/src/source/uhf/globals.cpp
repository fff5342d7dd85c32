#include "globals.h"

int trigAntiesmagGPIO;
int watchdogTimeout;
int tagDetectorTagPresentTimeout;
int tagDetectorRelayGPIO;
int probeInterval = 10;

std::atomic<bool> tagDetectorEnabled;
std::atomic<int> tagDetectorValue;
std::atomic<int> uhf_operation_mode_;
std::atomic<int> trigger_idle_;
std::atomic<std::int64_t> trigger_timeout_;
std::atomic<std::int64_t> same_tag_timeout_;
std::atomic<std::int64_t> different_tag_timeout_;

std::mutex lastTriggerTimePointMutex;
TimePoint lastTriggerTimePoint;

std::mutex cardsReadMutex_;
CardTimes lastCardsRead_;
CardTimes lastCardsSent_;

std::mutex db_create_mutex;

ac::MessageEnqueuer enqueuer;
std::unique_ptr<ac::UHF::UHFModule> t640_module;

int activeTriggerLevel() { return trigger_idle_ == 0 ? 1 : 0; }

int getProbeInterval() { return std::atomic_ref(probeInterval).load(); }

void setProbeInterval(int milliseconds) { std::atomic_ref(probeInterval).store(milliseconds); }
