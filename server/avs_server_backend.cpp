// SPDX-License-Identifier: MIT
// Inbound dispatch: the class of the id picks a dispatcher, the dispatcher's
// table gives the request layout and the operation of each command.
#include "server/avs_server_backend.h"

#include "base/log.h"
#include "server/callback_table.h"
#include "server/inbound_commands.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

ST_AVSP_CALLBACK_FUN* g_pstCBHandle = nullptr;

namespace
{

using zor::log::Family;

// The request as the peer sent it. Every field starts zeroed, so a request
// shorter than its layout reads zeros for what it does not carry.
struct Request {
    MUPParam& in;
    const char* dispatcher; // the printing function of the dispatch lines

    template <typename T> T field()
    {
        T value{};
        in.read(&value, sizeof(value));
        return value;
    }

    // A boolean byte: any non-zero byte is true (a bool object must never
    // receive a byte other than 0 or 1).
    bool flag() { return field<uint8_t>() != 0; }

    // A text field of N bytes, held one byte longer so that it is terminated
    // even when the sender filled the field to its last byte.
    template <size_t N> struct Text {
        char bytes[N + 1];
    };
    template <size_t N> Text<N> text()
    {
        Text<N> value{};
        in.read(value.bytes, N);
        value.bytes[N] = '\0';
        return value;
    }
};

// Reads the request and runs the operation; false drops the command (no reply).
using Run = bool (*)(AVSServerBackend& server, Request& request, int& reply);

struct InboundRow {
    uint32_t id;
    const char* logName; // the dispatch line, or null for commands without one
    Run run;
};

bool activate(AVSServerBackend& server, Request&, int& reply)
{
    reply = server.ActivateAVS();
    return true;
}

bool enableDisable(AVSServerBackend& server, Request& request, int& reply)
{
    reply = server.EnableDisableAVS(request.field<int32_t>());
    return true;
}

bool reportUIStatus(AVSServerBackend& server, Request& request, int& reply)
{
    const auto status = request.field<int32_t>();
    const auto value = request.field<uint32_t>();
    reply = server.ReportUIStatus(status, value);
    return true;
}

bool changeLanguage(AVSServerBackend& server, Request& request, int& reply)
{
    auto code = request.text<zor::inbound::kLanguageBytes>();
    reply = server.UserChangedLanguage(code.bytes);
    return true;
}

bool changeCountry(AVSServerBackend& server, Request& request, int& reply)
{
    auto code = request.text<zor::inbound::kCountryBytes>();
    reply = server.UserChangedCountry(code.bytes);
    return true;
}

bool audioPcm(AVSServerBackend& server, Request& request, int& reply)
{
    const auto samples = request.field<uint32_t>();
    if (samples > zor::inbound::kMaxPcmSamples) {
        zor::log::line(Family::ServerError, request.dispatcher, __LINE__,
                       "PCM sample count %u is more than a 1 MiB frame can carry, command "
                       "dropped\n",
                       samples);
        return false;
    }
    const size_t bytes = size_t{samples} * 2;
    // Zero-filled, so that samples the request does not carry read as silence.
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[bytes + 1]());
    if (!buffer) {
        zor::log::line(Family::ServerError, request.dispatcher, __LINE__,
                       "cannot allocate %zu bytes for %u PCM samples, command dropped\n", bytes,
                       samples);
        return false;
    }
    request.in.read(buffer.get(), static_cast<unsigned int>(bytes));
    reply = server.SendAudioPCMData(buffer.get(), static_cast<unsigned int>(bytes));
    return true;
}

bool micButtonTapped(AVSServerBackend& server, Request&, int& reply)
{
    reply = server.MicButtonTapped();
    return true;
}

bool resetApp(AVSServerBackend& server, Request& request, int& reply)
{
    reply = server.RestAVS(request.field<int32_t>());
    return true;
}

bool powerMode(AVSServerBackend& server, Request& request, int& reply)
{
    reply = server.SetPowerMode(request.field<int32_t>());
    return true;
}

