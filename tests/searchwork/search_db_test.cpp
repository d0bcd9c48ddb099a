// The search record and SETDB: switching databases, the dialogue, and nothing closed twice.
#include "searchwork/search_db.h"

#include "searchwork/searchwork.h"
#include "shell/line_editor.h"
#include "tests/support/room_test.h"
#include "tests/support/screens.h"

namespace {

const std::string ON_MAIN = setdb_screen("MAIN(0)");
const std::string ON_DUAL = setdb_screen("DUAL(1)");

const Lines OPEN_MAIN = {"qm_db_create 0", "Open qmdatabase/qmdatabase.ini 0 512 1920",
                         "PostOpen 0"};
const Lines OPEN_DUAL = {"qm_db_create 1", "Open dual_stream/qmdatabase.ini 0 512 1920",
                         "PostOpen 0"};
const Lines START = {"CreateThread decode codec 0", "SetPBChannelEnableMask ffff f"};
const Lines FORWARD = {"SetPBState 4"};
const Lines STOP = {"DestroyThread decode"};
const Lines CLOSE = {"Close", "qm_db_destroy"};
const Lines BEGIN = {"new decode"};
const Lines END = {"delete decode"};

class SearchDb : public RoomTest {
  protected:
    void SetUp() override {
        RoomTest::SetUp();
        open_codec();
        g_appenv.main_database_type = 0;
        g_appenv.dual_database_type = 1;
    }

    // The state inside the SEARCH menu, on the main stream's database.
    void enter_search() {
        _l_stDec.thread = new qm_thread_decode;
        output_of([] {
            app_searchwork_open_search_db(DEC_STREAM_MAIN);
            start_playback(*_l_stDec.thread.load());
        });
        fake().take_journal();
    }

    // A whole visit to the menu.
    std::string visit(const std::string& input) { return typed(app_searchwork, {"SEARCH"}, input); }

