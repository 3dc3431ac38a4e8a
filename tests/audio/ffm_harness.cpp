#include "tests/audio/ffm_harness.h"

#include "audio/ffm_pipeline.h"
#include "audio/xmos_device.h"
#include "zor/zor_audio.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

namespace zor::test
{

namespace
{

int onPcm(void* data, unsigned int bytes)
{
    FfmApplication& app = FfmApplication::instance();
    std::lock_guard<std::mutex> lock(app.mutex);
    const auto* p = static_cast<const uint8_t*>(data);
    app.received.insert(app.received.end(), p, p + bytes);
    app.callSizes.push_back(bytes);
    return 0;
}

int onWakeWord(unsigned int begin, unsigned int end, char* keyword, unsigned int length,
               char* metadata)
{
    FfmApplication& app = FfmApplication::instance();
    bool stream = false;
    {
        std::lock_guard<std::mutex> lock(app.mutex);
        app.wakeWordAt = std::chrono::steady_clock::now();
        ++app.wakeWords;
        app.begin = begin;
        app.end = end;
        app.keyword = keyword;
        app.metadata.assign(metadata, metadata + length);
        stream = app.streamOnWakeWord;
    }
    if (stream)
        KEL_AVS_FFM_TrigSendPCMData(true);
    return 0;
}

int onNotify()
{
    FfmApplication& app = FfmApplication::instance();
    std::lock_guard<std::mutex> lock(app.mutex);
    ++app.notifications;
    return 0;
}

} // namespace

FfmApplication& FfmApplication::instance()
{
    static FfmApplication app;
    return app;
}

void FfmApplication::clear()
{
    std::lock_guard<std::mutex> lock(mutex);
    received.clear();
    callSizes.clear();
    wakeWords = 0;
    begin = end = 0;
    keyword.clear();
    metadata.clear();
    notifications = 0;
    streamOnWakeWord = true;
}

FfmBench::FfmBench()
{
    using namespace audio::ffm;
    const std::string socket = m_alsa.dir() + "/xmos.sock";
    audio::setXmosDeviceOpener([socket](const audio::XmosOpenParams& params) {
        return audio::openSimulatedXmosDevice(socket.c_str(), params);
    });
    Params settings;
    settings.dumpDir = m_alsa.dumpDir();
    settings.captureOpenAttempts = 3;
    settings.captureOpenDelayMs = 20;
    settings.hidOpenAttempts = 50;
    settings.hidOpenDelayMs = 20;
    settings.metadataScript = "";
    settings.metadataFile = metadataFile();
    setParams(settings);

    std::string error;
    if (!m_board.start(socket, m_alsa.dir() + "/pcm1,0.in", &error))
        ADD_FAILURE() << error;
    FfmApplication::instance().clear();
    KEL_AVS_FFM_RegisterffmsendAudioPCMDCallback(onPcm);
    KEL_AVS_FFM_RegisterSendWakeWordDetectionSignalCallback(onWakeWord);
    KEL_AVS_FFM_RegisterSendNotifyUIWakeWordDectCallback(onNotify);
}

FfmBench::~FfmBench()
{
    KEL_AVS_FFM_TriggerCaptureData(0);
    if (!waitStopped())
        ADD_FAILURE() << "the far-field threads did not end";
    m_board.stop();
    youtube_softmic_alsa_write_stop();
    audio::setXmosDeviceOpener(nullptr);
}

bool FfmBench::running()
{
    using namespace audio::ffm;
    bool ready = false;
    {
        std::lock_guard<std::mutex> lock(ringMutex);
        ready = stRingBufCfg.bInitFlag != 0;
    }
    return ready && captureState() == 0 && detectionState() == 0 && m_board.libraryConnected() &&
           m_board.captureReading();
}

bool FfmBench::startPipeline()
{
    _ST_FFM_INFO info = {1, 1, 0};
    KEL_AVS_FFM_Init(info);
    KEL_AVS_FFM_NotifyAudDSPStatus(1);
    return waitFor([this] { return running(); });
}

bool FfmBench::waitStopped(int timeoutMs)
{
    using namespace audio::ffm;
    return waitFor([] { return captureState() == -1 && detectionState() == -1; }, timeoutMs);
}

std::vector<int16_t> rampSamples(size_t count, uint16_t first)
{
    std::vector<int16_t> samples(count);
    for (size_t k = 0; k < count; ++k)
        samples[k] = static_cast<int16_t>(static_cast<uint16_t>(first + k));
    return samples;
}

std::vector<int16_t> asSamples(const Bytes& bytes)
{
    std::vector<int16_t> samples(bytes.size() / 2);
    for (size_t k = 0; k < samples.size(); ++k)
        samples[k] = static_cast<int16_t>(bytes[2 * k] | (bytes[2 * k + 1] << 8));
    return samples;
}

} // namespace zor::test
