// SPDX-License-Identifier: MIT
// `zorctl decode FILE`: the decoding of the Wireshark dissector as text, for
// machines without Wireshark. Both follow the command tables and record
// layouts of the library (transport/record_format.h).
#include "mup/frame.h"
#include "tools/subcommand.h"
#include "tools/wireshark/pcapng_reader.h"
#include "tools/zorctl.h"
#include "transport/record_format.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

namespace zorctl
{

namespace
{

constexpr uint16_t kLinkTypeUser0 = 147;

uint32_t le32(const unsigned char* p)
{
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

std::string timeText(uint64_t stamp, uint64_t unitsPerSecond)
{
    const time_t seconds = static_cast<time_t>(stamp / unitsPerSecond);
    const uint64_t fraction = stamp % unitsPerSecond;
    // Microseconds whatever the interface's unit.
    const uint64_t micros = unitsPerSecond >= 1000000 ? fraction / (unitsPerSecond / 1000000)
                                                      : fraction * (1000000 / unitsPerSecond);
    tm parts{};
    gmtime_r(&seconds, &parts);
    char text[64];
    const size_t length = strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &parts);
    snprintf(text + length, sizeof(text) - length, ".%06lluZ",
             static_cast<unsigned long long>(micros));
    return text;
}

const char* kindName(uint16_t kind)
{
    switch (static_cast<mup::FrameKind>(kind)) {
    case mup::FrameKind::Request:
        return "Request";
    case mup::FrameKind::OneWay:
        return "OneWay";
    case mup::FrameKind::Reply:
        return "Reply";
    }
    return "kind?";
}

void printFrame(FILE* out, uint64_t number, const PcapngBlock& packet,
                const PcapngInterface& interface)
{
    const char* direction = packet.direction == 1   ? "received"
                            : packet.direction == 2 ? "sent"
                                                    : "-";
    fprintf(out, "#%llu %s %s %s", static_cast<unsigned long long>(number),
            timeText(packet.timestamp, interface.unitsPerSecond).c_str(), interface.name.c_str(),
            direction);
    if (packet.hasDropCount && packet.dropCount)
        fprintf(out, " (%llu frames dropped before this one)",
                static_cast<unsigned long long>(packet.dropCount));

    const unsigned char* p = packet.data.data();
    const size_t size = packet.data.size();
    if (size < mup::kFrameHeaderSize || le32(p) != mup::kFrameMagic) {
        fprintf(out, "\n    not a libmup frame (%zu bytes)\n", size);
        return;
    }
    const uint16_t version = static_cast<uint16_t>(p[4] | p[5] << 8);
    const uint16_t kind = static_cast<uint16_t>(p[6] | p[7] << 8);
    const uint32_t sequence = le32(p + 8);
    const uint32_t command = le32(p + 12);
    const uint32_t length = le32(p + 16);
    const size_t captured = size - mup::kFrameHeaderSize;
    const size_t payloadSize = length < captured ? length : captured;

    const zor::wire::Decoding decoding =
        zor::wire::decodePayload(command, kind == static_cast<uint16_t>(mup::FrameKind::Reply),
                                 p + mup::kFrameHeaderSize, payloadSize);
    fprintf(out, "\n    %s #%u 0x%08x %s", kindName(kind), sequence, command,
            decoding.command.c_str());
    if (!decoding.commandClass.empty())
        fprintf(out, " [class %s]", decoding.commandClass.c_str());
    fprintf(out, " %u bytes", length);
    if (version != mup::kFrameVersion)
        fprintf(out, " (frame version %u)", version);
    fprintf(out, "\n");
    if (payloadSize < length)
        fprintf(out, "    payload cut: %zu of %u bytes captured\n", payloadSize, length);
    for (const zor::wire::DecodedField& field : decoding.fields)
        fprintf(out, "    %s = %s\n", field.name.c_str(), field.value.c_str());
    for (const std::string& note : decoding.notes)
        fprintf(out, "    note: %s\n", note.c_str());
}

int decodeFile(const std::string& path)
{
    std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "rb"), fclose);
    if (!file) {
        complain("%s: %s", path.c_str(), strerror(errno));
        return kExitRefused;
    }
    // zorctl's own standard output: the library's lines go elsewhere.
    FILE* out = answerStream();
    PcapngReader reader(file.get());
    PcapngBlock block;
    uint64_t packets = 0;
    while (reader.next(&block)) {
        switch (block.type) {
        case PcapngBlock::Type::Section:
            fprintf(out, "section:");
            for (const std::string& comment : block.comments)
                fprintf(out, " %s;", comment.c_str());
            if (!block.application.empty())
                fprintf(out, " %s;", block.application.c_str());
            if (!block.os.empty())
                fprintf(out, " %s", block.os.c_str());
            fprintf(out, "\n");
            break;
        case PcapngBlock::Type::Interface: {
            const PcapngInterface& interface = reader.interfaces()[block.interface];
            fprintf(out, "interface %u: %s", block.interface, interface.name.c_str());
            if (!interface.description.empty())
                fprintf(out, " (%s)", interface.description.c_str());
            if (interface.linkType != kLinkTypeUser0)
                fprintf(out, " link type %u: not libmup frames", interface.linkType);
            fprintf(out, "\n");
            break;
        }
        case PcapngBlock::Type::Packet: {
            ++packets;
            const PcapngInterface& interface = reader.interfaces()[block.interface];
            if (interface.linkType != kLinkTypeUser0) {
                fprintf(out, "#%llu %s: not a libmup frame\n",
                        static_cast<unsigned long long>(packets), interface.name.c_str());
                break;
            }
            printFrame(out, packets, block, interface);
            break;
        }
        case PcapngBlock::Type::Statistics: {
            const PcapngInterface& interface = reader.interfaces()[block.interface];
            fprintf(out, "statistics of %s at %s:", interface.name.c_str(),
                    timeText(block.timestamp, interface.unitsPerSecond).c_str());
            if (block.hasReceived)
                fprintf(out, " %llu frames", static_cast<unsigned long long>(block.received));
            if (block.hasDropped)
                fprintf(out, ", %llu dropped", static_cast<unsigned long long>(block.dropped));
            fprintf(out, "\n");
            break;
        }
        }
    }
    fflush(out);
    if (!reader.error().empty()) {
        complain("%s: %s", path.c_str(), reader.error().c_str());
        return kExitRefused;
    }
    return 0;
}

} // namespace

void addDecodeCommand(CLI::App& app, Invocation& invocation)
{
    CLI::App* command =
        app.add_subcommand("decode", "Print the libmup frames of a pcapng capture, decoded");
    auto path = arg<std::string>();
    command->add_option("file", *path, "Capture file (ZOR_MUP_CAPTURE=FILE, tvsim --capture)")
        ->required();
    command->callback([&invocation, path] {
        invocation.needs = Needs::Nothing;
        invocation.action = [path] { return decodeFile(*path); };
    });
}

} // namespace zorctl
