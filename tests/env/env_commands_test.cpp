// ENVPRINT, ENVCHANGE and ENVSETDB: what they print, what they change, and what the encoder hears.
#include "env/env_commands.h"

#include <map>
#include <string>
#include <vector>

#include "shell/monitor.h"
#include "tests/env/env_test.h"
#include "tests/support/screens.h"

namespace {

using Journal = std::vector<std::string>;

class EnvCommands : public EnvTest {
  protected:
    ~EnvCommands() override {
        if (g_appenv.codec) DestroyQMAVCodec(g_appenv.codec);
        g_appenv.codec = nullptr;
    }

    // Opens a session: from now on there is an encoder.
    static void open_codec() {
        CreateQMAVCodec(&g_appenv.codec);
        fake().take_journal();
    }
};

using EnvPrint = EnvCommands;
using EnvChange = EnvCommands;
using EnvSetDb = EnvCommands;

std::string print() { return run_handler(app_env_printenv, {"ENVPRINT"}); }

std::string change(std::vector<std::string> words) {
    words.insert(words.begin(), "ENVCHANGE");
    return run_handler(app_env_change, words);
}

std::string set_db(std::vector<std::string> words) {
    words.insert(words.begin(), "ENVSETDB");
    return run_handler(app_env_change_dbpath, words);
}

// Lines typed at a menu that holds the three commands.
std::string session(const std::string& input) {
    const tagCommand cmds[] = {{"ENVPRINT", app_env_printenv},
                               {"ENVCHANGE", app_env_change},
                               {"ENVSETDB", app_env_change_dbpath},
                               {nullptr, nullptr}};
    return run_console(input, [&] {
        tagMonitor menu = {[] {}, [] {}, cmds};
        monitor(&menu);
    });
}

const std::string INVALID = "Invalide option !!\n";

// A row of a stream's or the audio's table; `number` counts from 1.
std::string row(int number, const std::string& cells) {
    return std::string(" [ch ") + (number < 10 ? " " : "") + std::to_string(number) +
           "] : " + cells + "\n";
}

// A stream's table; `cells` of the channels that differ from the rest, by number.
std::string table(const std::string& title, const std::string& rest,
                  const std::map<int, std::string>& cells = {}) {
    std::string text = "\n <" + title +
                       ">\n"
                       " == [enable] [codectype] [framerate] \n"
                       "      [idr] [bitratetype] [qp] [bitrate] [res] [enable_motion_data] ==\n";
    for (int number = 1; number <= 16; ++number)
        text += row(number, cells.contains(number) ? cells.at(number) : rest);
    return text;
}

std::string audio_table(const std::map<int, std::string>& cells = {}) {
    std::string text = "\n <AUDIO>\n == [enable] ==\n";
    for (int number = 1; number <= 16; ++number)
        text += row(number, cells.contains(number) ? cells.at(number) : "0");
    return text;
}

const char LAST_RULE[] = "\n=============================================================\n";

TEST_F(EnvPrint, PrintsTheDefaults) {
    g_appenv.Default();
    const std::string expected =
        "\n========== environment =============\n"
        "\n <GENERAL>\n"
        " [board type]           \t: 0\n"
        " [video format]         \t: 0\n"
        " [database type]        \t: 2\n"
        " [dual database type]   \t: 2\n"
        " [jpeg database type]   \t: 2\n"
        " [Encode Stream 0]      \t: qmdatabase/qmdatabase.ini\n"
        " [Encode Stream 1]      \t: dual_stream/qmdatabase.ini\n"
        " [Encode Stream JPEG]   \t: jpeg_stream/qmdatabase.ini\n"
        " [Decode Stream]        \t: qmdatabase/qmdatabase.ini\n" +
        table("H264 Main Stream", "0 0 7 7 0 27 2048000 3 0") +
        table("H264 Dual Stream", "0 1 7 7 0 31 2048000 3 0") +
        table("JPEG Stream", "0 2 2 0 0 31 512000 3 0") +
        table("PREVIEW Stream", "0 0 0 0 0 0 0 1 0") +
        table("H264 3rd Stream", "0 0 0 0 0 0 0 0 0") +
        table("H264 4th Stream", "0 0 0 0 0 0 0 0 0") + audio_table() + LAST_RULE;
    EXPECT_EQ(escaped(print()), escaped(expected));
}

void fill_unit(int stream, int ch, uint8_t first) {
    tagVEncChannelUnit& unit = g_appenv.venc[stream][ch];
    unit.enable = first;
    unit.codectype = first + 1u;
    unit.framerate = first + 2u;
    unit.idr = first + 3u;
    unit.bitratetype = first + 4u;
    unit.qp = static_cast<uint8_t>(first + 5);
    unit.bitrate = first + 6u;
    unit.res = first + 7u;
    unit.enable_motion_data = static_cast<uint8_t>(first + 8);
}

TEST_F(EnvPrint, PrintsEveryFieldInItsPlace) {
    g_appenv.board_type = 6;
    g_appenv.video_format = 1;
    g_appenv.main_database_type = 3;
    g_appenv.dual_database_type = 4;
    g_appenv.jpeg_database_type = 5;
    g_appenv.main_stream_db = "m";
    g_appenv.dual_stream_db = "d";
    g_appenv.jpeg_stream_db = "j";
    g_appenv.decode_stream_db = "s";
    fill_unit(0, 0, 10);
    fill_unit(1, 1, 20);
    fill_unit(2, 8, 30);
    fill_unit(3, 9, 40);
    fill_unit(4, 14, 50);
    fill_unit(5, 15, 60);
    g_appenv.audio_enable[0] = 1;
    g_appenv.audio_enable[15] = 255;
    const std::string none = "0 0 0 0 0 0 0 0 0";
    const std::string expected =
        "\n========== environment =============\n"
        "\n <GENERAL>\n"
        " [board type]           \t: 6\n"
        " [video format]         \t: 1\n"
        " [database type]        \t: 3\n"
        " [dual database type]   \t: 4\n"
        " [jpeg database type]   \t: 5\n"
        " [Encode Stream 0]      \t: m\n"
        " [Encode Stream 1]      \t: d\n"
        " [Encode Stream JPEG]   \t: j\n"
        " [Decode Stream]        \t: s\n" +
        table("H264 Main Stream", none, {{1, "10 11 12 13 14 15 16 17 18"}}) +
        table("H264 Dual Stream", none, {{2, "20 21 22 23 24 25 26 27 28"}}) +
        table("JPEG Stream", none, {{9, "30 31 32 33 34 35 36 37 38"}}) +
        table("PREVIEW Stream", none, {{10, "40 41 42 43 44 45 46 47 48"}}) +
        table("H264 3rd Stream", none, {{15, "50 51 52 53 54 55 56 57 58"}}) +
        table("H264 4th Stream", none, {{16, "60 61 62 63 64 65 66 67 68"}}) +
        audio_table({{1, "1"}, {16, "255"}}) + LAST_RULE;
    EXPECT_EQ(escaped(print()), escaped(expected));
}

TEST_F(EnvPrint, PrintsNumbersWithASign) {
    g_appenv.board_type = 0xffffffff;
    g_appenv.venc[0][0].bitrate = 0x80000000;
    const std::string text = print();
    EXPECT_NE(text.find(" [board type]           \t: -1\n"), std::string::npos);
    EXPECT_NE(text.find(" [ch  1] : 0 0 0 0 0 0 -2147483648 0 0\n"), std::string::npos);
}

TEST_F(EnvPrint, PrintsTheSameOnEveryBoard) {
    g_appenv.board_type = 0;
    const std::string text = print();
    g_appenv.board_type = 6;
    std::string other = print();
    const size_t at = other.find("\t: 6\n");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(escaped(other.replace(at, 5, "\t: 0\n")), escaped(text));
}

TEST_F(EnvPrint, IgnoresItsArguments) {
    EXPECT_EQ(run_handler(app_env_printenv, {"ENVPRINT", "0", "X"}), print());
}

TEST_F(EnvPrint, CallsNothingOfTheCodec) {
    open_codec();
    print();
    EXPECT_EQ(fake().take_journal(), Journal{});
}

TEST_F(EnvChange, ShowsItsHelpWithoutAnArgument) {
    open_codec();
    EXPECT_EQ(escaped(change({})), escaped(ENVCHANGE_HELP));
    EXPECT_EQ(fake().take_journal(), Journal{});
}

TEST_F(EnvChange, SetsTheVideoFormat) {
    for (const auto& [text, format] : std::map<std::string, uint32_t>{
             {"1", 1}, {"0", 0}, {"7", 7}, {"-1", 0xffffffff}, {"X", 0}, {"2X", 2}}) {
        EXPECT_EQ(change({"-VF", text}), "");
        EXPECT_EQ(g_appenv.video_format, format) << text;
    }
}

TEST_F(EnvChange, IgnoresWordsAfterTheVideoFormat) {
    EXPECT_EQ(change({"-VF", "1", "0"}), "");
    EXPECT_EQ(g_appenv.video_format, 1u);
}

TEST_F(EnvChange, RefusesAVideoFormatWithoutAValue) {
    g_appenv.video_format = 1;
    EXPECT_EQ(change({"-VF"}), "err 0\nInvalide option !!\n");
    EXPECT_EQ(g_appenv.video_format, 1u);
}

TEST_F(EnvChange, TellsTheCodecNothingOfTheVideoFormat) {
    open_codec();
    change({"-VF", "1"});
    EXPECT_EQ(fake().take_journal(), Journal{"GetVideoEncoder"});
}

TEST_F(EnvChange, RefusesAnUnknownOption) {
    EXPECT_EQ(change({"-XX"}), "err 2 -XX\nInvalide option !!\n");
    EXPECT_EQ(change({"VE", "0", "0", "0", "1"}), "err 2 VE\nInvalide option !!\n");
    EXPECT_EQ(change({"-VEX", "0", "0", "0", "1"}), "err 2 -VEX\nInvalide option !!\n");
}

TEST_F(EnvChange, TellsUpperFromLowerCaseInAnOption) {
    EXPECT_EQ(change({"-vf", "1"}), "err 2 -vf\nInvalide option !!\n");
    EXPECT_EQ(change({"-ve", "0", "0", "0", "1"}), "err 2 -ve\nInvalide option !!\n");
    EXPECT_EQ(g_appenv.video_format, 0u);
    EXPECT_EQ(channel(0, 0), Unit{});
}

TEST_F(EnvChange, TakesTheOptionsAsTheHelpWritesThemAtTheMenu) {
    EXPECT_EQ(session("envchange -vf 1\nenvchange -ve 0 2 0 1\n"), "");
    EXPECT_EQ(g_appenv.video_format, 1u);
    EXPECT_EQ(channel(0, 2).enable, 1);
}

TEST_F(EnvChange, GetsTheEncoderBeforeItLooksAtTheOption) {
    open_codec();
    const std::vector<std::vector<std::string>> commands = {
        {"-XX"}, {"-VF"}, {"-VE"}, {"-VE", "9", "0", "0", "1"}};
    for (const auto& words : commands) {
        change(words);
        EXPECT_EQ(fake().take_journal(), Journal{"GetVideoEncoder"}) << words[0];
    }
}

TEST_F(EnvChange, RefusesAVideoEncodeWithTooFewWords) {
    open_codec();
    std::vector<std::string> words = {"-VE"};
    for (const char* next : {"0", "0", "0"}) {
        EXPECT_EQ(change(words), INVALID);
        words.emplace_back(next);
    }
    EXPECT_EQ(change(words), INVALID);
    EXPECT_EQ(fake().take_journal(), Journal(4, "GetVideoEncoder"));
    words.emplace_back("1");
    EXPECT_EQ(change(words), "");
    EXPECT_EQ(channel(0, 0).enable, 1);
}

TEST_F(EnvChange, IgnoresWordsAfterTheValue) {
    EXPECT_EQ(change({"-VE", "0", "0", "0", "1", "0"}), "");
    EXPECT_EQ(channel(0, 0).enable, 1);
}

// A command with a number out of range changes no unit and prints one line.
void expect_refused(const std::string& stream, const std::string& ch, const std::string& property) {
    EXPECT_EQ(change({"-VE", stream, ch, property, "1"}), INVALID)
        << stream << " " << ch << " " << property;
    for (int s = 0; s < QMCODEC_STREAMS; ++s)
        for (int c = 0; c < QMCODEC_CHANNELS; ++c) EXPECT_EQ(channel(s, c), Unit{});
}

TEST_F(EnvChange, RefusesAStreamAbove5) {
    expect_refused("6", "0", "0");
    expect_refused("2147483647", "0", "0");
    expect_refused("-1", "0", "0");
}

TEST_F(EnvChange, RefusesAChannelAbove16) {
    expect_refused("0", "17", "0");
    expect_refused("0", "-1", "0");
    expect_refused("0", "-2147483648", "0");
}

TEST_F(EnvChange, RefusesAPropertyAbove8) {
    expect_refused("0", "0", "9");
    expect_refused("0", "0", "-1");
}

TEST_F(EnvChange, RefusesACommandWithoutAValue) {
    EXPECT_EQ(change({"-VE", "0", "0", "0"}), INVALID);
}

TEST_F(EnvChange, TakesEveryStream) {
    for (int stream = 0; stream < QMCODEC_STREAMS; ++stream) {
        EXPECT_EQ(change({"-VE", std::to_string(stream), "3", "4", "50"}), "");
        EXPECT_EQ(channel(stream, 3), (Unit{0, 0, 0, 50, 0, 0, 0, 0, 0})) << stream;
    }
}

TEST_F(EnvChange, ChangesOneChannelOnly) {
    open_codec();
    EXPECT_EQ(change({"-VE", "0", "15", "0", "1"}), "");
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) EXPECT_EQ(channel(0, ch).enable, ch == 15);
    EXPECT_EQ(fake().take_journal(), (Journal{"GetVideoEncoder", "SetChannelEnable 0 15 1"}));
}

