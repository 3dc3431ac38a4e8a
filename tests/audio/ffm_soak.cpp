// SPDX-License-Identifier: MIT
// The far-field pipeline soaked: wake word after wake word in accelerated
// time. The capture is served as fast as it reads, the board's sample count
// follows what it has taken, and the card holds back while a detection is in
// flight. Each keyword block and the speech after it is checked sample for
// sample against the generated signal; descriptors, threads and resident
// memory must stay flat.
//
//   ffm_soak [--wake-words=N] [--verbose]
//
// Prints one line on stdout:
//   soak: N wake words, L samples lost, R repeated, index drift D, X× real time
// and exits 0 when nothing was lost, repeated or drifted and nothing leaked;
// otherwise each failed check is one line on stderr and the exit status is 1.
// The library's own log lines go to /dev/null unless --verbose.
#include "audio/ffm_pipeline.h"
#include "tests/audio/ffm_harness.h"
#include "tests/support/process_counts.h"
#include "zor/zor_audio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>

using namespace zor::test;

namespace
{

constexpr uint64_t kRate = 16000;
constexpr uint64_t kPreroll = 8000;
// Dump files are emptied this often (in wake words), so that a long soak
// does not fill the disk; the library keeps writing at its own offsets.
constexpr unsigned kDumpTruncateInterval = 64;
// Resident memory may move by allocator noise, not by a leak per wake word.
constexpr long kRssSlackKiB = 2048;
// AddressSanitizer's quarantine keeps freed blocks from being reused, so
// resident memory grows without a leak there; its leak checker looks at the
// end of the run instead.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kCheckResidentMemory = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kCheckResidentMemory = false;
#else
constexpr bool kCheckResidentMemory = true;
#endif
#else
constexpr bool kCheckResidentMemory = true;
#endif

unsigned wakeWordCount = 1000;
int summaryFd = -1; // the stdout the process started with

long residentKiB()
{
    long pages = 0;
    long resident = 0;
    std::ifstream statm("/proc/self/statm");
    statm >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Utterance lengths, the same in every run.
class Lengths
{
public:
    uint64_t next(uint64_t low, uint64_t high)
    {
        m_state ^= m_state << 13;
        m_state ^= m_state >> 7;
        m_state ^= m_state << 17;
        return low + m_state % (high - low + 1);
    }

private:
    uint64_t m_state = 0x9E3779B97F4A7C15ull;
};

void emptyDumps(const std::string& dir)
{
    for (const std::string& name : listDir(dir)) {
        if (truncate((dir + name).c_str(), 0) != 0)
            ADD_FAILURE() << "cannot empty the dump file " << name;
    }
}

TEST(FfmSoak, WakeWords)
{
    FfmBench bench(BoardFeed::Fast);
    if (!bench.startPipeline()) {
        ADD_FAILURE() << "the far-field pipeline did not start";
        return;
    }

    Lengths lengths;
    uint64_t lost = 0;
    uint64_t repeated = 0;
    int64_t drift = 0;
    unsigned done = 0;
    unsigned misreported = 0; // wake-word callbacks with other positions
    // Buffers reach their working size in the first wake words; a short run
    // measures over its second half.
    const unsigned warmUp = std::max(std::min(wakeWordCount / 2, 10u), wakeWordCount / 10);
    long rssBefore = 0;
    int fdsBefore = 0;
    int threadsBefore = 0;
    const uint64_t firstIndex = bench.card().deviceIndex();
    const auto start = std::chrono::steady_clock::now();

    for (unsigned k = 0; k < wakeWordCount; ++k) {
        if (k == warmUp) {
            rssBefore = residentKiB();
            fdsBefore = openFdCount();
            threadsBefore = threadCount();
        }
        // Before the first keyword at least the pre-roll; later ones may
        // reach back into the speech of the one before.
        const uint64_t lead = k == 0 ? kPreroll + lengths.next(0, 8000) : lengths.next(0, 16000);
        const uint64_t keyword = lengths.next(4000, 12000);
        const uint64_t speech = lengths.next(0, 32000);
        FfmBench::WakeWord word;
        if (!bench.wakeWord(lead, keyword, speech, &word)) {
            ADD_FAILURE() << "wake word " << k + 1 << ": no detection, or its audio stopped short";
            break;
        }
        const StreamCheck check = word.check(word.keywordBegin - kPreroll);
        lost += check.lost;
        repeated += check.repeated;
        drift = std::max(drift, std::abs(check.drift));
        if (word.begin != kPreroll || word.end != kPreroll + keyword)
            ++misreported;
        if ((k + 1) % kDumpTruncateInterval == 0)
            emptyDumps(bench.alsa().dumpDir());
        ++done;
    }

    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    const double audio =
        static_cast<double>(bench.card().deviceIndex() - firstIndex) / static_cast<double>(kRate);
    const double speed = wall.count() > 0 ? audio / wall.count() : 0;
    if (done > warmUp) {
        const int fds = openFdCount();
        const int threads = threadCount();
        const long grown = residentKiB() - rssBefore;
        if (fds != fdsBefore)
            ADD_FAILURE() << "descriptors went from " << fdsBefore << " to " << fds;
        if (threads != threadsBefore)
            ADD_FAILURE() << "threads went from " << threadsBefore << " to " << threads;
        if (kCheckResidentMemory && grown > kRssSlackKiB)
            ADD_FAILURE() << "resident memory grew by " << grown << " KiB";
    }
    if (lost != 0)
        ADD_FAILURE() << lost << " samples lost";
    if (repeated != 0)
        ADD_FAILURE() << repeated << " samples repeated or out of place";
    if (drift != 0)
        ADD_FAILURE() << "a keyword block started " << drift << " samples away from its place";
    if (misreported != 0)
        ADD_FAILURE() << misreported << " wake-word callbacks placed the keyword elsewhere";

    char line[200];
    const int length = snprintf(line, sizeof(line),
                                "soak: %u wake words, %llu samples lost, %llu repeated, index "
                                "drift %lld, %.*f\u00d7 real time\n",
                                done, static_cast<unsigned long long>(lost),
                                static_cast<unsigned long long>(repeated),
                                static_cast<long long>(drift), speed < 10 ? 1 : 0, speed);
    if (write(summaryFd, line, static_cast<size_t>(length)) != length)
        ADD_FAILURE() << "cannot print the summary";
}

// Failed checks as single lines on stderr; nothing else from the test
// framework.
class FailureLines : public testing::EmptyTestEventListener
{
    void OnTestPartResult(const testing::TestPartResult& result) override
    {
        if (!result.failed())
            return;
        std::string message = result.message();
        if (message.rfind("Failed\n", 0) == 0)
            message.erase(0, 7);
        std::replace(message.begin(), message.end(), '\n', ' ');
        fprintf(stderr, "soak: %s\n", message.c_str());
    }
};

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    bool verbose = false;
    for (int k = 1; k < argc; ++k) {
        const std::string arg = argv[k];
        char* end = nullptr;
        if (arg.rfind("--wake-words=", 0) == 0) {
            const unsigned long count = strtoul(arg.c_str() + 13, &end, 10);
            if (*end != '\0' || count == 0 || count > 10000000) {
                fprintf(stderr, "ffm_soak: bad wake word count %s\n", arg.c_str() + 13);
                return 2;
            }
            wakeWordCount = static_cast<unsigned>(count);
        } else if (arg == "--verbose") {
            verbose = true;
        } else {
            fprintf(stderr, "ffm_soak: unknown argument %s (--wake-words=N, --verbose)\n",
                    arg.c_str());
            return 2;
        }
    }
    // The library logs every step on stdout; the summary keeps the original.
    fflush(stdout);
    summaryFd = dup(STDOUT_FILENO);
    if (!verbose) {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (summaryFd < 0 || null < 0 || dup2(null, STDOUT_FILENO) < 0) {
            fprintf(stderr, "ffm_soak: cannot set stdout aside: %s\n", strerror(errno));
            return 2;
        }
        close(null);
    }
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    std::unique_ptr<testing::TestEventListener> printer(
        listeners.Release(listeners.default_result_printer()));
    listeners.Append(std::make_unique<FailureLines>().release());
    return RUN_ALL_TESTS();
}
