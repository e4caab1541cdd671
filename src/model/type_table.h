// String-keyed tables of numbers, shared by the atom-type tables and the user's settings.
#pragma once

#include "model/formfactors.h"

#include <cstddef>

namespace qx {

// h = 31 h + c over the key's bytes, modulo the bucket count.
std::int32_t bucket_of(const char* key, std::int32_t nbuckets) noexcept;
// A new entry at the head of its chain; at most `longest` characters of the key are kept.
Status insert_entry(TypeEntry** buckets, std::int32_t nbuckets, const char* key,
                    std::size_t longest, std::int32_t value, const char* tag);
const TypeEntry* find_entry(TypeEntry* const* buckets, std::int32_t nbuckets,
                            const char* key) noexcept;
Status release_entries(TypeEntry** buckets, std::int32_t nbuckets);
// One line per entry, bucket by bucket.
void print_entries(TypeEntry* const* buckets, std::int32_t nbuckets);

}  // namespace qx