TEST_F(EnvChange, Channel16MeansAllChannels) {
    open_codec();
    EXPECT_EQ(change({"-VE", "0", "16", "0", "1"}), "");
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) EXPECT_EQ(channel(0, ch).enable, 1) << ch;
    EXPECT_EQ(channel(1, 0), Unit{});
    EXPECT_EQ(
        fake().take_journal(),
        (Journal{"GetVideoEncoder", "SetChannelEnable 0 0 1", "SetChannelEnable 0 1 1",
                 "SetChannelEnable 0 2 1", "SetChannelEnable 0 3 1", "SetChannelEnable 0 4 1",
                 "SetChannelEnable 0 5 1", "SetChannelEnable 0 6 1", "SetChannelEnable 0 7 1",
                 "SetChannelEnable 0 8 1", "SetChannelEnable 0 9 1", "SetChannelEnable 0 10 1",
                 "SetChannelEnable 0 11 1", "SetChannelEnable 0 12 1", "SetChannelEnable 0 13 1",
                 "SetChannelEnable 0 14 1", "SetChannelEnable 0 15 1"}));
}

// One property of channel 3 of the dual stream: the unit afterwards, and what the encoder hears.
struct PropertyCase {
    const char* property;
    const char* value;
    Unit unit;
    Journal calls;
};

