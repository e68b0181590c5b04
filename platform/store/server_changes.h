// Change signals between machines that share their data files on a database
// server: the library notifies the server with each change signal, and a
// relay on each machine (`alertdb relay`) listens and sets that machine's
// change event.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/export.h"

namespace platform {

// The server that holds the data files (ALERTDB_STORE), without its
// password, for messages; empty when the files are local.
ALERTDB_API std::string StoreServerForMessages();

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
