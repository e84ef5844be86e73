/*
 * Circular, doubly linked, intrusive lists.
 *
 * The link record is embedded in the caller's own structure, and one more record, the head, stands
 * for the list. The head is not an element; an empty list is a head whose links point to itself.
 *
 *     typedef struct lease { list_node links; char host[64]; } lease;
 *
 *     list_node leases = LIST_NODE_INIT(leases), *cursor;
 *     list_add_tail(&one_lease->links, &leases);
 *     list_for_each(cursor, &leases) puts(list_entry(cursor, lease, links)->host);
 *
 * Nothing here allocates, frees or checks: every pointer must be valid, and a node may be in one
 * list at a time. Whoever made an element frees it, after unlinking it.
 *
 * Threads and signals: no locking. Two threads that use one list must exclude each other, readers
 * against writers too; two lists are independent.
 *
 * The names that begin with two underscores are the building blocks of the others, exported because
 * programs use them; they are part of the interface in spite of their reserved look.
 */
#ifndef RKUTILS_LIST_H
#define RKUTILS_LIST_H

#include <rkutils/export.h>

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A link of the circle. `next` comes first in memory. */
typedef struct list_node {
  struct list_node* next;
  struct list_node* prev;
} list_node;

/*
 * Links `entry` between `prev` and `next`, which must be adjacent. Four stores, made in this order:
 * next->prev, entry->next, entry->prev, prev->next.
 */
RK_API void __list_add(list_node* entry, list_node* prev, list_node* next);

/* Inserts `entry` as the first element: added one after the other, elements stand in stack order.
 */
RK_API void list_add(list_node* entry, list_node* head);

/* Inserts `entry` as the last element: added one after the other, elements stand in queue order. */
RK_API void list_add_tail(list_node* entry, list_node* head);

/* Makes `prev` and `next` adjacent, which unlinks whatever stood between them. */
RK_API void __list_del(list_node* prev, list_node* next);

/*
 * Unlinks `entry`. Its own links keep their values and so still point into the list; use
 * list_del_init() for a node that will be tested or deleted again.
 */
RK_API void list_del(list_node* entry);

/* Unlinks `entry` and makes it an empty list, so that deleting it once more does no harm. */
RK_API void list_del_init(list_node* entry);

/* True when the list has no element. */
RK_API bool list_empty(const list_node* head);

/*
 * Moves all elements of `list`, in their order, to the front of the list of `head`. When `list` is
 * empty nothing happens. Otherwise the head `list` itself is left as it was, pointing at elements
 * that are no longer its own: list_init() it before using it again.
 */
RK_API void list_splice(list_node* list, list_node* head);

/* What list_init() expands to; use that name. */
static inline void rkutils_list_init(list_node* head) {
  head->next = head;
  head->prev = head;
}

#ifdef __cplusplus
}
#endif

/* Initialiser of a head called `name`: list_node name = LIST_NODE_INIT(name); */
#define LIST_NODE_INIT(name) \
  { &(name), &(name) }

/* Makes the list of `head` (a pointer, evaluated once) empty. */
#define list_init(head) rkutils_list_init(head)

/*
 * The structure of type `type` whose member `member` is the link that `node` points to. `node` is
 * evaluated once and is not const.
 */
#ifdef __cplusplus
#define list_entry(node, type, member) \
  static_cast<type*>(static_cast<void*>(reinterpret_cast<char*>(node) - offsetof(type, member)))
#else
#define list_entry(node, type, member) ((type*)(void*)((char*)(node)-offsetof(type, member)))
#endif

/*
 * Head of a loop over a list from front to back; `cursor` is a list_node * that visits each link.
 * The loop's body must not unlink the element under the cursor.
 */
#define list_for_each(cursor, head) \
  for ((cursor) = (head)->next; (cursor) != (head); (cursor) = (cursor)->next)

/*
 * The same for a body that may unlink or free the element under the cursor; `following` is a second
 * list_node * for the loop's own use.
 */
#define list_for_each_safe(cursor, following, head)                               \
  for ((cursor) = (head)->next, (following) = (cursor)->next; (cursor) != (head); \
       (cursor) = (following), (following) = (cursor)->next)

#endif
