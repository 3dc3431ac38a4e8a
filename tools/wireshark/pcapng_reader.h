// SPDX-License-Identifier: MIT
// Reads pcapng files block by block, as far as `zorctl decode` needs them:
// section headers, interface descriptions, packets and interface statistics.
// Sections in either byte order are read; other block types are skipped.
#ifndef ZOR_TOOLS_PCAPNG_READER_H
#define ZOR_TOOLS_PCAPNG_READER_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace zorctl
{

struct PcapngInterface {
    uint16_t linkType = 0;
    uint32_t snapLength = 0;
    std::string name;
    std::string description;
    // Time stamp units per second (10^6 unless the interface says otherwise).
    uint64_t unitsPerSecond = 1000000;
};

struct PcapngBlock {
    enum class Type { Section, Interface, Packet, Statistics };
    Type type = Type::Section;

    std::vector<std::string> comments;
    // Section: its operating system and application options.
    std::string os;
    std::string application;
    // Interface: the one just described (also in PcapngReader::interfaces()).
    // Packet and statistics: the interface they belong to.
    uint32_t interface = 0;
    uint64_t timestamp = 0; // in the interface's units
    // Packet.
    std::vector<unsigned char> data;
    uint32_t originalLength = 0;
    uint32_t direction = 0; // 0 unknown, 1 received, 2 sent
    uint64_t dropCount = 0;
    bool hasDropCount = false;
    // Statistics.
    uint64_t received = 0;
    uint64_t dropped = 0;
    bool hasReceived = false;
    bool hasDropped = false;
};

class PcapngReader
{
public:
    // The file is borrowed and must stay open while the reader is used.
    explicit PcapngReader(FILE* file) : m_file(file) {}

    // The next block that the reader knows. False at the end of the file
    // (error() empty) or on a malformed file (error() says what and where).
    bool next(PcapngBlock* block);

    const std::string& error() const { return m_error; }
    // The interfaces of the current section, by id.
    const std::vector<PcapngInterface>& interfaces() const { return m_interfaces; }

private:
    bool fail(const std::string& what);
    uint16_t u16(const unsigned char* p) const;
    uint32_t u32(const unsigned char* p) const;
    uint64_t u64(const unsigned char* p) const;
    bool parse(uint32_t type, const std::vector<unsigned char>& body, PcapngBlock* block);
    bool options(const std::vector<unsigned char>& body, size_t offset, uint32_t type,
                 PcapngBlock* block, PcapngInterface* interface);

    FILE* m_file;
    bool m_swapped = false;
    bool m_inSection = false;
    uint64_t m_offset = 0;
    std::string m_error;
    std::vector<PcapngInterface> m_interfaces;
};

} // namespace zorctl

#endif
