// Large pieces of files for a reader who goes from record to record: while it works on one, the
// next ones are read. Knows nothing of records.
#ifndef SDK_DB_READ_AHEAD_H
#define SDK_DB_READ_AHEAD_H

#include <memory>

#include "sdk/db/file_system.h"
#include "sdk/db/pending_io.h"

namespace sim {

// One thread at a time. Three pieces of PIECE_BYTES of memory once it is used: one at hand, two on
// their way.
class ReadAhead {
  public:
    static constexpr size_t PIECE_BYTES = 4 << 20;

    ReadAhead(FileSystem& files, bool own_threads);
    ~ReadAhead();

    // begin() means file `number` from now on; `file` was opened with Access::stream and is closed
    // here.
    void use(uint64_t number, int file);
    // The file used last; 0 for none.
    uint64_t number() const { return m_number; }

    // `size` bytes of file `number`, when they are at hand or were begun; else null. Valid until
    // the next call.
    const uint8_t* at(uint64_t number, uint64_t offset, size_t size);
    // There is room to begin another piece.
    bool has_room() const { return m_begun < PIECES - 1; }
    // Begins to read the file used last from the block of `offset` on, up to `end` at the most.
    // False without memory, or when there is nothing to read. Needs room.
    bool begin(uint64_t offset, uint64_t end);
    // Where the piece ends that was begun last, or is at hand, in its file.
    uint64_t end() const { return last().offset + last().size; }
    // Nothing is at hand or on its way.
    void forget();

  private:
    static constexpr size_t PIECES = 3;
    struct Release {
        void operator()(uint8_t* bytes) const;
    };
    struct Piece {
        Piece(FileSystem& files, bool own_thread) : io(files, own_thread) {}
        bool has(uint64_t of, uint64_t from, size_t wanted) const;

        std::unique_ptr<uint8_t[], Release> bytes;
        uint64_t number = 0;
        uint64_t offset = 0;
        size_t size = 0;  // that was asked for; once it is at hand, that was read
        PendingIo io;
    };

    Piece& piece(size_t ahead) { return m_pieces[(m_at_hand + ahead) % PIECES]; }
    const Piece& last() const { return m_pieces[(m_at_hand + m_begun) % PIECES]; }

    FileSystem& m_files;
    uint64_t m_number = 0;
    int m_file = -1;
    int m_file_before = -1;  // the one used before, pieces of which may be on their way
    Piece m_pieces[PIECES];
    size_t m_at_hand = 0;  // place of the piece at hand; those begun are behind it, in a circle
    size_t m_begun = 0;
};

}  // namespace sim

#endif  // SDK_DB_READ_AHEAD_H
