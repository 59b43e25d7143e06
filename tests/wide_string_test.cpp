// Widening 8-bit text: every byte becomes the one UTF-16 unit of the same value, so bytes above 0x7F
// (UTF-8 lead and continuation bytes) come out as 0x80..0xFF, never sign-extended from a signed char.
#include "common/wide_string.h"

#include <gtest/gtest.h>

#include <string_view>

namespace vexel {
namespace {

TEST(Widen, EveryByteBecomesTheUnitOfTheSameValue) {
    EXPECT_EQ(Widen(""), u"");
    EXPECT_EQ(Widen("Source ( "), u"Source ( ");
    using namespace std::string_view_literals;
    const WideString wide = Widen("a\x00\x7f\x80\xc3\xa9\xff"sv);
    ASSERT_EQ(wide.size(), 7u);
    const char16_t expected[] = {u'a', 0x00, 0x7F, 0x80, 0xC3, 0xA9, 0xFF};
    for (size_t i = 0; i < wide.size(); ++i) EXPECT_EQ(wide[i], expected[i]) << "byte " << i;
}

}  // namespace
}  // namespace vexel
