// Names and meanings of every status a table operation can return, for tools
// and client programs that report them.
#include <cstdint>

#include "framework/alert_status.h"
#include "platform/store/record_store.h"

namespace {

struct StatusText {
  std::uint32_t status;
  const char *name;
  const char *meaning;
};

constexpr StatusText kStatusTexts[] = {
    {0, "ALRT_OK", "success"},
    {ALRT_E_NOMEMORY, "ALRT_E_NOMEMORY", "allocation of a neighbour table object failed"},
    {ALRT_E_INITFAILED, "ALRT_E_INITFAILED",
     "the record store refused to open or create the data file"},
    {ALRT_E_OPENFAILED, "ALRT_E_OPENFAILED", "a neighbour table failed to open and to be created"},
    {ALRT_E_ADDFAILED, "ALRT_E_ADDFAILED", "the record store refused to add the record"},
    {ALRT_E_INVALIDPARAM, "ALRT_E_INVALIDPARAM",
     "a required argument is missing, or a required object ID is all zero"},
    {ALRT_E_TOOLARGE, "ALRT_E_TOOLARGE", "a count or length exceeds its limit"},
    {ALRT_E_NOTFOUND, "ALRT_E_NOTFOUND",
     "no record with the given object ID or key, or the enumeration has no further record"},
    {ALRT_E_READFAILED, "ALRT_E_READFAILED", "the record was found but reading it failed"},
    {ALRT_E_NOTOPEN, "ALRT_E_NOTOPEN", "the table object is not fully described"},
    {ALRT_E_SCHEMAENTRY, "ALRT_E_SCHEMAENTRY", "the record store refused the table descriptor"},
    {ALRT_E_SCHEMASTRINGS, "ALRT_E_SCHEMASTRINGS", "loading the schema strings failed"},
    {ALRT_E_NOOID, "ALRT_E_NOOID", "creating a new object ID failed"},
    {ALRT_E_UPDATEFAILED, "ALRT_E_UPDATEFAILED", "the record store refused to update the record"},
    {ALRT_E_NOTABLE, "ALRT_E_NOTABLE", "the data file exists but does not hold this table"},
    {ALRT_E_NOUSERTABLE, "ALRT_E_NOUSERTABLE",
     "a service instance has a service type without a per-user address table"},
    {ALRT_E_EXCEPTION, "ALRT_E_EXCEPTION",
     "an exception was raised while an update looked up or compared the record"},
    {ALRT_E_ALTOPEN, "ALRT_E_ALTOPEN",
     "the data file opened only in the recovery mode; no table was selected"},
    {ALRT_E_OMFAILED, "ALRT_E_OMFAILED",
     "the object manager refused to open, register, update or remove an object instance"},
    {ALRT_E_OMOPEN, "ALRT_E_OMOPEN", "opening a connection to the object manager failed"},
    {ALRT_E_PROTECTED, "ALRT_E_PROTECTED", "the response may not be deleted"},
    {ALRT_E_BADSERVICETYPE, "ALRT_E_BADSERVICETYPE",
     "a notification service's type is not a number from 1 to 16"},
    {ALRT_E_NOSERVICETYPE, "ALRT_E_NOSERVICETYPE",
     "looking up the service type of a response's service failed"},
    {ALRT_E_NODATADIR, "ALRT_E_NODATADIR",
     "reading the data directory from the console settings file failed"},
    {ALRT_E_LINKEXISTS, "ALRT_E_LINKEXISTS", "the event class is linked to that response already"},
    {ALRT_MISSINGFILE, "ALRT_MISSINGFILE",
     "the data file does not exist and cannot be restored from its backup, or the table object "
     "is not ready"},
    {ALRT_UNCHANGED, "ALRT_UNCHANGED", "the record is unchanged; nothing was written"},
    {ALRT_NOTABLE_LOW, "ALRT_E_NOTABLE", "the data file exists but does not hold this table"},
    // Raw record store results that some operations pass on.
    {platform::QDB_E_BADHANDLE, "QDB_E_BADHANDLE", "the table is not open"},
    {platform::QDB_E_BADARG, "QDB_E_BADARG", "the record store was given a bad argument"},
    {platform::QDB_E_NOTABLE, "QDB_E_NOTABLE", "no such table in the data file"},
    {platform::QDB_E_BADKEY, "QDB_E_BADKEY", "the table has no key of that number"},
    {platform::QDB_E_NOTFOUND, "QDB_E_NOTFOUND", "no such record, or the end of the order"},
    {platform::QDB_E_NOCURRENT, "QDB_E_NOCURRENT", "there is no current record"},
    {platform::QDB_E_DUPLICATE, "QDB_E_DUPLICATE", "a unique key would be duplicated"},
    {platform::QDB_E_EXISTS, "QDB_E_EXISTS", "a different table of that name exists"},
    {platform::QDB_E_LAYOUT, "QDB_E_LAYOUT", "the record layout does not match the stored table"},
    {platform::QDB_E_BUSY, "QDB_E_BUSY", "the data file stayed locked past the busy timeout"},
    {platform::QDB_E_IO, "QDB_E_IO", "the data file could not be read or written"},
    {platform::QDB_E_LOCKSTATE, "QDB_E_LOCKSTATE",
     "unlock without a lock, or a write lock inside a read lock"},
    {platform::QDB_E_NOMEMORY, "QDB_E_NOMEMORY", "the record store ran out of memory"},
    {platform::QDB_E_DAMAGED, "QDB_E_DAMAGED", "the data file or a record fails its checks"},
};

const StatusText *find(std::uint32_t status) {
  for (const StatusText &text : kStatusTexts) {
    if (text.status == status) return &text;
  }
  return nullptr;
}

}  // namespace

extern "C" const char *AlertDBStatusName(std::uint32_t status) {
  const StatusText *text = find(status);
  return text ? text->name : "UNKNOWN";
}

extern "C" const char *AlertDBStatusDescription(std::uint32_t status) {
  const StatusText *text = find(status);
  return text ? text->meaning : "not a status of this library";
}
