// Second process for the password protection tests: a fresh process reads the
// encryption setting anew. Commands on standard input, one answer line each:
//   status            GetEncryptionStatus()
//   encrypt <hex>     EncryptPassword of the 49-byte block, as hex
//   decrypt <hex>     DecryptPassword of the 49-byte block, as hex
#include <cstdio>
#include <iostream>
#include <string>

#include "text/password_protection.h"

namespace {

std::string toHex(const char *block) {
  std::string hex;
  char pair[3];
  for (int i = 0; i < 49; ++i) {
    std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(block[i]));
    hex += pair;
  }
  return hex;
}

bool fromHex(const std::string &hex, char *block) {
  if (hex.size() != 98) return false;
  for (int i = 0; i < 49; ++i)
    block[i] = static_cast<char>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
  return true;
}

}  // namespace

int main() {
  std::string command;
  while (std::cin >> command) {
    if (command == "status") {
      std::cout << GetEncryptionStatus() << std::endl;
    } else if (command == "encrypt" || command == "decrypt") {
      std::string hex;
      std::cin >> hex;
      char block[49];
      if (!fromHex(hex, block)) {
        std::cout << "bad block" << std::endl;
        continue;
      }
      std::uint32_t result =
          command == "encrypt" ? EncryptPassword(block, block) : DecryptPassword(block, block);
      std::cout << (result == 0 ? toHex(block) : "failed") << std::endl;
    } else {
      std::cout << "unknown" << std::endl;
    }
  }
  return 0;
}
