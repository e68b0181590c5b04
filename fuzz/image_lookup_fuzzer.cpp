// Alert data images of unknown origin: an image that passes the whole-image
// check must be searchable without reading outside it.
#include <cstdint>
#include <cstring>
#include <memory>

#include "alertdb.h"
#include "fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  alertdb_fuzz::FuzzInput input(data, size);
  _GUID key{};
  input.fill(&key, sizeof key);
  std::uint32_t number = input.number();
  ALERTRESPREC response{};
  input.fill(&response, sizeof response);
  std::string bytes = input.rest();
  // An exact-size copy, so that a read past the image is a sanitizer fault.
  auto image = std::make_unique<std::uint8_t[]>(bytes.size() ? bytes.size() : 1);
  std::memcpy(image.get(), bytes.data(), bytes.size());
  if (CheckAlertDataImage(image.get(), bytes.size()) != 0) return 0;

  void *entry = nullptr;
  std::uint32_t serviceType = 0;
  GetEventIDbyOID(image.get(), &key, &entry);
  GetEventIDbyClassID(image.get(), number, &entry);
  GetResponseIDbyOID(image.get(), &key, &entry);
  FindServicebyResponse(image.get(), &response, &serviceType);
  FindUserbyResponse(image.get(), &response);
  GetProdNamebyID(image.get(), number, &entry);
  GetDomainNamebyOID(image.get(), &key, &entry);
  GetModemLocationbyOID(image.get(), &key, &entry);
  return 0;
}
