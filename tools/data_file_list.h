// Which data files the tool looks at in the data directory.
#pragma once

#include <string>
#include <vector>

namespace alertdb_tool {

// The library's data files in the order of dataFiles(), whether they exist
// or not, then every other "*.dat" file of the data directory that the
// record store opens (the object manager's store, say), by name. Opening
// one to find out changes nothing.
std::vector<std::string> dataFilesToList();

// Whether `name` is one of the library's data files (letter case aside).
bool isKnownDataFile(const std::string &name);

}  // namespace alertdb_tool
