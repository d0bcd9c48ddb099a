// Writes JPEG pictures as files.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64  // on 32-bit boards too
#endif
#include "tools/qmtool/jpeg_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "tools/qmtool/clip_file.h"
#include "tools/qmtool/clip_jpeg.h"
#include "tools/qmtool/output.h"
#include "tools/qmtool/sha256.h"

std::string JpegFolder::text_of(const Name& name) {
    char text[48];
    if (name.turn == 0)
        snprintf(text, sizeof text, "frame-%010" PRIu32 ".jpg", name.frame);
    else
        snprintf(text, sizeof text, "frame-%010" PRIu32 "-%" PRIu32 ".jpg", name.frame,
                 name.turn + 1);
    return text;
}

bool JpegFolder::fail(const std::string& name, int error) {
    m_error = interrupted() ? "interrupted" : name + ": " + strerror(error);
    return false;
}

JpegFolder::~JpegFolder() {
    if (!m_made_part) return;
    for (size_t i = m_moved; i < m_names.size(); ++i)
        unlink((m_part + text_of(m_names[i])).c_str());
    rmdir(m_part.c_str());
    // Stays when something else has come into it.
    if (m_made && m_moved == 0) rmdir(m_path.c_str());
}

bool JpegFolder::create(const std::string& path, bool replace) {
    m_path = path;
    m_replace = replace;
    while (m_path.size() > 1 && m_path.back() == '/') m_path.pop_back();
    m_made = mkdir(m_path.c_str(), 0750) == 0;
    if (!m_made && errno != EEXIST) return fail("the folder cannot be made", errno);
    if (m_path != "/") m_path += '/';
    m_part = m_path + "pictures.part/";
    m_made_part = mkdir(m_part.c_str(), 0750) == 0;
    if (m_made_part) return true;
    if (errno != EEXIST) return fail("the folder cannot be written", errno);
    m_error = m_part + " is there: another export writes it now, or was killed; then remove it";
    return false;
}

std::string JpegFolder::last_digest() const {
    Sha256 sum;
    sum.add(m_picture.data(), m_picture.size());
    return sum.finish();
}

bool JpegFolder::write_file(const std::string& name) {
    const int file = open((m_part + name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
    if (file < 0) return fail(name, errno);
    int error = 0;
    for (size_t at = 0; at < m_picture.size() && error == 0;) {
        const ssize_t done = write(file, m_picture.data() + at, m_picture.size() - at);
        if (done < 0 && errno == EINTR && !interrupted()) continue;
        if (done <= 0) error = done < 0 ? errno : ENOSPC;
        if (done > 0) at += static_cast<size_t>(done);
    }
    if (close(file) != 0 && error == 0) error = errno;
    return error == 0 || fail(name, error);
}

// The picture as it was recorded, and behind its comment one with the time.
ClipWriter::Taken JpegFolder::picture(const ClipFrame& clip) {
    const qm_dbframe& frame = clip.frame;
    const uint8_t* const bytes = frame.payload.get();
    JpegLayout layout;
    if (!look_at_jpeg(bytes, frame.info.bytes, layout)) return Taken::no_picture;
    m_size = layout.size;
    const std::string comment = comment_segment("recorded " + exact_time_text(frame.info.time_us));
    m_picture.assign(bytes, bytes + layout.comment_at);
    m_picture.insert(m_picture.end(), comment.begin(), comment.end());
    m_picture.insert(m_picture.end(), bytes + layout.comment_at, bytes + frame.info.bytes);

    Name name = {frame.info.number, 0};
    if (m_names.empty())
        m_first_us = clip.clip_us;
    else
        name.turn = m_names.back().turn + (frame.info.number <= m_names.back().frame ? 1 : 0);
    m_last_us = clip.clip_us;
    m_last_name = text_of(name);
    struct stat there = {};
    const bool is_there = lstat((m_path + m_last_name).c_str(), &there) == 0;
    if (is_there && (!m_replace || S_ISDIR(there.st_mode))) {
        m_error = m_last_name + (m_replace ? " is there already, a folder"
                                           : " is there already; --force replaces it");
        return Taken::failed;
    }
    m_names.push_back(name);
    m_bytes += m_picture.size();
    return write_file(m_last_name) ? Taken::written : Taken::failed;
}

// One sync for all of them: a file system has them all in the same place.
bool JpegFolder::settle(int64_t usual_us) {
    m_shown_us = m_names.empty() ? 0 : m_last_us - m_first_us + usual_us;
    const int folder = open(m_part.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return fail("cannot be made durable", errno);
    const int error = syncfs(folder) == 0 ? 0 : errno;
    close(folder);
    if (error != 0) return fail("cannot be made durable", error);
    return !interrupted() || fail("interrupted", EINTR);
}

bool JpegFolder::publish() {
    for (const Name& name : m_names) {
        const std::string text = text_of(name);
        if (!move_file(m_part + text, m_path + text, m_replace)) return fail(text, errno);
        ++m_moved;
    }
    if (!sync_folder_of(m_path)) return fail("the names cannot be made durable", errno);
    return true;
}
