#include "sdk/db/disk_writer.h"
