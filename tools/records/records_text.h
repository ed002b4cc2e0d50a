// The readable form of inspected records: one block per file, headed by its path and what it
// is, then its content, its notes and, for a damaged file, its error. Times are UTC.
// Pure functions; any thread.
#pragma once

#include <string>
#include <vector>

#include "tools/records/records_record.h"

namespace Inspect {

std::string RecordText(const InspectedRecord& r);
// Every record, after a heading naming the root.
std::string ReportText(const std::string& root, const std::vector<InspectedRecord>& records);

}  // namespace Inspect
