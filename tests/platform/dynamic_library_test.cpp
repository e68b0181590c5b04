#include "platform/dynamic_library.h"

#include <limits.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/test_environment.h"

namespace {

namespace fs = std::filesystem;
using namespace platform;

const std::string kProbe = ALERTDB_TEST_BINARY_DIR "/fixtures/dynlib_probe.so";
const std::string kOther = ALERTDB_TEST_BINARY_DIR "/fixtures/dynlib_other.so";
const fs::path kExecutable = fs::read_symlink("/proc/self/exe");

// dynlib_probe gives 4711, dynlib_other 815; -1 when the export is not found.
int ValueOf(HMODULE module) {
  auto function = reinterpret_cast<int (*)()>(GetProcAddress(module, "dynlib_value"));
  return function != nullptr ? function() : -1;
}

std::string FileNameOf(HMODULE module) {
  char buffer[PATH_MAX];
  return std::string(buffer, GetModuleFileNameA(module, buffer, sizeof buffer));
}

using DynamicLibraryTest = alertdb_test::IsolatedTest;

TEST_F(DynamicLibraryTest, LoadsFindsAndUnloadsModules) {
  HMODULE module = LoadLibraryA(kProbe.c_str());
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(ValueOf(module), 4711);
  EXPECT_EQ(FileNameOf(module), kProbe);
  EXPECT_EQ(GetModuleHandleA("DYNLIB_PROBE.SO"), module);
  EXPECT_EQ(GetProcAddress(module, "no_such_export"), nullptr);
  EXPECT_EQ(GetProcAddress(module, "getpid"), nullptr);  // the C library's, not the module's
  EXPECT_EQ(LoadLibraryA(kProbe.c_str()), module);
  EXPECT_EQ(FreeLibrary(module), 1);
  EXPECT_EQ(ValueOf(module), 4711);
  EXPECT_EQ(FreeLibrary(module), 1);
  EXPECT_EQ(GetModuleHandleA("dynlib_probe.so"), nullptr);
  EXPECT_EQ(FreeLibrary(module), 0);
  EXPECT_EQ(FreeLibrary(nullptr), 0);
  EXPECT_EQ(LoadLibraryA(nullptr), nullptr);
  EXPECT_EQ(GetModuleHandleA("alertdb_no_such_library.so"), nullptr);

  HMODULE executable = GetModuleHandleA(nullptr);
  ASSERT_NE(executable, nullptr);
  EXPECT_EQ(FileNameOf(executable), kExecutable.string());
  EXPECT_EQ(GetModuleHandleA(kExecutable.filename().c_str()), executable);
}

TEST_F(DynamicLibraryTest, BareNamesSearchExecutableDirectoryThenCurrentDirectory) {
  std::string name = "dynlib_order_" + std::to_string(getpid()) + ".so";
  const fs::path saved = fs::current_path();
  fs::current_path(dataDir());
  EXPECT_EQ(LoadLibraryA(name.c_str()), nullptr);
  fs::path besideExecutable = kExecutable.parent_path() / name;
  fs::copy_file(kOther, besideExecutable);
  fs::copy_file(kProbe, dataPath(name));
  HMODULE module = LoadLibraryA(name.c_str());
  EXPECT_EQ(ValueOf(module), 815);
  EXPECT_EQ(FreeLibrary(module), 1);
  fs::remove(besideExecutable);
  module = LoadLibraryA(name.c_str());
  EXPECT_EQ(ValueOf(module), 4711);
  EXPECT_EQ(FreeLibrary(module), 1);
  fs::current_path(saved);
}

TEST_F(DynamicLibraryTest, ConsoleDirectoryPrefersSettingThenConsoleModule) {
  char buffer[PATH_MAX];
  EXPECT_EQ(ConsoleDirectory(buffer, sizeof buffer), dataDir().size());
  EXPECT_EQ(std::string(buffer), dataDir());
  EXPECT_EQ(ConsoleDirectory(buffer, static_cast<std::uint32_t>(dataDir().size())), 0u);

  unsetenv("ALERTDB_CONSOLE_DIR");
  ASSERT_GT(ConsoleDirectory(buffer, sizeof buffer), 0u);
  EXPECT_EQ(std::string(buffer), kExecutable.parent_path().string());
  fs::create_directory(dataPath("console"));
  fs::copy_file(kProbe, dataPath("console/qconsole.exe"));
  HMODULE console = LoadLibraryA(dataPath("console/qconsole.exe").c_str());
  ASSERT_NE(console, nullptr);
  ASSERT_GT(ConsoleDirectory(buffer, sizeof buffer), 0u);
  EXPECT_EQ(std::string(buffer), dataPath("console"));
  EXPECT_EQ(FreeLibrary(console), 1);
}

}  // namespace
