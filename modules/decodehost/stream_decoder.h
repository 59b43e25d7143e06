// StreamDecoder: decodes one stream of a MediaFile from any position. Seek positions it on the
// keyframe before a media time; Next then returns the decoded frames in presentation order with
// their media times, skipping packets the decoder rejects, until the end of the stream or of
// what a truncated file holds.
//
// Threads: used by one thread at a time (the reader's delivery thread once playback runs).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "av_ptr.h"
#include "frame_pool.h"
#include "media_file.h"

namespace vexel::decodehost {

class StreamDecoder {
public:
    // Opens the decoder of stream `index` with threads bounded to the machine; null when the
    // stream cannot be decoded. `file` must outlive the decoder.
    static std::unique_ptr<StreamDecoder> Open(MediaFile& file, int index);

    AVCodecContext* codec() const { return codec_.get(); }
    AVStream* stream() const { return stream_; }
    // Video: frames per second (0.0 when unknown) and the frame interval in ticks (0 then).
    double frameRate() const { return frameRate_; }
    int64_t frameInterval() const { return frameInterval_; }

    // Positions on the latest keyframe from which Next returns every frame starting at or after
    // `ticks` (for sound, also the block holding `ticks`): a keyframe less than a frame after
    // `ticks` is the first such frame itself; otherwise the keyframe at or before `ticks`, or one
    // further back where the first picture starts too late. Already between that keyframe and
    // `ticks`, it reads on from where it is instead. Until the pictures reach `ticks`, the
    // decoder skips those no other picture refers to: Next returns only the reference pictures
    // before it.
    void Seek(int64_t ticks);

    // Pictures decoded by every decoder of the process so far.
    static uint64_t PicturesForTesting() { return pictures_.load(); }

    // The next decoded frame (owned by the decoder, valid until the next call) with its start in
    // media time, or null at the end of the stream.
    AVFrame* Next(int64_t* ticks);

private:
    StreamDecoder(MediaFile& file, AVStream* stream) : file_(file), stream_(stream) {}
    bool DecodesOnTo(int64_t ticks);  // reading on reaches `ticks` sooner than a seek
    void SeekTo(int64_t ticks);       // by time, to the keyframe at or before `ticks`
    bool Rewind();                    // to the first byte; false where the container cannot
    void Reset(int64_t ticks);        // forgets decoder state after a seek
    bool DecodeFirst();               // decodes the first picture after a seek into the pending one
    AVFrame* Decode(int64_t* ticks);
    void FeedPacket();   // sends the next packet of the stream, or the end of input
    void SetSkipping();  // whether the decoder may drop the packet about to be sent
    int64_t FrameTicks(const AVFrame* frame);

    MediaFile& file_;
    AVStream* stream_;
    FramePool framePool_;  // before codec_: the decoder takes its pictures from it
    CodecPtr codec_;
    FramePtr frame_;
    PacketPtr packet_;
    bool fresh_ = true;         // nothing read since the file was opened
    bool inputEnded_ = false;   // the decoder was sent the end of input
    bool packetHeld_ = false;   // packet_ waits to be sent again
    bool havePending_ = false;  // frame_ holds a frame decoded by Seek, not yet returned
    int64_t pendingTicks_ = 0;
    int64_t nextTicks_ = 0;  // expected start of the next frame, for frames without a time
    int64_t returned_ = -1;  // start of the frame Next returned last; -1 after a seek
    int64_t target_ = 0;     // the last seek's target: pictures before it may be skipped
    double frameRate_ = 0.0;
    int64_t frameInterval_ = 0;
    static std::atomic<uint64_t> pictures_;
};

}  // namespace vexel::decodehost
