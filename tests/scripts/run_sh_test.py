#!/usr/bin/env python3
"""Holds run.sh to its promises: the terminal is put back however a run ends, Ctrl-Z reaches the
program, a pipe is left alone, missing packages are installed. Starts this tree's release build."""
import fcntl
import os
import pty
import select
import shutil
import signal
import subprocess
import tempfile
import termios
import time
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
RUN_SH = str(ROOT / "run.sh")
PATIENCE = 120
# Building the program.
BUILD_PATIENCE = 600

PROMPT = "QM7105>"
HELP_LINE = "Welcome to Corvane QM7105 SDK Program"
FAREWELL = "Exit QM7105 test program"


def setUpModule():
    """Builds the program, so that no test has to."""
    subprocess.run([RUN_SH], input=b"q\n", stdout=subprocess.DEVNULL, check=True,
                   timeout=BUILD_PATIENCE)


class Terminal:
    """A terminal with settings of its own, and run.sh in its foreground."""

    def __init__(self):
        self.master, self.slave = pty.openpty()
        self.output = ""
        self.read_to = 0
        self.run = None
        # Settings that no default has, so that putting back a default would be seen.
        subprocess.run(["stty", "erase", "^H", "intr", "^C", "susp", "^Z", "-ixon", "-echoctl",
                        "tostop"], stdin=self.slave, check=True)

    def start(self, *arguments, stdin=None, cwd=None):
        def take_terminal():
            fcntl.ioctl(self.slave, termios.TIOCSCTTY, 0)

        self.run = subprocess.Popen(
            [RUN_SH, *arguments], cwd=cwd, start_new_session=True, preexec_fn=take_terminal,
            stdin=self.slave if stdin is None else stdin, stdout=self.slave, stderr=self.slave,
            pass_fds=(self.slave,))
        return self

    def settings(self):
        return subprocess.run(["stty", "-g"], stdin=self.slave, check=True, text=True,
                              stdout=subprocess.PIPE).stdout

    def type(self, keys):
        os.write(self.master, keys.encode())

    def take(self, seconds):
        ready, _, _ = select.select([self.master], [], [], seconds)
        if ready:
            self.output += os.read(self.master, 65536).decode("ascii", "replace")

    def expect(self, text, patience=PATIENCE):
        end = time.monotonic() + patience
        while True:
            found = self.output.find(text, self.read_to)
            if found >= 0:
                self.read_to = found + len(text)
                return
            if time.monotonic() > end:
                raise AssertionError(f"no {text!r} in {self.output!r}")
            self.take(0.1)

    def end(self):
        """The exit status of run.sh; 128 + number when it was ended by a signal itself."""
        end = time.monotonic() + PATIENCE
        while self.run.poll() is None:
            if time.monotonic() > end:
                raise AssertionError("run.sh does not end; it printed " + self.output)
            self.take(0.05)
        status = self.run.returncode
        return status if status >= 0 else 128 - status

    def hang_up(self):
        os.close(self.master)
        self.master = None

    def close(self):
        if self.run and self.run.poll() is None:
            os.killpg(self.run.pid, signal.SIGKILL)
            self.run.wait()
        if self.master is not None:
            self.hang_up()
        os.close(self.slave)


def processes_of_session(session):
    """The live processes of a session, by number."""
    found = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            stat = Path("/proc", entry, "stat").read_text()
        except OSError:
            continue
        state, _, _, its_session = stat.rpartition(")")[2].split()[:4]
        if int(its_session) == session and state != "Z":
            found.append(int(entry))
    return found


