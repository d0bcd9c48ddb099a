// Three pieces in turns.
#include "sdk/db/read_ahead.h"

#include <sys/mman.h>

#include <algorithm>
#include <new>

#include "sdk/db/format.h"

namespace sim {

namespace {

// That of large pages: a disk takes a piece in such pages with one request instead of several.
constexpr std::align_val_t ALIGNMENT{2 << 20};

}  // namespace

void ReadAhead::Release::operator()(uint8_t* bytes) const { operator delete(bytes, ALIGNMENT); }

bool ReadAhead::Piece::has(uint64_t of, uint64_t from, size_t wanted) const {
    return of == number && from >= offset && from - offset <= size &&
           size - (from - offset) >= wanted;
}

ReadAhead::ReadAhead(FileSystem& files, bool own_threads)
    : m_files(files), m_pieces{{files, own_threads}, {files, own_threads}, {files, own_threads}} {}

ReadAhead::~ReadAhead() {
    forget();
    if (m_file >= 0) m_files.close(m_file);
    if (m_file_before >= 0) m_files.close(m_file_before);
}

void ReadAhead::forget() {
    for (Piece& piece : m_pieces) {
        if (piece.io.pending()) piece.io.finish();
        piece.size = 0;
    }
    m_begun = 0;
}

void ReadAhead::use(uint64_t number, int file) {
    for (size_t ahead = 1; ahead <= m_begun; ++ahead)
        if (m_file_before >= 0 && piece(ahead).number != m_number) forget();
    if (m_file_before >= 0) m_files.close(m_file_before);
    m_file_before = m_file;
    m_file = file;
    m_number = number;
}

const uint8_t* ReadAhead::at(uint64_t number, uint64_t offset, size_t size) {
    for (size_t ahead = 0; ahead <= m_begun; ++ahead) {
        if (!piece(ahead).has(number, offset, size)) continue;
        for (; ahead > 0; --ahead, --m_begun) {
            m_at_hand = (m_at_hand + 1) % PIECES;
            Piece& now = piece(0);
            const int64_t got = now.io.finish();
            now.size = got > 0 ? std::min(now.size, static_cast<size_t>(got)) : 0;
        }
        const Piece& now = piece(0);
        return now.has(number, offset, size) ? now.bytes.get() + (offset - now.offset) : nullptr;
    }
    forget();
    return nullptr;
}

bool ReadAhead::begin(uint64_t offset, uint64_t end) {
    Piece& next = piece(m_begun + 1);
    if (!next.bytes) {
        next.bytes.reset(static_cast<uint8_t*>(operator new(PIECE_BYTES, ALIGNMENT, std::nothrow)));
        if (next.bytes) madvise(next.bytes.get(), PIECE_BYTES, MADV_HUGEPAGE);  // a hint
    }
    const uint64_t start = offset / BLOCK_BYTES * BLOCK_BYTES;
    if (!next.bytes || end <= start) return false;
    next.number = m_number;
    next.offset = start;
    next.size =
        static_cast<size_t>(std::min<uint64_t>(PIECE_BYTES, round_up_to_block(end - start)));
    next.io.begin_read(m_file, next.bytes.get(), next.size, start);
    ++m_begun;
    return true;
}

}  // namespace sim
