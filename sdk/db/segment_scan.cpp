#include "sdk/db/segment_scan.h"
