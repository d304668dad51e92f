// An object that puts itself on a ByteStream and reads itself back. Records
// begin with a version word; a reader that meets a version it does not know
// reads nothing further and answers false.
#pragma once

namespace Marlowen {

class ByteStream;

class Streamable {
 public:
  virtual ~Streamable() = default;
  // True if written.
  virtual bool Write(ByteStream& stream) const = 0;
  // True if the version on the stream is one that the class reads.
  virtual bool Read(ByteStream& stream) = 0;
};

}  // namespace Marlowen
