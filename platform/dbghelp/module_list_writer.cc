#include <cstring>

#include "platform/dbghelp/minidump_api.h"
#include "platform/dbghelp/stream_writers.h"

namespace mldbghelp {

bool WriteModuleListStream(const ProcessSnapshot& snapshot, FileWriter* file, Directory* entry) {
  const uint32_t count = static_cast<uint32_t>(snapshot.modules.size());
  Module* records = snapshot.arena->AllocateArray<Module>(count ? count : 1);
  if (!records) return false;
  // Names and CodeView records go first, so the list is written once with
  // every RVA known.
  for (uint32_t i = 0; i < count; ++i) {
    const ModuleSnapshot& m = snapshot.modules[i];
    Module& r = records[i];
    r.baseOfImage = m.base;
    r.sizeOfImage = static_cast<uint32_t>(m.size);
    r.moduleNameRva = file->WriteString(m.path);
    if (!r.moduleNameRva) return false;
    if (m.writeFlags & ModuleWriteCvRecord) {
      // The ELF form of the CodeView record: signature, then the GNU build id.
      if (!file->Align(4)) return false;
      r.cvRecord = {4 + m.buildIdSize, file->rva()};
      if (!file->Write(&kCvSignatureElf, 4) || !file->Write(m.buildId, m.buildIdSize)) return false;
    }
  }
  if (!file->Align(8)) return false;
  const uint32_t listRva = file->rva();
  if (!file->Write(&count, 4) || !file->Write(records, count * sizeof(Module))) return false;
  *entry = {kModuleListStream, {4 + count * static_cast<uint32_t>(sizeof(Module)), listRva}};
  return true;
}

}  // namespace mldbghelp
