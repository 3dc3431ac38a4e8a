// SPDX-License-Identifier: MIT
// Request and reply bytes of the shared command records, written out field by
// field as they lie on the wire, for golden tests.
#ifndef ZOR_TESTS_SUPPORT_RECORD_BYTES_H
#define ZOR_TESTS_SUPPORT_RECORD_BYTES_H

#include "tests/support/fake_middleware.h"

#include <string>

namespace zor::test
{

inline Bytes zeros(size_t count)
{
    return repeat(0, count);
}

inline Bytes le16(uint16_t value)
{
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)};
}

// A text in a field of `size` bytes, zeros behind it.
inline Bytes field(const std::string& value, size_t size)
{
    Bytes bytes = text(value);
    bytes.resize(size, 0);
    return bytes;
}

// 72 bytes: 65-byte text, 3 padding, length at 68.
inline Bytes strInfo(const std::string& value)
{
    return field(value, 68) + le32(static_cast<uint32_t>(value.size()));
}

// 1032 bytes: 1025-byte text, 3 padding, length at 1028.
inline Bytes longStrInfo(const std::string& value)
{
    return field(value, 1028) + le32(static_cast<uint32_t>(value.size()));
}

// 84 bytes: u32, four u16, u32, 65-byte name, 3 padding.
inline Bytes channelInfo(uint32_t param1, uint16_t a, uint16_t b, uint16_t c, uint16_t d,
                         uint32_t param2, const std::string& name)
{
    return le32(param1) + le16(a) + le16(b) + le16(c) + le16(d) + le32(param2) + field(name, 65) +
           zeros(3);
}

// 66 bytes: two 33-byte texts.
inline Bytes sourceInfo(const std::string& first, const std::string& second)
{
    return field(first, 33) + field(second, 33);
}

} // namespace zor::test

#endif
