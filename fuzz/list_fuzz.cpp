// Sequences of operations on two lists, beside those of the standard library.

#include <rkutils/list.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <list>

#include "target.h"

namespace {

using fuzz::expect;

struct Element {
  int before = 0;
  list_node links = {nullptr, nullptr};
};

constexpr std::size_t kElements = 8;

class Lists {
 public:
  Lists() {
    for (list_node& head : heads_) list_init(&head);
    for (Element& element : elements_) list_init(&element.links);
  }
  ~Lists() = default;
  Lists(const Lists&) = delete;
  Lists& operator=(const Lists&) = delete;

  void change(fuzz::Input& input) {
    const std::size_t operation = input.below(7);
    const std::size_t which = input.below(2);
    Element& element = elements_[input.below(kElements)];
    list_node& head = heads_[which];
    Model& model = models_[which];
    switch (operation) {
      case 0:
        take_out(element);
        list_add(&element.links, &head);
        model.push_front(&element);
        break;
      case 1:
        take_out(element);
        list_add_tail(&element.links, &head);
        model.push_back(&element);
        break;
      case 2: {
        // Behind the first element, where there is one.
        take_out(element);
        list_node* const first = head.next;
        __list_add(&element.links, first, first->next);
        model.insert(model.empty() ? model.end() : std::next(model.begin()), &element);
        break;
      }
      case 3:
        list_del_init(&element.links);
        expect(list_empty(&element.links), "a node that was taken out is empty");
        forget(element);
        break;
      case 4: {
        const list_node links = element.links;
        list_del(&element.links);
        expect(element.links.next == links.next && element.links.prev == links.prev,
               "a deleted node's links are as they were");
        list_init(&element.links);
        forget(element);
        break;
      }
      case 5: {
        list_node& other = heads_[1 - which];
        list_splice(&other, &head);
        list_init(&other);
        model.splice(model.begin(), models_[1 - which]);
        break;
      }
      default:
        if (model.size() > 1) {
          // The first two.
          list_node* const second = head.next->next;
          list_node* const first = head.next;
          __list_del(&head, second->next);
          list_init(first);
          list_init(second);
          model.erase(model.begin(), std::next(model.begin(), 2));
        }
        break;
    }
  }

  void check() {
    for (std::size_t which = 0; which < heads_.size(); ++which) {
      list_node& head = heads_[which];
      const Model& model = models_[which];
      expect(list_empty(&head) == model.empty(), "whether it is empty");
      auto expected = model.begin();
      list_node* cursor = nullptr;
      list_node* following = nullptr;
      list_for_each_safe (cursor, following, &head) {
        expect(expected != model.end(), "no more elements");
        expect(list_entry(cursor, Element, links) == *expected, "an element");
        expect(cursor->prev->next == cursor && cursor->next->prev == cursor, "a circle");
        ++expected;
      }
      expect(expected == model.end(), "all elements");
    }
  }

 private:
  using Model = std::list<Element*>;

  void take_out(Element& element) {
    list_del_init(&element.links);
    forget(element);
  }

  void forget(Element& element) {
    for (Model& model : models_) model.remove(&element);
  }

  std::array<Element, kElements> elements_ = {};
  std::array<list_node, 2> heads_ = {};
  std::array<Model, 2> models_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  Lists lists;
  while (!input.empty()) {
    lists.change(input);
    lists.check();
  }
  return 0;
}
