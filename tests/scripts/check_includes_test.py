#!/usr/bin/env python3
"""Holds check_includes.py to its table, on small made-up trees."""
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).with_name("check_includes.py")

# Something to include in every room.
HEADERS = (
    "shell/monitor.h", "shell/qm_time.h", "shell/app.h", "env/app_env.h",
    "mainwork/qm_codec.h", "mainwork/qm_workers.h", "mainwork/mainwork.h",
    "mainwork/encode_reports.h", "mainwork/inner.h",
    "searchwork/searchwork.h", "searchwork/search_reports.h", "searchwork/search_db.h",
    "setupwork/setupwork.h", "setupwork/inner.h",
    "statuswork/statuswork.h", "statuswork/status_thread.h", "statuswork/inner.h",
    "memtest/memtest.h", "sdk/sim_control.h", "sdk/db/format.h", "sdk/video/bits.h",
    "sdk/board/board.h", "tools/qmtool/options.h", "tests/support/console.h",
)


def check(files):
    """Runs the check on a tree of HEADERS and `files` (path: text); gives (exit status, output)."""
    with tempfile.TemporaryDirectory() as folder:
        tree = dict.fromkeys(HEADERS, "")
        tree.update(files)
        for name, text in tree.items():
            path = Path(folder, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        run = subprocess.run([sys.executable, SCRIPT, folder], capture_output=True, text=True,
                             check=False)
        return run.returncode, run.stdout + run.stderr


def including(*targets):
    return "".join(f'#include "{target}"\n' for target in targets)


class Allowed(unittest.TestCase):
    def accepts(self, file, *targets):
        self.assertEqual((0, ""), check({file: including(*targets)}), file)

    def test_every_row_of_the_table(self):
        self.accepts("shell/main.cpp", "shell/app.h", "env/app_env.h", "mainwork/mainwork.h",
                     "memtest/memtest.h")
        self.accepts("shell/app.cpp", "mainwork/mainwork.h", "memtest/memtest.h")
        self.accepts("shell/monitor.cpp", "shell/monitor.h", "shell/qm_time.h")
        self.accepts("mainwork/qm_db.h", "shell/qm_time.h", "mainwork/qm_codec.h")
        self.accepts("env/x.cpp", "env/app_env.h", "shell/monitor.h", "mainwork/qm_codec.h")
        self.accepts("setupwork/x.cpp", "setupwork/inner.h", "env/app_env.h", "shell/monitor.h")
        self.accepts("memtest/x.cpp", "memtest/memtest.h", "env/app_env.h", "shell/monitor.h")
        self.accepts("searchwork/x.cpp", "searchwork/search_db.h", "env/app_env.h",
                     "mainwork/qm_workers.h", "setupwork/setupwork.h", "statuswork/statuswork.h",
                     "mainwork/encode_reports.h")
        self.accepts("statuswork/x.cpp", "statuswork/inner.h", "env/app_env.h",
                     "mainwork/encode_reports.h", "searchwork/search_reports.h")
        self.accepts("mainwork/x.cpp", "mainwork/inner.h", "mainwork/qm_workers.h",
                     "searchwork/searchwork.h", "statuswork/status_thread.h")
        self.accepts("sdk/board/x.cpp", "sdk/db/format.h", "shell/qm_time.h",
                     "mainwork/qm_workers.h")
        self.accepts("tools/qmtool/x.cpp", "tools/qmtool/options.h", "sdk/db/format.h",
                     "sdk/video/bits.h", "shell/qm_time.h")
        for file in ("tests/sdk/x.cpp", "tests/contract/x.cpp", "bench/x.cpp", "fuzz/x.cpp"):
            self.accepts(file, "sdk/board/board.h", "searchwork/search_db.h",
                         "tests/support/console.h")
        for file in ("tests/mainwork/x.cpp", "tests/support/x.h", "demo/x.cpp"):
            self.accepts(file, "sdk/sim_control.h", "searchwork/search_db.h")

    def test_system_headers_comments_and_build_trees_are_not_looked_at(self):
        self.assertEqual((0, ""), check({
            "shell/x.cpp": '#include <gtest/gtest.h>\n// #include "sdk/board/board.h"\n',
            "build/debug/x.cpp": including("no/such.h"),
            ".cache/x.cpp": including("no/such.h"),
            "docs/page.md": including("no/such.h"),
        }))


class Refused(unittest.TestCase):
    def refuses(self, file, target, instead):
        status, output = check({file: "// Purpose.\n" + including(target)})
        self.assertEqual(1, status, f"{file} may include {target}")
        self.assertEqual(1, output.count("\n"), output)
        self.assertTrue(output.startswith(f'{file}:2: must not include "{target}"; '), output)
        self.assertIn(instead, output.split("include instead: ")[1])

    def test_the_shell_knows_no_menu(self):
        self.refuses("shell/monitor.cpp", "env/app_env.h", "shell/*")

    def test_the_program_is_put_together_from_public_headers(self):
        self.refuses("shell/main.cpp", "searchwork/search_db.h", "searchwork/searchwork.h")
        self.refuses("shell/app.cpp", "sdk/sim_control.h", "mainwork/mainwork.h")

    def test_the_codec_declarations_stand_alone(self):
        self.refuses("mainwork/qm_codec.h", "shell/monitor.h", "shell/qm_*.h")
        self.refuses("mainwork/qm_codec.h", "mainwork/mainwork.h", "mainwork/qm_*.h")

    def test_the_environment_knows_no_menu(self):
        self.refuses("env/x.cpp", "mainwork/mainwork.h", "mainwork/qm_*.h")

    def test_setup_and_memtest_see_no_other_room(self):
        self.refuses("setupwork/x.cpp", "mainwork/mainwork.h", "setupwork/*")
        self.refuses("memtest/x.cpp", "mainwork/qm_codec.h", "memtest/*")

    def test_search_and_status_see_public_and_report_headers_only(self):
        self.refuses("searchwork/x.cpp", "mainwork/inner.h", "mainwork/encode_reports.h")
        self.refuses("statuswork/x.cpp", "searchwork/search_db.h", "searchwork/search_reports.h")

    def test_main_sees_the_public_headers_of_other_rooms_only(self):
        self.refuses("mainwork/x.cpp", "searchwork/search_reports.h", "searchwork/searchwork.h")
        self.refuses("mainwork/x.cpp", "setupwork/inner.h", "setupwork/setupwork.h")

    def test_the_stand_in_knows_no_menu(self):
        self.refuses("sdk/board/x.cpp", "env/app_env.h", "sdk/*")
        self.refuses("sdk/board/x.cpp", "shell/monitor.h", "shell/qm_*.h")
        self.refuses("sdk/board/x.cpp", "mainwork/mainwork.h", "mainwork/qm_*.h")

    def test_the_companion_command_sees_databases_and_pictures_only(self):
        self.refuses("tools/qmtool/x.cpp", "sdk/board/board.h", "sdk/db/*")
        self.refuses("tools/qmtool/x.cpp", "mainwork/qm_codec.h", "shell/qm_*.h")

    def test_nobody_but_the_stand_in_sees_into_it(self):
        for room in ("env", "setupwork", "memtest", "searchwork", "statuswork", "mainwork"):
            self.refuses(f"{room}/x.cpp", "sdk/sim_control.h", f"{room}/*")

    def test_tests_steer_the_stand_in_by_its_one_header(self):
        self.refuses("tests/mainwork/x.cpp", "sdk/board/board.h", "sdk/sim_control.h")
        self.refuses("demo/x.cpp", "sdk/db/format.h", "sdk/sim_control.h")

    def test_includes_count_from_the_root(self):
        self.assertEqual(
            (1, 'shell/x.cpp:1: "monitor.h" is not relative to the root; '
                'include instead: "shell/monitor.h"\n'),
            check({"shell/x.cpp": including("monitor.h")}))
        self.assertEqual(
            (1, 'env/x.cpp:1: "../shell/monitor.h" is not relative to the root; '
                'include instead: "shell/monitor.h"\n'),
            check({"env/x.cpp": including("../shell/monitor.h")}))

    def test_an_included_file_must_exist(self):
        self.assertEqual(
            (1, 'env/x.cpp:1: "env/gone.h" does not exist; '
                'include a file by its path from the root\n'),
            check({"env/x.cpp": including("env/gone.h")}))

    def test_a_new_room_needs_a_row(self):
        self.assertEqual(
            (1, "attic/x.cpp:1: no row of the include table covers attic/x.cpp; "
                "add one to check_includes.py\n"),
            check({"attic/x.cpp": including("shell/monitor.h")}))

    def test_every_offence_is_reported(self):
        status, output = check({"env/x.cpp": including("memtest/memtest.h"),
                                "shell/x.h": "\n #  include \"env/app_env.h\"\n"})
        self.assertEqual(1, status)
        self.assertEqual(["env/x.cpp:1", "shell/x.h:2"],
                         [line.rsplit(": must", 1)[0] for line in output.splitlines()])


if __name__ == "__main__":
    unittest.main()
