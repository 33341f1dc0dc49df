// Operating-system services of agentsim: its standard streams, the stop
// signals, and files written so that a crash never leaves half of one.
// One declaration here, implemented by sim_os_posix.cpp or sim_os_win32.cpp.
// Paths are UTF-8.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

/// Points standard output at standard error, so that log lines never mix
/// with a journal on standard output, and returns a new stream on the
/// original standard output (owned by the caller; fclose it), or nullptr.
FILE *SimTakeStdout();

/// Opens path for appending, in binary mode. Returns nullptr on failure.
FILE *SimOpenAppend(const std::string &path);

/// Replaces path with data: written to path + ".tmp", flushed to the disk,
/// then renamed over path, so that readers (and a restart after a crash)
/// see the old file or the new one, never a mix. Returns 0 or a negative code.
int32_t SimWriteFileAtomic(const std::string &path, const std::string &data);

/// Reads a whole file into out. Returns 0, -2 when there is no such file, or
/// another negative code.
int32_t SimReadFile(const std::string &path, std::string *out);

/// Removes a file; a missing one is not an error.
void SimRemoveFile(const std::string &path);

/// Makes dir the socket directory of this process (POSIX: $OV_PIPE_DIR);
/// nothing on Windows, where pipe names need no directory.
void SimSetPipeDir(const std::string &dir);

/// Calls onStop(ctx), on a thread of its own, when the process is asked to
/// stop (Ctrl-C, SIGTERM; on Windows also Ctrl-Break and console close).
/// Call before any other thread starts. Returns 0 or a negative code.
int32_t SimStopWatchStart(void (*onStop)(void *ctx), void *ctx);

/// Stops watching; onStop is not called after this returns.
void SimStopWatchEnd();

/// The process id, for messages and temporary names.
uint32_t SimProcessId();
