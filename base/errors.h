// Error numbers, their texts, and the mapping of operating-system codes.
//
// Results across the system are 0 or positive for success and a negated
// error number for failure. The numbers follow the Windows runtime's
// numbering on every build, so -132 reads "value too large" on Linux too.
#pragma once

#include <cstdint>

enum OV_Errno : int32_t {
    OV_EPERM = 1,
    OV_ENOENT = 2,
    OV_EINTR = 4,
    OV_EIO = 5,
    OV_EBADF = 9,
    OV_EAGAIN = 11,
    OV_ENOMEM = 12,
    OV_EACCES = 13,
    OV_EFAULT = 14,
    OV_EBUSY = 16,
    OV_EEXIST = 17,
    OV_EINVAL = 22,
    OV_ENOSPC = 28,
    OV_EPIPE = 32,
    OV_ENOSYS = 40,
    OV_ECONNREFUSED = 107,
    OV_ECONNRESET = 108,
    OV_ENOTCONN = 126,
    OV_ENOBUFS = 119,
    OV_ENODATA = 120,
    OV_EOVERFLOW = 132,
    OV_ETIMEDOUT = 138,
    OV_EUNKNOWN = 254, ///< an operating-system code the mapping does not know
};

/// Win32 error numbers that portable code needs to name (the POSIX transport
/// reports its situations with the numbers Windows gives for the same ones).
enum OV_WinError : int32_t {
    OV_WINERR_FILE_NOT_FOUND = 2,
    OV_WINERR_ACCESS_DENIED = 5,
    OV_WINERR_NOT_ENOUGH_MEMORY = 8,
    OV_WINERR_BROKEN_PIPE = 109,
    OV_WINERR_SEM_TIMEOUT = 121,
    OV_WINERR_PIPE_BUSY = 231,
    OV_WINERR_NO_DATA = 232,
    OV_WINERR_PIPE_NOT_CONNECTED = 233,
    OV_WINERR_WAIT_TIMEOUT = 258,
    OV_WINERR_OPERATION_ABORTED = 995,
    OV_WINERR_IO_PENDING = 997,
};

/// Text of a positive error number, written into the calling thread's
/// 128-byte buffer. The pointer stays valid until the same thread's next
/// lookup. Unknown numbers read "Unknown error".
const char *OV_StrError(int32_t errnum);

/// Maps a Win32 or Winsock error code to a negated error number. Zero and
/// negative input come back unchanged; codes not in the table give -254.
int32_t OV_Win32ErrToErrno(int32_t code);

/// Maps a POSIX errno value to the negated error number the Windows build
/// produces for the same situation. Zero and negative input come back
/// unchanged; values not in the table give -254.
int32_t OV_PosixErrToErrno(int err);
