#include "shell/translator.h"

#include <pthread.h>

#include <cerrno>
#include <climits>

#include "shell/format_string.h"
#include "shell/string_helpers.h"

std::int32_t TranslatorTlsIndex = -1;

StringTranslator::~StringTranslator() = default;

namespace {

// Where a failed read of the key would be reported. On purpose it reports
// nowhere: neither the log nor the user hears of it, and the caller goes on
// as if there were no translator.
void TranslatorDiagnostic(const WideString& /*text*/) {}

}  // namespace

StringTranslator* GetTranslator() {
  const std::int32_t index = TranslatorTlsIndex;
  if (index == -1) return nullptr;

  // pthread_getspecific can't report an error, and asking it about a number
  // that no key can have is undefined; such a number is the one failure to
  // tell apart from "no translator for this thread".
  if (index < 0 || index >= PTHREAD_KEYS_MAX) {
    TranslatorDiagnostic(FormatString(u"Cannot get data from TLS (%s).",
                                      LastErrorText(EINVAL).c_str()));
    return nullptr;
  }
  return static_cast<StringTranslator*>(pthread_getspecific(static_cast<pthread_key_t>(index)));
}

const char16_t* Translate(const char16_t* text) {
  StringTranslator* translator = GetTranslator();
  return translator ? translator->Translate(text) : text;
}
