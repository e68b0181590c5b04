#include "platform/dynamic_library.h"

#include <dlfcn.h>
#include <limits.h>
#include <link.h>
#include <strings.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace platform {
namespace {

// Modules loaded through LoadLibraryA: each load took one dlopen reference,
// which the matching FreeLibrary gives back.
struct LoadedModule {
  void *handle;
  unsigned count;
};

struct Loads {
  std::mutex mutex;
  std::map<std::uintptr_t, LoadedModule> modules;
};

Loads &TheLoads() {
  // Never destroyed: modules may be freed from other objects' destructors at unload.
  static Loads *loads = new Loads;
  return *loads;
}

std::string ExecutablePath() {
  char path[PATH_MAX];
  ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0 || static_cast<std::size_t>(length) >= sizeof path) return std::string();
  return std::string(path, static_cast<std::size_t>(length));
}

std::string CurrentDirectory() {
  char path[PATH_MAX];
  return getcwd(path, sizeof path) != nullptr ? std::string(path) : std::string();
}

std::string DirectoryOf(const std::string &path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return std::string();
  return slash == 0 ? std::string("/") : path.substr(0, slash);
}

std::string LastComponent(const std::string &path) {
  std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string Join(const std::string &directory, const std::string &name) {
  if (directory.empty()) return std::string();
  return directory.back() == '/' ? directory + name : directory + "/" + name;
}

struct LoadedObject {
  std::uintptr_t base;
  std::string path;
  bool executable;
};

struct Enumeration {
  std::vector<LoadedObject> *objects;
  std::uintptr_t executablePhdr;
  std::uintptr_t pageMask;
  const std::string *executablePath;
  bool failed;
};

int CollectObject(dl_phdr_info *info, std::size_t, void *data) {
  Enumeration *enumeration = static_cast<Enumeration *>(data);
  // The base is where the lowest loadable segment is mapped, the address that
  // dladdr reports as dli_fbase.
  std::uintptr_t lowest = UINTPTR_MAX;
  for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
    if (info->dlpi_phdr[i].p_type == PT_LOAD && info->dlpi_phdr[i].p_vaddr < lowest) {
      lowest = info->dlpi_phdr[i].p_vaddr;
    }
  }
  if (lowest == UINTPTR_MAX) return 0;
  bool executable =
      reinterpret_cast<std::uintptr_t>(info->dlpi_phdr) == enumeration->executablePhdr;
  try {
    std::string path = executable ? *enumeration->executablePath
                                  : std::string(info->dlpi_name != nullptr ? info->dlpi_name : "");
    if (path.empty()) return 0;
    enumeration->objects->push_back(
        {info->dlpi_addr + (lowest & enumeration->pageMask), std::move(path), executable});
  } catch (...) {
    enumeration->failed = true;
    return 1;
  }
  return 0;
}

// The process's loaded objects in load order; the executable under its real path.
std::vector<LoadedObject> LoadedObjects() {
  std::vector<LoadedObject> objects;
  std::string executablePath = ExecutablePath();
  Enumeration enumeration{&objects, static_cast<std::uintptr_t>(getauxval(AT_PHDR)),
                          ~(static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE)) - 1),
                          &executablePath, false};
  dl_iterate_phdr(CollectObject, &enumeration);
  if (enumeration.failed) objects.clear();
  return objects;
}

bool FindObject(HMODULE module, LoadedObject *found) {
  for (LoadedObject &object : LoadedObjects()) {
    if (object.base == reinterpret_cast<std::uintptr_t>(module)) {
      *found = std::move(object);
      return true;
    }
  }
  return false;
}

std::uintptr_t BaseOf(void *handle) {
  link_map *map = nullptr;
  if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr || map->l_ld == nullptr) {
    return 0;
  }
  Dl_info info;
  if (dladdr(map->l_ld, &info) == 0) return 0;
  return reinterpret_cast<std::uintptr_t>(info.dli_fbase);
}

void *Open(const std::string &path) {
  return path.empty() ? nullptr : dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}

// Only the module's own symbols, as on Windows: a handle's dlsym would also
// search the libraries it depends on.
void *OwnSymbol(void *handle, const char *name, HMODULE module) {
  void *symbol = dlsym(handle, name);
  Dl_info info;
  if (symbol == nullptr || dladdr(symbol, &info) == 0 || info.dli_fbase != module) return nullptr;
  return symbol;
}

bool CopyOut(const std::string &text, char *buffer, std::uint32_t size, std::uint32_t *length) {
  if (text.empty() || text.size() >= size) {
    buffer[0] = '\0';
    return false;
  }
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  *length = static_cast<std::uint32_t>(text.size());
  return true;
}

}  // namespace