bool buttonTappedType(AVSServerBackend& server, Request& request, int& reply)
{
    reply = server.SetButtonTapped(request.field<int32_t>());
    return true;
}

bool debugLevel(AVSServerBackend& server, Request& request, int& reply)
{
    reply = server.SetDebugLevel(request.field<int32_t>());
    return true;
}

bool micButtonHold(AVSServerBackend& server, Request& request, int& reply)
{
    reply = server.MicButtonHold(request.flag());
    return true;
}

bool timeZone(AVSServerBackend& server, Request&, int& reply)
{
    reply = server.SetTimeZoneCallback();
    return true;
}

bool farFieldSupport(AVSServerBackend& server, Request& request, int& reply)
{
    _ST_FFM_INFO info{};
    info.u8Sup = request.field<uint8_t>();
    info.c8CardID = request.field<int8_t>();
    info.c8DevID = request.field<int8_t>();
    // The only command whose line carries its fields, so it logs after reading.
    zor::log::line(Family::Server, request.dispatcher, __LINE__,
                   "OXA_CMD_ID_AVS_SET_FFM_SUP(u8Sup=%d, c8CardID=%d, c8DevID=%d)\n", info.u8Sup,
                   info.c8CardID, info.c8DevID);
    reply = server.SetFFMSup(info);
    return true;
}

bool actionButton(AVSServerBackend& server, Request&, int& reply)
{
    reply = server.NotifyActionButtonPressed();
    return true;
}

bool dspStatus(AVSServerBackend& server, Request& request, int& reply)
{
    reply = server.NotifyAudDSPStatus(request.field<uint32_t>());
    return true;
}

bool xmosMicButton(AVSServerBackend& server, Request& request, int& reply)
{
    reply = server.NotifyXMOSMicButtonOn(request.flag());
    return true;
}

bool controlChanged(AVSServerBackend& server, Request& request, int& reply)
{
    reply = server.InformControlChanged(request.field<int32_t>());
    return true;
}

bool certificateChanged(AVSServerBackend& server, Request& request, int& reply)
{
    auto text = request.text<zor::inbound::kCertificateTextBytes>();
    reply = server.InformTevoraCertificateChanged(text.bytes);
    return true;
}

bool queryIotCertificate(AVSServerBackend& server, Request&, int& reply)
{
    reply = server.QueryForIOTCertificate();
    return true;
}

bool softMicStatus(AVSServerBackend& server, Request& request, int& reply)
{
    reply = server.NotifyYTSoftMicStatus(request.field<uint32_t>());
    return true;
}

using namespace OXAPC;

