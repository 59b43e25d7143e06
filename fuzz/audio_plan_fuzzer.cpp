// The audio block plan for any block and freeze lookup: every piece must lie inside the split
// block, and filling it must read only the block's own bytes (AddressSanitizer watches both).
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <vector>

#include "audio/audio_block_plan.h"

namespace {

constexpr uint32_t kMaxBlock = 1 << 16;  // bytes; keeps one input to microseconds
constexpr uint32_t kPiecesChecked = 64;  // the first ones and the last

template <class T>
T Any(FuzzedDataProvider& in) {
    if constexpr (sizeof(T) == 8 && !std::is_integral_v<T>) {
        return in.ConsumeBool() ? std::bit_cast<double>(in.ConsumeIntegral<uint64_t>())
                                : in.ConsumeFloatingPointInRange(-1e7, 1e7);
    } else if constexpr (!std::is_integral_v<T>) {
        return in.ConsumeBool() ? std::bit_cast<float>(in.ConsumeIntegral<uint32_t>())
                                : in.ConsumeFloatingPointInRange(-1e7f, 1e7f);
    } else {
        return in.ConsumeIntegral<T>();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    vexel::AudioBlockInput input;
    // The audio sink refuses empty samples, so a plan is never made for an empty block (with one,
    // Piece divides by zero).
    input.size = in.ConsumeIntegralInRange<uint32_t>(1, kMaxBlock);
    input.start = Any<int64_t>(in);
    input.stop = Any<int64_t>(in);
    input.shiftStart = Any<float>(in);
    input.lastStart = Any<double>(in);
    input.shiftStop = Any<float>(in);
    input.lastStop = Any<double>(in);
    input.lastDuration = Any<double>(in);
    input.bytesPerMs = Any<uint32_t>(in);
    input.frameBytes = Any<uint32_t>(in);

    const vexel::AudioBlockPlan plan(input);
    if (plan.HeadBytes() > input.size || plan.TailBytes() > input.size - plan.HeadBytes())
        std::abort();
    const std::vector<uint8_t> block(input.size, 0x5a);
    std::vector<uint8_t> out;
    const uint32_t count = plan.PieceCount();
    for (uint32_t i = 0; i < count; ++i) {
        if (i == kPiecesChecked && count > kPiecesChecked + 1) i = count - 1;
        const vexel::AudioPiece piece = plan.Piece(i);
        if (piece.offset > plan.TotalBytes() || piece.size > plan.TotalBytes() - piece.offset)
            std::abort();
        out.assign(piece.size, 0);
        plan.Fill(block.data(), piece, out.data(), 0);
    }
    return 0;
}
