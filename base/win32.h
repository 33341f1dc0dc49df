// The one header that includes <windows.h>: lean, without the min/max macros.
// Windows-only sources include this and nothing else of the Windows SDK
// (apart from the few extra headers listed here).
#pragma once

#ifndef _WIN32
#error "base/win32.h is for the Windows build only"
#endif

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

// winsock2.h must come before windows.h, or windows.h drags in winsock 1.
#include <winsock2.h>

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>
