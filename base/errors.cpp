// Error texts and the operating-system code mapping.
#include "base/errors.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace {

// The Windows runtime's classic texts for 0-42. Both builds use this table so
// the same failure prints the same line everywhere.
constexpr std::array<std::string_view, 43> kClassicTexts = {
    "No error",
    "Operation not permitted",
    "No such file or directory",
    "No such process",
    "Interrupted function call",
    "Input/output error",
    "No such device or address",
    "Arg list too long",
    "Exec format error",
    "Bad file descriptor",
    "No child processes",
    "Resource temporarily unavailable",
    "Not enough space",
    "Permission denied",
    "Bad address",
    "Unknown error",
    "Resource device",
    "File exists",
    "Improper link",
    "No such device",
    "Not a directory",
    "Is a directory",
    "Invalid argument",
    "Too many open files in system",
    "Too many open files",
    "Inappropriate I/O control operation",
    "Unknown error",
    "File too large",
    "No space left on device",
    "Invalid seek",
    "Read-only file system",
    "Too many links",
    "Broken pipe",
    "Domain error",
    "Result too large",
    "Unknown error",
    "Resource deadlock avoided",
    "Unknown error",
    "Filename too long",
    "No locks available",
    "Function not implemented",
    "Directory not empty",
    "Illegal byte sequence",
};

// The runtime's POSIX-supplement texts, numbers 100-140.
constexpr std::array<std::string_view, 41> kPosixSupplementTexts = {
    "address in use",
    "address not available",
    "address family not supported",
    "connection already in progress",
    "bad message",
    "operation canceled",
    "connection aborted",
    "connection refused",
    "connection reset",
    "destination address required",
    "host unreachable",
    "identifier removed",
    "operation in progress",
    "already connected",
    "too many symbolic link levels",
    "message size",
    "network down",
    "network reset",
    "network unreachable",
    "no buffer space",
    "no message available",
    "no link",
    "no message",
    "no protocol option",
    "no stream resources",
    "not a stream",
    "not connected",
    "state not recoverable",
    "not a socket",
    "not supported",
    "operation not supported",
    "other",
    "value too large",
    "owner dead",
    "protocol error",
    "protocol not supported",
    "wrong protocol type",
    "stream timeout",
    "timed out",
    "text file busy",
    "operation would block",
};

constexpr std::string_view kUnknown = "Unknown error";

thread_local char t_errText[128];

struct CodeMap {
    int32_t result;
    std::initializer_list<int32_t> codes;
};

// Win32 and Winsock codes to negated error numbers.
const CodeMap kWin32Map[] = {
    {-1, {5, 1314, 10112}},
    {-2, {2, 3, 15, 123, 126, 161, 203, 232, 267, 4392, 10108, 10109, 11001, 11004}},
    {-4, {10004}},
    {-5,
     {23, 31, 110, 156, 205, 996, 997, 1101, 1102, 1103, 1104, 1106, 1111, 1117, 1129, 1165, 1166,
      1393}},
    {-7, {208}},
    {-9, {6, 1004, 10009}},
    {-11, {10035, 11002}},
    {-12, {8, 14}},
    {-13, {740, 998, 10013}},
    {-14, {111, 10014}},
    {-16, {32, 33, 231}},
    {-17, {80, 183}},
    {-18, {17}},
    {-21, {1}},
    {-22, {13, 87, 1464, 10022, 10104, 10105}},
    {-24, {4, 10024}},
    {-28, {39, 82, 112, 277, 1100}},
    {-30, {19}},
    {-32, {109, 230, 233}},
    {-38, {206, 10063}},
    {-41, {145, 10066}},
    {-66, {10071}},
    {-87, {10067, 10068}},
    {-94, {10044}},
    {-96, {10046}},
    {-100, {1227, 10048}},
    {-101, {10049}},
    {-102, {10047}},
    {-103, {10037}},
    {-105, {995, 10103, 10111}},
    {-106, {1236, 10053}},
    {-107, {1225, 10061}},
    {-108, {64, 10054, 10058, 10101}},
    {-109, {10039, 10059}},
    {-110, {1232, 10065}},
    {-112, {10036, 10064}},
    {-113, {10056}},
    {-114, {1921, 10062}},
    {-115, {10040}},
    {-116, {10050, 10070}},
    {-117, {10052}},
    {-118, {1231, 10051}},
    {-119, {10055}},
    {-122, {10069}},
    {-123, {10042}},
    {-126, {2250, 10057}},
    {-127, {11003}},
    {-128, {10038}},
    {-130, {10045}},
    {-132, {122}},
    {-135, {10043}},
    {-136, {10041}},
    {-138, {121, 10060}},
    {-200, {10093}},
    {-201, {10092}},
    {-202, {10102, 10110}},
    {-253, {10091, 10106, 10107}},
};

// POSIX errno values to the number the Windows build gives for the same
// situation (for instance a missing or unanswered socket is a missing pipe).
struct PosixMap {
    int err;
    int32_t result;
};

const PosixMap kPosixMap[] = {
    {EPERM, -1},        {EACCES, -1},         {ENOENT, -2},
    {ECONNREFUSED, -2}, {ENOTDIR, -2},        {EINTR, -4},
    {EIO, -5},          {EBADF, -9},          {EAGAIN, -11},
    {ENOMEM, -12},      {EFAULT, -14},        {EBUSY, -16},
    {EEXIST, -17},      {EINVAL, -22},        {EMFILE, -24},
    {ENFILE, -24},      {ENOSPC, -28},        {EROFS, -30},
    {EPIPE, -32},       {ECONNRESET, -32},    {ENAMETOOLONG, -38},
    {EADDRINUSE, -100}, {ECONNABORTED, -106}, {ENOTCONN, -126},
    {ENOBUFS, -119},    {ETIMEDOUT, -254},    {EOVERFLOW, -132},
};

} // namespace

const char *OV_StrError(int32_t errnum) {
    std::memset(t_errText, 0, sizeof t_errText);
    std::string_view text = kUnknown;
    if (errnum >= 0 && errnum < static_cast<int32_t>(kClassicTexts.size())) {
        text = kClassicTexts[static_cast<size_t>(errnum)];
    } else if (errnum >= 100 && errnum < 100 + static_cast<int32_t>(kPosixSupplementTexts.size())) {
        text = kPosixSupplementTexts[static_cast<size_t>(errnum - 100)];
    }
    std::memcpy(t_errText, text.data(), text.size());
    return t_errText;
}

int32_t OV_Win32ErrToErrno(int32_t code) {
    if (code <= 0) {
        return code;
    }
    for (const CodeMap &row : kWin32Map) {
        for (int32_t c : row.codes) {
            if (c == code) {
                return row.result;
            }
        }
    }
    return -OV_EUNKNOWN;
}

int32_t OV_PosixErrToErrno(int err) {
    if (err <= 0) {
        return err;
    }
    for (const PosixMap &row : kPosixMap) {
        if (row.err == err) {
            return row.result;
        }
    }
    return -OV_EUNKNOWN;
}
