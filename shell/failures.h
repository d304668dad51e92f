// Thrown failures. They stand for a broken state from which no caller is meant
// to recover: nothing catches them by class, so one that is thrown runs up to
// the process's edge and is reported as a crash. Ordinary failures are boolean
// results and log lines instead.
//
// All three are thrown and copied by value and carry their text as a wide
// string.
#pragma once

#include "shell/wide_string.h"

class FE_General {
 public:
  FE_General(const FE_General& other);
  FE_General& operator=(const FE_General& other);
  virtual ~FE_General();

  // Read-only access to the text; the same for every class of the family.
  virtual const WideString& Message() const;

 protected:
  // Only the derived classes say what the message is.
  explicit FE_General(WideString message);

 private:
  WideString message_;
};

class FE_RunTime : public FE_General {
 public:
  explicit FE_RunTime(const WideString& message);
  FE_RunTime(const FE_RunTime& other);
  FE_RunTime& operator=(const FE_RunTime& other);
};

// "File not found: " followed by the name; the bare name is kept beside it.
class FE_FileNotFound : public FE_RunTime {
 public:
  explicit FE_FileNotFound(const WideString& fileName);
  FE_FileNotFound(const FE_FileNotFound& other);
  FE_FileNotFound& operator=(const FE_FileNotFound& other);
  ~FE_FileNotFound() override;

  const WideString& FileName() const;

 private:
  WideString fileName_;
};
