#include <rkutils/list.h>

#include <cstddef>
#include <cstdlib>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(offsetof(list_node, next) == 0);
static_assert(offsetof(list_node, prev) == sizeof(void*));
static_assert(sizeof(list_node) == 2 * sizeof(void*));

struct Item {
  char name;
  list_node links;
};

class List : public testing::Test {
 protected:
  // The names of a list's items from front to back, after checking that the way back is the same.
  static std::vector<char> names(list_node* head) {
    std::vector<char> forwards;
    list_node* cursor = nullptr;
    list_for_each (cursor, head) {
      EXPECT_EQ(cursor->next->prev, cursor);
      EXPECT_EQ(cursor->prev->next, cursor);
      forwards.push_back(list_entry(cursor, Item, links)->name);
    }
    return forwards;
  }

  Item a_ = {'A', {}};
  Item b_ = {'B', {}};
  Item c_ = {'C', {}};
  Item d_ = {'D', {}};
  list_node head_ = LIST_NODE_INIT(head_);
  list_node other_ = LIST_NODE_INIT(other_);
};

TEST_F(List, InitialisedIsEmpty) {
  EXPECT_EQ(head_.next, &head_);
  EXPECT_EQ(head_.prev, &head_);
  EXPECT_TRUE(list_empty(&head_));
}

TEST_F(List, InitMakesAHeadEmptyAndEvaluatesItsArgumentOnce) {
  list_node heads[2] = {{&a_.links, &a_.links}, {&a_.links, &a_.links}};
  list_node* next = heads;
  list_init(next++);
  EXPECT_TRUE(list_empty(&heads[0]));
  EXPECT_EQ(heads[0].prev, &heads[0]);
  EXPECT_EQ(heads[1].next, &a_.links);
}

TEST_F(List, AddPutsTheLatestFirst) {
  list_add(&a_.links, &head_);
  list_add(&b_.links, &head_);
  EXPECT_THAT(names(&head_), ElementsAre('B', 'A'));
  EXPECT_FALSE(list_empty(&head_));
}

TEST_F(List, AddTailPutsTheLatestLast) {
  list_add_tail(&a_.links, &head_);
  list_add_tail(&b_.links, &head_);
  EXPECT_THAT(names(&head_), ElementsAre('A', 'B'));
}

TEST_F(List, AddBetweenLinksBetweenTwoNeighbours) {
  list_add_tail(&a_.links, &head_);
  list_add_tail(&c_.links, &head_);
  __list_add(&b_.links, &a_.links, &c_.links);
  EXPECT_THAT(names(&head_), ElementsAre('A', 'B', 'C'));
}

// With `prev` and `next` the same record every store but the order decides nothing, so watch it
// where the entry is its own neighbour: the last store to each link is the one that stays.
TEST_F(List, AddStoresInTheDocumentedOrder) {
  list_node node = {};
  __list_add(&node, &node, &head_);
  EXPECT_EQ(head_.prev, &node);
  EXPECT_EQ(node.next, &node) << "prev->next is stored after entry->next";
  EXPECT_EQ(node.prev, &node);

  list_node other = {};
  __list_add(&other, &head_, &other);
  EXPECT_EQ(other.prev, &head_) << "entry->prev is stored after next->prev";
  EXPECT_EQ(other.next, &other);
  EXPECT_EQ(head_.next, &other);
}

TEST_F(List, DelBetweenMakesTwoLinksNeighbours) {
  for (Item* item : {&a_, &b_, &c_, &d_}) list_add_tail(&item->links, &head_);
  __list_del(&a_.links, &d_.links);
  EXPECT_THAT(names(&head_), ElementsAre('A', 'D'));
}

TEST_F(List, DelUnlinksAndLeavesTheEntrysOwnLinks) {
  for (Item* item : {&a_, &b_, &c_}) list_add_tail(&item->links, &head_);
  list_del(&b_.links);
  EXPECT_THAT(names(&head_), ElementsAre('A', 'C'));
  EXPECT_EQ(b_.links.prev, &a_.links);
  EXPECT_EQ(b_.links.next, &c_.links);
}

TEST_F(List, DelOfTheOnlyElementMakesTheListEmpty) {
  list_add(&a_.links, &head_);
  list_del(&a_.links);
  EXPECT_TRUE(list_empty(&head_));
  EXPECT_EQ(head_.prev, &head_);
}

TEST_F(List, DelInitUnlinksAndMakesTheEntryAnEmptyList) {
  for (Item* item : {&a_, &b_, &c_}) list_add_tail(&item->links, &head_);
  list_del_init(&b_.links);
  EXPECT_THAT(names(&head_), ElementsAre('A', 'C'));
  EXPECT_TRUE(list_empty(&b_.links));
  EXPECT_EQ(b_.links.prev, &b_.links);
  list_del_init(&b_.links);
  EXPECT_THAT(names(&head_), ElementsAre('A', 'C'));
}

TEST_F(List, SpliceMovesAllElementsToTheFront) {
  list_add_tail(&a_.links, &head_);
  list_add_tail(&c_.links, &other_);
  list_add_tail(&d_.links, &other_);
  list_splice(&other_, &head_);
  EXPECT_THAT(names(&head_), ElementsAre('C', 'D', 'A'));
  EXPECT_EQ(head_.prev, &a_.links);
}

TEST_F(List, SpliceLeavesTheOldHeadPointingAtTheElements) {
  list_add_tail(&c_.links, &other_);
  list_add_tail(&d_.links, &other_);
  list_splice(&other_, &head_);
  EXPECT_EQ(other_.next, &c_.links);
  EXPECT_EQ(other_.prev, &d_.links);
}

TEST_F(List, SpliceIntoAnEmptyList) {
  list_add_tail(&c_.links, &other_);
  list_add_tail(&d_.links, &other_);
  list_splice(&other_, &head_);
  EXPECT_THAT(names(&head_), ElementsAre('C', 'D'));
}

TEST_F(List, SpliceOfAnEmptyListDoesNothing) {
  list_add_tail(&a_.links, &head_);
  list_splice(&other_, &head_);
  EXPECT_THAT(names(&head_), ElementsAre('A'));
  EXPECT_TRUE(list_empty(&other_));
}

TEST_F(List, SafeLoopLetsItsBodyFreeTheElement) {
  for (char name = 'a'; name < 'k'; ++name) {
    auto* item = new Item{name, {}};
    list_add_tail(&item->links, &head_);
  }
  std::vector<char> seen;
  list_node* cursor = nullptr;
  list_node* following = nullptr;
  list_for_each_safe (cursor, following, &head_) {
    Item* item = list_entry(cursor, Item, links);
    seen.push_back(item->name);
    list_del(cursor);
    delete item;
  }
  EXPECT_THAT(seen, ElementsAre('a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j'));
  EXPECT_TRUE(list_empty(&head_));
}

TEST_F(List, LoopsOverNothingInAnEmptyList) {
  EXPECT_THAT(names(&head_), IsEmpty());
  int turns = 0;
  list_node* cursor = nullptr;
  list_node* following = nullptr;
  list_for_each_safe (cursor, following, &head_) ++turns;
  EXPECT_EQ(turns, 0);
}

TEST_F(List, EntryEvaluatesItsNodeOnceAndHasTheItemsType) {
  list_node* nodes[2] = {&a_.links, &b_.links};
  list_node** next = nodes;
  auto* item = list_entry(*next++, Item, links);
  static_assert(std::is_same_v<decltype(item), Item*>);
  EXPECT_EQ(item, &a_);
  EXPECT_EQ(next, nodes + 1);
}

}  // namespace
