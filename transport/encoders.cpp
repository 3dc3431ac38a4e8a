// SPDX-License-Identifier: MIT
// The router and the seven exported class encoders.
#include "base/log.h"
#include "transport/command_table.h"
#include "transport/transact.h"
#include "zor/zor_transport.h"

using zor::transport::transact;
namespace wire = zor::wire;

int _alexaSendTransact(unsigned int id, void* cmd_data)
{
    return transact(wire::kAssistantClass, id, cmd_data);
}

int _voiceCtrlSendTransact(unsigned int id, void* cmd_data)
{
    return transact(wire::kVoiceControlClass, id, cmd_data);
}

int _videoModuleSendTransact(unsigned int id, void* cmd_data)
{
    return transact(wire::kVideoClass, id, cmd_data);
}

int _audioModuleSendTransact(unsigned int id, void* cmd_data)
{
    return transact(wire::kAudioClass, id, cmd_data);
}

int _channelModuleSendTransact(unsigned int id, void* cmd_data)
{
    return transact(wire::kChannelClass, id, cmd_data);
}

int _systemModuleSendTransact(unsigned int id, void* cmd_data)
{
    return transact(wire::kSystemClass, id, cmd_data);
}

int _miscModuleSendTransact(unsigned int id, void* cmd_data)
{
    return transact(wire::kMiscClass, id, cmd_data);
}

int forwardCommand(OXAPC::OXA_TV_CMD_ID id, void* cmd_data)
{
    using Encoder = int (*)(unsigned int, void*);
    static const Encoder encoders[] = {
        nullptr,
        _alexaSendTransact,
        _voiceCtrlSendTransact,
        _videoModuleSendTransact,
        _audioModuleSendTransact,
        _channelModuleSendTransact,
        _systemModuleSendTransact,
        _miscModuleSendTransact,
    };

    const wire::CommandClass* commandClass = wire::commandClassOf(id);
    if (!commandClass) {
        // An unknown class is not an error of the command: 0, nothing sent.
        ZOR_ERROR("unknown command [%d]\n", static_cast<int>(id));
        return 0;
    }
    ZOR_TRACE("%s\n", commandClass->name);
    return encoders[commandClass->number](id, cmd_data);
}
