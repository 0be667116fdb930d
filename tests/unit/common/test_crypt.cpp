// The hash function that each target's build links; the accounts themselves are tested in the camera.
#include "tests/unit/common/known_hashes.hpp"

#include <crypt.h>
#include <gtest/gtest.h>

TEST(Crypt, ATwoCharacterSaltGivesTheTraditionalHashOnEveryTarget)
{
    for (const KnownHash& known : kKnownHashes) {
        const char salt[] = {known.hash[0], known.hash[1], '\0'};
        EXPECT_STREQ(crypt(known.password, salt), known.hash);
        EXPECT_STREQ(crypt(known.password, known.hash), known.hash) << "the hash as its own salt";
    }
}
