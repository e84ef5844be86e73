#include <rkutils/configuration/configd_queries.h>

#include <cstring>

namespace rkutils::configd {

QueuedQuery* QueryIndex::find(const char* key, std::uint32_t hash) const noexcept {
  for (QueuedQuery* queued = buckets_[hash % kBuckets]; queued != nullptr;
       queued = queued->next_of_bucket) {
    if (queued->hash == hash && std::strcmp(queued->query.key, key) == 0) return queued;
  }
  return nullptr;
}

void QueryIndex::insert(QueuedQuery* query) noexcept {
  QueuedQuery*& bucket = buckets_[query->hash % kBuckets];
  query->next_of_bucket = bucket;
  bucket = query;
}

void QueryIndex::clear() noexcept { std::memset(buckets_, 0, sizeof buckets_); }

}  // namespace rkutils::configd
