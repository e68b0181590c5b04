#include "recipients/user_object_table_setup.h"

#include "framework/alert_status.h"
#include "recipients/user_object_table.h"

namespace platform {

namespace {

// The library's layout of "UserObj", described with the object manager's texts.
class UserObjectTableMaker : public CUsrDB {
 public:
  std::uint32_t create() {
    static const char *const kDescriptions[] = {
        "Domain ID",        "User Object ID", "Login Name", "Full Name",
        "Description",      "Department",     "Job Title",  "Office Location",
        "Telephone Number", "Replication",    "Flags"};
    static_assert(sizeof kDescriptions / sizeof kDescriptions[0] == 11);
    std::uint32_t status = DBOpen();
    if (status == 0) return 0;
    if ((status & 0xFFFF) != ALRT_NOTABLE_LOW && status != ALRT_MISSINGFILE) return status;
    return CreateTable("User Objects", kDescriptions);
  }
};

}  // namespace

std::uint32_t KepOMCreateUserObjectTable() {
  try {
    UserObjectTableMaker maker;
    return maker.create();
  } catch (...) {
    return ALRT_E_EXCEPTION;
  }
}

}  // namespace platform
