// The root CA bundle built into the program (a PEM file, taken at build time).
#pragma once

#include <string_view>

namespace Marlowen {

std::string_view EmbeddedCaBundle();

}  // namespace Marlowen
