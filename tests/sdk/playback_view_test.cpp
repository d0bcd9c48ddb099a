// The `view` setting: what a player at a FIFO or in a file is given.
#include "sdk/workers/playback_view.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "sdk/board/encoder_channel.h"
#include "sdk/runtime/settings.h"
#include "sdk/video/picture_check.h"
#include "tests/support/temp_dir.h"

namespace {

// One channel's frames, shown as playback shows them.
class View : public ::testing::Test {
  protected:
    void SetUp() override {
        // As in the playback thread.
        sigset_t broken_pipe;
        sigemptyset(&broken_pipe);
        sigaddset(&broken_pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &broken_pipe, nullptr);
        encoder = sim::EncoderChannel();
        encoder.place(0, 4);
        encoder.set_format(false, {});
        encoder.set_resolution(0);  // 176 x 120
        encoder.set_idr_interval(5);
        encoder.switch_on({});
    }
    void TearDown() override {
        if (reader >= 0) close(reader);
        sim::reset_settings();
    }
    void set(const std::string& text) { sim::apply_settings(sim::settings(), text.c_str()); }
    std::string fifo(const char* name) {
        const std::string path = dir.file(name);
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        set("view=" + path);
        return path;
    }
    void look_at(const std::string& path) {
        reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(reader, 0);
    }
    // The next frame; its bytes are kept in `shown`.
    void show() { show(encoder, check); }
    void show(sim::EncoderChannel& from, sim::PictureCheck& checked) {
        qm_dbframe frame;
        frame.info = from.encode();
        frame.reserve(frame.info.bytes);
        from.write(frame.payload.get());
        checked.check(frame.info, frame.payload.get(), frame.info.bytes);
        view.show(frame, checked.picture());
        shown.emplace_back(frame.payload.get(), frame.payload.get() + frame.info.bytes);
    }
    void show(int frames) {
        for (int i = 0; i < frames; ++i) show();
    }
    std::string read_all() {
        std::string all;
        char piece[4096];
        for (ssize_t got; (got = read(reader, piece, sizeof piece)) > 0;)
            all.append(piece, static_cast<size_t>(got));
        return all;
    }
    // Of frames `from` to `to` - 1.
    std::string joined(size_t from, size_t to) {
        std::string all;
        for (size_t i = from; i < to; ++i) all.append(shown[i].begin(), shown[i].end());
        return all;
    }

    TempDir dir;
    sim::EncoderChannel encoder;
    sim::PictureCheck check;
    std::vector<std::vector<uint8_t>> shown;
    sim::PlaybackView view;
    int reader = -1;
};

TEST_F(View, IsWantedWhenItIsSet) {
    EXPECT_FALSE(sim::PlaybackView::wanted());
    set("view=/nowhere/x.h264");
    EXPECT_TRUE(sim::PlaybackView::wanted());
    set("view=nowhere");
    EXPECT_FALSE(sim::PlaybackView::wanted());
}

TEST_F(View, GivesAPlayerEveryFrameFromAKeyFrameOn) {
    look_at(fifo("pb.h264"));
    show(12);
    EXPECT_EQ(read_all(), joined(0, 12));
}

TEST_F(View, WaitsForAPlayerAndBeginsWithAKeyFrame) {
    const std::string path = fifo("pb.h264");
    show(7);
    look_at(path);
    show(8);  // numbers 7 to 14; 10 is a key frame
    EXPECT_EQ(read_all(), joined(10, 15));
}

TEST_F(View, OutlivesAPlayerThatLeavesAndServesTheNextOne) {
    const std::string path = fifo("pb.h264");
    look_at(path);
    show(3);
    close(reader);
    show(3);
    look_at(path);
    show(6);  // numbers 6 to 11
    EXPECT_EQ(read_all(), joined(10, 12));
}

// What does not fit into the pipe is left out up to a key frame, so that the rest is decoded.
TEST_F(View, LeavesOutWhatASlowPlayerDoesNotTake) {
    look_at(fifo("pb.h264"));
    encoder.set_resolution(3);
    encoder.set_qp(20);  // 40 KB a second frame and more: 1 MiB is soon full
    show(200);
    std::string seen = read_all();
    show(15);
    seen += read_all();
    EXPECT_LT(seen.size(), joined(0, shown.size()).size());
    sim::H264Reader decoder;
    const std::string delimiter("\0\0\0\1\t", 5);
    int pictures = 0;
    for (size_t at = 0; at < seen.size(); ++pictures) {
        const size_t next = std::min(seen.find(delimiter, at + 1), seen.size());
        ASSERT_TRUE(decoder.decode(reinterpret_cast<const uint8_t*>(seen.data()) + at, next - at))
            << pictures << ": " << decoder.error();
        at = next;
    }
    EXPECT_GT(pictures, 10);
}

TEST_F(View, MakesAFileOfPictures) {
    const std::string path = dir.file("pb.y4m");
    set("view=" + path);
    show(3);
    view.close();
    const std::string all = dir.read("pb.y4m");
    const std::string head = "YUV4MPEG2 W176 H120 F30:1 Ip A0:0 C420\n";
    ASSERT_EQ(all.substr(0, head.size()), head);
    const size_t samples = 176 * 120 * 3 / 2;
    ASSERT_EQ(all.size(), head.size() + 3 * (6 + samples));
    EXPECT_EQ(all.substr(head.size(), 6), "FRAME\n");
    const std::vector<uint8_t>& y = check.picture()->y;  // of the last one
    EXPECT_EQ(all.substr(head.size() + 2 * (6 + samples) + 6, y.size()),
              std::string(y.begin(), y.end()));
}

TEST_F(View, TellsTheRateOfPictures) {
    set("view=" + dir.file("pb.y4m"));
    encoder.set_frame_rate(12, 0, {});
    show(2);
    view.close();
    EXPECT_EQ(dir.read("pb.y4m").substr(0, 28), "YUV4MPEG2 W176 H120 F12:1 Ip");
}

TEST_F(View, TouchesNoFileThatIsThere) {
    const std::string path = dir.write("pb.h264", "mine");
    set("view=" + path);
    testing::internal::CaptureStderr();
    show(12);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "qm7105 board: view: " + path + ": there is such a file already\n");
    EXPECT_EQ(dir.read("pb.h264"), "mine");
}

