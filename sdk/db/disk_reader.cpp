#include "sdk/db/disk_reader.h"
