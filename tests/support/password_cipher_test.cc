// The password cipher: block sizes, the key parts, and texts that don't
// decipher.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/password_cipher.h"

namespace {

using namespace Marlowen;
using Bytes = std::vector<std::uint8_t>;

TEST(PasswordCipherTest, FillsWholeBlocksAndComesBack) {
  for (std::size_t length : {1, 15, 16, 17, 64, 128}) {
    std::string plain;
    for (std::size_t i = 0; i < length; ++i) plain.push_back(static_cast<char>('!' + i % 90));
    Bytes cipher;
    ASSERT_TRUE(EncipherPassword(plain, kAccountKeyPartA, kAccountKeyPartB, cipher));
    EXPECT_EQ(cipher.size(), (length + 15) / 16 * 16);
    EXPECT_NE(std::string(cipher.begin(), cipher.end()).substr(0, length), plain);
    std::string back;
    ASSERT_TRUE(DecipherPassword(cipher.data(), cipher.size(), kAccountKeyPartA, kAccountKeyPartB, back));
    EXPECT_EQ(back, plain);
  }
}

TEST(PasswordCipherTest, EqualBlocksEncipherDifferentlyAndKeysMatter) {
  const std::string plain(32, 'a');  // two equal blocks
  Bytes cipher, other;
  ASSERT_TRUE(EncipherPassword(plain, kAccountKeyPartA, kAccountKeyPartB, cipher));
  ASSERT_EQ(cipher.size(), 32u);
  EXPECT_NE(Bytes(cipher.begin(), cipher.begin() + 16), Bytes(cipher.begin() + 16, cipher.end()));
  ASSERT_TRUE(EncipherPassword(plain, "AAAAAAAA", kAccountKeyPartB, other));
  EXPECT_NE(other, cipher);
  std::string back;
  ASSERT_TRUE(DecipherPassword(cipher.data(), cipher.size(), "AAAAAAAA", kAccountKeyPartB, back));
  EXPECT_NE(back, plain);
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
  EXPECT_FALSE(DecipherPassword(partial.data(), 0, kAccountKeyPartA, kAccountKeyPartB, plain));
  EXPECT_FALSE(DecipherPassword(partial.data(), 0, kAccountKeyPartA, "toolong!!", plain));
}

}  // namespace
