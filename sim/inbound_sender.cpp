// SPDX-License-Identifier: MIT
#include "sim/inbound_sender.h"

#include "mup/client.h"
#include "server/inbound_commands.h"

#include <sndfile.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <sstream>

namespace zor::sim
{

namespace
{

using Bytes = std::vector<unsigned char>;
using namespace OXAPC;

// The applications' server services, by Application.
constexpr const char* kServerServices[] = {
    "oxa.kel.idtv.client",
    "oxa.kel.idtv.client3",
    "oxa.kel.idtv.client2",
};

// PCM goes out in 100 ms commands.
constexpr int kPcmChunkSamples = 1600;

void appendWord(Bytes& out, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

// A text field of `width` bytes: the text cut to the field, zero-filled.
void appendText(Bytes& out, const std::string& text, size_t width)
{
    for (size_t i = 0; i < width; ++i)
        out.push_back(i < text.size() ? static_cast<unsigned char>(text[i]) : 0);
}

bool parseNumber(const std::string& word, long long* out)
{
    try {
        size_t used = 0;
        *out = std::stoll(word, &used, 0);
        return used == word.size();
    } catch (const std::exception&) {
        return false;
    }
}

struct Command {
    unsigned int id;
    unsigned int gaId; // the Google Assistant's twin, 0 when there is none
    const char* usage;
    size_t arguments;
    // Builds the payload from the arguments; an empty string on success,
    // otherwise what is wrong.
    std::function<std::string(const std::vector<std::string>&, Bytes&)> build;
    bool takesRestOfLine = false; // text commands: the words are joined
};

std::string noPayload(const std::vector<std::string>&, Bytes&)
{
    return {};
}

// Arguments are whole numbers, each sent as a 32-bit word.
std::string words(const std::vector<std::string>& args, Bytes& out)
{
    for (const std::string& arg : args) {
        long long value = 0;
        if (!parseNumber(arg, &value))
            return "not a number: " + arg;
        // A word is signed or unsigned 32 bits; anything wider would be cut.
        if (value < INT32_MIN || value > static_cast<long long>(UINT32_MAX))
            return "out of range for 32 bits: " + arg;
        appendWord(out, static_cast<uint32_t>(value));
    }
    return {};
}

std::string flagByte(const std::vector<std::string>& args, Bytes& out)
{
    if (args[0] != "0" && args[0] != "1")
        return "expected 0 or 1";
    out.push_back(args[0] == "1" ? 1 : 0);
    return {};
}

// A text sent in a field of `width` bytes. One that does not fit is refused
// rather than cut: the application would see another text than the one typed.
std::function<std::string(const std::vector<std::string>&, Bytes&)> text(const char* what,
                                                                         size_t width)
{
    return [what, width](const std::vector<std::string>& args, Bytes& out) {
        std::string joined;
        for (const std::string& arg : args)
            joined += (joined.empty() ? "" : " ") + arg;
        if (joined.size() > width)
            return std::string(what) + " has at most " + std::to_string(width) +
                   " characters (its field is " + std::to_string(width) + " bytes): '" + joined +
                   "' would arrive as '" + joined.substr(0, width) + "'";
        appendText(out, joined, width);
        return std::string();
    };
}

std::string farFieldInfo(const std::vector<std::string>& args, Bytes& out)
{
    for (const std::string& arg : args) {
        long long value = 0;
        if (!parseNumber(arg, &value) || value < -128 || value > 255)
            return "not a byte: " + arg;
        out.push_back(static_cast<unsigned char>(value));
    }
    return {};
}

const std::map<std::string, Command>& commands()
{
    static const std::map<std::string, Command> table = {
        {"activate", {OXA_CMD_ID_AVS_ACTIVATE_AVS, OXA_CMD_ID_GA_ACTIVATE_GA, "", 0, noPayload}},
        {"enable",
         {OXA_CMD_ID_AVS_ENABLE_DISABLE_AVS, OXA_CMD_ID_GA_ENABLE_DISABLE_GA, "<type>", 1, words}},
        {"ui-status",
         {OXA_CMD_ID_AVS_REPORT_UI_STATUS, OXA_CMD_ID_GA_REPORT_UI_STATUS, "<status> <value>", 2,
          words}},
        {"language",
         {OXA_CMD_ID_AVS_USER_CHANGE_LANGUAGE, OXA_CMD_ID_GA_USER_CHANGE_LANGUAGE, "<code>", 1,
          text("a language code", inbound::kLanguageBytes), true}},
        {"country",
         {OXA_CMD_ID_AVS_USER_CHANGE_COUNTRY, OXA_CMD_ID_GA_USER_CHANGE_COUNTRY, "<code>", 1,
          text("a country code", inbound::kCountryBytes), true}},
        {"tap", {OXA_CMD_ID_AVS_MIC_BUTTON_TAPPED, 0, "", 0, noPayload}},
        {"reset", {OXA_CMD_ID_AVS_REST_AVS, OXA_CMD_ID_GA_REST_GA, "<state>", 1, words}},
        {"power",
         {OXA_CMD_ID_AVS_SET_POWER_MODE, OXA_CMD_ID_GA_NOTIFY_POWER_MODE, "<mode>", 1, words}},
        {"button-type", {OXA_CMD_ID_AVS_SET_BUTTON_TAPPED_TYPE, 0, "<type>", 1, words}},
        {"debug", {OXA_CMD_ID_AVS_SET_DEBUG_LEVEL, 0, "<level>", 1, words}},
        {"hold", {OXA_CMD_ID_AVS_MIC_BUTTON_HOLD, 0, "<0|1>", 1, flagByte}},
        {"timezone", {OXA_CMD_ID_AVS_SET_TIME_ZONE, 0, "", 0, noPayload}},
        {"ffm-sup", {OXA_CMD_ID_AVS_SET_FFM_SUP, 0, "<sup> <card> <dev>", 3, farFieldInfo}},
        {"action-button", {OXA_CMD_ID_AVS_NOTIFY_ACTIONBUTTON_PRESSED, 0, "", 0, noPayload}},
        {"dsp", {OXA_CMD_ID_AVS_NOTIFY_AUDDSP_STATUS, 0, "<status>", 1, words}},
        {"xmos-mic", {OXA_CMD_ID_AVS_NOTIFY_XMOSMICBUTTON_ON, 0, "<0|1>", 1, flagByte}},
        {"control-changed", {OXA_CMD_ID_VOICE_CTRL_INFORM_CONTROL_CHANGED, 0, "<type>", 1, words}},
        {"cert-changed",
         {OXA_CMD_ID_VOICE_CTRL_INFORM_TEVORA_CERT_CHANGED, 0, "<text>", 1,
          text("the certificate text", inbound::kCertificateTextBytes), true}},
        {"query-iot-cert", {OXA_CMD_ID_VOICE_CTRL_QUERY_FOR_IOT_CERTIFICATE, 0, "", 0, noPayload}},
        {"softmic", {OXA_CMD_ID_VOICE_CTRL_FFM_YOUTUBE_SOFTMIC_STATUS, 0, "<status>", 1, words}},
    };
    return table;
}

std::vector<std::string> split(const std::string& line)
{
    std::istringstream stream(line);
    std::vector<std::string> out;
    for (std::string word; stream >> word;)
        out.push_back(word);
    return out;
}

} // namespace

bool parseApplication(const std::string& name, Application* out)
{
    static const std::map<std::string, Application> names = {
        {"avs", Application::Avs}, {"ga", Application::Ga}, {"iot", Application::Iot}};
    auto found = names.find(name);
    if (found == names.end())
        return false;
    *out = found->second;
    return true;
}

InboundSender::InboundSender(Application defaultTarget) : m_default(defaultTarget)
{
    for (const char* service : kServerServices)
        m_clients.push_back(std::make_unique<mup::Client>(service));
}

InboundSender::~InboundSender() = default;

std::vector<std::string> InboundSender::help()
{
    std::vector<std::string> lines;
    for (const auto& [name, command] : commands())
        lines.push_back(name + (command.usage[0] ? " " : "") + command.usage +
                        (command.gaId ? "   (ga-" + name + ": the Google Assistant's twin)" : ""));
    lines.push_back("pcm <file.wav>");
    return lines;
}

std::string InboundSender::execute(const std::string& line)
{
    std::vector<std::string> words = split(line);
    Application target = m_default;
    if (!words.empty() && words[0].size() > 1 && words[0][0] == '@') {
        if (!parseApplication(words[0].substr(1), &target))
            return "error unknown application " + words[0];
        words.erase(words.begin());
    }
    if (words.empty())
        return "error empty command";

    std::string name = words[0];
    const std::vector<std::string> args(words.begin() + 1, words.end());
    if (name == "pcm") {
        if (args.size() != 1)
            return "error usage: pcm <file.wav>";
        return sendPcm(target, args[0]);
    }

    bool googleTwin = false;
    if (name.rfind("ga-", 0) == 0) {
        googleTwin = true;
        name = name.substr(3);
        if (target == m_default)
            target = Application::Ga;
    }
    auto found = commands().find(name);
    if (found == commands().end())
        return "error unknown command " + words[0] + " (try help)";
    const Command& command = found->second;
    if (googleTwin && command.gaId == 0)
        return "error " + name + " has no Google Assistant twin";
    // Text commands take the rest of the line.
    if (args.size() < command.arguments ||
        (args.size() > command.arguments && !command.takesRestOfLine))
        return std::string("error usage: ") + words[0] + " " + command.usage;

    Bytes payload;
    const std::string problem = command.build(args, payload);
    if (!problem.empty())
        return "error " + problem;
    return send(target, googleTwin ? command.gaId : command.id, payload);
}

std::string InboundSender::send(Application target, unsigned int id, const Bytes& payload)
{
    MUPParam request;
    request.write(payload.data(), static_cast<unsigned int>(payload.size()));
    MUPParam reply;
    mup::Client& client = *m_clients[static_cast<int>(target)];
    if (client.transmit(id, request, &reply) != 0)
        return "error " + client.serviceName() + " does not answer";
    char answer[64];
    if (reply.size() >= 4)
        snprintf(answer, sizeof(answer), "ok reply=%d", reply.readInt32());
    else
        snprintf(answer, sizeof(answer), "ok no reply (command dropped)");
    return answer;
}

std::string InboundSender::sendPcm(Application target, const std::string& path)
{
    SF_INFO info;
    memset(&info, 0, sizeof(info));
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file)
        return "error cannot read " + path + ": " + sf_strerror(nullptr);
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> owned(file, sf_close);
    if (info.samplerate != 16000 || info.channels != 1)
        return "error " + path + " is not 16 kHz mono";

    std::vector<short> samples(kPcmChunkSamples);
    size_t total = 0;
    int commandsSent = 0;
    for (;;) {
        const sf_count_t count = sf_read_short(file, samples.data(), kPcmChunkSamples);
        if (count <= 0)
            break;
        Bytes payload;
        appendWord(payload, static_cast<uint32_t>(count));
        const auto* bytes = reinterpret_cast<const unsigned char*>(samples.data());
        // Little-endian on every supported target, as the samples travel.
        payload.insert(payload.end(), bytes, bytes + count * 2);
        const std::string answer = send(target, OXA_CMD_ID_AVS_SEND_AUDIO_PCM_DATA, payload);
        if (answer.rfind("ok", 0) != 0)
            return answer;
        total += static_cast<size_t>(count);
        ++commandsSent;
    }
    return "ok sent " + std::to_string(total) + " samples in " + std::to_string(commandsSent) +
           " commands";
}

} // namespace zor::sim
