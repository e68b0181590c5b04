#include "recipients/user_names.h"

#include <cstring>

#include "framework/alert_status.h"
#include "recipients/user_object_table.h"

namespace {

using NameField = char (tagUSEROBJ::*)[64];

std::uint32_t CopyUserName(_GUID *userObjectId, std::uint32_t maxLength, char *nameBuffer,
                           NameField field) {
  CUsrDB users;
  if (!userObjectId || !nameBuffer || maxLength == 0) return ALRT_E_INVALIDPARAM;
  if (users.DBOpen() != 0) return ALRT_E_OPENFAILED;
  tagUSEROBJ user{};
  if (users.DBAlertRecRetrieve(userObjectId, &user) != 0) return ALRT_E_NOTFOUND;
  const char *name = user.*field;
  std::size_t length = strnlen(name, sizeof(user.*field));
  if (length > maxLength) return ALRT_E_TOOLARGE;
  std::memcpy(nameBuffer, name, length);
  nameBuffer[length] = '\0';
  return 0;
}

}  // namespace

std::uint32_t KepGetUserName(_GUID *userObjectId, std::uint32_t maxLength, char *nameBuffer) {
  return CopyUserName(userObjectId, maxLength, nameBuffer, &tagUSEROBJ::FullName);
}

std::uint32_t KepGetUserLoginName(_GUID *userObjectId, std::uint32_t maxLength, char *nameBuffer) {
  return CopyUserName(userObjectId, maxLength, nameBuffer, &tagUSEROBJ::LoginName);
}
