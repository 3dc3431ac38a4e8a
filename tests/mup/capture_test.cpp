// SPDX-License-Identifier: MIT
// The pcapng capture of the messaging layer: the file it makes (and refuses
// to make), the blocks it writes byte by byte, the frames it drops and
// counts when its buffer is full, concurrent callers, forked children.
#include "mup/capture.h"
#include "mup/frame.h"
#include "mup_test_util.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

using mup::capture::Direction;
using mup_test::Bytes;

std::string temporaryDirectory()
{
    char path[] = "/tmp/zor-capture-test-XXXXXX";
    return mkdtemp(path) ? path : "";
}

Bytes fileBytes(const std::string& path)
{
    const std::string text = mup_test::readFile(path);
    return Bytes(text.begin(), text.end());
}

uint32_t le32(const Bytes& b, size_t at)
{
    return uint32_t{b[at]} | uint32_t{b[at + 1]} << 8 | uint32_t{b[at + 2]} << 16 |
           uint32_t{b[at + 3]} << 24;
}

uint64_t le64(const Bytes& b, size_t at)
{
    return uint64_t{le32(b, at)} | uint64_t{le32(b, at + 4)} << 32;
}

struct Block {
    uint32_t type;
    Bytes body; // between the two length words
};

// Splits the file into its blocks, checking each block's framing.
std::vector<Block> blocksOf(const Bytes& file)
{
    std::vector<Block> blocks;
    size_t at = 0;
    while (at + 12 <= file.size()) {
        const uint32_t length = le32(file, at + 4);
        EXPECT_EQ(length % 4, 0u);
        EXPECT_LE(at + length, file.size());
        if (length < 12 || at + length > file.size())
            break;
        EXPECT_EQ(le32(file, at + length - 4), length) << "trailing length of block at " << at;
        blocks.push_back(
            {le32(file, at), Bytes(file.begin() + at + 8, file.begin() + at + length - 4)});
        at += length;
    }
    EXPECT_EQ(at, file.size()) << "the file ends inside a block";
    return blocks;
}

// The options of a block body from `offset`: code -> value bytes.
std::vector<std::pair<uint16_t, Bytes>> optionsOf(const Bytes& body, size_t offset)
{
    std::vector<std::pair<uint16_t, Bytes>> options;
    while (offset + 4 <= body.size()) {
        const uint16_t code = static_cast<uint16_t>(body[offset] | body[offset + 1] << 8);
        const uint16_t length = static_cast<uint16_t>(body[offset + 2] | body[offset + 3] << 8);
        if (code == 0)
            break;
        options.push_back(
            {code, Bytes(body.begin() + offset + 4, body.begin() + offset + 4 + length)});
        offset += 4 + (length + 3u) / 4 * 4;
    }
    return options;
}

// "4d 3c" -> {0x4d, 0x3c}
Bytes hexBytes(const std::string& text)
{
    Bytes out;
    std::istringstream words(text);
    for (std::string word; words >> word;)
        out.push_back(static_cast<unsigned char>(std::stoul(word, nullptr, 16)));
    return out;
}

void writeFile(const std::string& path, const std::string& content)
{
    std::ofstream(path) << content;
}

Bytes textBytes(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

uint64_t nowMicroseconds()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return uint64_t(now.tv_sec) * 1000000 + uint64_t(now.tv_nsec) / 1000;
}

mup::FrameHeader header(mup::FrameKind kind, uint32_t sequence, uint32_t command, uint32_t size)
{
    mup::FrameHeader h;
    h.kind = kind;
    h.sequence = sequence;
    h.command = command;
    h.payloadSize = size;
    return h;
}

class CaptureTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_dir = temporaryDirectory();
        ASSERT_FALSE(m_dir.empty());
        m_path = m_dir + "/frames.pcapng";
    }

    void TearDown() override
    {
        mup::capture::holdWriter(false);
        mup::capture::stop();
        mup_test::removeTree(m_dir);
    }

    std::string m_dir;
    std::string m_path;
};

