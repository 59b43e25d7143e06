// The converter against libswscale as the oracle: every pixel format the libyuv path takes, in
// every colour matrix and range it maps, must match libswscale's picture within 2 levels a channel
// (3 for 10 and 12-bit samples), with the rows bottom-up. A picture converted late through its
// IPictureSource, top row first into a buffer with longer rows, must be the reader's picture bit
// for bit, also after the reader is gone.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "frame_picture.h"
#include "media_reader.h"
#include "recording_sink.h"
#include "video_converter.h"

namespace vexel::decodehost {
namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;

struct Tag {
    AVColorSpace space;
    AVColorRange range;
    int swsSpace;
};

const Tag kUntagged{AVCOL_SPC_UNSPECIFIED, AVCOL_RANGE_UNSPECIFIED, SWS_CS_ITU601};
const Tag kBt601Full{AVCOL_SPC_SMPTE170M, AVCOL_RANGE_JPEG, SWS_CS_ITU601};
const Tag kBt709{AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, SWS_CS_ITU709};
const Tag kBt709Full{AVCOL_SPC_BT709, AVCOL_RANGE_JPEG, SWS_CS_ITU709};
const Tag kBt2020{AVCOL_SPC_BT2020_NCL, AVCOL_RANGE_MPEG, SWS_CS_BT2020};
const Tag kBt2020Full{AVCOL_SPC_BT2020_NCL, AVCOL_RANGE_JPEG, SWS_CS_BT2020};

bool IsJpegFormat(AVPixelFormat format) {
    return format == AV_PIX_FMT_YUVJ420P || format == AV_PIX_FMT_YUVJ422P ||
           format == AV_PIX_FMT_YUVJ444P;
}

// A picture whose luma is noise over the whole scale and whose chroma runs smoothly across most of
// its scale (U across, V down): strongly saturated colours, and no sharp chroma edge for
// libswscale's chroma filtering to smear.
FramePtr TestPicture(AVPixelFormat format, const Tag& tag) {
    FramePtr frame(av_frame_alloc());
    frame->format = format;
    frame->width = kWidth;
    frame->height = kHeight;
    frame->colorspace = tag.space;
    frame->color_range = tag.range;
    if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
    // The line writer below ORs its values into the picture.
    for (int p = 0; p < 4 && frame->buf[p] != nullptr; ++p)
        std::fill_n(frame->buf[p]->data, frame->buf[p]->size, uint8_t{0});

    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(format);
    std::mt19937 random(7);
    std::vector<uint16_t> line(kWidth);
    const bool fullRange = tag.range == AVCOL_RANGE_JPEG || IsJpegFormat(format);
    for (int c = 0; c < 3; ++c) {
        // Limited range: luma 16..235, chroma 16..240 on the 8-bit scale.
        const int shift = desc->comp[c].depth - 8;
        const int low = fullRange ? 0 : 16 << shift;
        const int high = fullRange ? (1 << desc->comp[c].depth) - 1 : (c == 0 ? 235 : 240) << shift;
        // Chroma keeps a quarter of its scale from either end: beyond, colours lie far outside
        // what RGB shows and both sides merely clip.
        const int inner = low + (high - low) / 4;
        const int w = c == 0 ? kWidth : AV_CEIL_RSHIFT(kWidth, desc->log2_chroma_w);
        const int h = c == 0 ? kHeight : AV_CEIL_RSHIFT(kHeight, desc->log2_chroma_h);
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                const int value = c == 0   ? low + static_cast<int>(random() % (high - low + 1))
                                  : c == 1 ? inner + x * (high - low - 2 * (inner - low)) / (w - 1)
                                           : inner + y * (high - low - 2 * (inner - low)) / (h - 1);
                line[x] = static_cast<uint16_t>(value);
            }
            av_write_image_line2(line.data(), frame->data, frame->linesize, desc, 0, y, c, w, 2);
        }
    }
    return frame;
}

