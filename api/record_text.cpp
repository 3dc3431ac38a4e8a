// SPDX-License-Identifier: MIT
#include "api/record_text.h"

#include <algorithm>
#include <cstring>

namespace zor::api
{

bool fitsIn(const char* text, size_t maxChars, size_t* length)
{
    const size_t measured = strnlen(text, maxChars + 1);
    if (measured > maxChars)
        return false;
    *length = measured;
    return true;
}

void putText(char* field, size_t fieldSize, const char* text, size_t length)
{
    memcpy(field, text, std::min(length, fieldSize));
}

void putStrInfo(_VOICECTRL_STR_INFO& record, const char* text, size_t length)
{
    putText(record.c8Str, kStrInfoChars, text, length);
    record.u32StrLen = static_cast<uint32_t>(std::min(length, kStrInfoChars));
}

void putLongStrInfo(_VOICECTRL_LONG_STR_INFO& record, const char* text, size_t length)
{
    putText(record.c8Str, kLongStrInfoChars, text, length);
    record.u32StrLen = static_cast<uint32_t>(std::min(length, kLongStrInfoChars));
}

void copyPadded(char* out, size_t size, const char* field, size_t fieldSize)
{
    const size_t length = strnlen(field, std::min(size, fieldSize));
    memcpy(out, field, length);
    memset(out + length, 0, size - length);
}

size_t copyTerminated(char* out, size_t size, const char* field, size_t fieldSize)
{
    if (size == 0)
        return 0;
    const size_t length = strnlen(field, std::min(size - 1, fieldSize));
    memcpy(out, field, length);
    out[length] = '\0';
    return length;
}

} // namespace zor::api
