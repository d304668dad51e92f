#include "store/byte_stream.h"

namespace Marlowen {

bool ByteStream::IsOpenFor(FileAccess access) const {
  if (!IsOpen()) return false;
  // The stored access may be any value; all but read and write mean both.
  const FileAccess current = GetAccess();
  const bool canRead = current != FileAccess_Write;
  const bool canWrite = current != FileAccess_Read;
  switch (access) {
    case FileAccess_Read: return canRead;
    case FileAccess_Write: return canWrite;
    case FileAccess_ReadWrite: return canRead && canWrite;
    default: return false;
  }
}

}  // namespace Marlowen
