// SHA-256 against the examples that NIST has published for FIPS 180-4.
#include "tools/qmtool/sha256.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

std::string sum_of(const std::string& text, size_t piece = SIZE_MAX) {
    Sha256 sum;
    for (size_t at = 0; at < text.size(); at += std::min(piece, text.size() - at))
        sum.add(text.data() + at, std::min(piece, text.size() - at));
    return sum.finish();
}

TEST(Sha256, GivesThePublishedSums) {
    EXPECT_EQ(sum_of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sum_of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(sum_of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(
        sum_of("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopq"
               "klmnopqrlmnopqrsmnopqrstnopqrstu"),
        "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1");
    EXPECT_EQ(sum_of(std::string(1'000'000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

// Of each length around a block, in pieces of any size, the sum is the same.
TEST(Sha256, DoesNotDependOnThePieces) {
    std::string text;
    for (size_t size = 0; size < 200; ++size) {
        const std::string whole = sum_of(text);
        for (const size_t piece : {size_t{1}, size_t{3}, size_t{63}, size_t{64}, size_t{65}})
            EXPECT_EQ(sum_of(text, piece), whole) << size;
        text += static_cast<char>(size * 7);
    }
}

}  // namespace
