// SPDX-License-Identifier: MIT
// What the web dashboard streams to its pages: the television's state as the
// page shows it, the decoded command lines, the answers to the page's own
// controls and the far-field utterances. Producers (the middleware handlers'
// line sink, the web server, the far-field device) publish from any thread;
// each page's event stream reads with a cursor of its own.
#ifndef ZOR_SIM_DASHBOARD_FEED_H
#define ZOR_SIM_DASHBOARD_FEED_H

#include "sim/far_field_voice.h"
#include "sim/television_state.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace zor::sim
{

class Television;

// The page's view of the television. The AVS token is reported by presence
// and length only.
nlohmann::json dashboardView(const TelevisionState& state);

// A decoded line with the text of any token="..." field hidden.
std::string redactedLine(const std::string& line);

// The waveform drawing of an utterance: `buckets` min/max pairs over the
// samples (at most one pair a sample), and the marks in seconds (null when
// absent).
nlohmann::json utteranceView(const FarFieldUtterance& utterance, size_t buckets = 800);

class DashboardFeed
{
public:
    struct Event {
        uint64_t sequence;
        std::string name; // "log", "farfield"
        std::string data; // one line of JSON
    };

    // Where one reader is: the next event it wants and the state version it
    // has shown.
    struct Cursor {
        uint64_t nextEvent = 0;
        uint64_t stateVersion = 0;
    };

    // The television is borrowed and must outlive the feed.
    explicit DashboardFeed(const Television& television, size_t keptEvents = 500);

    // A line of the middleware handlers: the command changed the state.
    void publishLine(const std::string& line);
    // A control of the page and its answer.
    void publishControl(const std::string& command, const std::string& answer);
    void publishUtterance(const FarFieldUtterance& utterance);

    nlohmann::json view() const;

    // A new reader: it is sent the state and the last `backlog` events.
    Cursor subscribe(size_t backlog = 200) const;

    // Waits up to `timeout` for news after `cursor`: fills `events` and sets
    // `state` (the view, when it changed since the cursor's version).
    // Returns false once the feed is closed.
    bool wait(Cursor& cursor, std::chrono::milliseconds timeout, std::vector<Event>* events,
              nlohmann::json* state);

    // Wakes every reader for good.
    void close();

private:
    void push(const std::string& name, const std::string& data, bool stateChanged);

    const Television& m_television;
    const size_t m_keptEvents;
    mutable std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<Event> m_events;
    uint64_t m_nextSequence = 1;
    uint64_t m_stateVersion = 1;
    bool m_closed = false;
};

} // namespace zor::sim

#endif
