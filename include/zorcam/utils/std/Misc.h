#pragma once

// Miscellaneous camera utilities in NSCam::Utils.

#include <zorcam/utils/std/Log.h>

namespace NSCam {
namespace Utils {

// ---- Directories and plain files

/// Makes every directory along path, parents first, with mode (before the umask); existing
/// directories are kept. True when all of them exist as directories afterwards. Directories
/// made before a failing component stay. Any thread.
bool makePath(char const* path, unsigned int mode);

/// Writes size bytes of buf to fname, created or truncated with mode 0704 (before the umask).
/// False only when the file cannot be opened; a failed write is logged, and the file then
/// holds the bytes written before it. Blocks on file I/O; any thread.
bool saveBufToFile(char const* fname, unsigned char* buf, unsigned int size);

/// Reads up to size bytes of fname into buf, which must hold size bytes; with size 0 the
/// whole file is read and buf must hold the file's length. Returns the bytes read: 0 when the
/// file cannot be opened, fewer than size at end of file or after a read error. Any thread.
unsigned int loadFileToBuf(char const* fname, unsigned char* buf, unsigned int size);


// ---- Dump through the camera-dump service

/// Hands size bytes of buf to the camera-dump service, which writes them to fname. The bytes
/// travel in an ashmem block; buf is only read, never kept. A path outside /data/engineercamera
/// and /sdcard is moved under /sdcard (its file name kept). False only when the service
/// cannot be reached; a refused buffer or a failed allocation is logged and returns true.
/// Blocks until the service has written the file; any thread.
bool saveBufToSDFile(char const* fname, unsigned char* buf, unsigned int size);


// ---- Thread priority


// ---- Lock helpers


// ---- Fault reports and call stacks


}  // namespace Utils
}  // namespace NSCam
