// SPDX-License-Identifier: MIT
// Many threads with large calls on one client endpoint, against a forked
// echo service, counting what fails and what comes back wrong:
//
//   mup_stress [THREADS [CALLS [MAX_BYTES]]]     (default 16 2000 1048576)
//
// One call in eight carries up to MAX_BYTES (some exactly that), one in four
// up to 300 KB, the rest up to 4 KB. Prints one line of figures; exits 0 only
// when every call got its own reply back.
#include "bench_support.h"
#include "mup/mup.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace
{

using namespace zor::bench;

constexpr const char* kService = "mup.stress";
constexpr unsigned int kEcho = 1;

class Echo : public OXAPC::C_OXAAVSServerHandler
{
public:
    int handleCommand(unsigned int, MUPParam& in, MUPParam* out, unsigned int) override
    {
        if (out)
            out->write(in.data(), in.size());
        return 0;
    }
};

std::vector<unsigned char> pattern(size_t size, uint32_t seed)
{
    std::vector<unsigned char> bytes(size);
    uint32_t x = seed * 2654435761u + 1;
    for (unsigned char& byte : bytes) {
        x = x * 1103515245u + 12345u;
        byte = static_cast<unsigned char>(x >> 24);
    }
    return bytes;
}

long argument(int argc, char** argv, int index, long fallback)
{
    if (argc <= index)
        return fallback;
    char* end = nullptr;
    const long value = strtol(argv[index], &end, 10);
    if (*end || value <= 0) {
        fprintf(stderr, "mup_stress: '%s' is not a positive number\n", argv[index]);
        exit(2);
    }
    return value;
}

} // namespace

int main(int argc, char** argv)
{
    const int threads = static_cast<int>(argument(argc, argv, 1, 16));
    const int calls = static_cast<int>(argument(argc, argv, 2, 2000));
    const size_t maxBytes = static_cast<size_t>(argument(argc, argv, 3, 1048576));

    const std::string runtime = makeRuntimeDir("/tmp/mup-stress-XXXXXX", "mup_stress");
    if (runtime.empty())
        return 2;

    const pid_t server = startServerPeer(-1, [] {
        static Echo echo;
        return initAVSServer(kService, &echo) == 0;
    });
    if (server < 0 || OXA_TVC_NewClient(kService) != 0) {
        fprintf(stderr, "mup_stress: the echo service did not start\n");
        stopPeer(server);
        removeRuntimeDir(runtime, kService);
        return 2;
    }

    std::atomic<long> failures{0};
    std::atomic<long> mismatches{0};
    std::atomic<long long> bytes{0};
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < calls; ++i) {
                const uint32_t seed =
                    static_cast<uint32_t>(t) * 1000003u + static_cast<uint32_t>(i);
                const uint32_t r = seed * 2246822519u >> 8;
                size_t size = r % 4096;
                if (i % 8 == 0)
                    size = (t + i) % 5 == 0 ? maxBytes : r % (maxBytes + 1);
                else if (i % 4 == 1)
                    size = r % (std::min<size_t>(300000, maxBytes) + 1);
                const std::vector<unsigned char> request = pattern(size, seed);
                MUPParam in;
                in.write(request.data(), static_cast<unsigned int>(request.size()));
                MUPParam out;
                if (OXA_TVC_TransmitCommand(kEcho, in, &out, 0) != 0) {
                    ++failures;
                    continue;
                }
                if (out.size() != request.size() ||
                    !std::equal(request.begin(), request.end(), out.data()))
                    ++mismatches;
                bytes += static_cast<long long>(size);
            }
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    stopPeer(server);
    removeRuntimeDir(runtime, kService);

    printf("mup_stress: %d threads x %d calls, payloads up to %zu bytes: %ld failed, %ld "
           "mismatched, %.1f MB echoed in %.1f s\n",
           threads, calls, maxBytes, failures.load(), mismatches.load(), bytes.load() / 1e6,
           seconds);
    return failures.load() == 0 && mismatches.load() == 0 ? 0 : 1;
}
