// SPDX-License-Identifier: MIT
#include "transport/command_table.h"

namespace zor::wire
{

const CommandClass* commandClass(unsigned number)
{
    static const CommandClass* const classes[] = {
        nullptr,      &kAssistantClass, &kVoiceControlClass, &kVideoClass,
        &kAudioClass, &kChannelClass,   &kSystemClass,       &kMiscClass,
    };
    return number < sizeof(classes) / sizeof(classes[0]) ? classes[number] : nullptr;
}

const CommandClass* commandClassOf(uint32_t id)
{
    return commandClass((id >> 16) & 0xF);
}

const CommandRow* findCommand(const CommandClass& commandClass, uint32_t id)
{
    // The range test is an unsigned difference, so ids below the first fall out too.
    if (id - commandClass.firstId > commandClass.lastId - commandClass.firstId)
        return nullptr;
    for (size_t i = 0; i < commandClass.rowCount; ++i) {
        if (commandClass.rows[i].id == id)
            return &commandClass.rows[i];
    }
    return nullptr;
}

const CommandRow* findCommand(uint32_t id)
{
    const CommandClass* owner = commandClassOf(id);
    return owner ? findCommand(*owner, id) : nullptr;
}

} // namespace zor::wire
