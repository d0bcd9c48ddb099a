// Playback of recorded pictures: what is found in them, and what a player is given meanwhile.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sdk/db/stream_db.h"
#include "sdk/sim_control.h"
#include "tests/support/sim_session.h"
#include "tests/support/temp_dir.h"

namespace {

using sim::StreamDb;

class PicturePlayback : public SimSession {
  protected:
    void TearDown() override {
        player.DestroyThread();
        if (reader >= 0) close(reader);
        SimSession::TearDown();
    }

    // Records what is on in `stream` into a new database.
    template <class Recorder>
    StreamDb* record(int64_t seconds) {
        iqm_db* db = open_memory_db("main.ini");
        Recorder recorder;
        start(recorder, db);
        step_seconds(seconds);
        recorder.DestroyThread();
        return StreamDb::of(db);
    }
    StreamDb* record(int64_t seconds) { return record<qm_thread_encode>(seconds); }
    // What `change` makes of each record, in a database of its own.
    StreamDb* changed(StreamDb* from, const std::function<void(uint64_t, qm_dbframe&)>& change) {
        StreamDb* to = StreamDb::of(open_memory_db("changed.ini"));
        to->begin_writing();
        for (uint64_t n = from->first(); n < from->end(); ++n) {
            qm_dbframe frame;
            EXPECT_TRUE(from->read(n, frame));
            change(n, frame);
            EXPECT_EQ(to->append(frame), StreamDb::Appended::stored);
        }
        to->end_writing();
        return to;
    }
    // The payloads of the frames from `first` to the one before `last`.
    static std::string joined(StreamDb* db, uint64_t first, uint64_t last) {
        std::string all;
        qm_dbframe frame;
        for (uint64_t n = first; n < last; ++n) {
            EXPECT_TRUE(db->read(n, frame));
            all.append(reinterpret_cast<const char*>(frame.payload.get()), frame.info.bytes);
        }
        return all;
    }

    void ask(PB_STATE state) {
        player.SetPBState(state);
        sim::step_clock(0);
    }
    void begin(iqm_db* db) {
        start(player, db);
        player.SetPBChannelEnableMask(0xFFFF, 15);
        ask(PB_STATE_FORWARD);
    }
    int total(int ch = 0) { return player.GetCalculData(CALCUL_TOTAL_FRAMES, ch); }
    uint64_t damaged() { return sim::playback_report(player).damaged; }

    std::string fifo() {
        const std::string path = folder.file("pb.h264");
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        sim::control(("view=" + path).c_str());
        return path;
    }
    void look_at(const std::string& path) {
        reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(reader, 0);
    }
    std::string read_all() {
        std::string all;
        char piece[4096];
        for (ssize_t got; (got = read(reader, piece, sizeof piece)) > 0;)
            all.append(piece, static_cast<size_t>(got));
        return all;
    }

