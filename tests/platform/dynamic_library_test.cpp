#include "platform/dynamic_library.h"

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/char_set.h"
#include "support/test_environment.h"

namespace {

namespace fs = std::filesystem;
using platform::FreeLibrary;
using platform::GetModuleHandleA;
using platform::GetProcAddress;
using platform::LoadLibraryA;

const std::string kTestDir = ALERTDB_TEST_BINARY_DIR;
const std::string kFixtureDir = kTestDir + "/fixtures";

std::string Fixture(const char *name) { return kFixtureDir + "/" + name + ".so"; }

// dynlib_probe gives 4711, dynlib_other 815; -1 when the export is not found.
int ValueOf(HMODULE module) {
  auto function = reinterpret_cast<int (*)()>(GetProcAddress(module, "dynlib_value"));
  return function != nullptr ? function() : -1;
}

std::string FileNameOf(HMODULE module) {
  char buffer[PATH_MAX];
  std::uint32_t length = platform::GetModuleFileNameA(module, buffer, sizeof buffer);
  return std::string(buffer, length);
}

std::string ExecutablePath() { return fs::read_symlink("/proc/self/exe").string(); }

class DynamicLibraryTest : public alertdb_test::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    savedDirectory_ = fs::current_path();
  }
  void TearDown() override {
    fs::current_path(savedDirectory_);
    IsolatedTest::TearDown();
  }
  fs::path savedDirectory_;
};

TEST_F(DynamicLibraryTest, LoadsByPathAndFindsOnlyTheModulesOwnExports) {
  HMODULE module = LoadLibraryA(Fixture("dynlib_probe").c_str());
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(ValueOf(module), 4711);
  // The handle is the module's load address, as on Windows.
  Dl_info info;
  ASSERT_NE(dladdr(GetProcAddress(module, "dynlib_value"), &info), 0);
  EXPECT_EQ(static_cast<void *>(module), info.dli_fbase);
  EXPECT_EQ(FileNameOf(module), Fixture("dynlib_probe"));
  EXPECT_EQ(GetModuleHandleA("DYNLIB_PROBE.SO"), module);
  EXPECT_EQ(GetModuleHandleA(Fixture("dynlib_probe").c_str()), module);

  auto pid = reinterpret_cast<int (*)()>(GetProcAddress(module, "dynlib_pid"));
  ASSERT_NE(pid, nullptr);
  EXPECT_EQ(pid(), getpid());
  EXPECT_EQ(GetProcAddress(module, "no_such_export"), nullptr);
  EXPECT_EQ(GetProcAddress(module, "getpid"), nullptr);  // the C library's, not the module's
  EXPECT_EQ(GetProcAddress(module, reinterpret_cast<const char *>(1)), nullptr);  // ordinal
  EXPECT_EQ(GetProcAddress(nullptr, "dynlib_value"), nullptr);
  EXPECT_EQ(FreeLibrary(module), 1);
}

TEST_F(DynamicLibraryTest, FreeLibraryUnloadsAfterTheLastLoad) {
  HMODULE first = LoadLibraryA(Fixture("dynlib_probe").c_str());
  HMODULE second = LoadLibraryA(Fixture("dynlib_probe").c_str());
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(second, first);
  EXPECT_EQ(FreeLibrary(first), 1);
  EXPECT_EQ(GetModuleHandleA("dynlib_probe.so"), first);
  EXPECT_EQ(ValueOf(first), 4711);
  EXPECT_EQ(FreeLibrary(first), 1);
  EXPECT_EQ(GetModuleHandleA("dynlib_probe.so"), nullptr);
  EXPECT_EQ(GetProcAddress(first, "dynlib_value"), nullptr);
  EXPECT_EQ(FreeLibrary(first), 0);
  EXPECT_EQ(FreeLibrary(nullptr), 0);
  EXPECT_EQ(FreeLibrary(GetModuleHandleA(nullptr)), 0);  // not loaded by LoadLibraryA
}

TEST_F(DynamicLibraryTest, BareNamesSearchExecutableDirectoryThenCurrentDirectory) {
  fs::current_path(dataDir());
  EXPECT_EQ(LoadLibraryA("dynlib_probe.so"), nullptr);  // in neither directory
  fs::current_path(kFixtureDir);
  HMODULE module = LoadLibraryA("dynlib_probe.so");
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(FileNameOf(module), Fixture("dynlib_probe"));
  EXPECT_EQ(FreeLibrary(module), 1);
  fs::current_path(kTestDir);
  module = LoadLibraryA("fixtures/dynlib_probe.so");
  EXPECT_EQ(FileNameOf(module), Fixture("dynlib_probe"));
  EXPECT_EQ(FreeLibrary(module), 1);

  // One name in both places: the executable's directory wins.
  std::string name = "dynlib_order_" + std::to_string(getpid()) + ".so";
  fs::path besideExecutable = fs::path(ExecutablePath()).parent_path() / name;
  fs::copy_file(Fixture("dynlib_other"), besideExecutable);
  fs::copy_file(Fixture("dynlib_probe"), dataPath(name));
  fs::current_path(dataDir());
  module = LoadLibraryA(name.c_str());
  EXPECT_EQ(ValueOf(module), 815);
  EXPECT_EQ(FreeLibrary(module), 1);
  fs::remove(besideExecutable);
  module = LoadLibraryA(name.c_str());
  EXPECT_EQ(ValueOf(module), 4711);
  EXPECT_EQ(FreeLibrary(module), 1);
}

