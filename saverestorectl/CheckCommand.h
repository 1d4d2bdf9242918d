#pragma once

struct CommandLine;
class Output;

/// Check the files that the command line names, and print what is found: the exit status.
int checkDescriptions(const CommandLine &commandLine, Output &output);
