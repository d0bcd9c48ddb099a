// The SDK's readers of INI profiles. Console thread only.
//
// A profile is text: [section] lines, key=value lines, comment lines that begin with ; or #. Names
// match without regard to case; the first of two equal sections or keys wins. Blanks around names
// and values are dropped, then one pair of double quotes around a value. LF or CR LF, a UTF-8
// byte-order mark and lines of any length are read; a NUL byte ends a value. Only regular files of
// up to 1 MiB are read; anything else counts as a file that does not exist.
#ifndef SHELL_QM_PROFILE_H
#define SHELL_QM_PROFILE_H

#include <string>

// Non-zero when `path` is a readable profile file. Something that is there but cannot be a profile
// (a directory, a FIFO, a device, a file over 1 MiB, one without read permission) gives 0 and one
// line on standard error. Reads the file once; the readers below use what was read for as long as
// the file stays as it is.
int qm_existfile(std::string path);

// The integer value of `key` in `section` of the file: decimal as qm_atoi reads it, hexadecimal
// when it begins with 0x. `fallback` when the file, the section, the key or its value is missing.
int getPrivateProfileInt(const char* section, const char* key, int fallback, const char* file);

// Copies the text of `key` (or `fallback`, when it is missing) into `buffer`, cut to `size` bytes
// with the terminator. Non-zero when the key was found, also with an empty value; zero otherwise.
int getPrivateProfileString(const char* section, const char* key, const char* fallback,
                            char* buffer, int size, const char* file);

#endif  // SHELL_QM_PROFILE_H
