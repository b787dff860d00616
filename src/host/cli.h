#pragma once
namespace wren {
// The wren-bridge executable: the native-messaging host and its commands.
int runCli(int argc, char** argv);
}  // namespace wren
