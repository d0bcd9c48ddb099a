// The directory at the end of a finished segment: read, and checked against itself. It is a cache
// of what a scan finds.
#ifndef SDK_DB_DIRECTORY_H
#define SDK_DB_DIRECTORY_H

#include <vector>

#include "sdk/db/file_system.h"
#include "sdk/db/format.h"

namespace sim {

// Reads the directory at the end of the file. Returns the offset behind it, where the segment ends;
// 0 when there is none that can be trusted: then a scan tells.
uint64_t load_directory(FileSystem& files, int file, const SegmentHeader& header,
                        std::vector<DirectoryEntry>& entries);

}  // namespace sim

#endif  // SDK_DB_DIRECTORY_H
