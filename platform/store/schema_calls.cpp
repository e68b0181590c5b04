// Describing tables to the record store: string blocks, new tables and
// their catalog entries, registered query types.
#include <cstring>
#include <string>
#include <vector>

#include "platform/memory_blocks.h"
#include "platform/store/record_store.h"
#include "platform/store/store_handle_internal.h"
#include "platform/string_table.h"

namespace platform {

namespace {

using store::Handle;
using store::TableDef;
using store::TableHandle;

// The strings of a SchmLoadStrings block.
bool splitBlock(const void *block, std::uint32_t aux, std::uint32_t count,
                std::vector<std::string> *out) {
  out->clear();
  if (!block) return count == 0;
  const char *p = static_cast<const char *>(block);
  const char *end = p + aux;
  for (std::uint32_t i = 0; i < count; ++i) {
    const void *zero = std::memchr(p, 0, static_cast<std::size_t>(end - p));
    if (!zero) return false;
    out->emplace_back(p);
    p = static_cast<const char *>(zero) + 1;
  }
  return true;
}

std::uint32_t buildDefinition(const TableDescriptor &d, TableDef *def) {
  if (d.size != sizeof(TableDescriptor) || d.templateSize != sizeof(FieldTemplate) ||
      !d.tableName || !d.templates || d.fieldCount == 0 || d.fieldCount > store::kMaxFields ||
      (d.queryInfoCount > 0 && !d.queryInfo) || d.queryInfoCount > 65535) {
    return QDB_E_BADARG;
  }
  def->name = d.tableName;
  if (def->name.empty() || def->name.size() > 128 || store::isReservedTableName(def->name)) {
    return QDB_E_BADARG;
  }
  std::vector<std::string> names, descriptions, queryTypes;
  if (!splitBlock(d.fieldNames, d.fieldNamesAux, d.fieldCount, &names) || names.empty()) {
    return QDB_E_BADARG;
  }
  if (d.descriptions &&
      !splitBlock(d.descriptions, d.descriptionsAux, d.fieldCount, &descriptions)) {
    return QDB_E_BADARG;
  }
  if (d.queryTypeNames &&
      !splitBlock(d.queryTypeNames, d.queryTypeNamesAux, d.fieldCount, &queryTypes)) {
    return QDB_E_BADARG;
  }
  def->title = d.title ? d.title : "";
  def->idKey = d.idKey;
  def->secondKey = d.secondKey;
  def->callbackDll = d.callbackDll ? d.callbackDll : "";
  def->callbackEntry = d.callbackEntry ? d.callbackEntry : "";
  def->reserved = {d.reserved70, d.reserved74, d.reserved90, d.reserved94, d.reserved102};
  for (std::uint32_t i = 0; i < d.fieldCount; ++i) {
    const FieldTemplate &t = d.templates[i];
    if (t.size == 0 || t.size > store::kMaxFieldSize) return QDB_E_BADARG;
    store::FieldDef f;
    f.name = names[i];
    f.keyNumber = t.keyNumber;
    f.attribute = t.attribute;
    f.size = t.size;
    f.flags = t.flags;
    if (i < descriptions.size()) f.description = descriptions[i];
    if (i < queryTypes.size()) f.queryType = queryTypes[i];
    def->fields.push_back(std::move(f));
  }
  def->queryInfo.assign(d.queryInfo, d.queryInfo + d.queryInfoCount);
  def->derive();
  // Key numbers address one field each.
  for (std::size_t a = 0; a < def->keys.size(); ++a) {
    for (std::size_t b = a + 1; b < def->keys.size(); ++b) {
      if (def->keys[a].keyNumber == def->keys[b].keyNumber) return QDB_E_BADARG;
    }
  }
  if (def->recordSize > store::kMaxRecordSize) return QDB_E_BADARG;
  return QDB_OK;
}

}  // namespace

std::uint32_t SchmLoadStrings(HINSTANCE instance, void **block, std::uint32_t *aux,
                              const char *const *strings, std::uint32_t firstId,
                              std::uint32_t count) {
  if (!block || !aux) return QDB_E_BADARG;
  // The outputs may be members of a packed descriptor: written byte-wise.
  auto output = [&](void *memory, std::uint32_t size) {
    std::memcpy(block, &memory, sizeof memory);
    std::memcpy(aux, &size, sizeof size);
  };
  output(nullptr, 0);
  try {
    std::string bytes;
    if (instance) {
      // Resource strings: a module without them gives no block.
      bool any = false;
      std::vector<char> text(4096);
      for (std::uint32_t i = 0; i < count; ++i) {
        std::int32_t n =
            LoadStringA(instance, firstId + i, text.data(), static_cast<std::int32_t>(text.size()));
        any = any || n > 0;
        bytes.append(text.data(), n > 0 ? static_cast<std::size_t>(n) : 0);
        bytes += '\0';
      }
      if (count > 0 && !any) return QDB_E_NOTFOUND;
    } else {
      if (!strings && count > 0) return QDB_E_BADARG;
      for (std::uint32_t i = 0; i < count; ++i) {
        if (strings[i]) bytes += strings[i];
        bytes += '\0';
      }
    }
    void *memory = MemAlloc(kMemMovableZeroed, static_cast<std::uint32_t>(bytes.size() + 1));
    if (!memory) return QDB_E_NOMEMORY;
    std::memcpy(memory, bytes.data(), bytes.size());
    output(memory, static_cast<std::uint32_t>(bytes.size()));
    return QDB_OK;
  } catch (...) {
    return QDB_E_NOMEMORY;
  }
}

std::uint32_t SchmAddTableEntry(KEPDB *id, TableDescriptor *descriptor) {
  return store::withHandle(id, [&](Handle &h) -> std::uint32_t {
    if (!descriptor) return QDB_E_BADARG;
    TableDef def;
    std::uint32_t r = buildDefinition(*descriptor, &def);
    if (r != QDB_OK) return r;
    std::shared_ptr<TableHandle> table;
    r = h.session->createTable(def, &table);
    if (r != QDB_OK) return r;
    return store::bindTable(h, std::move(table), descriptor->templates);
  });
}

std::uint32_t SchmAddQueryInfo(KEPDB *id, const char *typeName, std::uint32_t mask,
                               std::uint32_t valueCount, const std::uint32_t *values,
                               std::uint32_t aux, void *block) {
  return store::withHandle(id, [&](Handle &h) -> std::uint32_t {
    if (!typeName || !*typeName || (valueCount > 0 && !values) || valueCount > 65535) {
      return QDB_E_BADARG;
    }
    store::QueryTypeDef type;
    type.name = typeName;
    type.mask = mask;
    type.values.assign(values, values + valueCount);
    if (block && !splitBlock(block, aux, valueCount, &type.texts)) return QDB_E_BADARG;
    return h.session->addQueryType(type);
  });
}

}  // namespace platform
