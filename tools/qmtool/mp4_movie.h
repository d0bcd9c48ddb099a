// The moov box of a film with one picture track and at most one sound track. What the samples are
// and where they stand in the file is given; nothing here reads or writes a file.
#ifndef TOOLS_QMTOOL_MP4_MOVIE_H
#define TOOLS_QMTOOL_MP4_MOVIE_H

#include <cstdint>
#include <string>
#include <vector>

#include "sdk/video/picture.h"
#include "tools/qmtool/mp4_samples.h"

inline constexpr uint32_t MOVIE_TICKS_PER_SECOND = 90'000;

enum class MovieKind { quicktime, mp4 };

// How the samples of a stretch are to be decoded.
struct SampleDescription {
    bool jpeg = false;
    sim::PictureSize size;
    std::vector<uint8_t> sps, pps;  // of H.264: NAL units
    bool operator==(const SampleDescription&) const = default;
};

// What is shown of a track: nothing for a while, then its samples from one tick of its own on.
struct Edit {
    uint64_t empty_ticks = 0;  // of the movie
    uint64_t skipped = 0;      // ticks of the track
    uint64_t shown_ticks = 0;  // of the movie
};

struct Movie {
    MovieKind kind = MovieKind::quicktime;
    int64_t start_us = 0;  // recorded time (UTC) of what is shown first
    std::vector<SampleDescription> descriptions;
    SampleTable pictures;
    Edit picture_edit;
    SampleTable sound{1};  // mu-law bytes; empty: there is no such track
    Edit sound_edit;
};

// The ftyp box, with which the file begins.
void write_file_type(Boxes& boxes, MovieKind kind);
void write_movie(Boxes& boxes, const Movie& movie);

#endif  // TOOLS_QMTOOL_MP4_MOVIE_H