    void expect_nothing_left() {
        EXPECT_EQ(nullptr, _l_stDec.thread.load());
        EXPECT_EQ(1, fake().objects_alive);  // the codec
    }
};

TEST_F(SearchDb, FillsTheRecordForTheMainStream) {
    int opened = 0;
    EXPECT_EQ("Decode DB Stream : 0, Type : 0\n",
              output_of([&] { opened = app_searchwork_open_search_db(DEC_STREAM_MAIN); }));
    EXPECT_NE(0, opened);
    EXPECT_EQ(calls({OPEN_MAIN}), journal());
    EXPECT_EQ("qmdatabase/qmdatabase.ini", _l_stDec.path);
    EXPECT_EQ(0, _l_stDec.stream);
    EXPECT_EQ(0, _l_stDec.type);
    EXPECT_NE(nullptr, _l_stDec.db);
}

TEST_F(SearchDb, FillsTheRecordForTheDualStream) {
    int opened = 0;
    EXPECT_EQ("Decode DB Stream : 1, Type : 1\n",
              output_of([&] { opened = app_searchwork_open_search_db(DEC_STREAM_DUAL); }));
    EXPECT_NE(0, opened);
    EXPECT_EQ(calls({OPEN_DUAL}), journal());
    EXPECT_EQ("dual_stream/qmdatabase.ini", _l_stDec.path);
    EXPECT_EQ(1, _l_stDec.stream);
    EXPECT_EQ(1, _l_stDec.type);
}

TEST_F(SearchDb, BorrowsTheRecordersDatabasesInMemory) {
    g_appenv.main_database_type = g_appenv.dual_database_type = 2;
    qm_db_create(DB_TYPE_MEMORY, &g_appenv.main_db);
    qm_db_create(DB_TYPE_MEMORY, &g_appenv.dual_db);
    fake().take_journal();
    EXPECT_EQ("Decode DB Stream : 0, Type : 2\n",
              output_of([] { EXPECT_EQ(1, app_searchwork_open_search_db(DEC_STREAM_MAIN)); }));
    EXPECT_EQ(g_appenv.main_db, _l_stDec.db);
    EXPECT_EQ("Decode DB Stream : 1, Type : 2\n",
              output_of([] { EXPECT_EQ(1, app_searchwork_open_search_db(DEC_STREAM_DUAL)); }));
    EXPECT_EQ(g_appenv.dual_db, _l_stDec.db);
    EXPECT_EQ("", journal());
    close_search_db();
    EXPECT_EQ("", journal());
}

TEST_F(SearchDb, ReturnsWhatTheDatabasesOpenReturned) {
    fake().open_results = {0, 5};
    output_of([] {
        EXPECT_EQ(0, app_searchwork_open_search_db(DEC_STREAM_MAIN));
        close_search_db();
        EXPECT_EQ(5, app_searchwork_open_search_db(DEC_STREAM_MAIN));
    });
    EXPECT_EQ(calls({OPEN_MAIN, CLOSE, OPEN_MAIN}), journal());
}

TEST_F(SearchDb, RefusesAnyOtherStreamAndKeepsTheRecord) {
    _l_stDec.stream = 1;
    _l_stDec.type = 7;
    for (int stream : {2, 3, 5, -1}) {
        EXPECT_EQ(
            "##### Decode DB Type Error.\nDecode DB Stream : 1, Type : 7\n", output_of([stream] {
                EXPECT_EQ(0, app_searchwork_open_search_db(static_cast<DEC_STREAM_TYPE>(stream)));
            }));
        EXPECT_EQ(1, _l_stDec.stream);
        EXPECT_EQ(7, _l_stDec.type);
        EXPECT_EQ("", _l_stDec.path);
    }
    EXPECT_EQ("", journal());
}

TEST_F(SearchDb, GivesThePlaybackThreadItsDatabase) {
    enter_search();
    EXPECT_NE(nullptr, _l_stDec.db);
    EXPECT_EQ(_l_stDec.db, _l_stDec.thread.load()->db);
    typed(searchwork_set_db, {"SETDB", "1"});
    EXPECT_NE(nullptr, _l_stDec.db);
    EXPECT_EQ(_l_stDec.db, _l_stDec.thread.load()->db);
}

TEST_F(SearchDb, SwitchesToTheDatabaseThatItsArgumentNames) {
    enter_search();
    EXPECT_EQ(escaped("Selected Decode DB Stream : 1\n"
                      "Decode DB Stream : 1, Type : 1\n"),
              typed(searchwork_set_db, {"SETDB", "1"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ(calls({STOP, CLOSE, OPEN_DUAL, START, FORWARD}), journal());
    EXPECT_EQ(escaped("Selected Decode DB Stream : 0\n"
                      "Decode DB Stream : 0, Type : 0\n"),
              typed(searchwork_set_db, {"SETDB", "0"}));
    EXPECT_EQ(calls({STOP, CLOSE, OPEN_MAIN, START, FORWARD}), journal());
}

TEST_F(SearchDb, ChangesNothingForTheStreamThatIsSelected) {
    enter_search();
    EXPECT_EQ(escaped("Selected Decode DB Stream : 0\n"), typed(searchwork_set_db, {"SETDB", "0"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ("", journal());
    typed(searchwork_set_db, {"SETDB", "1"});
    fake().take_journal();
    EXPECT_EQ(escaped("Selected Decode DB Stream : 1\n"), typed(searchwork_set_db, {"SETDB", "1"}));
    EXPECT_EQ("", journal());
}

TEST_F(SearchDb, TakesAnArgumentThatIsNoNumberForTheMainStream) {
    enter_search();
    EXPECT_EQ(escaped("Selected Decode DB Stream : 0\n"),
              typed(searchwork_set_db, {"SETDB", "DUAL"}));
    EXPECT_EQ("", journal());
}

TEST_F(SearchDb, DoesNotCloseTheRecordersDatabaseWhenItSwitches) {
    g_appenv.main_database_type = 2;
    enter_search();
    EXPECT_EQ(escaped("Selected Decode DB Stream : 1\n"
                      "Decode DB Stream : 1, Type : 1\n"),
              typed(searchwork_set_db, {"SETDB", "1"}));
    EXPECT_EQ(calls({STOP, OPEN_DUAL, START, FORWARD}), journal());
    typed(searchwork_set_db, {"SETDB", "0"});
    EXPECT_EQ(calls({STOP, CLOSE, START, FORWARD}), journal());
}

TEST_F(SearchDb, AppliesTheSelectedStreamAtOnceInTheDialogue) {
    enter_search();
    EXPECT_EQ(escaped(ON_MAIN + "\nSelected Decode DB Stream : 0\n"),
              typed(searchwork_set_db, {"SETDB"}, "4\n"));
    EXPECT_EQ(0, result);
    EXPECT_EQ("", journal());
}

TEST_F(SearchDb, ShowsTheChoiceMadeSoFarInTheDialogue) {
    enter_search();
    EXPECT_EQ(escaped(ON_MAIN + "\n" + ON_DUAL + "\n" + ON_DUAL +
                      "\nSelected Decode DB Stream : 1\n"
                      "Decode DB Stream : 1, Type : 1\n"),
              typed(searchwork_set_db, {"SETDB"}, "1\n1\n4\n"));
    EXPECT_EQ(calls({STOP, CLOSE, OPEN_DUAL, START, FORWARD}), journal());
    EXPECT_EQ(
        escaped(ON_DUAL + "\n" + ON_MAIN + "\n" + ON_DUAL + "\nSelected Decode DB Stream : 1\n"),
        typed(searchwork_set_db, {"SETDB"}, "0\n1\n4\n"));
    EXPECT_EQ("", journal());
}

TEST_F(SearchDb, RepeatsTheDialogueForAnEmptyLine) {
    enter_search();
    EXPECT_EQ(
        escaped(ON_MAIN + "\n" + ON_MAIN + "\n" + ON_MAIN + "\nSelected Decode DB Stream : 0\n"),
        typed(searchwork_set_db, {"SETDB"}, "\n \t\r\n4\n"));
}

TEST_F(SearchDb, EndsTheDialogueWithAnyOtherWord) {
    enter_search();
    for (const char* word : {"x", "2", "01", "00", "exit", "-1"}) {
        EXPECT_EQ(escaped(ON_MAIN + "\nSelected Decode DB Stream : 0\n"),
                  typed(searchwork_set_db, {"SETDB"}, std::string(word) + "\n1\n"))
            << word;
    }
    EXPECT_EQ("", journal());
}

TEST_F(SearchDb, LooksAtTheFirstWordOfAnAnswerOnly) {
    enter_search();
    EXPECT_EQ(escaped(ON_MAIN + "\n" + ON_MAIN + "\nSelected Decode DB Stream : 0\n"),
              typed(searchwork_set_db, {"SETDB"}, "0 1\n4 1\n"));
}

TEST_F(SearchDb, RunsTheDialogueForTwoArguments) {
    enter_search();
    EXPECT_EQ(escaped(ON_MAIN + "\nSelected Decode DB Stream : 0\n"),
              typed(searchwork_set_db, {"SETDB", "1", "1"}, "4\n"));
}

TEST_F(SearchDb, EndsTheDialogueAtTheEndOfInput) {
    enter_search();
    EXPECT_EQ(escaped(ON_MAIN + "\nSelected Decode DB Stream : 0\n"),
              typed(searchwork_set_db, {"SETDB"}));
    EXPECT_EQ(escaped(ON_MAIN + "\n" + ON_DUAL +
                      "\nSelected Decode DB Stream : 1\n"
                      "Decode DB Stream : 1, Type : 1\n"),
              typed(searchwork_set_db, {"SETDB"}, "1"));
}

TEST_F(SearchDb, StaysStoppedAfterAnInvalidStreamUntilTheMenuIsLeft) {
    EXPECT_EQ(escaped("Decode DB Stream : 0, Type : 0\n" + SEARCH_HELP +
                      "SEARCH>Selected Decode DB Stream : 5\n"
                      "##### Decode DB Type Error.\n"
                      "Decode DB Stream : 0, Type : 0\n"
                      "SEARCH>SEARCH>"),
              visit("setdb 5\npb 4\nexit\n"));
    EXPECT_EQ(calls({BEGIN, OPEN_MAIN, START, STOP, CLOSE, {"SetPBState 4"}, STOP, END}),
              journal());
    expect_nothing_left();

    EXPECT_EQ(escaped("Decode DB Stream : 0, Type : 0\n" + SEARCH_HELP + "SEARCH>"),
              visit("exit\n"));
    EXPECT_EQ(calls({BEGIN, OPEN_MAIN, START, STOP, END, CLOSE}), journal());
    expect_nothing_left();
}

TEST_F(SearchDb, FindsAValidStreamAfterAnInvalidOne) {
    visit("setdb 5\nsetdb 1\nexit\n");
    EXPECT_EQ(calls({BEGIN, OPEN_MAIN, START, STOP, CLOSE, STOP, OPEN_DUAL, START, FORWARD, STOP,
                     END, CLOSE}),
              journal());
    expect_nothing_left();
}

TEST_F(SearchDb, LeavesCleanlyAfterADatabaseThatFailedToOpen) {
    fake().open_results = {1, 0};
    EXPECT_EQ(escaped("Decode DB Stream : 0, Type : 0\n" + SEARCH_HELP +
                      "SEARCH>Selected Decode DB Stream : 1\n"
                      "Decode DB Stream : 1, Type : 1\n"
                      "SEARCH>SEARCH>"),
              visit("setdb 1\npb 5\nexit\n"));
    EXPECT_EQ(
        calls(
            {BEGIN, OPEN_MAIN, START, STOP, CLOSE, OPEN_DUAL, {"SetPBState 5"}, STOP, END, CLOSE}),
        journal());
    expect_nothing_left();
}

TEST_F(SearchDb, StartsOnTheEnvironmentsStreamWhenItIsEnteredAgain) {
    const std::string expected =
        escaped("Decode DB Stream : 0, Type : 0\n" + SEARCH_HELP + "SEARCH>");
    const std::string plain_visit = calls({BEGIN, OPEN_MAIN, START, STOP, END, CLOSE});

    visit("setdb 1\nexit\n");
    fake().take_journal();
    EXPECT_EQ(expected, visit("exit\n"));
    EXPECT_EQ(plain_visit, journal());

    fake().open_results = {1, 0};
    visit("setdb 1\npb 4\nexit\n");
    fake().take_journal();
    EXPECT_EQ(expected, visit("exit\n"));
    EXPECT_EQ(plain_visit, journal());
    expect_nothing_left();
}

TEST_F(SearchDb, SwitchesBackAfterADatabaseThatFailedToOpen) {
    fake().open_results = {1, 0};
    visit("setdb 1\nsetdb 0\nexit\n");
    EXPECT_EQ(calls({BEGIN, OPEN_MAIN, START, STOP, CLOSE, OPEN_DUAL, STOP, CLOSE, OPEN_MAIN, START,
                     FORWARD, STOP, END, CLOSE}),
              journal());
    expect_nothing_left();
}

TEST_F(SearchDb, LeavesNothingWhenTheInputEndsInTheDialogue) {
    EXPECT_EQ(escaped("Decode DB Stream : 0, Type : 0\n" + SEARCH_HELP + "SEARCH>" + ON_MAIN +
                      "\n" + ON_DUAL +
                      "\nSelected Decode DB Stream : 1\n"
                      "Decode DB Stream : 1, Type : 1\n"
                      "SEARCH>"),
              visit("setdb\n1\n"));
    EXPECT_EQ(
        calls({BEGIN, OPEN_MAIN, START, STOP, CLOSE, OPEN_DUAL, START, FORWARD, STOP, END, CLOSE}),
        journal());
    expect_nothing_left();
}

TEST_F(SearchDb, AsksForTheKindOfADatabase) {
    const std::string screen = MENU_RULE +
                               "\r\n 0. Whole channel in one file."
                               "\r\n 1. Memory"
                               "\r\n 4. Exit" +
                               MENU_RULE + "\r\n Select Operation : ";
    const struct {
        const char* input;
        int answer;
        const char* line_feeds;
    } ROWS[] = {
        {"0\n", 1, "\n"},          {"1\n", 2, "\n"},     {"4\n", 0, "\n"},   {"0 1\n", 2, "\n"},
        {"1 0\n", 1, "\n"},        {"0 4 1\n", 1, "\n"}, {"x 1\n", 0, "\n"}, {"00\n", 0, "\n"},
        {"\n \n1\n", 2, "\n\n\n"}, {"", 0, "\n"},        {"1", 2, "\n"},
    };
    for (const auto& row : ROWS) {
        int answer = -1;
        EXPECT_EQ(
            escaped(screen + row.line_feeds),
            escaped(run_console(row.input, [&] { answer = searchwork_get_db_stream_type(); })))
            << row.input;
        EXPECT_EQ(row.answer, answer) << row.input;
    }
}

TEST_F(SearchDb, AsksForTheOperatorsDatabasePath) {
    const std::string screen =
        MENU_RULE + "\r\n 4. Exit" + MENU_RULE + "\r\n Please input user DB path : ";
    const struct {
        const char* input;
        int answer;
        const char* path;
        const char* line_feeds;
    } ROWS[] = {
        {"4\n", 0, "before", "\n"},
        {"/tmp/a.ini\n4\n", 1, "/tmp/a.ini", "\n\n"},
        {"one.ini rest\ntwo.ini\nx\n", 1, "two.ini", "\n\n\n"},
        {"ab\n4\n", 1, "ab", "\n\n"},
        {"", 0, "before", "\n"},
        {"/tmp/a.ini", 1, "/tmp/a.ini", "\n\n"},
    };
    for (const auto& row : ROWS) {
        char path[ANSWER_SIZE] = "before";
        int answer = -1;
        EXPECT_EQ(
            escaped(screen + row.line_feeds),
            escaped(run_console(row.input, [&] { answer = searchwork_get_user_stream(path); })))
            << row.input;
        EXPECT_EQ(row.answer, answer) << row.input;
        EXPECT_STREQ(row.path, path) << row.input;
    }
}

}  // namespace
