// The deletes of the alerting data with the cascades the table classes carry
// out, in their order, over whatever a harness keeps of the records: the
// crash harness replays them step by step, the concurrency harness marks the
// records of one thread gone.
#pragma once

#include <vector>

#include "reliability/harness_catalogue.h"

namespace harness {

class CascadeStore {
 public:
  virtual ~CascadeStore() = default;

  // Deletes record `id` of table t with everything its delete takes along.
  void deleteRecord(Table t, const Id &id) {
    switch (t) {
      case kEventClass:
        return deleteEventClass(id);
      case kResponse:
        return deleteResponse(id);
      case kUser:
        return deleteUser(id);
      case kInstance:
        return deleteInstance(id);
      case kServer:
        return deleteServer(id);
      case kInstalled:
        return deleteInstalled(id);
      case kUserObject:
        drop(t, id);
        return unregister(t, id);
      default:
        return drop(t, id);
    }
  }

 protected:
  // The stored record, null when there is none.
  virtual const RecordDigest *stored(Table t, const Id &id) const = 0;
  // The records of t whose reference `ref` is `value`, in the order a walk
  // on that key meets them.
  virtual std::vector<Id> referring(Table t, int ref, const Id &value) const = 0;
  // Removes a stored record.
  virtual void erase(Table t, const Id &id) = 0;
  // The object manager forgets the instance of a record.
  virtual void unregister(Table t, const Id &id) = 0;

 private:
  void drop(Table t, const Id &id) {
    if (stored(t, id)) erase(t, id);
  }

  // The event class, then its links, then its object manager instance.
  void deleteEventClass(const Id &id) {
    drop(kEventClass, id);
    for (const Id &link : referring(kLink, 0, id)) drop(kLink, link);
    unregister(kEventClass, id);
  }

  // Protected responses stay; otherwise the response, then its links.
  void deleteResponse(const Id &id) {
    const RecordDigest *response = stored(kResponse, id);
    if (!response || (response->number & kProtectedResponse)) return;
    erase(kResponse, id);
    for (const Id &link : referring(kLink, 1, id)) drop(kLink, link);
  }

  // The instance, its address record, then the user's responses through
  // its service.
  void deleteInstance(const Id &id) {
    const RecordDigest *found = stored(kInstance, id);
    if (!found) return;
    RecordDigest instance = *found;
    erase(kInstance, id);
    Table addressTable = addressTableOfType(instance.number);
    if (addressTable != kTableCount) drop(addressTable, instance.refs[2]);
    for (const Id &response : referring(kResponse, 0, instance.refs[0])) {
      const RecordDigest *r = stored(kResponse, response);
      if (r && r->refs[1] == instance.refs[1]) deleteResponse(response);
    }
  }

  // Its instances, its remaining responses, then the user, even when the
  // user is not stored. Its object manager instance stays.
  void deleteUser(const Id &id) {
    for (const Id &instance : referring(kInstance, 0, id)) deleteInstance(instance);
    for (const Id &response : referring(kResponse, 0, id)) deleteResponse(response);
    drop(kUser, id);
  }

  // The responses and instances of its service, the service's own settings
  // for a backup server's record, then the installed record.
  void deleteInstalled(const Id &id) {
    if (const RecordDigest *found = stored(kInstalled, id)) {
      RecordDigest installed = *found;
      for (const Id &response : referring(kResponse, 1, installed.refs[0]))
        deleteResponse(response);
      for (const Id &instance : referring(kInstance, 1, installed.refs[0]))
        deleteInstance(instance);
      const RecordDigest *service = stored(kCatalogue, installed.refs[0]);
      if (installed.number == CAlertSERV_INST_NTFY_SERVDB::kBackupServer && service) {
        Table kindRecord = kindTableOfType(service->number);
        if (kindRecord != kTableCount) drop(kindRecord, installed.refs[2]);
      }
    }
    drop(kInstalled, id);
  }

  // Its installed services, then the server, even when it is not stored.
  void deleteServer(const Id &id) {
    for (const Id &installed : referring(kInstalled, 1, id)) deleteInstalled(installed);
    drop(kServer, id);
  }
};

}  // namespace harness