// The name under which a case is reported.
std::ostream& operator<<(std::ostream& out, const PropertyCase& c) {
    return out << "property " << c.property << " value " << c.value;
}

const PropertyCase PROPERTIES[] = {
    {"0", "1", {1, 0, 0, 0, 0, 0, 0, 0, 0}, {"SetChannelEnable 1 3 1"}},
    {"0", "258", {2, 0, 0, 0, 0, 0, 0, 0, 0}, {"SetChannelEnable 1 3 2"}},
    {"1", "1", {0, 0, 0, 0, 0, 0, 0, 0, 1}, {}},
    {"1", "257", {0, 0, 0, 0, 0, 0, 0, 0, 1}, {}},
    {"3", "30", {0, 0, 30, 0, 0, 0, 0, 0, 0}, {"SetFrameRate 1 3 30"}},
    {"3", "31", {0, 0, 0, 0, 0, 0, 0, 0, 0}, {"SetFrameRate 1 3 0"}},
    {"3", "45", {0, 0, 14, 0, 0, 0, 0, 0, 0}, {"SetFrameRate 1 3 14"}},
    {"3", "-1", {0, 0, -1, 0, 0, 0, 0, 0, 0}, {"SetFrameRate 1 3 4294967295"}},
    {"4", "15", {0, 0, 0, 15, 0, 0, 0, 0, 0}, {}},
    {"4", "-1", {0, 0, 0, -1, 0, 0, 0, 0, 0}, {}},
    {"5", "1", {0, 0, 0, 0, 1, 0, 0, 0, 0}, {"SetBitrateType 1 3 1"}},
    {"6", "512000", {0, 0, 0, 0, 0, 0, 512000, 0, 0}, {"SetBitrate 1 3 512000"}},
    {"7", "1", {0, 0, 0, 0, 0, 1, 0, 1, 0}, {"SetResolution 1 3 1", "SetQP 1 3 1"}},
    {"7", "60", {0, 0, 0, 0, 0, 8, 0, 60, 0}, {"SetResolution 1 3 60", "SetQP 1 3 8"}},
    {"7",
     "-60",
     {0, 0, 0, 0, 0, 248, 0, -60, 0},
     {"SetResolution 1 3 4294967236", "SetQP 1 3 248"}},
    {"8", "51", {0, 0, 0, 0, 0, 51, 0, 0, 0}, {"SetQP 1 3 51"}},
    {"8", "52", {0, 0, 0, 0, 0, 0, 0, 0, 0}, {"SetQP 1 3 0"}},
    {"8", "-5", {0, 0, 0, 0, 0, 251, 0, 0, 0}, {"SetQP 1 3 251"}},
};