TEST_F(CaptureTest, RefusesExistingFilesAndLinks)
{
    const std::string existing = m_dir + "/existing";
    writeFile(existing, "keep me");
    const std::string dangling = m_dir + "/dangling";
    ASSERT_EQ(symlink((m_dir + "/nowhere").c_str(), dangling.c_str()), 0);
    const std::string toExisting = m_dir + "/to-existing";
    ASSERT_EQ(symlink(existing.c_str(), toExisting.c_str()), 0);

    const struct {
        std::string path;
        const char* reason;
    } cases[] = {
        {existing, "exists"},
        {dangling, "exists"},
        {toExisting, "exists"},
        {m_dir + "/no/such/directory", "No such file"},
    };
    for (const auto& c : cases) {
        std::string error;
        EXPECT_FALSE(mup::capture::start(c.path, &error)) << c.path;
        EXPECT_NE(error.find(c.reason), std::string::npos) << c.path << ": " << error;
    }
    EXPECT_EQ(mup_test::readFile(existing), "keep me");
    struct stat info = {};
    EXPECT_NE(lstat((m_dir + "/nowhere").c_str(), &info), 0) << "a link was followed";
}

TEST_F(CaptureTest, NewFileIsTheOwnersAloneWhateverTheUmask)
{
    const mode_t previous = umask(0);
    std::string error;
    const bool started = mup::capture::start(m_path, &error);
    umask(previous);
    ASSERT_TRUE(started) << error;
    struct stat info = {};
    ASSERT_EQ(stat(m_path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);

    std::string second;
    EXPECT_FALSE(mup::capture::start(m_dir + "/other.pcapng", &second));
    EXPECT_NE(second.find("already"), std::string::npos) << second;
}

TEST_F(CaptureTest, WritesSectionInterfacesAndPacketsByteForByte)
{
    std::string error;
    ASSERT_TRUE(mup::capture::start(m_path, &error)) << error;
    const uint64_t before = nowMicroseconds();
    const unsigned char volume[] = {0x25, 0x00, 0x00, 0x00};
    const unsigned char status[] = {0x00, 0x00, 0x00, 0x00};
    mup::capture::frame("svc.a", Direction::Sent, header(mup::FrameKind::Request, 5, 0x18040003, 4),
                        volume);
    mup::capture::frame("svc.a", Direction::Received,
                        header(mup::FrameKind::Reply, 5, 0x18040003, 4), status);
    mup::capture::frame("svc.bb", Direction::Received,
                        header(mup::FrameKind::OneWay, 9, 0x10010007, 0), nullptr);
    const uint64_t after = nowMicroseconds();
    mup::capture::stop();

    const std::vector<Block> blocks = blocksOf(fileBytes(m_path));
    // Section, interface a, two packets, interface bb, one packet, and the
    // statistics of both interfaces.
    ASSERT_EQ(blocks.size(), 8u);
    const uint32_t expectedTypes[] = {0x0A0D0D0A, 1, 6, 6, 1, 6, 5, 5};
    for (size_t i = 0; i < blocks.size(); ++i)
        EXPECT_EQ(blocks[i].type, expectedTypes[i]) << "block " << i;

    const Bytes& section = blocks[0].body;
    EXPECT_EQ(Bytes(section.begin(), section.begin() + 16),
              hexBytes("4d 3c 2b 1a 01 00 00 00 ff ff ff ff ff ff ff ff"));
    const auto sectionOptions = optionsOf(section, 16);
    ASSERT_FALSE(sectionOptions.empty());
    EXPECT_EQ(sectionOptions[0].first, 1); // comment
    EXPECT_EQ(sectionOptions[0].second, textBytes("pid " + std::to_string(getpid())));

    // USER0, reserved, 256 KiB snap length; name, description, microseconds.
    const Bytes& interfaceA = blocks[1].body;
    EXPECT_EQ(Bytes(interfaceA.begin(), interfaceA.begin() + 8),
              hexBytes("93 00 00 00 00 00 04 00"));
    const auto optionsA = optionsOf(interfaceA, 8);
    ASSERT_EQ(optionsA.size(), 3u);
    EXPECT_EQ(optionsA[0], std::make_pair(uint16_t{2}, textBytes("svc.a")));
    EXPECT_EQ(optionsA[1].first, 3);
    EXPECT_EQ(optionsA[1].second,
              textBytes("libmup frames of svc.a in pid " + std::to_string(getpid())));
    EXPECT_EQ(optionsA[2], std::make_pair(uint16_t{9}, Bytes{6}));
    EXPECT_EQ(optionsOf(blocks[4].body, 8)[0], std::make_pair(uint16_t{2}, textBytes("svc.bb")));

    struct ExpectedPacket {
        size_t block;
        uint32_t interface;
        const char* frame; // header and payload
        uint8_t flags;     // 1 inbound, 2 outbound
    };
    const ExpectedPacket packets[] = {
        {2, 0, "5a 4d 55 50 01 00 01 00 05 00 00 00 03 00 04 18 04 00 00 00 25 00 00 00", 2},
        {3, 0, "5a 4d 55 50 01 00 03 00 05 00 00 00 03 00 04 18 04 00 00 00 00 00 00 00", 1},
        {5, 1, "5a 4d 55 50 01 00 02 00 09 00 00 00 07 00 01 10 00 00 00 00", 1},
    };
    for (const ExpectedPacket& p : packets) {
        const Bytes& body = blocks[p.block].body;
        const Bytes frame = hexBytes(p.frame);
        EXPECT_EQ(le32(body, 0), p.interface);
        const uint64_t stamp = uint64_t{le32(body, 4)} << 32 | le32(body, 8);
        EXPECT_GE(stamp, before);
        EXPECT_LE(stamp, after);
        EXPECT_EQ(le32(body, 12), frame.size()); // captured
        EXPECT_EQ(le32(body, 16), frame.size()); // original
        EXPECT_EQ(Bytes(body.begin() + 20, body.begin() + 20 + frame.size()), frame);
        const auto options = optionsOf(body, 20 + (frame.size() + 3) / 4 * 4);
        ASSERT_EQ(options.size(), 1u) << "block " << p.block;
        EXPECT_EQ(options[0], std::make_pair(uint16_t{2}, Bytes{p.flags, 0, 0, 0}));
    }

    // Statistics: frames seen (option 4) and dropped (option 5) per interface.
    for (uint32_t i = 0; i < 2; ++i) {
        const Bytes& body = blocks[6 + i].body;
        EXPECT_EQ(le32(body, 0), i);
        const auto options = optionsOf(body, 12);
        ASSERT_GE(options.size(), 2u);
        EXPECT_EQ(options[0].first, 4);
        EXPECT_EQ(le64(options[0].second, 0), i == 0 ? 2u : 1u);
        EXPECT_EQ(options[1].first, 5);
        EXPECT_EQ(le64(options[1].second, 0), 0u);
    }
}

TEST_F(CaptureTest, FullBufferDropsFramesAndTheFileCountsThem)
{
    std::string error;
    ASSERT_TRUE(mup::capture::start(m_path, &error)) << error;
    mup::capture::holdWriter(true);

    // Larger than a packet may be: each is cut to the snap length.
    const uint32_t payloadSize = 300 * 1024;
    const Bytes payload(payloadSize, 0xAB);
    const uint64_t droppedBefore = mup::capture::dropped();
    uint32_t recorded = 0;
    while (mup::capture::dropped() - droppedBefore < 3 && recorded < 100) {
        mup::capture::frame("svc.big", Direction::Sent,
                            header(mup::FrameKind::OneWay, recorded, 0x18040003, payloadSize),
                            payload.data());
        ++recorded;
    }
    const uint64_t dropped = mup::capture::dropped() - droppedBefore;
    ASSERT_EQ(dropped, 3u) << "the buffer never filled";
    mup::capture::holdWriter(false);
    // Once there is room again, the next packet carries the count.
    const unsigned char word[] = {1, 0, 0, 0};
    mup::capture::frame("svc.big", Direction::Sent,
                        header(mup::FrameKind::OneWay, 1000, 0x18040003, 4), word);
    ++recorded;
    mup::capture::stop();

    const std::vector<Block> blocks = blocksOf(fileBytes(m_path));
    uint32_t packets = 0;
    uint64_t reportedDrops = 0;
    uint64_t statisticsDrops = 0;
    uint64_t statisticsFrames = 0;
    for (const Block& block : blocks) {
        if (block.type == 6) {
            ++packets;
            const uint32_t captured = le32(block.body, 12);
            const uint32_t original = le32(block.body, 16);
            if (original > mup::capture::kSnapLength)
                EXPECT_EQ(captured, mup::capture::kSnapLength);
            else
                EXPECT_EQ(captured, original);
            for (const auto& option : optionsOf(block.body, 20 + (captured + 3) / 4 * 4)) {
                if (option.first == 4)
                    reportedDrops += le64(option.second, 0);
            }
        } else if (block.type == 5) {
            for (const auto& option : optionsOf(block.body, 12)) {
                if (option.first == 4)
                    statisticsFrames = le64(option.second, 0);
                if (option.first == 5)
                    statisticsDrops = le64(option.second, 0);
            }
        }
    }
    EXPECT_EQ(packets + dropped, recorded);
    EXPECT_EQ(reportedDrops, dropped) << "the packet after the drops carries their count";
    EXPECT_EQ(statisticsDrops, dropped);
    EXPECT_EQ(statisticsFrames, recorded);
}

TEST_F(CaptureTest, ConcurrentCallersLoseNothingUncounted)
{
    std::string error;
    ASSERT_TRUE(mup::capture::start(m_path, &error)) << error;
    constexpr int kThreads = 4;
    constexpr uint32_t kFrames = 300;
    const uint64_t droppedBefore = mup::capture::dropped();
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            const std::string service = "svc." + std::to_string(t);
            const Bytes payload(64, static_cast<unsigned char>(t));
            for (uint32_t i = 0; i < kFrames; ++i)
                mup::capture::frame(service, Direction::Sent,
                                    header(mup::FrameKind::Request, i, 0x18040003, 64),
                                    payload.data());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    mup::capture::stop();
    const uint64_t dropped = mup::capture::dropped() - droppedBefore;

    // Per interface, the sequence numbers come in the order each thread sent them.
    std::vector<int64_t> lastSequence(kThreads, -1);
    uint64_t packets = 0;
    for (const Block& block : blocksOf(fileBytes(m_path))) {
        if (block.type != 6)
            continue;
        ++packets;
        const uint32_t interface = le32(block.body, 0);
        ASSERT_LT(interface, static_cast<uint32_t>(kThreads));
        const uint32_t sequence = le32(block.body, 20 + 8);
        EXPECT_GT(int64_t{sequence}, lastSequence[interface]);
        lastSequence[interface] = sequence;
    }
    EXPECT_EQ(packets + dropped, uint64_t{kThreads} * kFrames);
}

TEST_F(CaptureTest, ForkedChildCapturesNothing)
{
    std::string error;
    ASSERT_TRUE(mup::capture::start(m_path, &error)) << error;
    const unsigned char word[] = {7, 0, 0, 0};
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        mup::capture::frame("svc.child", Direction::Sent,
                            header(mup::FrameKind::OneWay, 1, 0x18040003, 4), word);
        mup::capture::stop();
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    mup::capture::frame("svc.parent", Direction::Sent,
                        header(mup::FrameKind::OneWay, 2, 0x18040003, 4), word);
    mup::capture::stop();

    uint32_t interfaces = 0;
    uint32_t packets = 0;
    for (const Block& block : blocksOf(fileBytes(m_path))) {
        interfaces += block.type == 1;
        packets += block.type == 6;
    }
    EXPECT_EQ(interfaces, 1u);
    EXPECT_EQ(packets, 1u);
}

} // namespace
