#include <rkutils/list.h>

void __list_add(list_node* entry, list_node* prev, list_node* next) {
  next->prev = entry;
  entry->next = next;
  entry->prev = prev;
  prev->next = entry;
}

void list_add(list_node* entry, list_node* head) { __list_add(entry, head, head->next); }

void list_add_tail(list_node* entry, list_node* head) { __list_add(entry, head->prev, head); }

void __list_del(list_node* prev, list_node* next) {
  next->prev = prev;
  prev->next = next;
}

void list_del(list_node* entry) { __list_del(entry->prev, entry->next); }

void list_del_init(list_node* entry) {
  list_del(entry);
  list_init(entry);
}

bool list_empty(const list_node* head) { return head->next == head; }

void list_splice(list_node* list, list_node* head) {
  if (list_empty(list)) return;
  list_node* const first = list->next;
  list_node* const last = list->prev;
  list_node* const following = head->next;
  // __list_del() joins two links, whatever stood between them.
  __list_del(head, first);
  __list_del(last, following);
}