class EnvChangeProperty : public EnvCommands, public testing::WithParamInterface<PropertyCase> {};

TEST_P(EnvChangeProperty, ChangesTheRecordWithoutACodec) {
    EXPECT_EQ(change({"-VE", "1", "3", GetParam().property, GetParam().value}), "");
    EXPECT_EQ(channel(1, 3), GetParam().unit);
    EXPECT_EQ(fake().take_journal(), Journal{});
}

TEST_P(EnvChangeProperty, TellsTheEncoder) {
    open_codec();
    EXPECT_EQ(change({"-VE", "1", "3", GetParam().property, GetParam().value}), "");
    EXPECT_EQ(channel(1, 3), GetParam().unit);
    Journal expected = {"GetVideoEncoder"};
    expected.insert(expected.end(), GetParam().calls.begin(), GetParam().calls.end());
    EXPECT_EQ(fake().take_journal(), expected);
}

TEST_P(EnvChangeProperty, ChangesTheRecordOfACodecWithoutAnEncoder) {
    open_codec();
    fake().encoder_is_null = true;
    EXPECT_EQ(change({"-VE", "1", "3", GetParam().property, GetParam().value}), "");
    EXPECT_EQ(channel(1, 3), GetParam().unit);
    EXPECT_EQ(fake().take_journal(), Journal{"GetVideoEncoder"});
}

