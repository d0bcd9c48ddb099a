// A recorder at work, step by step, with its books. Which steps, and what
// happens to the files meanwhile, stands in the proofs.
#ifndef TESTS_PROOF_RECORDING_SESSION_H
#define TESTS_PROOF_RECORDING_SESSION_H

#include <functional>
#include <memory>
#include <string>

#include "sdk/db/disk_writer.h"
#include "tests/proof/crash_files.h"
#include "tests/proof/frame_book.h"

enum class Step {
    small,   // appends a frame
    large,   // appends a larger one
    huge,    // appends one that is larger than the batch
    commit,  // makes all durable
    finish,  // ends the recording; the next step begins another
    reopen,  // ends it and begins another
    seal,    // appends until another segment begins
    turn,    // appends until the ring has turned once
    kill,    // the process is killed and begins again
};
inline constexpr Step ALL_STEPS[] = {Step::small,  Step::large,  Step::commit,
                                     Step::finish, Step::reopen, Step::seal,
                                     Step::turn,   Step::kill,   Step::huge};
const char* step_name(Step step);

// Takes the files and the books as they are; both may be copied at any change.
class RecordingSession {
  public:
    RecordingSession(CrashFiles& files, FrameBook& book, const sim::WriterOptions& options)
        : m_files(files), m_in_memory(&files), m_book(book), m_options(options) {}
    // On other files, whose segments the books do not see.
    RecordingSession(sim::FileSystem& files, const std::string& path, FrameBook& book,
                     const sim::WriterOptions& options)
        : m_files(files), m_path(path), m_book(book), m_options(options) {}
    ~RecordingSession() {
        if (m_in_memory) m_in_memory->on_change = nullptr;
    }
    RecordingSession(const RecordingSession&) = delete;
    RecordingSession& operator=(const RecordingSession&) = delete;

    // Called before every change of files in memory.
    void watch(std::function<void(const FileChange&)> watcher) {
        m_in_memory->on_change = std::move(watcher);
    }
    // Called when the recorder has said what is durable.
    std::function<void(uint64_t durable)> on_durable;

    // Empty when all went well.
    std::string run(Step step);
    // Begins to record, when nothing is recorded.
    std::string begin();

  private:
    std::string append(FrameSize size);
    std::string end();
    void acknowledge();

    sim::FileSystem& m_files;
    CrashFiles* const m_in_memory = nullptr;
    const std::string m_path = BOOK_PATH;
    FrameBook& m_book;
    const sim::WriterOptions m_options;
    std::unique_ptr<sim::DiskWriter> m_writer;
};

#endif  // TESTS_PROOF_RECORDING_SESSION_H
