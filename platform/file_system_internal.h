// Small file system helpers shared inside the platform layer.
#pragma once

#include <string>

namespace platform::fs {

// The directory part of a path ("." for a bare name, "/" for the root).
std::string directoryOf(const std::string &path);
// Makes a rename or link in `dir` durable.
void syncDirectory(const std::string &dir);

}  // namespace platform::fs
