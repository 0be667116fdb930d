// Scrambled passwords.
#include "common/users/user_block.hpp"

#include <gtest/gtest.h>

#include <string>

using namespace zep;

namespace {

std::string password_of(const UserBlock& block)
{
    char text[kUserPasswordSize + 1];
    unscramble_password(block, text);
    return text;
}

} // namespace

TEST(UserBlock, DecodesABlockScrambledByHand)
{
    // Key 5A 01, filler zero, password "abc": bytes 2 to 31 under 5A, then back to front.
    UserBlock block;
    ASSERT_TRUE(user_block_from_hex("5A5A5A5A5A5A5A5A5A5A5A5A5A39383b"
                                    "5a5a5a5a5a5a5a5a5a5a5a5a5a5a015A",
                                    block));
    EXPECT_EQ(password_of(block), "abc");
}

TEST(UserBlock, PasswordsSurviveUpToFifteenCharactersAndDifferEverySave)
{
    for (const char* text : {"", "a", "fifteen-chars-x"}) {
        UserBlock first = scramble_password(text);
        EXPECT_EQ(password_of(first), text);
        EXPECT_NE(first, scramble_password(text)) << "two saves in one second";
    }
    EXPECT_EQ(password_of(scramble_password("sixteen-chars-xy and more")), "sixteen-chars-x");
}

TEST(UserBlock, HexIsSixtyFourDigitsOrNothing)
{
    UserBlock block = scramble_password("secret");
    char hex[65];
    user_block_to_hex(block, hex);
    UserBlock again;
    ASSERT_TRUE(user_block_from_hex(hex, again));
    EXPECT_EQ(again, block);
    std::string text = hex;
    EXPECT_FALSE(user_block_from_hex(text.substr(1).c_str(), again));
    EXPECT_FALSE(user_block_from_hex((text + "0").c_str(), again));
    text[20] = 'g';
    EXPECT_FALSE(user_block_from_hex(text.c_str(), again));
}
