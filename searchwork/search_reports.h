// The status reports of the playback side.
//
// Each clears *out and appends its report; the string is left empty outside the SEARCH menu. They
// take no lock; the playback thread that they read is held until they are done. Any thread; the
// status thread calls them once a second.
#ifndef SEARCHWORK_SEARCH_REPORTS_H
#define SEARCHWORK_SEARCH_REPORTS_H

#include <string>

// Search rate table. Reading starts the period figures again at 0.
void app_searchwork_getstatus_string(std::string* out);

// Search IDR table: the main stream's settings, and the playback thread's figures.
void app_searchwork_get_idr_status_string(std::string* out);

#endif  // SEARCHWORK_SEARCH_REPORTS_H
