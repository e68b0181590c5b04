#include "text/password_protection.h"

#include <cstring>

#include "platform/buffer_cipher.h"
#include "platform/console_settings_internal.h"
#include "platform/file_names.h"
#include "platform/profile.h"

namespace {

constexpr std::uint32_t kBlockSize = 49;
constexpr std::uint32_t kCipherMethod = 2;
// Changing it would make every stored password unreadable.
const std::uint32_t kPasswordKey = 0x4B45504Bu;

std::uint32_t readEncryptionSetting() {
  char settings[272];
  if (!platform::ReadConsoleDataDir(settings)) return 0;
  platform::NameAppendFile(settings, "QADMIN.INI");
  return platform::ProfileGetInt("Alert Service", "Encrypt Passwords", 1, settings) != 0 ? 1 : 0;
}

using CipherCall = std::uint32_t (*)(void *, const std::uint32_t *, std::uint32_t, std::uint32_t);

std::uint32_t transform(const char *sourceBlock, char *targetBlock, CipherCall cipher) {
  if (!sourceBlock || !targetBlock) return 0xFFFF;
  // A working copy, so that source and target may be the same block.
  unsigned char block[kBlockSize] = {};
  std::memcpy(block, sourceBlock, kBlockSize);
  if (GetEncryptionStatus() == 1) cipher(block, &kPasswordKey, kBlockSize, kCipherMethod);
  std::memcpy(targetBlock, block, kBlockSize);
  return 0;
}

}  // namespace

std::uint32_t GetEncryptionStatus(void) {
  // A function-local static: threads that overlap the first call wait for the
  // one read and all see its result.
  static const std::uint32_t setting = readEncryptionSetting();
  return setting;
}

std::uint32_t EncryptPassword(const char *sourceBlock, char *targetBlock) {
  return transform(sourceBlock, targetBlock, platform::BufferEncrypt);
}

std::uint32_t DecryptPassword(const char *sourceBlock, char *targetBlock) {
  return transform(sourceBlock, targetBlock, platform::BufferDecrypt);
}
