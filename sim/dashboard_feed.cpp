// SPDX-License-Identifier: MIT
#include "sim/dashboard_feed.h"

#include "sim/television.h"

#include <algorithm>
#include <cmath>
#include <ctime>

namespace zor::sim
{

namespace
{

nlohmann::json secondsOrNull(int64_t sample, const FarFieldUtterance& utterance)
{
    if (sample < 0 || utterance.rate == 0)
        return nullptr;
    return static_cast<double>(sample) / utterance.rate;
}

std::string timeOfDay()
{
    const time_t now = time(nullptr);
    tm parts;
    localtime_r(&now, &parts);
    char text[16];
    strftime(text, sizeof(text), "%H:%M:%S", &parts);
    return text;
}

} // namespace

nlohmann::json dashboardView(const TelevisionState& s)
{
    nlohmann::json channel = nullptr;
    if (s.currentChannel < s.channels.size())
        channel = {{"number", s.channels[s.currentChannel].number},
                   {"name", s.channels[s.currentChannel].name}};
    nlohmann::json source = nullptr;
    if (s.currentSource < s.sources.size())
        source = {{"name", s.sources[s.currentSource].name},
                  {"label", s.sources[s.currentSource].label}};

    nlohmann::json view = {
        {"power", s.powerOn},
        {"source", source},
        {"channel", channel},
        {"channelCount", s.channels.size()},
        {"audio",
         {{"volume", s.audio.volume},
          {"maxVolume", s.audio.maxVolume},
          {"mute", s.audio.mute != 0},
          {"gain", s.audio.gain},
          {"soundStyle", s.audio.soundStyle}}},
        {"pictureStyle", s.pictureStyle},
        {"wallglow", {{"on", s.wallglowOn}, {"follow", s.wallglowFollow}}},
        {"playerStatus", s.playerStatus},
        {"activeApp", s.activeApp},
        {"smartTvApp", {{"name", s.smartTvApp.name}, {"command", s.smartTvApp.command}}},
        {"urlWindow",
         {{"url", s.urlWindow.url},
          {"type", s.urlWindow.type},
          {"param", s.urlWindow.param},
          {"background", s.urlWindow.background != 0}}},
        {"avsToken",
         {{"present", !s.avsToken.empty() || s.avsTokenLength > 0}, {"length", s.avsTokenLength}}},
        {"lastKey", s.injectedKeys.empty() ? std::string() : s.injectedKeys.back()},
        {"lastPlayback", s.lastPlaybackCommand},
        {"timeZone", s.timeZone},
        {"voiceControlReady", s.voiceControlReady},
    };
    return view;
}

std::string redactedLine(const std::string& line)
{
    static const std::string kField = " token=\"";
    std::string out;
    size_t from = 0;
    for (;;) {
        const size_t at = line.find(kField, from);
        if (at == std::string::npos)
            break;
        out.append(line, from, at - from);
        out += " token=<hidden>";
        // The decoder escapes quotes inside the text with a backslash.
        size_t end = at + kField.size();
        while (end < line.size() && line[end] != '"')
            end += line[end] == '\\' ? 2 : 1;
        end = std::min(end + 1, line.size());
        // A long text is followed by "...(N chars)".
        if (line.compare(end, 4, "...(") == 0) {
            const size_t close = line.find(')', end);
            if (close != std::string::npos)
                end = close + 1;
        }
        from = end;
    }
    out.append(line, from, std::string::npos);
    return out;
}

nlohmann::json utteranceView(const FarFieldUtterance& utterance, size_t buckets)
{
    const size_t count = utterance.samples.size();
    buckets = std::max<size_t>(1, std::min(buckets, count));
    nlohmann::json minima = nlohmann::json::array();
    nlohmann::json maxima = nlohmann::json::array();
    if (count > 0) {
        for (size_t b = 0; b < buckets; ++b) {
            const size_t begin = b * count / buckets;
            const size_t end = std::max(begin + 1, (b + 1) * count / buckets);
            const auto [low, high] = std::minmax_element(utterance.samples.begin() + begin,
                                                         utterance.samples.begin() + end);
            // Three decimals are plenty for a drawing and keep the event small.
            minima.push_back(std::round(*low / 32.768) / 1000.0);
            maxima.push_back(std::round(*high / 32.768) / 1000.0);
        }
    }
    return {
        {"what", utterance.what},
        {"rate", utterance.rate},
        {"samples", count},
        {"seconds", utterance.rate ? static_cast<double>(count) / utterance.rate : 0.0},
        {"min", minima},
        {"max", maxima},
        {"keywordBegin", secondsOrNull(utterance.keywordBegin, utterance)},
        {"keywordEnd", secondsOrNull(utterance.keywordEnd, utterance)},
        {"keyPress", secondsOrNull(utterance.keyPress, utterance)},
    };
}

DashboardFeed::DashboardFeed(const Television& television, size_t keptEvents)
    : m_television(television), m_keptEvents(std::max<size_t>(1, keptEvents))
{
}

void DashboardFeed::publishLine(const std::string& line)
{
    const nlohmann::json entry = {
        {"time", timeOfDay()}, {"kind", "command"}, {"text", redactedLine(line)}};
    push("log", entry.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace), true);
}

void DashboardFeed::publishControl(const std::string& command, const std::string& answer)
{
    const nlohmann::json entry = {
        {"time", timeOfDay()}, {"kind", "control"}, {"text", command + " -> " + answer}};
    push("log", entry.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace), false);
}

void DashboardFeed::publishUtterance(const FarFieldUtterance& utterance)
{
    push("farfield",
         utteranceView(utterance).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace),
         false);
}

nlohmann::json DashboardFeed::view() const
{
    return dashboardView(m_television.state());
}

void DashboardFeed::push(const std::string& name, const std::string& data, bool stateChanged)
{
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_events.push_back({m_nextSequence++, name, data});
        while (m_events.size() > m_keptEvents)
            m_events.pop_front();
        if (stateChanged)
            ++m_stateVersion;
    }
    m_changed.notify_all();
}

DashboardFeed::Cursor DashboardFeed::subscribe(size_t backlog) const
{
    std::lock_guard<std::mutex> guard(m_lock);
    Cursor cursor;
    // Version 0 is never current: the first wait sends the state.
    cursor.stateVersion = 0;
    const size_t kept = std::min(backlog, m_events.size());
    cursor.nextEvent = m_nextSequence - kept;
    return cursor;
}

bool DashboardFeed::wait(Cursor& cursor, std::chrono::milliseconds timeout,
                         std::vector<Event>* events, nlohmann::json* state)
{
    events->clear();
    bool stateDue = false;
    {
        std::unique_lock<std::mutex> guard(m_lock);
        m_changed.wait_for(guard, timeout, [&] {
            return m_closed || cursor.stateVersion != m_stateVersion ||
                   cursor.nextEvent < m_nextSequence;
        });
        if (m_closed)
            return false;
        for (const Event& event : m_events) {
            if (event.sequence >= cursor.nextEvent)
                events->push_back(event);
        }
        // A reader that fell behind the kept events just skips what is gone.
        cursor.nextEvent = m_nextSequence;
        if (cursor.stateVersion != m_stateVersion) {
            cursor.stateVersion = m_stateVersion;
            stateDue = true;
        }
    }
    // Outside the feed's lock: the television has its own.
    if (stateDue)
        *state = view();
    else
        *state = nullptr;
    return true;
}

void DashboardFeed::close()
{
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_closed = true;
    }
    m_changed.notify_all();
}

} // namespace zor::sim