// Row i holds command number i + 1 of its class.
constexpr InboundRow kAssistantRows[] = {
    {OXA_CMD_ID_AVS_ACTIVATE_AVS, "OXA_CMD_ID_AVS_ACTIVATE_AVS", activate},
    {OXA_CMD_ID_AVS_ENABLE_DISABLE_AVS, "OXA_CMD_ID_AVS_ENABLE_DISABLE_AVS", enableDisable},
    {OXA_CMD_ID_AVS_REPORT_UI_STATUS, "OXA_CMD_ID_AVS_REPORT_UI_STATUS", reportUIStatus},
    {OXA_CMD_ID_AVS_USER_CHANGE_LANGUAGE, "OXA_CMD_ID_AVS_USER_CHANGE_LANGUAGE", changeLanguage},
    {OXA_CMD_ID_AVS_USER_CHANGE_COUNTRY, "OXA_CMD_ID_AVS_USER_CHANGE_COUNTRY", changeCountry},
    {OXA_CMD_ID_AVS_SEND_AUDIO_PCM_DATA, nullptr, audioPcm},
    {OXA_CMD_ID_AVS_MIC_BUTTON_TAPPED, "OXA_CMD_ID_AVS_MIC_BUTTON_TAPPED", micButtonTapped},
    {OXA_CMD_ID_AVS_REST_AVS, "OXA_CMD_ID_AVS_REST_AVS", resetApp},
    {OXA_CMD_ID_AVS_SET_POWER_MODE, "OXA_CMD_ID_AVS_SET_POWER_MODE", powerMode},
    {OXA_CMD_ID_AVS_SET_BUTTON_TAPPED_TYPE, "OXA_CMD_ID_AVS_SET_BUTTON_TAPPED_TYPE",
     buttonTappedType},
    {OXA_CMD_ID_AVS_SET_DEBUG_LEVEL, "OXA_CMD_ID_AVS_SET_DEBUG_LEVEL", debugLevel},
    {OXA_CMD_ID_AVS_MIC_BUTTON_HOLD, "OXA_CMD_ID_AVS_MIC_BUTTON_HOLD", micButtonHold},
    {OXA_CMD_ID_AVS_SET_TIME_ZONE, "OXA_CMD_ID_AVS_SET_TIME_ZONE", timeZone},
    {OXA_CMD_ID_AVS_SET_FFM_SUP, nullptr, farFieldSupport},
    {OXA_CMD_ID_AVS_NOTIFY_ACTIONBUTTON_PRESSED, "OXA_CMD_ID_AVS_NOTIFY_ACTIONBUTTON_PRESSED",
     actionButton},
    {OXA_CMD_ID_AVS_NOTIFY_AUDDSP_STATUS, "OXA_CMD_ID_AVS_NOTIFY_AUDDSP_STATUS", dspStatus},
    {OXA_CMD_ID_AVS_NOTIFY_XMOSMICBUTTON_ON, "OXA_CMD_ID_AVS_NOTIFY_XMOSMICBUTTON_ON",
     xmosMicButton},
};

constexpr InboundRow kVoiceControlRows[] = {
    {OXA_CMD_ID_VOICE_CTRL_INFORM_CONTROL_CHANGED, nullptr, controlChanged},
    {OXA_CMD_ID_VOICE_CTRL_INFORM_TEVORA_CERT_CHANGED,
     "OXA_CMD_ID_VOICE_CTRL_INFORM_TEVORA_CERT_CHANGED", certificateChanged},
    {OXA_CMD_ID_VOICE_CTRL_QUERY_FOR_IOT_CERTIFICATE,
     "OXA_CMD_ID_VOICE_CTRL_QUERY_FOR_IOT_CERTIFICATE", queryIotCertificate},
    {OXA_CMD_ID_VOICE_CTRL_FFM_YOUTUBE_SOFTMIC_STATUS,
     "OXA_CMD_ID_VOICE_CTRL_FFM_YOUTUBE_SOFTMIC_STATUS", softMicStatus},
};

// The Google Assistant's commands run the assistant's operations.
constexpr InboundRow kGoogleAssistantRows[] = {
    {OXA_CMD_ID_GA_ACTIVATE_GA, "OXA_CMD_ID_GA_ACTIVATE_GA", activate},
    {OXA_CMD_ID_GA_ENABLE_DISABLE_GA, "OXA_CMD_ID_GA_ENABLE_DISABLE_GA", enableDisable},
    {OXA_CMD_ID_GA_REPORT_UI_STATUS, "OXA_CMD_ID_GA_REPORT_UI_STATUS", reportUIStatus},
    {OXA_CMD_ID_GA_USER_CHANGE_LANGUAGE, "OXA_CMD_ID_GA_USER_CHANGE_LANGUAGE", changeLanguage},
    {OXA_CMD_ID_GA_USER_CHANGE_COUNTRY, "OXA_CMD_ID_GA_USER_CHANGE_COUNTRY", changeCountry},
    {OXA_CMD_ID_GA_REST_GA, "OXA_CMD_ID_GA_REST_GA", resetApp},
    {OXA_CMD_ID_GA_NOTIFY_POWER_MODE, "OXA_CMD_ID_GA_NOTIFY_POWER_MODE", powerMode},
};

template <size_t N> constexpr bool isDense(const InboundRow (&rows)[N])
{
    for (size_t i = 0; i < N; ++i) {
        if ((rows[i].id & 0xFFFF) != i + 1)
            return false;
    }
    return true;
}
static_assert(isDense(kAssistantRows) && isDense(kVoiceControlRows) &&
              isDense(kGoogleAssistantRows));

