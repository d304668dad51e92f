// The seam through which the strings that a dialog shows could be translated
// per thread. Nothing in the reporter installs a translator, so every string
// stays as written; a host process that links these sources can create a
// thread-specific key, store its number in TranslatorTlsIndex before other
// threads start, and put a StringTranslator* into the key for each thread.
#pragma once

#include <cstdint>

// Interface of a per-thread translator. The virtual destructor takes the first
// two entries of the table (complete and deleting destructor), so Translate is
// the third, where a host's implementation expects it. The reporter never owns
// or deletes a translator.
class StringTranslator {
 public:
  virtual ~StringTranslator();
  // The translation of text; a format string keeps its directives in order.
  virtual const char16_t* Translate(const char16_t* text) = 0;
};

// Number of the thread-specific key (a pthread key stands for a TLS slot), or
// -1 when there is none. Read without a lock.
extern std::int32_t TranslatorTlsIndex;

// The calling thread's translator, or null: with no key, with no value stored
// for the thread, and when the key can't be read.
StringTranslator* GetTranslator();

// The translation of text, or text itself (the same pointer) without a
// translator. Log texts never go through here.
const char16_t* Translate(const char16_t* text);
