#include "model/type_table.h"

#include "core/object.h"
#include "core/report.h"
#include "core/say.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace qx {

std::int32_t bucket_of(const char* key, std::int32_t nbuckets) noexcept {
  std::uint32_t hash = 0;
  for (; *key; ++key) hash = hash * 31 + static_cast<unsigned char>(*key);
  return static_cast<std::int32_t>(hash % static_cast<std::uint32_t>(nbuckets));
}

Status insert_entry(TypeEntry** buckets, std::int32_t nbuckets, const char* key,
                    std::size_t longest, std::int32_t value, const char* tag) {
  const std::size_t size = std::min(std::strlen(key), longest);
  char* copy = allocate<char>(size + 1, tag);
  if (!copy) return failed;
  std::memcpy(copy, key, size);
  copy[size] = '\0';
  auto* entry = new_object<TypeEntry>(tag);
  if (!entry) return failed;
  TypeEntry*& head = buckets[bucket_of(copy, nbuckets)];
  *entry = {copy, value, head};
  head = entry;
  return ok;
}

const TypeEntry* find_entry(TypeEntry* const* buckets, std::int32_t nbuckets,
                            const char* key) noexcept {
  const TypeEntry* entry = buckets[bucket_of(key, nbuckets)];
  while (entry && std::strcmp(entry->key, key) != 0) entry = entry->next;
  return entry;
}

Status release_entries(TypeEntry** buckets, std::int32_t nbuckets) {
  for (std::int32_t i = 0; i < nbuckets; ++i) {
    while (TypeEntry* entry = buckets[i]) {
      buckets[i] = entry->next;
      QX_TRY(release(entry->key));
      QX_TRY(xfree(entry));
    }
  }
  return ok;
}

void print_entries(TypeEntry* const* buckets, std::int32_t nbuckets) {
  for (std::int32_t i = 0; i < nbuckets; ++i) {
    for (const TypeEntry* entry = buckets[i]; entry; entry = entry->next) {
      qx::say("%4s    %d   \n", entry->key, entry->value);
    }
  }
}

}  // namespace qx

namespace {

constexpr std::size_t longest_type = 4;
constexpr const char* no_table = "the hash table for atom form factor does not exist yet.";

}  // namespace

qx::Status qx_insert_qxatformfacthash_kv(qxatformfacthash* table, const char* key,
                                         std::int32_t value) {
  if (!table) return qx::fail("qx_insert_qxatformfacthash_kv():", "%s", no_table);
  return qx::insert_entry(table->buckets, table->nbuckets, key, longest_type, value, "pia_kv");
}

std::int32_t qx_get_qxatformfacthash_kv(const qxatformfacthash* table, const char* key,
                                        std::int32_t* value) {
  if (!table) {
    qx::say("Warning: %s\n", no_table);
    return 0;
  }
  const qx::TypeEntry* entry = qx::find_entry(table->buckets, table->nbuckets, key);
  if (entry) *value = entry->value;
  return entry ? 1 : 0;
}

void qx_print_qxatformfacthash(const qxatformfacthash* table) {
  if (table) qx::print_entries(table->buckets, table->nbuckets);
}
