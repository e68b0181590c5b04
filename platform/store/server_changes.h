// Data files on a database server, for the tools: where they are, which
// there are, and change signals between the machines that share them (the
// library notifies the server with each change signal, and a relay on each
// machine, `alertdb relay`, listens and sets that machine's change event).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/export.h"

namespace platform {

// The server that holds the data files (ALERTDB_STORE), without its
// password, for messages; empty when the files are local.
ALERTDB_API std::string StoreServerForMessages();

// The names of the data files the server holds (its schemas that are
// stores), in byte order; empty when the files are local or it cannot be
// reached.
ALERTDB_API std::vector<std::string> ServerStoreNames();

class ALERTDB_API ServerChangeListener {
 public:
  ServerChangeListener();
  ~ServerChangeListener();
  ServerChangeListener(const ServerChangeListener &) = delete;
  ServerChangeListener &operator=(const ServerChangeListener &) = delete;

  // Starts listening on the server in ALERTDB_STORE: 0, or 2 (QDB_E_BADARG)
  // when no server holds the data files, 11 (QDB_E_IO) when it cannot be
  // reached, with the server's reason in `why` (never a password).
  std::uint32_t listen(std::string *why);
  // Waits up to `milliseconds` for change signals: how many came, 0 when
  // none did, -1 when the connection was lost.
  int wait(int milliseconds);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace platform