struct Dispatcher {
    const char* name;
    const InboundRow* rows;
    size_t count;
    Family unknownFamily; // the voice-control class reports unknown ids without ERROR
};

int dispatch(const Dispatcher& dispatcher, AVSServerBackend& server, unsigned int cmd, MUPParam& in,
             MUPParam* out)
{
    const size_t index = static_cast<size_t>(cmd & 0xFFFF) - 1; // command 0 wraps round
    if (index >= dispatcher.count || dispatcher.rows[index].id != cmd) {
        zor::log::line(dispatcher.unknownFamily, dispatcher.name, __LINE__, "unknown cmd %d\n",
                       static_cast<int>(cmd));
        return 0;
    }
    const InboundRow& row = dispatcher.rows[index];
    if (row.logName)
        zor::log::line(Family::Server, dispatcher.name, __LINE__, "%s\n", row.logName);

    Request request{in, dispatcher.name};
    int reply = 0;
    if (!row.run(server, request, reply))
        return -1;
    if (out)
        out->writeInt32(reply);
    return 0;
}

template <size_t N>
constexpr Dispatcher makeDispatcher(const char* name, const InboundRow (&rows)[N], Family unknown)
{
    return Dispatcher{name, rows, N, unknown};
}

constexpr Dispatcher kAlexaDispatcher =
    makeDispatcher("handleAlexaTransact", kAssistantRows, Family::ServerError);
constexpr Dispatcher kVoiceControlDispatcher =
    makeDispatcher("handleVoiceControlTransact", kVoiceControlRows, Family::Server);
constexpr Dispatcher kGADispatcher =
    makeDispatcher("handleGATransact", kGoogleAssistantRows, Family::ServerError);

} // namespace

AVSServerBackend::AVSServerBackend()
    : m_micButtonTappedThread(0), m_micButtonHoldThread(0), m_controlChangedThread(0)
{
    ZOR_SERVER_LOG("SRVTVBackend constructor\n");
}

AVSServerBackend::~AVSServerBackend()
{
    // The workers keep running until the process ends; they hold no reference
    // to this object.
    ZOR_SERVER_LOG("SRVTVBackend destructor\n");
}

int AVSServerBackend::handleCommand(unsigned int cmd, MUPParam& in, MUPParam* out,
                                    unsigned int flags)
{
    // Another process chose these bytes: whatever goes wrong, the server
    // thread must go on serving.
    try {
        switch (zor::inbound::classOf(cmd)) {
        case zor::inbound::kClassAssistant:
            ZOR_SERVER_LOG("OXV_CMD_CLASS_ALEXA\n");
            return handleAlexaTransact(cmd, in, out, flags);
        case zor::inbound::kClassVoiceControl:
            return handleVoiceControlTransact(cmd, in, out, flags);
        case zor::inbound::kClassGoogleAssistant:
            ZOR_SERVER_LOG("OXV_CMD_CLASS_GA\n");
            return handleGATransact(cmd, in, out, flags);
        default:
            return -1;
        }
    } catch (...) {
        ZOR_SERVER_ERROR("command 0x%08x failed, dropped\n", cmd);
        return -1;
    }
}

int AVSServerBackend::handleAlexaTransact(unsigned int cmd, MUPParam& in, MUPParam* out,
                                          unsigned int)
{
    return dispatch(kAlexaDispatcher, *this, cmd, in, out);
}

int AVSServerBackend::handleVoiceControlTransact(unsigned int cmd, MUPParam& in, MUPParam* out,
                                                 unsigned int)
{
    return dispatch(kVoiceControlDispatcher, *this, cmd, in, out);
}

int AVSServerBackend::handleGATransact(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int)
{
    return dispatch(kGADispatcher, *this, cmd, in, out);
}

void AVSServerBackend::RegisterCallbackFun(ST_AVSP_CALLBACK_FUN* table)
{
    zor::callbacks::setTable(table);
}