TEST_F(View, EndsWhenTheSizeOfPicturesChanges) {
    const std::string path = dir.file("pb.y4m");
    set("view=" + path);
    show(2);
    testing::internal::CaptureStderr();
    encoder.set_resolution(1);
    show(8);
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "qm7105 board: view: " + path + ": the size of the pictures changed, the view ends\n");
}

TEST_F(View, ShowsTheChannelThatIsNamed) {
    look_at(fifo("pb.h264"));
    set("view_channel=4");  // counted from 1: channel 3
    show(6);
    EXPECT_EQ(read_all(), "");
    set("view_channel=5");
    show(6);  // numbers 6 to 11
    EXPECT_EQ(read_all(), joined(10, 12));
}

TEST_F(View, SaysOnceWhatCannotBeMade) {
    set("view=" + dir.file("none/pb.h264"));
    testing::internal::CaptureStderr();
    show(12);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "qm7105 board: view: " + dir.file("none/pb.h264") + ": No such file or directory\n");
}

TEST_F(View, StaysWithItsChannelWhenAPlayerLeaves) {
    const std::string path = fifo("pb.h264");
    look_at(path);
    show(6);
    close(reader);
    show();  // nobody takes it
    look_at(path);
    sim::EncoderChannel other;
    sim::PictureCheck of_other;
    other.place(0, 7);
    other.set_format(false, {});
    other.switch_on({});
    show(other, of_other);
    show(8);  // shown[8] and the others: numbers 7 to 14
    EXPECT_EQ(read_all(), joined(11, 16));
}

TEST_F(View, KeepsJpegPicturesOutOfAnH264Stream) {
    look_at(fifo("pb.h264"));
    show(3);
    encoder.set_codec_type(2);
    show(3);
    encoder.set_codec_type(0);
    show(5);  // begins with a key frame
    EXPECT_EQ(read_all(), joined(0, 3) + joined(6, 11));
}

// A picture of 1280 x 720 is larger than the pipe.
TEST_F(View, GivesTheRestOfAPictureWhenThePlayerTakesIt) {
    look_at(fifo("pb.y4m"));
    encoder.set_resolution(4);
    show();
    EXPECT_TRUE(view.waits());
    std::string all = read_all();
    view.tend();
    EXPECT_FALSE(view.waits());
    all += read_all();
    const std::string head = "YUV4MPEG2 W1280 H720 F30:1 Ip A0:0 C420\n";
    EXPECT_EQ(all.substr(0, head.size()), head);
    EXPECT_EQ(all.size(), head.size() + 6 + 1280 * 720 * 3 / 2);
}

TEST_F(View, BeginsAnewWhenItWasClosedAfterAFailure) {
    const std::string path = fifo("pb.y4m");
    look_at(path);
    show(2);
    testing::internal::CaptureStderr();
    encoder.set_resolution(1);
    show(1);
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    read_all();
    view.close();
    show(5);  // a key frame is among them
    const std::string head = "YUV4MPEG2 W352 H240 ";
    EXPECT_EQ(read_all().substr(0, head.size()), head);
}

TEST_F(View, TellsTheRangeOfJpegPictures) {
    const std::string path = dir.file("pb.y4m");
    set("view=" + path);
    encoder.set_codec_type(2);
    show();
    const std::string head = "YUV4MPEG2 W176 H120 F30:1 Ip A0:0 C420 XCOLORRANGE=FULL\n";
    EXPECT_EQ(dir.read("pb.y4m").substr(0, head.size()), head);
}

}  // namespace
