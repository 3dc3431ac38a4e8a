// SPDX-License-Identifier: MIT
#include "tests/server/inbound_harness.h"

#include "tests/support/process.h"
#include "zor/zor_callbacks.h"

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <sstream>

namespace zor::test
{

namespace
{

std::mutex gLock;
std::condition_variable gChanged;
std::vector<CallbackEvent> gEvents;
int gCertificateAnswer = 0;
bool gGateOpen = true;
int gWorkerEntries = 0;

int record(const std::string& text)
{
    std::lock_guard<std::mutex> guard(gLock);
    gEvents.push_back({text, std::this_thread::get_id()});
    gChanged.notify_all();
    return 0;
}

// Worker callbacks count their entry, wait for the gate, then record.
int workerCall(const std::string& text)
{
    {
        std::unique_lock<std::mutex> guard(gLock);
        ++gWorkerEntries;
        gChanged.notify_all();
        gChanged.wait(guard, [] { return gGateOpen; });
    }
    return record(text);
}

std::string hexOf(const void* data, unsigned int bytes)
{
    std::string out;
    char digits[3];
    for (unsigned int i = 0; i < bytes; ++i) {
        snprintf(digits, sizeof(digits), "%02x", static_cast<const unsigned char*>(data)[i]);
        out += digits;
    }
    return out;
}

} // namespace

void registerRecordingCallbacks()
{
    ZOR_MicButtonTapped_register_callback(+[]() { return workerCall("tapped"); });
    ZOR_MicButtonHold_register_callback(
        +[](bool mode) { return workerCall("hold(" + std::to_string(mode) + ")"); });
    ZOR_SetPowerMode_register_callback(
        +[](int mode) { return record("power(" + std::to_string(mode) + ")"); });
    ZOR_SetTimeZone_register_callback(+[]() { return record("timezone"); });
    ZOR_ActivateApp_register_callback(+[]() { return record("activate"); });
    ZOR_EnableDisableApp_register_callback(
        +[](EN_AVS_COMMAND_TYPE type) { return record("enable(" + std::to_string(type) + ")"); });
    ZOR_ReportUIStatus_register_callback(+[](EN_AVS_UI_STATUS status, unsigned int value) {
        return record("ui-status(" + std::to_string(status) + "," + std::to_string(value) + ")");
    });
    ZOR_UserChangedLanguage_register_callback(
        +[](char* code) { return record("language(" + std::string(code) + ")"); });
    ZOR_UserChangedCountry_register_callback(
        +[](char* code) { return record("country(" + std::string(code) + ")"); });
    ZOR_ResetApp_register_callback(
        +[](EN_AVS_RESET_STATE state) { return record("reset(" + std::to_string(state) + ")"); });
    ZOR_InformControlChanged_register_callback(+[](EN_VOICECTRL_NOTIFY_TYPE type) {
        return workerCall("control-changed(" + std::to_string(type) + ")");
    });
    ZOR_QueryForIOTCertificate_register_callback(+[]() {
        record("query-iot-cert");
        std::lock_guard<std::mutex> guard(gLock);
        return gCertificateAnswer;
    });
    ZOR_InformTevoraCertificate_register_callback(
        +[](char* text) { return record("cert(" + std::string(text) + ")"); });
    ZOR_SendAudioPCMData_register_callback(+[](void* data, unsigned int bytes) {
        return record("pcm(" + std::to_string(bytes) + ":" + hexOf(data, bytes) + ")");
    });
    ZOR_FF_SendWakeWordDetectionSignal_register_callback(
        +[](unsigned int, unsigned int, char*, unsigned int, char*) { return record("wakeword"); });
    ZOR_NotifyActionButtonPressed_register_callback(+[]() { return record("action-button"); });
    ZOR_SetFFmicStatus_register_callback(
        +[](bool on) { return record("ffmic(" + std::to_string(on) + ")"); });
    ZOR_FF_NotifyFWUpdateStatus_register_callback(
        +[](bool updating) { return record("fw-update(" + std::to_string(updating) + ")"); });
}

std::vector<CallbackEvent> recordedEvents()
{
    std::lock_guard<std::mutex> guard(gLock);
    return gEvents;
}

void clearRecordedEvents()
{
    std::lock_guard<std::mutex> guard(gLock);
    gEvents.clear();
    gWorkerEntries = 0;
}

std::vector<CallbackEvent> waitForEvents(size_t count, std::chrono::milliseconds timeout)
{
    std::unique_lock<std::mutex> guard(gLock);
    gChanged.wait_for(guard, timeout, [count] { return gEvents.size() >= count; });
    return gEvents;
}

std::vector<std::string> eventTexts(const std::vector<CallbackEvent>& events)
{
    std::vector<std::string> texts;
    for (const CallbackEvent& event : events)
        texts.push_back(event.text);
    return texts;
}

void setCertificateAnswer(int answer)
{
    std::lock_guard<std::mutex> guard(gLock);
    gCertificateAnswer = answer;
}

void closeWorkerGate()
{
    std::lock_guard<std::mutex> guard(gLock);
    gGateOpen = false;
}

void openWorkerGate()
{
    std::lock_guard<std::mutex> guard(gLock);
    gGateOpen = true;
    gChanged.notify_all();
}

int workerEntries()
{
    std::lock_guard<std::mutex> guard(gLock);
    return gWorkerEntries;
}

std::vector<std::string> sendInbound(const std::string& service,
                                     const std::vector<std::string>& commands)
{
    std::string command;
    if (const char* emulator = getenv("ZOR_TEST_EMULATOR"))
        command += std::string(emulator) + " ";
    command += builtProgram("tests/server/server_inbound_send") + " " + service;
    for (const std::string& request : commands)
        command += " '" + request + "'";

    std::vector<std::string> lines;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return lines;
    char buffer[4096];
    while (fgets(buffer, sizeof(buffer), pipe)) {
        std::string line(buffer);
        if (!line.empty() && line.back() == '\n')
            line.pop_back();
        lines.push_back(line);
    }
    pclose(pipe);
    return lines;
}

std::string replyOf(const std::string& line)
{
    std::istringstream words(line);
    std::string id, kind, bytes;
    words >> id >> kind >> bytes;
    return kind == "reply" ? bytes : kind;
}

std::string usePrivateRuntimeDir(const char* prefix)
{
    std::string pattern = std::string("/tmp/") + prefix + "-XXXXXX";
    char* dir = mkdtemp(pattern.data());
    if (dir)
        setenv("ZOR_RUNTIME_DIR", dir, 1);
    return dir ? dir : "";
}

} // namespace zor::test
