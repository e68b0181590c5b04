// What the tool tests do to data files from outside: read every file of a
// directory, and damage a file the way a crash or a bad disk would.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

namespace alertdb_test {

// Every file of `dir` with its bytes.
inline std::map<std::string, std::string> directoryContents(const std::string &dir) {
  std::map<std::string, std::string> files;
  for (const auto &entry : std::filesystem::directory_iterator(dir)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream in(entry.path(), std::ios::binary);
    files[entry.path().filename().string()] =
        std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return files;
}

// Cuts the file short by `bytes`, as a torn copy would.
inline void truncateFile(const std::string &path, std::uintmax_t bytes) {
  std::filesystem::resize_file(path, std::filesystem::file_size(path) - bytes);
}

// Changes the first byte of every place where `text` occurs in the file;
// the number of places.
inline int overwriteText(const std::string &path, const std::string &text) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  int places = 0;
  for (std::size_t at = bytes.find(text); at != std::string::npos; at = bytes.find(text, at + 1)) {
    file.clear();
    file.seekp(static_cast<std::streamoff>(at));
    file.put(static_cast<char>(bytes[at] ^ 0x20));
    ++places;
  }
  return places;
}

}  // namespace alertdb_test
