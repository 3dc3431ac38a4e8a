// SPDX-License-Identifier: MIT
// The far-field capture thread allocates nothing per period: every heap
// allocation made on that thread is counted while it streams live periods
// to the application. It replaces malloc, which a sanitizer owns: the build
// leaves it out of the sanitizer builds.
#include "tests/audio/ffm_harness.h"
#include "zor/zor_audio.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <pthread.h>

namespace
{

thread_local unsigned long allocationsOnThisThread = 0;

} // namespace

#include <malloc.h> // memalign's declaration

// Every allocation of the process, libasound's and libzor's included, goes
// through these; they count per thread and hand over to the C library.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);

void* malloc(size_t size)
{
    ++allocationsOnThisThread;
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size)
{
    ++allocationsOnThisThread;
    return __libc_calloc(count, size);
}
void* realloc(void* p, size_t size)
{
    ++allocationsOnThisThread;
    return __libc_realloc(p, size);
}
void* memalign(size_t alignment, size_t size)
{
    ++allocationsOnThisThread;
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** out, size_t alignment, size_t size)
{
    ++allocationsOnThisThread;
    *out = __libc_memalign(alignment, size);
    return *out != nullptr ? 0 : 12;
}
void* aligned_alloc(size_t alignment, size_t size)
{
    ++allocationsOnThisThread;
    return __libc_memalign(alignment, size);
}
}

namespace
{

using namespace zor::test;

constexpr int kWarmUpPeriods = 10;
constexpr int kCountedPeriods = 100;

std::atomic<int> periods{0};
std::atomic<unsigned long> atWarmUp{0};
std::atomic<unsigned long> atEnd{0};

// Runs on the capture thread, once per live period.
int countPeriod(void*, unsigned int bytes)
{
    if (bytes != 640)
        return 0;
    const int period = ++periods;
    if (period == kWarmUpPeriods)
        atWarmUp = allocationsOnThisThread;
    if (period == kWarmUpPeriods + kCountedPeriods)
        atEnd = allocationsOnThisThread;
    return 0;
}

TEST(FfmAllocationTest, LivePeriodsAllocateNothingOnTheCaptureThread)
{
    FfmBench bench;
    ASSERT_TRUE(bench.startPipeline());
    KEL_AVS_FFM_RegisterffmsendAudioPCMDCallback(countPeriod);
    KEL_AVS_FFM_NotifyActionButtonPressed();
    KEL_AVS_FFM_TrigSendPCMData(true);
    ASSERT_TRUE(waitFor([] { return periods.load() >= kWarmUpPeriods + kCountedPeriods; },
                        kCountedPeriods * 20 + 5000));
    KEL_AVS_FFM_TrigSendPCMData(false);
    EXPECT_GT(atWarmUp.load(), 0u) << "the counting hooks are not in place";
    EXPECT_EQ(atEnd.load() - atWarmUp.load(), 0u)
        << "allocations in " << kCountedPeriods << " capture periods";
}

} // namespace