    TempDir folder;
    qm_thread_decode player;
    int reader = -1;
};

// Every pattern, both formats that are played, four sizes.
TEST_F(PicturePlayback, FindsNothingWrongInWhatTheBoardRecords) {
    for (int ch = 0; ch < 16; ++ch) switch_on(0, ch, 10, 4, static_cast<uint32_t>(ch) % 4);
    encoder->SetCodecType(0, 5, 2);  // JPEG
    begin(record(3));
    step_seconds(4);
    for (int ch = 0; ch < 16; ++ch) EXPECT_EQ(total(ch), 30) << ch;
    EXPECT_EQ(damaged(), 0u);
}

TEST_F(PicturePlayback, FindsNothingWrongInFramesThatTheEncoderPassedOver) {
    sim::control("drop=30");
    switch_on(0, 0, 30, 10);
    StreamDb* db = record(5);
    const uint64_t recorded = db->end() - db->first();
    EXPECT_LT(recorded, 130u);  // of 150
    begin(db);
    step_seconds(6);
    EXPECT_EQ(static_cast<uint64_t>(total()), recorded);
    EXPECT_EQ(damaged(), 0u);
}

TEST_F(PicturePlayback, FindsNothingWrongAtAnySpeedAndBehindSkippedFrames) {
    switch_on(0, 0, 30, 10);
    begin(record(4));
    for (int i = 0; i < 6; ++i) {
        player.SpeedControl(i % 2 == 0 ? 1 : 0, 3);  // 8 times, normal, ...
        sim::step_clock(200'000);
    }
    player.SetPBChannelEnableMask(0, 15);
    sim::step_clock(100'000);
    player.SetPBChannelEnableMask(1, 15);
    step_seconds(10);
    EXPECT_GT(total(), 12);
    EXPECT_EQ(damaged(), 0u);
}

// Delivered and counted like the others, and so are those behind it, which wait for a key frame.
TEST_F(PicturePlayback, CountsOneDamagedFrame) {
    switch_on(0, 0, 10, 10);
    StreamDb* db = record(3);
    StreamDb* spoilt = changed(db, [](uint64_t n, qm_dbframe& frame) {
        for (uint32_t i = frame.info.bytes / 2; n == 13 && i < frame.info.bytes; ++i)
            frame.payload[i] = 0xFF;
    });
    begin(spoilt);
    step_seconds(4);
    EXPECT_EQ(total(), 30);
    EXPECT_EQ(damaged(), 1u);
    // Once more, from the beginning.
    ask(PB_STATE_FORWARD);
    step_seconds(4);
    EXPECT_EQ(total(), 60);
    EXPECT_EQ(damaged(), 2u);
}

// Each start counts for itself; the first is told of, and in the end how many there were.
TEST_F(PicturePlayback, TellsOfDamagedFrames) {
    switch_on(0, 2, 10, 1);
    StreamDb* db = changed(record(1), [](uint64_t n, qm_dbframe& frame) {
        if (n == 3 || n == 5) frame.info.number += 100;
    });
    const std::string first =
        "qm7105 board: playback: frame 103 of stream 0, channel 2 is damaged: its picture is that "
        "of stream 0, channel 2, frame 3\n";
    for (int i = 0; i < 2; ++i) {
        testing::internal::CaptureStderr();
        begin(db);
        sim::step_clock(400'000);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), first);
        testing::internal::CaptureStderr();
        step_seconds(1);
        EXPECT_EQ(damaged(), 2u);
        player.DestroyThread();
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "qm7105 board: playback: 2 damaged frames were delivered\n");
    }
}

TEST_F(PicturePlayback, DeliversEmptyPayloadsAndCountsThem) {
    switch_on(0, 0, 10, 1);
    begin(changed(record(1), [](uint64_t n, qm_dbframe& frame) {
        if (n == 3 || n == 4) frame.info.bytes = 0;
    }));
    step_seconds(2);
    EXPECT_EQ(total(), 10);
    EXPECT_EQ(damaged(), 2u);
}

TEST_F(PicturePlayback, CountsDamagedFramesOnNextFrameToo) {
    switch_on(0, 0, 10, 1);
    StreamDb* spoilt = changed(record(1), [](uint64_t n, qm_dbframe& frame) {
        if (n == 3 || n == 5) frame.payload[frame.info.bytes / 2] ^= 0xFF;
    });
    begin(spoilt);
    ask(PB_STATE_PAUSE);
    for (int i = 0; i < 12; ++i) ask(PB_STATE_NEXT_FRAME);
    EXPECT_EQ(total(), 10);
    EXPECT_EQ(damaged(), 2u);
}

TEST_F(PicturePlayback, CountsRecordsThatNameAnotherFrame) {
    switch_on(0, 0, 10, 5);
    switch_on(0, 1, 10, 5);
    StreamDb* db = record(2);
    uint64_t renamed = 0;
    begin(changed(db, [&](uint64_t n, qm_dbframe& frame) {
        if (n % 13 != 6) return;
        frame.info.number += 100;
        ++renamed;
    }));
    step_seconds(3);
    EXPECT_EQ(total(0) + total(1), 40);
    EXPECT_EQ(renamed, 3u);
    EXPECT_EQ(damaged(), renamed);
}

TEST_F(PicturePlayback, GivesAPlayerWhatItDelivers) {
    const std::string path = fifo();
    switch_on(0, 0, 10, 5);
    StreamDb* db = record(3);
    look_at(path);
    begin(db);
    EXPECT_EQ(read_all(), joined(db, 0, 1));
    sim::step_clock(950'000);
    EXPECT_EQ(read_all(), joined(db, 1, 10));
    ask(PB_STATE_PAUSE);
    step_seconds(5);
    EXPECT_EQ(read_all(), "");
    ask(PB_STATE_NEXT_FRAME);
    EXPECT_EQ(read_all(), joined(db, 10, 11));
}

// It is larger than a pipe: the rest comes when the player has taken what is there.
TEST_F(PicturePlayback, GivesAPlayerAWholePictureOnNextFrame) {
    const std::string path = folder.file("pb.y4m");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    sim::control(("view=" + path).c_str());
    switch_on(0, 0, 10, 5, 4);
    StreamDb* db = record(1);
    look_at(path);
    begin(db);
    ask(PB_STATE_PAUSE);
    ask(PB_STATE_NEXT_FRAME);
    std::string all = read_all();
    sim::step_clock(100'000);
    all += read_all();
    const std::string head = "YUV4MPEG2 W1280 H720 F10:1 Ip A0:0 C420\n";
    EXPECT_EQ(all.size(), head.size() + 6 + 1280 * 720 * 3 / 2);
}

// A damaged frame too: what was recorded is what is given.
TEST_F(PicturePlayback, GivesAPlayerDamagedFramesAsTheyAre) {
    const std::string path = fifo();
    switch_on(0, 0, 10, 5);
    StreamDb* spoilt = changed(record(2), [](uint64_t n, qm_dbframe& frame) {
        if (n == 7) frame.payload[frame.info.bytes / 2] ^= 0xFF;
    });
    look_at(path);
    begin(spoilt);
    step_seconds(3);
    EXPECT_EQ(read_all(), joined(spoilt, 0, 20));
}

TEST_F(PicturePlayback, GoesOnWithoutAPlayerAndBehindOneThatLeft) {
    const std::string path = fifo();
    switch_on(0, 0, 10, 5);
    StreamDb* db = record(4);
    begin(db);  // nobody reads
    sim::step_clock(650'000);
    EXPECT_EQ(total(), 7);
    look_at(path);
    sim::step_clock(500'000);  // numbers 7 to 11; 10 is a key frame
    EXPECT_EQ(read_all(), joined(db, 10, 12));
    close(reader);
    reader = -1;
    sim::step_clock(1'000'000);  // a write to nobody: the signal must end nothing
    EXPECT_EQ(total(), 22);
    look_at(path);
    sim::step_clock(500'000);  // 22 to 26
    EXPECT_EQ(read_all(), joined(db, 25, 27));
    EXPECT_EQ(total(), 27);
}

TEST_F(PicturePlayback, EndsAFileWithItsThread) {
    const std::string path = folder.file("pb.y4m");
    sim::control(("view=" + path + " view_channel=2").c_str());
    switch_on(0, 0, 10, 5);
    switch_on(0, 1, 10, 5);
    begin(record(2));
    step_seconds(3);
    player.DestroyThread();
    const std::string head = "YUV4MPEG2 W176 H120 F10:1 Ip A0:0 C420\n";
    const std::string all = folder.read("pb.y4m");
    EXPECT_EQ(all.substr(0, head.size()), head);
    EXPECT_EQ(all.size(), head.size() + 20 * (6 + 176 * 120 * 3 / 2));
}

}  // namespace
