#include "platform/text.h"

#include "rtsptap.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using namespace rtsptap;

namespace {

std::string Encoded(const std::vector<uint8_t> &bytes) {
    char *text = nullptr;
    static constexpr uint8_t kNothing = 0;
    EXPECT_EQ(Base64Encode(bytes.empty() ? &kNothing : bytes.data(), static_cast<int32_t>(bytes.size()), &text), 0);
    const HeapText owner(text);
    return text == nullptr ? "" : text;
}

} // namespace

TEST(Base64, EncodesAndDecodesTheKnownTexts) { // RFC 4648, 10
    const struct {
        const char *plain, *encoded;
    } cases[] = {{"", ""},        {"f", "Zg=="},          {"fo", "Zm8="},
                 {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}, {"\xFB\xFF", "+/8="}};
    for (const auto &known : cases) {
        const std::size_t size = std::strlen(known.plain);
        EXPECT_EQ(Encoded({known.plain, known.plain + size}), known.encoded);
        std::string_view encoded = known.encoded;
        for (const bool padded : {true, false}) {
            if (!padded) encoded = encoded.substr(0, encoded.find('='));
            std::vector<uint8_t> decoded(size + 1, 0xEE); // exactly enough room, and a byte to be left alone
            EXPECT_EQ(Base64DecodeBinaryToBuffer(encoded, decoded.data(), static_cast<int32_t>(size)), size);
            EXPECT_EQ(std::memcmp(decoded.data(), known.plain, size), 0);
            EXPECT_EQ(decoded[size], 0xEE);
        }
    }
}

TEST(Base64, DecoderRefusesForeignTextAndLackOfRoom) {
    uint8_t room[3] = {};
    for (const char *text :
         {"Z", "Zm9vY", "Zm9=v", "Zm9 ", "Zm9\n", "====", "Zg===", "Zm9-", "Zm9v\x80", "Zm9vYg=="})
        EXPECT_EQ(Base64DecodeBinaryToBuffer(text, room, 3), -1) << text;
    EXPECT_EQ(Base64DecodeBinaryToBuffer("Zm9v", nullptr, 3), -1);
    EXPECT_EQ(Base64DecodeBinaryToBuffer("", room, -1), -1);
}
