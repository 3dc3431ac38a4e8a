// SPDX-License-Identifier: MIT
// Bounded string handling for the fixed text fields of the command records:
// every length check and every copy into or out of a record goes through here,
// so no copy can run past a field or a caller's buffer.
#ifndef ZOR_API_RECORD_TEXT_H
#define ZOR_API_RECORD_TEXT_H

#include "zor/zor_types.h"

#include <cstddef>

namespace zor::api
{

// Longest string that each shared record takes, without terminator.
constexpr size_t kStrInfoChars = sizeof(_VOICECTRL_STR_INFO::c8Str) - 1;          // 64
constexpr size_t kLongStrInfoChars = sizeof(_VOICECTRL_LONG_STR_INFO::c8Str) - 1; // 1024

// True when `text` has at most `maxChars` characters; `*length` then holds its
// length. Never reads more than maxChars + 1 bytes of `text`.
bool fitsIn(const char* text, size_t maxChars, size_t* length);

// Copies `length` bytes of `text` into a zero-filled field of `fieldSize`
// bytes, never more than the field holds. The field's zeros terminate it.
void putText(char* field, size_t fieldSize, const char* text, size_t length);

// Fills a zeroed string record with `text` of `length` (at most 64 or 1024).
void putStrInfo(_VOICECTRL_STR_INFO& record, const char* text, size_t length);
void putLongStrInfo(_VOICECTRL_LONG_STR_INFO& record, const char* text, size_t length);

// Copies a reply field of `fieldSize` bytes into `size` bytes of `out` the way
// strncpy does: the text up to its terminator, the rest zero. It reads no byte
// past the field, and a text that fills `size` arrives without terminator.
void copyPadded(char* out, size_t size, const char* field, size_t fieldSize);

// Copies the text of a reply field into a caller's buffer of `size` bytes and
// always terminates it: a text without terminator in the field, or longer than
// size - 1, is cut. Returns the length delivered.
size_t copyTerminated(char* out, size_t size, const char* field, size_t fieldSize);

} // namespace zor::api

#endif
