// SPDX-License-Identifier: MIT
#include "tools/wireshark/pcapng_reader.h"

#include <cstring>

namespace zorctl
{

namespace
{

constexpr uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr uint32_t kInterface = 1;
constexpr uint32_t kStatistics = 5;
constexpr uint32_t kPacket = 6;
constexpr uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr uint32_t kByteOrderSwapped = 0x4D3C2B1A;
// No block of a libmup capture comes near this; a larger length means a
// damaged file, not a reason to allocate.
constexpr uint32_t kMaxBlock = 16 * 1024 * 1024;

} // namespace

uint16_t PcapngReader::u16(const unsigned char* p) const
{
    return m_swapped ? static_cast<uint16_t>(p[0] << 8 | p[1])
                     : static_cast<uint16_t>(p[0] | p[1] << 8);
}

uint32_t PcapngReader::u32(const unsigned char* p) const
{
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value |= static_cast<uint32_t>(p[m_swapped ? 3 - i : i]) << (8 * i);
    return value;
}

uint64_t PcapngReader::u64(const unsigned char* p) const
{
    const uint64_t first = u32(p);
    const uint64_t second = u32(p + 4);
    return m_swapped ? first << 32 | second : second << 32 | first;
}

bool PcapngReader::fail(const std::string& what)
{
    m_error = what + " at byte " + std::to_string(m_offset);
    return false;
}

bool PcapngReader::next(PcapngBlock* block)
{
    for (;;) {
        unsigned char head[8];
        const size_t got = fread(head, 1, sizeof(head), m_file);
        if (got == 0 && feof(m_file))
            return false;
        if (got != sizeof(head))
            return fail(ferror(m_file) ? "read error" : "file ends inside a block header");

        uint32_t type = 0;
        memcpy(&type, head, 4); // the section header's type reads the same in both orders
        unsigned char magic[4] = {};
        if (type == kSectionHeader) {
            if (fread(magic, 1, 4, m_file) != 4)
                return fail("file ends inside a section header");
            // The magic, read in this host's order, tells the section's order.
            m_swapped = false;
            if (u32(magic) == kByteOrderSwapped)
                m_swapped = true;
            else if (u32(magic) != kByteOrderMagic)
                return fail("bad byte-order magic in a section header");
            m_inSection = true;
            m_interfaces.clear();
        } else if (!m_inSection) {
            return fail("not a pcapng file (no section header first)");
        }
        type = u32(head);
        const uint32_t length = u32(head + 4);
        if (length < 12 || length % 4 != 0 || length > kMaxBlock ||
            (type == kSectionHeader && length < 28))
            return fail("bad block length " + std::to_string(length));

        std::vector<unsigned char> body(length - 8);
        size_t have = 0;
        if (type == kSectionHeader) {
            memcpy(body.data(), magic, 4);
            have = 4;
        }
        if (fread(body.data() + have, 1, body.size() - have, m_file) != body.size() - have)
            return fail("file ends inside a block");
        if (u32(body.data() + body.size() - 4) != length)
            return fail("block lengths at its start and end differ");
        body.resize(body.size() - 4);

        const uint64_t start = m_offset;
        m_offset += length;
        if (type != kSectionHeader && type != kInterface && type != kPacket && type != kStatistics)
            continue; // a block this reader does not need
        *block = PcapngBlock{};
        if (!parse(type, body, block)) {
            m_offset = start;
            return false;
        }
        return true;
    }
}

bool PcapngReader::parse(uint32_t type, const std::vector<unsigned char>& body, PcapngBlock* block)
{
    const unsigned char* p = body.data();
    switch (type) {
    case kSectionHeader:
        if (body.size() < 16)
            return fail("section header too short");
        if (u16(p + 4) != 1)
            return fail("pcapng major version " + std::to_string(u16(p + 4)) + " is unknown");
        block->type = PcapngBlock::Type::Section;
        return options(body, 16, type, block, nullptr);
    case kInterface: {
        if (body.size() < 8)
            return fail("interface description too short");
        PcapngInterface interface;
        interface.linkType = u16(p);
        interface.snapLength = u32(p + 4);
        block->type = PcapngBlock::Type::Interface;
        if (!options(body, 8, type, block, &interface))
            return false;
        block->interface = static_cast<uint32_t>(m_interfaces.size());
        m_interfaces.push_back(interface);
        return true;
    }
    case kPacket: {
        if (body.size() < 20)
            return fail("packet block too short");
        block->type = PcapngBlock::Type::Packet;
        block->interface = u32(p);
        block->timestamp = static_cast<uint64_t>(u32(p + 4)) << 32 | u32(p + 8);
        const uint32_t captured = u32(p + 12);
        block->originalLength = u32(p + 16);
        const uint64_t padded = (uint64_t{captured} + 3) / 4 * 4;
        if (20 + padded > body.size())
            return fail("packet data longer than its block");
        if (block->interface >= m_interfaces.size())
            return fail("packet of an undescribed interface " + std::to_string(block->interface));
        block->data.assign(p + 20, p + 20 + captured);
        return options(body, 20 + static_cast<size_t>(padded), type, block, nullptr);
    }
    case kStatistics:
        if (body.size() < 12)
            return fail("statistics block too short");
        block->type = PcapngBlock::Type::Statistics;
        block->interface = u32(p);
        block->timestamp = static_cast<uint64_t>(u32(p + 4)) << 32 | u32(p + 8);
        if (block->interface >= m_interfaces.size())
            return fail("statistics of an undescribed interface");
        return options(body, 12, type, block, nullptr);
    }
    return true;
}

bool PcapngReader::options(const std::vector<unsigned char>& body, size_t offset, uint32_t type,
                           PcapngBlock* block, PcapngInterface* interface)
{
    while (offset + 4 <= body.size()) {
        const uint16_t code = u16(body.data() + offset);
        const uint16_t length = u16(body.data() + offset + 2);
        offset += 4;
        if (code == 0)
            return true;
        if (offset + length > body.size())
            return fail("option longer than its block");
        const unsigned char* value = body.data() + offset;
        const std::string text(reinterpret_cast<const char*>(value), length);
        if (code == 1) {
            block->comments.push_back(text);
        } else if (type == kSectionHeader) {
            if (code == 3)
                block->os = text;
            else if (code == 4)
                block->application = text;
        } else if (type == kInterface) {
            if (code == 2)
                interface->name = text;
            else if (code == 3)
                interface->description = text;
            else if (code == 9 && length >= 1) {
                // 10^-n or, with the top bit set, 2^-n seconds.
                const unsigned exponent = value[0] & 0x7F;
                if (exponent > 19 || ((value[0] & 0x80) && exponent > 63))
                    return fail("time resolution out of range");
                uint64_t units = 1;
                for (unsigned i = 0; i < exponent; ++i)
                    units *= (value[0] & 0x80) ? 2 : 10;
                interface->unitsPerSecond = units;
            }
        } else if (type == kPacket) {
            if (code == 2 && length >= 4)
                block->direction = u32(value) & 0x3;
            else if (code == 4 && length >= 8) {
                block->dropCount = u64(value);
                block->hasDropCount = true;
            }
        } else if (type == kStatistics) {
            if (code == 4 && length >= 8) {
                block->received = u64(value);
                block->hasReceived = true;
            } else if (code == 5 && length >= 8) {
                block->dropped = u64(value);
                block->hasDropped = true;
            }
        }
        offset += (length + 3u) / 4 * 4;
    }
    return true;
}

} // namespace zorctl
