// ENVPRINT, ENVCHANGE and ENVSETDB: handlers of the top-level and SETUP menus. All return 0.
#ifndef ENV_ENV_COMMANDS_H
#define ENV_ENV_COMMANDS_H

// ENVPRINT: prints the environment.
int app_env_printenv(int argc, char** argv);

// ENVCHANGE: changes the video format or one property of a channel, and tells a running codec.
int app_env_change(int argc, char** argv);

// ENVSETDB: changes a database path.
int app_env_change_dbpath(int argc, char** argv);

#endif  // ENV_ENV_COMMANDS_H