INSTANTIATE_TEST_SUITE_P(Rows, EnvChangeProperty, testing::ValuesIn(PROPERTIES));

TEST_F(EnvChange, CountsAFrameRateModulo31InNtsc) {
    change({"-VE", "1", "3", "3", "25"});
    EXPECT_EQ(channel(1, 3).framerate, 25);
}

TEST_F(EnvChange, CountsAFrameRateModulo25InEveryOtherFormat) {
    for (const uint32_t format : {1u, 2u, 0xffffffffu}) {
        g_appenv.video_format = format;
        change({"-VE", "1", "3", "3", "24"});
        EXPECT_EQ(channel(1, 3).framerate, 24) << format;
        change({"-VE", "1", "3", "3", "25"});
        EXPECT_EQ(channel(1, 3).framerate, 0) << format;
    }
}

TEST_F(EnvChange, RunsOnFromTheResolutionIntoTheQuantiser) {
    EXPECT_EQ(change({"-VE", "0", "0", "7", "1"}), "");
    EXPECT_EQ(channel(0, 0), (Unit{0, 0, 0, 0, 0, 1, 0, 1, 0}));
}

TEST_F(EnvChange, SendsResolutionAndQuantiserChannelByChannel) {
    open_codec();
    change({"-VE", "2", "16", "7", "3"});
    const Journal journal = fake().take_journal();
    ASSERT_EQ(journal.size(), 33u);
    EXPECT_EQ(journal[1], "SetResolution 2 0 3");
    EXPECT_EQ(journal[2], "SetQP 2 0 3");
    EXPECT_EQ(journal[3], "SetResolution 2 1 3");
    EXPECT_EQ(journal[32], "SetQP 2 15 3");
}

