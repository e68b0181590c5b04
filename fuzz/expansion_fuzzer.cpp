// Message expansion on arbitrary templates, parameter lists, event data and
// event classes: it must stay inside its buffers and always terminate them.
#include <cstdint>
#include <cstring>
#include <memory>

#include "alertdb.h"
#include "fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  alertdb_fuzz::FuzzInput input(data, size);
  auto response = std::make_unique<ALERTRESPREC>();
  auto eventClass = std::make_unique<ALRTEVENT_CLASSREC>();
  auto eventData = std::make_unique<ALRTEVENTDATA>();
  std::memset(response.get(), 0, sizeof(ALERTRESPREC));
  input.fill(response->ParamIDList, sizeof response->ParamIDList);
  input.fill(response->SubParamIDList, sizeof response->SubParamIDList);
  input.text(response->Msg, sizeof response->Msg);
  input.text(response->SubjectMsg, sizeof response->SubjectMsg);
  // Records as stored may hold anything, terminators included or not.
  input.fill(eventClass.get(), sizeof(ALRTEVENT_CLASSREC));
  input.fill(eventData.get(), sizeof(ALRTEVENTDATA));
  std::uint32_t namesOnly = input.number() & 1;

  // Outputs are exactly as large as the contract asks, so that the address
  // sanitizer sees any write past them.
  auto message = std::make_unique<char[]>(2049);
  auto subject = std::make_unique<char[]>(261);
  message[0] = subject[0] = '\0';
  std::uint32_t r = ParseReplaceableParamaterListToText(
      AlertDBModuleHandle(), message.get(), subject.get(), response.get(), eventClass.get(),
      eventData.get(), namesOnly);
  if (r == 0 && (std::memchr(message.get(), 0, 2049) == nullptr ||
                 std::memchr(subject.get(), 0, 261) == nullptr)) {
    __builtin_trap();  // an expansion left unterminated
  }
  return 0;
}
