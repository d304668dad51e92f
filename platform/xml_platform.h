// Xerces-C needs XMLPlatformUtils::Initialize before any other call. Every
// layer that builds or parses XML asks here first, so the library is set up
// once per process whoever comes first.
#pragma once

#include <xercesc/sax/ErrorHandler.hpp>
#include <xercesc/sax/SAXParseException.hpp>

namespace Marlowen {

// Initialises Xerces-C on the first call; later calls answer the first
// one's result. Thread-safe. The counterpart is never called: documents may
// live until the process ends.
[[nodiscard]] bool InitializeXmlPlatform();

// Counts parse problems instead of throwing, so that a bad document simply
// yields no usable result.
class CountingErrorHandler final : public XERCES_CPP_NAMESPACE::ErrorHandler {
 public:
  void warning(const XERCES_CPP_NAMESPACE::SAXParseException&) override {}
  void error(const XERCES_CPP_NAMESPACE::SAXParseException&) override { ++errors_; }
  void fatalError(const XERCES_CPP_NAMESPACE::SAXParseException&) override { ++errors_; }
  void resetErrors() override { errors_ = 0; }
  int errors() const { return errors_; }

 private:
  int errors_ = 0;
};

}  // namespace Marlowen
