// The plug-in's share in enrolling a card: the host's enroller does the work, the plug-in asks for it and holds the
// actions of identifications back meanwhile. Nothing is kept here between messages.
#pragma once

#include "ac/message.h"

// Listener of the four messages below on the host's delivery thread: moves the message into the plug-in's own queue.
void messageTransferCallback(ac::Message* message);

// Tells the host that identifications have their actions again. Any thread.
void sendAllowActions();

// The rest runs on the thread of the plug-in's queue.

// "enroller_remote_enroll" {string "type", int64 "user_id", int "save" = 0, string "registration" = ""}: asks for the
// enrollment of a card; any other type is ignored. Throws ac::ac_exception "Invalid message parameters".
void remoteEnrollCallback(ac::Message* message);

// "enroll_rfid_successful" {int64 "user_card"}. Without the card the actions stay held back.
void enrollRfidSuccessfulCallback(ac::Message* message);

// "enroll_timeout".
void enrollTimeoutCallback(ac::Message* message);

// "enroller_error" {int "error"}: prints what went wrong. Throws ac::ac_exception "Invalid message parameters".
void errorOccurredCallback(ac::Message* message);
