// SPDX-License-Identifier: MIT
// Writes the Wireshark dissector for libmup frames: the template's
// "@ZMUP_TABLES@" line is replaced with Lua tables made from the command
// tables and record layouts that the library itself encodes with.
//
//   zor-dissector-generator TEMPLATE OUTPUT
#include "mup/frame.h"
#include "transport/command_table.h"
#include "transport/inbound_command_table.h"
#include "transport/record_layout.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace
{

using namespace zor::wire;

const char* typeName(FieldType type)
{
    switch (type) {
    case FieldType::U8:
        return "u8";
    case FieldType::I8:
        return "i8";
    case FieldType::U16:
        return "u16";
    case FieldType::U32:
        return "u32";
    case FieldType::I32:
        return "i32";
    case FieldType::Text:
        return "text";
    case FieldType::Bytes:
        return "bytes";
    }
    return "bytes";
}

const char* requestName(RequestShape shape)
{
    switch (shape) {
    case RequestShape::NoRecord:
        return "norecord";
    case RequestShape::Empty:
        return "empty";
    case RequestShape::Record:
        return "record";
    case RequestShape::ListCount:
        return "listcount";
    case RequestShape::CountedString:
        return "countedstring";
    case RequestShape::BrowserCerts:
        return "browsercerts";
    }
    return "empty";
}

const char* replyName(ReplyShape shape)
{
    switch (shape) {
    case ReplyShape::None:
        return "none";
    case ReplyShape::Record:
        return "record";
    case ReplyShape::List:
        return "list";
    }
    return "none";
}

// A Lua string literal.
std::string quoted(const char* text)
{
    std::string out = "\"";
    for (const char* c = text; *c; ++c) {
        if (*c == '"' || *c == '\\')
            out += '\\';
        out += *c;
    }
    return out + "\"";
}

std::string hex(uint32_t value)
{
    char text[16];
    snprintf(text, sizeof(text), "0x%08X", value);
    return text;
}

void writeField(std::ostream& out, const char* name, FieldType type, uint32_t offset, uint32_t size)
{
    out << "            { name = " << quoted(name) << ", type = \"" << typeName(type)
        << "\", offset = " << offset << ", size = " << size << " },\n";
}

void writeTables(std::ostream& out)
{
    out << "-- Generated from the command tables; do not edit.\n";
    out << "local FRAME = {\n    magic = " << hex(mup::kFrameMagic)
        << ",\n    header_size = " << mup::kFrameHeaderSize
        << ",\n    reply_kind = " << static_cast<unsigned>(mup::FrameKind::Reply)
        << ",\n    kinds = { [" << static_cast<unsigned>(mup::FrameKind::Request)
        << "] = \"Request\", [" << static_cast<unsigned>(mup::FrameKind::OneWay)
        << "] = \"OneWay\", [" << static_cast<unsigned>(mup::FrameKind::Reply)
        << "] = \"Reply\" },\n}\n\n";

    size_t layoutCount = 0;
    const RecordLayout* const* layouts = allRecordLayouts(&layoutCount);
    out << "local LAYOUTS = {\n";
    for (size_t i = 0; i < layoutCount; ++i) {
        const RecordLayout& layout = *layouts[i];
        out << "    " << layout.key << " = {\n        type = " << quoted(layout.typeName)
            << ",\n        size = " << layout.size << ",\n";
        if (layout.countName)
            out << "        count = " << quoted(layout.countName) << ",\n";
        out << "        fields = {\n";
        for (size_t f = 0; f < layout.fieldCount; ++f) {
            const RecordField& field = layout.fields[f];
            writeField(out, field.name, field.type, field.offset, field.size);
        }
        out << "        },\n    },\n";
    }
    out << "}\n\n";

    out << "local SHAPES = {\n    countedstring = {\n        key = \"string\",\n        fields = "
           "{\n";
    writeField(out, kCountedStringFields[0], FieldType::U32, 0, 4);
    writeField(out, kCountedStringFields[1], FieldType::Text, 4, 0);
    out << "        },\n    },\n    browsercerts = {\n        key = \"browser_certs\",\n"
           "        fields = {\n";
    for (int i = 0; i < 4; ++i)
        writeField(out, (std::string(kBrowserCertFields[i]) + "_len").c_str(), FieldType::U32,
                   static_cast<uint32_t>(4 * i), 4);
    for (int i = 0; i < 4; ++i)
        writeField(out, kBrowserCertFields[i], FieldType::Text, 16, 0);
    out << "        },\n    },\n}\n\n";

    out << "local OUTBOUND_CLASSES = {\n";
    for (unsigned number = 1; const CommandClass* owner = commandClass(number); ++number)
        out << "    [" << number << "] = " << quoted(owner->name) << ",\n";
    out << "}\n\nlocal OUTBOUND = {\n";
    for (unsigned number = 1; const CommandClass* owner = commandClass(number); ++number) {
        for (size_t i = 0; i < owner->rowCount; ++i) {
            const CommandRow& row = owner->rows[i];
            const RecordLayout* layout = recordLayout(row.record);
            out << "    [" << hex(row.id) << "] = { name = " << quoted(row.name)
                << ", class = " << number
                << ", layout = " << (layout ? quoted(layout->key) : std::string("nil"))
                << ", request = \"" << requestName(row.request) << "\", reply = \""
                << replyName(row.reply) << "\", rule = \""
                << (row.rule == ReadRule::Guarded ? "guarded" : "unconditional") << "\" },\n";
        }
    }
    out << "}\n\n";

    size_t classCount = 0;
    const InboundClass* const* classes = allInboundClasses(&classCount);
    out << "local INBOUND_CLASSES = {\n";
    for (size_t c = 0; c < classCount; ++c)
        out << "    [" << classes[c]->number << "] = " << quoted(classes[c]->name) << ",\n";
    out << "}\n\nlocal INBOUND = {\n";
    for (size_t c = 0; c < classCount; ++c) {
        const InboundClass& owner = *classes[c];
        for (size_t i = 0; i < owner.commandCount; ++i) {
            const InboundCommand& command = owner.commands[i];
            out << "    [" << hex(command.id) << "] = {\n        name = " << quoted(command.name)
                << ",\n        class = " << owner.number
                << ",\n        pcm = " << (command.pcm ? "true" : "false")
                << ",\n        fields = {\n";
            uint32_t offset = 0;
            for (size_t f = 0; f < command.fieldCount; ++f) {
                const InboundField& field = command.fields[f];
                writeField(out, field.name, field.type, offset, field.size);
                offset += field.size;
            }
            out << "        },\n    },\n";
        }
    }
    out << "}\n";
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: zor-dissector-generator TEMPLATE OUTPUT\n");
        return 2;
    }
    std::ifstream input(argv[1]);
    if (!input) {
        fprintf(stderr, "zor-dissector-generator: cannot read %s\n", argv[1]);
        return 1;
    }
    std::ostringstream tables;
    writeTables(tables);

    std::ostringstream result;
    std::string line;
    bool placed = false;
    while (std::getline(input, line)) {
        if (line == "@ZMUP_TABLES@") {
            result << tables.str();
            placed = true;
        } else {
            result << line << '\n';
        }
    }
    if (!placed) {
        fprintf(stderr, "zor-dissector-generator: %s has no @ZMUP_TABLES@ line\n", argv[1]);
        return 1;
    }
    // Written whole or not at all, so that a failed run leaves no half file.
    const std::string temporary = std::string(argv[2]) + ".tmp";
    std::ofstream output(temporary, std::ios::trunc);
    output << result.str();
    output.close();
    if (!output || std::rename(temporary.c_str(), argv[2]) != 0) {
        fprintf(stderr, "zor-dissector-generator: cannot write %s\n", argv[2]);
        std::remove(temporary.c_str());
        return 1;
    }
    return 0;
}
