// The password cipher: whole blocks, chained blocks, the key parts, and input
// it refuses.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/password_cipher.h"

namespace {

using namespace Marlowen;
using Bytes = std::vector<std::uint8_t>;

TEST(PasswordCipherTest, FillsWholeBlocksAndComesBackOnlyWithTheSameKey) {
  for (std::size_t length : {1, 16, 17, 128}) {
    const std::string plain(length, 'a');  // equal blocks must still encipher differently
    Bytes cipher, other;
    ASSERT_TRUE(EncipherPassword(plain, kAccountKeyPartA, kAccountKeyPartB, cipher));
    ASSERT_EQ(cipher.size(), (length + 15) / 16 * 16);
    if (length > 16) {
      EXPECT_NE(Bytes(cipher.begin(), cipher.begin() + 16), Bytes(cipher.begin() + 16, cipher.begin() + 32));
    }
    std::string back;
    ASSERT_TRUE(DecipherPassword(cipher.data(), cipher.size(), kAccountKeyPartA, kAccountKeyPartB, back));
    EXPECT_EQ(back, plain);
    ASSERT_TRUE(EncipherPassword(plain, "AAAAAAAA", kAccountKeyPartB, other));
    EXPECT_NE(other, cipher);
    ASSERT_TRUE(DecipherPassword(cipher.data(), cipher.size(), "AAAAAAAA", kAccountKeyPartB, back));
    EXPECT_NE(back, plain);
  }
}

TEST(PasswordCipherTest, RejectsBadInput) {
  Bytes cipher;
  EXPECT_FALSE(EncipherPassword("x", "short", kAccountKeyPartB, cipher));
  EXPECT_TRUE(EncipherPassword("", kAccountKeyPartA, kAccountKeyPartB, cipher));
  EXPECT_TRUE(cipher.empty());
  const Bytes partial(15, 1);
  std::string plain = "left over";
  EXPECT_FALSE(DecipherPassword(partial.data(), partial.size(), kAccountKeyPartA, kAccountKeyPartB, plain));
  EXPECT_EQ(plain, "");
  EXPECT_FALSE(DecipherPassword(partial.data(), 0, kAccountKeyPartA, "toolong!!", plain));
}

}  // namespace
