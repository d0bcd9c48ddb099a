// PB: what each form of the command sends to the playback thread.
#include "searchwork/playback.h"

#include <sstream>

#include "tests/support/room_test.h"
#include "tests/support/screens.h"

namespace {

class Playback : public RoomTest {
  protected:
    void SetUp() override {
        RoomTest::SetUp();
        g_appenv.chip_mask = 15;
        _l_stDec.thread = new qm_thread_decode;
        fake().take_journal();
    }

    // Words after PB, as the menu loop delivers them.
    std::string pb(const std::string& text) {
        std::vector<std::string> words = {"PB"};
        std::istringstream line(text);
        for (std::string word; line >> word;) words.push_back(word);
        const std::string shown = typed(searchwork_pb, words);
        EXPECT_EQ(0, result) << text;
        return shown;
    }

    void expect_call(const std::string& text, const std::string& call) {
        EXPECT_EQ("", pb(text)) << text;
        EXPECT_EQ(call + "\n", journal()) << text;
    }
    void expect_error(const std::string& text) {
        EXPECT_EQ(escaped("[PB] Err! Parameter.\n"), pb(text)) << text;
        EXPECT_EQ("", journal()) << text;
    }
    void expect_nothing(const std::string& text) {
        EXPECT_EQ("", pb(text)) << text;
        EXPECT_EQ("", journal()) << text;
    }
};

TEST_F(Playback, PrintsItsHelpBoxAlone) {
    EXPECT_EQ(escaped(PB_HELP), pb(""));
    EXPECT_EQ("", journal());
}

TEST_F(Playback, PassesForwardAndNextFrameOn) {
    expect_call("4", "SetPBState 4");
    expect_call("5", "SetPBState 5");
}

TEST_F(Playback, PausesForEveryOtherState) {
    for (const char* state : {"0", "1", "2", "3", "6", "7", "-4", "45", "FORWARD", "UP"})
        expect_call(state, "SetPBState 3");
}

TEST_F(Playback, ChangesTheSpeedByOneStepWithoutANumber) {
    expect_call("SPEED UP", "SpeedControl 1 1");
    expect_call("SPEED DN", "SpeedControl 0 1");
}

TEST_F(Playback, ChangesTheSpeedByTheStepsGiven) {
    expect_call("SPEED UP 2", "SpeedControl 1 2");
    expect_call("SPEED DN 3", "SpeedControl 0 3");
    expect_call("SPEED DN -7", "SpeedControl 0 -7");
    expect_call("SPEED UP X", "SpeedControl 1 0");
}

TEST_F(Playback, RefusesAnUnknownDirection) {
    expect_error("SPEED LEFT");
    expect_error("SPEED LEFT 2");
    expect_error("SPEED DOWN");
    expect_error("SPEED up");
    expect_error("SPEED 1");
}

TEST_F(Playback, ReadsTheChannelMaskWithAndWithoutPrefix) {
    expect_call("SETCHMASK 0X00FF", "SetPBChannelEnableMask ff f");
    expect_call("SETCHMASK 00FF", "SetPBChannelEnableMask ff f");
    expect_call("SETCHMASK 0", "SetPBChannelEnableMask 0 f");
}

TEST_F(Playback, DoesNotLimitTheChannelMaskToSixteenBits) {
    expect_call("SETCHMASK 1FFFF", "SetPBChannelEnableMask 1ffff f");
    expect_call("SETCHMASK FFFFFFFF", "SetPBChannelEnableMask ffffffff f");
}

TEST_F(Playback, DropsTwoCharactersForAPrefixAnywhereInTheMask) {
    expect_call("SETCHMASK 120X34", "SetPBChannelEnableMask 34 f");
    expect_call("SETCHMASK F0X1", "SetPBChannelEnableMask 0 f");  // leaves X1
    expect_call("SETCHMASK 0x12", "SetPBChannelEnableMask 12 f");
}

TEST_F(Playback, HandsTheChipMaskOn) {
    g_appenv.chip_mask = 3;
    expect_call("SETCHMASK A", "SetPBChannelEnableMask a 3");
}

TEST_F(Playback, PassesTheAudioSwitchOnAsItIs) {
    expect_call("AUDIO 0", "EnablePBAudio 0");
    expect_call("AUDIO 1", "EnablePBAudio 1");
    expect_call("AUDIO 7", "EnablePBAudio 7");
    expect_call("AUDIO -1", "EnablePBAudio -1");
    expect_call("AUDIO ON", "EnablePBAudio 0");
}

TEST_F(Playback, KeepsTheLowByteOfTheAudioChannel) {
    expect_call("AUDIOCH 0", "SetPBAudioChannel 0");
    expect_call("AUDIOCH 15", "SetPBAudioChannel 15");
    expect_call("AUDIOCH 16", "SetPBAudioChannel 16");
    expect_call("AUDIOCH 300", "SetPBAudioChannel 44");
    expect_call("AUDIOCH -1", "SetPBAudioChannel 255");
}

TEST_F(Playback, RefusesAKeywordWithoutAValue) {
    expect_error("SPEED");
    expect_error("SETCHMASK");
    expect_error("AUDIO");
    expect_error("AUDIOCH");
}

TEST_F(Playback, RefusesTwoValuesWhereOneIsTaken) {
    expect_error("SETCHMASK 1 2");
    expect_error("AUDIO 1 2");
    expect_error("AUDIOCH 1 2");
}

TEST_F(Playback, RefusesFourOrMoreWords) {
    expect_error("SPEED UP 1 2");
    expect_error("AUDIO 1 2 3");
    expect_error("FOO 1 2 3");
    expect_error("4 1 2 3 5 6");
}

TEST_F(Playback, IgnoresAnUnknownWordWithValuesInSilence) {
    expect_nothing("FOO 1");
    expect_nothing("FOO 1 2");
    expect_nothing("4 1");
    expect_nothing("speed UP");
}

TEST_F(Playback, TakesItsKeywordsInUpperCaseOnly) { expect_call("speed", "SetPBState 3"); }

}  // namespace
