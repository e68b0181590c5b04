// The handful of Windows types the public contract is written in.
#pragma once

#include <cstdint>

#pragma pack(push, 1)
struct _GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
#pragma pack(pop)
static_assert(sizeof(_GUID) == 16, "_GUID is 16 bytes");

typedef _GUID KEPOID;

struct HINSTANCE__;
typedef HINSTANCE__ *HINSTANCE;
typedef HINSTANCE HMODULE;
typedef void *HANDLE;

// Opaque record store handle.
struct KEPDB;

struct SCHMFLDSTRS {
  const char *pszName;
};
