// Program entry: banner, environment, top-level menu, farewell.
#include <csignal>
#include <cstdio>

#include "env/app_env.h"
#include "shell/app.h"

int main(int argc, char** argv) {
    // A terminal that hangs up and an output that nobody reads end the input (see getch); then the
    // session is closed in order, which dying of the signal would not do.
    signal(SIGHUP, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    // A file that would exceed the limit of its size is an error of its recording alone.
    signal(SIGXFSZ, SIG_IGN);
    // A line is on the wire when it is printed, on pipes as on terminals.
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    const char* env_file = "qm7105.ini";
    app_banner();
    // Kept: with two or more arguments all of them are ignored, without a message.
    if (argc == 2) env_file = argv[1];
    if (!g_appenv.LoadEnv(env_file)) g_appenv.Default();

    app_help();
    tagMonitor menu = {app_prompt, app_help, app_cmds};
    monitor(&menu);
    puts("Exit QM7105 test program\r");
    return 0;
}
