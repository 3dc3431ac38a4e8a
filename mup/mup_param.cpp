// SPDX-License-Identifier: MIT
#include "mup/mup.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <exception>

MUPParam::MUPParam() : m_readPos(0) {}

MUPParam::~MUPParam() = default;

int MUPParam::write(const void* src, unsigned int count)
{
    if (count == 0)
        return 0;
    // The count is returned as an int, and the size must stay an unsigned int.
    if (!src || count > INT_MAX || count > UINT_MAX - m_bytes.size())
        return -1;
    try {
        const auto* bytes = static_cast<const unsigned char*>(src);
        m_bytes.insert(m_bytes.end(), bytes, bytes + count);
    } catch (const std::exception&) {
        return -1;
    }
    return static_cast<int>(count);
}

int MUPParam::read(void* dst, unsigned int count)
{
    if (!dst)
        return 0;
    unsigned int taken = remaining() < count ? remaining() : count;
    if (taken > INT_MAX)
        taken = INT_MAX;
    if (taken)
        memcpy(dst, m_bytes.data() + m_readPos, taken);
    m_readPos += taken;
    return static_cast<int>(taken);
}

int MUPParam::writeInt32(int value)
{
    return write(&value, sizeof(value));
}

int MUPParam::readInt32()
{
    int value;
    if (remaining() < sizeof(value))
        return -1;
    memcpy(&value, m_bytes.data() + m_readPos, sizeof(value));
    m_readPos += sizeof(value);
    return value;
}

unsigned int MUPParam::size() const
{
    return static_cast<unsigned int>(m_bytes.size());
}

unsigned int MUPParam::remaining() const
{
    return size() - m_readPos;
}

const unsigned char* MUPParam::data() const
{
    return m_bytes.data();
}

void MUPParam::assign(const unsigned char* bytes, unsigned int count)
{
    m_readPos = 0;
    try {
        if (bytes)
            m_bytes.assign(bytes, bytes + count);
        else
            m_bytes.clear();
    } catch (const std::exception&) {
        // Out of memory: an empty buffer, which reads as a failed status.
        m_bytes.clear();
    }
}

void MUPParam::clear()
{
    m_bytes.clear();
    m_readPos = 0;
}

namespace OXAPC
{

C_OXAAVSServerHandler::C_OXAAVSServerHandler() = default;

C_OXAAVSServerHandler::~C_OXAAVSServerHandler() = default;

int C_OXAAVSServerHandler::handleCommand(unsigned int, MUPParam&, MUPParam*, unsigned int)
{
    printf("\n\033[1;5;33m[quill] This function '%s::%s()' isn't implemented yet !!!\033[0m\n",
           "C_OXAAVSServerHandler", "handleCommand");
    fflush(stdout);
    return -1;
}

} // namespace OXAPC
