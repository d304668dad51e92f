// The container side of a multipart document: its parts and its boundary.
#pragma once

#include <cstddef>
#include <string>

namespace Mime {

class MimePart;

class MimePartContainer {
 public:
  virtual ~MimePartContainer() = default;

  // A new boundary: "--NextPart--ML" and a random GUID in upper case with
  // hyphens, 50 characters in all. Every call gives a different one.
  virtual std::string MakeBoundary();

  virtual std::size_t GetPartCount() const = 0;
  // An index out of range throws std::out_of_range.
  virtual MimePart* GetPart(std::size_t index) = 0;
  virtual const MimePart* GetPart(std::size_t index) const = 0;
  // Takes ownership of part; returns its index.
  virtual std::size_t AddPart(MimePart* part) = 0;
  // Takes the part out of the list without deleting it; the later parts move
  // up. Whoever held a pointer to it is now its owner.
  virtual void RemovePart(std::size_t index) = 0;

 protected:
  MimePartContainer() = default;
  MimePartContainer(const MimePartContainer&) = default;
  MimePartContainer& operator=(const MimePartContainer&) = default;
};

}  // namespace Mime
