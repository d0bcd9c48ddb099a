// Loading the environment file into the record. How an INI file is read stands in qm_profile.h.
#include <cstdio>
#include <cstring>
#include <string>

#include "env/app_env.h"
#include "shell/qm_profile.h"
#include "shell/qm_string.h"

namespace {

constexpr int PATH_SIZE = 256;
constexpr int VALUE_SIZE = 256;
constexpr int VALUE_READ_SIZE = 255;  // what the profile reader is told
constexpr int TOKEN_SIZE = 32;

// In the order of the streams' numbers.
const char* const STREAM_SECTIONS[QMCODEC_STREAMS] = {
    "MAIN STREAM", "DUAL STREAM", "JPEG STREAM", "PREVIEW STREAM", "3RD STREAM", "4TH STREAM",
};

// True when the key was found; `value` then holds its text.
bool read_text(const char* section, const char* key, char (&value)[VALUE_SIZE], const char* path) {
    memset(value, 0, sizeof value);
    return getPrivateProfileString(section, key, "", value, VALUE_READ_SIZE, path) != 0;
}

// An absent key empties the field: the built-in defaults are never mixed into a loaded file.
void read_field(const char* key, std::string& field, const char* path) {
    char value[VALUE_SIZE];
    if (read_text("GENERAL", key, value, path))
        field = value;
    else
        field.clear();
}

void read_numbered_fields(const char* format, std::string* fields, int count, const char* path) {
    for (int i = 0; i < count; ++i) {
        char key[32];
        snprintf(key, sizeof key, format, i);
        read_field(key, fields[i], path);
    }
}

uint32_t read_number(const char* key, int fallback, const char* path) {
    return static_cast<uint32_t>(getPrivateProfileInt("GENERAL", key, fallback, path));
}

bool read_channel(const char* section, int ch, char (&value)[VALUE_SIZE], const char* path) {
    char key[16];
    snprintf(key, sizeof key, "ch_%02d", ch + 1);
    return read_text(section, key, value, path);
}

uint32_t decode_type_of(const CAppEnv& env) {
    if (env.decode_stream_db == env.main_stream_db) return 0;
    if (env.decode_stream_db == env.dual_stream_db) return 1;
    if (env.decode_stream_db == env.jpeg_stream_db) return 2;
    return 3;
}

void store_channel_field(tagVEncChannelUnit& unit, int field, int value) {
    const auto number = static_cast<uint32_t>(value);
    switch (field) {
        case 0: unit.enable = static_cast<uint8_t>(value); break;
        case 1: unit.codectype = number; break;
        case 2: unit.framerate = number; break;
        case 3: store_idr(unit, number); break;
        case 4: unit.bitratetype = number; break;
        case 5: unit.qp = static_cast<uint8_t>(value % 52); break;
        case 6: unit.bitrate = number; break;
        case 7: unit.res = number; break;
        default: break;  // a line's further tokens are ignored
    }
}

}  // namespace

uint32_t CAppEnv::LoadEnv(std::string file) {
    char path[PATH_SIZE];
    snprintf(path, sizeof path, "%s", file.c_str());
    if (!qm_existfile(path)) return 0;

    board_type = read_number("board_type", 0, path);
    sub_ev_type = read_number("sub_ev_type", 0, path);
    main_database_type = read_number("main_database_type", 2, path);
    dual_database_type = read_number("dual_database_type", 2, path);
    jpeg_database_type = read_number("jpeg_database_type", 2, path);
    video_format = read_number("video_format", 0, path);
    field_type = read_number("field_type", 0, path);

    read_field("main_stream_db", main_stream_db, path);
    read_field("dual_stream_db", dual_stream_db, path);
    read_field("jpeg_stream_db", jpeg_stream_db, path);
    read_field("decode_stream_db", decode_stream_db, path);
    decode_db_type = decode_type_of(*this);

    read_numbered_fields("parameter_file_name_%d", parameter_file_name, 4, path);
    read_numbered_fields("qp_table_%d", qp_table, 2, path);

    char value[VALUE_SIZE];
    // Kept: unlike the other file names, an absent firmware leaves the field as it was.
    if (read_text("GENERAL", "firmware", value, path)) firmware = value;

    for (int stream = 0; stream < QMCODEC_STREAMS; ++stream)
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
            if (read_channel(STREAM_SECTIONS[stream], ch, value, path))
                _GetStreamSetupValue(&venc[stream][ch], value);

    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
        if (read_channel("AUDIO", ch, value, path))
            audio_enable[ch] = static_cast<uint8_t>(qm_atoi(value));
    return 1;
}

// Kept: only blanks separate the numbers; commas and quotes inside the line are dropped ("1,0"
// reads as 10), and the line's last character always belongs to a token, a blank too.
uint32_t CAppEnv::_GetStreamSetupValue(tagVEncChannelUnit* unit, char* line) {
    char token[TOKEN_SIZE] = {};
    int length = 0;
    int field = 0;
    const size_t n = strlen(line);
    for (size_t i = 0; i < n; ++i) {
        const char c = line[i];
        const bool last = i + 1 == n;
        const bool ends = last || (c == ' ' && length > 0);
        const bool kept = last || (c != ' ' && c != '"' && c != ',');
        if (kept && length < TOKEN_SIZE - 1) token[length++] = c;
        if (!ends) continue;
        store_channel_field(*unit, field++, qm_atoi(token));
        memset(token, 0, sizeof token);
        length = 0;
    }
    return 1;
}
