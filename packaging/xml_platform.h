// Xerces-C needs XMLPlatformUtils::Initialize before any other call. Every
// layer that builds or parses XML asks here first, so the library is set up
// once per process whoever comes first.
#pragma once

namespace Marlowen {

// Initialises Xerces-C on the first call; later calls answer the first
// one's result. Thread-safe. The counterpart is never called: documents may
// live until the process ends.
[[nodiscard]] bool InitializeXmlPlatform();

}  // namespace Marlowen
