// The two linked lists, against a vector.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "fxds/GenericList.h"
#include "fxds/IndexableList.h"
#include "tests/TestSeed.h"

namespace {

int pool[1000];

std::vector<void*> items(const GenericList& list) {
    std::vector<void*> result;
    const GenericNode* previous = nullptr;
    for (GenericNode* node = list.getHead(); node != nullptr; node = node->getNext()) {
        EXPECT_EQ(node->getPrev(), previous);
        previous = node;
        result.push_back(node->getItem());
    }
    EXPECT_EQ(list.getTail(), previous);
    EXPECT_EQ(list.getCount(), static_cast<long>(result.size()));
    return result;
}

TEST(GenericLists, AgreeWithAModel) {
    std::mt19937 rng(testSeed());
    GenericList list;
    std::vector<void*> model;
    for (int step = 0; step < 20000; ++step) {
        void* item = &pool[rng() % 1000];
        const long size = static_cast<long>(model.size());
        const long at = size > 0 ? static_cast<long>(rng()) % size : 0;
        switch (rng() % 8) {
            case 0:
                EXPECT_EQ(list.append(item)->getItem(), item);
                model.push_back(item);
                break;
            case 1:
                list.prepend(item);
                model.insert(model.begin(), item);
                break;
            case 2:
                list.insertAt(at, item);
                model.insert(model.begin() + at, item);
                break;
            case 3:
                if (size == 0) break;
                ASSERT_EQ(list.remove(at), model[static_cast<size_t>(at)]);
                model.erase(model.begin() + at);
                break;
            case 4: {
                auto found = std::find(model.begin(), model.end(), item);
                ASSERT_EQ(list.remove(item), found == model.end() ? nullptr : item);
                if (found != model.end()) model.erase(found);
                break;
            }
            default:
                // From any position to any other, near ones included.
                for (long i = at; i < std::min(at + 3, size); ++i) {
                    ASSERT_EQ(list.findItem(i), model[static_cast<size_t>(i)]);
                }
        }
        if (step % 100 == 0) {
            ASSERT_EQ(items(list), model);
        }
    }
    EXPECT_EQ(std::vector<void*>(list.begin(), list.end()), model);
    GenericList copy(list);
    EXPECT_EQ(items(copy), model);
    copy = copy;
    GenericList assigned;
    assigned.append(&pool[0]);
    assigned = copy;
    EXPECT_EQ(items(assigned), model);
    list.clear();
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(list.remove(static_cast<void*>(&pool[1])), nullptr);
}

TEST(GenericLists, BadPositionsAreFatal) {
    GenericList list;
    GenericNode* only = list.append(&pool[0]);
    const char* bounds = "^List bounds violation in fxds/GenericList aborting \\.\\.\\.\n$";
    EXPECT_DEATH(list.findNode(1), bounds);
    EXPECT_DEATH(list.findNode(-1), bounds);
    EXPECT_DEATH(list.insertAt(-1, nullptr), bounds);
    EXPECT_DEATH(list.insertAt(2, nullptr), bounds);
    EXPECT_DEATH(GenericList().remove(0), bounds);
    EXPECT_DEATH(GenericList().remove(only),
                 "^List underflow in fxds/GenericList aborting \\.\\.\\.\n$");
    list.insertAt(1, &pool[1]);
    EXPECT_EQ(list.findItem(1), &pool[1]);
    list.remove(0);
    list.remove(list.getHead());
    EXPECT_EQ(list.getHead(), nullptr);
    EXPECT_EQ(list.getTail(), nullptr);
}

struct Link : fxLinkItem {
    int id = 0;
};

class IndexableLists : public testing::Test {
protected:
    typedef std::vector<fxLinkItem*> Links;

