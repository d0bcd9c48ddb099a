// The machine's files with the faults that an engineer asked for.
#ifndef SDK_DB_REHEARSED_FILES_H
#define SDK_DB_REHEARSED_FILES_H

#include "sdk/db/file_system.h"

namespace sim {

// As real_file_system(); writes fail with EIO as the setting `fail.disk` says.
FileSystem& rehearsed_file_system();

}  // namespace sim

#endif  // SDK_DB_REHEARSED_FILES_H