TEST_F(EnvChange, CannotChangeTheCodecType) {
    open_codec();
    EXPECT_EQ(change({"-VE", "1", "3", "2", "7"}), "property err : 2 7\n");
    EXPECT_EQ(channel(1, 3), Unit{});
    EXPECT_EQ(fake().take_journal(), Journal{"GetVideoEncoder"});
}

TEST_F(EnvChange, RefusesTheCodecTypeOnceForEachOfAllChannels) {
    std::string expected;
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) expected += "property err : 2 7\n";
    EXPECT_EQ(change({"-VE", "1", "16", "2", "7"}), expected);
}

TEST_F(EnvChange, ReadsWhatIsNoNumberAsZero) {
    EXPECT_EQ(change({"-VE", "X", "Y", "Z", "W"}), "");
    EXPECT_EQ(channel(0, 0), Unit{});
    g_appenv.venc[0][0].enable = 1;
    change({"-VE", "X", "Y", "Z", "W"});
    EXPECT_EQ(channel(0, 0), Unit{});
}

// The four database paths, in the order main, dual, JPEG, decode.
Journal paths() {
    return {g_appenv.main_stream_db, g_appenv.dual_stream_db, g_appenv.jpeg_stream_db,
            g_appenv.decode_stream_db};
}

class EnvSetDbPath : public EnvCommands {
  protected:
    EnvSetDbPath() {
        g_appenv.main_stream_db = "m";
        g_appenv.dual_stream_db = "d";
        g_appenv.jpeg_stream_db = "j";
        g_appenv.decode_stream_db = "s";
        g_appenv.decode_db_type = 3;
    }
};

TEST_F(EnvSetDbPath, EachNumberChangesItsOwnPath) {
    EXPECT_EQ(set_db({"0", "A"}), "");
    EXPECT_EQ(paths(), (Journal{"A", "d", "j", "s"}));
    EXPECT_EQ(set_db({"1", "B"}), "");
    EXPECT_EQ(paths(), (Journal{"A", "B", "j", "s"}));
    EXPECT_EQ(set_db({"2", "C"}), "");
    EXPECT_EQ(paths(), (Journal{"A", "B", "C", "s"}));
    EXPECT_EQ(set_db({"10", "D"}), "");
    EXPECT_EQ(paths(), (Journal{"A", "B", "C", "D"}));
}

TEST_F(EnvSetDbPath, RefusesAnyOtherNumber) {
    for (const char* number : {"3", "4", "9", "11", "-1", "100"})
        EXPECT_EQ(set_db({number, "X"}), "Error parameter !!!\n") << number;
    EXPECT_EQ(paths(), (Journal{"m", "d", "j", "s"}));
}

TEST_F(EnvSetDbPath, ReadsWhatIsNoNumberAsZero) {
    EXPECT_EQ(set_db({"MAIN", "A"}), "");
    EXPECT_EQ(paths(), (Journal{"A", "d", "j", "s"}));
}

TEST_F(EnvSetDbPath, LeavesTheSearchedTypeAlone) {
    set_db({"10", "m"});
    EXPECT_EQ(g_appenv.decode_db_type, 3u);
}

TEST_F(EnvSetDbPath, IgnoresWordsAfterThePath) {
    EXPECT_EQ(set_db({"0", "A", "B"}), "");
    EXPECT_EQ(paths(), (Journal{"A", "d", "j", "s"}));
}

TEST_F(EnvSetDbPath, StoresThePathAsItIsGiven) {
    set_db({"0", "a/B.ini"});
    EXPECT_EQ(g_appenv.main_stream_db, "a/B.ini");
}

TEST_F(EnvSetDbPath, StoresAPathThatIsTypedInUpperCase) {
    EXPECT_EQ(session("envsetdb 10 disk/qmdatabase.ini\n"), "");
    EXPECT_EQ(paths(), (Journal{"m", "d", "j", "DISK/QMDATABASE.INI"}));
}

TEST_F(EnvSetDb, ShowsItsHelpWithoutAPath) {
    EXPECT_EQ(escaped(set_db({})), escaped(ENVSETDB_HELP));
    EXPECT_EQ(escaped(set_db({"0"})), escaped(ENVSETDB_HELP));
    EXPECT_EQ(escaped(set_db({"99"})), escaped(ENVSETDB_HELP));
    EXPECT_EQ(paths(), (Journal{"", "", "", ""}));
}

}  // namespace