    // Fresh links, strung together.
    Links chain(size_t n) {
        Links links;
        for (size_t i = 0; i < n; ++i) links.push_back(&store[used++]);
        for (size_t i = 0; i + 1 < n; ++i) {
            links[i]->next = links[i + 1];
            links[i + 1]->prev = links[i];
        }
        return links;
    }
    static void expectSame(fxIndexableList& list, const Links& model) {
        EXPECT_EQ(Links(collect(list.getHead())), model);
        EXPECT_EQ(list.getCount(), static_cast<long>(model.size()));
        EXPECT_EQ(list.getTail(), model.empty() ? nullptr : model.back());
        for (size_t i = 0; i < model.size(); ++i) {
            EXPECT_EQ(list.findLink(static_cast<long>(i)), model[i]);
        }
    }
    static Links collect(fxLinkItem* first) {
        Links links;
        const fxLinkItem* previous = nullptr;
        for (; first != nullptr; first = first->next) {
            EXPECT_EQ(first->prev, previous);
            previous = first;
            links.push_back(first);
        }
        return links;
    }
    std::vector<Link> store{20000};
    size_t used = 0;
};

TEST_F(IndexableLists, AgreeWithAModel) {
    std::mt19937 rng(testSeed());
    fxIndexableList list;
    Links model;
    for (int step = 0; step < 4000; ++step) {
        const long size = static_cast<long>(model.size());
        const long at = static_cast<long>(rng()) % (size + 1);
        switch (rng() % 8) {
            case 0:
            case 1: {
                fxLinkItem* link = chain(1)[0];
                EXPECT_EQ(list.insertAt(at, link), size + 1);
                model.insert(model.begin() + at, link);
                break;
            }
            case 2:
                if (at == size) {
                    ASSERT_EQ(list.unlinkAt(at), nullptr);
                } else {
                    ASSERT_EQ(list.unlinkAt(at), model[static_cast<size_t>(at)]);
                    model.erase(model.begin() + at);
                }
                break;
            case 3:
                if (at == size) break;
                list.unlink(model[static_cast<size_t>(at)]);
                model.erase(model.begin() + at);
                break;
            case 4: {
                Links more = chain(rng() % 4);
                fxIndexableList other(more.empty() ? nullptr : more[0]);
                if (rng() % 2 == 0) {
                    ASSERT_EQ(list.insertListAt(at, &other), static_cast<long>(more.size()));
                    model.insert(model.begin() + at, more.begin(), more.end());
                } else if (at != size - 1) {  // behind the last one is another story
                    const long grown = size + static_cast<long>(more.size());
                    ASSERT_EQ(list.appendListAt(at, &other), grown);
                    model.insert(model.begin() + std::min(at + 1, size), more.begin(), more.end());
                } else {
                    break;
                }
                expectSame(other, {});
                break;
            }
            case 5: {
                if (size < 20 || at == size) break;
                fxLinkItem* cut = model[static_cast<size_t>(at)];
                if (rng() % 2 == 0) {
                    EXPECT_EQ(list.splitAt(at), cut);
                } else {
                    list.split(cut);
                }
                EXPECT_EQ(collect(cut), Links(model.begin() + at, model.end()));
                model.resize(static_cast<size_t>(at));
                break;
            }
            default:
                EXPECT_EQ(list.findLink(at), at == size ? nullptr : model[static_cast<size_t>(at)]);
        }
        if (step % 10 == 0) expectSame(list, model);
        if (HasFailure()) return;
    }
}

TEST_F(IndexableLists, SurviveOddSplices) {
    Links abc = chain(3);
    fxIndexableList list(abc[0]);
    EXPECT_EQ(list.insertList(&list), 0);
    EXPECT_EQ(list.appendList(&list), 3);
    fxIndexableList empty;
    EXPECT_EQ(list.appendListAt(0, &empty), 3);
    expectSame(list, abc);
    EXPECT_EQ(empty.findLink(0), nullptr);
    EXPECT_EQ(empty.splitAt(0), nullptr);
    EXPECT_EQ(list.findLink(-1), nullptr);

    // Behind the last position the tail stays: what lies beyond it is not found
    // from there, and no walk leaves the chain.
    Links de = chain(2);
    fxIndexableList more(de[0]);
    EXPECT_EQ(list.appendListAt(2, &more), 5);
    EXPECT_EQ(list.getTail(), abc[2]);
    EXPECT_EQ(list.findLink(4), abc[2]);
    for (long i = 0; i < 5; ++i) list.findLink(i);
    EXPECT_EQ(collect(list.getHead()).size(), 5u);

    fxIndexableList single(chain(1)[0]);
    Links xyz = chain(3);
    fxIndexableList tail(xyz[0]);
    EXPECT_EQ(single.appendListAt(0, &tail), 4);
    EXPECT_EQ(single.findLink(2), nullptr) << "backwards from a tail that stayed behind";
}

}  // namespace
