// Change signals through the server's notifications.
#include <poll.h>

#include <cerrno>
#include <string>

#include "platform/store/postgres/pg_connection_internal.h"
#include "platform/store/server_changes.h"
#include "platform/store/server_notify_internal.h"
#include "platform/store/store_handle_internal.h"

namespace platform {

namespace store {

void NotifyServerOfChange(KEPDB *handle) {
  try {
    std::string uri = postgres::serverUri();
    if (uri.empty()) return;
    bool sent = handle && withHandle(handle, [](Handle &h) -> std::uint32_t {
                            return h.session->announceChange() ? QDB_OK : QDB_E_IO;
                          }) == QDB_OK;
    if (sent) return;
    if (postgres::Connection *conn = postgres::threadConnection(uri)) {
      conn->execute(std::string("NOTIFY ") + kChangeChannel);
    }
  } catch (...) {
  }
}

}  // namespace store

std::string StoreServerForMessages() {
  std::string uri = store::postgres::serverUri();
  return uri.empty() ? std::string() : store::postgres::uriForMessages(uri);
}

std::vector<std::string> ServerStoreNames() {
  std::vector<std::string> names;
  try {
    std::string uri = store::postgres::serverUri();
    store::postgres::Connection *conn =
        uri.empty() ? nullptr : store::postgres::threadConnection(uri);
    if (!conn) return names;
    store::postgres::Result r = conn->execute(
        "SELECT schemaname FROM pg_tables WHERE tablename='alertdb_store'"
        " ORDER BY schemaname COLLATE \"C\"");
    for (int i = 0; i < r.rows(); ++i) names.push_back(r.text(i, 0));
  } catch (...) {
    names.clear();
  }
  return names;
}

struct ServerChangeListener::State {
  store::postgres::Connection conn;
};

ServerChangeListener::ServerChangeListener() = default;
ServerChangeListener::~ServerChangeListener() = default;

std::uint32_t ServerChangeListener::listen(std::string *why) {
  try {
    std::string uri = store::postgres::serverUri();
    if (uri.empty()) {
      if (why) *why = "ALERTDB_STORE names no PostgreSQL server";
      return 2;
    }
    state_ = std::make_unique<State>();
    if (!state_->conn.open(uri)) {
      if (why) *why = "cannot connect to " + store::postgres::uriForMessages(uri);
      state_.reset();
      return 11;
    }
    store::postgres::Result r =
        state_->conn.execute(std::string("LISTEN ") + store::kChangeChannel);
    if (!r.ok()) {
      if (why) *why = PQerrorMessage(state_->conn.get());
      state_.reset();
      return 11;
    }
    return 0;
  } catch (...) {
    state_.reset();
    return 11;
  }
}

int ServerChangeListener::wait(int milliseconds) {
  if (!state_ || !state_->conn.alive()) return -1;
  PGconn *conn = state_->conn.get();
  auto drain = [&] {
    int count = 0;
    while (PGnotify *n = PQnotifies(conn)) {
      ++count;
      PQfreemem(n);
    }
    return count;
  };
  int count = drain();
  if (count > 0) return count;
  pollfd fd{PQsocket(conn), POLLIN, 0};
  int ready = ::poll(&fd, 1, milliseconds);
  if (ready < 0) return errno == EINTR ? 0 : -1;
  if (ready == 0) return 0;
  if (!PQconsumeInput(conn) || PQstatus(conn) != CONNECTION_OK) return -1;
  return drain();
}

}  // namespace platform
