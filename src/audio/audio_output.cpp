#include "audio/audio_output.h"

#include <algorithm>

#include "common/log.h"
#include "platform/module.h"

namespace vexel {

namespace {

// Kept for the life of the process: the filters it makes may outlive any one output.
constinit SiblingModule feedModule("libAudioFeedFilter.so",
                                   "LoadLibrary(_T(AudioFeedFilter.dll))  error! \n");

}  // namespace

WAVEFORMATEX MakeWaveFormat(const AudioFormatPayload& format) {
    WAVEFORMATEX wave{};
    wave.wFormatTag = WAVE_FORMAT_PCM;
    wave.nChannels = static_cast<uint16_t>(format.channels);
    wave.nSamplesPerSec = format.samplesPerSecond;
    wave.wBitsPerSample = std::min<uint16_t>(static_cast<uint16_t>(format.bitsPerSample), 16);
    wave.nBlockAlign = static_cast<uint16_t>(wave.wBitsPerSample / 8 * wave.nChannels);
    wave.nAvgBytesPerSec = uint32_t{wave.nBlockAlign} * wave.nSamplesPerSec;
    wave.cbSize = 0;
    return wave;
}

bool AudioOutput::CreateFilters() {
    if (!feedModule.Load()) return false;  // reported by the binding
    _graph.CoCreateInstance(FailThrow);
    const bool made = _source_filter.FilterGetClassObject(_graph, feedModule, CLSID_PcmFeedFilter,
                                                          u"PCM File Source", FailReturn);
    if (made) _pcm_feed.QueryFrom(_source_filter.Filter(), IID_IPcmFeed);
    if (!made || !_pcm_feed) {  // a source without IPcmFeed could never be fed
        LogPrintf("_source_filter->Create error\n");
        return false;
    }
    if (!_audio_render_filter.CoCreateInstance(_graph, CLSID_AudioRenderer, u"audio Renderer",
                                               FailReturn)) {
        LogPrintf("_audio_render_filter->Create error\n");
        return false;
    }
    return true;
}

void AudioOutput::SetFormat(const AudioFormatPayload& format) {
    const WAVEFORMATEX wave = MakeWaveFormat(format);
    if (_pcm_feed) _pcm_feed->SetFormat(&wave);
    if (!_source_filter.ConnectTo(_audio_render_filter, 0, 0, FailReturn)) {
        LogPrintf("connect audio filter fail\n");
    }
}

HRESULT AudioOutput::Run(int64_t position) {
    if (position != -1 && _pcm_feed) _pcm_feed->SetStartTime(position);
    return _graph.Run();
}

HRESULT AudioOutput::Pause() { return _graph.Pause(); }

HRESULT AudioOutput::Stop() { return _graph.Stop(); }

void AudioOutput::SetVolume(int32_t volume) {
    CountedRef<IBasicAudio> audio;
    audio.QueryFrom(_audio_render_filter.Filter(), IID_IBasicAudio);
    if (audio) audio->put_Volume(volume);
}

void AudioOutput::EndOfStream() {
    if (_pcm_feed) _pcm_feed->EndOfStream();
}

void AudioOutput::Deliver(const uint8_t* data, uint32_t size, int64_t start, int64_t stop) {
    if (_pcm_feed) _pcm_feed->Deliver(data, size, start, stop);
}

}  // namespace vexel