TEST_F(DynamicLibraryTest, MissingOrBrokenLibrariesGiveNull) {
  writeFile(dataPath("junk.so"), "not a shared object");
  EXPECT_EQ(LoadLibraryA(dataPath("junk.so").c_str()), nullptr);
  EXPECT_EQ(LoadLibraryA(dataPath("absent.so").c_str()), nullptr);
  EXPECT_EQ(LoadLibraryA("alertdb_no_such_library.so"), nullptr);
  EXPECT_EQ(LoadLibraryA(""), nullptr);
  EXPECT_EQ(LoadLibraryA(nullptr), nullptr);
  EXPECT_EQ(GetModuleHandleA("alertdb_no_such_library.so"), nullptr);
}

TEST_F(DynamicLibraryTest, FindsTheExecutableAndTheLibrary) {
  HMODULE executable = GetModuleHandleA(nullptr);
  Dl_info info;
  ASSERT_NE(dladdr(reinterpret_cast<void *>(&ValueOf), &info), 0);
  EXPECT_EQ(static_cast<void *>(executable), info.dli_fbase);
  std::string exePath = ExecutablePath();
  EXPECT_EQ(FileNameOf(executable), exePath);
  std::string exeName = fs::path(exePath).filename().string();
  EXPECT_EQ(GetModuleHandleA(exeName.c_str()), executable);

  // The library, found by its file name in any case, resolves its exports.
  auto exported = reinterpret_cast<void *>(&platform::CharToOemA);
  ASSERT_NE(dladdr(exported, &info), 0);
  std::string libraryName = fs::path(info.dli_fname).filename().string();
  for (char &c : libraryName) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  HMODULE library = GetModuleHandleA(libraryName.c_str());
  EXPECT_EQ(static_cast<void *>(library), info.dli_fbase);
  EXPECT_TRUE(fs::equivalent(FileNameOf(library), info.dli_fname));
  ASSERT_NE(info.dli_sname, nullptr);
  EXPECT_EQ(GetProcAddress(library, info.dli_sname), exported);
  EXPECT_EQ(GetProcAddress(library, "dynlib_value"), nullptr);

  char small[8] = "unset";
  std::uint32_t fits = static_cast<std::uint32_t>(exePath.size());
  std::string exact(fits + 1, 'x');
  EXPECT_EQ(platform::GetModuleFileNameA(nullptr, exact.data(), fits + 1), fits);
  EXPECT_EQ(platform::GetModuleFileNameA(nullptr, exact.data(), fits), 0u);
  EXPECT_EQ(platform::GetModuleFileNameA(nullptr, small, sizeof small), 0u);
  EXPECT_EQ(small[0], '\0');
  EXPECT_EQ(platform::GetModuleFileNameA(nullptr, nullptr, 100), 0u);
  EXPECT_EQ(platform::GetModuleFileNameA(reinterpret_cast<HMODULE>(0x1000), small, 8), 0u);
}

TEST_F(DynamicLibraryTest, ConsoleDirectoryPrefersSettingThenConsoleModule) {
  char buffer[PATH_MAX];
  EXPECT_EQ(platform::ConsoleDirectory(buffer, sizeof buffer), dataDir().size());
  EXPECT_EQ(std::string(buffer), dataDir());
  EXPECT_EQ(platform::ConsoleDirectory(buffer, static_cast<std::uint32_t>(dataDir().size())), 0u);
  EXPECT_EQ(platform::ConsoleDirectory(nullptr, 100), 0u);

  std::string exeDirectory = fs::path(ExecutablePath()).parent_path().string();
  setenv("ALERTDB_CONSOLE_DIR", "", 1);
  ASSERT_GT(platform::ConsoleDirectory(buffer, sizeof buffer), 0u);
  EXPECT_EQ(std::string(buffer), exeDirectory);
  unsetenv("ALERTDB_CONSOLE_DIR");
  ASSERT_GT(platform::ConsoleDirectory(buffer, sizeof buffer), 0u);
  EXPECT_EQ(std::string(buffer), exeDirectory);

  // A loaded console module, matched without regard to case, moves it.
  fs::create_directory(dataPath("console"));
  fs::copy_file(Fixture("dynlib_probe"), dataPath("console/qconsole.exe"));
  HMODULE console = LoadLibraryA(dataPath("console/qconsole.exe").c_str());
  ASSERT_NE(console, nullptr);
  ASSERT_GT(platform::ConsoleDirectory(buffer, sizeof buffer), 0u);
  EXPECT_EQ(std::string(buffer), dataPath("console"));
  EXPECT_EQ(FreeLibrary(console), 1);
}

}  // namespace
