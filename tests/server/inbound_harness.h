// SPDX-License-Identifier: MIT
// What the server tests share: callbacks that record each call (with the
// calling thread), and a sender process that plays the middleware.
#ifndef ZOR_TESTS_SERVER_INBOUND_HARNESS_H
#define ZOR_TESTS_SERVER_INBOUND_HARNESS_H

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace zor::test
{

struct CallbackEvent {
    std::string text; // e.g. "language(en)"
    std::thread::id thread;
};

// Registers a recording callback in every one of the 18 slots.
void registerRecordingCallbacks();

std::vector<CallbackEvent> recordedEvents();
void clearRecordedEvents();
// Waits until at least `count` events have been recorded; the events then.
std::vector<CallbackEvent>
waitForEvents(size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(5));
std::vector<std::string> eventTexts(const std::vector<CallbackEvent>& events);

// What the IoT-certificate query callback answers.
void setCertificateAnswer(int answer);

// The tap, hold and control-changed callbacks block while the gate is closed
// (they count their entry first), so that tests can hold a worker busy.
void closeWorkerGate();
void openWorkerGate();
int workerEntries();

// Sends each "id[:hex[:noreply]]" from a separate process through the real
// sockets, in order; returns one output line per command ("<id> reply <hex>",
// "<id> sent" or "<id> failed").
std::vector<std::string> sendInbound(const std::string& service,
                                     const std::vector<std::string>& commands);
// The reply bytes (hex) of one command, or "failed"/"sent".
std::string replyOf(const std::string& line);

// Makes a private runtime directory the process's ZOR_RUNTIME_DIR.
std::string usePrivateRuntimeDir(const char* prefix);

} // namespace zor::test

#endif
