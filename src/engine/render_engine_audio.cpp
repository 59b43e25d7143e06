// The render engine's sound path: building the audio output, volume, and feeding decoded blocks
// through the time-freeze mapping into the graph once the clock has started the sound.
#include <cstring>
#include <vector>

#include "audio/audio_block_plan.h"
#include "common/log.h"
#include "engine/render_engine.h"
#include "vexel/status.h"
#include "vexel/tick_math.h"

namespace vexel {

namespace {

float TicksToMs(int64_t ticks) { return static_cast<float>(ToMs(Ticks(ticks))); }

}  // namespace

void RenderEngine::SetAudioFormat(const MediaFormatPayload& payload) {
    audioOutput_.reset();  // one renderer at a time: the previous output goes first
    try {
        auto output = std::make_unique<AudioOutput>();
        if (!output->CreateFilters()) return;  // no sound for this file
        try {
            output->SetFormat(payload.audio);
        } catch (ComException* failure) {
            delete failure;  // the pins could not be searched: as an unconnected graph
            LogPrintf("connect audio filter fail\n");
        }
        audioOutput_ = std::move(output);
    } catch (ComException* failure) {
        delete failure;  // no graph manager: no sound, like any other creation failure
    } catch (...) {
        // Out of memory: no sound.
    }
}

void RenderEngine::SetVolume(int32_t volume) {
    if (audioOutput_) audioOutput_->SetVolume(volume);
}

void RenderEngine::OnAudioEndOfStream() {
    if (audioOutput_) audioOutput_->EndOfStream();
}

void RenderEngine::WaitForAudioStart() {
    std::unique_lock<std::mutex> guard(stateLock_);
    stateChanged_.wait(guard, [this] { return !audioStartPending_ || Stopping(); });
}

StreamInfo RenderEngine::AudioStreamInfo() const {
    StreamInfo info{};
    std::memcpy(&info, audioStreamInfo_, kAudioStreamInfoBytes);
    return info;
}

int32_t RenderEngine::OnAudioSample(const uint8_t* data, uint32_t size, int64_t startTime,
                                    int64_t stopTime) {
    AudioOutput* output = audioOutput_.get();
    // Without an audio output nothing would ever take the block: drop it at once instead of
    // holding the delivery thread for the whole playback.
    if (output == nullptr) return Stopping() ? ERR_SAMPLE_REFUSED : kOk;

    WaitForAudioStart();
    if (Stopping()) return ERR_SAMPLE_REFUSED;
    if (data == nullptr || size == 0) return kOk;

    const FreezeShift atStart = freezes_.ShiftAt(TicksToMs(startTime));
    const FreezeShift atStop = freezes_.ShiftAt(TicksToMs(stopTime));
    const StreamInfo info = AudioStreamInfo();
    AudioBlockInput input;
    input.size = size;
    input.start = startTime;
    input.stop = stopTime;
    input.shiftStart = atStart.shift;
    input.lastStart = atStart.lastTime;
    input.shiftStop = atStop.shift;
    input.lastStop = atStop.lastTime;
    input.lastDuration = atStop.lastDuration;
    input.bytesPerMs = info.bitsPerSample / 8 * info.samplesPerSecond * info.channels / 1000;
    input.frameBytes = info.bitsPerSample / 8 * info.channels;
    const AudioBlockPlan plan(input);

    // Stream times count from the position the clock started at.
    const double origin = startPosition_.load();
    auto relative = [origin](int64_t time) {
        return TruncateTicks(static_cast<double>(time) - origin);
    };
    if (!plan.Split()) {
        output->Deliver(data, size, relative(plan.MappedStart()), relative(plan.MappedStop()));
        return kOk;
    }
    const uint8_t silence = info.bitsPerSample == 8 ? 0x80 : 0x00;
    std::vector<uint8_t> piece(size);
    for (uint32_t i = 0; i < plan.PieceCount(); ++i) {
        if (Stopping()) return ERR_SAMPLE_REFUSED;
        const AudioPiece p = plan.Piece(i);
        plan.Fill(data, p, piece.data(), silence);
        output->Deliver(piece.data(), p.size, relative(p.start), relative(p.stop));
    }
    return kOk;
}

}  // namespace vexel
