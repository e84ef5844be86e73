// The queued queries of a connection: the list that keeps their order, and an index of its own by
// key.
#ifndef RKUTILS_CONFIGURATION_CONFIGD_QUERIES_H
#define RKUTILS_CONFIGURATION_CONFIGD_QUERIES_H

#include <rkutils/configd.h>

#include <cstddef>
#include <cstdint>

namespace rkutils::configd {

// A query as the handle keeps it. The caller sees the first member.
struct QueuedQuery {
  configd_query query;
  std::uint32_t hash;
  QueuedQuery* next_of_bucket;
};

// Finds a queued query by its key, given with its hash, without walking the list. All zero bytes
// are an empty index, as the handle's memory is. The queries belong to the list.
class QueryIndex {
 public:
  [[nodiscard]] QueuedQuery* find(const char* key, std::uint32_t hash) const noexcept;
  void insert(QueuedQuery* query) noexcept;
  void clear() noexcept;

 private:
  // A full list of 512 makes chains of two.
  static constexpr std::size_t kBuckets = 256;

  QueuedQuery* buckets_[kBuckets];
};

// The query that a link of the handle's list belongs to.
[[nodiscard]] inline QueuedQuery* queued_query(list_node* link) noexcept {
  return list_entry(link, QueuedQuery, query.links);
}

}  // namespace rkutils::configd

#endif
