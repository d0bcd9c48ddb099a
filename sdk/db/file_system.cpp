#include "sdk/db/file_system.h"
