#pragma once

#include <cstdio>

/// What differs between the operating systems, one implementation file each.
namespace http_interface::platform
{

/// Frees what the TLS library keeps for the calling loop thread.
void OnLoopThreadEnd();

/// Opens a file as fopen_s does: 0 and the file, or the error number.
int OpenFile(std::FILE** file, const char* path, const char* mode);

} // namespace http_interface::platform
