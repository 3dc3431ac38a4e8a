// SPDX-License-Identifier: MIT
// The far-field pipeline's own state, one for the process.
#include "audio/ffm_pipeline.h"

#include "base/no_destructor.h"

namespace zor::audio::ffm
{

FarFieldPipeline& pipeline()
{
    static zor::NoDestructor<FarFieldPipeline> instance;
    return *instance;
}

void setParams(const Params& settings)
{
    pipeline().params.set(settings);
}

Params params()
{
    return pipeline().params.get();
}

bool ringReady()
{
    std::lock_guard<std::mutex> lock(pipeline().ringMutex);
    return stRingBufCfg.bInitFlag != 0;
}

uint64_t ringSamplesWritten()
{
    std::lock_guard<std::mutex> lock(pipeline().ringMutex);
    return stRingBufCfg.u64CurrentIndex;
}

} // namespace zor::audio::ffm
