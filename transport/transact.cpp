// SPDX-License-Identifier: MIT
#include "transport/transact.h"

#include "base/log.h"
#include "mup/mup.h"
#include "zor/zor_types.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace zor::transport
{

using wire::CommandRow;
using wire::ListHolder;
using wire::ReadRule;
using wire::ReplyShape;
using wire::RequestShape;

namespace
{

// Lines of the frame carry the encoder's name, as each class encoder prints them.
#define ENCODER_LOG(family, ...)                                                                   \
    ::zor::log::line(::zor::log::Family::family, encoder, __LINE__, __VA_ARGS__)

bool writeBrowserCertificates(const char* encoder, const _VOICECTRL_BROWSER_CERT_INFO& certs,
                              MUPParam& request)
{
    const char* const strings[] = {certs.pcData1, certs.pcData2, certs.pcData3,
                                   certs.pcSubjectName};
    for (const char* text : strings) {
        if (!text) {
            ENCODER_LOG(Error, "certificate string is NULL.\n");
            return false;
        }
    }

    uint32_t lengths[4] = {};
    for (int i = 0; i < 4; ++i)
        lengths[i] = static_cast<uint32_t>(strlen(strings[i]) + 1);

    ZOR_PRINT("subjectname: '%s'\n", certs.pcSubjectName);
    ZOR_PRINT("u32SubjectNameLen: '%d'\n", static_cast<int>(lengths[3]));
    request.write(lengths, sizeof(lengths));
    for (int i = 0; i < 4; ++i)
        request.write(strings[i], lengths[i]);
    ZOR_PRINT("subjectname: '%s'\n", certs.pcSubjectName);
    return true;
}

// Writes the command's request bytes; false when the record can't be sent.
bool writeRequest(const char* encoder, const CommandRow& row, void* cmd_data, MUPParam& request)
{
    switch (row.request) {
    case RequestShape::NoRecord:
    case RequestShape::Empty:
        return true;
    case RequestShape::Record:
        request.write(cmd_data, static_cast<unsigned int>(wire::recordSize(row.record)));
        return true;
    case RequestShape::ListCount: {
        const auto* holder = static_cast<const ListHolder*>(cmd_data);
        if (holder->count != 0 && !holder->items) {
            ENCODER_LOG(Error, "cmd_data is NULL.\n");
            return false;
        }
        request.write(&holder->count, sizeof(holder->count));
        return true;
    }
    case RequestShape::CountedString: {
        const auto* text = static_cast<const char*>(cmd_data);
        const uint32_t length = static_cast<uint32_t>(strlen(text));
        request.write(&length, sizeof(length));
        request.write(text, length);
        return true;
    }
    case RequestShape::BrowserCerts:
        return writeBrowserCertificates(
            encoder, *static_cast<const _VOICECTRL_BROWSER_CERT_INFO*>(cmd_data), request);
    }
    return false;
}

void readReply(const char* encoder, const CommandRow& row, void* cmd_data, int status,
               MUPParam& reply)
{
    if (row.reply == ReplyShape::None)
        return;
    if (row.rule == ReadRule::Guarded && status == -1) {
        ENCODER_LOG(Error, "ERROR: _ret_val = -1\n");
        return;
    }
    if (row.reply == ReplyShape::Record) {
        reply.read(cmd_data, static_cast<unsigned int>(wire::recordSize(row.record)));
        return;
    }
    // A list: the caller's array holds `count` elements, and never more than
    // that is written into it, whatever the reply carries.
    auto* holder = static_cast<ListHolder*>(cmd_data);
    const uint64_t wanted = uint64_t{holder->count} * wire::recordSize(row.record);
    reply.read(holder->items, static_cast<unsigned int>(std::min<uint64_t>(wanted, UINT32_MAX)));
}

} // namespace

int transact(const wire::CommandClass& commandClass, unsigned int id, void* cmd_data)
{
    const char* encoder = commandClass.encoderName;
    int result = -1;
    MUPParam request;
    MUPParam reply;

    const CommandRow* row = wire::findCommand(commandClass, id);
    if (!row) {
        if (commandClass.logsUnknownId)
            ENCODER_LOG(Error, "unknown cmd %d\n", static_cast<int>(id));
        return result;
    }

    ENCODER_LOG(Trace, "%s\n", row->traceLine());
    if (row->hasRecord() && !cmd_data) {
        ENCODER_LOG(Error, "cmd_data is NULL.\n");
        return result;
    }
    if (!writeRequest(encoder, *row, cmd_data, request))
        return result;

    ENCODER_LOG(Trace, "transact[0x%08x] : enter\n", id);
    OXA_TVC_TransmitCommand(id, request, &reply, 0);
    ENCODER_LOG(Trace, "transact[0x%08x] : leave\n", id);

    result = reply.readInt32();
    readReply(encoder, *row, cmd_data, result, reply);
    return result;
}

} // namespace zor::transport
