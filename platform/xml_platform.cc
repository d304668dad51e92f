#include "platform/xml_platform.h"

#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>

#include <mutex>

namespace Marlowen {

bool InitializeXmlPlatform() {
  static std::once_flag once;
  static bool ready = false;
  std::call_once(once, [] {
    try {
      xercesc::XMLPlatformUtils::Initialize();
      ready = true;
    } catch (const xercesc::XMLException&) {
      ready = false;
    }
  });
  return ready;
}

}  // namespace Marlowen
