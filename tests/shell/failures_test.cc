// The thrown failures and the per-thread translation seam.
#include <pthread.h>

#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include "shell/failures.h"
#include "shell/translator.h"

namespace {

TEST(Failures, FileNotFoundNamesTheFileAndIsCaughtAsEveryClassOfItsChain) {
  const FE_FileNotFound failure(u"report.zip");
  EXPECT_EQ(failure.Message(), u"File not found: report.zip");
  EXPECT_EQ(failure.FileName(), u"report.zip");

  auto thrower = [] { throw FE_FileNotFound(u"/var/lib/x.dmp"); };
  try { thrower(); FAIL(); } catch (const FE_FileNotFound& f) { EXPECT_EQ(f.FileName(), u"/var/lib/x.dmp"); }
  try { thrower(); FAIL(); } catch (const FE_RunTime& f) { EXPECT_EQ(f.Message(), u"File not found: /var/lib/x.dmp"); }
  try { thrower(); FAIL(); } catch (const FE_General& f) { EXPECT_EQ(f.Message(), u"File not found: /var/lib/x.dmp"); }

  // Copies keep both texts, also through the base.
  const FE_FileNotFound copy = failure;
  const FE_General& asBase = copy;
  EXPECT_EQ(asBase.Message(), u"File not found: report.zip");
  EXPECT_EQ(copy.FileName(), u"report.zip");
}

TEST(Failures, RunTimeCarriesItsMessageAsGiven) {
  try {
    throw FE_RunTime(u"broken state \u00E9");
  } catch (const FE_General& f) {
    EXPECT_EQ(f.Message(), u"broken state \u00E9");
  }
}

class PrefixTranslator final : public StringTranslator {
 public:
  const char16_t* Translate(const char16_t* text) override {
    last_ = u"[xx] " + std::u16string(text);
    return last_.c_str();
  }

 private:
  std::u16string last_;
};

// Each case puts the index back, as a host would set it once.
class TranslatorTest : public ::testing::Test {
 protected:
  void TearDown() override {
    if (created_) {
      pthread_setspecific(key_, nullptr);
      pthread_key_delete(key_);
    }
    TranslatorTlsIndex = -1;
  }
  void UseNewKey() {
    ASSERT_EQ(pthread_key_create(&key_, nullptr), 0);
    created_ = true;
    TranslatorTlsIndex = static_cast<std::int32_t>(key_);
  }

  pthread_key_t key_{};
  bool created_ = false;
};

TEST_F(TranslatorTest, WithoutKeyTheVeryPointerComesBack) {
  static const char16_t kText[] = u"Sending data...";
  ASSERT_EQ(TranslatorTlsIndex, -1);
  EXPECT_EQ(GetTranslator(), nullptr);
  EXPECT_EQ(Translate(kText), kText);
}

TEST_F(TranslatorTest, KeyWithoutValueOrUnusableNumberGivesTheTextBack) {
  static const char16_t kText[] = u"Upload successful.";
  UseNewKey();
  EXPECT_EQ(Translate(kText), kText);

  TranslatorTlsIndex = 1 << 30;
  EXPECT_EQ(GetTranslator(), nullptr);
  EXPECT_EQ(Translate(kText), kText);
  TranslatorTlsIndex = -7;
  EXPECT_EQ(Translate(kText), kText);
}

TEST_F(TranslatorTest, TranslatorStoredForAThreadServesThatThreadOnly) {
  static const char16_t kText[] = u"Report id: %s.";
  UseNewKey();
  PrefixTranslator translator;
  ASSERT_EQ(pthread_setspecific(key_, static_cast<StringTranslator*>(&translator)), 0);

  EXPECT_EQ(GetTranslator(), &translator);
  EXPECT_EQ(std::u16string(Translate(kText)), u"[xx] Report id: %s.");

  const char16_t* onOtherThread = nullptr;
  std::thread other([&] { onOtherThread = Translate(kText); });
  other.join();
  EXPECT_EQ(onOtherThread, kText);
}

TEST_F(TranslatorTest, TranslateIsTheThirdEntryOfTheTable) {
  // A host's translator is called through the table, not by name.
  PrefixTranslator translator;
  using Entry = const char16_t* (*)(StringTranslator*, const char16_t*);
  StringTranslator* object = &translator;
  Entry* table = nullptr;
  std::memcpy(&table, object, sizeof(table));
  EXPECT_EQ(std::u16string(table[2](&translator, u"x")), u"[xx] x");
}

}  // namespace
