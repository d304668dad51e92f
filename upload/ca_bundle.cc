#include "upload/ca_bundle.h"

// The build names the PEM file in ML_CA_BUNDLE_FILE and the assembler copies
// its bytes in, so the program carries the bundle without a generated source.
asm(R"(
  .section .rodata
  .global ml_embedded_ca_bundle_begin
  .global ml_embedded_ca_bundle_end
  .hidden ml_embedded_ca_bundle_begin
  .hidden ml_embedded_ca_bundle_end
  .balign 16
ml_embedded_ca_bundle_begin:
  .incbin ")" ML_CA_BUNDLE_FILE R"("
ml_embedded_ca_bundle_end:
  .byte 0
  .previous
)");

extern "C" __attribute__((visibility("hidden"))) const char ml_embedded_ca_bundle_begin[];
extern "C" __attribute__((visibility("hidden"))) const char ml_embedded_ca_bundle_end[];

namespace Marlowen {

std::string_view EmbeddedCaBundle() {
  return std::string_view(ml_embedded_ca_bundle_begin,
                          static_cast<std::size_t>(ml_embedded_ca_bundle_end -
                                                   ml_embedded_ca_bundle_begin));
}

}  // namespace Marlowen