class OnATerminal(unittest.TestCase):
    def setUp(self):
        self.terminal = Terminal()
        self.addCleanup(self.terminal.close)

    def started(self, *arguments, **places):
        self.terminal.start(*arguments, **places)
        self.terminal.expect(PROMPT)
        return self.terminal

    def check_end(self, end_it, status):
        """Whatever `end_it` does ends the run with `status`, the terminal as it was before."""
        before = self.terminal.settings()
        terminal = self.started()
        self.assertNotEqual(before, terminal.settings())
        end_it(terminal)
        self.assertEqual(status, terminal.end())
        self.assertEqual(before, terminal.settings())
        self.assertEqual([], processes_of_session(terminal.run.pid))

    def test_term_puts_the_terminal_back_when_the_program_is_stopped(self):
        def stop_and_end(terminal):
            for process in processes_of_session(terminal.run.pid):
                if process != terminal.run.pid:
                    os.kill(process, signal.SIGSTOP)
            os.kill(terminal.run.pid, signal.SIGTERM)

        self.check_end(stop_and_end, 128 + signal.SIGTERM)

    def test_q_puts_the_terminal_back(self):
        self.check_end(lambda terminal: terminal.type("q\n"), 0)

    def test_ctrl_d_puts_the_terminal_back(self):
        self.check_end(lambda terminal: terminal.type("\x04"), 0)

    def test_ctrl_d_inside_a_session_puts_the_terminal_back(self):
        def open_a_session_and_end_the_input(terminal):
            terminal.type("main\n")
            terminal.expect("MAIN>")
            terminal.type("\x04")
            terminal.expect(FAREWELL)

        self.check_end(open_a_session_and_end_the_input, 0)

    def test_ctrl_c_puts_the_terminal_back(self):
        self.check_end(lambda terminal: terminal.type("\x03"), 128 + signal.SIGINT)

    def test_ctrl_backslash_puts_the_terminal_back(self):
        self.check_end(lambda terminal: terminal.type("\x1c"), 128 + signal.SIGQUIT)

    def test_signals_put_the_terminal_back(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(signal=number.name):
                self.check_end(lambda terminal, n=number: terminal.run.send_signal(n),
                               128 + number)

    def test_a_hang_up_leaves_nothing_running(self):
        terminal = self.started()
        terminal.type("main\n")
        terminal.expect("MAIN>")
        terminal.hang_up()
        self.assertEqual(128 + signal.SIGHUP, terminal.run.wait(PATIENCE))
        self.assertEqual([], processes_of_session(terminal.run.pid))

    def test_ctrl_z_reaches_the_program(self):
        terminal = self.started()
        terminal.type("h\n")
        terminal.expect(HELP_LINE)
        terminal.expect(PROMPT)
        # Recalls the line before and runs it again.
        terminal.type("\x1a\n")
        terminal.expect(HELP_LINE)
        terminal.expect(PROMPT)
        terminal.type("q\n")
        self.assertEqual(0, terminal.end())

    def test_a_relative_file_counts_from_where_it_was_typed(self):
        with tempfile.TemporaryDirectory() as folder:
            Path(folder, "my board.ini").write_text("[GENERAL]\nboard_type = 7\n")
            terminal = self.started("my board.ini", cwd=folder)
            terminal.type("envprint\n")
            terminal.expect(" [board type]           \t: 7\r\n")
            terminal.type("q\n")
            self.assertEqual(0, terminal.end())
            self.assertEqual(["my board.ini"], os.listdir(folder))

    def test_it_runs_in_a_directory_of_its_own(self):
        terminal = self.started()
        places = {os.readlink(f"/proc/{process}/cwd")
                  for process in processes_of_session(terminal.run.pid)
                  if os.readlink(f"/proc/{process}/exe").endswith("/qm7105")}
        self.assertEqual({str((ROOT / "build" / "run").resolve())}, places)
        terminal.type("q\n")
        self.assertEqual(0, terminal.end())

    def test_with_a_pipe_for_input_the_terminal_is_left_alone(self):
        before = self.terminal.settings()
        reading, writing = os.pipe()
        terminal = self.started(stdin=reading)
        os.close(reading)
        self.assertEqual(before, terminal.settings())
        os.write(writing, b"q\n")
        os.close(writing)
        self.assertEqual(0, terminal.end())
        self.assertEqual(before, terminal.settings())


class WithoutATerminal(unittest.TestCase):
    def run_sh(self, *arguments, keys="q\n"):
        run = subprocess.run([RUN_SH, *arguments], input=keys.encode(), capture_output=True,
                             timeout=BUILD_PATIENCE, check=False)
        run.stdout, run.stderr = run.stdout.decode(), run.stderr.decode()
        return run

    def refuses(self, line, *arguments):
        run = self.run_sh(*arguments)
        self.assertEqual((1, "", line), (run.returncode, run.stdout, run.stderr))

    def test_a_pipe_goes_straight_to_the_program(self):
        run = self.run_sh(keys="memtest\nq\n")
        self.assertEqual(0, run.returncode)
        self.assertTrue(run.stdout.endswith(PROMPT + PROMPT + FAREWELL + "\r\n"), run.stdout)

    def test_an_unknown_option_is_one_line(self):
        self.refuses("run.sh: unknown option --fast; ./run.sh --help tells which there are\n",
                     "--fast")

    def test_a_missing_file_is_one_line(self):
        self.refuses(f"run.sh: no such environment file: {os.getcwd()}/no-such.ini\n",
                     "no-such.ini")

    def test_two_files_are_one_line(self):
        self.refuses("run.sh: one environment file, not two: b.ini\n", "a.ini", "b.ini")

    def test_help_names_every_option(self):
        run = self.run_sh("--help")
        self.assertEqual((0, ""), (run.returncode, run.stderr))
        for word in ("Usage: ./run.sh", "ENVFILE", "--tour", "--help", "demo/qm7105.ini",
                     "build/run/", "qmtool"):
            self.assertIn(word, run.stdout)


class MissingPackages(unittest.TestCase):
    """run.sh on a machine where only the listed commands are to be found."""

    BASIC = ("bash", "cat", "dirname", "env", "id", "mkdir", "realpath", "tail")
    BUILDING = ("cmake", "ninja", "g++")

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.commands = Path(folder.name, "bin")
        self.commands.mkdir()
        self.log = Path(folder.name, "apt-get.log")
        for name in self.BASIC:
            self.provide(name)
        self.write("sudo", 'exec "$@"')

    def provide(self, name):
        (self.commands / name).symlink_to(shutil.which(name))

    def write(self, name, body):
        script = self.commands / name
        script.write_text(f"#!{shutil.which('bash')}\n{body}\n")
        script.chmod(0o755)

    def run_sh(self):
        run = subprocess.run([RUN_SH], input=b"q\n", capture_output=True, check=False,
                             env={"PATH": str(self.commands)}, timeout=BUILD_PATIENCE)
        return run.returncode, run.stdout.decode(), run.stderr.decode()

    def test_what_is_missing_is_installed_and_explained(self):
        # Installing puts the commands in place.
        links = "".join(f"; ln -s {shutil.which(name)} {self.commands}/{name}"
                        for name in self.BUILDING)
        self.provide("ln")
        self.write("apt-get", f'echo "$@" >>{self.log}\n[ $2 = update ] || {{ true{links}; }}')
        status, output, said = self.run_sh()
        self.assertEqual(0, status, said)
        self.assertTrue(output.endswith(FAREWELL + "\r\n"))
        self.assertEqual("run.sh: installing cmake: describes the build\n"
                         "run.sh: installing ninja-build: runs the build\n"
                         "run.sh: installing g++: compiles the program\n", said)
        self.assertEqual("-qq update\n"
                         "-qq install -y --no-install-recommends cmake ninja-build g++\n",
                         self.log.read_text())

    def test_qmtool_is_built_beside_the_program(self):
        for name in ("ninja", "g++"):
            self.provide(name)
        self.write("cmake", f'echo "$@" >>{self.log}; exec {shutil.which("cmake")} "$@"')
        status, _, said = self.run_sh()
        self.assertEqual((0, ""), (status, said))
        self.assertEqual(f"--build {ROOT}/build/release --target qm7105 qmtool\n",
                         self.log.read_text())

    def test_only_what_is_missing_is_installed(self):
        for name in ("cmake", "g++"):
            self.provide(name)
        self.write("apt-get", f'echo "$@" >>{self.log}; [ $2 = update ]')
        status, _, said = self.run_sh()
        self.assertEqual(1, status)
        self.assertIn("-qq install -y --no-install-recommends ninja-build\n",
                      self.log.read_text())
        self.assertIn("run.sh: apt-get install ninja-build failed: ", said)

    def test_a_machine_without_apt_get_is_told_what_to_install(self):
        for name in ("ninja", "g++"):
            self.provide(name)
        status, _, said = self.run_sh()
        self.assertEqual(1, status)
        self.assertEqual("run.sh: no apt-get here; install by hand: cmake",
                         said.splitlines()[-1])


if __name__ == "__main__":
    unittest.main()
