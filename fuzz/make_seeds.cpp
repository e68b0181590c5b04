// Writes the seed inputs of the fuzz targets into a corpus folder per target:
// a few valid inputs each, from which the fuzzers mutate.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "alertdb.h"

namespace {

void writeFile(const std::string &path, const void *bytes, std::size_t size) {
  if (FILE *f = std::fopen(path.c_str(), "wb")) {
    std::fwrite(bytes, 1, size, f);
    std::fclose(f);
  }
}

std::string readAll(const std::string &path) {
  std::string bytes;
  if (FILE *f = std::fopen(path.c_str(), "rb")) {
    char buffer[65536];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) bytes.append(buffer, n);
    std::fclose(f);
  }
  return bytes;
}

std::string expansionSeed(const std::vector<unsigned char> &params, const char *message,
                          const std::vector<unsigned char> &subjectParams, const char *subject) {
  std::string seed(20, '\0'), sub(20, '\0');
  for (std::size_t i = 0; i < params.size() && i < 20; ++i) seed[i] = static_cast<char>(params[i]);
  for (std::size_t i = 0; i < subjectParams.size() && i < 20; ++i)
    sub[i] = static_cast<char>(subjectParams[i]);
  seed += sub;
  seed += std::string(message) + '\0' + subject + '\0';
  ALRTEVENT_CLASSREC eventClass{};
  std::strcpy(eventClass.EventName, "Disk Full");
  std::strcpy(eventClass.Product, "Disk Monitor");
  eventClass.EventID = 13145;
  eventClass.Severity = 2;
  ALRTEVENTDATA data{};
  data.EventID = 13145;
  std::strcpy(data.MachineName, "server01");
  std::strcpy(data.UserName, "operator");
  std::strcpy(data.EventText, "Volume C: is 99% full");
  std::strcpy(data.domainName, "CORP");
  seed.append(reinterpret_cast<const char *>(&eventClass), sizeof eventClass);
  seed.append(reinterpret_cast<const char *>(&data), sizeof data);
  return seed + std::string(4, '\0');
}

std::string imageSeed() {
  AlertDataImageBuilder builder;
  for (std::uint32_t n = 1; n <= 3; ++n) {
    ALRTEVENT_CLASSREC e{};
    e.KEPOID.Data1 = n;
    e.EventID = 1000 + n;
    std::snprintf(e.EventName, sizeof e.EventName, "event %u", n);
    builder.addEvent(e);
    ALERTRESPREC r{};
    r.KEPOID.Data1 = 100 + n;
    r.ServiceOID.Data1 = 200 + n;
    r.UserOID.Data1 = 300 + n;
    r.ServiceType = 1;
    builder.addResponse(r);
    ALRTNTFYSERV s{};
    s.KEPOID.Data1 = 200 + n;
    s.ServiceType = 1;
    builder.addService(s);
    ALRTUSRINSTSERV u{};
    u.KEPOID.Data1 = 400 + n;
    u.Service_KEPOID.Data1 = 200 + n;
    u.UserOid.Data1 = 300 + n;
    u.ServiceType = 1;
    builder.addUserInstance(u);
    builder.addProduct(n, "product");
    _GUID domain{};
    domain.Data1 = 500 + n;
    builder.addDomain(domain, "domain");
    ALRTMODEM_LOCATION location{};
    location.KEPOID.Data1 = 600 + n;
    builder.addModemLocation(location);
  }
  std::vector<unsigned char> image;
  builder.build(image);
  // The lookup input: a key, a number and a response ahead of the image.
  std::string seed(16 + 4 + sizeof(ALERTRESPREC), '\0');
  seed[0] = 1;
  seed[16] = static_cast<char>(0xEA);
  seed[17] = 0x03;
  return seed + std::string(image.begin(), image.end());
}

// A small store as the library writes it: event classes, links and the log.
std::string storeSeed(const std::string &dir, const char *file) {
  ::setenv("ALERTDB_DATA_DIR", dir.c_str(), 1);
  {
    CAlertEVENT_CLASSDB classes;
    if (OpenOrCreate(classes) != 0) classes.DBCreate();
    CAlertEVENT_LOGDB log;
    if (OpenOrCreate(log) != 0) log.DBCreate();
    for (std::uint32_t n = 0; n < 3; ++n) {
      ALRTEVENT_CLASSREC e{};
      std::snprintf(e.EventName, sizeof e.EventName, "event %u", n);
      e.EventID = 1000 + n;
      _GUID id{};
      classes.DBAlertRecAdd(&e, &id);
      _GUID response{};
      response.Data1 = n + 1;
      classes.QALRTEventClassAddResponse(&e.KEPOID, &response);
      ALRTEVENT_LOGREC entry{};
      entry.EventClass_OID = e.KEPOID;
      std::strcpy(entry.EventText, "something happened");
      _GUID entryId{};
      log.DBAlertRecAdd(&entry, &entryId);
    }
  }
  return readAll(dir + "/" + file);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_seeds CORPUS_DIR\n");
    return 2;
  }
  std::string corpus = argv[1];
  for (const char *target : {"expansion", "settings", "image_lookup", "store_open"})
    ::mkdir((corpus + "/" + target).c_str(), 0755);

  const std::string seeds[] = {
      expansionSeed({1, 2, 3}, "%s on %s: %s", {4}, "Alert %s"),
      expansionSeed({5, 6, 7, 8}, "%-20s|%08d|%x|%5.2s", {9, 10}, "%s %s"),
      expansionSeed({11, 12, 13, 14}, "%d %u %s %c %%", {}, "no parameters"),
  };
  for (std::size_t i = 0; i < std::size(seeds); ++i)
    writeFile(corpus + "/expansion/seed" + std::to_string(i), seeds[i].data(), seeds[i].size());

  const std::string settings[] = {
      std::string("Settings\0DataDir\0", 17) + "[Settings]\nDataDir=/tmp/nowhere\n",
      std::string("Event Log\0PurgeEventLogDays\0", 28) +
          "; settings\n[Event Log]\nPurgeEventLogDays = 30\nAutoPurgeAckEvents=1\n"
          "[Alert Service]\nEncrypt Passwords=0\n",
  };
  for (std::size_t i = 0; i < std::size(settings); ++i)
    writeFile(corpus + "/settings/seed" + std::to_string(i), settings[i].data(),
              settings[i].size());

  std::string image = imageSeed();
  writeFile(corpus + "/image_lookup/seed0", image.data(), image.size());

  char pattern[] = "/tmp/alertdb-seeds-XXXXXX";
  if (!::mkdtemp(pattern)) return 1;
  for (const char *file : {"AlEvntdb.dat", "KEPLogDB.dat"}) {
    std::string store = storeSeed(pattern, file);
    writeFile(corpus + "/store_open/" + file, store.data(), store.size());
  }
  return 0;
}
