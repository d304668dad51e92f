// The thrown failures and the per-thread translation seam.
#include <pthread.h>

#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include "shell/failures.h"
#include "shell/translator.h"

namespace {

TEST(Failures, FileNotFoundNamesTheFileAndIsCaughtAsEveryClassOfItsChain) {
  auto thrower = [] { throw FE_FileNotFound(u"/var/lib/x.dmp"); };
  try { thrower(); FAIL(); } catch (const FE_FileNotFound& f) { EXPECT_EQ(f.FileName(), u"/var/lib/x.dmp"); }
  try { thrower(); FAIL(); } catch (const FE_RunTime& f) { EXPECT_EQ(f.Message(), u"File not found: /var/lib/x.dmp"); }
  try { thrower(); FAIL(); } catch (const FE_General& f) { EXPECT_EQ(f.Message(), u"File not found: /var/lib/x.dmp"); }
  try { throw FE_RunTime(u"broken state \u00E9"); } catch (const FE_General& f) { EXPECT_EQ(f.Message(), u"broken state \u00E9"); }
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

TEST(TranslatorTest, ServesOnlyTheThreadThatStoredItAndOtherwiseGivesTheVeryPointer) {
  static constexpr char16_t kText[] = u"Report id: %s.";
  pthread_key_t key;
  ASSERT_EQ(pthread_key_create(&key, nullptr), 0);
  ASSERT_EQ(TranslatorTlsIndex, -1);
  EXPECT_EQ(Translate(kText), kText);
  for (std::int32_t index : {1 << 30, -7, static_cast<std::int32_t>(key)}) {
    TranslatorTlsIndex = index;  // the key holds no value for this thread
    EXPECT_EQ(GetTranslator(), nullptr) << index;
    EXPECT_EQ(Translate(kText), kText) << index;
  }

  PrefixTranslator translator;
  ASSERT_EQ(pthread_setspecific(key, static_cast<StringTranslator*>(&translator)), 0);
  EXPECT_EQ(GetTranslator(), &translator);
  EXPECT_EQ(std::u16string(Translate(kText)), u"[xx] Report id: %s.");
  const char16_t* onOtherThread = nullptr;
  std::thread([&] { onOtherThread = Translate(kText); }).join();
  EXPECT_EQ(onOtherThread, kText);

  // A host's translator is called through the table, not by name: third entry.
  using Entry = const char16_t* (*)(StringTranslator*, const char16_t*);
  StringTranslator* object = &translator;
  Entry* table = nullptr;
  std::memcpy(&table, object, sizeof(table));
  EXPECT_EQ(std::u16string(table[2](&translator, u"x")), u"[xx] x");
  pthread_setspecific(key, nullptr);
  pthread_key_delete(key);
  TranslatorTlsIndex = -1;
}

}  // namespace
