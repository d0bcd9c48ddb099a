// The status reports of the encode side.
//
// Each takes _l_mtx_mainwork, clears *out and appends its report; it prints nothing. The string is
// left empty when the encoder that the report needs is not running, and untouched when `out` is
// null or there is no environment. Any thread; the status thread calls them once a second.
#ifndef MAINWORK_ENCODE_REPORTS_H
#define MAINWORK_ENCODE_REPORTS_H

#include <string>

#include "mainwork/qm_codec.h"

// Main-stream rate table. Takes the period counters of every channel: they start again at 0.
void app_mainwork_getstatus_string(std::string* out);

// Main-stream IDR table: the settings, and the encoder's figures.
void app_mainwork_get_idr_status_string(std::string* out);

// Audio frame counts. No menu asks for it.
void app_get_audio_frame_count_status(std::string* out);

// Rate table of stream 1..5; needs the other-stream and the JPEG encoder. Takes the period
// counters. Any other number has an error line for a title.
void app_get_other_stream_status(std::string* out, QMCODEC_STREAM stream);

// IDR table of the dual stream; any other number has an error line for a title.
void app_get_other_stream_idr_status(std::string* out, QMCODEC_STREAM stream);

#endif  // MAINWORK_ENCODE_REPORTS_H