HMODULE LoadLibraryA(const char *fileName) {
  if (fileName == nullptr || *fileName == '\0') return nullptr;
  try {
    std::string name(fileName);
    void *handle = nullptr;
    if (name.find('/') != std::string::npos) {
      // Made absolute so that GetModuleFileNameA reports a full path.
      handle = Open(name.front() == '/' ? name : Join(CurrentDirectory(), name));
    } else {
      handle = Open(Join(DirectoryOf(ExecutablePath()), name));
      if (handle == nullptr) handle = Open(Join(CurrentDirectory(), name));
      if (handle == nullptr) handle = Open(name);
    }
    if (handle == nullptr) return nullptr;
    std::uintptr_t base = BaseOf(handle);
    if (base == 0) {
      dlclose(handle);
      return nullptr;
    }
    Loads &loads = TheLoads();
    std::lock_guard<std::mutex> guard(loads.mutex);
    try {
      LoadedModule &module = loads.modules.try_emplace(base, LoadedModule{handle, 0}).first->second;
      ++module.count;
    } catch (...) {
      dlclose(handle);
      return nullptr;
    }
    return reinterpret_cast<HMODULE>(base);
  } catch (...) {
    return nullptr;
  }
}

void *GetProcAddress(HMODULE module, const char *name) {
  // Names below 0x10000 are ordinals on Windows; modules here export by name only.
  if (module == nullptr || reinterpret_cast<std::uintptr_t>(name) <= 0xFFFF) return nullptr;
  try {
    {
      Loads &loads = TheLoads();
      std::lock_guard<std::mutex> guard(loads.mutex);
      auto it = loads.modules.find(reinterpret_cast<std::uintptr_t>(module));
      if (it != loads.modules.end()) return OwnSymbol(it->second.handle, name, module);
    }
    LoadedObject object;
    if (!FindObject(module, &object)) return nullptr;
    // The executable cannot be opened by path (that would load a second copy).
    void *handle = object.executable ? dlopen(nullptr, RTLD_NOW)
                                     : dlopen(object.path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle == nullptr) return nullptr;
    void *symbol = OwnSymbol(handle, name, module);
    dlclose(handle);
    return symbol;
  } catch (...) {
    return nullptr;
  }
}

std::int32_t FreeLibrary(HMODULE module) {
  try {
    Loads &loads = TheLoads();
    std::lock_guard<std::mutex> guard(loads.mutex);
    auto it = loads.modules.find(reinterpret_cast<std::uintptr_t>(module));
    if (it == loads.modules.end()) return 0;
    dlclose(it->second.handle);
    if (--it->second.count == 0) loads.modules.erase(it);
    return 1;
  } catch (...) {
    return 0;
  }
}

HMODULE GetModuleHandleA(const char *name) {
  try {
    bool withPath = name != nullptr && std::strchr(name, '/') != nullptr;
    for (const LoadedObject &object : LoadedObjects()) {
      bool match = name == nullptr
                       ? object.executable
                       : strcasecmp((withPath ? object.path : LastComponent(object.path)).c_str(),
                                    name) == 0;
      if (match) return reinterpret_cast<HMODULE>(object.base);
    }
    return nullptr;
  } catch (...) {
    return nullptr;
  }
}

std::uint32_t GetModuleFileNameA(HMODULE module, char *buffer, std::uint32_t size) {
  if (buffer == nullptr || size == 0) return 0;
  try {
    std::string path;
    LoadedObject object;
    if (module == nullptr) {
      path = ExecutablePath();
    } else if (FindObject(module, &object)) {
      path = std::move(object.path);
    }
    std::uint32_t length = 0;
    return CopyOut(path, buffer, size, &length) ? length : 0;
  } catch (...) {
    buffer[0] = '\0';
    return 0;
  }
}

std::uint32_t ConsoleDirectory(char *buffer, std::uint32_t size) {
  if (buffer == nullptr || size == 0) return 0;
  try {
    std::string directory;
    const char *configured = std::getenv("ALERTDB_CONSOLE_DIR");
    if (configured != nullptr && *configured != '\0') {
      directory = configured;
    } else {
      LoadedObject console;
      HMODULE module = GetModuleHandleA("QCONSOLE.EXE");
      bool found = module != nullptr && FindObject(module, &console);
      directory = DirectoryOf(found ? console.path : ExecutablePath());
    }
    std::uint32_t length = 0;
    return CopyOut(directory, buffer, size, &length) ? length : 0;
  } catch (...) {
    buffer[0] = '\0';
    return 0;
  }
}

}  // namespace platform
