#include "sdk/db/crc32c.h"
