// Finding and decoding every persistent record under a directory: a device root (records at
// their device paths, "/log/soh/..." and "/splash2/battery/...") or a directory pulled from a
// phone (the same files side by side). Both layouts are searched; each file is read (at most
// kMaxRecordBytes) and handed to its decoder. A file that cannot be read or decoded becomes a
// record with an error; the scan goes on with the next one.
//
// The anti-swelling swell values need the configured swell table: it is taken from the first
// "quen.json" found under the root at the configuration paths (over-the-air, ODM, vendor) or
// at the root itself, that has an ASW battery of the record's name.
//
// No shared state; any thread.
#pragma once

#include <string>
#include <vector>

#include "tools/records/records_record.h"

namespace Inspect {

constexpr size_t kMaxRecordBytes = 16u << 20;

// The records under `root` in a fixed order (sys_para, basp, asw, cvt, acr, dcr, eis).
// False, with the reason in `error`, only when `root` is not a readable directory.
bool ScanRoot(const std::string& root, std::vector<InspectedRecord>& records, std::string& error);

}  // namespace Inspect