// libswscale's top-down picture of `frame` read with `tag`'s matrix and range.
std::vector<uint8_t> Oracle(const AVFrame& frame, const Tag& tag) {
    AVPixelFormat format = static_cast<AVPixelFormat>(frame.format);
    bool fullRange = tag.range == AVCOL_RANGE_JPEG;
    if (IsJpegFormat(format)) {
        fullRange = true;
        format = format == AV_PIX_FMT_YUVJ420P   ? AV_PIX_FMT_YUV420P
                 : format == AV_PIX_FMT_YUVJ422P ? AV_PIX_FMT_YUV422P
                                                 : AV_PIX_FMT_YUV444P;
    }
    // 16 bits a channel, rounded once at the end: the oracle adds no rounding error of its own.
    SwsPtr context(sws_getContext(
        frame.width, frame.height, format, frame.width, frame.height, AV_PIX_FMT_BGRA64LE,
        SWS_POINT | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr, nullptr));
    EXPECT_TRUE(context);
    std::vector<uint16_t> wide(static_cast<size_t>(frame.width) * frame.height * 4);
    std::vector<uint8_t> pixels(wide.size());
    if (!context) return pixels;
    sws_setColorspaceDetails(context.get(), sws_getCoefficients(tag.swsSpace), fullRange ? 1 : 0,
                             sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    uint8_t* planes[4] = {reinterpret_cast<uint8_t*>(wide.data())};
    const int strides[4] = {frame.width * 8};
    sws_scale(context.get(), frame.data, frame.linesize, 0, frame.height, planes, strides);
    std::transform(wide.begin(), wide.end(), pixels.begin(),
                   [](uint16_t v) { return static_cast<uint8_t>((v + 128) / 257); });
    return pixels;
}

// The largest difference of a channel between a bottom-up picture and a top-down one.
int MaxDifference(const std::vector<uint8_t>& bottomUp, const std::vector<uint8_t>& topDown) {
    const size_t stride = kWidth * 4;
    int worst = 0;
    for (int y = 0; y < kHeight; ++y) {
        const uint8_t* a = bottomUp.data() + (kHeight - 1 - y) * stride;
        const uint8_t* b = topDown.data() + y * stride;
        for (size_t i = 0; i < stride; ++i) worst = std::max(worst, std::abs(a[i] - b[i]));
    }
    return worst;
}

std::vector<uint8_t> Converted(const AVFrame& frame) {
    VideoConverter converter(kWidth, kHeight);
    std::vector<uint8_t> out(converter.bytes());
    EXPECT_TRUE(converter.Convert(&frame, out.data()));
    return out;
}

// Rows of `stride` bytes (longer than a picture row) written top-down by `picture`, made compact
// and turned bottom-up to compare with the reader's picture; the bytes past each row must stay.
std::vector<uint8_t> LateBottomUp(IPictureSource& picture, int width, int height) {
    const size_t row = static_cast<size_t>(width) * 4, stride = row + 36;
    std::vector<uint8_t> rows(stride * height, 0xA5), out(row * height);
    EXPECT_EQ(picture.WriteTopDown(rows.data(), static_cast<uint32_t>(stride), width, height),
              S_OK);
    for (int y = 0; y < height; ++y) {
        const uint8_t* line = rows.data() + y * stride;
        std::copy_n(line, row, out.data() + (height - 1 - y) * row);
        EXPECT_TRUE(std::all_of(line + row, line + stride, [](uint8_t b) { return b == 0xA5; }))
            << "row " << y << " overran";
    }
    return out;
}

class ConverterFormatTest : public ::testing::TestWithParam<AVPixelFormat> {};

TEST_P(ConverterFormatTest, MatchesLibswscaleInEveryMatrixAndRange) {
    const AVPixelFormat format = GetParam();
    // libyuv weighs chroma in 64ths: deeper samples keep one more level of its rounding.
    const int tolerance = av_pix_fmt_desc_get(format)->comp[0].depth > 8 ? 3 : 2;
    for (const Tag& tag : {kUntagged, kBt601Full, kBt709, kBt709Full, kBt2020, kBt2020Full}) {
        SCOPED_TRACE(::testing::Message()
                     << "colour space " << tag.space << ", range " << tag.range);
        FramePtr frame = TestPicture(format, tag);
        ASSERT_TRUE(frame);
        const std::vector<uint8_t> converted = Converted(*frame);
        EXPECT_LE(MaxDifference(converted, Oracle(*frame, tag)), tolerance);
        auto late = CountedRef<FramePicture>::Adopt(
            NewObject<FramePicture>(FramePtr(av_frame_clone(frame.get()))));
        EXPECT_TRUE(LateBottomUp(*late, kWidth, kHeight) == converted) << "late conversion";
    }
}

INSTANTIATE_TEST_SUITE_P(PixelFormats, ConverterFormatTest,
                         ::testing::Values(AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVJ420P,
                                           AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUVJ422P,
                                           AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_NV12,
                                           AV_PIX_FMT_NV21, AV_PIX_FMT_YUV420P10LE,
                                           AV_PIX_FMT_YUV422P10LE, AV_PIX_FMT_YUV444P10LE,
                                           AV_PIX_FMT_YUV420P12LE, AV_PIX_FMT_P010LE,
                                           AV_PIX_FMT_P210LE),
                         [](const ::testing::TestParamInfo<AVPixelFormat>& info) {
                             return std::string(av_get_pix_fmt_name(info.param));
                         });

// The comparison above is only worth something if the picture tells the faults apart: a wrong
// matrix, a wrong range and an upside-down picture each land far outside the tolerance.
TEST(ConverterTest, TestPictureExposesWrongMatrixRangeAndOrientation) {
    FramePtr frame = TestPicture(AV_PIX_FMT_YUV420P, kBt709);
    ASSERT_TRUE(frame);
    const std::vector<uint8_t> out = Converted(*frame);
    EXPECT_GT(MaxDifference(out, Oracle(*frame, kUntagged)), 20) << "601 read as 709";
    EXPECT_GT(MaxDifference(out, Oracle(*frame, kBt709Full)), 20) << "limited read as full";
    std::vector<uint8_t> flipped = Oracle(*frame, kBt709);
    const size_t stride = kWidth * 4;
    for (int y = 0; y < kHeight / 2; ++y)
        std::swap_ranges(flipped.begin() + y * stride, flipped.begin() + (y + 1) * stride,
                         flipped.end() - (y + 1) * stride);
    EXPECT_GT(MaxDifference(out, flipped), 20) << "rows top-down";
}

// A stream that changes size mid-way is scaled to the size the reader announced.
TEST(ConverterTest, PictureOfAnotherSizeIsScaledToTheOutput) {
    FramePtr frame(av_frame_alloc());
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = kWidth / 2;
    frame->height = kHeight / 2 + 1;
    ASSERT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    // Full-range BT.601 mid grey over the top half, white below.
    frame->color_range = AVCOL_RANGE_JPEG;
    for (int y = 0; y < frame->height; ++y)
        std::fill_n(frame->data[0] + y * frame->linesize[0], frame->width,
                    y < frame->height / 2 ? 128 : 255);
    for (int p = 1; p < 3; ++p)
        std::fill_n(frame->data[p], frame->linesize[p] * ((frame->height + 1) / 2), 128);

    const std::vector<uint8_t> out = Converted(*frame);
    const size_t stride = kWidth * 4;
    EXPECT_NEAR(out[(kHeight - 1) * stride + 4 * 10], 128, 2) << "first row is grey";
    EXPECT_NEAR(out[4 * 10 + 1], 255, 2) << "last row is white";
}

// H.264 and VP9 clips (4:2:0, each decoder with its own buffer pool): every picture converted
// late, after its reader, decoder and file are gone, is the reader's own picture and reads back
// as its frame number.
TEST(LateConversionTest, PicturesConvertedAfterTheReaderAreTheReadersOwn) {
    for (const char* clip : {"equirect.mp4", "late.mkv"}) {
        SCOPED_TRACE(clip);
        decodehost_test::RecordingSink sink(128, 64);
        {
            auto reader = CountedRef<Reader>::Adopt(NewObject<Reader>());
            CountedRef<MediaDescription> description;
            ASSERT_EQ(reader->Open(decodehost_test::Clip(clip).c_str(), description.put()), 0);
            ASSERT_EQ(reader->SelectStream(0, nullptr), 0);  // the generator writes video first
            ASSERT_EQ(reader->SetSink(&sink), 0);
            ASSERT_EQ(reader->Run(), 0);
            ASSERT_TRUE(decodehost_test::WaitUntil([&] { return sink.EndOfStreams() == 1; }));
        }
        const std::vector<decodehost_test::PushedRecord> records = sink.Records();
        ASSERT_GE(records.size(), 10u);
        for (size_t i = 0; i < records.size(); ++i) {
            ASSERT_TRUE(records[i].picture) << "picture " << i << " offers no source";
            const std::vector<uint8_t> late = LateBottomUp(*records[i].picture, 128, 64);
            EXPECT_TRUE(late == records[i].pixels) << "picture " << i;
            EXPECT_EQ(decodehost_test::FrameNumber(late.data(), 128, 64),
                      records[0].frame + static_cast<int64_t>(i));
        }
        uint8_t row[128 * 4];
        EXPECT_EQ(records[0].picture->WriteTopDown(row, sizeof row, 128, 1), E_INVALIDARG);
    }
}

}  // namespace
}  // namespace vexel::decodehost
