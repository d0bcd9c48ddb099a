// The directory at the end of a finished segment: read, and checked against itself. It is a cache
// of what a scan finds.
#ifndef SDK_DB_DIRECTORY_H
#define SDK_DB_DIRECTORY_H

#include <vector>

#include "sdk/db/segment_scan.h"

namespace sim {

// Reads the directory at the end of the file. False when there is none that can be trusted: then a
// scan tells. `known` is what the scan would have found. A write that was interrupted may have left
// a whole directory: the records of its own batch are verified with it.
bool load_directory(FileSystem& files, int file, const SegmentHeader& header,
                    std::vector<DirectoryEntry>& entries, ScanResult& known);

}  // namespace sim

#endif  // SDK_DB_DIRECTORY_H
