// What the reliability harnesses share about the table classes: the kinds
// that share a shape as type lists, and a way to reach the class or the
// object of a kind by its number at run time.
#pragma once

#include <cstddef>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>

#include "alertdb.h"

namespace harness {

// Object IDs as map keys.
using Id = std::array<unsigned char, 16>;
inline Id idOf(const _GUID &guid) {
  Id id{};
  std::memcpy(id.data(), &guid, 16);
  return id;
}
inline _GUID guidOf(const Id &id) {
  _GUID guid;
  std::memcpy(&guid, id.data(), 16);
  return guid;
}
inline bool isZero(const Id &id) { return id == Id{}; }

// Bytes and hashes as the harnesses print them.
inline std::string hexOf(const void *data, std::size_t size) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  const auto *bytes = static_cast<const unsigned char *>(data);
  for (std::size_t i = 0; i < size; ++i) {
    out += digits[bytes[i] >> 4];
    out += digits[bytes[i] & 15];
  }
  return out;
}
inline std::string hashText(std::uint64_t hash) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
  return text;
}

template <class T>
struct TableType {
  using type = T;
};
template <class... T>
using TypeList = std::tuple<TableType<T>...>;

// Calls fn with element i of a tuple (a TypeList, or table objects).
template <class Tuple, class Fn>
void withElement(Tuple &&tuple, std::size_t i, Fn &&fn) {
  std::apply(
      [&](auto &&...element) {
        std::size_t n = 0;
        (void)((n++ == i ? (fn(element), true) : false) || ...);
      },
      tuple);
}

template <class R>
R recordTypeOf(const CAlertDBTable<R> &);
template <class T>
using RecordOf = decltype(recordTypeOf(std::declval<T &>()));

// A table object whose record store handle and object-ID key a harness can
// reach: the handle to lock its file, the key to walk its records.
template <class T>
class Exposed : public T {
 public:
  using T::T;
  KEPDB *handle() const { return this->m_hTable; }
  std::uint32_t idKey() const { return this->m_nIdKey; }
  const char *tableName() const { return this->m_pszTableName; }
};

// Opens a table, making its file or the table when either is missing.
template <class T>
std::uint32_t openOrMake(T &table) {
  std::uint32_t r = OpenOrCreate(table);
  return r == ALRT_MISSINGFILE ? table.DBCreate() : r;
}

// The fourteen service kinds with a table of their own, in catalogue order.
using ServiceKindTables =
    TypeList<CAlertMHSNtfyServDB, CAlertSNMPNtfyServDB, CAlertMCINtfyServDB, CAlertCOMPUSNtfyServDB,
             CAlertSMTPNtfyServDB, CAlertMAPINtfyServDB, CAlertCCMAILNtfyServDB,
             CAlertWAVENtfyServDB, CAlertTTSNtfyServDB, CAlertPHONENtfyServDB,
             CAlertAPAGENtfyServDB, CAlertNPAGENtfyServDB, CAlertGENPORTNtfyServDB,
             CAlertBROADCASTNtfyServDB>;
inline constexpr int kServiceKinds = 14;

// The nine per-user address tables, with their service type and the service
// name an instance made by a user's service add carries.
using AddressTables = TypeList<CAlertUSR_MHSDB, CAlertUSR_SNMPDB, CAlertUSR_MCIDB,
                               CAlertUSR_COMPUDB, CAlertUSR_SMTPDB, CAlertUSR_MAPIDB,
                               CAlertUSR_CCMAILDB, CAlertUSR_APAGEDB, CAlertUSR_NPAGEDB>;
struct AddressKind {
  std::uint32_t type;
  const char *serviceName;
};
inline constexpr AddressKind kAddressKinds[] = {
    {1, "MHS"},        {2, "SNMP Trap"},           {3, "MCI Mail"},
    {4, "CompuServe"}, {5, "Internet Mail"},       {6, "Microsoft Mail"},
    {7, "CC:Mail"},    {11, "Alphanumeric Pager"}, {12, "Numeric Pager"}};
inline constexpr int kAddressKindCount = 9;

}  // namespace harness
