#include "upload/mime/mime_part_container.h"

#include <uuid/uuid.h>

namespace Mime {

std::string MimePartContainer::MakeBoundary() {
  uuid_t guid;
  uuid_generate_random(guid);
  char text[37];
  uuid_unparse_upper(guid, text);
  return std::string("--NextPart--ML") + text;
}

}  // namespace Mime
