// The password cipher: block sizes, the key parts, and texts that don't
// decipher.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/password_cipher.h"

namespace {

using namespace Marlowen;

class PasswordLengthTest : public ::testing::TestWithParam<std::size_t> {};

TEST_P(PasswordLengthTest, FillsWholeBlocksAndComesBack) {
  std::string plain;
  for (std::size_t i = 0; i < GetParam(); ++i) plain.push_back(static_cast<char>('!' + i % 90));
  std::vector<std::uint8_t> cipher;
  ASSERT_TRUE(EncipherPassword(plain, kAccountKeyPartA, kAccountKeyPartB, cipher));
  EXPECT_EQ(cipher.size(), (GetParam() + 15) / 16 * 16);
  EXPECT_NE(std::string(cipher.begin(), cipher.end()).substr(0, plain.size()), plain);
  std::string back;
  ASSERT_TRUE(DecipherPassword(cipher.data(), cipher.size(), kAccountKeyPartA, kAccountKeyPartB, back));
  EXPECT_EQ(back, plain);
}

INSTANTIATE_TEST_SUITE_P(Lengths, PasswordLengthTest, ::testing::Values(1, 15, 16, 17, 64, 128));

TEST(PasswordCipherTest, EqualBlocksEncipherDifferentlyAndKeysMatter) {
  const std::string plain(32, 'a');  // two equal blocks
  std::vector<std::uint8_t> cipher;
  ASSERT_TRUE(EncipherPassword(plain, kAccountKeyPartA, kAccountKeyPartB, cipher));
  ASSERT_EQ(cipher.size(), 32u);
  EXPECT_NE(std::vector<std::uint8_t>(cipher.begin(), cipher.begin() + 16),
            std::vector<std::uint8_t>(cipher.begin() + 16, cipher.end()));

  std::vector<std::uint8_t> other;
  ASSERT_TRUE(EncipherPassword(plain, "AAAAAAAA", kAccountKeyPartB, other));
  EXPECT_NE(other, cipher);
  std::string back;
  ASSERT_TRUE(DecipherPassword(cipher.data(), cipher.size(), "AAAAAAAA", kAccountKeyPartB, back));
  EXPECT_NE(back, plain);
}

TEST(PasswordCipherTest, RejectsBadInput) {
  std::vector<std::uint8_t> cipher;
  EXPECT_FALSE(EncipherPassword("x", "short", kAccountKeyPartB, cipher));
  EXPECT_TRUE(EncipherPassword("", kAccountKeyPartA, kAccountKeyPartB, cipher));
  EXPECT_TRUE(cipher.empty());

  const std::vector<std::uint8_t> partial(15, 1);
  std::string plain = "left over";
  EXPECT_FALSE(DecipherPassword(partial.data(), partial.size(), kAccountKeyPartA, kAccountKeyPartB, plain));
  EXPECT_EQ(plain, "");
  EXPECT_FALSE(DecipherPassword(partial.data(), 0, kAccountKeyPartA, kAccountKeyPartB, plain));
  EXPECT_FALSE(DecipherPassword(partial.data(), 0, kAccountKeyPartA, "toolong!!", plain));
}

}  // namespace
