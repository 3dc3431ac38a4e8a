// SPDX-License-Identifier: MIT
// The far-field-microphone option code that the board keeps in a text file.
#ifndef ZOR_API_FFMIC_OPTION_H
#define ZOR_API_FFMIC_OPTION_H

namespace zor::api
{

// Where the board keeps the option code.
constexpr const char* kFFmicOptionPath = "/mtd_rwarea/FFMOptionCode.txt";

// Reads the first decimal integer of the file at `path` into `*option` (true
// when not 0). Returns what the read reported: 1 a number, 0 no number (the
// option becomes false), -1 an empty file (false); 0 with `*option` untouched
// when the file can't be opened for reading and writing; the positioning
// call's result when it fails. `option` must not be null.
int readFFmicOptionBit(const char* path, bool* option);

} // namespace zor::api

#endif
