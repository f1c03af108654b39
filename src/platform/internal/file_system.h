#pragma once
// System-call helpers shared by the file manager and the file handle. Each answers false with errno
// set on failure; none throws except std::bad_alloc.

#include <string>
#include <vector>

namespace zt::platform_internal {

// The folder's entry names, "." and ".." left out, in directory order.
bool readFolderNames(const std::string& folder, std::vector<std::string>& names);
// The stored destination of a symbolic link.
bool readLink(const std::string& path, std::string& destination);
// Copies from the current offset of `in` to its end into `out`: copy_file_range, or reads and
// writes where the file systems refuse it. On failure, `failure` holds errno and `failureReading`
// whether reading failed.
bool copyFileContents(int in, int out, int& failure, bool& failureReading);
// Whether two regular files hold the same bytes.
bool sameFileBytes(const std::string& a, const std::string& b);
// fsync of the folder that holds `path`, so a rename into it is durable. Failures are ignored.
void syncFolderOf(const std::string& path);
// Writes all of `data`, retrying short writes and EINTR.
bool writeAll(int descriptor, const void* data, std::size_t length);

}  // namespace zt::platform_internal
