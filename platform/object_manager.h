// The object manager stand-in: the data directory, reference-counted
// connections, and object instances kept in a store of the data directory.
// A client program may install its own provider in place of the stand-in.
#pragma once

#include <cstdint>

#include "platform/export.h"
#include "platform/win_types.h"

namespace platform {

struct KepOMConnection;
struct KepOMConnectionOps {
  std::uint32_t (*QueryInterface)(KepOMConnection *self, const _GUID *iid, void **out);
  std::uint32_t (*AddRef)(KepOMConnection *self);
  std::uint32_t (*Release)(KepOMConnection *self);
};
struct KepOMConnection {
  const KepOMConnectionOps *ops;
};

// Class IDs of the kinds the library announces.
ALERTDB_API extern const _GUID kClassIdUser;        // {5D3A91C2-7E40-4B6A-9F21-3C8E0B7A6D15}
ALERTDB_API extern const _GUID kClassIdEventClass;  // {5D3A91C3-...}
ALERTDB_API extern const _GUID kClassIdEventLog;    // {5D3A91C4-...}

// Data directory: ALERTDB_DATA_DIR when set (read at every call), else
// "DataDir" of the console settings file. 0 on success.
ALERTDB_API std::uint32_t KepOMGetDataDir(char *buffer, std::uint32_t size);
ALERTDB_API std::uint32_t KepOMGetDomainID(_GUID *domainId);
ALERTDB_API std::uint32_t KepOMOpen(KepOMConnection **connection);
ALERTDB_API std::uint32_t KepOMAddInstance(const _GUID *objectId, const _GUID *classId,
                                           const char *name);
ALERTDB_API std::uint32_t KepOMUpdateInstance(const _GUID *objectId, const _GUID *classId,
                                              const char *name);
ALERTDB_API std::uint32_t KepOMDeleteInstance(const _GUID *objectId, const _GUID *classId);

// A replacement object manager. Null entries fall back to the stand-in.
struct KepOMProvider {
  std::uint32_t (*GetDataDir)(char *buffer, std::uint32_t size);
  std::uint32_t (*GetDomainID)(_GUID *domainId);
  std::uint32_t (*Open)(KepOMConnection **connection);
  std::uint32_t (*AddInstance)(const _GUID *objectId, const _GUID *classId, const char *name);
  std::uint32_t (*UpdateInstance)(const _GUID *objectId, const _GUID *classId, const char *name);
  std::uint32_t (*DeleteInstance)(const _GUID *objectId, const _GUID *classId);
};
// Installs `provider` (copied); null restores the stand-in.
ALERTDB_API void KepOMSetProvider(const KepOMProvider *provider);

// The stand-in's view of an instance, for tools and tests: 0 and the class ID
// and name when the instance is registered.
ALERTDB_API std::uint32_t KepOMGetInstance(const _GUID *objectId, _GUID *classId, char *name,
                                           std::uint32_t nameSize);

}  // namespace platform
