// Settings files of any content: the console settings file and the alert
// settings file it leads to, read through the profile reader and the
// functions that read them.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "alertdb.h"
#include "fuzz/fuzz_input.h"

namespace {

std::string settingsDirectory() {
  static std::string dir = [] {
    char pattern[] = "/tmp/alertdb-settings-fuzz-XXXXXX";
    std::string made = ::mkdtemp(pattern) ? pattern : "/tmp";
    ::setenv("ALERTDB_CONSOLE_DIR", made.c_str(), 1);
    ::unsetenv("ALERTDB_DATA_DIR");
    return made;
  }();
  return dir;
}

void writeFile(const std::string &path, const std::string &bytes) {
  if (FILE *f = std::fopen(path.c_str(), "wb")) {
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  alertdb_fuzz::FuzzInput input(data, size);
  char section[64], key[64];
  input.text(section, sizeof section);
  input.text(key, sizeof key);
  std::string bytes = input.rest();
  const std::string dir = settingsDirectory();
  // The console settings file names the data directory; the alert settings
  // file sits there. Both get the same bytes, so any DataDir it names is read.
  writeFile(dir + "/QADMIN.DAT", bytes);
  writeFile(dir + "/QADMIN.INI", bytes);

  char value[300];
  platform::ProfileGetString(section, key, "default", value, sizeof value,
                             (dir + "/QADMIN.DAT").c_str());
  platform::ProfileGetString(section, key, nullptr, value, 1, (dir + "/QADMIN.DAT").c_str());
  platform::ProfileGetInt(section, key, 7, (dir + "/QADMIN.DAT").c_str());
  char dataDir[260];
  GetKepDataDir(dataDir);
  GetEncryptionStatus();
  return 0;
}
