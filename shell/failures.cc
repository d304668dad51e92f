#include "shell/failures.h"

#include <utility>

FE_General::FE_General(WideString message) : message_(std::move(message)) {}
FE_General::FE_General(const FE_General& other) = default;
FE_General& FE_General::operator=(const FE_General& other) = default;
FE_General::~FE_General() = default;

const WideString& FE_General::Message() const { return message_; }

FE_RunTime::FE_RunTime(const WideString& message) : FE_General(message) {}
FE_RunTime::FE_RunTime(const FE_RunTime& other) = default;
FE_RunTime& FE_RunTime::operator=(const FE_RunTime& other) = default;

FE_FileNotFound::FE_FileNotFound(const WideString& fileName)
    : FE_RunTime(u"File not found: " + fileName), fileName_(fileName) {}
FE_FileNotFound::FE_FileNotFound(const FE_FileNotFound& other) = default;
FE_FileNotFound& FE_FileNotFound::operator=(const FE_FileNotFound& other) = default;
FE_FileNotFound::~FE_FileNotFound() = default;

const WideString& FE_FileNotFound::FileName() const { return fileName_; }
