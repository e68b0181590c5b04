// An object manager whose chosen calls refuse; the others are the stand-in's.
#pragma once

#include <cstdint>

#include "platform/object_manager.h"

namespace alertdb_test {

constexpr std::uint32_t kRefused = 0x80004005;

struct RefusingObjectManager {
  bool open = false, add = false, update = false, remove = false, domain = false;

  void install() const {
    platform::KepOMProvider p{};
    if (open) p.Open = [](platform::KepOMConnection **) { return kRefused; };
    if (add) p.AddInstance = [](const _GUID *, const _GUID *, const char *) { return kRefused; };
    if (update) {
      p.UpdateInstance = [](const _GUID *, const _GUID *, const char *) { return kRefused; };
    }
    if (remove) p.DeleteInstance = [](const _GUID *, const _GUID *) { return kRefused; };
    if (domain) p.GetDomainID = [](_GUID *) { return kRefused; };
    platform::KepOMSetProvider(&p);
  }
};

}  // namespace alertdb_test
