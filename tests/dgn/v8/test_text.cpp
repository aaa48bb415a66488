// Text bytes of V8 text elements to UTF-8: the three encodings files use.
#include "v8_test_support.h"

using Kora::Dgn::V8::textToUtf8;

namespace {

std::vector<std::byte> bytesOf(std::initializer_list<unsigned> values)
{
    std::vector<std::byte> bytes;
    for (const unsigned v : values) bytes.push_back(static_cast<std::byte>(v));
    return bytes;
}

TEST(V8Text, EncodingsDecodeToUtf8)
{
    // Behind the marker FF FE 01 00: Windows-1252, as the sample's "myTéxt".
    EXPECT_EQ(textToUtf8(bytesOf({0xFF, 0xFE, 0x01, 0x00, 'm', 'y', 'T', 0xE9, 'x', 't'})), "myT\xC3\xA9xt");
    // The code page's own characters in 0x80..0x9F (euro sign, curly quotes).
    EXPECT_EQ(textToUtf8(bytesOf({0xFF, 0xFE, 0x01, 0x00, 0x80, 0x93})), "\xE2\x82\xAC\xE2\x80\x9C");
    // Valid UTF-8 stays as it is, four-byte forms included.
    EXPECT_EQ(textToUtf8(bytesOf({'a', 0xC3, 0xA9, 0xF0, 0x9F, 0x98, 0x80})), "a\xC3\xA9\xF0\x9F\x98\x80");
    // Not UTF-8 (a lone Latin-1 byte, an overlong form, a cut sequence):
    // read as Windows-1252 without a marker.
    EXPECT_EQ(textToUtf8(bytesOf({'T', 0xE9})), "T\xC3\xA9");
    EXPECT_EQ(textToUtf8(bytesOf({0xC0, 0xAF})), "\xC3\x80\xC2\xAF");
    EXPECT_EQ(textToUtf8(bytesOf({'x', 0xE2, 0x82})), "x\xC3\xA2\xE2\x80\x9A");
    EXPECT_EQ(textToUtf8({}), "");
}

} // namespace
